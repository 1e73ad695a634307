# Installation of the public headers, the exported CMake package
# (find_package(Morv CONFIG)) and the pkg-config files. Each component
# installs its own targets into the MorvTargets export set.
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")

set(MORV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Morv)
install(EXPORT MorvTargets NAMESPACE Morv:: DESTINATION ${MORV_CMAKE_DIR})
# Each program's own export file (MorvProgram-<name>.cmake), which
# MorvConfig.cmake includes when it is there: a distribution ships it with the
# program, and the package finds the programs that are installed.
get_property(MORV_PROGRAMS GLOBAL PROPERTY MORV_PROGRAMS)
foreach(program IN LISTS MORV_PROGRAMS)
  install(EXPORT MorvProgram-${program} NAMESPACE Morv:: DESTINATION ${MORV_CMAKE_DIR})
endforeach()
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/MorvConfig.cmake.in
  ${PROJECT_BINARY_DIR}/MorvConfig.cmake
  INSTALL_DESTINATION ${MORV_CMAKE_DIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/MorvConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/MorvConfig.cmake
              ${PROJECT_BINARY_DIR}/MorvConfigVersion.cmake
        DESTINATION ${MORV_CMAKE_DIR})

# One pkg-config file per library: cmake/<name>.pc.in. The files locate the
# prefix from their own folder, so an installation can be moved.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(MORV_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH MORV_PC_UP "/root/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/root")
  string(REGEX REPLACE "/$" "" MORV_PC_UP "${MORV_PC_UP}")
  set(MORV_PC_PREFIX "\${pcfiledir}/${MORV_PC_UP}")
endif()
foreach(pc_name IN ITEMS MorvString MorvSettings)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc_name}.pc.in
                 ${PROJECT_BINARY_DIR}/${pc_name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc_name}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
