// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Iterator.hpp>
#include <tresk/field/MemBase.hpp>
#include <tresk/foundation/Chunk.hpp>

namespace Tresk {

/// The view of an array that knows the element type and not the rank.
template <class T>
class TRESK_OPEN_TEMPLATE TypedArray : public virtual MemBase {
 public:
  /// The element at index (0, ..., 0); a value-initialised element if there is no memory to read.
  virtual T first() const = 0;
  /// The element at the greatest indices; an extent of 0 counts as index 0.
  virtual T last() const = 0;
  /// The walk over the elements, which is part of the array.
  virtual const CreativeIterator<T>& getIterator() const = 0;
  /// The same for writing.
  virtual CreativeIterator<T>& getIterator() = 0;
  /// The storage with its element type; empty if the storage is of another type.
  virtual Ostrel::StrongPtr<Ostrel::TypedChunk<T>, Ostrel::ChunkBase> getTypedChunk() const = 0;

  /// The storage as `getTypedChunk` gives it, without its type.
  Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> getChunk() const override {
    // The test comes first: a pointer to a chunk of another type would become valid again as a plain chunk pointer.
    const Ostrel::StrongPtr<Ostrel::TypedChunk<T>, Ostrel::ChunkBase> chunk = getTypedChunk();
    if (!chunk) return Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>();
    return chunk;
  }
  /// `T`.
  const std::type_info& getElementType() const override { return typeid(T); }
  // The implicit destructor takes the last slots of the table.
};

}  // namespace Tresk
