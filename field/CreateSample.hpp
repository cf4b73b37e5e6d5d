// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/fwd.hpp>
#include <tresk/foundation/ChunkBase.hpp>

namespace Tresk {

/// Which elements a sample takes, and where they go. All in elements.
struct TRESK_EXPORT SampleParameters {
  unsigned long long count;              ///< number of elements to copy
  unsigned long long destinationOffset;  ///< place of the first element written
  unsigned long long destinationStride;  ///< from one element written to the next
  unsigned long long sourceOffset;       ///< place of the first element read
  unsigned long long sourceStride;       ///< from one element read to the next; 0 copies one element over and over
};

/// Copies a regular subset of a chunk to another: for each i below the count
///
///     destination[destinationStride i + destinationOffset] = source[sourceStride i + sourceOffset]
///
/// Both chunks hold elements of one and the same type, one of those of `CreateIndirection` without those of
/// `unsigned long long`. An empty `destination` becomes a new chunk of count x destinationStride + destinationOffset
/// elements.
///
/// Each chunk must have stride x count + offset elements, which is a stride more than the last element needs; with a
/// stride of 0 also the element at the offset. If one of them has less, or if that number does not fit 64 bits, nothing
/// is copied and the answer is true all the same, deliberately: a caller who cares compares the sizes before.
///
/// \return false if the source is empty or of no such type, or if the destination is of another type than the source
/// Errors: `std::length_error` if a vector cannot hold the new chunk, `std::bad_alloc`; `destination` is then as
/// before.
/// Threads: runs on all threads of OpenMP, in equal parts; on one with a destination stride of 0 and where the library
/// has no OpenMP. The places read and written of one chunk must not overlap, and the chunks must not change meanwhile.
/// Cost: one cast of each chunk, then one flat loop; unit strides are a copy of bytes.
TRESK_EXPORT bool CreateSample(Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& destination,
                               const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& source,
                               const SampleParameters& parameters);
/// The same for the chunks of two arrays; false if an array or its chunk is missing.
TRESK_EXPORT bool CreateSample(const MemBasePtr& destination, const MemBasePtr& source,
                               const SampleParameters& parameters);
/// A new array of rank 1 and the given size, in elements, with the sample. A source or a size that is too small leaves
/// its elements as they were made. Null in place of false, and for an element type of which no array can be made.
/// `creator` is not used, deliberately: the new array belongs to no creator.
TRESK_EXPORT MemBasePtr CreateSample(const MemBasePtr& source, unsigned long long size,
                                     const SampleParameters& parameters, const CreatorWeakPtr& creator);

}  // namespace Tresk
