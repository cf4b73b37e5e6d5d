# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake -DFORM=Static|Shared ... -P SourceTree.cmake: configures, builds and runs the consumer as a project of its own
# that has the source tree SOURCE inside. The static form comes first, and is installed into STAGE. The shared form is
# made in the same build tree of the same objects: none may be compiled again.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/RunConsumer.cmake)

if(FORM STREQUAL "Static")
  set(is_shared OFF)
  file(REMOVE_RECURSE ${BUILD} ${STAGE})
else()
  set(is_shared ON)
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER} -B ${BUILD} -G Ninja -DCMAKE_CXX_COMPILER=${COMPILER}
                        -DTRESK_SOURCE=${SOURCE} -DTRESK_BUILD_SHARED=${is_shared} -DTRESK_INSTALL=ON
                        -DCMAKE_INSTALL_LIBDIR=${LIBDIR}
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD} --parallel 2 --verbose OUTPUT_VARIABLE output
                RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "The consumer with the source tree inside cannot be built:\n${output}")
endif()
run_consumer(${BUILD}/consumer)

if(is_shared)
  if(output MATCHES "[^\n]* -c [^\n]*/field/Field.cpp")
    message(FATAL_ERROR "The shared library is not made of the objects of the static one:\n${CMAKE_MATCH_0}")
  endif()
else()
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${STAGE} COMMAND_ERROR_IS_FATAL ANY)
endif()
