# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake -DROOT=<project> -DVERSION=<version of the build> ... -P Versions.cmake: what tells the version and the day of
# the release beside the header tells the same.
cmake_minimum_required(VERSION 3.25)

# read(<variable> <file> <expression>): the first group of the first match.
function(read variable file expression)
  file(READ ${ROOT}/${file} text)
  if(NOT text MATCHES "${expression}")
    message(FATAL_ERROR "${file} has nothing that matches ${expression}")
  endif()
  set(${variable} "${CMAKE_MATCH_1}" PARENT_SCOPE)
endfunction()
# expect(<what> <found> <expected>)
function(expect what found expected)
  if(NOT found STREQUAL expected)
    message(FATAL_ERROR "${what} tells '${found}' instead of '${expected}'")
  endif()
  message("${what}: ${found}")
endfunction()

read(found CHANGELOG.md "\n## ([^ \n]+) ")
expect("CHANGELOG.md" "${found}" ${VERSION})
read(found CITATION.cff "\nversion: ([^\n]+)\n")
expect("CITATION.cff" "${found}" ${VERSION})
read(found debian/changelog "^tresk \\(([^)]+)-[0-9]+\\) ")
expect("debian/changelog" "${found}" ${VERSION})
read(found README.md "find_package\\(Tresk ([0-9.]+) REQUIRED\\)")
string(REGEX MATCH "^[0-9]+\\.[0-9]+" series ${VERSION})
expect("README.md" "${found}" ${series})

# The day of the release, or that there was none so far.
read(day CHANGELOG.md "\n## [^ \n]+ \\(([^)\n]+)\\)\n")
read(distribution debian/changelog "^tresk \\([^)]+\\) ([^;]+);")
file(READ ${ROOT}/CITATION.cff citation)
if(day STREQUAL "not released")
  expect("the distribution in debian/changelog" ${distribution} UNRELEASED)
  if(citation MATCHES "\ndate-released:")
    message(FATAL_ERROR "CITATION.cff tells the day of a release that CHANGELOG.md does not know")
  endif()
else()
  if(distribution STREQUAL "UNRELEASED")
    message(FATAL_ERROR "debian/changelog does not know the release of ${day}")
  endif()
  read(found CITATION.cff "\ndate-released: ([^\n]+)\n")
  expect("the day in CITATION.cff" "${found}" ${day})
endif()
