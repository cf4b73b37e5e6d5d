// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/ChunkBase.hpp>
#include <tresk/foundation/LargePages.hpp>

#include <concepts>
#include <stdexcept>
#include <vector>

namespace Ostrel {

/// A block of elements of type `T`.
template <class T>
class TRESK_OPEN_TEMPLATE TypedChunkBase : public ChunkBase {
 public:
  /// The elements.
  virtual const std::vector<T>& vector() const = 0;
  /// The same for writing. Who appends elements keeps readers out: the block may move.
  virtual std::vector<T>& vector() = 0;
  /// A new chunk of `count` value-initialised elements, or an empty one with room for them.
  virtual StrongPtr<TypedChunkBase<T>, ChunkBase> newTypedChunk(unsigned long long count, bool reserveOnly) const = 0;
};

/// The chunk type that arrays hold.
template <class T>
class TRESK_OPEN_TEMPLATE TypedChunk : public TypedChunkBase<T> {};

/// A chunk that keeps its elements in a vector, which is its second base.
///
/// Elements are value-initialised: numbers are zero, pointers empty; the geometric value types do not write their
/// memory and hold whatever was there.
/// Errors: `std::length_error` of the vector with a count above its limit, `std::bad_alloc`.
template <class T>
class TRESK_OPEN_TEMPLATE Chunk : public TypedChunk<T>, public std::vector<T> {
 public:
  /// \param count number of elements
  /// \param reserveOnly makes an empty chunk with room for `count` elements, which count no bytes
  explicit Chunk(unsigned long long count, bool reserveOnly = false) {
    if (!reserveOnly) testCount(count);
    allocate(count);
    if (!reserveOnly) this->std::vector<T>::resize(count);
    ChunkBase::TotalMemsize.add(nBytes());
  }
  /// A chunk of the elements that `fill(elements)` appends to an empty vector with room for `count` of them. Each
  /// element is written once, where the other constructor writes zeros first.
  template <std::invocable<std::vector<T>&> Fill>
  Chunk(unsigned long long count, const Fill& fill) {
    testCount(count);
    allocate(count);
    fill(static_cast<std::vector<T>&>(*this));
    ChunkBase::TotalMemsize.add(nBytes());
  }
  ~Chunk() override { ChunkBase::TotalMemsize.add(-nBytes()); }

  /// Number of elements.
  unsigned long long size() const override { return this->std::vector<T>::size(); }
  /// Bytes of one element.
  int elementSize() const override { return static_cast<int>(sizeof(T)); }
  /// The first element; null for an empty chunk.
  const void* data() const override { return this->empty() ? nullptr : this->std::vector<T>::data(); }
  /// The same for writing.
  void* data() override { return this->empty() ? nullptr : this->std::vector<T>::data(); }
  /// The type `T`.
  const std::type_info& elementType() const override { return typeid(T); }
  /// The type `T`.
  const std::type_info& chunkType() const override { return typeid(T); }
  /// Type and bytes of one element.
  ChunkDescription describe() const override { return {&typeid(T), static_cast<int>(sizeof(T)), 1, 0}; }
  /// `newTypedChunk` in base form.
  StrongPtr<ChunkBase, ChunkBase> newChunk(unsigned long long count, bool reserveOnly) const override {
    return newTypedChunk(count, reserveOnly);
  }
  /// A new chunk with a copy of the elements: one pass, and no zeros written before.
  StrongPtr<ChunkBase, ChunkBase> clone() const override {
    return StrongPtr<ChunkBase, ChunkBase>(new Chunk(static_cast<const std::vector<T>&>(*this)));
  }
  /// The elements: this object as a vector.
  const std::vector<T>& vector() const override { return *this; }
  /// The same for writing. Who appends elements keeps readers out: the block may move.
  std::vector<T>& vector() override { return *this; }
  /// A new chunk of `count` value-initialised elements, or an empty one with room for them.
  StrongPtr<TypedChunkBase<T>, ChunkBase> newTypedChunk(unsigned long long count, bool reserveOnly) const override {
    return StrongPtr<TypedChunkBase<T>, ChunkBase>(new Chunk(count, reserveOnly));
  }

 private:
  explicit Chunk(const std::vector<T>& elements) {
    allocate(elements.size());
    this->std::vector<T>::operator=(elements);
    ChunkBase::TotalMemsize.add(nBytes());
  }

  void testCount(unsigned long long count) const {
    if (count > this->max_size()) throw std::length_error("cannot create std::vector larger than max_size()");
  }
  /// Room for `count` elements, on large pages before the first of them is written.
  void allocate(unsigned long long count) {
    this->std::vector<T>::reserve(count);
    Detail::preferLargePages(this->std::vector<T>::data(), count * sizeof(T));
  }
  long long nBytes() const noexcept { return static_cast<long long>(this->std::vector<T>::size() * sizeof(T)); }
};

}  // namespace Ostrel
