#ifndef SYS_SYS_PROCESS_H
#define SYS_SYS_PROCESS_H

// Starting other programs, waiting for them and stopping them.
//
// A started program has the caller's standard input, output and error and no other descriptor; user, working directory,
// signal mask and ignored signals are the caller's too. An attached program belongs to the caller, who must wait for it
// until its end has been reported once: from then on its id is nobody's, and the platform may give it to another
// process. A detached one belongs to the system from the start.
//
// An exit code is the status, 0 to 255, of a program that ended by itself, or the number of the signal that ended it.
// 0xFFFFFFFF stands for a program that has stopped, which only a caller who traces it gets to see.
//
// Any thread may call any operation. When several wait for one program, one learns its exit code and the others fail.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// What to start. The texts stay the caller's and are needed during the call only.
typedef struct SYS_PROC_DESC {
  void* pReserved0;   // Ignored.
  const char* pPath;  // The program's file, which is not searched for. Also the program's first argument.
  const char* pArgs;  // The further arguments in one text; null or empty for none.
  void* pReserved1;   // Ignored.
  uint8_t Reserved2;  // Ignored.
  // Flags, 0 or not.
  uint8_t CloseOutput;  // The program starts without standard output.
  uint8_t CloseError;   // The program starts without standard error.
  uint8_t Detach;       // The program is detached.
} SYS_PROC_DESC;

// Starts a program.
//
// The argument text is split as UTIL_ParseString reads it, up to its end: arguments stand between blanks, one that
// contains blanks stands in double quotes, and a comma behind the blank or the quote that ends one is dropped. A text
// of blanks alone is one empty argument. Up to six arguments in a text of up to 63 characters are passed without taking
// memory from the heap.
//
// An attached program has an empty environment. The result is its id, also when it cannot be executed, or when an
// output to be closed is not open: the exit code is 9 then. The call returns when the program has begun.
//
// A detached program has the caller's environment. The result is the id of a helper process that has ended already; it
// says that the start got under way, and nothing about the program. It is 0 when the caller ignores SIGCHLD, which
// leaves the end of the helper untold.
//
// Returns 0, and nothing was started, when pDesc->pPath is null, memory is exhausted or the platform has no room for
// one more process. The call holds back signals for the calling thread and requests to cancel it.
int32_t SYS_PROC_Create(const SYS_PROC_DESC* pDesc);

// Tells whether an attached program has ended, without waiting. Returns 0 when it has, and stores its exit code (may be
// null); 1 while it runs; -1 when pid is no unreported program of the caller's. Nothing is stored unless the result is
// 0.
int32_t SYS_PROC_GetExitCode(int32_t pid, uint32_t* pExitCode);

// Waits for an attached program to end, without limit. Returns 0 and stores its exit code (may be null), or -1 when pid
// is no unreported program of the caller's, and nothing is stored.
int32_t SYS_PROC_Wait(int32_t pid, uint32_t* pExitCode);

// Asks an attached program to end (SIGTERM) and waits until it has, however long it takes: a program can put the end
// off or ignore the request. Returns 0, or -1 when the signal cannot be sent or pid is no unreported program of the
// caller's: another process that the caller may signal gets the signal all the same.
int32_t SYS_PROC_Kill(int32_t pid);

// Closes all descriptors of the calling process except standard input, output and error. Returns 0, or -1 when the
// platform does not tell which ones are open. What other threads open meanwhile may stay open. Safe between fork and
// exec. Where neither the kernel nor /proc can help, descriptors above the process's limit stay open.
int32_t SYS_PROC_CloseInheritedFiles(void);

// Has the desktop open a file or a URL, with the command "open", or "xdg-open" on Linux, and waits for that command.
// The target reaches it as it stands, whatever characters it contains; one that begins with '-' is an option to the
// command. Returns the shell's wait status, 0 for success, or -1 when the shell cannot be run or the target is too
// long: the command is at most 511 characters with the quotes and with a '\' before each '"', '$', '`' and '\', and a
// longer one is not run, as a part of a target is another target.
int32_t SYS_ShellOpen(const char* target);

// Ends the process at once: no exit handlers, no flushing of buffered output. Of the exit code the low 8 bits count.
void SYS_Exit(int32_t exitCode);

// Returns the id of the calling process.
int32_t SYS_GetProcessId(void);

#ifdef __cplusplus
}
#endif

#endif
