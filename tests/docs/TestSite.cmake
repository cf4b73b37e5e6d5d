# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake -DPROJECT=<project> -DWORK=<folder> -P TestSite.cmake: fails unless scripts/docs complains of each fault that is
# put into a copy of what the site is made from.
cmake_minimum_required(VERSION 3.25)

# expect(<file> <text> <replacement> <complaint>): puts one fault into a fresh copy.
function(expect file text replacement complaint)
  file(REMOVE_RECURSE ${WORK})
  file(COPY ${PROJECT}/docs ${PROJECT}/foundation ${PROJECT}/field ${PROJECT}/examples ${PROJECT}/scripts ${PROJECT}/cmake
            ${PROJECT}/CONTRIBUTING.md ${PROJECT}/CHANGELOG.md DESTINATION ${WORK})
  file(READ ${WORK}/${file} content)
  string(REPLACE "${text}" "${replacement}" changed "${content}")
  if(changed STREQUAL content)
    message(FATAL_ERROR "${file} has no text to be changed: ${text}")
  endif()
  file(WRITE ${WORK}/${file} "${changed}")
  execute_process(COMMAND ${WORK}/scripts/docs RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(result EQUAL 0 OR NOT output MATCHES "${complaint}")
    message(FATAL_ERROR "no complaint \"${complaint}\" of the fault in ${file}, result ${result}:\n${output}")
  endif()
endfunction()

expect(foundation/Cache.hpp "  /// The numbers of this moment.\n" "" "getStatistics.. const .function. .* is not documented")
expect(docs/memory.md "(performance.md)" "(perfection.md)" "perfection.md")
expect(docs/pitfalls.md "(reliability.md#bad-input)" "(reliability.md#good-input)" "reliability-good-input")
expect(cmake/TreskLibrary.cmake "foundation/NeverDestroyed.hpp" "" "foundation/NeverDestroyed.hpp")
file(REMOVE_RECURSE ${WORK})
