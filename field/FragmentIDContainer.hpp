// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/FragmentID.hpp>

#include <set>
#include <string>

namespace Tresk {

/// A set of fragments without a numbering authority, ordered as their pointers are. A value: a copy holds the same
/// fragments in a set of its own. No lock: not to be changed while it is read.
class TRESK_EXPORT FragmentIDContainer {
 public:
  FragmentIDContainer();
  /// A set of the same fragments.
  FragmentIDContainer(const FragmentIDContainer& other);
  /// Takes over the fragments; without memory for them the set stays as it was.
  FragmentIDContainer& operator=(const FragmentIDContainer& other);
  ~FragmentIDContainer();

  /// A new free-standing fragment. It does not enter the set, and no name is looked up: two calls with one name give
  /// two fragments.
  FragmentIDPtr createFragmentID(const std::string& name);
  /// Enters a fragment; false if it was there already.
  bool addFragmentID(const FragmentIDPtr& fragment) { return fragments_.insert(fragment).second; }

  /// The number of entries of the set.
  unsigned long long nFragments() const noexcept { return fragments_.size(); }
  /// The smallest fragment of the set; empty if there is none.
  FragmentIDPtr getFirst() const;

 private:
  std::set<FragmentIDPtr> fragments_;
};

}  // namespace Tresk
