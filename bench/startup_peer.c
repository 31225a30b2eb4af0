// The least program that does what the start of the tool must: loads the same library and prints its lines.
#include <dlfcn.h>
#include <stdio.h>

int main(int argc, char** argv) {
  puts("NORDAX Tamsel V9.42\nCompiled");
  if (dlopen(argv[argc - 1], RTLD_LAZY) == NULL) {
    return 1;
  }
  return puts("Unknown command line option") < 0;
}
