// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/ArrayInterpolator.hpp>
#include <tresk/field/MemBase.hpp>
#include <tresk/field/MultiIndex.hpp>

namespace Tresk {

/// The view of an array that knows the rank and not the element type.
template <int N>
class TRESK_EXPORT MemArrayBase : public virtual MemBase {
 public:
  ~MemArrayBase() override;

  /// `N`.
  int rank() const override;
  /// The extents.
  virtual MultiIndex<N> getIndexSize() const = 0;
  /// A new array of the same element type, with nothing copied; null for a computing array.
  virtual MemBasePtr createArray(const MultiIndex<N>& size, const CreatorWeakPtr& creator) const = 0;
  /// A copy of the box of extents `size` at `start`, which must lie in the array: this is not tested. Null for a
  /// computing array and for one without elements to read.
  virtual MemBasePtr createSubArray(const MultiIndex<N>& start, const MultiIndex<N>& size,
                                    const CreatorWeakPtr& creator) const = 0;
  MemBasePtr createSubArray(const DynamicSize& start, const DynamicSize& size,
                            const CreatorWeakPtr& creator) const override;
  DynamicSize getSize() const override;

  /// What interpolates this array, if somebody has attached it; else null.
  Ostrel::StrongPtr<ArrayInterpolator, Ostrel::InterfaceBase> getInterpolator() const;
};

extern template class MemArrayBase<1>;
extern template class MemArrayBase<2>;
extern template class MemArrayBase<3>;
extern template class MemArrayBase<4>;

}  // namespace Tresk
