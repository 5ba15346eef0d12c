# SPDX-License-Identifier: BSD-3-Clause
# The CMake package CorvaneQt5 and the pkg-config module corvane-qt5, for other projects.
include(CMakePackageConfigHelpers)

set(CORVANE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneQt5)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/CorvaneQt5Config.cmake.in CorvaneQt5Config.cmake
    INSTALL_DESTINATION ${CORVANE_CMAKE_DIR} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(CorvaneQt5ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/CorvaneQt5Config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/CorvaneQt5ConfigVersion.cmake
    DESTINATION ${CORVANE_CMAKE_DIR})
install(EXPORT CorvaneQt5Targets NAMESPACE CorvaneQt5:: DESTINATION ${CORVANE_CMAKE_DIR})

# The prefix is relative to the module, so that the installed tree can be moved.
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH CORVANE_PC_TO_PREFIX /prefix/${pc_dir} /prefix)
string(REGEX REPLACE "/$" "" CORVANE_PC_TO_PREFIX ${CORVANE_PC_TO_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/corvane-qt5.pc.in corvane-qt5.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/corvane-qt5.pc DESTINATION ${pc_dir})
