// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <initializer_list>
#include <string>

namespace Tresk {

/// The extents of an array of any rank.
///
/// Index 0 is the lowest dimension, the one that varies fastest in memory.
/// A plain value: copies are deep. Not to be written while another thread reads it.
/// Errors: `std::bad_alloc`, and `std::bad_array_new_length` for a negative rank.
class TRESK_EXPORT DynamicSize {
 public:
  /// Rank 0, without an array of extents.
  DynamicSize() noexcept = default;
  /// A copy of rank and extents.
  DynamicSize(const DynamicSize& other);
  /// A size of the given extents, lowest dimension first. No extents give rank 0.
  DynamicSize(std::initializer_list<unsigned long long> extents);
  /// A size of `rank` extents copied from `extents`. A rank below 1 gives rank 0.
  DynamicSize(int rank, const unsigned long long* extents);
  /// A size of one more dimension: `lowest` becomes index 0, and `higher` follows.
  DynamicSize(unsigned long long lowest, const DynamicSize& higher);
  /// The sum of the first `rank` extents of two sizes, which must hold that many: this is not tested. Rank 0 makes a
  /// size with an array of no extents, whose product of extents is 1; a negative rank throws
  /// `std::bad_array_new_length`.
  DynamicSize(int rank, const DynamicSize& a, const DynamicSize& b);
  /// Takes over rank and extents; without memory for them this size stays as it was.
  DynamicSize& operator=(const DynamicSize& other);
  ~DynamicSize();

  /// The number of dimensions.
  int Dims() const noexcept { return rank_; }
  /// The extent of dimension `d`, which is not tested.
  unsigned long long operator[](int d) const noexcept { return extents_[d]; }
  /// The extents, lowest dimension first; null without an array.
  const unsigned long long* getExtents() const noexcept { return extents_; }
  /// The product of the extents, modulo 2^64: 0 without an array of extents, 1 for an array of none.
  unsigned long long nElements() const noexcept;

  /// Whether rank or any extent differs. There is no `operator==` of its own: callers negate this one.
  bool operator!=(const DynamicSize& other) const noexcept;

  /// Adds the extents of `other`, both sizes aligned at index 0. Dimensions that only `other` has are taken over
  /// unchanged; an empty size becomes a copy of `other`. Without memory for it this size stays as it was.
  DynamicSize& operator+=(const DynamicSize& other);

  /// The extents in decimal, lowest dimension first, joined by "x": 128x64x3. Empty for rank 0.
  std::string str() const;

  /// Whether `other` does not begin with the extents of this size. Asked of the smaller against the bigger size: a
  /// size of higher rank is always incompatible, an empty one never.
  bool hasIncompatibleLowerDims(const DynamicSize& other) const noexcept;
  /// Whether any of the highest dimensions that both sizes have differs. There is no test of the ranks: the answer is
  /// the same in both directions.
  bool hasIncompatibleHigherDims(const DynamicSize& other) const noexcept;

 private:
  int rank_ = 0;
  unsigned long long* extents_ = nullptr;
};

}  // namespace Tresk
