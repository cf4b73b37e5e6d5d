# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake -DCOMPILER=<c++> -DINCLUDE=<folder> -DSOURCE=<file> -DEXPECT=<regex> -P CompileTwice.cmake: compiles the
# source as it stands, which must succeed, and with BAD defined, which must fail with a matching message.
cmake_minimum_required(VERSION 3.25)

# The compiler's messages are matched in their original wording.
set(ENV{LC_ALL} C)
set(command ${COMPILER} -std=c++20 -fsyntax-only -I${INCLUDE})

execute_process(COMMAND ${command} ${SOURCE} RESULT_VARIABLE result ERROR_VARIABLE messages)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "The good form does not compile:\n${messages}")
endif()

execute_process(COMMAND ${command} -DBAD ${SOURCE} RESULT_VARIABLE result ERROR_VARIABLE messages)
if(result EQUAL 0)
  message(FATAL_ERROR "The bad form compiles.")
endif()
# Line by line, so that the expression cannot match across messages.
string(REPLACE ";" "," messages "${messages}")
string(REPLACE "[" "(" messages "${messages}")
string(REPLACE "]" ")" messages "${messages}")
string(REPLACE "\n" ";" lines "${messages}")
foreach(line IN LISTS lines)
  if(line MATCHES "error: .*(${EXPECT})")
    message("The bad form fails as expected: ${line}")
    return()
  endif()
endforeach()
message(FATAL_ERROR "The bad form fails without a message that matches '${EXPECT}':\n${messages}")
