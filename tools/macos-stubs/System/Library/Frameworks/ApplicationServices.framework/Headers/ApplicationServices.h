#ifndef MACOS_STUBS_APPLICATIONSERVICES_H
#define MACOS_STUBS_APPLICATIONSERVICES_H

// Stand-in for the framework's umbrella header: the process transform.

#include <MacTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  kCurrentProcess = 2,  // As the low half of a process serial number whose high half is 0.
};

typedef UInt32 ProcessApplicationTransformState;
enum {
  kProcessTransformToUIElementApplication = 4,
};

OSStatus TransformProcessType(const ProcessSerialNumber* pProcess, ProcessApplicationTransformState state);

#ifdef __cplusplus
}
#endif

#endif
