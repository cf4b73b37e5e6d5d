// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Ownable.hpp>

namespace Tresk {

constinit Ostrel::Mutex Detail::ownerMutex;

OwnerBase::OwnerBase() = default;
OwnerBase::~OwnerBase() = default;

bool OwnerBase::processOwnership(Ostrel::Intercube&, const Ostrel::Intercube&) const { return true; }
void OwnerBase::forEachOwner(void*) {}

}  // namespace Tresk
