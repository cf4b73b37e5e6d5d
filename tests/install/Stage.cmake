# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake -DBUILD=<build tree> -DSTAGE=<folder> -DCONFIG=<configuration> -P Stage.cmake: installs the build into an
# empty folder.
cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE ${STAGE})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --config ${CONFIG} --prefix ${STAGE}
                COMMAND_ERROR_IS_FATAL ANY)

# The headers are files of their own and not links into the source tree.
file(GLOB headers ${STAGE}/include/tresk/foundation/*.hpp)
if(NOT headers)
  message(FATAL_ERROR "No header of the foundation was installed.")
endif()
foreach(header IN LISTS headers)
  if(IS_SYMLINK ${header})
    message(FATAL_ERROR "${header} is a link.")
  endif()
endforeach()
foreach(internal foundation/CacheBooks.hpp field/ParallelRange.hpp)
  if(NOT EXISTS ${BUILD}/include/tresk/${internal})
    message(FATAL_ERROR "There is no internal header ${internal} any more.")
  endif()
  if(EXISTS ${STAGE}/include/tresk/${internal})
    message(FATAL_ERROR "The internal header ${internal} was installed.")
  endif()
endforeach()
