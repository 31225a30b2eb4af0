# The target: macOS 11, the first release for 64-bit Arm, and later. On a Mac this selects nothing else; the compiler
# and the SDK are the machine's own. Elsewhere it is a cross build with what tools/check-macos puts into
# build/macos-cross: a clang, LLVM's linker and other tools, and a folder in the layout of an SDK.

set(CMAKE_OSX_ARCHITECTURES arm64)
set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0)
if(CMAKE_HOST_APPLE)
  return()
endif()

set(cross ${CMAKE_CURRENT_LIST_DIR}/../build/macos-cross)
cmake_path(NORMAL_PATH cross)
if(NOT EXISTS ${cross}/sdk)
  message(FATAL_ERROR "There is no compiler for macOS in ${cross}: run tools/check-macos, which prepares it.")
endif()

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_OSX_SYSROOT ${cross}/sdk)

# The plain clang driver within the program, not the program's own front end: that one rejects Apple's linker options,
# and its linker exports nothing but main from an executable.
set(CMAKE_C_COMPILER ${cross}/zig clang)
set(CMAKE_CXX_COMPILER ${cross}/zig clang --driver-mode=g++)
set(CMAKE_C_COMPILER_TARGET arm64-apple-macos)
set(CMAKE_CXX_COMPILER_TARGET arm64-apple-macos)
set(CMAKE_C_FLAGS_INIT "-resource-dir=${cross}/resource")
# This copy of the C++ headers has no configuration header and expects it on the command line.
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT} -D_LIBCPP_ABI_VERSION=1 -D_LIBCPP_ABI_NAMESPACE=__1")

set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld --ld-path=${cross}/llvm/ld64.lld")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")
foreach(tool AR RANLIB NM STRIP OBJDUMP INSTALL_NAME_TOOL)
  string(TOLOWER llvm-${tool} name)
  string(REPLACE _ - name ${name})
  set(CMAKE_${tool} ${cross}/llvm/${name})
endforeach()

# The SDK folder has no C++ library, so CMake's trial program for C++ could not be linked. Nothing here may need one.
set(CMAKE_CXX_COMPILER_WORKS TRUE)

set(CMAKE_FIND_ROOT_PATH ${CMAKE_OSX_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
