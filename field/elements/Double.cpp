// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemArrayImplementation.hpp>

TRESK_INSTANTIATE_ELEMENT_TYPE(double);

namespace Tresk {
namespace {
/// The second record of this type, deliberately: one index can stand several times in the registry.
Ostrel::StaticAuto<TreskType<double>> secondRecord;
}  // namespace
}  // namespace Tresk
