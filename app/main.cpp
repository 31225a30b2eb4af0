#include <stdio.h>

#include "app/session.h"

int main(int argc, char** argv) {
  // A supervising program must see each line when it happens, also through a pipe.
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  return SESSION_Run(argc, argv);
}
