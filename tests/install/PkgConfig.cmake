# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake ... -P PkgConfig.cmake: compiles the consumer with the flags that pkg-config tells for the installed tree.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/RunConsumer.cmake)

set(ENV{PKG_CONFIG_PATH} ${STAGE}/${LIBDIR}/pkgconfig)
execute_process(COMMAND ${PKG_CONFIG} --modversion tresk OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
if(NOT version VERSION_EQUAL VERSION)
  message(FATAL_ERROR "pkg-config tells version '${version}' instead of '${VERSION}'.")
endif()
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs tresk OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(flags UNIX_COMMAND "${flags}")

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
execute_process(COMMAND ${COMPILER} -std=c++20 ${CONSUMER}/main.cpp ${flags} -Wl,-rpath,${STAGE}/${LIBDIR}
                        -o ${WORK}/consumer COMMAND_ERROR_IS_FATAL ANY)
run_consumer(${WORK}/consumer)
