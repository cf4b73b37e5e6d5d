// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>
#include <tresk/foundation/PlainCounter.hpp>

#include <atomic>
#include <cstdint>

namespace Ostrel {

/// The two counts of one object, shared by the object and all pointers to it.
///
/// Note [Records are type-stable]
/// Records come from a pool and go back to it; their memory serves as records until the process ends. So the counts
/// may be read, and `weak` may be raised if it is positive, through a record address that another thread has just
/// let go of: the address always leads to a record, perhaps to a recycled one, and the reader then finds out by
/// looking at its source once more (Note [Copying from a slot that changes], in DynPtr.hpp). Every record fills a
/// cache line of its own, so that the counts of two objects never share one.
///
/// A record passes through: born (strong 1, deferred 0), held (strong positive, deferred 2), condemned (strong 1
/// while `extremeUnction` runs), dead (strong -111, object null), gone (weak 0, back in the pool).
///
/// Threads: every field is atomic. `strong` changes by compare-and-swap and exchange only, so that nobody sees it
/// rise from zero or from a mark.
class TRESK_EXPORT ReferenceRecord {
 public:
  /// Mark in `strong`: the object has been destroyed, or its destruction has begun.
  static constexpr std::int32_t Destroyed = -111;
  /// Transient mark in `strong`: the object died without its last strong pointer.
  static constexpr std::int32_t DiedUnclaimed = -333;
  /// Value of `deferred` once a first strong pointer has been made.
  static constexpr std::uint8_t Claimed = 2;

  /// A record for `object` with strong 1, deferred 0 and `nWeak` weak references.
  /// Constant time without a lock, except for one allocation or one lock in some tens of calls. Throws
  /// `std::bad_alloc`.
  static ReferenceRecord* allocate(void* object, std::int32_t nWeak = 1);

  /// The number of records in use in the process. For tests: exact while no other thread makes or drops objects.
  static long long nLive();

  /// Adds one to `weak` if it is positive. The caller need not own a count.
  TRESK_HOT bool raiseWeakIfPositive() noexcept {
    std::int32_t w = weak.load(std::memory_order_relaxed);
    while (w > 0)
      if (weak.compare_exchange_weak(w, w + 1)) return true;
    return false;
  }

  /// Adds one to `weak`. The caller owns a weak count.
  void raiseWeak() noexcept { weak.fetch_add(1); }

  /// Adds one to `strong` if it is positive. The caller owns a weak count.
  TRESK_HOT bool raiseStrongIfPositive() noexcept {
    std::int32_t s = strong.load(std::memory_order_relaxed);
    while (s > 0) {
      if (strong.compare_exchange_weak(s, s + 1)) {
        if (underUnction.load(std::memory_order_relaxed) != 0) noteOwnRaise(1);
        return true;
      }
    }
    return false;
  }

  /// Gives one weak count back; the last one returns the record to the pool. False if `weak` was below 1: the
  /// record is then left as it is, and the caller reports.
  TRESK_HOT bool lowerWeak() noexcept {
    std::int32_t w = weak.load(std::memory_order_relaxed);
    while (w >= 1) {
      if (weak.compare_exchange_weak(w, w - 1)) {
        if (w == 1) retire();
        return true;
      }
    }
    return false;
  }

  /// Books a raise (+1) or release (-1) that this thread made while it runs the object's `extremeUnction`.
  /// Raises of other threads are not booked: see Note [A raise during the last rites] in StrongPtr.hpp.
  void noteOwnRaise(int difference) noexcept;

  /// Number of strong references; 1 at birth; negative when the object is gone.
  alignas(CacheLineSize) std::atomic<std::int32_t> strong{Destroyed};
  /// Number of pointer objects of any kind plus one for the object itself; 0 while the record lies in the pool.
  std::atomic<std::int32_t> weak{0};
  /// 0 until the first strong pointer has been made, then `Claimed`.
  std::atomic<std::uint8_t> deferred{0};
  /// 1 while a thread runs the object's own `extremeUnction`, else 0. Written by that thread only.
  std::atomic<std::uint8_t> underUnction{0};
  /// The object, as a pointer to its counted class; null from the moment it is condemned.
  std::atomic<void*> object{nullptr};
  /// Free for the counted class, which leaves 0 in it when the object dies. Data keep their serial number here while a
  /// cache may know them by their record (Note [Uses are noted without a count] in CacheBooks.hpp).
  std::atomic<long long> tag{0};

 private:
  friend class RecordPool;
  void retire() noexcept;

  ReferenceRecord* next_ = nullptr;  ///< link of the pool, used only while `weak` is 0
};

/// The time during which one thread runs `extremeUnction` of one object: counts the strong references that the hook
/// itself takes and keeps.
class TRESK_EXPORT UnctionScope {
 public:
  /// Begins to count for `record` on this thread; scopes of other objects may be open around it.
  explicit UnctionScope(ReferenceRecord* record) noexcept;
  ~UnctionScope();
  UnctionScope(const UnctionScope&) = delete;
  UnctionScope& operator=(const UnctionScope&) = delete;

  /// Strong references that this thread took since the beginning, less those that it gave back.
  int nOwnRaises() const noexcept { return nOwnRaises_; }

 private:
  friend class ReferenceRecord;
  ReferenceRecord* record_;
  UnctionScope* outer_;
  int nOwnRaises_ = 0;
};

}  // namespace Ostrel
