// Loads the probe library three times, the third time insisting, and prints the results. No library is needed: each
// path that is tried is printed, and the one with the number in the argument opens, none for 0.

#include <stdio.h>
#include <stdlib.h>

#include "probe/loader.h"

static int numUntilFound;

// Takes the place of the C library's.
extern "C" void* dlopen(const char* path, int mode) noexcept;

void* dlopen(const char* path, int) noexcept {
  printf("%s\n", path);
  return --numUntilFound == 0 ? &numUntilFound : nullptr;
}

int main(int, char** argv) {
  numUntilFound = atoi(argv[1]);
  for (int i = 0; i < 3; i++) {
    printf("%d\n", PROBE_LoadLibrary(i == 2));
  }
  return 0;
}
