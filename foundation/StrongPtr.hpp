// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/WeakPtr.hpp>

#include <utility>

namespace Ostrel {

/// What `StrongPtr::forgetIfSole` found.
enum class Forgetting {
  WasInvalid,  ///< there was no object to let go
  IsShared,    ///< somebody else holds the object too; the pointer keeps it
  Forgotten    ///< the pointer was the only holder and is empty now
};

/// Owns an object together with all other strong pointers to it.
///
/// A strong pointer can be invalid: made from a dead weak pointer it holds the record and no object, and it stays
/// bound to that record. Test it before use.
///
/// The first strong pointer to an object takes over the unit of its birth and runs the deferred step of its class
/// (Note [The birth unit] in ReferenceBase.hpp); the last one calls `extremeUnction` and deletes the object, on the
/// thread of that release.
/// Threads: may be copied, tested, taken from and reset while other threads do the same and one of them assigns it
/// (Note [Copying from a slot that changes] in DynPtr.hpp). Access through a pointer that others change: copy it first.
/// Errors: none. Destructors terminate if a hook or a destructor of the object throws; `reset` and assignment pass
/// the exception on.
/// Cost: a copy is two atomic operations and one increment of the counter of ids, and so is its release.
template <class T, class B>
class TRESK_OPEN_TEMPLATE StrongPtr : public WeakPtr<T, B> {
 public:
  /// An empty pointer. This is how a caller writes "no object".
  StrongPtr() noexcept = default;

  /// Takes over a new object, or shares one that is held already. Null gives an empty pointer.
  /// An exception of the deferred step passes, and the object is then released.
  explicit StrongPtr(T* object) {
    if (object == nullptr) return;
    ReferenceRecord* const record = static_cast<const ReferenceBase<B>*>(static_cast<B*>(object))->getRecord();
    record->raiseWeak();
    claim(record, true);
  }

  /// From a weak pointer. Invalid if the object is gone.
  template <class U>
  explicit StrongPtr(const DynPtr<U, B>& weak) {
    const Detail::PointerWord word = weak.acquireWeak();
    if (ReferenceRecord* const record = Detail::recordOf(word))
      claim(record, std::is_base_of_v<T, U> && (word & Detail::NoCast) == 0);
  }

  /// Shares what `other` holds, which may be changing meanwhile. A copy of an invalid pointer is invalid, with the same
  /// record.
  StrongPtr(const StrongPtr& other) noexcept : WeakPtr<T, B>() {
    if (&other == this) [[unlikely]] {
      SpeakPtr::theSpeaker()->SelfConstruction(typeid(DynPtr<T, B>), this, this->getRecord());
      return;
    }
    put(acquire(other));
  }
  /// The same from a pointer of another type. If the object is no `T` the new pointer is invalid, and keeps the object
  /// alive all the same.
  template <class U>
  StrongPtr(const StrongPtr<U, B>& other) noexcept {
    put(acquire(other));
  }

  /// Takes the reference over from a pointer that nobody else uses. No count changes.
  StrongPtr(StrongPtr&& other) noexcept : WeakPtr<T, B>() { put(other.detach()); }
  /// The same from a pointer of another type; if the object is no `T` it is kept alive by an invalid pointer.
  template <class U>
  StrongPtr(StrongPtr<U, B>&& other) noexcept {
    put(convertDetached<U>(other.detach()));
  }

  /// Shares what `other` holds and gives up what this pointer held. Nothing happens if both refer to one object.
  StrongPtr& operator=(const StrongPtr& other) {
    if (!this->sameRecord(other)) exchange(acquire(other));
    return *this;
  }
  /// The same from a pointer of another type.
  template <class U>
  StrongPtr& operator=(const StrongPtr<U, B>& other) {
    if (!this->sameRecord(other)) exchange(acquire(other));
    return *this;
  }
  /// Takes over what `other` holds, which nobody else uses, and gives up what this pointer held.
  StrongPtr& operator=(StrongPtr&& other) {
    if (this != &other) exchange(other.detach());
    return *this;
  }
  /// The same from a pointer of another type.
  template <class U>
  StrongPtr& operator=(StrongPtr<U, B>&& other) {
    return *this = StrongPtr(std::move(other));
  }

  ~StrongPtr() {
    if (ReferenceRecord* const record = Detail::recordOf(this->word_.load(std::memory_order_relaxed))) {
      this->word_.store(0, std::memory_order_relaxed);
      drop(record);
    }
  }

  /// Gives the reference up. The pointer is empty before the object dies.
  void reset() { exchange({0, nullptr}); }

  /// Hands the reference over to the result and leaves this pointer empty. Of several threads that take, one gets it.
  StrongPtr take() { return StrongPtr(heldBy(this->word_.exchange(0))); }

  /// Assigns `other` and hands the former reference to the caller, who lets it die where no lock is held.
  [[nodiscard]] StrongPtr exchangeFor(const StrongPtr& other) {
    if (this->sameRecord(other)) return StrongPtr();
    const Held held = acquire(other);
    return StrongPtr(heldBy(this->exchangeWord(held.word, held.typed)));
  }

  /// Lets the object go if this pointer is its only strong holder.
  /// A reference that another thread takes between the test and the release keeps the object alive; this pointer has
  /// let go of it all the same.
  Forgetting forgetIfSole() {
    StrongPtr former;
    return forgetIfSole(former);
  }
  /// The same, with the reference in `former` instead of nowhere, so that the caller lets it die where no lock is held.
  /// \param former an empty pointer that nobody else uses
  Forgetting forgetIfSole(StrongPtr& former) {
    for (;;) {
      Detail::PointerWord word = this->word_.load(std::memory_order_acquire);
      ReferenceRecord* const record = Detail::recordOf(word);
      if (record == nullptr || (word & Detail::NoCast) != 0) return Forgetting::WasInvalid;
      const bool hasObject = record->object.load(std::memory_order_acquire) != nullptr;
      const std::int32_t s = record->strong.load(std::memory_order_acquire);
      if (this->word_.load(std::memory_order_acquire) != word) continue;  // those were the counts of another object
      if (!hasObject || s < 1) return Forgetting::WasInvalid;
      if (s > 1) return Forgetting::IsShared;
      if (!this->word_.compare_exchange_strong(word, 0)) continue;
      former.exchange(heldBy(word));
      return Forgetting::Forgotten;
    }
  }

  /// Gives the reference up unless it is the last one; false if it is, and the pointer then keeps it. So the object does
  /// not die here. For a pointer that no other thread uses.
  bool resetUnlessLast() {
    ReferenceRecord* const record = this->getRecord();
    if (record == nullptr) return true;
    std::int32_t s = record->strong.load(std::memory_order_acquire);
    while (s > 1) {
      if (!record->strong.compare_exchange_weak(s, s - 1)) continue;
      if (record->underUnction.load(std::memory_order_relaxed) != 0) record->noteOwnRaise(-1);
      s = 0;
    }
    if (s == 1) return false;
    this->word_.store(0, std::memory_order_relaxed);
    Detail::lowerWeakOrReport<T, B>(record, this->id_);
    return true;
  }

  /// Shares what `other` holds: an assignment at less cost, for an empty pointer that no other thread uses.
  void fill(const StrongPtr& other) noexcept { put(acquire(other)); }

  /// `isValid()` at less cost, for a pointer that no other thread changes: whether it holds a unit of the strong count.
  /// A strong pointer without one either has the mark that it shows no `T`, or `T` is the counted class.
  bool holdsObject() const noexcept {
    const Detail::PointerWord word = this->word_.load(std::memory_order_relaxed);
    if constexpr (std::is_same_v<T, B>)
      return word != 0 && Detail::recordOf(word)->strong.load(std::memory_order_relaxed) >= 1;
    return word != 0 && (word & Detail::NoCast) == 0;
  }

  /// Makes the pointer empty and gives back the weak count only; the strong unit stays with the object. For objects
  /// of static storage, which must not be deleted by their last pointer (see `Auto`).
  void forget() noexcept { DynPtr<T, B>::reset(); }

 private:
  template <class, class>
  friend class StrongPtr;

  /// \cond
  // A reference on its way from one pointer object to another.
  struct Held {
    Detail::PointerWord word;
    T* typed;
  };
  /// \endcond
  explicit StrongPtr(Held held) noexcept { put(held); }

  void put(Held held) noexcept { this->publish(held.word, held.typed); }

  void exchange(Held held) {
    if (ReferenceRecord* const record = Detail::recordOf(this->exchangeWord(held.word, held.typed))) drop(record);
  }

  void drop(ReferenceRecord* record) {
    releaseStrongUnit<B>(record);
    Detail::lowerWeakOrReport<T, B>(record, this->id_);
  }

  Held detach() noexcept {
    const Detail::PointerWord word = this->word_.load(std::memory_order_relaxed);
    this->word_.store(0, std::memory_order_relaxed);
    return {word, DynPtr<T, B>::typedOf(*this)};
  }

  /// The reference that a word stands for, once the word belongs to us.
  static Held heldBy(Detail::PointerWord word) noexcept {
    ReferenceRecord* const record = Detail::recordOf(word);
    if (record == nullptr || (word & Detail::NoCast) != 0 || record->strong.load() < 1) return {word, nullptr};
    return {word, Detail::recastObject<T, B>(record->object.load())};
  }

  template <class U>
  static Held convertDetached(typename StrongPtr<U, B>::Held held) noexcept {
    ReferenceRecord* const record = Detail::recordOf(held.word);
    if (record == nullptr) return {0, nullptr};
    if constexpr (std::is_same_v<T, B>) return {Detail::wordOf(record), nullptr};
    if constexpr (std::is_base_of_v<T, U>) {
      if ((held.word & Detail::NoCast) == 0) return heldBy(held.word);
    }
    T* const typed =
        record->strong.load() >= 1 ? Detail::castObject<T, B>(record->object.load()) : static_cast<T*>(nullptr);
    return {Detail::wordOf(record, typed != nullptr), typed};
  }

  /// A reference of our own to what `source` holds, which others may change meanwhile.
  template <class U>
  TRESK_HOT static Held acquire(const StrongPtr<U, B>& source) noexcept {
    for (;;) {
      const Detail::PointerWord word = source.acquireWeak();
      ReferenceRecord* const record = Detail::recordOf(word);
      if (record == nullptr) return {0, nullptr};
      if (record->raiseStrongIfPositive()) {
        void* const object = record->object.load(std::memory_order_relaxed);
        if constexpr (std::is_same_v<T, U>) {
          return {word, (word & Detail::NoCast) != 0 ? nullptr : Detail::recastObject<T, B>(object)};
        } else {
          T* const typed = Detail::castObject<T, B>(object);
          return {Detail::wordOf(record, typed != nullptr), typed};
        }
      }
      if (source.word_.load(std::memory_order_acquire) == word) {
        // The source is invalid itself. Its copy holds the weak count alone, and shows no `T` for good.
        return {Detail::wordOf(record, std::is_same_v<T, B>), nullptr};
      }
      record->lowerWeak();
    }
  }

  /// Makes this pointer a strong one on a record of which it owns a weak count already.
  /// \param isTyped the object is known to be a `T`, so that no cast has to find out
  void claim(ReferenceRecord* record, bool isTyped) {
    bool isHeld;
    bool isFirst = false;
    std::uint8_t unclaimed = 0;
    if (record->deferred.load(std::memory_order_acquire) == 0 &&
        record->deferred.compare_exchange_strong(unclaimed, ReferenceRecord::Claimed)) {
      isHeld = record->strong.load() > 0;  // the unit of the birth is ours now
      isFirst = isHeld;
    } else {
      isHeld = record->raiseStrongIfPositive();
    }
    // The cast stands behind the raise: from here on the object cannot die.
    void* const object = isHeld ? record->object.load(std::memory_order_acquire) : nullptr;
    T* const typed = isTyped ? Detail::recastObject<T, B>(object) : Detail::castObject<T, B>(object);
    this->publish(Detail::wordOf(record, std::is_same_v<T, B> || typed != nullptr), typed);
    if (isFirst && object != nullptr) {
      try {
        ReferenceTraits<B>::firstStrongPointer(static_cast<B*>(object));
      } catch (...) {
        reset();
        throw;
      }
    }
  }
};

/// The strong pointer to a `T`, with the counted class filled in: `RefPtr<MemBase>` is
/// `StrongPtr<MemBase, Ostrel::Cacheable>`.
template <class T, class B = typename T::ReferenceBaseType>
using RefPtr = StrongPtr<T, B>;

}  // namespace Ostrel

template <class T, class B>
struct std::hash<Ostrel::StrongPtr<T, B>> : std::hash<Ostrel::DynPtr<T, B>> {};
