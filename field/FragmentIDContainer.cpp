// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentIDContainer.hpp>

namespace Tresk {

FragmentIDContainer::FragmentIDContainer() = default;
FragmentIDContainer::FragmentIDContainer(const FragmentIDContainer& other) = default;
FragmentIDContainer& FragmentIDContainer::operator=(const FragmentIDContainer& other) {
  auto copy = other.fragments_;  // without memory for it all stays as it was
  fragments_.swap(copy);
  return *this;
}
FragmentIDContainer::~FragmentIDContainer() = default;

FragmentIDPtr FragmentIDContainer::createFragmentID(const std::string& name) {
  return FragmentIDPtr(new FragmentID(name));
}

FragmentIDPtr FragmentIDContainer::getFirst() const {
  return fragments_.empty() ? FragmentIDPtr() : *fragments_.begin();
}

}  // namespace Tresk
