# SPDX-License-Identifier: BSD-3-Clause
# Copyright (c) 2026 the Tresk authors

if(TRESK_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(TRESK_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT TRESK_SANITIZE STREQUAL "")
  message(FATAL_ERROR "TRESK_SANITIZE is '${TRESK_SANITIZE}'; it takes 'address', 'thread' or nothing")
endif()
