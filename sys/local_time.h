#ifndef SYS_LOCAL_TIME_H
#define SYS_LOCAL_TIME_H

// Inside the layer: calendar time as the layer's record, and the names of the months.

#include <time.h>

#include "sys/sys_time.h"

constexpr char TIME_MONTHS[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Fills the record with the local time that is seconds after the start of 1970 in UTC. A time whose year the record
// cannot hold gives a record of zeros.
void TIME_FillLocal(time_t seconds, SYS_TIME* pTime);

#endif
