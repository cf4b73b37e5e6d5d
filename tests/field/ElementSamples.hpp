// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/ElementTypes.hpp>
#include <tresk/field/MemArray.hpp>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>

namespace TreskTest {

/// The element types of the table, for a typed test.
template <class Sequence>
struct ToGTestTypes;
template <class... Types>
struct ToGTestTypes<Tresk::TypeSequence<Types...>> {
  using Type = ::testing::Types<Types...>;
};
using AllElementTypes = ToGTestTypes<Tresk::ElementTypeSequence>::Type;

/// Whether an element of a fresh array has a value that may be read.
template <class T>
inline constexpr bool isInitialised = std::is_arithmetic_v<T> || std::is_same_v<T, Tresk::FragmentIDPtr>;

/// An element that differs from those of other numbers in each of its components.
template <class T>
T sample(unsigned long long i) {
  if constexpr (std::is_same_v<T, Tresk::FragmentIDPtr>) {
    return T(new Tresk::FragmentID("fragment " + std::to_string(i)));
  } else if constexpr (std::is_arithmetic_v<T>) {
    return static_cast<T>(i + 1);
  } else {
    T value;
    for (int c = 0; c < T::Size; ++c)
      value[c] = static_cast<typename T::ValueType>(100 * (i + 1) + static_cast<unsigned long long>(c));
    return value;
  }
}

/// Whether two elements have the same value; for fragments, the same name.
template <class T>
bool sameElement(const T& a, const T& b) {
  if constexpr (std::is_same_v<T, Tresk::FragmentIDPtr>) {
    if (!a || !b) return !a && !b;
    return a->getName() == b->getName();
  } else {
    return a == b;
  }
}

/// Writes sample `e` to element `e` of the walk.
template <class T>
void fillWithSamples(Tresk::CreativeIterator<T>& walk) {
  for (unsigned long long e = 0; e < walk.nElements(); ++e) walk.setElement(e, sample<T>(e));
}

/// A chunk of samples.
template <class T>
Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> sampleChunk(unsigned long long nElements) {
  const Ostrel::StrongPtr<Ostrel::Chunk<T>, Ostrel::ChunkBase> chunk(new Ostrel::Chunk<T>(nElements));
  for (unsigned long long e = 0; e < nElements; ++e) chunk->vector()[e] = sample<T>(e);
  return chunk;
}

/// Extents 2, 3, 4, 5, as many as the rank.
template <int N>
Tresk::MultiIndex<N> sampleExtents() {
  Tresk::MultiIndex<N> extents;
  for (int d = 0; d < N; ++d) extents[d] = static_cast<unsigned long long>(d + 2);
  return extents;
}

/// Goes to the next index of a box of the given extents, index 0 fastest; false behind the last one.
template <int N>
bool advance(Tresk::MultiIndex<N>& index, const Tresk::MultiIndex<N>& extents) {
  for (int d = 0; d < N; ++d) {
    if (++index[d] < extents[d]) return true;
    index[d] = 0;
  }
  return false;
}

/// Calls `f(std::integral_constant<int, N>())` for each rank N that arrays have.
template <class F>
void forEachRank(const F& f) {
  f(std::integral_constant<int, 1>());
  f(std::integral_constant<int, 2>());
  f(std::integral_constant<int, 3>());
  f(std::integral_constant<int, 4>());
}

template <int N, class T>
using ArrayPtr = Ostrel::StrongPtr<Tresk::MemArray<N, T>, Ostrel::Cacheable>;

/// A new array; its elements of geometric and cell types have no values yet.
template <int N, class T>
ArrayPtr<N, T> makeArray(const Tresk::MultiIndex<N>& extents) {
  return ArrayPtr<N, T>(new Tresk::MemArray<N, T>(extents, Tresk::CreatorWeakPtr()));
}

/// A new array with sample `e` at linear position `e`.
template <int N, class T>
ArrayPtr<N, T> makeSamples(const Tresk::MultiIndex<N>& extents) {
  const ArrayPtr<N, T> array = makeArray<N, T>(extents);
  fillWithSamples<T>(*array);
  return array;
}

/// Checks that element `e` of the array, counted along its extents, is sample `numberOf(e)`.
template <int N, class T, class Number>
void expectSamples(const Tresk::MemArray<N, T>& array, const Number& numberOf) {
  const Tresk::MultiIndex<N> extents = array.getIndexSize();
  if (extents.nElements() == 0) return;
  Tresk::MultiIndex<N> index;
  unsigned long long e = 0;
  do {
    EXPECT_TRUE(sameElement<T>(array[index], sample<T>(numberOf(e)))) << "element " << e;
    ++e;
  } while (advance(index, extents));
}

}  // namespace TreskTest
