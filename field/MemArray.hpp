// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/ElementTypes.hpp>
#include <tresk/field/FragmentID.hpp>
#include <tresk/field/MemArrayBase.hpp>
#include <tresk/field/MultiArray.hpp>
#include <tresk/field/TypedArray.hpp>

namespace Tresk {

/// An array that sees a chunk, or a part of it: everything that does not need to allocate.
///
/// Several arrays may see one chunk with different walks: slices and views of components cost no copy. A view holds
/// the chunk and not the array that it was made from. Elements that one of them writes show in all.
/// The bodies are in `MemArrayImplementation.hpp`, which a library with an element type of its own includes.
template <int N, class T>
class TRESK_OPEN_TEMPLATE ReferencingMemArray : public MemArrayBase<N>,
                                                public MultiArrayOf<N, T>,
                                                public TypedArray<T> {
 public:
  /// A chunk of any element type.
  using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;
  /// A chunk of the element type of the array.
  using TypedChunkPtr = Ostrel::StrongPtr<Ostrel::TypedChunk<T>, Ostrel::ChunkBase>;
  /// The unit of the walk.
  using Unit = WalkUnitType<T>;

  using MemArrayBase<N>::createSubArray;

  // The order of the virtual operations is part of the interface.
  MultiIndex<N> getIndexSize() const override;
  DynamicSize getSize() const override;
  /// The part with the highest index fixed at `index`, which is not tested: an array of one dimension less that shares
  /// the chunk; null for rank 1.
  virtual MemBasePtr getSlice(unsigned long long index, const CreatorWeakPtr& creator) const = 0;
  /// Copies all elements of a chunk of the same type and length over the storage, also for a view of a part; else
  /// false, and nothing changes.
  bool copyFromChunk(const ChunkPtr& other) override;
  TypedChunkPtr getTypedChunk() const override;
  /// Bytes of the whole chunk, also for a view of a part; 0 for a view of a component.
  unsigned long long memsize() const override;
  unsigned long long nElements() const override;
  std::string getElementString(unsigned long long index) const override;
  /// Offers the array to the save registry of `MemBase`.
  void DeferredConstructor() override;
  const std::type_info& getElementType() const override;
  const HyperslabParameters& getHyperslab() const override;
  void* getDataPointer() const override;
  const double* getOrigin() const override;
  const double* getDelta() const override;
  T first() const override;
  T last() const override;
  const CreativeIterator<T>& getIterator() const override;
  CreativeIterator<T>& getIterator() override;

 protected:
  /// The front of `storage`, as far as the extents cover it. Storage of another type gives an array without memory.
  ReferencingMemArray(const ChunkPtr& storage, const MultiIndex<N>& size);
  /// A view: the given walk, fitted to the extents.
  ReferencingMemArray(const WalkParameters<Unit>& walk, const MultiIndex<N>& size, const ChunkPtr& storage);

  /// Owns the storage. Of a view of a component it holds the chunk, whose type is another one, so that the pointer is
  /// invalid as a typed one.
  const TypedChunkPtr chunk;
};

/// A data-holding array of rank `N` (1 to 4) with elements of type `T`.
///
/// Element (i0, i1, i2, i3) of an array of extents n0 x n1 x n2 x n3 lies at linear position
/// ((i3 x n2 + i2) x n1 + i1) x n0 + i0. Access by indices is that of `MultiArray`, access in order that of the walk
/// (`getIterator`).
/// Numbers of a fresh array are zero and pointers empty; elements of the geometric and cell types hold whatever was in
/// their memory until somebody writes them.
/// Lifetime and threads as `MemBase`.
/// Errors: `std::length_error` for more elements than a vector holds, and `std::bad_alloc`.
/// Cost: an array on a new chunk writes its elements once; one on a chunk that exists is made in constant time.
template <int N, class T>
class TRESK_OPEN_TEMPLATE MemArray : public ReferencingMemArray<N, T> {
 public:
  using typename ReferencingMemArray<N, T>::ChunkPtr;
  using typename ReferencingMemArray<N, T>::Unit;

  /// An array on a new chunk.
  MemArray(const MultiIndex<N>& size, const CreatorWeakPtr& creator);
  /// An array on a chunk that exists. It keeps all of the chunk and sees its front part.
  MemArray(const ChunkPtr& storage, const MultiIndex<N>& size, const CreatorWeakPtr& creator);
  /// A view of a chunk, by a walk that is fitted to the extents.
  MemArray(const WalkParameters<Unit>& walk, const MultiIndex<N>& size, const ChunkPtr& storage,
           const CreatorWeakPtr& creator);

  /// Whether the element type has its allocator. Set while the library is loaded.
  static const bool isRegistered;

  using ReferencingMemArray<N, T>::createSubArray;

  MemBasePtr createArray(const MultiIndex<N>& size, const CreatorWeakPtr& creator) const override;
  MemBasePtr createSubArray(const MultiIndex<N>& start, const MultiIndex<N>& size,
                            const CreatorWeakPtr& creator) const override;
  MemBasePtr getSlice(unsigned long long index, const CreatorWeakPtr& creator) const override;
  MemBasePtr makeExplicit(const CreatorWeakPtr& creator) const override;
  /// An array of the same extents that sees the front of `storage`; null if that is empty or has another number of
  /// elements. On storage of another type it has no memory.
  MemBasePtr createOnChunk(const ChunkPtr& storage, const CreatorWeakPtr& creator) const override;
  MemBasePtr copy(const CreatorWeakPtr& creator) const override;
  MemBasePtr getComponent(int component, const CreatorWeakPtr& creator) const override;
};

/// Makes arrays of element type `T` and rank 1 to 4.
template <class T>
class TRESK_OPEN_TEMPLATE MemArrayAllocator : public MemBase::Allocator {
 public:
  MemBasePtr create(const DynamicSize& size) const override;
};

// The attribute stands here too: without it, a type argument that was first declared without one would hide the arrays
// of that type from users of the library.
#define TRESK_DECLARE_ARRAYS(...)                                         \
  extern template class TRESK_EXPORT TypedArray<__VA_ARGS__>;             \
  extern template class TRESK_EXPORT ReferencingMemArray<1, __VA_ARGS__>; \
  extern template class TRESK_EXPORT ReferencingMemArray<2, __VA_ARGS__>; \
  extern template class TRESK_EXPORT ReferencingMemArray<3, __VA_ARGS__>; \
  extern template class TRESK_EXPORT ReferencingMemArray<4, __VA_ARGS__>; \
  extern template class TRESK_EXPORT MemArray<1, __VA_ARGS__>;            \
  extern template class TRESK_EXPORT MemArray<2, __VA_ARGS__>;            \
  extern template class TRESK_EXPORT MemArray<3, __VA_ARGS__>;            \
  extern template class TRESK_EXPORT MemArray<4, __VA_ARGS__>;            \
  extern template class TRESK_EXPORT MemArrayAllocator<__VA_ARGS__>;
TRESK_FOR_EACH_ELEMENT_TYPE(TRESK_DECLARE_ARRAYS)
#undef TRESK_DECLARE_ARRAYS

}  // namespace Tresk
