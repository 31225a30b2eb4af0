#ifndef SYS_SYS_H
#define SYS_SYS_H

// The operating-system layer: the only code that talks to the platform, behind one set of plain functions.
//
// Each topic has a header of its own; this one includes them all. What holds everywhere:
// - Results are signed 32-bit where not shown otherwise: 0, a count or a descriptor on success, -1 on failure;
//   predicates give 1 or 0, creators a handle or null. After a failure the platform's error number is what
//   SYS_GetLastError returns.
// - Descriptors of files, sockets and serial ports are the platform's own, -1 meaning none, and close on exec.
// - Texts are 8-bit and NUL-terminated. A size counts the whole buffer; what does not fit is cut, and the text is
//   terminated.
// - Interrupted system calls are repeated where an operation does not say otherwise.
// - Any thread may call any operation where its topic does not say otherwise.

#include "sys/sys_dir.h"
#include "sys/sys_file.h"
#include "sys/sys_memory.h"
#include "sys/sys_path.h"
#include "sys/sys_process.h"
#include "sys/sys_replace.h"
#include "sys/sys_serial.h"
#include "sys/sys_services.h"
#include "sys/sys_socket.h"
#include "sys/sys_sync.h"
#include "sys/sys_thread.h"
#include "sys/sys_time.h"
#include "sys/sys_wait.h"

#endif
