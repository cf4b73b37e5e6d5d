// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Iterator.hpp>
#include <tresk/field/fwd.hpp>

namespace Tresk {

/// What is done at each fragment of a field in `Field::iterate`.
class TRESK_EXPORT FragmentIterator {
 public:
  // The order of the virtual operations is part of the interface.
  virtual ~FragmentIterator();
  /// Called for a fragment and its creator; false ends the walk. The fragment is empty in a field without a
  /// collection.
  virtual bool apply(const FragmentIDPtr& fragment, const CreatorPtr& creator) = 0;

 protected:
  FragmentIterator() = default;
  /// For derived classes; there is nothing to copy.
  FragmentIterator(const FragmentIterator&) = default;
  /// For derived classes; there is nothing to assign.
  FragmentIterator& operator=(const FragmentIterator&) = default;
};

/// The same for algorithms that want the number of the fragment.
class TRESK_EXPORT FragmentIndexIterator {
 public:
  virtual ~FragmentIndexIterator();
  /// Called for the number of a fragment and its creator; false ends the walk.
  virtual bool apply(unsigned int number, const CreatorPtr& creator) = 0;

 protected:
  FragmentIndexIterator() = default;
  /// For derived classes; there is nothing to copy.
  FragmentIndexIterator(const FragmentIndexIterator&) = default;
  /// For derived classes; there is nothing to assign.
  FragmentIndexIterator& operator=(const FragmentIndexIterator&) = default;
};

/// The walk over fragments under the name of the element walks, of which it is none.
template <>
struct TRESK_EXPORT Iterator<FragmentID> : FragmentIterator {
  ~Iterator() override;
};

}  // namespace Tresk
