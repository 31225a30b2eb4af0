# How the project is compiled and linked: one interface target for the product, a stricter promise than the compilers'
# defaults, and the list of symbols that the tool exports.

set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wcast-qual -Wcast-align -Wundef -Werror)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>)

if(NORDAX_SANITIZE)
  add_compile_options(-fsanitize=${NORDAX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${NORDAX_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
    # This one check compares C++ type information, which the product has none of, and needs the C++ runtime library.
    add_compile_options(-fno-sanitize=function)
  endif()
endif()
if(NORDAX_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# What ships: no exceptions, no run-time type information, no guarded statics, so that no C++ runtime library is needed.
add_library(nordax_product INTERFACE)
target_compile_options(nordax_product INTERFACE -Wconversion -Wmissing-declarations
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
  -ffunction-sections -fdata-sections
  $<$<CONFIG:Release>:-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=>)  # The same bytes wherever the sources stand.
if(APPLE)
  target_link_options(nordax_product INTERFACE "LINKER:-dead_strip" "LINKER:-dead_strip_dylibs")
else()
  target_link_options(nordax_product INTERFACE "LINKER:--gc-sections" "LINKER:--as-needed")
endif()

# The forwarders are the tool's only exported symbols: the script engine and other plug-ins of the probe library find
# the library's functions through them.
function(nordax_export_forwarders target)
  if(APPLE)
    target_link_options(${target} PRIVATE "LINKER:-exported_symbol,_VORTA_*" "LINKER:-exported_symbol,_VORTAARM_*")
  else()
    set(list ${CMAKE_SOURCE_DIR}/probe/exports.lst)
    target_link_options(${target} PRIVATE "LINKER:--dynamic-list=${list}")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${list})
  endif()
endfunction()
