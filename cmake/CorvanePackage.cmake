# SPDX-License-Identifier: BSD-3-Clause
# The CMake package CorvaneQt5, the pkg-config module corvane-qt5 and the qmake module Corvane, for other projects.
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

# The paths in these two files are relative to the file, so that the installed tree can be moved.
function(corvane_install_relative file directory)
    file(RELATIVE_PATH CORVANE_TO_PREFIX /prefix/${directory} /prefix)
    string(REGEX REPLACE "/$" "" CORVANE_TO_PREFIX ${CORVANE_TO_PREFIX})
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${file}.in ${file} @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${file} DESTINATION ${directory})
endfunction()
corvane_install_relative(corvane-qt5.pc ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# The directory of Qt's own modules, if Qt and the library have the same prefix on Debian. With another prefix, qmake finds
# the module by QMAKEPATH or QMAKEMODULES.
set(CORVANE_QMAKE_MODULE_DIR ${CMAKE_INSTALL_LIBDIR}/qt5/mkspecs/modules CACHE STRING
    "Directory of the module file for qmake, relative to the prefix")
corvane_install_relative(qt_lib_Corvane.pri ${CORVANE_QMAKE_MODULE_DIR})
