// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CreateSample.hpp>

#include <field/ChunkKinds.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

/// \file
/// The copies between chunks and the sums over them, done again in the plainest way: on bytes, one element after the
/// other.

namespace TreskTest {

/// The arguments of an indirection besides the chunks.
template <class IndexType>
struct IndirectionArguments {
  const std::vector<IndexType>* dstIndices = nullptr;
  const std::vector<IndexType>* srcIndices = nullptr;
  unsigned long long begin = 0;
  unsigned long long end = 0;
  int dstOffset = 0;
  int srcOffset = 0;
  unsigned long long nComponents = 1;
};

/// Item `i` of one side, counted in items.
template <class IndexType>
unsigned long long itemPlace(const std::vector<IndexType>* indices, unsigned long long i, int offset) {
  if (indices != nullptr) {
    IndexType place = (*indices)[static_cast<std::size_t>(i)];
    place = static_cast<IndexType>(place + static_cast<IndexType>(offset));
    return place;
  }
  return i + static_cast<unsigned long long>(static_cast<long long>(offset));
}

template <class IndexType>
bool referenceIndirection(Bytes& dst, const Bytes& src, std::size_t elementSize,
                          const IndirectionArguments<IndexType>& arguments) {
  if (arguments.dstIndices == nullptr && arguments.srcIndices != nullptr) {
    const unsigned long long needed =
        static_cast<unsigned long long>(static_cast<long long>(arguments.dstOffset)) + arguments.end;
    if (dst.size() / elementSize < needed) return false;
  }
  const std::size_t nBlockBytes = static_cast<std::size_t>(arguments.nComponents) * elementSize;
  for (unsigned long long i = arguments.begin; i < arguments.end; ++i)
    for (std::size_t b = 0; b < nBlockBytes; ++b)
      dst.at(static_cast<std::size_t>(itemPlace(arguments.dstIndices, i, arguments.dstOffset)) * nBlockBytes + b) =
          src.at(static_cast<std::size_t>(itemPlace(arguments.srcIndices, i, arguments.srcOffset)) * nBlockBytes + b);
  return true;
}

/// Whether stride x count + offset elements are there, in numbers that do not wrap.
inline bool sampleFits(unsigned long long nElements, unsigned long long stride, unsigned long long count,
                       unsigned long long offset) {
  if (offset > nElements) return false;
  const unsigned long long nBehind = nElements - offset;
  if (count == 0) return true;
  // The first element lies at the offset, also where the stride adds nothing.
  if (stride == 0) return nBehind > 0;
  return stride <= nBehind / count;
}

inline void referenceSample(Bytes& dst, const Bytes& src, std::size_t elementSize,
                            const Tresk::SampleParameters& parameters) {
  if (!sampleFits(dst.size() / elementSize, parameters.destinationStride, parameters.count,
                  parameters.destinationOffset) ||
      !sampleFits(src.size() / elementSize, parameters.sourceStride, parameters.count, parameters.sourceOffset))
    return;
  for (unsigned long long i = 0; i < parameters.count; ++i)
    for (std::size_t b = 0; b < elementSize; ++b)
      dst.at((parameters.destinationStride * i + parameters.destinationOffset) * elementSize + b) =
          src.at((parameters.sourceStride * i + parameters.sourceOffset) * elementSize + b);
}

template <class F>
F numberAt(const Bytes& bytes, std::size_t i) {
  F number;
  std::memcpy(&number, bytes.data() + i * sizeof(F), sizeof(F));
  return number;
}

/// destination[i] = source[i] + shift[i mod n], from the numbers of one precision to those of another.
template <class D, class A, class S>
void referenceSum(Bytes& dst, const Bytes& src, const Bytes& shift) {
  const std::size_t nShift = shift.size() / sizeof(S);
  for (std::size_t i = 0; i < src.size() / sizeof(A); ++i) {
    // The sum of two floats is one of floats; otherwise the wider number decides.
    const auto sum = numberAt<A>(src, i) + numberAt<S>(shift, i % nShift);
    const D rounded = static_cast<D>(sum);
    std::memcpy(&dst.at(i * sizeof(D)), &rounded, sizeof(D));
  }
}

/// What `Shift` does with chunks of these kinds, which are of the twelve.
inline bool referenceShift(const ChunkKind& dstKind, Bytes& dst, const ChunkKind& srcKind, const Bytes& src,
                           const ChunkKind& shiftKind, const Bytes& shift) {
  if (srcKind.nNumbers != dstKind.nNumbers || srcKind.nNumbers != shiftKind.nNumbers) return false;
  if (dstKind.primitive != shiftKind.primitive || shift.size() != shiftKind.elementSize) return false;
  const bool isSrcDouble = srcKind.primitive == "double";
  if (shiftKind.primitive == "double")
    isSrcDouble ? referenceSum<double, double, double>(dst, src, shift)
                : referenceSum<double, float, double>(dst, src, shift);
  else
    isSrcDouble ? referenceSum<float, double, float>(dst, src, shift)
                : referenceSum<float, float, float>(dst, src, shift);
  return true;
}

/// What `ShiftInPlace` does.
inline bool referenceShiftInPlace(const ChunkKind& dataKind, Bytes& data, const ChunkKind& shiftKind,
                                  const Bytes& shift) {
  if (dataKind.nNumbers != shiftKind.nNumbers || shift.size() != shiftKind.elementSize) return false;
  const Bytes before = data;
  const bool isShiftDouble = shiftKind.primitive == "double";
  if (dataKind.primitive == "double")
    isShiftDouble ? referenceSum<double, double, double>(data, before, shift)
                  : referenceSum<double, double, float>(data, before, shift);
  else
    isShiftDouble ? referenceSum<float, float, double>(data, before, shift)
                  : referenceSum<float, float, float>(data, before, shift);
  return true;
}

/// Whether two chunks of these bytes hold the same numbers, bit for bit where they are numbers at all.
inline bool sameNumbers(const ChunkKind& kind, const Bytes& a, const Bytes& b) {
  if (a == b) return true;
  if (a.size() != b.size()) return false;
  const auto isSame = [&a, &b]<class F>(F) {
    for (std::size_t i = 0; i < a.size() / sizeof(F); ++i) {
      const F x = numberAt<F>(a, i);
      const F y = numberAt<F>(b, i);
      if (std::memcmp(&x, &y, sizeof(F)) != 0 && !(x != x && y != y)) return false;
    }
    return true;
  };
  return kind.primitive == "double" ? isSame(0.0) : kind.primitive == "float" && isSame(0.0F);
}

}  // namespace TreskTest
