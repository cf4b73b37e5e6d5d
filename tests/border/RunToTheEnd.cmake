# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# Runs PROGRAM, a list with its arguments. It has to end with success, and its output with SAYS.
cmake_minimum_required(VERSION 3.25)

execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE output ERROR_VARIABLE errors RESULT_VARIABLE result)
if(NOT result EQUAL 0 OR NOT output MATCHES "${SAYS}\n$" OR NOT errors STREQUAL "")
  message(FATAL_ERROR "${PROGRAM} ended with ${result}\n${output}\n${errors}")
endif()
