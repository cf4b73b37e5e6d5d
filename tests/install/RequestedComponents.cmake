# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

# cmake ... -P RequestedComponents.cmake: asks the installed package for a component, as find_package does. There is
# none, which the package tells by the name of what was asked for.
cmake_minimum_required(VERSION 3.25)

set(Tresk_FOUND TRUE)
set(Tresk_FIND_COMPONENTS elsewhere nowhere)
set(Tresk_FIND_REQUIRED_elsewhere FALSE)
set(Tresk_FIND_REQUIRED_nowhere TRUE)
include(${STAGE}/${LIBDIR}/cmake/Tresk/TreskConfig.cmake)
if(Tresk_FOUND)
  message(FATAL_ERROR "The package was found with a component that it does not have.")
endif()
if(NOT Tresk_NOT_FOUND_MESSAGE MATCHES "no component 'nowhere'")
  message(FATAL_ERROR "The package says '${Tresk_NOT_FOUND_MESSAGE}'.")
endif()
