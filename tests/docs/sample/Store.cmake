# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake -P Store.cmake <folder>: a program whose second run in a folder differs from its first.
if(EXISTS ${CMAKE_ARGV3}/stored)
  message(STATUS "there")
else()
  file(TOUCH ${CMAKE_ARGV3}/stored)
  message(STATUS "new")
endif()
