#ifndef PROBE_LOADER_H
#define PROBE_LOADER_H

// Binding of the probe library, which comes with the probe and is found at run time.
//
// The library is searched once, in this order: beside the image of the running program and three directories above it;
// the same two places for the file of the running process (they differ where the program was started through a link);
// then /Applications/NORDAX/Vorta. Once loaded it stays for the life of the process. There is no lock: the first call
// of either operation, or of a forwarder, must be over before other threads make theirs.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Loads the library unless that was done before. Returns where it was found:
//   0  it was loaded already
//   1  beside the program's image, or three directories above
//   2  beside the process's file, or three directories above
//   3  in the install directory
//   4  in the install directory under its versioned name
// When it is nowhere, prints one line on standard output and returns -1, or with exitOnFailure not 0 ends the process
// with status 1.
int8_t PROBE_LoadLibrary(int32_t exitOnFailure);

// Loads the library if need be and returns the address of its entry point of that name, null if that is its address.
// Without a library, or when the library lacks the name, prints one line on standard output and ends the process with
// status 1.
void* PROBE_ResolveSymbol(const char* name);

#ifdef __cplusplus
}
#endif

#endif
