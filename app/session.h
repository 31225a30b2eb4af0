#ifndef APP_SESSION_H
#define APP_SESSION_H

// One provisioning run, from the banner to the exit code.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Runs the session that the command line asks for. Every event is one line on standard output, the first failure ends
// the run with its message, and everything acquired is released. Returns the exit code: 0 on success, -1 after a
// failure or when the probe library reported an error at any time. Without the probe library, or one of the entry
// points that it must have, the process ends with status 1 instead. To be called once in a process.
int32_t SESSION_Run(int argc, char** argv);

#ifdef __cplusplus
}
#endif

#endif
