#ifndef PROBE_SCRIPT_FILE_H
#define PROBE_SCRIPT_FILE_H

// Where the script file of a run is found.

#ifdef __cplusplus
extern "C" {
#endif

// Size of the texts of script names and paths, in bytes.
#define SCRIPT_PATH_BYTES 512

// Finds the path of a script file. acName holds its name as the user gave it and receives the one in use: retired
// names, compared without regard to case, are replaced by those of their successors. acPath receives the path: the name
// itself when it is absolute, else the name below the directory Script beside the executable, of whose directory 255
// characters count. Both have SCRIPT_PATH_BYTES bytes, and what does not fit is cut. The file is not looked at. For one
// thread at a time.
void SCRIPT_ResolveFile(char* acName, char* acPath);

#ifdef __cplusplus
}
#endif

#endif
