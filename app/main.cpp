// The entry: what the process must have settled before the session runs.

#include <stdio.h>

#include "app/session.h"
#include "sys/sys.h"

namespace {

// Also holds the longest command line that is likely, so that its echo stays in one piece among other programs' output.
char acOutput[0x10000];

// A supervising program may have closed the standard streams. Whatever is opened next would take their descriptors, and
// our output would go into the probe's connection, or into a file of the probe library's.
void OccupyStandardStreams() {
  int32_t fd;
  do {
    fd = SYS_FILE_Open("/dev/null", SYS_FILE_READ | SYS_FILE_WRITE);
  } while (fd >= 0 && fd <= 2);
  SYS_FILE_Close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  OccupyStandardStreams();
  // Whoever supervises the run must see each line when it happens, also through a pipe.
  setvbuf(stdout, acOutput, _IOLBF, sizeof(acOutput));
  return SESSION_Run(argc, argv);
}
