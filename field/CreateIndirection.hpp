// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/DynamicSize.hpp>
#include <tresk/field/fwd.hpp>
#include <tresk/foundation/ChunkBase.hpp>

#include <vector>

namespace Tresk {

/// Copies elements between two chunks by way of indices: for each i from `begin` to `end` - 1
///
///     dst[dstOffset + dstIndices[i]] = src[srcOffset + srcIndices[i]]
///
/// where a null index vector stands for i itself. An item is `components` adjacent elements, and item p begins at
/// element p x `components`.
///
/// Both chunks hold elements of one and the same type: a number of type `float`, `double`, `int`, `short`,
/// `signed char`, `unsigned int`, `unsigned long long`, `unsigned short`, `unsigned char` or `char`, or a
/// `Quorvel::FixedArray` of 2 to 6 of them. Anything else is false.
///
/// The one test of bounds is that of a gather, where `dstIndices` alone is null: the destination must have at least
/// `dstOffset` + `end` elements, modulo 2^64, or else the answer is false and nothing is written. It counts elements
/// also where items have several. Nothing else is tested, and the caller answers for it: no index and no place may lie
/// outside its chunk, and index vectors must reach to `end`. Offset and index are added in the width of the index type;
/// offset and i in 64 bits.
///
/// \return whether a copy ran; true for an empty range that passes the test
/// Threads: runs on all threads of OpenMP, in equal parts; on one where the library has no OpenMP. Destination places
/// must be distinct, and no place may be read that is written: the order is not defined. The chunks must not change
/// meanwhile.
/// Cost: one cast of each chunk, then one flat loop. For chunks of another type than they say, up to 60 casts.
TRESK_EXPORT bool CreateIndirection(const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& dst,
                                    const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& src,
                                    const std::vector<unsigned int>* dstIndices,
                                    const std::vector<unsigned int>* srcIndices, unsigned long long begin,
                                    unsigned long long end, int dstOffset, int srcOffset,
                                    unsigned long long components);
/// The same with indices of 64 bits.
TRESK_EXPORT bool CreateIndirection(const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& dst,
                                    const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& src,
                                    const std::vector<unsigned long long>* dstIndices,
                                    const std::vector<unsigned long long>* srcIndices, unsigned long long begin,
                                    unsigned long long end, int dstOffset, int srcOffset,
                                    unsigned long long components);

/// A new array of the elements that indices pick from an array: element i is `source[indices[i]]`, in items of
/// `components` elements.
///
/// The source is read through its whole chunk, also if it is a view of a part.
/// \param source the array that is read
/// \param indices a chunk of `unsigned int` or `unsigned long long`, none beyond the source
/// \param size of the result. It must have at least as many elements as there are indices, which is tested, and
/// `components` times as many if there are several components, for which the caller answers
/// \param components adjacent elements of one item
/// \return null if the source is empty or of an element type that `CreateIndirection` does not serve, if the indices
/// are of another type, if the result has less elements than there are indices, or if there is no array of its rank
/// Errors: `std::length_error` and `std::bad_alloc` of the new array.
/// Threads and cost as `CreateIndirection`.
TRESK_EXPORT MemBasePtr pullData(const MemBasePtr& source,
                                 const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& indices,
                                 const DynamicSize& size, unsigned long long components);
/// The same with the indices in an array, which gives the size. With 2 or more components these become the new lowest
/// dimension. Indices are read through the whole chunk of their array: of a view of a part there are more than the
/// result has room for, which yields null, or with several components passes the test and must not be.
TRESK_EXPORT MemBasePtr pullData(const MemBasePtr& source, const MemBasePtr& indices, unsigned long long components);

}  // namespace Tresk
