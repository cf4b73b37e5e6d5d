// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/DynamicSize.hpp>
#include <tresk/field/HyperslabParameters.hpp>
#include <tresk/field/TreskTypeIndex.hpp>
#include <tresk/field/fwd.hpp>
#include <tresk/foundation/ChunkBase.hpp>
#include <tresk/foundation/Creature.hpp>
#include <tresk/foundation/Intercube.hpp>
#include <tresk/foundation/InterfaceBase.hpp>

#include <string>
#include <typeinfo>

namespace Tresk {

/// A typed, multi-dimensional block of elements: what a field yields.
///
/// Data-holding arrays (`MemArray<N, T>`) keep their elements in a chunk that several arrays may share; computing
/// arrays derive each element on demand and answer with null or zero where they have nothing to give.
/// Lifetime: counted. Size, type and storage are fixed at construction.
/// Threads: may be read from any thread. Writing elements is the caller's to order; views share memory.
/// Errors: absence is an answer (null, 0, false, an empty text); only allocation raises exceptions.
/// Cost: sizes and types in constant time; what copies or makes elements is linear in their number.
class TRESK_EXPORT MemBase : public Ostrel::Cacheable, public Ostrel::Intercube {
 public:
  /// Makes arrays of one element type.
  class TRESK_EXPORT Allocator : public Ostrel::Interface<Allocator> {
   public:
    Allocator();
    ~Allocator() override;
    /// A new array of the given size, or null for a rank that it does not serve.
    virtual MemBasePtr create(const DynamicSize& size) const = 0;
  };
  /// An allocator, held.
  using AllocatorPtr = Ostrel::StrongPtr<Allocator, Ostrel::InterfaceBase>;

  /// How many arrays were made. A statistic; nothing reads it.
  static Ostrel::PlainCounter<int> RegisteredTypes;

  /// \param index element type; \param creator the creator that the array is made for, may be empty
  MemBase(const TreskTypeIndex& index, const CreatorWeakPtr& creator);
  ~MemBase() override;

  void DeferredConstructor() override;

  /// Number of dimensions.
  virtual int rank() const = 0;
  /// Extents, lowest dimension first. The result allocates.
  virtual DynamicSize getSize() const = 0;
  /// Product of the extents.
  virtual unsigned long long nElements() const = 0;
  /// Type of one element.
  virtual const std::type_info& getElementType() const = 0;
  /// The walk over the elements in units of their storage; all zero for computing arrays.
  virtual const HyperslabParameters& getHyperslab() const = 0;
  /// The element at position `index` of the storage as text; empty beyond its end. The position counts from the start
  /// of the chunk, also for a view: this is deliberate.
  virtual std::string getElementString(unsigned long long index) const = 0;
  /// The first unit of the storage seen; null without storage.
  virtual void* getDataPointer() const = 0;
  /// The storage; empty without storage of the array's own element type.
  virtual Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> getChunk() const = 0;
  /// Coordinates of the first element of an equally spaced grid, else null.
  virtual const double* getOrigin() const = 0;
  /// Step along each axis of an equally spaced grid, else null.
  virtual const double* getDelta() const = 0;
  /// An array with all elements in memory: this one itself if it holds its elements, `creator` is then ignored; else a
  /// new one, whose elements are computed on the calling thread.
  virtual MemBasePtr makeExplicit(const CreatorWeakPtr& creator) const = 0;
  /// A scalar array of one component of each element, which shares the storage; null beyond the last component. A
  /// negative number is the caller's fault.
  virtual MemBasePtr getComponent(int component, const CreatorWeakPtr& creator) const = 0;
  /// A copy of a box of the array; null if a rank differs, for a computing array and for one without elements to read.
  /// The box must lie in the array: this is not tested.
  virtual MemBasePtr createSubArray(const DynamicSize& start, const DynamicSize& size,
                                    const CreatorWeakPtr& creator) const = 0;
  /// An array of the same extents and type that shares another chunk; null if its element count is not the product of
  /// the extents. On a chunk of another type it has no memory.
  virtual MemBasePtr createOnChunk(const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& chunk,
                                   const CreatorWeakPtr& creator) const = 0;
  /// Copies the elements of a chunk of the same type and element count over the storage; else false, and nothing
  /// changes. Arrays that share the storage see the change.
  virtual bool copyFromChunk(const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>& chunk) = 0;
  /// A deep copy: the whole chunk and the extents. A view's offset and stride are not carried over, deliberately. Null
  /// for an array without a chunk of its own type. A computing array gives one that computes the same.
  virtual MemBasePtr copy(const CreatorWeakPtr& creator) const = 0;

  /// The element type as a value.
  const TreskTypeIndex& getTreskTypeIndex() const noexcept { return index_; }

  /// Enters the allocator of an element type; 1, or 0 for an invalid type. The last registration of a type wins; that
  /// of an empty pointer leaves the type without arrays. The registry has no lock: registrations belong to the load
  /// time of a library.
  static int registerCreator(const AllocatorPtr& allocator, const TreskTypePtr& type);
  /// A new array of the given type and size; null without an allocator, for a rank outside 1 to 4 and for an
  /// invalid type. `requester` is not used. Errors: `std::length_error` for more elements than a vector holds, and
  /// `std::bad_alloc`.
  static MemBasePtr create(const TreskTypePtr& type, const DynamicSize& size, const std::type_info& requester);
  /// A new array of this array's element type, on the same terms.
  MemBasePtr create(const DynamicSize& size, const std::type_info& requester) const;
  /// A new array of this array's element type and size, on the same terms.
  MemBasePtr create(const std::type_info& requester) const;

 private:
  const TreskTypeIndex index_;
};

}  // namespace Tresk
