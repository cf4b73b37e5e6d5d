// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/StrongPtr.hpp>

namespace Ostrel {

/// Holds an object for the time of a scope without being its first owner.
///
/// A walk over weak pointers may meet an object that is still in its constructor, or one on the stack, whose unit of
/// birth nobody has claimed (Note [The birth unit] in ReferenceBase.hpp). A strong pointer would claim it and destroy
/// the object at its end. A pin raises the strong count if it is positive and gives exactly that unit back.
/// Its release may be the last one, and then destroys the object like any other.
template <class B>
class TRESK_OPEN_TEMPLATE Pin {
 public:
  /// Pins the object of `pointer`, if it is alive.
  explicit Pin(const DynPtrRoot<B>& pointer) noexcept : record_(Detail::recordOf(pointer.acquireWeak())) {
    if (record_ == nullptr) return;
    if (record_->raiseStrongIfPositive()) object_ = static_cast<B*>(record_->object.load(std::memory_order_acquire));
  }
  Pin(const Pin&) = delete;
  Pin& operator=(const Pin&) = delete;
  ~Pin() {
    if (record_ == nullptr) return;
    if (object_ != nullptr) releaseStrongUnit<B>(record_);
    Detail::lowerWeakOrReport<B, B>(record_, -1);
  }

  /// Whether the object was alive, and so is held.
  explicit operator bool() const noexcept { return object_ != nullptr; }
  /// The object, or null if it was gone.
  B* get() const noexcept { return object_; }
  /// The object; the caller has tested the pin.
  B* operator->() const noexcept { return object_; }
  /// The object; the caller has tested the pin.
  B& operator*() const noexcept { return *object_; }

 private:
  ReferenceRecord* record_;
  B* object_ = nullptr;
};

}  // namespace Ostrel
