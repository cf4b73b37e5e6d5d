# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# The installed tree, in three components. It can be moved as a whole.
#   runtime        the shared library under its version and its SONAME: all that a compiled program needs
#   development    public headers, CMake package, pkg-config file, and the library under the name that is linked
#   documentation  the pages of docs/, the sources of the examples, the licence
include(CMakePackageConfigHelpers)

set(TRESK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Tresk)

install(TARGETS tresk EXPORT TreskTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT TreskTargets NAMESPACE Tresk:: DESTINATION ${TRESK_CMAKE_DIR} COMPONENT development)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/TreskConfig.cmake.in ${PROJECT_BINARY_DIR}/TreskConfig.cmake
                              INSTALL_DESTINATION ${TRESK_CMAKE_DIR} NO_SET_AND_CHECK_MACRO
                              NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TreskConfigVersion.cmake COMPATIBILITY ${TRESK_COMPATIBILITY})
install(FILES ${PROJECT_BINARY_DIR}/TreskConfig.cmake ${PROJECT_BINARY_DIR}/TreskConfigVersion.cmake
        DESTINATION ${TRESK_CMAKE_DIR} COMPONENT development)

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
# What a program has to link beside the library. A shared one brings its own needs along. Where there is only the static
# one, they are needed always, and so they stand among the flags that are given without --static too.
set(TRESK_PC_LIBS "")
if(NOT TRESK_BUILD_SHARED)
  if(TRESK_OPENMP_RUNTIME)
    string(REGEX REPLACE "^([^/].*)$" "-l\\1" tresk_pc_runtime "${TRESK_OPENMP_RUNTIME}")
    string(APPEND TRESK_PC_LIBS " ${tresk_pc_runtime}")
  endif()
  if(CMAKE_THREAD_LIBS_INIT)
    string(APPEND TRESK_PC_LIBS " ${CMAKE_THREAD_LIBS_INIT}")
  endif()
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/tresk.pc.in ${PROJECT_BINARY_DIR}/tresk.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tresk.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# The pages look for each other and for the examples where they stand in the source tree. Inside another project they
# have a folder of their own.
if(PROJECT_IS_TOP_LEVEL)
  set(TRESK_DOC_DIR ${CMAKE_INSTALL_DOCDIR})
else()
  set(TRESK_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/${PROJECT_NAME})
endif()
install(FILES README.md CHANGELOG.md LICENSE CITATION.cff DESTINATION ${TRESK_DOC_DIR} COMPONENT documentation)
install(DIRECTORY docs DESTINATION ${TRESK_DOC_DIR} COMPONENT documentation
        FILES_MATCHING PATTERN *.md PATTERN *.png PATTERN *.svg)
install(DIRECTORY examples DESTINATION ${TRESK_DOC_DIR} COMPONENT documentation)

include(${CMAKE_CURRENT_LIST_DIR}/TreskDebugger.cmake)
