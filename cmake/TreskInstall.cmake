# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# The installed tree: library, public headers, CMake package and pkg-config file. It can be moved as a whole.
include(CMakePackageConfigHelpers)

set(TRESK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tresk)

install(TARGETS tresk EXPORT TreskTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT TreskTargets NAMESPACE Tresk:: DESTINATION ${TRESK_CMAKE_DIR})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TreskConfig.cmake.in ${PROJECT_BINARY_DIR}/TreskConfig.cmake
                              INSTALL_DESTINATION ${TRESK_CMAKE_DIR} NO_SET_AND_CHECK_MACRO)
# Below version 1 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TreskConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/TreskConfig.cmake ${PROJECT_BINARY_DIR}/TreskConfigVersion.cmake
        DESTINATION ${TRESK_CMAKE_DIR})

# The prefix is told relative to the file itself, unless the folders were configured as absolute ones.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(TRESK_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(TRESK_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
  set(TRESK_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
else()
  file(RELATIVE_PATH tresk_pc_up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" tresk_pc_up "${tresk_pc_up}")
  set(TRESK_PC_PREFIX "\${pcfiledir}/${tresk_pc_up}")
  set(TRESK_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
  set(TRESK_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/tresk.pc.in ${PROJECT_BINARY_DIR}/tresk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tresk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
