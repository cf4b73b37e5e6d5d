// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/ChunkBase.hpp>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace TreskTest {

using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;
using Bytes = std::vector<unsigned char>;

/// An element type of chunks, as a value.
struct ChunkKind {
  std::string primitive;  ///< the number type
  int nNumbers;           ///< numbers in one element; 0 for a number that stands alone
  std::size_t elementSize;
  ChunkPtr (*make)(unsigned long long nElements);

  std::string name() const {
    return nNumbers == 0 ? primitive : "FixedArray<" + primitive + ", " + std::to_string(nNumbers) + ">";
  }
  /// Whether samples are taken of it, too.
  bool isSampled() const { return primitive != "unsigned long long"; }
};

/// The sixty element types that are gathered and scattered: ten numbers, alone and in vectors of 2 to 6.
const std::vector<ChunkKind>& gatherKinds();
/// Some element types that look like them, and are none of them.
const std::vector<ChunkKind>& foreignKinds();
/// The twelve element types that are shifted: vectors of 1 to 6 numbers, of `double` first.
const std::vector<ChunkKind>& shiftKinds();

inline std::size_t nBytes(const Ostrel::ChunkBase& chunk) {
  return static_cast<std::size_t>(chunk.size()) * static_cast<std::size_t>(chunk.elementSize());
}

/// The elements of a chunk as bytes.
inline Bytes bytesOf(const Ostrel::ChunkBase& chunk) {
  Bytes bytes(nBytes(chunk));
  if (!bytes.empty()) std::memcpy(bytes.data(), chunk.data(), bytes.size());
  return bytes;
}
inline Bytes bytesOf(const ChunkPtr& chunk) { return bytesOf(*chunk); }

/// Writes other bytes to the elements of a chunk.
inline void setBytes(const ChunkPtr& chunk, const Bytes& bytes) {
  if (!bytes.empty()) std::memcpy(chunk->data(), bytes.data(), bytes.size());
}

/// A chunk whose bytes follow from `seed`, so that hardly any two elements are equal.
inline ChunkPtr makeNoise(const ChunkKind& kind, unsigned long long nElements, std::uint32_t seed) {
  ChunkPtr chunk = kind.make(nElements);
  Bytes bytes(nBytes(*chunk));
  std::uint32_t state = seed * 2654435761U + 1;
  for (unsigned char& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<unsigned char>(state >> 24);
  }
  setBytes(chunk, bytes);
  return chunk;
}

}  // namespace TreskTest
