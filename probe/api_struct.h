#ifndef PROBE_API_STRUCT_H
#define PROBE_API_STRUCT_H

#ifdef __cplusplus
extern "C" {
#endif

// Copies a size-prefixed record, typically a table of function pointers, into one of another version.
//
// Both records begin with their size in bytes (uint32_t, which counts itself), and may have any alignment and overlap.
// What both have is copied, what only the destination has is set to zero, and the destination's size stays: a newer
// caller finds null for what an older source lacks. A source size below 4 counts as an empty record. A destination size
// that is not a multiple of 4 between 4 and 4,100 leaves the destination as it was. name, that of the record type,
// serves the diagnostic then. Pointers must not be null.
void UTIL_CopyAPIStruct(void* pDest, const void* pSrc, const char* name);

#ifdef __cplusplus
}
#endif

#endif
