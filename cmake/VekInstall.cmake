# Installation: the shared library with its soname, the public headers in one
# folder, the CMake package vekutils and the pkg-config files.
#
#   find_package(vekutils)       vekutils::vekutils  the library (telmira, C)
#                                vekutils::facade    muLinearSolver with the
#                                                    host libraries it needs
#   pkg-config vekutils          the same two, as vekutils and
#   pkg-config vekutils-facade   vekutils-facade
include(CMakePackageConfigHelpers)

set(VEK_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/vekutils)

install(TARGETS vekutils
  EXPORT vekutilsTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET vekutils_facade)
  install(TARGETS vekutils_facade EXPORT vekutilsTargets)
endif()
install(FILES
    ${PROJECT_SOURCE_DIR}/include/telmira.h
    ${PROJECT_SOURCE_DIR}/include/muLinearSolver.h
  DESTINATION ${VEK_INSTALL_INCLUDEDIR})
install(TARGETS vek-solve RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

install(EXPORT vekutilsTargets
  NAMESPACE vekutils::
  DESTINATION ${VEK_INSTALL_CMAKEDIR})
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/vekutilsConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vekutilsConfig.cmake
  INSTALL_DESTINATION ${VEK_INSTALL_CMAKEDIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/vekutilsConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/vekutilsConfig.cmake
    ${PROJECT_BINARY_DIR}/vekutilsConfigVersion.cmake
  DESTINATION ${VEK_INSTALL_CMAKEDIR})

# pkg-config: paths relative to the folder of the .pc file, so that the
# files stay right under any prefix given to cmake --install.
file(RELATIVE_PATH VEK_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" VEK_PC_TO_PREFIX "${VEK_PC_TO_PREFIX}")
foreach(pc vekutils vekutils-facade)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in
    ${PROJECT_BINARY_DIR}/pkgconfig/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${pc}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
