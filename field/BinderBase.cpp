// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/BinderBase.hpp>

#include <tresk/field/SaveableAttributes.hpp>

namespace Tresk {

BinderBase::BinderBase(const std::string& name) : Ostrel::ReferenceBase<BinderBase>(this), name_(name) {}
BinderBase::~BinderBase() = default;

SaveableAttributes::SaveableAttributes() : attributesSavedAge(Ostrel::Ageable::now()) {}
SaveableAttributes::~SaveableAttributes() = default;

}  // namespace Tresk
