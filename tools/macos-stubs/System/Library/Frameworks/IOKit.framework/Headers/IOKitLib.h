#ifndef MACOS_STUBS_IOKITLIB_H
#define MACOS_STUBS_IOKITLIB_H

// Stand-in: finding the services of a class and reading their properties, as far as sys/ uses it.

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

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
