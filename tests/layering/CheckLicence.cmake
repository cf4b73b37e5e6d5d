# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake -DROOT=<project> -P CheckLicence.cmake: fails if a source, script or build file lacks the two licence lines,
# which stand on top or right behind the interpreter line.
cmake_minimum_required(VERSION 3.25)

set(files ${ROOT}/CMakeLists.txt ${ROOT}/.clang-format ${ROOT}/.clang-tidy)
foreach(folder bench cmake examples field foundation gdb tests)
  foreach(pattern *.hpp *.cpp *.cmake *.in *.py CMakeLists.txt)
    file(GLOB_RECURSE found ${ROOT}/${folder}/${pattern})
    list(APPEND files ${found})
  endforeach()
endforeach()
file(GLOB scripts ${ROOT}/scripts/* ${ROOT}/.ci/*)
list(APPEND files ${scripts})

set(bad_count 0)
foreach(file IN LISTS files)
  file(STRINGS ${file} lines LIMIT_COUNT 3)
  list(JOIN lines "\n" head)
  if(NOT head MATCHES
     "^(#![^\n]*\n)?(//|#) SPDX-License-Identifier: BSD-3-Clause\n(//|#) Copyright \\(c\\) 2026 the Tresk authors")
    math(EXPR bad_count "${bad_count} + 1")
    message("${file}: the licence lines are missing")
  endif()
endforeach()
list(LENGTH files file_count)
if(bad_count GREATER 0)
  message(FATAL_ERROR "${bad_count} of ${file_count} files do not name their licence")
endif()
message("${file_count} files name their licence")
