# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake ... -P Needed.cmake: reads the dynamic section of the installed library. It may need the C++ runtime, libm, the
# OpenMP runtime, libc and the dynamic loader, and it stays mapped until the process ends.
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${READELF} --dynamic --wide ${STAGE}/${LIBDIR}/libtresk.so OUTPUT_VARIABLE dynamic
                COMMAND_ERROR_IS_FATAL ANY)

string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*" entries "${dynamic}")
if(NOT entries)
  message(FATAL_ERROR "readelf tells of no needed library:\n${dynamic}")
endif()
foreach(entry IN LISTS entries)
  # A bracket of the output would be taken for one of CMake's lists.
  string(REGEX REPLACE ".*\\[(.*)\\].*" "\\1" library "${entry}")
  if(NOT library MATCHES "^(libstdc\\+\\+|libgcc_s|libm|libgomp|libomp|libc|ld-linux[a-z0-9_-]*)\\.so(\\.[0-9]+)*$")
    message(FATAL_ERROR "The library needs ${library}.")
  endif()
  message("needs ${library}")
endforeach()

if(NOT dynamic MATCHES "FLAGS_1\\)[^\n]*NODELETE")
  message(FATAL_ERROR "The library could be unmapped:\n${dynamic}")
endif()
if(NOT dynamic MATCHES "SONAME\\)[^\n]*${SONAME}]")
  message(FATAL_ERROR "The library is not named ${SONAME}:\n${dynamic}")
endif()
if(dynamic MATCHES "RPATH\\)|RUNPATH\\)")
  message(FATAL_ERROR "The library carries a search path:\n${dynamic}")
endif()
