// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <atomic>
#include <cstdint>

namespace TreskBench {

/// The raw twins of the counted pointers: the same counts and the same atomic operations, written out, on records that
/// are plain heap objects.
struct RawRecord {
  std::atomic<std::int32_t> strong{1};
  std::atomic<std::int32_t> weak{2};  ///< of the object and of its self pointer
  std::atomic<std::uint8_t> deferred{0};
  std::atomic<void*> object{nullptr};
};

inline std::atomic<long long> rawPointerID{0};
inline long long nextRawID() noexcept {
  const long long id = rawPointerID.load(std::memory_order_relaxed) + 1;
  rawPointerID.store(id, std::memory_order_relaxed);
  return id;
}

inline bool raiseIfPositive(std::atomic<std::int32_t>& count) noexcept {
  std::int32_t n = count.load(std::memory_order_relaxed);
  while (n > 0)
    if (count.compare_exchange_weak(n, n + 1)) return true;
  return false;
}

/// The value before the decrement.
inline std::int32_t lower(std::atomic<std::int32_t>& count) noexcept {
  std::int32_t n = count.load(std::memory_order_relaxed);
  while (!count.compare_exchange_weak(n, n - 1)) {
  }
  return n;
}

/// A counted class with a virtual destructor and the members that a counted object has.
struct RawObject {
  explicit RawObject(long long payload) : value(payload) {
    record = new RawRecord;
    record->object.store(this, std::memory_order_relaxed);
    id = nextRawID();
    serial = serialCounter.fetch_add(1);
  }
  RawObject(const RawObject&) = delete;
  RawObject& operator=(const RawObject&) = delete;
  virtual ~RawObject() {
    if (record->strong.load() >= 0) record->strong.exchange(-333);
    if (lower(record->weak) == 1) delete record;
  }

  long long id = -1;
  RawRecord* record = nullptr;
  long long serial = 0;
  long long value;

  static inline std::atomic<long long> serialCounter{1};
};

/// An owning pointer in three words, without any check that the contract does not ask for.
struct RawOwner {
  long long id = 0;
  RawRecord* record = nullptr;
  RawObject* object = nullptr;

  RawOwner() = default;
  /// The first pointer to a new object.
  explicit RawOwner(RawObject* first) : id(nextRawID()), record(first->record), object(first) {
    record->weak.fetch_add(1);
    std::uint8_t unclaimed = 0;
    record->deferred.compare_exchange_strong(unclaimed, 2);
  }
  RawOwner(const RawOwner& other) noexcept : id(nextRawID()), record(other.record), object(other.object) {
    raiseIfPositive(record->weak);
    raiseIfPositive(record->strong);
  }
  RawOwner& operator=(const RawOwner&) = delete;
  ~RawOwner() {
    if (record == nullptr) return;
    std::int32_t n = record->strong.load(std::memory_order_relaxed);
    while (n != 1 && !record->strong.compare_exchange_weak(n, n - 1)) {
    }
    if (n == 1 && record->strong.compare_exchange_strong(n, 0)) {
      record->strong.exchange(-111);
      record->object.store(nullptr, std::memory_order_release);
      delete object;
      if (lower(record->weak) == 1) delete record;
    }
    if (lower(record->weak) == 1) delete record;
  }
};

}  // namespace TreskBench
