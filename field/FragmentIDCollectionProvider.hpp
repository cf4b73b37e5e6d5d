// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/FragmentIDCollection.hpp>

namespace Tresk {

/// Anything that can name the fragmentation of a domain; a `Field` can. Not for holding or destroying objects by: it
/// has no virtual destructor.
class TRESK_EXPORT FragmentIDCollectionProvider {
 public:
  /// The numbering of the domain; may be empty.
  virtual FragmentIDCollectionPtr getFragmentIDCollection() const = 0;

 protected:
  FragmentIDCollectionProvider() = default;
  /// For derived classes; there is nothing to copy.
  FragmentIDCollectionProvider(const FragmentIDCollectionProvider&) = default;
  /// For derived classes; there is nothing to assign.
  FragmentIDCollectionProvider& operator=(const FragmentIDCollectionProvider&) = default;
  ~FragmentIDCollectionProvider() = default;
};

}  // namespace Tresk
