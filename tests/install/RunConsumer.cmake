# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# run_consumer(<program>): runs the consumer, compares what it prints, and whether it needs the shared library with FORM
# (Static or Shared).
function(run_consumer program)
  execute_process(COMMAND ${program} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  set(expected "version ${VERSION}, library ${VERSION}
1000 elements of 8 bytes, sum 499500
each tenth: 100 elements, sum 49500
12 of 12 element types have arrays
2 holders, then 1
the last one is gone
")
  if(NOT output STREQUAL expected)
    message(FATAL_ERROR "The consumer prints\n${output}instead of\n${expected}")
  endif()
  message("The consumer prints\n${output}")

  execute_process(COMMAND ${READELF} --dynamic --wide ${program} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
  set(needs_library OFF)
  if(dynamic MATCHES "\\(NEEDED\\)[^\n]*libtresk")
    set(needs_library ON)
  endif()
  if((FORM STREQUAL "Shared" AND NOT needs_library) OR (FORM STREQUAL "Static" AND needs_library))
    message(FATAL_ERROR "The form of the library is not '${FORM}':\n${dynamic}")
  endif()
endfunction()
