// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/ReferenceBase.hpp>

#include <atomic>
#include <compare>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <typeinfo>

namespace Ostrel {

// Note [Copying from a slot that changes]
// A pointer may be copied while other threads reset or assign it: a creator's `data` is read by every walk while the
// cache empties it. No lock, no allocation:
//   1. read the word of the source (the record's address);
//   2. raise the record's weak count if it is positive; zero means that the record went back to the pool, so the
//      source has changed: begin again;
//   3. read the source again; another word means that the record may have been recycled for another object: give the
//      count back and begin again. An equal word proves that the source held this very record while we owned a count
//      of it, and from here on it stays that record;
//   4. raise strong if it is positive. If it is not, and the source still has the same word, the copy is an invalid
//      pointer that holds its weak count only; otherwise begin again.
// Writers exchange the word first and give the old reference up afterwards.
// This is why records are type-stable (Note [Records are type-stable], in ReferenceRecord.hpp).
//
// What stays with the caller: access *through* a pointer object that others change. Copy it, and use the copy.

namespace Detail {

/// The word of a pointer object: the record's address, and in the lowest bit whether the object is no `T`.
using PointerWord = std::uintptr_t;
inline constexpr PointerWord NoCast = 1;

inline ReferenceRecord* recordOf(PointerWord word) noexcept {
  return reinterpret_cast<ReferenceRecord*>(word & ~NoCast);
}
inline PointerWord wordOf(ReferenceRecord* record, bool isTyped = true) noexcept {
  return record == nullptr ? 0 : reinterpret_cast<PointerWord>(record) | (isTyped ? 0 : NoCast);
}

template <class T, class B>
concept StaticallyCastable = requires(B* base) {
  static_cast<T*>(base);
};

/// The dynamic cast of a record's object. The caller holds the object.
template <class T, class B>
T* castObject(void* object) noexcept {
  B* const base = static_cast<B*>(object);
  if constexpr (std::is_same_v<T, B>)
    return base;
  else
    return base == nullptr ? nullptr : dynamic_cast<T*>(base);
}

/// The same for an object that is known to be a `T`: the cast costs nothing unless `B` is a virtual base of `T`.
template <class T, class B>
T* recastObject(void* object) noexcept {
  if constexpr (StaticallyCastable<T, B>)
    return static_cast<T*>(static_cast<B*>(object));
  else
    return castObject<T, B>(object);
}

/// Gives a weak count back and reports if there was none.
template <class T, class B>
void lowerWeakOrReport(ReferenceRecord* record, long long id) {
  if (record->lowerWeak()) return;
  const std::int32_t strong = record->strong.load();
  B* const object = strong >= 1 ? static_cast<B*>(record->object.load()) : nullptr;
  const std::type_info* dynamicType = &typeid(void);
  if (object != nullptr) dynamicType = &typeid(*object);
  SpeakPtr::theSpeaker()->InvalidWeakPtr(typeid(void), typeid(B), typeid(DynPtr<T, B>), *dynamicType, strong,
                                         record->weak.load(), record, object, id);
}

}  // namespace Detail

/// Steps 2 to 7 of the release of a strong reference: gives one strong unit up, and destroys the object if it was the
/// last. The caller owns a weak count besides, and keeps it.
///
/// Note [A raise during the last rites]
/// While `extremeUnction` runs, another thread may raise the count through a weak pointer and hold the object when the
/// hook returns. The object is then simply not the last one's to destroy: the release goes on as for any count above
/// 1, and nobody is warned. Only if the hook itself, on this thread, took a reference and kept it, has the object been
/// resurrected: then the unit is deliberately not given back, and `WarningUnctionChange` tells.
template <class B>
void releaseStrongUnit(ReferenceRecord* record) {
  // Acquire: a holder who finds itself the last one goes on to read the object that others have built.
  std::int32_t s = record->strong.load(std::memory_order_acquire);
  for (;;) {
    if (s < 1) return;
    if (s != 1) {
      if (!record->strong.compare_exchange_weak(s, s - 1)) continue;
      if (record->underUnction.load(std::memory_order_relaxed) != 0) record->noteOwnRaise(-1);
      return;
    }
    B* const object = static_cast<B*>(record->object.load(std::memory_order_acquire));
    if (!static_cast<ReferenceBase<B>*>(object)->hasDefaultHook()) {
      if (!record->strong.compare_exchange_strong(s, 1)) continue;
      int nOwnRaises = 0;
      {
        const UnctionScope scope(record);
        object->extremeUnction();
        nOwnRaises = scope.nOwnRaises();
      }
      s = record->strong.load();
      if (s > 1) {
        if (nOwnRaises <= 0) continue;
        SpeakPtr::WarningUnctionChange(s, record->weak.load(), typeid(B));
        return;
      }
      if (s < 1) return;
    }
    if (!record->strong.compare_exchange_strong(s, 0)) continue;
    record->strong.exchange(ReferenceRecord::Destroyed);
    record->object.store(nullptr, std::memory_order_release);
    ReferenceTraits<B>::preDestructor(object);
    delete object;
    Detail::lowerWeakOrReport<B, B>(record, -1);
    return;
  }
}

/// What all pointers to objects of the counted class `B` have in common: a serial number and the record.
///
/// Order, equality and hash go by the address of the record. It never changes while the pointer lives, not even when
/// the object dies, so that pointers can be keys. Two empty pointers are equal.
template <class B>
class TRESK_OPEN_TEMPLATE DynPtrRoot {
 public:
  /// Whether there is an object: a record, a living object in it, a strong count of at least 1, and the object is of
  /// the type of this pointer. Takes no count. With other threads at work on this pointer or the object the answer may
  /// be outdated when it arrives: whoever wants to use the object makes a strong pointer and tests that.
  bool isValid() const noexcept {
    for (;;) {
      const Detail::PointerWord word = word_.load(std::memory_order_acquire);
      if ((word & Detail::NoCast) != 0) return false;
      const ReferenceRecord* const record = Detail::recordOf(word);
      if (record == nullptr) return false;
      const bool isAlive = record->object.load(std::memory_order_acquire) != nullptr &&
                           record->strong.load(std::memory_order_acquire) >= 1;
      // The words just read may belong to a later life of the record, unless this pointer still holds it.
      if (word_.load(std::memory_order_acquire) == word) return isAlive;
    }
  }
  /// `isValid()`.
  explicit operator bool() const noexcept { return isValid(); }
  /// The opposite of `isValid()`.
  bool operator!() const noexcept { return !isValid(); }

  /// The serial number of this pointer object. Assignment leaves it alone.
  long long getPointerID() const noexcept { return id_; }

  /// Whether both pointers refer to the same object, living or dead, or both to none.
  bool sameRecord(const DynPtrRoot& other) const noexcept { return getRecord() == other.getRecord(); }

  /// The number of strong references to the object; 0 without a record, negative when the object is gone. Outdated when
  /// it arrives, if other threads are at work.
  int strongCount() const noexcept {
    const ReferenceRecord* const record = getRecord();
    return record == nullptr ? 0 : record->strong.load();
  }
  /// The number of pointers of any kind to the object, and one for the object itself; 0 without a record.
  int weakCount() const noexcept {
    const ReferenceRecord* const record = getRecord();
    return record == nullptr ? 0 : record->weak.load();
  }

  /// The record, or null.
  ReferenceRecord* getRecord() const noexcept { return Detail::recordOf(word_.load(std::memory_order_acquire)); }

  /// Whether both have the same record: `sameRecord`.
  friend bool operator==(const DynPtrRoot& a, const DynPtrRoot& b) noexcept { return a.sameRecord(b); }
  /// Order by the address of the record, which is no order of age.
  friend std::strong_ordering operator<=>(const DynPtrRoot& a, const DynPtrRoot& b) noexcept {
    return std::compare_three_way()(static_cast<const void*>(a.getRecord()), static_cast<const void*>(b.getRecord()));
  }

 protected:
  DynPtrRoot() noexcept : id_(PointerID.add(1)) {}
  ~DynPtrRoot() = default;

  /// A weak count of our own to the record that this pointer holds, which others may change meanwhile. Returns the
  /// word, or 0.
  TRESK_HOT Detail::PointerWord acquireWeak() const noexcept {
    for (;;) {
      const Detail::PointerWord word = word_.load(std::memory_order_acquire);
      ReferenceRecord* const record = Detail::recordOf(word);
      if (record == nullptr) return 0;
      if (!record->raiseWeakIfPositive()) continue;
      if (word_.load(std::memory_order_acquire) == word) return word;
      record->lowerWeak();
    }
  }

  /// Serial number of this pointer object.
  long long id_;
  /// The address of the record, 0 for none; the lowest bit says that the object is no `T`. Changed by the owner of the
  /// pointer object, or by one other thread that resets it; released to whoever copies.
  std::atomic<Detail::PointerWord> word_{0};

  template <class>
  friend class DynPtrRoot;
  template <class, class>
  friend class DynPtr;
  template <class, class>
  friend class StrongPtr;
  template <class>
  friend class Pin;
};

namespace Detail {

/// The typed object of a pointer whose `T` is not the counted class. Kept for reading through the pointer where the
/// way down from `B` to `T` is not a constant.
template <class T, class B>
class TRESK_OPEN_TEMPLATE TypedField : public DynPtrRoot<B> {
 protected:
  void storeTyped(T* typed) noexcept { typed_.store(typed, std::memory_order_relaxed); }
  T* loadTyped() const noexcept { return typed_.load(std::memory_order_relaxed); }

 private:
  std::atomic<T*> typed_{nullptr};
};

template <class B>
class TRESK_OPEN_TEMPLATE TypedField<B, B> : public DynPtrRoot<B> {
 protected:
  void storeTyped(B*) noexcept {}
};

}  // namespace Detail

/// The common base of weak and strong pointers. By itself it is a weak pointer: it observes and owns nothing.
///
/// `B` is the class that derives from `ReferenceBase<B>`, and `T` is `B` or a class derived from it.
/// Threads: may be copied, tested and made a strong pointer of while another thread assigns or resets it. Two threads
/// that assign it at the same moment, and access through it meanwhile, are the caller's to order.
/// Cost: 16 bytes where `T` is `B`, else 24; a copy is one increment of the counter of ids and one atomic operation.
template <class T, class B>
class TRESK_OPEN_TEMPLATE DynPtr : public Detail::TypedField<T, B> {
 public:
  /// The class that the pointer shows.
  using ElementType = T;
  /// The class that owns the counts.
  using CountedType = B;

  /// An empty pointer.
  DynPtr() noexcept = default;

  /// A weak pointer to `object`, which may be null.
  explicit DynPtr(T* object) noexcept {
    if (object == nullptr) return;
    ReferenceRecord* const record = static_cast<const ReferenceBase<B>*>(static_cast<B*>(object))->getRecord();
    record->raiseWeak();
    publish(Detail::wordOf(record), object);
  }

  /// Observes what `other` does, which may be changing meanwhile; invalid if that is gone.
  DynPtr(const DynPtr& other) noexcept : Detail::TypedField<T, B>() {
    if (&other == this) [[unlikely]] {
      // The fields of this object are gone already: what is left to hold is nothing.
      SpeakPtr::theSpeaker()->SelfConstruction(typeid(DynPtr), this, this->getRecord());
      return;
    }
    const Detail::PointerWord word = other.acquireWeak();
    publish(word, typedOf(other));
  }

  /// From a pointer of another type to the same counted class.
  template <class U>
  DynPtr(const DynPtr<U, B>& other) noexcept {
    convert(other);
  }

  /// Observes what `other` does. Nothing happens if both have the same record.
  DynPtr& operator=(const DynPtr& other) noexcept {
    if (this->sameRecord(other)) return *this;
    const Detail::PointerWord word = other.acquireWeak();
    replace(word, typedOf(other));
    return *this;
  }
  /// The same from a pointer of another type; invalid if the object is no `T`.
  template <class U>
  DynPtr& operator=(const DynPtr<U, B>& other) noexcept {
    return *this = DynPtr(other);
  }

  ~DynPtr() {
    if (ReferenceRecord* const record = Detail::recordOf(this->word_.load(std::memory_order_relaxed)))
      Detail::lowerWeakOrReport<T, B>(record, this->id_);
  }

  /// Makes the pointer empty.
  void reset() noexcept { replace(0, nullptr); }

  /// The object, or null. Through a weak pointer the object may die at any moment: this is for the owner's thread.
  T* get() const noexcept {
    const Detail::PointerWord word = this->word_.load(std::memory_order_acquire);
    const ReferenceRecord* const record = Detail::recordOf(word);
    if (record == nullptr || (word & Detail::NoCast) != 0) return nullptr;
    void* const object = record->object.load(std::memory_order_acquire);
    if (object == nullptr) return nullptr;
    if constexpr (Detail::StaticallyCastable<T, B>)
      return static_cast<T*>(static_cast<B*>(object));
    else
      return this->loadTyped();
  }
  /// The object. The caller has tested the pointer and knows that the object is held.
  T* operator->() const noexcept { return get(); }
  /// The object. The caller has tested the pointer and knows that the object is held.
  T& operator*() const noexcept { return *get(); }

 protected:
  template <class, class>
  friend class DynPtr;

  /// The typed object that `other` keeps; null where it needs none.
  static T* typedOf(const DynPtr& other) noexcept {
    if constexpr (std::is_same_v<T, B>)
      return nullptr;
    else
      return other.loadTyped();
  }

  /// Fills a pointer that nobody else sees yet, or makes the new state visible to those who poll it.
  void publish(Detail::PointerWord word, T* typed) noexcept {
    this->storeTyped(typed);
    this->word_.store(word, std::memory_order_release);
  }

  /// The word that this pointer held, which now holds `word`.
  /// The typed object is written by those who bring one and left alone by those who empty the pointer: a reset must
  /// not wipe what an assignment on another thread has just written. Without an object in the record nobody reads it.
  Detail::PointerWord exchangeWord(Detail::PointerWord word, T* typed) noexcept {
    if (word != 0 && typed != nullptr) this->storeTyped(typed);
    return this->word_.exchange(word);
  }

  /// Exchanges first, gives the old weak count up afterwards.
  void replace(Detail::PointerWord word, T* typed) noexcept {
    if (ReferenceRecord* const record = Detail::recordOf(exchangeWord(word, typed)))
      Detail::lowerWeakOrReport<T, B>(record, this->id_);
  }

  /// Fills this new pointer from one of another type: with the record, and marked if the object is no `T`.
  template <class U>
  void convert(const DynPtr<U, B>& other) noexcept {
    const Detail::PointerWord word = other.acquireWeak();
    ReferenceRecord* const record = Detail::recordOf(word);
    if (record == nullptr) return;
    if constexpr (std::is_same_v<T, B>) {
      publish(Detail::wordOf(record), nullptr);
    } else if constexpr (std::is_base_of_v<T, U> && Detail::StaticallyCastable<T, B>) {
      // Never by way of the `U` that `other` knows: the step up to a virtual base reads the object, which may be dead.
      if ((word & Detail::NoCast) == 0)
        publish(word, Detail::recastObject<T, B>(record->object.load(std::memory_order_acquire)));
      else
        publishCast(record);
    } else {
      publishCast(record);
    }
  }

  /// A cast that reads the object, and so holds it for the time of the cast.
  void publishCast(ReferenceRecord* record) noexcept {
    T* typed = nullptr;
    if (record->raiseStrongIfPositive()) {
      typed = Detail::castObject<T, B>(record->object.load(std::memory_order_acquire));
      releaseStrongUnit<B>(record);
    }
    publish(Detail::wordOf(record, typed != nullptr), typed);
  }
};

}  // namespace Ostrel

/// Hash by the address of the record, as equality goes: it never changes while the pointer is not assigned.
template <class T, class B>
struct std::hash<Ostrel::DynPtr<T, B>> {
  /// The hash; equal for pointers of any type to one object.
  std::size_t operator()(const Ostrel::DynPtr<T, B>& pointer) const noexcept {
    return std::hash<const void*>()(pointer.getRecord());
  }
};
