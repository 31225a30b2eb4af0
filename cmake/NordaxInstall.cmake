# What an installation and the packages consist of, in components:
#   tool     the program, its manual page and completions
#   runtime  the layer's shared library
#   devel    the layer's static library and headers, and what finds both libraries: CMake package and pkg-config file
#   sim      the simulated probe (sim/CMakeLists.txt); in no package, it must never stand in for a real probe library
# Everything is found relative to where it stands, so that an installation may be moved.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(headers_dir ${CMAKE_INSTALL_INCLUDEDIR}/nordaxutil)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/nordaxutil)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The layer once more, as a shared library of the same objects, linked with what the static one leaves to its clients.
get_target_property(layer_libraries nordaxutil LINK_LIBRARIES)
add_library(nordaxutil_shared SHARED $<TARGET_OBJECTS:nordaxutil>)
target_link_libraries(nordaxutil_shared PRIVATE ${layer_libraries})
set_target_properties(nordaxutil PROPERTIES EXPORT_NAME static)
set_target_properties(nordaxutil_shared PROPERTIES
  EXPORT_NAME shared
  OUTPUT_NAME nordaxutil
  LINKER_LANGUAGE C
  INSTALL_NAME_DIR @rpath
  BUILD_WITH_INSTALL_NAME_DIR ON
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR})

# The map is the one list of what the shared library shows; Apple's linker takes the same patterns one by one. Calls
# within the library are bound to itself, whatever a client exports.
set(map ${CMAKE_SOURCE_DIR}/cmake/nordaxutil.map)
set_property(TARGET nordaxutil_shared APPEND PROPERTY LINK_DEPENDS ${map})
if(APPLE)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${map})
  file(STRINGS ${map} patterns REGEX "_[*];$")
  foreach(pattern IN LISTS patterns)
    string(REGEX REPLACE "[ ;]" "" pattern "${pattern}")
    target_link_options(nordaxutil_shared PRIVATE "LINKER:-exported_symbol,_${pattern}")
  endforeach()
else()
  target_link_options(nordaxutil_shared PRIVATE LINKER:-Bsymbolic-functions LINKER:--version-script=${map})
  if(NOT NORDAX_SANITIZE AND NOT NORDAX_FUZZ)
    target_link_options(nordaxutil_shared PRIVATE LINKER:-z,defs)  # Complete: its clients name no library for it.
  endif()
endif()

install(TARGETS tamsel RUNTIME COMPONENT tool)
install(FILES docs/tamsel.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
install(FILES docs/completion/tamsel.bash RENAME tamsel
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool)
# Debian's zsh keeps a folder of its own for what packages bring. Which prefix counts is known at installation only.
install(CODE [[
  set(zsh_dir site-functions)
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND EXISTS /etc/debian_version)
    set(zsh_dir vendor-completions)
  endif()
]] COMPONENT tool)
install(FILES docs/completion/_tamsel DESTINATION "${CMAKE_INSTALL_DATADIR}/zsh/\${zsh_dir}" COMPONENT tool)

install(TARGETS nordaxutil nordaxutil_shared EXPORT nordaxutil
  ARCHIVE COMPONENT devel
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT devel
  INCLUDES DESTINATION ${headers_dir})
foreach(header IN LISTS layer_headers)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${headers_dir}/${folder} COMPONENT devel)
endforeach()

install(EXPORT nordaxutil NAMESPACE nordaxutil:: FILE nordaxutil-targets.cmake DESTINATION ${package_dir}
  COMPONENT devel)
set(generated ${CMAKE_BINARY_DIR}/package)
configure_package_config_file(cmake/nordaxutil-config.cmake.in ${generated}/nordaxutil-config.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${generated}/nordaxutil-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${generated}/nordaxutil-config.cmake ${generated}/nordaxutil-config-version.cmake
  DESTINATION ${package_dir} COMPONENT devel)

# What clients of the static library link. A library that is named in two ways there is a path in the build tree.
set(libraries ${layer_libraries})
list(FILTER libraries EXCLUDE REGEX "^[$]<BUILD_INTERFACE:")
list(TRANSFORM libraries REPLACE "^[$]<INSTALL_INTERFACE:(.*)>$" "\\1")
list(TRANSFORM libraries PREPEND -l REGEX "^[^-]")
list(JOIN libraries " " pkgconfig_libraries)
file(RELATIVE_PATH pkgconfig_up ${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pkgconfig_up ${pkgconfig_up})
configure_file(cmake/nordaxutil.pc.in ${generated}/nordaxutil.pc @ONLY)
install(FILES ${generated}/nordaxutil.pc DESTINATION ${pkgconfig_dir} COMPONENT devel)

# Packages: for Debian one a component, and one archive with everything.
set(CPACK_GENERATOR TGZ)
if(NOT APPLE)
  list(PREPEND CPACK_GENERATOR DEB)
endif()
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/package.cmake)
set(CPACK_PACKAGE_NAME tamsel)
set(CPACK_PACKAGE_VENDOR NORDAX)
set(CPACK_PACKAGE_CONTACT "NORDAX <tamsel@nordax.invalid>")
string(TOLOWER ${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR} machine)
set(CPACK_PACKAGE_FILE_NAME tamsel-${PROJECT_VERSION}-${machine})
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL tool runtime devel)
set(CPACK_COMPONENT_DEVEL_DEPENDS runtime)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME tamsel)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION electronics)
set(CPACK_COMPONENT_TOOL_DESCRIPTION "provisions microcontrollers through a debug probe
Hands a script to the script engine of the probe's library and runs one operation
of it. That library comes with the probe.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libnordaxutil${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "portable utility layer (shared library)
Text, memory, XML, registry and operating system, for programs in C and C++.")
set(CPACK_DEBIAN_DEVEL_PACKAGE_NAME libnordaxutil-dev)
set(CPACK_DEBIAN_DEVEL_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVEL_DESCRIPTION "portable utility layer (development files)
Headers, the static library, a CMake package and a pkg-config file.")
if(pkgconfig_libraries MATCHES "-ledit( |$)")
  set(CPACK_DEBIAN_DEVEL_PACKAGE_DEPENDS libedit-dev)
endif()
include(CPack)
