// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

/// \file
/// The visibility of names across the border of the shared library.
///
/// The library is built with hidden visibility. `TRESK_EXPORT` makes a class or function part of the interface.
/// `TRESK_OPEN_TEMPLATE` stands on the templates of the public headers whose static members, local statics or type
/// information must be one object in the process, whichever library instantiates them.

#if defined(__GNUC__)
/// Makes a class or function part of the interface of the shared library.
#define TRESK_EXPORT __attribute__((visibility("default")))
#else
#error "Tresk is built with g++ or clang"
#endif

/// For templates of public headers: one object in the process, whichever library instantiates them.
#define TRESK_OPEN_TEMPLATE TRESK_EXPORT

/// Kept out of the code of its callers: a path that is taken now and then beside one that is taken always.
#define TRESK_COLD __attribute__((noinline, cold))
/// Always part of the code of its callers: some instructions on a path that is taken always, where waiting for memory
/// overlaps only as far as the processor looks ahead.
#define TRESK_HOT __attribute__((always_inline))
