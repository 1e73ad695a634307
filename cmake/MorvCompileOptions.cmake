# Compiler settings shared by every target, and morv_add_library(), which
# builds one of the project's shared libraries.

# A fuzzing build instruments every library for coverage and with the
# address and undefined-behaviour sanitizers, so that the fuzzer sees (and
# checks) the code under test, not only its own entry point.
if(MORV_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)
  add_link_options(-fsanitize=address,undefined)
endif()
if(MORV_SANITIZE AND MORV_SANITIZE_THREAD)
  message(FATAL_ERROR "MORV_SANITIZE and MORV_SANITIZE_THREAD cannot be combined")
endif()
if(MORV_SANITIZE_THREAD)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
if(MORV_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# Warnings for the project's own targets (not for third-party code).
function(morv_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra
                         $<$<BOOL:${MORV_WERROR}>:-Werror>)
endfunction()

# Installed binaries find the Morv libraries relative to themselves, wherever
# the installation is, unless the library folder is one that the dynamic
# linker searches anyway (/usr/lib/<triplet> for a distribution's package):
# there a search path would only shadow the system's own order.
set(MORV_INSTALL_RPATH ON)
list(APPEND MORV_SYSTEM_LIBRARY_DIRS
     ${CMAKE_PLATFORM_IMPLICIT_LINK_DIRECTORIES} ${CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES})
if("${CMAKE_INSTALL_FULL_LIBDIR}" IN_LIST MORV_SYSTEM_LIBRARY_DIRS)
  set(MORV_INSTALL_RPATH OFF)
endif()

# An installed program: exported as Morv::<target> in an export set of its
# own (MorvPackage.cmake installs one file per program beside the package's
# configuration), so that the libraries' package does not need the program.
function(morv_install_program target)
  if(MORV_INSTALL_RPATH)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  endif()
  install(TARGETS ${target} EXPORT MorvProgram-${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  set_property(GLOBAL APPEND PROPERTY MORV_PROGRAMS ${target})
endfunction()

# The support templates are header-only.
add_library(mvtl INTERFACE)
add_library(Morv::mvtl ALIAS mvtl)
target_include_directories(mvtl INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(mvtl INTERFACE cxx_std_17)
install(TARGETS mvtl EXPORT MorvTargets)

# morv_add_library(<name> SOURCES ... [LINK ...] [LINK_INTERNAL ...]
#                  [LINK_PRIVATE ...])
#
# Compiles SOURCES once, with hidden symbols (the public headers mark what is
# exported), and links the objects into
#   <name>           the shared library, exported as Morv::<name>; it links
#                    LINK publicly and LINK_PRIVATE privately;
#   <name>_internal  a static library for tests that use the library's
#                    internal classes; it links LINK_INTERNAL (the internal
#                    twins of LINK) and LINK_PRIVATE, so a test holds one copy
#                    of every static object.
# The library's own folder and src/ are include roots of its internal code:
# its headers by their path below that folder ("format/PListTree.h"), the
# helpers of src/common as "common/FileDescriptor.h".
function(morv_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;LINK_INTERNAL;LINK_PRIVATE" ${ARGN})

  add_library(${name}_objects OBJECT ${ARG_SOURCES})
  set_target_properties(${name}_objects PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${name}_objects PRIVATE
    ${PROJECT_SOURCE_DIR}/include ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name}_objects PRIVATE mvtl ${ARG_LINK_INTERNAL} ${ARG_LINK_PRIVATE})
  morv_set_warnings(${name}_objects)

  add_library(${name} SHARED $<TARGET_OBJECTS:${name}_objects>)
  add_library(Morv::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  if(MORV_INSTALL_RPATH)
    # Finds the other Morv libraries beside it.
    set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN")
  endif()
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC mvtl ${ARG_LINK} PRIVATE ${ARG_LINK_PRIVATE})
  target_link_options(${name} PRIVATE -Wl,--no-undefined)

  add_library(${name}_internal STATIC $<TARGET_OBJECTS:${name}_objects>)
  target_include_directories(${name}_internal PUBLIC
    ${PROJECT_SOURCE_DIR}/include ${CMAKE_CURRENT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name}_internal PUBLIC mvtl ${ARG_LINK_INTERNAL} ${ARG_LINK_PRIVATE})

  install(TARGETS ${name} EXPORT MorvTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()
