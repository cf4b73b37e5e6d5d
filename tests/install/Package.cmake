# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake ... -P Package.cmake: configures, builds and runs the consumer as a project of its own, with the package that is
# installed in STAGE.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/RunConsumer.cmake)

file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER} -B ${WORK} -G Ninja -DCMAKE_CXX_COMPILER=${COMPILER}
                        -DCMAKE_PREFIX_PATH=${STAGE} -DTRESK_VERSION=${VERSION}
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK} COMMAND_ERROR_IS_FATAL ANY)
run_consumer(${WORK}/consumer)
