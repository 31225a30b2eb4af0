#ifndef SYS_SYS_SERVICES_H
#define SYS_SYS_SERVICES_H

// Services of the platform that are too small for a topic of their own: idle sleep, random bytes, console input, the
// system log, host and user names, the desktop's view of the process, and mathematics.
//
// Nothing here prints, except that SYS_ReadLine shows its prompt. Pointers must not be null except where said
// otherwise. Sleep and console input have state that belongs to the process and no lock: they are meant for the main
// thread. The others may be called by any thread.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Idle sleep.

// Keeps the machine from falling asleep for want of a user's input, until SYS_AllowSleep or the end of the process.
// Calls do not nest: a second one does nothing. Whether the platform grants the request is not checked; on Linux it has
// no effect.
void SYS_PreventSleep(void);

// Lets the machine sleep again, however often SYS_PreventSleep was called. Does nothing when it was not.
void SYS_AllowSleep(void);

// Random bytes.

// Reads random bytes from the platform's /dev/random, once: what the read does not give, all of it when it fails, stays
// as it was in the buffer. Returns 0, or -1 when the device cannot be opened.
int32_t SYS_GetRandomBytes(void* pBuffer, uint32_t numBytes);

// Console input.

// Reads a line from standard input, with the prompt (may be null), line editing and the history of earlier lines if
// that is a terminal. Gives the line without its end, cut to size - 1 characters; the history gets the whole line,
// unless it is empty. Returns 0, or -1 with an empty text at the end of input. A program that calls this has to be
// linked with libedit, others need not be.
int32_t SYS_ReadLine(const char* prompt, char* pBuffer, uint32_t size);

// Waits for one character on standard input, and with a terminal in its usual mode for the return key after it. Returns
// it as a signed byte, -128 to 127; the byte 255 and the end of input both give -1.
int32_t SYS_GetChar(void);

// Returns the number of bytes that SYS_GetChar would read without waiting; 0 also when the platform cannot tell. The
// first call lets keys come in singly, without the return key, for the rest of the process: it takes the terminal out
// of canonical mode (echo stays as it is) and the buffer from the standard input stream. What was typed before stays
// readable, what SYS_GetChar had already read ahead into the stream's buffer does not: ask first, read then.
int32_t SYS_GetPendingInput(void);

// System log.

// Sends a message to the system log, from the user facility, with debug priority. Blanks on its left fill it up to 128
// characters.
void SYS_Syslog(const char* message);

// Names.

// Gives the machine's host name, cut to size - 1 characters; empty when the platform does not tell it. Always returns
// 0.
int32_t SYS_GetHostName(char* pBuffer, uint32_t size);

// Gives the name of the user who is logged in at the session's terminal: the person's, which is the full-name field of
// the password entry up to its first comma (and may be nothing), or the account's when that field is empty. *pSize is
// the size of the buffer, and afterwards the length of the whole name, of which size - 1 characters are stored. Without
// a login name or an entry, or when memory is exhausted, the text is empty and the length 0; with a null pointer
// nothing happens. Always returns 0.
int32_t SYS_GetUserName(char* pBuffer, uint32_t* pSize);

// Desktop.

// Turns the process into one that runs without an icon in the Dock and without a menu bar, but may show windows.
// Returns 0, or -1 when the platform refuses; on Linux it has no effect.
int32_t SYS_MakeUIElement(void);

// Mathematics: the C library's log10, pow and fabs, with their results for every argument.
double SYS_Log10(double x);
double SYS_Pow(double x, double y);
double SYS_Fabs(double x);

#ifdef __cplusplus
}
#endif

#endif
