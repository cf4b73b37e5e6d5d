// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/BaseSpace.hpp>

namespace Tresk {

BaseSpaceDependency::BaseSpaceDependency() = default;
BaseSpaceDependency::~BaseSpaceDependency() = default;

BaseSpace::BaseSpace() = default;
BaseSpace::~BaseSpace() = default;

void BaseSpace::addDependency(const BaseSpaceDependencyWeakPtr&) {}

}  // namespace Tresk
