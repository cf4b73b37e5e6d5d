// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Pointers.hpp>

namespace Ostrel {

/// A place in a doubly linked ring. A link that refers to itself stands in no ring.
/// Guarded by the one mutex of all caches.
template <class Owner>
struct CacheLink {
  explicit CacheLink(Owner* member) noexcept : owner(member) {}
  CacheLink(const CacheLink&) = delete;
  CacheLink& operator=(const CacheLink&) = delete;

  bool isLinked() const noexcept { return next != this; }
  /// Enters a ring at its end, which is just before its head.
  void enter(CacheLink& ring) noexcept {
    head = &ring;
    previous = ring.previous;
    next = &ring;
    previous->next = this;
    ring.previous = this;
  }
  void unlink() noexcept {
    previous->next = next;
    next->previous = previous;
    previous = next = this;
    head = nullptr;
  }
  void moveToEnd() noexcept {
    CacheLink* const ring = head;
    if (ring == nullptr || next == ring) return;
    unlink();
    enter(*ring);
  }

  CacheLink* previous = this;
  CacheLink* next = this;
  CacheLink* head = nullptr;  ///< head of the ring that the link stands in
  Owner* const owner;         ///< the object that the link belongs to; null for the head of a ring
};

/// The counted base of caches.
class TRESK_EXPORT CacheBase : public ReferenceBase<CacheBase> {
 public:
  CacheBase();
  ~CacheBase() override;
};

/// Keeps the books of data that can be given back.
///
/// Data enter when a creator of this cache is set on them, and stand in the order of their use. Creators enter at
/// their first strong pointer. The cache gives memory back when it is told to (`trim`).
/// Lifetime: creators and data refer to their cache weakly. A cache that dies leaves them on no list.
/// Threads: all operations may run on any thread. One mutex guards the lists of all caches; it is a leaf and never
/// held while a creator is asked or an object dies.
class TRESK_EXPORT Cache : public CacheBase {
 public:
  Cache();
  ~Cache() override;

  /// The default cache of the process. It lives until the process ends.
  static const StrongPtr<Cache, CacheBase>& MemCache();

  /// Asks the creators of the data, least recently used first, to release them, until `bytes` bytes have been given
  /// back or all have been asked. Creators whose data are to be kept (`Creature::enableCaching(true)`) are not asked.
  /// Returns the bytes given back, by `memsize` of the data. Runs savers, as `release` does; an exception of one of
  /// them ends the walk and passes.
  unsigned long long trim(unsigned long long bytes);

  /// Number of data objects on the list.
  unsigned long long nCacheables() const;
  /// Number of creators in the books.
  unsigned long long nCreatures() const;

 private:
  friend class Cacheable;
  friend class Creature;

  CacheLink<Cacheable> cacheables_;  ///< head of the ring; least recently used first
  CacheLink<const Creature> creatures_;
};

}  // namespace Ostrel
