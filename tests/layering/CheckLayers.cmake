# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake -DFLOOR=<folder> -P CheckLayers.cmake: fails if a C++ file under the folder includes a header of field/ or
# opens or uses its namespace.
cmake_minimum_required(VERSION 3.25)

file(GLOB_RECURSE files ${FLOOR}/*.hpp ${FLOOR}/*.cpp)
list(LENGTH files file_count)
if(file_count EQUAL 0)
  message(FATAL_ERROR "no C++ file under '${FLOOR}'")
endif()

set(reference_count 0)
foreach(file IN LISTS files)
  file(STRINGS ${file} lines
       REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"].*field/|^[ \t]*(inline )?namespace Tresk|^[^/]*[^A-Za-z_]Tresk::")
  foreach(line IN LISTS lines)
    math(EXPR reference_count "${reference_count} + 1")
    message("${file}: ${line}")
  endforeach()
endforeach()
if(reference_count GREATER 0)
  message(FATAL_ERROR "${reference_count} upward references in '${FLOOR}'")
endif()
message("${file_count} files look at nothing above them")
