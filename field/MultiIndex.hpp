// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <concepts>

namespace Tresk {

/// `N` extents or indices, index 0 the fastest dimension. Default construction gives zeros.
template <int N>
class TRESK_OPEN_TEMPLATE MultiIndex {
 public:
  constexpr MultiIndex() noexcept = default;
  /// From `N` numbers, which must not be negative.
  template <std::integral... Values>
  requires(sizeof...(Values) == N) constexpr MultiIndex(Values... values) noexcept
      : values_{static_cast<unsigned long long>(values)...} {}

  /// Entry `d`, which is not tested, for writing.
  constexpr unsigned long long& operator[](int d) noexcept { return values_[d]; }
  /// Entry `d`, which is not tested.
  constexpr unsigned long long operator[](int d) const noexcept { return values_[d]; }
  /// The first of the `N` entries, which are adjacent.
  constexpr const unsigned long long* begin() const noexcept { return values_; }
  /// Behind the last entry.
  constexpr const unsigned long long* end() const noexcept { return values_ + N; }

  /// The product of the entries, modulo 2^64.
  constexpr unsigned long long nElements() const noexcept {
    unsigned long long product = 1;
    for (const unsigned long long extent : values_) product *= extent;
    return product;
  }

  /// The linear position of an index in an array of these extents, modulo 2^64. The index is not tested.
  constexpr unsigned long long linear(const MultiIndex& index) const noexcept {
    unsigned long long position = index[N - 1];
    for (int d = N - 2; d >= 0; --d) position = position * values_[d] + index[d];
    return position;
  }

  /// Compares entry by entry.
  friend constexpr bool operator==(const MultiIndex& a, const MultiIndex& b) noexcept {
    for (int d = 0; d < N; ++d)
      if (a[d] != b[d]) return false;
    return true;
  }

 private:
  unsigned long long values_[N] = {};
};

}  // namespace Tresk
