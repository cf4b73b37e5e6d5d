// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

/// \file
/// Counted references: objects (`ReferenceBase`, `Auto`), pointers (`StrongPtr`, `WeakPtr`, `DynPtr`, `RefPtr`, `Pin`)
/// and their diagnostics (`SpeakPtr`, `MemoryException`).

#include <tresk/foundation/Auto.hpp>
#include <tresk/foundation/DynPtr.hpp>
#include <tresk/foundation/Pin.hpp>
#include <tresk/foundation/ReferenceBase.hpp>
#include <tresk/foundation/SpeakPtr.hpp>
#include <tresk/foundation/StrongPtr.hpp>
#include <tresk/foundation/WeakPtr.hpp>

namespace Ostrel {
// The sizes are part of the layout of element types and of every table that stores pointers.
namespace Detail {
struct Counted;
struct CountedDerived;
static_assert(sizeof(StrongPtr<Counted, Counted>) == 16 && sizeof(WeakPtr<Counted, Counted>) == 16);
static_assert(sizeof(StrongPtr<CountedDerived, Counted>) == 24 && sizeof(WeakPtr<CountedDerived, Counted>) == 24);
}  // namespace Detail
}  // namespace Ostrel
