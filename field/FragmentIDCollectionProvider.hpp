// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/FragmentIDCollection.hpp>

namespace Tresk {

/// Anything that can name the fragmentation of a domain; a `Field` can. Not for holding or destroying objects by: it
/// has no virtual destructor.
class TRESK_EXPORT FragmentIDCollectionProvider {
 public:
  virtual FragmentIDCollectionPtr getFragmentIDCollection() const = 0;

 protected:
  FragmentIDCollectionProvider() = default;
  FragmentIDCollectionProvider(const FragmentIDCollectionProvider&) = default;
  FragmentIDCollectionProvider& operator=(const FragmentIDCollectionProvider&) = default;
  ~FragmentIDCollectionProvider() = default;
};

}  // namespace Tresk
