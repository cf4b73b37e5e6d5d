// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentID.hpp>

#include <tresk/field/FragmentIDCollection.hpp>

namespace Tresk {

FragmentID::FragmentID(const std::string& name) : Ostrel::ReferenceBase<FragmentID>(this), name_(name), number_(0) {}

FragmentID::FragmentID(const std::string& name, unsigned int number,
                       const Ostrel::WeakPtr<FragmentIDCollection, FragmentIDCollection>& owner)
    : Ostrel::ReferenceBase<FragmentID>(this), name_(name), owner_(owner), number_(number) {}

FragmentID::~FragmentID() = default;

}  // namespace Tresk
