#ifndef MACOS_STUBS_COREFOUNDATION_H
#define MACOS_STUBS_COREFOUNDATION_H

// Stand-in for the framework's umbrella header: strings, dictionaries and reference counts, as far as sys/ uses them.

#include <MacTypes.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned long CFTypeID;
typedef long CFIndex;
typedef double CFTimeInterval;
typedef UInt32 CFStringEncoding;

typedef const void* CFTypeRef;
typedef const struct CFOpaqueAllocator* CFAllocatorRef;
typedef const struct CFOpaqueString* CFStringRef;
typedef const struct CFOpaqueDictionary* CFDictionaryRef;
typedef struct CFOpaqueDictionary* CFMutableDictionaryRef;

enum : CFStringEncoding {
  kCFStringEncodingUTF8 = 0x08000100,
};

extern const CFAllocatorRef kCFAllocatorDefault;

CFTypeID CFGetTypeID(CFTypeRef object);
void CFRelease(CFTypeRef object);

CFTypeID CFStringGetTypeID(void);
Boolean CFStringGetCString(CFStringRef string, char* pBuffer, CFIndex size, CFStringEncoding encoding);

// A constant string: the compiler lays the object out, the framework supplies its class.
#define CFSTR(TEXT) ((CFStringRef)__builtin___CFStringMakeConstantString("" TEXT ""))

void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* pKey, const void* pValue);

#ifdef __cplusplus
}
#endif

#endif
