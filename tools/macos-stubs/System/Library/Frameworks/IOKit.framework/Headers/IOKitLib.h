#ifndef MACOS_STUBS_IOKITLIB_H
#define MACOS_STUBS_IOKITLIB_H

// Stand-in: finding the services of a class and reading their properties, as far as sys/ uses it.

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOTypes.h>
#include <os/availability.h>

#ifdef __cplusplus
extern "C" {
#endif

// Two names of one value, by system release. Their availability is that of the SDK, so that the compiler tells when the
// name does not suit the deployment target.
extern const mach_port_t kIOMainPortDefault API_AVAILABLE(macos(12.0));
extern const mach_port_t kIOMasterPortDefault API_DEPRECATED_WITH_REPLACEMENT("kIOMainPortDefault", macos(10.0, 12.0));

CFMutableDictionaryRef IOServiceMatching(const char* pClassName);
kern_return_t IOServiceGetMatchingServices(mach_port_t mainPort, CFDictionaryRef matching, io_iterator_t* pIterator);
io_object_t IOIteratorNext(io_iterator_t iterator);
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef allocator,
                                          IOOptionBits options);
kern_return_t IOObjectRelease(io_object_t object);

#ifdef __cplusplus
}
#endif

#endif
