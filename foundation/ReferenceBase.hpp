// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>
#include <tresk/foundation/PlainCounter.hpp>
#include <tresk/foundation/ReferenceRecord.hpp>
#include <tresk/foundation/SpeakPtr.hpp>
#include <tresk/foundation/fwd.hpp>

#include <atomic>
#include <cstdint>
#include <cstring>

namespace Ostrel {

/// Serial numbers of pointer objects, for diagnostics. Counted without an atomic read-modify-write: ids are exact on
/// one thread and can repeat between threads, so nothing may depend on their being unique.
extern TRESK_EXPORT PlainCounter<long long> PointerID;

/// Base of every counted class: `class X : public ReferenceBase<X>`.
///
/// Note [The birth unit]
/// An object is born with a strong count of 1 that belongs to nobody. The first strong pointer made from the object
/// or from a weak pointer takes that unit over instead of raising the count. So a counted object is made with `new`
/// and given at once to a strong pointer; a strong pointer to `this` in a constructor would be the first, and would
/// destroy the half-built object when it goes. Code that must hold an object without being its first owner uses
/// `Pin`.
///
/// Lifetime: the last strong pointer calls `extremeUnction` and then deletes the object. The record lives on until
/// the last weak pointer is gone.
/// Threads: construction and destruction belong to one thread; the counts are atomic.
/// Cost: 32 bytes with the table pointer, and a record of 64 bytes.
template <class T>
class TRESK_OPEN_TEMPLATE ReferenceBase {
 public:
  /// The class that owns the count, for `RefPtr`.
  using ReferenceBaseType = T;

  ReferenceBase(const ReferenceBase&) = delete;
  ReferenceBase& operator=(const ReferenceBase&) = delete;

  /// Last chance, called on the thread of the last release while the strong count is still 1 and no lock of this
  /// scheme is held. A hook that makes and keeps a strong pointer resurrects the object, which then keeps one count
  /// more than it has holders and is never destroyed: this is deliberate. The default does nothing, and the release
  /// leaves it out.
  virtual void extremeUnction();

  virtual ~ReferenceBase();

  /// The position of this object in the order of construction among the objects of class `T`, from 1.
  long long getSerialNumber() const noexcept { return serialNumber_; }

  /// A weak pointer to this object.
  WeakPtr<T, T> getSelf() const;

  /// The record of this object, for pointers and tests.
  ReferenceRecord* getRecord() const noexcept { return self_.record; }

 protected:
  /// \param self the object itself; throws `MemoryException` if it is null
  explicit ReferenceBase(T* self);

  /// Ends the object for its pointers, as its destructor would, while its memory stays as it is. For an object of
  /// static storage whose destructor never runs. A pointer that has been tested a moment before still leads to it.
  void expire() noexcept { endReferences(false); }

 private:
  template <class B>
  friend void releaseStrongUnit(ReferenceRecord* record);

  /// The self pointer: a weak pointer that cannot be reassigned.
  struct SelfPointer {
    long long id = -1;
    ReferenceRecord* record = nullptr;
  };

  /// What the end of the object means for its pointers, but for the self pointer.
  void endReferences(bool forgetsObject) noexcept;

  /// A bare object of this class, to read the address of the default hook from.
  struct Bare {};
  explicit ReferenceBase(Bare) noexcept : serialNumber_(0) {}
  struct BareObject;

  /// What stands in the first slot of the virtual table of `object`: the address of its `extremeUnction`.
  static void* hookOf(const ReferenceBase* object) noexcept {
    void* const* table;
    std::memcpy(&table, static_cast<const void*>(object), sizeof(table));
    void* hook;
    std::memcpy(&hook, table, sizeof(hook));
    return hook;
  }
  /// Whether `extremeUnction` of this object is the default one.
  bool hasDefaultHook() const noexcept { return hookOf(this) == defaultHook; }

  SelfPointer self_;
  long long serialNumber_;

  static inline std::atomic<long long> serialCounter{1};
  /// Null until the static initialisers have run; the default hook is simply called then.
  static void* const defaultHook;
};

template <class T>
struct ReferenceBase<T>::BareObject final : ReferenceBase<T> {
  BareObject() noexcept : ReferenceBase<T>(Bare()) {}
};

template <class T>
void* const ReferenceBase<T>::defaultHook = [] {
  const BareObject object;
  return hookOf(&object);
}();

template <class T>
ReferenceBase<T>::ReferenceBase(T* self) {
  if (self == nullptr) throw MemoryException();
  self_.record = ReferenceRecord::allocate(self, 2);  // the object's own reference and that of its self pointer
  self_.id = PointerID.add(1);
  serialNumber_ = serialCounter.fetch_add(1);
}

template <class T>
void ReferenceBase<T>::extremeUnction() {}

template <class T>
ReferenceBase<T>::~ReferenceBase() {
  ReferenceRecord* const record = self_.record;
  if (record == nullptr) return;
  endReferences(true);
  if (!record->lowerWeak()) {
    SpeakPtr::theSpeaker()->InvalidWeakPtr(typeid(void), typeid(T), typeid(DynPtr<T, T>), typeid(void),
                                           record->strong.load(), record->weak.load(), record, nullptr, self_.id);
  }
}

template <class T>
void ReferenceBase<T>::endReferences(bool forgetsObject) noexcept {
  ReferenceRecord* const record = self_.record;
  if (record->strong.load() >= 0) {
    // The object dies without its last strong pointer: on the stack, in a throwing constructor, at exit.
    record->strong.exchange(ReferenceRecord::DiedUnclaimed);
    if (forgetsObject) record->object.store(nullptr);
    record->weak.fetch_sub(1);
  }
  if (record->strong.load() != ReferenceRecord::Destroyed) record->strong.exchange(ReferenceRecord::Destroyed);
}

}  // namespace Ostrel
