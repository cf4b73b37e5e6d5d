# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# The site is built as scripts/docs does it: every public entity is documented, and no link leads nowhere. Nothing here
# depends on the compiler, so one of them is enough.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  return()
endif()
find_program(DOXYGEN_PROGRAM doxygen)
find_program(PERL_PROGRAM perl)
if(NOT DOXYGEN_PROGRAM OR NOT PERL_PROGRAM)
  message(STATUS "doxygen or perl was not found: the documentation site is not tested")
  return()
endif()

add_test(NAME Docs.SiteBuildsWithoutWarnings COMMAND ${PROJECT_SOURCE_DIR}/scripts/docs ${CMAKE_CURRENT_BINARY_DIR}/site)
set_tests_properties(Docs.SiteBuildsWithoutWarnings PROPERTIES LABELS docs TIMEOUT 300)

# And it can fail: a copy of the project with an entity that is not documented, with a link to a page that is not there,
# and with another list of internal headers.
add_test(NAME Docs.TheSiteSeesWhatIsMissing
         COMMAND ${CMAKE_COMMAND} -DPROJECT=${PROJECT_SOURCE_DIR} -DWORK=${CMAKE_CURRENT_BINARY_DIR}/broken
                 -P ${CMAKE_CURRENT_SOURCE_DIR}/TestSite.cmake)
set_tests_properties(Docs.TheSiteSeesWhatIsMissing PROPERTIES LABELS docs TIMEOUT 300)
