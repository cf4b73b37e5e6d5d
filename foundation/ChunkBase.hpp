// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/PlainCounter.hpp>
#include <tresk/foundation/Pointers.hpp>

#include <typeinfo>

namespace Ostrel {

/// What a chunk says of its elements.
struct ChunkDescription {
  const std::type_info* type;  ///< type of one element
  int elementSize;             ///< bytes of one element
  int count;                   ///< always 1
  long long reserved;          ///< always 0
};

/// A block of elements in memory, without their type.
///
/// Lifetime: counted; a chunk may be shared by several arrays.
/// Threads: reading is safe from any thread; writing is the callers' to order.
class TRESK_EXPORT ChunkBase : public ReferenceBase<ChunkBase> {
 public:
  /// Bytes of the contents of all chunks of the process. A statistic and not a limit: additions on several threads
  /// may get lost, and elements appended to a chunk after its construction are subtracted at its end without having
  /// been added, so that the sum can fall below zero.
  static PlainCounter<long long> TotalMemsize;

  ChunkBase();
  ~ChunkBase() override;

  /// Number of elements.
  virtual unsigned long long size() const = 0;
  /// Bytes of one element.
  virtual int elementSize() const = 0;
  /// The first element; null for an empty chunk.
  virtual const void* data() const = 0;
  /// The same for writing.
  virtual void* data() = 0;
  /// Type of one element.
  virtual const std::type_info& elementType() const = 0;
  /// The same type again, for the vectors of this library.
  virtual const std::type_info& chunkType() const = 0;
  /// Type and bytes of one element.
  virtual ChunkDescription describe() const = 0;
  /// A new chunk of the same element type with `count` value-initialised elements, or with room for them only.
  virtual StrongPtr<ChunkBase, ChunkBase> newChunk(unsigned long long count, bool reserveOnly) const = 0;
  /// A new chunk with a copy of the elements.
  virtual StrongPtr<ChunkBase, ChunkBase> clone() const = 0;
};

}  // namespace Ostrel
