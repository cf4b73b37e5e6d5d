// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <type_traits>

namespace Quorvel {

/// `N` values of type `T`, adjacent in memory, and nothing else.
///
/// Default construction leaves the values as they are: an array of a million of them costs no pass over its memory.
/// Access does not test the index.
template <class T, int N>
class TRESK_OPEN_TEMPLATE FixedArray {
 public:
  /// Type of one value.
  using ValueType = T;
  /// Number of values.
  static constexpr int Size = N;

  // Not `= default`: that would make value-initialisation write zeros.
  /// Values that hold whatever was in their memory.
  constexpr FixedArray() noexcept {}  // NOLINT(modernize-use-equals-default)
  /// From `N` values.
  template <class... Values>
  requires(sizeof...(Values) == N &&
           (std::is_constructible_v<T, const Values&> && ...)) constexpr FixedArray(const Values&... values) noexcept
      : values_{static_cast<T>(values)...} {}

  /// Value `i`, from 0, for writing.
  constexpr T& operator[](int i) noexcept { return values_[i]; }
  /// Value `i`, from 0.
  constexpr const T& operator[](int i) const noexcept { return values_[i]; }
  /// The first value, for writing.
  constexpr T* begin() noexcept { return values_; }
  /// Behind the last value.
  constexpr T* end() noexcept { return values_ + N; }
  /// The first value.
  constexpr const T* begin() const noexcept { return values_; }
  /// Behind the last value.
  constexpr const T* end() const noexcept { return values_ + N; }

  /// Component by component.
  friend constexpr FixedArray operator-(const FixedArray& a, const FixedArray& b) noexcept {
    FixedArray difference;
    for (int i = 0; i < N; ++i) difference[i] = static_cast<T>(a[i] - b[i]);
    return difference;
  }
  /// Whether all values are equal; as for numbers, NaN equals nothing.
  friend constexpr bool operator==(const FixedArray& a, const FixedArray& b) noexcept {
    for (int i = 0; i < N; ++i)
      if (!(a[i] == b[i])) return false;
    return true;
  }

 private:
  T values_[N];
};

/// A vector of `N` components.
template <class T, int N>
class TRESK_OPEN_TEMPLATE Vector : public FixedArray<T, N> {
 public:
  using FixedArray<T, N>::FixedArray;
  /// Components that hold whatever was in their memory.
  constexpr Vector() noexcept {}  // NOLINT(modernize-use-equals-default)
};

}  // namespace Quorvel
