// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/DynPtr.hpp>

namespace Ostrel {

/// Observes an object without keeping it alive.
///
/// Once the object is gone the pointer is invalid for good, and it keeps the record, so that it can go on serving as
/// a key. To use the object, make a strong pointer from it and test that one: a test of the weak pointer alone says
/// nothing about the next moment.
template <class T, class B>
class TRESK_OPEN_TEMPLATE WeakPtr : public DynPtr<T, B> {
 public:
  /// An empty pointer.
  WeakPtr() noexcept = default;
  /// Observes `object`, which may be null. Does not claim its unit of birth.
  explicit WeakPtr(T* object) noexcept : DynPtr<T, B>(object) {}
  /// Observes what `other` does, which may be changing meanwhile.
  WeakPtr(const WeakPtr& other) noexcept = default;
  /// Observes the object of any counted pointer.
  WeakPtr(const DynPtr<T, B>& other) noexcept : DynPtr<T, B>(other) {}
  /// The same from a pointer of another type; invalid if the object is no `T`.
  template <class U>
  WeakPtr(const DynPtr<U, B>& other) noexcept : DynPtr<T, B>(other) {}
  /// Observes what `other` does.
  WeakPtr& operator=(const WeakPtr& other) noexcept = default;
  /// The same from a pointer of another type; invalid if the object is no `T`.
  template <class U>
  WeakPtr& operator=(const DynPtr<U, B>& other) noexcept {
    DynPtr<T, B>::operator=(other);
    return *this;
  }
};

template <class T>
WeakPtr<T, T> ReferenceBase<T>::getSelf() const {
  // The record knows the object as it was given at construction; the cast away from const is the one of `this`.
  return WeakPtr<T, T>(static_cast<T*>(const_cast<ReferenceBase*>(this)));
}

}  // namespace Ostrel

template <class T, class B>
struct std::hash<Ostrel::WeakPtr<T, B>> : std::hash<Ostrel::DynPtr<T, B>> {};
