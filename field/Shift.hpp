// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/fwd.hpp>
#include <tresk/foundation/ChunkBase.hpp>

namespace Tresk {

/// Adds one constant vector to each element: destination[i] = source[i] + shift[0], component by component.
///
/// All chunks hold `Quorvel::FixedArray<F, N>` of one N from 1 to 6, where F is `double` or `float`, and the type of
/// the shift decides that of the destination:
///
/// | Shift  | Source | Destination | Sum                                              |
/// |--------|--------|-------------|--------------------------------------------------|
/// | double | double | double      | in double precision                              |
/// | double | float  | double      | in double precision                              |
/// | float  | double | float       | in double precision, and then rounded to single  |
/// | float  | float  | float       | in single precision                              |
///
/// `shift` holds exactly one element. The destination must have as many elements as the source, which is not tested;
/// it may be the source itself.
/// \return false, with nothing written, if a chunk is missing or of another type, or if the shift is not one element
/// Threads: on the calling thread, without a lock. The chunks must not change meanwhile.
/// Cost: casts to the possible types in turn, then one flat loop.
TRESK_EXPORT bool Shift(const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& destination,
                        const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& source,
                        const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& shift);
/// The same for the chunks of two arrays.
TRESK_EXPORT bool Shift(const MemBasePtr& destination, const MemBasePtr& source,
                        const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& shift);
/// A new array of the type and size of the source with the sums; null in place of false, and for a view of a part of a
/// chunk, as whole chunks are shifted. A source of `double` takes no shift of `float`, which would need a destination
/// of `float`. `creator` is not used, deliberately: the new array belongs to no creator.
/// Errors: `std::bad_alloc` of the new array.
TRESK_EXPORT MemBasePtr Shift(const MemBasePtr& source,
                              const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& shift,
                              const CreatorWeakPtr& creator);

/// Adds one constant vector to each element of a chunk. Data and shift may each be of `double` or `float`: the sum is
/// formed in double precision if one of them is `double`, and rounded to the type of the data.
/// \return as `Shift`
/// Threads as `Shift`.
TRESK_EXPORT bool ShiftInPlace(const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& data,
                               const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& shift);

}  // namespace Tresk
