# Installs the build into a fresh prefix, then builds and runs a separate
# project against it with find_package(Morv CONFIG), and compiles the same
# program with the flags that pkg-config gives.
#
# Inputs: MORV_BINARY_DIR, MORV_WORK_DIR, MORV_CONSUMER_DIR, MORV_GENERATOR,
# MORV_EXTRA_FLAGS (compiler and linker flags the build used, such as the
# sanitizers, which the consumer must share).

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE result OUTPUT_VARIABLE out
                  ERROR_VARIABLE out)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGV}\n${out}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

set(prefix ${MORV_WORK_DIR}/prefix)
file(REMOVE_RECURSE ${MORV_WORK_DIR})
file(MAKE_DIRECTORY ${MORV_WORK_DIR} ${MORV_WORK_DIR}/config)
# The consumer stores a setting: keep it in this folder.
set(ENV{XDG_CONFIG_HOME} ${MORV_WORK_DIR}/config)
set(ENV{XDG_CONFIG_DIRS} ${MORV_WORK_DIR}/xdg)

run(${CMAKE_COMMAND} --install ${MORV_BINARY_DIR} --prefix ${prefix})

# The CMake package.
run(${CMAKE_COMMAND} -S ${MORV_CONSUMER_DIR} -B ${MORV_WORK_DIR}/build
    -G ${MORV_GENERATOR} -DCMAKE_PREFIX_PATH=${prefix}
    "-DCMAKE_CXX_FLAGS=${MORV_EXTRA_FLAGS}")
run(${CMAKE_COMMAND} --build ${MORV_WORK_DIR}/build)
run(${MORV_WORK_DIR}/build/consumer)
if(NOT last_output MATCHES "consumer ok")
  message(FATAL_ERROR "consumer built with CMake printed: ${last_output}")
endif()

# The pkg-config files.
file(GLOB pc_dirs ${prefix}/lib*/pkgconfig ${prefix}/lib*/*/pkgconfig)
list(JOIN pc_dirs ":" pc_path)
set(ENV{PKG_CONFIG_PATH} ${pc_path})
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
file(MAKE_DIRECTORY ${MORV_WORK_DIR}/empty)
execute_process(COMMAND ${prefix}/bin/MMSLaunch WORKING_DIRECTORY ${MORV_WORK_DIR}/empty
                RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT result EQUAL 0 OR NOT err STREQUAL "")
  message(FATAL_ERROR "installed MMSLaunch: status ${result}, stderr: ${err}")
endif()
# The installed settings tool too: it writes a value and reads it back.
run(${prefix}/bin/morv-settings write Consumer Installed/Check string "from the tool")
run(${prefix}/bin/morv-settings read Consumer Installed/Check)
if(NOT last_output STREQUAL "from the tool\n")
  message(FATAL_ERROR "installed morv-settings read back: ${last_output}")
endif()
# Its manual page, which man finds, and its bash completion.
set(manual ${prefix}/share/man/man1/morv-settings.1)
set(ENV{MANPATH} ${prefix}/share/man)
run(man -w morv-settings)
if(NOT last_output STREQUAL "${manual}\n")
  message(FATAL_ERROR "man -w morv-settings found: ${last_output}")
endif()
run(man -P cat morv-settings)
if(NOT last_output MATCHES "morv-settings - read and change the settings")
  message(FATAL_ERROR "man morv-settings printed: ${last_output}")
endif()
set(completion ${prefix}/share/bash-completion/completions/morv-settings)
run(bash --norc --noprofile -c "source '${completion}' && complete -p morv-settings")
if(NOT last_output STREQUAL "complete -F _morv_settings morv-settings\n")
  message(FATAL_ERROR "the installed completion registers: ${last_output}")
endif()
message(STATUS "installed package works from CMake and pkg-config")
