# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake ... -P Archive.cmake: makes the source archive of the tree ROOT as it stands, unpacks it into UNPACKED, and
# makes it once more from there, where no git can help. Both archives are the same, byte for byte.
cmake_minimum_required(VERSION 3.25)

file(REMOVE_RECURSE ${WORK} ${UNPACKED})
file(MAKE_DIRECTORY ${UNPACKED})
set(name tresk-${VERSION})
execute_process(COMMAND ${ROOT}/scripts/source-archive --tree ${WORK}/first COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E tar xf ${WORK}/first/${name}.tar.xz WORKING_DIRECTORY ${UNPACKED}
                COMMAND_ERROR_IS_FATAL ANY)
if(EXISTS ${UNPACKED}/${name}/.git OR EXISTS ${UNPACKED}/${name}/build)
  message(FATAL_ERROR "The archive has more than the sources.")
endif()
file(GLOB entries RELATIVE ${UNPACKED} ${UNPACKED}/*)
if(NOT entries STREQUAL name)
  message(FATAL_ERROR "The archive unpacks to '${entries}' instead of '${name}'.")
endif()

execute_process(COMMAND ${UNPACKED}/${name}/scripts/source-archive ${WORK}/second COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${WORK}/first/${name}.tar.xz ${WORK}/second/${name}.tar.xz
                RESULT_VARIABLE difference)
if(difference)
  message(FATAL_ERROR "The archive made of the unpacked one is another one.")
endif()
