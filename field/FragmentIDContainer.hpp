// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/FragmentID.hpp>

#include <set>
#include <string>

namespace Tresk {

/// A set of fragments without a numbering authority, ordered as their pointers are. A value: a copy holds the same
/// fragments in a set of its own.
class TRESK_EXPORT FragmentIDContainer {
 public:
  FragmentIDContainer();
  FragmentIDContainer(const FragmentIDContainer& other);
  FragmentIDContainer& operator=(const FragmentIDContainer& other);
  ~FragmentIDContainer();

  /// A new free-standing fragment. It does not enter the set, and no name is looked up: two calls with one name give
  /// two fragments.
  FragmentIDPtr createFragmentID(const std::string& name);
  /// Enters a fragment; false if it was there already.
  bool addFragmentID(const FragmentIDPtr& fragment) { return fragments_.insert(fragment).second; }

  unsigned long long nFragments() const noexcept { return fragments_.size(); }
  /// The smallest fragment of the set; empty if there is none.
  FragmentIDPtr getFirst() const;

 private:
  std::set<FragmentIDPtr> fragments_;
};

}  // namespace Tresk
