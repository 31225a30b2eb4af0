#ifndef SYS_SYS_TIME_H
#define SYS_SYS_TIME_H

// Clocks, sleeping, calendar time and the number of processors.
//
// The monotonic clock never jumps when somebody sets the date, and stands still while the machine sleeps. Two counts
// start at 0 when they are first asked for: one in microseconds, which SYS_GetTickUs, SYS_GetElapsedUs and SYS_Sleep
// start and share, and one in milliseconds, which SYS_GetTickMs has for itself. A count starts once and goes on until
// the process ends; all threads see the same one, also those that start it at the same moment. Units are cut, never
// rounded up. Any number of threads may call any operation.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// A moment on the calendar. A moment whose year no field can hold is a record of zeros.
typedef struct SYS_TIME {
  uint16_t Year;          // In full, such as 2026.
  uint16_t Month;         // 1 to 12.
  uint16_t Day;           // 1 to 31.
  uint16_t Hour;          // 0 to 23.
  uint16_t Minute;        // 0 to 59.
  uint16_t Second;        // 0 to 59; 60 in a leap second, where the platform counts them.
  uint16_t Milliseconds;  // Always 0: the layer's calendar goes in seconds.
} SYS_TIME;

// Returns the microseconds since the count started; the call that starts it returns 0.
uint64_t SYS_GetTickUs(void);

// Returns the microseconds since t0, an earlier result of SYS_GetTickUs. Before the count has started it starts here,
// and the result is 0 - t0, wrapping.
uint64_t SYS_GetElapsedUs(uint64_t t0);

// Returns the milliseconds since the count of milliseconds started; the call that starts it returns 0. The result wraps
// after 2^32 ms, about 49.7 days: only differences of two results tell time then.
uint32_t SYS_GetTickMs(void);

// Returns the milliseconds of the monotonic clock itself, which starts anywhere; usually when the machine does.
uint64_t SYS_GetTimeMs(void);

// Lets the calling thread sleep for milliseconds, of any number. Signals are handled meanwhile but shorten nothing, and
// what they take counts as slept: the sleep ends within the platform's granularity behind its time. It keeps the
// thread's error number, so that a failure before it can be looked at after it.
void SYS_Sleep(uint32_t milliseconds);

// Fills the record with the present local time, or with UTC. pTime may be null, which asks for nothing. The local time
// zone is looked up at every call (environment variable TZ, else the machine's), so that a change of it shows; no
// thread may change the environment meanwhile.
void SYS_GetLocalTime(SYS_TIME* pTime);
void SYS_GetUTCTime(SYS_TIME* pTime);

// Reads date and time out of a text of the fixed layout "Mmm dd yyyy hh:mm:ss", such as "Nov  5 2026 09:07:03": English
// month, day and hour with a zero or a blank before a single digit. Stores the date as the decimal number yymmdd
// (261105) in *pDate, the time as hhmmss (90703) in *pTime. Both may be null, then that half of the text is not looked
// at. Returns 0, or -1 with nothing stored when a date is asked for and the month is none.
//
// Only the month is checked. Other characters count by their distance from '0', whatever they are; characters that a
// text of less than 20 lacks count as 0.
int32_t SYS_ParseDateTime(const char* text, uint32_t* pDate, uint32_t* pTime);

// Returns the number of logical processors that are in use, 1 when the platform does not tell.
int32_t SYS_GetNumCPUs(void);

#ifdef __cplusplus
}
#endif

#endif
