// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/StrongPtr.hpp>

#include <utility>

namespace Ostrel {

/// Makes an object of static storage usable under the counted scheme.
///
/// It holds a strong reference to itself from its construction on, so that no release of other strong pointers can
/// try to delete it. At its own end it gives that reference up without a release; pointers that still refer to it are
/// invalid from then on.
template <class T>
class TRESK_OPEN_TEMPLATE Auto : public T {
 public:
  /// Constructs the `T` from `arguments`. The object may be pointed to from here on.
  template <class... Arguments>
  explicit Auto(Arguments&&... arguments) : T(std::forward<Arguments>(arguments)...), self_(this) {}
  ~Auto() override { self_.forget(); }

  /// Ends the object for its pointers and leaves its memory as it is; the destructor must not run any more.
  void expire() noexcept {
    self_.forget();
    T::expire();
  }

 private:
  StrongPtr<T, typename T::ReferenceBaseType> self_;
};

/// An `Auto` in static storage that other threads may use while the process ends. When its time comes all pointers to
/// it become invalid, as with any `Auto`, but its destructor does not run: a thread that has tested a pointer a moment
/// before still works on an object.
template <class T>
class TRESK_OPEN_TEMPLATE StaticAuto {
 public:
  /// Makes the object, by the default constructor of `T`.
  StaticAuto() : object_() {}
  ~StaticAuto() { object_.expire(); }
  StaticAuto(const StaticAuto&) = delete;
  StaticAuto& operator=(const StaticAuto&) = delete;

  /// The object; its memory stays valid until the process ends.
  Auto<T>* get() noexcept { return &object_; }

 private:
  union {
    Auto<T> object_;
  };
};

}  // namespace Ostrel
