# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# run_consumer(<program>): runs the consumer and compares what it prints.
function(run_consumer program)
  execute_process(COMMAND ${program} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  set(expected "1000 elements of 8 bytes, sum 499500\n2 holders, then 1\nthe last one is gone\n")
  if(NOT output STREQUAL expected)
    message(FATAL_ERROR "The consumer prints\n${output}instead of\n${expected}")
  endif()
  message("The consumer prints\n${output}")
endfunction()
