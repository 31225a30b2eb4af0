#ifndef MACOS_STUBS_IOPMLIB_H
#define MACOS_STUBS_IOPMLIB_H

// Stand-in: power assertions.

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t IOPMAssertionID;

enum {
  kIOPMNullAssertionID = 0,
};

#define kIOPMAssertionTypeNoIdleSleep CFSTR("NoIdleSleepAssertion")

IOReturn IOPMAssertionCreateWithDescription(CFStringRef type, CFStringRef name, CFStringRef details,
                                            CFStringRef humanReadableReason, CFStringRef localizationBundlePath,
                                            CFTimeInterval timeout, CFStringRef timeoutAction,
                                            IOPMAssertionID* pAssertion);
IOReturn IOPMAssertionRelease(IOPMAssertionID assertion);

#ifdef __cplusplus
}
#endif

#endif
