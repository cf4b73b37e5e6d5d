# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# The one shared library. Public includes carry the prefix `tresk/` before and after installation: links in the build
# tree serve the sources under it.
set(TRESK_INCLUDE_ROOT ${PROJECT_BINARY_DIR}/include)
file(MAKE_DIRECTORY ${TRESK_INCLUDE_ROOT}/tresk)
foreach(floor foundation field)
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${floor} ${TRESK_INCLUDE_ROOT}/tresk/${floor} SYMBOLIC)
endforeach()

file(GLOB TRESK_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/foundation/*.cpp ${PROJECT_SOURCE_DIR}/field/*.cpp
     ${PROJECT_SOURCE_DIR}/field/elements/*.cpp)
file(GLOB TRESK_HEADERS CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/foundation/*.hpp
     ${PROJECT_SOURCE_DIR}/field/*.hpp)
# Internal to the library: not installed, and not checked to be public.
list(REMOVE_ITEM TRESK_HEADERS foundation/CacheBooks.hpp foundation/CacheKeeper.hpp foundation/LeafMutex.hpp
     foundation/NeverDestroyed.hpp
     field/AsynchronHooks.hpp field/NamedEntries.hpp
     field/ParallelRange.hpp field/PointRows.hpp field/PrimitiveTypes.hpp field/ThreadReaper.hpp field/WalkHolder.hpp)
list(TRANSFORM TRESK_HEADERS PREPEND ${TRESK_INCLUDE_ROOT}/tresk/)

find_package(Threads REQUIRED)

add_library(tresk SHARED ${TRESK_SOURCES})
add_library(Tresk::Tresk ALIAS tresk)
set_target_properties(tresk PROPERTIES EXPORT_NAME Tresk VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                                       VERIFY_INTERFACE_HEADER_SETS ON)
target_sources(tresk PUBLIC FILE_SET HEADERS BASE_DIRS ${TRESK_INCLUDE_ROOT} FILES ${TRESK_HEADERS})
target_compile_features(tresk PUBLIC cxx_std_20)
target_link_libraries(tresk PUBLIC Threads::Threads)
# The pool of reference records is never given back, so the library stays mapped until the process ends.
target_link_options(tresk PRIVATE LINKER:-z,nodelete LINKER:--no-undefined-version)
# Copies between chunks run on several threads, where the compiler has OpenMP. The thread sanitizer cannot follow its
# runtime: there they run on one.
if(NOT TRESK_SANITIZE STREQUAL "thread")
  find_package(OpenMP COMPONENTS CXX)
  if(OpenMP_CXX_FOUND)
    target_link_libraries(tresk PRIVATE OpenMP::OpenMP_CXX)
  else()
    message(STATUS "OpenMP was not found: copies between chunks run on one thread")
  endif()
endif()
if(TRESK_PLAIN_RECORDS)
  target_compile_definitions(tresk PRIVATE TRESK_PLAIN_RECORDS)
endif()
# Nobody replaces single functions of the library, so calls inside it need no table. Clang takes this for granted.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(tresk PRIVATE -fno-semantic-interposition)
endif()
# Products and sums are rounded one by one, so that results are the same on every processor.
target_compile_options(tresk PRIVATE -ffp-contract=off)
tresk_enable_warnings(tresk)
