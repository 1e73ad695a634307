# Builds and runs a separate project against an installation of the
# project with find_package(Morv CONFIG), compiles the same program with the
# flags that pkg-config gives, and runs the installed programs, their manual
# pages and bash completion. The installation is either a fresh prefix that
# the build is installed into, or one that is already there (the system's
# /usr, where the Debian packages put it).
#
# Inputs: MORV_WORK_DIR, MORV_CONSUMER_DIR, MORV_GENERATOR, and either
# MORV_BINARY_DIR (the build to install into MORV_WORK_DIR/prefix) or
# MORV_INSTALLED_PREFIX (the installation to test); MORV_WITH_LAUNCHER (OFF
# when the launcher was not built; ON by default); MORV_EXTRA_FLAGS (compiler
# and linker flags the build used, such as the sanitizers, which the consumer
# must share).

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE out
                  ERROR_VARIABLE out)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGV}\n${out}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

if(NOT DEFINED MORV_WITH_LAUNCHER)
  set(MORV_WITH_LAUNCHER ON)
endif()
file(REMOVE_RECURSE ${MORV_WORK_DIR})
file(MAKE_DIRECTORY ${MORV_WORK_DIR} ${MORV_WORK_DIR}/config)
# The consumer stores a setting: keep it in this folder.
set(ENV{XDG_CONFIG_HOME} ${MORV_WORK_DIR}/config)
set(ENV{XDG_CONFIG_DIRS} ${MORV_WORK_DIR}/xdg)

if(DEFINED MORV_INSTALLED_PREFIX)
  set(prefix ${MORV_INSTALLED_PREFIX})
else()
  set(prefix ${MORV_WORK_DIR}/prefix)
  run(${CMAKE_COMMAND} --install ${MORV_BINARY_DIR} --prefix ${prefix})
endif()

# The CMake package.
run(${CMAKE_COMMAND} -S ${MORV_CONSUMER_DIR} -B ${MORV_WORK_DIR}/build
    -G ${MORV_GENERATOR} -DCMAKE_PREFIX_PATH=${prefix}
    "-DCMAKE_CXX_FLAGS=${MORV_EXTRA_FLAGS}")
run(${CMAKE_COMMAND} --build ${MORV_WORK_DIR}/build)
# The package it found is the installation's.
file(STRINGS ${MORV_WORK_DIR}/build/CMakeCache.txt morv_dir REGEX "^Morv_DIR:")
string(REGEX REPLACE "^Morv_DIR:[A-Z]+=" "" morv_dir "${morv_dir}")
if(NOT morv_dir MATCHES "^${prefix}/")
  message(FATAL_ERROR "find_package(Morv) found ${morv_dir}, not a folder of ${prefix}")
endif()
run(${MORV_WORK_DIR}/build/consumer)
if(NOT last_output MATCHES "consumer ok")
  message(FATAL_ERROR "consumer built with CMake printed: ${last_output}")
endif()

# The pkg-config files.
file(GLOB pc_dirs ${prefix}/lib*/pkgconfig ${prefix}/lib*/*/pkgconfig)
list(JOIN pc_dirs ":" pc_path)
set(ENV{PKG_CONFIG_PATH} ${pc_path})
# Each file's libdir holds its library.
foreach(library IN ITEMS MorvString MorvSettings)
  run(pkg-config --variable=libdir ${library})
  string(STRIP "${last_output}" libdir)
  if(NOT EXISTS ${libdir}/lib${library}.so)
    message(FATAL_ERROR "${library}.pc: libdir ${libdir} has no lib${library}.so")
  endif()
endforeach()
run(pkg-config --cflags --libs MorvSettings MorvString)
string(STRIP "${last_output}" pc_flags)
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
separate_arguments(extra_flags UNIX_COMMAND "${MORV_EXTRA_FLAGS}")
run(c++ -std=c++17 ${extra_flags} ${MORV_CONSUMER_DIR}/consumer.cpp ${pc_flags}
    -o ${MORV_WORK_DIR}/consumer-pc)
set(lib_dirs)
foreach(flag IN LISTS pc_flags)
  if(flag MATCHES "^-L(.*)")
    list(APPEND lib_dirs ${CMAKE_MATCH_1})
  endif()
endforeach()
list(JOIN lib_dirs ":" ld_path)
set(ENV{LD_LIBRARY_PATH} ${ld_path})
run(${MORV_WORK_DIR}/consumer-pc)
if(NOT last_output MATCHES "consumer ok")
  message(FATAL_ERROR "consumer built with pkg-config printed: ${last_output}")
endif()
# The installed launcher finds its libraries by itself (no search path set):
# with no server anywhere it prints nothing and exits 0.
unset(ENV{LD_LIBRARY_PATH})
if(MORV_WITH_LAUNCHER)
  file(MAKE_DIRECTORY ${MORV_WORK_DIR}/empty)
  execute_process(COMMAND ${prefix}/bin/MMSLaunch WORKING_DIRECTORY ${MORV_WORK_DIR}/empty
                  RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0 OR NOT err STREQUAL "")
    message(FATAL_ERROR "installed MMSLaunch: status ${result}, stderr: ${err}")
  endif()
endif()
# The installed settings tool too: it writes a value and reads it back.
run(${prefix}/bin/morv-settings write Consumer Installed/Check string "from the tool")
run(${prefix}/bin/morv-settings read Consumer Installed/Check)
if(NOT last_output STREQUAL "from the tool\n")
  message(FATAL_ERROR "installed morv-settings read back: ${last_output}")
endif()
# The manual pages, which man finds (packages install them compressed), and
# the tool's bash completion.
set(ENV{MANPATH} ${prefix}/share/man)
set(pages morv-settings)
set(headline_morv-settings "morv-settings - read and change the settings")
if(MORV_WITH_LAUNCHER)
  list(APPEND pages MMSLaunch)
  set(headline_MMSLaunch "MMSLaunch - start the Morv Media Server")
endif()
foreach(name IN LISTS pages)
  run(man -w ${name})
  if(NOT last_output MATCHES "^${prefix}/share/man/man1/${name}\\.1(\\.gz)?\n$")
    message(FATAL_ERROR "man -w ${name} found: ${last_output}")
  endif()
  run(man -P cat ${name})
  if(NOT last_output MATCHES "${headline_${name}}")
    message(FATAL_ERROR "man ${name} printed: ${last_output}")
  endif()
endforeach()
set(completion ${prefix}/share/bash-completion/completions/morv-settings)
run(bash --norc --noprofile -c "source '${completion}' && complete -p morv-settings")
if(NOT last_output STREQUAL "complete -F _morv_settings morv-settings\n")
  message(FATAL_ERROR "the installed completion registers: ${last_output}")
endif()
message(STATUS "installed package works from CMake and pkg-config")
