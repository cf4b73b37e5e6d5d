// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// \file
/// Probes of the Itanium C++ binary interface, which both compilers follow.

namespace TreskTest {

/// The slot of a virtual function in the first virtual table of its class, from 0; -1 for a function that is not
/// virtual or lies in another table.
/// A pointer to a virtual member function holds the offset of its slot in bytes; the mark of "virtual" is the lowest
/// bit of the first word, on ARM that of the second.
template <class Method>
int slotOf(Method method) {
  std::ptrdiff_t words[2];
  static_assert(sizeof(method) == sizeof(words));
  std::memcpy(words, &method, sizeof(words));
#if defined(__aarch64__)
  const bool isVirtual = (words[1] & 1) != 0;
  const std::ptrdiff_t offset = words[0];
  const std::ptrdiff_t adjustment = words[1] >> 1;
#else
  const bool isVirtual = (words[0] & 1) != 0;
  const std::ptrdiff_t offset = words[0] - 1;
  const std::ptrdiff_t adjustment = words[1];
#endif
  if (!isVirtual || adjustment != 0) return -1;
  return static_cast<int>(offset / static_cast<std::ptrdiff_t>(sizeof(void*)));
}

/// Calls a function without arguments and result through the first virtual table of `object`, as a caller of the
/// binary interface does: the way to tell the two destructors apart, to which the language gives no pointers.
inline void callSlot(void* object, int slot) {
  using Function = void (*)(void*);
  const Function* table;
  std::memcpy(&table, object, sizeof(table));
  table[slot](object);
}

/// Offset in bytes of base class `Base` in an object of class `Derived`.
template <class Derived, class Base>
std::ptrdiff_t offsetOfBase() {
  // An address without an object: only the arithmetic of the cast is wanted, and it needs no object for bases that are
  // not virtual. Not null, as a null pointer stays null.
  alignas(Derived) static unsigned char memory[sizeof(Derived)];
  auto* const derived = reinterpret_cast<Derived*>(memory);
  return reinterpret_cast<unsigned char*>(static_cast<Base*>(derived)) - memory;
}

/// The eight bytes at `offset` of an object.
template <class Object>
std::uint64_t wordAt(const Object& object, std::size_t offset) {
  std::uint64_t word;
  std::memcpy(&word, reinterpret_cast<const unsigned char*>(&object) + offset, sizeof(word));
  return word;
}

}  // namespace TreskTest
