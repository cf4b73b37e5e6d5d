# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake ... -P Components.cmake: installs the components one by one. Together they are all that is installed in STAGE,
# none has a file of another one, and each has what it is for.
cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE ${WORK})
set(together "")
foreach(component runtime development documentation)
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --config ${CONFIG} --component ${component}
                          --prefix ${WORK}/${component} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB_RECURSE ${component} RELATIVE ${WORK}/${component} ${WORK}/${component}/*)
  # The place of the printers for gdb repeats where the library was installed.
  string(REPLACE "/auto-load${WORK}/${component}/" "/auto-load${STAGE}/" ${component} "${${component}}")
  list(APPEND together ${${component}})
endforeach()

file(GLOB_RECURSE all RELATIVE ${STAGE} ${STAGE}/*)
list(SORT all)
list(SORT together)
if(NOT all STREQUAL together)
  message(FATAL_ERROR "The components have\n${together}\nand the installed tree has\n${all}")
endif()

set(expected ${LIBDIR}/libtresk.so.${SOVERSION} ${LIBDIR}/libtresk.so.${VERSION})
if(NOT runtime STREQUAL expected)
  message(FATAL_ERROR "The component runtime has\n${runtime}\ninstead of\n${expected}")
endif()
foreach(file ${LIBDIR}/libtresk.so ${LIBDIR}/pkgconfig/tresk.pc ${LIBDIR}/cmake/Tresk/TreskConfig.cmake
             ${LIBDIR}/cmake/Tresk/TreskConfigVersion.cmake ${LIBDIR}/cmake/Tresk/TreskTargets.cmake
             share/gdb/auto-load${STAGE}/${LIBDIR}/libtresk.so.${VERSION}-gdb.py
             include/tresk/field/Field.hpp include/tresk/field/Version.hpp include/tresk/foundation/Pointers.hpp)
  if(NOT file IN_LIST development)
    message(FATAL_ERROR "The component development lacks ${file}")
  endif()
endforeach()
if(NOT documentation MATCHES "/docs/packaging.md" OR NOT documentation MATCHES "/examples/first_look.cpp")
  message(FATAL_ERROR "The component documentation lacks its pages or its examples:\n${documentation}")
endif()
