// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/DynamicSize.hpp>
#include <tresk/foundation/InterfaceBase.hpp>

namespace Tresk {

/// A size that an object carries, so that a creator remembers the extents of data that it has released.
class TRESK_EXPORT SizeInterface : public Ostrel::Interface<SizeInterface>, public DynamicSize {
 public:
  /// Remembers a copy of `size`.
  explicit SizeInterface(const DynamicSize& size);
  /// A further interface of the same size.
  SizeInterface(const SizeInterface& other);
  /// The sum of the first `rank` extents, as in `DynamicSize`.
  SizeInterface(int rank, const SizeInterface& a, const SizeInterface& b);
  ~SizeInterface() override;
};

/// The size of a field, summed over its fragments. It is found like any `SizeInterface` and told from one by a dynamic
/// cast. It holds as long as the field has as many fragments as when it was made.
class TRESK_EXPORT FragmentedSizeInterface : public SizeInterface {
 public:
  /// \param size sum of the sizes of all fragments; \param nFragments number of entries of the field, those without a
  /// known size included
  FragmentedSizeInterface(const DynamicSize& size, unsigned long long nFragments);
  ~FragmentedSizeInterface() override;

  /// The number of fragments of the field when the size was summed.
  unsigned long long getFragmentCount() const noexcept { return nFragments_; }

 private:
  unsigned long long nFragments_;
};

}  // namespace Tresk
