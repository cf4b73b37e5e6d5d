// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

/// \file
/// Declarations of the foundation, for headers that only mention a type.

#include <tresk/foundation/Export.hpp>

namespace Ostrel {

// A template instance is no more visible than its arguments, and an argument is as visible as its first declaration.
#pragma GCC visibility push(default)

class ReferenceRecord;
template <class T>
class ReferenceBase;
template <class T, class B>
class DynPtr;
template <class T, class B>
class WeakPtr;
template <class T, class B>
class StrongPtr;
template <class B>
class Pin;

class Ageable;
class Attributes;
class InterfaceBase;
class InterfaceIterationParameter;
class Intercube;
class SaveRegistryBase;
class SaveInterfaceCreatorBase;
class Provenance;
class StringList;

class ChunkBase;
template <class T>
class TypedChunkBase;
template <class T>
class TypedChunk;
template <class T>
class Chunk;

class Cacheable;
class CacheBase;
class Cache;
class Creature;
namespace Detail {
class CacheBooks;
class CacheProduction;
struct CacheAccess;
}  // namespace Detail
template <class Domain>
class CreatorBase;

#pragma GCC visibility pop

/// What happens to an object of the counted class `B` besides counting. The general case is: nothing.
template <class B>
struct ReferenceTraits {
  /// Runs once, at the first strong pointer to an object.
  static void firstStrongPointer(B*) noexcept {}
  /// Runs after the last strong pointer has condemned the object, just before its destructor.
  static void preDestructor(B*) noexcept {}
};

/// Arrays finish their construction at the first strong pointer and leave the cache list before they die.
template <>
struct TRESK_EXPORT ReferenceTraits<Cacheable> {
  /// Runs `Cacheable::DeferredConstructor`; its exception passes to whoever made the pointer.
  static void firstStrongPointer(Cacheable* object);
  /// Takes the data off the list of their cache.
  static void preDestructor(Cacheable* object) noexcept;
};

/// Creators enter the books of their cache at the first strong pointer.
template <>
struct TRESK_EXPORT ReferenceTraits<Creature> {
  /// Enters the creator in the books of its cache, if it has one.
  static void firstStrongPointer(Creature* object);
  /// Nothing: a creator leaves the books in its destructor.
  static void preDestructor(Creature*) noexcept {}
};

}  // namespace Ostrel
