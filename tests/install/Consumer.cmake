# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake -DWAY=package|subdirectory ... -P Consumer.cmake: configures, builds and runs the consumer as a project of its
# own, with the installed package or with the source tree.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/RunConsumer.cmake)

if(WAY STREQUAL "package")
  set(how -DCMAKE_PREFIX_PATH=${STAGE} -DTRESK_VERSION=${VERSION})
else()
  set(how -DTRESK_SOURCE=${SOURCE})
endif()

file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER} -B ${WORK} -G Ninja -DCMAKE_CXX_COMPILER=${COMPILER} ${how}
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK} --parallel 2 COMMAND_ERROR_IS_FATAL ANY)
run_consumer(${WORK}/consumer)
