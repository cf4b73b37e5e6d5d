# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# Checks one model: SPIN makes a verifier of MODEL with DEFINITIONS, CC compiles it in WORK, and it searches all states.
# EXPECTED none: the search has to be complete and free of errors. EXPECTED assertion or deadlock: it has to end with an
# error of that kind, and of no other one.
cmake_minimum_required(VERSION 3.25)

separate_arguments(definitions UNIX_COMMAND "${DEFINITIONS}")
list(TRANSFORM definitions PREPEND -D)
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

# Runs a command in WORK; its output goes to `output`.
macro(run)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORK} OUTPUT_VARIABLE output ERROR_VARIABLE output
                  RESULT_VARIABLE result)
endmacro()

run(${SPIN} -a ${definitions} ${MODEL})
if(NOT result EQUAL 0 OR NOT EXISTS ${WORK}/pan.c)
  message(FATAL_ERROR "spin: ${result}\n${output}")
endif()
# Optimising a verifier of this size takes longer than the search that it speeds up.
run(${CC} -O0 -w -DSAFETY -DCOLLAPSE -DMEMLIM=2000 -o pan pan.c)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${CC}: ${result}\n${output}")
endif()
run(${WORK}/pan -n -m20000)
message(STATUS "${output}")
file(REMOVE ${WORK}/pan ${WORK}/pan.c ${WORK}/pan.b ${WORK}/pan.m ${WORK}/pan.p ${WORK}/pan.t ${WORK}/pan.h)

if(NOT result EQUAL 0)
  message(FATAL_ERROR "the verifier ended with ${result}")
endif()
set(pattern_incomplete "max search depth too small|out of memory|memory limit|-DMEMLIM|[Ss]earch not completed")
string(APPEND pattern_incomplete "|hash table full|VECTORSZ")
if(EXPECTED STREQUAL "none" AND output MATCHES "${pattern_incomplete}")
  message(FATAL_ERROR "the search is not complete")
endif()
if(NOT output MATCHES "errors: ([0-9]+)" OR NOT output MATCHES "states, stored")
  message(FATAL_ERROR "the verifier did not finish")
endif()
string(REGEX MATCH "errors: ([0-9]+)" nErrors "${output}")
set(nErrors ${CMAKE_MATCH_1})
if(EXPECTED STREQUAL "none")
  if(NOT nErrors EQUAL 0)
    message(FATAL_ERROR "${nErrors} errors; a trail stands in ${WORK}")
  endif()
  return()
endif()

set(pattern_assertion "pan:1: assertion violated")
set(pattern_deadlock "pan:1: invalid end state")
if(nErrors LESS 1 OR NOT output MATCHES "${pattern_${EXPECTED}}")
  message(FATAL_ERROR "the missing rule was not missed: no ${EXPECTED} was found")
endif()
