# Writes the source OUTPUT with the time of the build: the local time, or in UTC the one that SOURCE_DATE_EPOCH names.
# The compilers' own __DATE__ tells when one source was compiled, and some of them do not know that variable.

if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(zone UTC)
endif()
string(TIMESTAMP stamp "%b %d %Y %H:%M:%S" ${zone})
string(REGEX REPLACE "^(...) 0" "\\1  " stamp ${stamp})
file(WRITE ${OUTPUT} "#include \"app/build_stamp.h\"\n\nconst char BUILD_STAMP[] = \"${stamp}\";\n")
