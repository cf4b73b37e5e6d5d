// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/fwd.hpp>

namespace Ostrel {

/// A place in a doubly linked ring. A link that refers to itself stands in no ring.
/// Guarded by the one mutex of all caches.
template <class Owner>
struct CacheLink {
  /// The link of `member`, in no ring.
  explicit constexpr CacheLink(Owner* member) noexcept : owner(member) {}
  CacheLink(const CacheLink&) = delete;
  CacheLink& operator=(const CacheLink&) = delete;

  /// Whether the link stands in a ring with others.
  bool isLinked() const noexcept { return next != this; }
  /// Enters a ring just before one of its links; before its head, that is at its end.
  void enterBefore(CacheLink& other) noexcept {
    previous = other.previous;
    next = &other;
    previous->next = this;
    other.previous = this;
  }
  /// Leaves its ring; nothing happens if it stands in none.
  void unlink() noexcept {
    previous->next = next;
    next->previous = previous;
    previous = next = this;
  }

  CacheLink* previous = this;  ///< the link before; this one itself in no ring
  CacheLink* next = this;      ///< the link behind; this one itself in no ring
  Owner* const owner;          ///< the object that the link belongs to; null for the head of a ring and for marks in it
};

namespace Detail {

/// What a cache notes about data. Guarded by the mutex of the caches.
struct CacheEntry {
  explicit CacheEntry(Cacheable* data) noexcept : link(data) {}

  CacheLink<Cacheable> link;
  CacheBooks* books = nullptr;       ///< where the data are listed; null if nowhere
  unsigned long long nBytes = 0;     ///< what they count there
  unsigned long long stamp = 0;      ///< the time of the last use that was handed in: rises along a ring
  unsigned long long refusedBy = 0;  ///< the last pass whose question was refused
  long long nUses = 0;               ///< uses that were handed in
  long long nUnbooked = 0;           ///< those among them before the data were listed
  bool isLeaving = false;            ///< the creator is being asked to let them go
  bool isParked = false;             ///< in the ring of those that are not asked again until something changes
  bool isForsaken = false;           ///< parked until they are set again, as their creator does not hold them
};

}  // namespace Detail

}  // namespace Ostrel
