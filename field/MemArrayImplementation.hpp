// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

/// \file
/// The bodies of the data-holding arrays. The library instantiates them for its own element types, one source each; a
/// library that brings an element type of its own includes this file in one source and instantiates there.

#include <tresk/field/ElementText.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/foundation/SaveRegistry.hpp>

#include <limits>
#include <type_traits>

namespace Tresk {

namespace Detail {

/// The product of extents, or the greatest number if it is more than that: too much for any vector, so that its
/// construction fails as for any other size that is too large.
template <int N>
unsigned long long allocationSize(const MultiIndex<N>& size) noexcept {
  unsigned long long product = 1;
  bool hasOverflow = false;
  for (const unsigned long long extent : size) {
    if (extent == 0) return 0;
    if (product > std::numeric_limits<unsigned long long>::max() / extent) hasOverflow = true;
    product *= extent;
  }
  return hasOverflow ? std::numeric_limits<unsigned long long>::max() : product;
}

/// What an array without memory answers for an element: zeros, or an empty pointer.
template <class T>
T emptyElement() {
  T value{};
  // The geometric types and cells do not write their components by themselves.
  if constexpr (requires {
                  typename T::ValueType;
                  value.begin();
                })
    for (auto& component : value) component = typename T::ValueType();
  return value;
}

/// Gives the element type its allocator; the result of the registration.
template <class T>
TRESK_OPEN_TEMPLATE int registerElementType() {
  static const int result =
      MemBase::registerCreator(MemBase::AllocatorPtr(new MemArrayAllocator<T>), getTreskType<T>());
  return result;
}

}  // namespace Detail

// --------------------------------------------------------------------------------------------- ReferencingMemArray

template <int N, class T>
ReferencingMemArray<N, T>::ReferencingMemArray(const ChunkPtr& storage, const MultiIndex<N>& size) : chunk(storage) {
  constexpr unsigned long long K = WalkUnit<T>::nComponents;
  const unsigned long long nStored = chunk ? static_cast<unsigned long long>(chunk->vector().size()) : 0;
  this->count = nStored * K;
  this->stride = K;
  this->span = std::is_same_v<Unit, T> ? nStored : 1;
  if (chunk) this->data = static_cast<Unit*>(chunk->data());
  this->extents = size;
  const unsigned long long product = size.nElements();
  if (product < nStored) this->tail = nStored - product;
}

template <int N, class T>
ReferencingMemArray<N, T>::ReferencingMemArray(const WalkParameters<Unit>& walk, const MultiIndex<N>& size,
                                               const ChunkPtr& storage)
    : chunk(storage) {
  this->assign(walk);
  this->extents = size;
  this->fitTo(size.nElements());
}

template <int N, class T>
MultiIndex<N> ReferencingMemArray<N, T>::getIndexSize() const {
  return this->extents;
}

template <int N, class T>
DynamicSize ReferencingMemArray<N, T>::getSize() const {
  return MemArrayBase<N>::getSize();
}

template <int N, class T>
bool ReferencingMemArray<N, T>::copyFromChunk(const ChunkPtr& other) {
  const Ostrel::StrongPtr<Ostrel::TypedChunkBase<T>, Ostrel::ChunkBase> typed(other);
  if (!chunk || !typed) return false;
  if (typed->vector().size() != chunk->vector().size()) return false;
  if (typed.getRecord() != chunk.getRecord()) chunk->vector() = typed->vector();
  return true;
}

template <int N, class T>
typename ReferencingMemArray<N, T>::TypedChunkPtr ReferencingMemArray<N, T>::getTypedChunk() const {
  return chunk;
}

template <int N, class T>
unsigned long long ReferencingMemArray<N, T>::memsize() const {
  return chunk ? chunk->size() * static_cast<unsigned long long>(chunk->elementSize()) : 0;
}

template <int N, class T>
unsigned long long ReferencingMemArray<N, T>::nElements() const {
  return this->extents.nElements();
}

template <int N, class T>
std::string ReferencingMemArray<N, T>::getElementString(unsigned long long index) const {
  if (!chunk || index >= chunk->vector().size()) return std::string();
  return elementText(chunk->vector()[index]);
}

template <int N, class T>
void ReferencingMemArray<N, T>::DeferredConstructor() {
  Ostrel::SaveRegistry<MemBase> registry(this);
  registry.traverseCreators(typeid(MemBase));
}

template <int N, class T>
const std::type_info& ReferencingMemArray<N, T>::getElementType() const {
  return typeid(T);
}

template <int N, class T>
const HyperslabParameters& ReferencingMemArray<N, T>::getHyperslab() const {
  return *this;
}

template <int N, class T>
void* ReferencingMemArray<N, T>::getDataPointer() const {
  return this->data;
}

template <int N, class T>
const double* ReferencingMemArray<N, T>::getOrigin() const {
  return nullptr;
}

template <int N, class T>
const double* ReferencingMemArray<N, T>::getDelta() const {
  return nullptr;
}

template <int N, class T>
T ReferencingMemArray<N, T>::first() const {
  if (this->data == nullptr && this->source == nullptr) return Detail::emptyElement<T>();
  return this->read(MultiIndex<N>());
}

template <int N, class T>
T ReferencingMemArray<N, T>::last() const {
  if (this->data == nullptr && this->source == nullptr) return Detail::emptyElement<T>();
  MultiIndex<N> index;
  for (int d = 0; d < N; ++d) index[d] = this->extents[d] == 0 ? 0 : this->extents[d] - 1;
  return this->read(index);
}

template <int N, class T>
const CreativeIterator<T>& ReferencingMemArray<N, T>::getIterator() const {
  return *this;
}

template <int N, class T>
CreativeIterator<T>& ReferencingMemArray<N, T>::getIterator() {
  return *this;
}

// -------------------------------------------------------------------------------------------------------- MemArray

template <int N, class T>
const bool MemArray<N, T>::isRegistered = (Detail::registerElementType<T>(), true);

template <int N, class T>
MemArray<N, T>::MemArray(const MultiIndex<N>& size, const CreatorWeakPtr& creator)
    : MemBase(TreskType<T>::index(), creator),
      ReferencingMemArray<N, T>(ChunkPtr(new Ostrel::Chunk<T>(Detail::allocationSize(size))), size) {
  if (isRegistered) MemBase::RegisteredTypes.add(1);
}

template <int N, class T>
MemArray<N, T>::MemArray(const ChunkPtr& storage, const MultiIndex<N>& size, const CreatorWeakPtr& creator)
    : MemBase(TreskType<T>::index(), creator), ReferencingMemArray<N, T>(storage, size) {
  if (isRegistered) MemBase::RegisteredTypes.add(1);
}

template <int N, class T>
MemArray<N, T>::MemArray(const WalkParameters<Unit>& walk, const MultiIndex<N>& size, const ChunkPtr& storage,
                         const CreatorWeakPtr& creator)
    : MemBase(TreskType<T>::index(), creator), ReferencingMemArray<N, T>(walk, size, storage) {
  if (isRegistered) MemBase::RegisteredTypes.add(1);
}

template <int N, class T>
MemBasePtr MemArray<N, T>::createArray(const MultiIndex<N>& size, const CreatorWeakPtr& creator) const {
  return MemBasePtr(new MemArray(size, creator));
}

template <int N, class T>
MemBasePtr MemArray<N, T>::createSubArray(const MultiIndex<N>& start, const MultiIndex<N>& size,
                                          const CreatorWeakPtr& creator) const {
  // There is nothing to copy from. Of an array of no elements the data are null as well, but it has its chunk.
  if (this->data == nullptr && this->source == nullptr && !this->chunk) return MemBasePtr();
  const Ostrel::StrongPtr<MemArray, Ostrel::Cacheable> target(new MemArray(size, creator));
  const unsigned long long nRows = size[0] == 0 ? 0 : target->nElements() / size[0];
  CreativeIterator<T>& out = *target;
  MultiIndex<N> position = start;
  for (unsigned long long row = 0; row < nRows; ++row) {
    if (this->data != nullptr) {
      const unsigned long long from = this->extents.linear(position);
      for (unsigned long long i = 0; i < size[0]; ++i)
        out.setElement(row * size[0] + i, Iterator<T>::getElement(from + i));
    } else {
      for (unsigned long long i = 0; i < size[0]; ++i) {
        MultiIndex<N> element = position;
        element[0] += i;
        out.setElement(row * size[0] + i, this->read(element));
      }
    }
    for (int d = 1; d < N; ++d) {
      if (++position[d] < start[d] + size[d]) break;
      position[d] = start[d];
    }
  }
  return target;
}

template <int N, class T>
MemBasePtr MemArray<N, T>::getSlice(unsigned long long index, const CreatorWeakPtr& creator) const {
  if constexpr (N == 1) {
    return MemBasePtr();
  } else {
    MultiIndex<N - 1> lower;
    for (int d = 0; d < N - 1; ++d) lower[d] = this->extents[d];
    WalkParameters<Unit> walk = this->getWalk();
    if (this->data != nullptr)
      walk.offset += index * lower.nElements();
    else if (this->source != nullptr)
      walk = this->source->slice(N - 1, index);
    return MemBasePtr(new MemArray<N - 1, T>(walk, lower, this->chunk, creator));
  }
}

template <int N, class T>
MemBasePtr MemArray<N, T>::makeExplicit(const CreatorWeakPtr&) const {
  return MemBasePtr(const_cast<MemArray*>(this));  // the elements are in memory already
}

template <int N, class T>
MemBasePtr MemArray<N, T>::createOnChunk(const ChunkPtr& storage, const CreatorWeakPtr& creator) const {
  if (!storage || storage->size() != Detail::allocationSize(this->extents)) return MemBasePtr();
  return MemBasePtr(new MemArray(storage, this->extents, creator));
}

template <int N, class T>
MemBasePtr MemArray<N, T>::copy(const CreatorWeakPtr& creator) const {
  if (!this->chunk) return MemBasePtr();
  return MemBasePtr(new MemArray(this->chunk->clone(), this->extents, creator));
}

template <int N, class T>
MemBasePtr MemArray<N, T>::getComponent(int component, const CreatorWeakPtr& creator) const {
  using Traits = ElementTraits<T>;
  using Component = typename Traits::ComponentType;
  constexpr int K = static_cast<int>(Traits::multiplicity);
  if (component > K - 1) return MemBasePtr();

  // The rules differ by layout, and deliberately so: a view of a view made by the first or the last rule begins at the
  // start of the data and not at the offset.
  const unsigned long long reachable = this->nReachableElements();
  const unsigned long long foldedTail = this->count < reachable - this->tail ? 0 : this->tail + this->count - reachable;
  WalkParameters<Component> walk;
  if constexpr (std::is_same_v<Component, T>) {
    walk.count = this->count;
    walk.stride = 1;
    walk.span = this->count;
    walk.tail = foldedTail;
    walk.data = this->data;
  } else if constexpr (!std::is_same_v<Unit, T>) {
    walk.offset = this->offset;
    walk.tail = this->tail;
    unsigned long long distance;
    if (this->stride != 1) {
      walk.count = this->count;
      walk.stride = K;
      walk.span = 0;
      distance = static_cast<unsigned long long>(component);
    } else {
      // The plane after the first, whatever the number of the component: this is deliberate.
      walk.count = this->count / K;
      walk.stride = 1;
      walk.span = this->count / K;
      distance = this->count / K;
    }
    if (this->data != nullptr) walk.data = this->data + distance;
  } else {
    static_assert(sizeof(T) == K * sizeof(Component), "components fill the element");
    walk.count = this->count * K;
    walk.stride = K;
    walk.span = 0;
    walk.tail = foldedTail;
    if (this->data != nullptr) walk.data = this->data->begin() + component;
  }
  return MemBasePtr(new MemArray<N, Component>(walk, this->extents, this->chunk, creator));
}

// ----------------------------------------------------------------------------------------------- MemArrayAllocator

template <class T>
MemBasePtr MemArrayAllocator<T>::create(const DynamicSize& size) const {
  const CreatorWeakPtr nobody;
  switch (size.Dims()) {
    case 1:
      return MemBasePtr(new MemArray<1, T>(MultiIndex<1>(size[0]), nobody));
    case 2:
      return MemBasePtr(new MemArray<2, T>(MultiIndex<2>(size[0], size[1]), nobody));
    case 3:
      return MemBasePtr(new MemArray<3, T>(MultiIndex<3>(size[0], size[1], size[2]), nobody));
    case 4:
      return MemBasePtr(new MemArray<4, T>(MultiIndex<4>(size[0], size[1], size[2], size[3]), nobody));
    default:
      return MemBasePtr();
  }
}

}  // namespace Tresk

/// Instantiates all that exists for one element type. Stands in one source, outside of all namespaces, with a semicolon
/// behind it.
#define TRESK_INSTANTIATE_ELEMENT_TYPE(...)                        \
  template class Tresk::TreskType<__VA_ARGS__>;                    \
  template Tresk::TreskTypePtr Tresk::getTreskType<__VA_ARGS__>(); \
  template class Tresk::TypedArray<__VA_ARGS__>;                   \
  template class Tresk::ReferencingMemArray<1, __VA_ARGS__>;       \
  template class Tresk::ReferencingMemArray<2, __VA_ARGS__>;       \
  template class Tresk::ReferencingMemArray<3, __VA_ARGS__>;       \
  template class Tresk::ReferencingMemArray<4, __VA_ARGS__>;       \
  template class Tresk::MemArray<1, __VA_ARGS__>;                  \
  template class Tresk::MemArray<2, __VA_ARGS__>;                  \
  template class Tresk::MemArray<3, __VA_ARGS__>;                  \
  template class Tresk::MemArray<4, __VA_ARGS__>;                  \
  template class Tresk::MemArrayAllocator<__VA_ARGS__>
