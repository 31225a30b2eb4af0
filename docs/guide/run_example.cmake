# Runs an example of the guide in an empty directory, which is its home too, and compares what it prints.
#   cmake -DPROGRAM=<program> -DEXPECTED=<file> -DDIRECTORY=<directory, emptied first> -P run_example.cmake

file(REMOVE_RECURSE ${DIRECTORY})
file(MAKE_DIRECTORY ${DIRECTORY})
set(ENV{HOME} ${DIRECTORY})
set(ENV{TMPDIR} ${DIRECTORY}/)
set(ENV{TZ} UTC)
set(ENV{LC_ALL} C)
execute_process(COMMAND ${PROGRAM} WORKING_DIRECTORY ${DIRECTORY} INPUT_FILE /dev/null
  OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE result)
file(READ ${EXPECTED} expected)
if(NOT result STREQUAL 0 OR NOT "${errors}" STREQUAL "" OR NOT "${output}" STREQUAL "${expected}")
  message("-- Expected:\n${expected}-- Printed:\n${output}${errors}--")
  message(FATAL_ERROR "The example does not print what its page says, or failed with result ${result}.")
endif()
