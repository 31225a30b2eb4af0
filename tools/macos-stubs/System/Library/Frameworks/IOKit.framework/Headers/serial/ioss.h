#ifndef MACOS_STUBS_IOSS_H
#define MACOS_STUBS_IOSS_H

// Stand-in: requests of the serial driver that the terminal interface lacks.

#include <sys/ioccom.h>
#include <sys/termios.h>

// Sets any integer rate.
#define IOSSIOSPEED _IOW('T', 2, speed_t)

#endif
