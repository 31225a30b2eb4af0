#ifndef SYS_LOCAL_TIME_H
#define SYS_LOCAL_TIME_H

// Inside the layer: calendar time as the layer's record.

#include <time.h>

#include "sys/sys_time.h"

#ifdef __cplusplus
extern "C" {
#endif

// Fills the record with the local time that is seconds after the start of 1970 in UTC. A time whose year the record
// cannot hold gives a record of zeros.
void TIME_FillLocal(time_t seconds, SYS_TIME* pTime);

#ifdef __cplusplus
}
#endif

#endif
