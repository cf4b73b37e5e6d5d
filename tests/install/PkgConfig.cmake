# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake ... -P PkgConfig.cmake: compiles the consumer with the flags that pkg-config tells for the tree in STAGE, links
# it as a program and runs that. It is linked as a shared library too, which takes position independent code.
cmake_minimum_required(VERSION 3.25)
include(${CMAKE_CURRENT_LIST_DIR}/RunConsumer.cmake)

set(ENV{PKG_CONFIG_PATH} ${STAGE}/${LIBDIR}/pkgconfig)
# ask(<variable> <option>...): what pkg-config answers.
function(ask variable)
  execute_process(COMMAND ${PKG_CONFIG} ${ARGN} tresk OUTPUT_VARIABLE answer OUTPUT_STRIP_TRAILING_WHITESPACE
                  COMMAND_ERROR_IS_FATAL ANY)
  message("${ARGN}: ${answer}")
  set(${variable} "${answer}" PARENT_SCOPE)
endfunction()

ask(version --modversion)
if(NOT version VERSION_EQUAL VERSION)
  message(FATAL_ERROR "pkg-config tells version '${version}' instead of '${VERSION}'.")
endif()
ask(cflags --cflags)
ask(libs --libs)
separate_arguments(cflags UNIX_COMMAND "${cflags}")
separate_arguments(libs UNIX_COMMAND "${libs}")

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
execute_process(COMMAND ${COMPILER} -std=c++20 -fPIC ${cflags} -c ${CONSUMER}/main.cpp -o ${WORK}/main.o
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${COMPILER} ${WORK}/main.o ${libs} -Wl,-rpath,${STAGE}/${LIBDIR} -o ${WORK}/consumer
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${COMPILER} -shared ${WORK}/main.o ${libs} -Wl,-z,text,-z,defs -o ${WORK}/libconsumer.so
                COMMAND_ERROR_IS_FATAL ANY)
run_consumer(${WORK}/consumer)

# The version of its headers is the library's own.
execute_process(COMMAND ${READELF} --dyn-syms --wide ${WORK}/libconsumer.so OUTPUT_VARIABLE symbols
                COMMAND_ERROR_IS_FATAL ANY)
if(NOT symbols MATCHES " _ZN5Tresk14libraryVersionEv" OR symbols MATCHES " _ZN5Tresk7versionEv")
  message(FATAL_ERROR "Tresk::version() can be replaced by that of another library, or nothing was read:\n${symbols}")
endif()
