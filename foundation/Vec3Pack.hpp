// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Chunk.hpp>
#include <tresk/foundation/FixedArray.hpp>

namespace Quorvel {

/// Vectors of three components packed into 32 bits each, between two bounds.
///
/// Layout, from the lowest bit: component 0 in 10 bits, component 1 in 11 bits, component 2 in 11 bits.
/// Scaling: with m the greatest number that the bits hold (1023 or 2047), a component v between its bounds a and b is
/// stored as the nearest integer to (v - a) / (b - a) * m, halves away from zero. Values outside the bounds, infinities
/// among them, clamp to the nearer bound. NaN, and every value where the bounds are equal, inverted or not finite, is
/// stored as 0.
/// Error: for a value within finite bounds whose difference is finite, at most (b - a) / (2 m), and the rounding of a
/// few operations on doubles besides.
/// Cost: 4 bytes a vector; one pass.
class TRESK_EXPORT Vec3Pack_10_11_11 {
 public:
  /// The unpacked vectors: a chunk of three doubles each.
  using Vectors = Ostrel::StrongPtr<Ostrel::TypedChunkBase<FixedArray<double, 3>>, Ostrel::ChunkBase>;
  /// The packed vectors: a chunk of one number of 32 bits each.
  using PackedChunk = Ostrel::StrongPtr<Ostrel::TypedChunkBase<unsigned int>, Ostrel::ChunkBase>;

  /// Packs `vectors`; an invalid pointer gives an empty chunk.
  Vec3Pack_10_11_11(const Vectors& vectors, const FixedArray<double, 3>& lower, const FixedArray<double, 3>& upper);

  /// One packed value for each vector.
  const PackedChunk& getPacked() const noexcept { return packed_; }

  /// The vector that a packed value stands for; a component whose bounds cannot be scaled between is its lower bound.
  static FixedArray<double, 3> unpack(unsigned int packed, const FixedArray<double, 3>& lower,
                                      const FixedArray<double, 3>& upper) noexcept;

 private:
  PackedChunk packed_;
};

}  // namespace Quorvel
