#ifndef APP_CONSOLE_H
#define APP_CONSOLE_H

// Console output for features of the front end beside the session, which prints its own lines. All of it goes to
// standard output and is flushed, so that it appears at once.
//
// A format is one of the compact engine (util/fmt.h). A null format, or one of 2,048 characters and more, prints
// nothing, and a text is cut to 4,095 characters. Other pointers must not be null.

#ifdef __cplusplus
extern "C" {
#endif

// Prints a text as it is.
void CONSOLE_PrintText(const char* text);

// Prints a text and "\r\n", cut as a formatted text is.
void CONSOLE_PrintLine(const char* text);

// Prints a formatted text.
void CONSOLE_Printf(const char* format, ...);

// Print "WARNING: " or "ERROR: " and a formatted text, with a line end unless it has one or fills its 4,095 characters,
// in which the prefix counts.
void CONSOLE_Warning(const char* format, ...);
void CONSOLE_Error(const char* format, ...);

// Prints "ERROR: ", a text as it is, and a line end.
void CONSOLE_ErrorText(const char* text);

#ifdef __cplusplus
}
#endif

#endif
