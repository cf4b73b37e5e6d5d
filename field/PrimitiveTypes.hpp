// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Chunk.hpp>
#include <tresk/foundation/FixedArray.hpp>

#include <type_traits>
#include <typeinfo>
#include <vector>

/// \file
/// The element types that copies between chunks serve, in one table, and the search for the type of a chunk in it.

namespace Tresk::Detail {

/// A list of types, in the order in which they are tried.
template <class... Ts>
struct TypeTable {
  /// Calls `f.template operator()<T>()` for each type until it returns true; whether one did.
  template <class F>
  static bool anyOf(const F& f) {
    return (f.template operator()<Ts>() || ...);
  }
};

template <class Table, class T>
struct Without;
template <class... Kept, class T>
struct Without<TypeTable<Kept...>, T> {
  template <class... Lists>
  struct Concatenation;
  template <class... As>
  struct Concatenation<TypeTable<As...>> {
    using Type = TypeTable<As...>;
  };
  template <class... As, class... Bs, class... Rest>
  struct Concatenation<TypeTable<As...>, TypeTable<Bs...>, Rest...> : Concatenation<TypeTable<As..., Bs...>, Rest...> {
  };
  using Type =
      typename Concatenation<TypeTable<>,
                             std::conditional_t<std::is_same_v<Kept, T>, TypeTable<>, TypeTable<Kept>>...>::Type;
};

/// The primitive types of gathering and scattering.
using GatherPrimitives = TypeTable<float, double, int, short, signed char, unsigned int, unsigned long long,
                                   unsigned short, unsigned char, char>;
/// The primitive types of sampling.
using SamplePrimitives = Without<GatherPrimitives, unsigned long long>::Type;

/// The element types of a primitive type.
template <class P>
using ElementsOf = TypeTable<P, Quorvel::FixedArray<P, 2>, Quorvel::FixedArray<P, 3>, Quorvel::FixedArray<P, 4>,
                             Quorvel::FixedArray<P, 5>, Quorvel::FixedArray<P, 6>>;

/// Calls `f.template operator()<T>()` for each element type of each primitive type until it returns true.
template <class Primitives, class F>
bool anyElementType(const F& f) {
  return Primitives::anyOf([&f]<class P>() { return ElementsOf<P>::anyOf(f); });
}

using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;

/// The elements of a chunk of element type `T`; null for a chunk of another type or none.
template <class T>
std::vector<T>* elementsOf(Ostrel::ChunkBase* chunk) {
  auto* const typed = dynamic_cast<Ostrel::TypedChunkBase<T>*>(chunk);
  return typed == nullptr ? nullptr : &typed->vector();
}

/// Calls `f(elements)` with the elements of `chunk` if they are of one of the types of the table, until `f` returns
/// true.
///
/// A chunk has one element type. What it says of itself is believed as far as one cast confirms it; only a chunk whose
/// word is not confirmed is cast to all types in turn.
template <class Primitives, class F>
bool withElements(Ostrel::ChunkBase* chunk, const F& f) {
  if (chunk == nullptr) return false;
  const std::type_info& told = chunk->elementType();
  bool isConfirmed = false;
  bool result = false;
  anyElementType<Primitives>([&]<class T>() {
    if (told != typeid(T)) return false;
    std::vector<T>* const elements = elementsOf<T>(chunk);
    if (elements == nullptr) return false;
    isConfirmed = true;
    result = f(*elements);
    return true;
  });
  if (isConfirmed) return result;
  return anyElementType<Primitives>([&]<class T>() {
    std::vector<T>* const elements = elementsOf<T>(chunk);
    return elements != nullptr && f(*elements);
  });
}

}  // namespace Tresk::Detail
