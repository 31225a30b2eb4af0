// Loads the probe library twice without insisting and then for a symbol, and prints the results and where the symbol
// was found.

#include <dlfcn.h>
#include <stdio.h>

#include "probe/loader.h"

int main() {
  for (int i = 0; i < 2; i++) {
    const int8_t result = PROBE_LoadLibrary(0);
    printf("%d\n", result);
  }
  Dl_info info = {};
  dladdr(PROBE_ResolveSymbol("VORTA_Close"), &info);
  printf("%s\n", info.dli_fname);
  return 0;
}
