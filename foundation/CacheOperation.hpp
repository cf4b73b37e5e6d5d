// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/fwd.hpp>

#include <chrono>
#include <utility>

namespace Ostrel::Detail {

/// A scope in which data may come to be. At the end of the outermost one on a thread the caches that data have entered
/// are brought back to their limits: declared before any lock, so that nothing of ours is held then.
class TRESK_EXPORT CacheOperation {
 public:
  CacheOperation() noexcept;
  ~CacheOperation();
  CacheOperation(const CacheOperation&) = delete;
  CacheOperation& operator=(const CacheOperation&) = delete;
};

/// The scope of one production of a creator. Measures its time while a cache wants to know it, and counts a failure
/// unless it is told of a success.
class TRESK_EXPORT CacheProduction : public CacheOperation {
 public:
  explicit CacheProduction(const Creature& creator) noexcept;
  ~CacheProduction();
  CacheProduction(const CacheProduction&) = delete;
  CacheProduction& operator=(const CacheProduction&) = delete;

  /// Called as soon as the data are there, before their creator is set. `isMade` is false if there are none.
  void finish(bool isMade) noexcept;
  /// `setCreator` of these data with the creator of this production, at less cost if they were made for it.
  void enter(Cacheable& made);

  const Creature* creator() const noexcept { return creator_; }
  /// Whether data that are set now are what this creator has made: true once, and for this creator.
  bool countFor(const Creature& creator) noexcept { return &creator == creator_ && !std::exchange(isCounted_, true); }
  /// What a production took, and when it ended.
  struct Time {
    double seconds = 0;
    std::chrono::steady_clock::time_point end;
  };
  /// Of a production that goes on still, what it has taken so far and the present, by one look at the clock: the
  /// difference is when it began. 0 seconds if that is not measured.
  Time time() const noexcept;

 private:
  const Creature* const creator_;
  CacheProduction* outer_ = nullptr;
  std::chrono::steady_clock::time_point begin_;
  std::chrono::steady_clock::time_point end_;
  bool isNoted_ = false;  ///< the thread knows of it
  bool isMeasured_ = false;
  bool isFinished_ = false;
  bool isMade_ = false;
  bool isCounted_ = false;
};

/// Hands in the uses that this thread has noted, so that others see them.
TRESK_EXPORT void handInUses() noexcept;

/// Says that others may wait for this thread with locks in hand: on it, caches ask only creators whose release calls
/// nobody. The others are asked by the next operation that brings data in, or by the thread of the cache.
TRESK_EXPORT void markThreadAsAwaited() noexcept;

/// Whether a cache asks a creator on this thread just now. A creator that is asked by a cache must not wait for a lock
/// of its own: the thread may be one that the holder of the lock waits for.
TRESK_EXPORT bool isAskedByCache() noexcept;

/// The time of a walk that calls foreign code under the shared lock of a field, declared before that lock. Until its
/// end only creators are asked whose release calls nobody; the others are asked then.
class TRESK_EXPORT CacheWalk {
 public:
  CacheWalk() noexcept;
  ~CacheWalk();
  CacheWalk(const CacheWalk&) = delete;
  CacheWalk& operator=(const CacheWalk&) = delete;
};

}  // namespace Ostrel::Detail
