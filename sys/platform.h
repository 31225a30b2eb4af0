#ifndef SYS_PLATFORM_H
#define SYS_PLATFORM_H

// Inside the layer: what each platform does in its own way, in the layer's terms. Each platform's sources implement the
// whole list; everything else in the layer is POSIX and common. Results are 0 or -1 where not said otherwise.

#include <stdint.h>

#include "sys/sys_sync.h"

#ifdef __APPLE__
#include <crt_externs.h>

// A shared library, as the layer may be, cannot name the variable itself.
#define environ (*_NSGetEnviron())

constexpr uint32_t PLATFORM_MAX_LINKS = 32;             // Symbolic links followed in one path.
constexpr const char PLATFORM_OPEN_COMMAND[] = "open";  // Opens a file or a URL on the desktop.
constexpr uint32_t PLATFORM_MAX_THREAD_NAME = 63;       // Characters.
#else
constexpr uint32_t PLATFORM_MAX_LINKS = 40;
constexpr const char PLATFORM_OPEN_COMMAND[] = "xdg-open";
constexpr uint32_t PLATFORM_MAX_THREAD_NAME = 15;
#endif

// Gives the file of the running program's image: absolute, or a bare name when the platform knows no more.
int32_t PLATFORM_GetImagePath(char* pDest, uint32_t size);

// Gives the absolute path of the running process. The size is at most 4096 (Darwin refuses more). Returns the path's
// length, or -1 when it is not known or does not fit.
int32_t PLATFORM_GetProcessPath(char* pDest, uint32_t size);

// Starts a child process that calls pfRun, which must not return but load a program or end. The child may live in the
// caller's memory, and the calling thread stands still until it no longer does; its descriptors and signal handlers are
// its own. Returns the child's id, or -1.
int32_t PLATFORM_StartChild(void (*pfRun)(const void*), const void* pArg);

// Closes all open descriptors from first on. Takes no lock and no memory from the heap, so that a child may call it.
int32_t PLATFORM_CloseFrom(int32_t first);

// Create a socket, and take a connection: closed on exec, and, if a stream, without the broken-pipe signal as far as
// the socket alone can prevent it. Return the socket or -1.
int32_t PLATFORM_CreateSocket(int32_t family, int32_t type);
int32_t PLATFORM_AcceptSocket(int32_t sock);

// What every send has to be given, so that it does not raise the broken-pipe signal.
extern const int PLATFORM_SEND_FLAGS;

// The option that sets lingering in seconds.
extern const int PLATFORM_LINGER_SECONDS;

// Returns the hardware address in an entry of the platform's interface list, six bytes within the entry, or null when
// the entry is none of a hardware address or that is of another length.
const uint8_t* PLATFORM_GetLinkAddress(const struct ifaddrs* pEntry);

// A reading of the monotonic clock. A tick lasts Numerator / Denominator nanoseconds; a Denominator of 0 tells that the
// platform could not say, and a tick counts as one nanosecond.
struct PLATFORM_CLOCK {
  uint64_t NumTicks;
  uint32_t Numerator;
  uint32_t Denominator;
};

PLATFORM_CLOCK PLATFORM_ReadClock();

// The reading in whole nanoseconds. Whole denominators of ticks are taken apart from the rest of them: no product wraps
// unless the nanoseconds themselves exceed 64 bits, after 584 years.
constexpr uint64_t PLATFORM_ClockToNs(const PLATFORM_CLOCK& clock) {
  if (clock.Denominator == 0 || clock.Numerator == clock.Denominator) {
    return clock.NumTicks;
  }
  return clock.NumTicks / clock.Denominator * clock.Numerator +
         clock.NumTicks % clock.Denominator * clock.Numerator / clock.Denominator;
}

// Returns the number of logical processors in use; less than 1 when it is not known.
int32_t PLATFORM_GetNumCPUs();

// Counting semaphores. Time-outs run on a clock that nobody sets. Creation gives null when memory is exhausted; the
// others want a semaphore. Waiting gives 0, SYS_WAIT_TIMEOUT or -1.
SYS_SEMA* PLATFORM_CreateSema(uint32_t initialCount);
void PLATFORM_DeleteSema(SYS_SEMA* pSema);
int32_t PLATFORM_PostSema(SYS_SEMA* pSema);
int32_t PLATFORM_WaitSema(SYS_SEMA* pSema, uint32_t timeoutMs);

// The calling thread's name. Setting cuts it to PLATFORM_MAX_THREAD_NAME characters; pDest has room for as many.
int32_t PLATFORM_SetThreadName(const char* name);
int32_t PLATFORM_GetThreadName(char* pDest);

// Sets any rate above 0 of a serial port, for both directions, or fails with the platform's error number.
int32_t PLATFORM_SetBaudrate(int32_t fd, uint32_t baudrate);

// Calls pfOnPort with the name below /dev of each USB serial port, in an order that is the same in every call.
void PLATFORM_ListSerialPorts(void (*pfOnPort)(const char* deviceName, void* pContext), void* pContext);

// Asks the system not to sleep for want of input; the result is what ends that.
uint32_t PLATFORM_PreventIdleSleep();
void PLATFORM_AllowIdleSleep(uint32_t assertion);

// Makes the process one without an icon and a menu bar.
int32_t PLATFORM_BecomeUIElement();

// Returns when what has been written to a file, or changed in a directory, is on the medium itself and outlasts a loss
// of power, as far as the platform can tell. A file that cannot be flushed because it has no medium counts as flushed.
int32_t PLATFORM_Flush(int32_t fd);

#endif
