// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemArrayProperties.hpp>

namespace Tresk {

MemArrayProperties::MemArrayProperties(int rank, const TreskTypeWeakPtr& type) : rank_(rank), type_(type) {}
MemArrayProperties::~MemArrayProperties() = default;

}  // namespace Tresk
