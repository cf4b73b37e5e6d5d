// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Iterator.hpp>
#include <tresk/field/MultiIndex.hpp>

#include <concepts>
#include <utility>

namespace Tresk {

/// A walk with extents.
template <int N, class T>
struct MultiArrayBase : CreativeIterator<T> {
  MultiIndex<N> extents;  ///< extent of each dimension, index 0 fastest
};

template <int N, class T, class Dimensions>
class MultiArray;

/// Access by `N` indices: element (i0, i1, ...) lies at unit data + (linear index + offset) x stride, with the linear
/// index (... (i2 x n1 + i1) x n0 + i0). No index is tested.
///
/// `a(i, j, k)` and `a[MultiIndex<3>(i, j, k)]` refer to an element. For the two array types of doubles the reference
/// is a small object that reads and writes the components where they lie. There must be memory or an element source.
/// Cost: inline, without a virtual call where the elements are in memory.
template <int N, class T, unsigned long long... Dimensions>
class MultiArray<N, T, std::integer_sequence<unsigned long long, Dimensions...>> : public MultiArrayBase<N, T> {
 public:
  using Reference = typename Iterator<T>::Reference;            ///< refers to an element for writing
  using ConstReference = typename Iterator<T>::ConstReference;  ///< refers to an element for reading, or is a copy
  using Unit = WalkUnitType<T>;                                 ///< the unit of the walk

  /// The element at `N` indices, the fastest dimension first, for reading.
  template <std::integral... Indices>
  requires(sizeof...(Indices) == N) ConstReference operator()(Indices... indices) const {
    return read(MultiIndex<N>(indices...));
  }
  /// The same for writing.
  template <std::integral... Indices>
  requires(sizeof...(Indices) == N) Reference operator()(Indices... indices) {
    return refer(MultiIndex<N>(indices...));
  }
  /// The element at an index, for reading.
  ConstReference operator[](const MultiIndex<N>& index) const { return read(index); }
  /// The same for writing.
  Reference operator[](const MultiIndex<N>& index) { return refer(index); }

  /// Writes the element at `index`.
  void setElement(const MultiIndex<N>& index, const T& value) { refer(index) = value; }
  using Iterator<T>::setElement;

 protected:
  /// The element at `index`, from memory or else through the source.
  ConstReference read(const MultiIndex<N>& index) const {
    if (this->data != nullptr) [[likely]]
      return convert(Iterator<T>::referTo(this->unitAt(this->extents.linear(index)), *this));
    return convert(referThroughSource(index));
  }

 private:
  static ConstReference convert(Reference reference) { return reference; }

  Reference refer(const MultiIndex<N>& index) {
    if (this->data != nullptr) [[likely]]
      return Iterator<T>::referTo(this->unitAt(this->extents.linear(index)), *this);
    return referThroughSource(index);
  }

  /// Asks the source for a slice at the highest index, then for one a dimension lower, until one is in memory; at last
  /// for the element at the lowest index.
  TRESK_COLD Reference referThroughSource(const MultiIndex<N>& index) const {
    for (int d = N - 1; d >= 1; --d) {
      const WalkParameters<Unit> slice = this->source->slice(d, index[d]);
      if (slice.data == nullptr) continue;
      unsigned long long position = index[d - 1];
      for (int lower = d - 2; lower >= 0; --lower) position = position * this->extents[lower] + index[lower];
      return Iterator<T>::referTo(slice.data + (position + slice.offset) * slice.stride, slice);
    }
    HyperslabParameters adjacent;
    adjacent.span = 1;
    return Iterator<T>::referTo(this->source->element(index[0]), adjacent);
  }
};

namespace Detail {
/// The numbers of the dimensions of an array of rank `N`, 1 to 4, as a sequence in its member `Type`.
template <int N>
struct DimensionSequence;
template <>
struct DimensionSequence<1> {
  using Type = std::integer_sequence<unsigned long long, 0>;
};
template <>
struct DimensionSequence<2> {
  using Type = std::integer_sequence<unsigned long long, 0, 1>;
};
template <>
struct DimensionSequence<3> {
  using Type = std::integer_sequence<unsigned long long, 0, 1, 2>;
};
template <>
struct DimensionSequence<4> {
  using Type = std::integer_sequence<unsigned long long, 0, 1, 2, 3>;
};
}  // namespace Detail

/// The multi-dimensional view of rank `N`.
template <int N, class T>
using MultiArrayOf = MultiArray<N, T, typename Detail::DimensionSequence<N>::Type>;

}  // namespace Tresk
