#ifndef MACOS_STUBS_IOPMLIB_H
#define MACOS_STUBS_IOPMLIB_H

// Stand-in: power assertions.

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t IOPMAssertionID;
typedef uint32_t IOPMAssertionLevel;

enum {
  kIOPMNullAssertionID = 0,
  kIOPMAssertionLevelOff = 0,
  kIOPMAssertionLevelOn = 255,
};

#define kIOPMAssertionTypeNoIdleSleep CFSTR("NoIdleSleepAssertion")
#define kIOPMAssertionTypePreventUserIdleSystemSleep CFSTR("PreventUserIdleSystemSleep")

IOReturn IOPMAssertionCreateWithName(CFStringRef type, IOPMAssertionLevel level, CFStringRef name,
                                     IOPMAssertionID* pAssertion);
IOReturn IOPMAssertionCreateWithDescription(CFStringRef type, CFStringRef name, CFStringRef details,
                                            CFStringRef humanReadableReason, CFStringRef localizationBundlePath,
                                            CFTimeInterval timeout, CFStringRef timeoutAction,
                                            IOPMAssertionID* pAssertion);
IOReturn IOPMAssertionRelease(IOPMAssertionID assertion);

#ifdef __cplusplus
}
#endif

#endif
