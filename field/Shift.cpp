// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Shift.hpp>

#include <tresk/field/MemBase.hpp>
#include <tresk/field/PrimitiveTypes.hpp>
#include <tresk/foundation/Profiler.hpp>

#include <utility>
#include <vector>

namespace Tresk {

namespace {

using Detail::ChunkPtr;
using Quorvel::FixedArray;

/// Calls `f.template operator()<N>()` for N from 1 to 6 until it returns true; whether one did.
template <class F>
bool anyLength(const F& f) {
  return [&f]<int... Less>(std::integer_sequence<int, Less...>) { return (f.template operator()<Less + 1>() || ...); }
  (std::make_integer_sequence<int, 6>());
}

/// The elements of a chunk of vectors; null for a chunk of another type.
template <class F, int N>
std::vector<FixedArray<F, N>>* vectorsOf(const ChunkPtr& chunk) {
  return Detail::elementsOf<FixedArray<F, N>>(chunk.get());
}

/// The one element of a shift; null for anything else.
template <class S, int N>
const FixedArray<S, N>* shiftOf(const ChunkPtr& chunk) {
  const std::vector<FixedArray<S, N>>* const elements = vectorsOf<S, N>(chunk);
  return elements != nullptr && elements->size() == 1 ? elements->data() : nullptr;
}

/// The loop, in ascending order: destination and source may be one.
template <class D, class A, class S, int N>
void addShift(FixedArray<D, N>* dst, const FixedArray<A, N>* src, std::size_t n, const FixedArray<S, N>& shift) {
  using Wide = decltype(A() + S());
  const FixedArray<S, N> constant = shift;  // a copy, which no write to the destination changes
  for (std::size_t i = 0; i < n; ++i)
    for (int k = 0; k < N; ++k)
      dst[i][k] = static_cast<D>(static_cast<Wide>(src[i][k]) + static_cast<Wide>(constant[k]));
}

template <class S, class A, int N>
bool shiftFrom(const ChunkPtr& destination, const ChunkPtr& source, const FixedArray<S, N>& shift) {
  const std::vector<FixedArray<A, N>>* const src = vectorsOf<A, N>(source);
  if (src == nullptr) return false;
  std::vector<FixedArray<S, N>>* const dst = vectorsOf<S, N>(destination);
  if (dst == nullptr) return false;
  addShift(dst->data(), src->data(), src->size(), shift);
  return true;
}

/// The rows of the table for one type of shift.
template <class S, int N>
bool shiftBy(const ChunkPtr& destination, const ChunkPtr& source, const ChunkPtr& shift) {
  const FixedArray<S, N>* const constant = shiftOf<S, N>(shift);
  return constant != nullptr &&
         (shiftFrom<S, double>(destination, source, *constant) || shiftFrom<S, float>(destination, source, *constant));
}

template <class D, class S, int N>
bool shiftInPlaceBy(const ChunkPtr& data, const ChunkPtr& shift) {
  std::vector<FixedArray<D, N>>* const elements = vectorsOf<D, N>(data);
  if (elements == nullptr) return false;
  const FixedArray<S, N>* const constant = shiftOf<S, N>(shift);
  if (constant == nullptr) return false;
  addShift(elements->data(), elements->data(), elements->size(), *constant);
  return true;
}

}  // namespace

bool Shift(const ChunkPtr& destination, const ChunkPtr& source, const ChunkPtr& shift) {
  const Ostrel::Profiler profiler(
      "field/ShiftArray", 113,
      "bool Tresk::Shift(Ostrel::RefPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>&, Ostrel::RefPtr<Ostrel::ChunkBase, "
      "Ostrel::ChunkBase>&, Ostrel::RefPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>&)",
      "Shift Array Values", 5, "");
  const ChunkPtr to = destination;
  const ChunkPtr from = source;
  const ChunkPtr by = shift;
  return anyLength([&]<int N>() { return shiftBy<double, N>(to, from, by) || shiftBy<float, N>(to, from, by); });
}

bool Shift(const MemBasePtr& destination, const MemBasePtr& source, const ChunkPtr& shift) {
  if (!destination) return false;
  const ChunkPtr dst = destination->getChunk();
  const ChunkPtr src = source ? source->getChunk() : ChunkPtr();
  return Shift(dst, src, shift);
}

MemBasePtr Shift(const MemBasePtr& source, const ChunkPtr& shift, const CreatorWeakPtr&) {
  if (!source) return MemBasePtr();
  const MemBasePtr shifted = source->create(typeid(void));
  if (!shifted) return MemBasePtr();
  // The whole chunk of the source is shifted, and that of a view is longer than the new array.
  const ChunkPtr dst = shifted->getChunk();
  const ChunkPtr src = source->getChunk();
  if (dst && src && dst->size() < src->size()) return MemBasePtr();
  return Shift(dst, src, shift) ? shifted : MemBasePtr();
}

bool ShiftInPlace(const ChunkPtr& data, const ChunkPtr& shift) {
  const ChunkPtr to = data;
  const ChunkPtr by = shift;
  return anyLength([&]<int N>() {
    return shiftInPlaceBy<double, double, N>(to, by) || shiftInPlaceBy<double, float, N>(to, by) ||
           shiftInPlaceBy<float, double, N>(to, by) || shiftInPlaceBy<float, float, N>(to, by);
  });
}

}  // namespace Tresk
