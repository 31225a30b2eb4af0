#ifndef MACOS_STUBS_READLINE_H
#define MACOS_STUBS_READLINE_H

// Stand-in: line input with editing and history.

#ifdef __cplusplus
extern "C" {
#endif

char* readline(const char* pPrompt);
int add_history(const char* pLine);

#ifdef __cplusplus
}
#endif

#endif
