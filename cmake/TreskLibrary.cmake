# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# The one library, shared or static. Public includes carry the prefix `tresk/` before and after installation: links in
# the build tree serve the sources under it.
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

# What compiled programs rely on: below version 1 a minor version may change it, from then on a major one.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(TRESK_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  set(TRESK_COMPATIBILITY SameMinorVersion)
else()
  set(TRESK_SOVERSION ${PROJECT_VERSION_MAJOR})
  set(TRESK_COMPATIBILITY SameMajorVersion)
endif()

if(TRESK_BUILD_SHARED)
  add_library(tresk SHARED ${TRESK_SOURCES})
else()
  add_library(tresk STATIC ${TRESK_SOURCES})
endif()
add_library(Tresk::Tresk ALIAS tresk)
# Both forms are made of the same objects: position independent, so that a static library can be part of a shared one.
set_target_properties(tresk PROPERTIES EXPORT_NAME Tresk VERSION ${PROJECT_VERSION} SOVERSION ${TRESK_SOVERSION}
                                       VERIFY_INTERFACE_HEADER_SETS ON
                                       POSITION_INDEPENDENT_CODE ON DEFINE_SYMBOL "")
target_sources(tresk PUBLIC FILE_SET HEADERS BASE_DIRS ${TRESK_INCLUDE_ROOT} FILES ${TRESK_HEADERS})
target_compile_features(tresk PUBLIC cxx_std_20)
target_link_libraries(tresk PUBLIC Threads::Threads)
# The pool of reference records is never given back, so the library stays mapped until the process ends.
if(TRESK_BUILD_SHARED)
  target_link_options(tresk PRIVATE LINKER:-z,nodelete LINKER:--no-undefined-version)
endif()
# Copies between chunks run on several threads, where the compiler has OpenMP. The thread sanitizer cannot follow its
# runtime: there they run on one.
set(TRESK_OPENMP_RUNTIME "")
if(NOT TRESK_SANITIZE STREQUAL "thread")
  find_package(OpenMP COMPONENTS CXX)
  if(OpenMP_CXX_FOUND)
    # A program that links the static library needs the runtime that the library was compiled for, whatever its own
    # compiler has: that of g++ by its name, which any compiler finds beside g++'s C++ runtime, another one by its path.
    separate_arguments(flags NATIVE_COMMAND "${OpenMP_CXX_FLAGS}")
    target_compile_options(tresk PRIVATE ${flags})
    list(GET OpenMP_CXX_LIB_NAMES 0 TRESK_OPENMP_RUNTIME)
    if(NOT TRESK_OPENMP_RUNTIME STREQUAL "gomp")
      set(TRESK_OPENMP_RUNTIME ${OpenMP_${TRESK_OPENMP_RUNTIME}_LIBRARY})
    endif()
    target_link_libraries(tresk PRIVATE ${TRESK_OPENMP_RUNTIME})
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
