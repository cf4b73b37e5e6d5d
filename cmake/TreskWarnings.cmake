# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# The warnings of the project's own code. They never reach a consumer's build.
function(tresk_enable_warnings target)
  if(NOT TRESK_DEVELOPER_WARNINGS)
    return()
  endif()
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # g++ 12 reports overlapping copies inside std::string's operator+ where there are none (its bug 105329).
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -Wthread-safety)
  endif()
endfunction()
