// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <string>
#include <typeinfo>

namespace Ostrel {

/// The readable name of a type, as the compiler's demangler spells it, for instance
/// "Quorvel::FixedArray<double, 3>". Allocates; thread safe.
TRESK_EXPORT std::string Typename(const std::type_info& type);

/// A number of bytes in binary units with one decimal, for instance "1.5 GiB"; "12 B" below 1 KiB.
TRESK_EXPORT std::string toByteText(unsigned long long nBytes);

/// Receives the messages of `breakpoint`.
using BreakpointHandler = void (*)(const char* message);

/// A place to stop a debugger at: called with a message on a condition that should not arise. Writes the message to
/// standard error, or hands it to the installed handler, and returns.
TRESK_EXPORT void breakpoint(const char* message);

/// Installs a handler for `breakpoint`, or the default one if `handler` is null. Returns the former handler, null for
/// the default. Thread safe.
TRESK_EXPORT BreakpointHandler setBreakpointHandler(BreakpointHandler handler) noexcept;

}  // namespace Ostrel
