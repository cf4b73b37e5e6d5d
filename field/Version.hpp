// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

/// \file
/// The version of the headers that a program was compiled with, and that of the library that it runs with.
///
/// The three numbers are where the version stands: the build reads them, and a test compares what else tells it.

/// Grows when programs have to be changed, or compiled again, from version 1 on.
#define TRESK_VERSION_MAJOR 0
/// Grows with what is new; below version 1 also when programs have to be changed, or compiled again.
#define TRESK_VERSION_MINOR 1
/// Grows when compiled programs go on to work as they are.
#define TRESK_VERSION_PATCH 0

/// The version as a number that grows with it, for `#if`: 10000 x major + 100 x minor + patch. Version 1.2.3 is 10203.
#define TRESK_VERSION_NUMBER (TRESK_VERSION_MAJOR * 10000 + TRESK_VERSION_MINOR * 100 + TRESK_VERSION_PATCH)

/// The argument as a text, not expanded.
#define TRESK_TEXT_OF_VALUE(x) #x
/// The value of a macro as a text.
#define TRESK_TEXT_OF(x) TRESK_TEXT_OF_VALUE(x)
/// The version as a text: "major.minor.patch".
#define TRESK_VERSION_TEXT \
  TRESK_TEXT_OF(TRESK_VERSION_MAJOR) "." TRESK_TEXT_OF(TRESK_VERSION_MINOR) "." TRESK_TEXT_OF(TRESK_VERSION_PATCH)

namespace Tresk {

/// The version of the headers that the caller was compiled with: "major.minor.patch".
///
/// Hidden, so that a plug-in and the program that loads it have their own answers.
/// Threads: any. Cost: a constant.
__attribute__((visibility("hidden"))) inline constexpr const char* version() noexcept { return TRESK_VERSION_TEXT; }

/// The version of the library that the process runs with, in the same form. Where it differs from `version()` the
/// library was replaced after the program had been compiled. The dynamic linker sees to it that they agree in what
/// compiled programs rely on: major and minor number below version 1, the major number from then on.
///
/// Threads: any. Cost: a call.
TRESK_EXPORT const char* libraryVersion() noexcept;

}  // namespace Tresk
