// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentIterator.hpp>
#include <tresk/field/FragmentSelector.hpp>

namespace Tresk {

FragmentIterator::~FragmentIterator() = default;
FragmentIndexIterator::~FragmentIndexIterator() = default;
Iterator<FragmentID>::~Iterator() = default;

FragmentSelector::FragmentSelector() : Ostrel::ReferenceBase<FragmentSelector>(this) {}
FragmentSelector::~FragmentSelector() = default;

}  // namespace Tresk
