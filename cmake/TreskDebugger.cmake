# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# The printers for gdb, under the name by which gdb finds them with the library: beside it in the build tree, and after
# installation in the folder that repeats the path of the library under <prefix>/share/gdb/auto-load.
get_target_property(tresk_type tresk TYPE)
if(NOT tresk_type STREQUAL "SHARED_LIBRARY")
  return()
endif()
set(TRESK_PRINTERS
    ${PROJECT_BINARY_DIR}/${CMAKE_SHARED_LIBRARY_PREFIX}tresk${CMAKE_SHARED_LIBRARY_SUFFIX}.${PROJECT_VERSION}-gdb.py)
configure_file(${PROJECT_SOURCE_DIR}/gdb/tresk_printers.py ${TRESK_PRINTERS} COPYONLY)

# The prefix is known when it is installed, and gdb wants the whole path.
set(tresk_auto_load "\${tresk_prefix}/${CMAKE_INSTALL_DATADIR}/gdb/auto-load")
if(IS_ABSOLUTE "${CMAKE_INSTALL_DATADIR}")
  set(tresk_auto_load "${CMAKE_INSTALL_DATADIR}/gdb/auto-load")
endif()
set(tresk_libdir "\${tresk_prefix}/${CMAKE_INSTALL_LIBDIR}")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(tresk_libdir "${CMAKE_INSTALL_LIBDIR}")
endif()
install(CODE "
  get_filename_component(tresk_prefix \"\${CMAKE_INSTALL_PREFIX}\" ABSOLUTE)
  file(INSTALL DESTINATION \"${tresk_auto_load}${tresk_libdir}\" TYPE FILE FILES \"${TRESK_PRINTERS}\")"
        COMPONENT development)
