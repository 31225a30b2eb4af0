// The C library's mathematics under the layer's names, by itself: only programs that use it load the library for it.

#include <math.h>

#include "sys/sys_services.h"

double SYS_Log10(double x) {
  return log10(x);
}

double SYS_Pow(double x, double y) {
  return pow(x, y);
}

double SYS_Fabs(double x) {
  return fabs(x);
}
