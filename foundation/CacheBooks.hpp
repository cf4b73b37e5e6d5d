// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/CacheLink.hpp>
#include <tresk/foundation/CacheOperation.hpp>
#include <tresk/foundation/CachePolicy.hpp>
#include <tresk/foundation/CacheStatistics.hpp>
#include <tresk/foundation/Creature.hpp>
#include <tresk/foundation/LeafMutex.hpp>
#include <tresk/foundation/UseBatch.hpp>

#include <array>
#include <atomic>
#include <exception>
#include <memory>
#include <vector>

/// \file
/// The books of the caches: what stands behind `Cache`, `Cacheable` and `Creature`.
///
/// Note [Uses are noted without a count]
/// A use is noted in a batch of its thread as the record of the data and their serial number, with no count and no
/// lock, so the data may die before the batch is handed in. Records are type-stable, and the tag of a record is the
/// serial number of the data from their first note or listing on, until `PreDestructor` clears it under the mutex of
/// the caches. So whoever holds that mutex and finds the tag unchanged and an object in the record has data before him
/// that have not passed `PreDestructor`, and cannot pass it until he lets the mutex go.
///
/// Note [The limit and what is in flight]
/// Data count as held from the setting of their creator to their death. What a thread has brought in since its
/// outermost operation began is its charge: in flight, and not yet to be weighed against the limit. At the end of that
/// operation the thread lets go the least recently used data until held bytes are at most the limit and the charges of
/// the other threads, and its own charge is over. Data whose creator is being asked are leaving: their bytes do not
/// weigh any more, and are in flight until they die or the creator refuses. So at any moment
///     held <= limit + charges + leaving
/// unless all that exceeds the limit was found to be held by callers, kept, or beyond anybody's power to bring back.
/// What comes in while others are leaving may be excused by them. If they stay after all, whoever asked them looks at
/// the limits again.

namespace Ostrel::Detail {

/// Guards the links of all caches, data and creators, and the creator pointer of data. A leaf: nothing that can call
/// out runs under it. Never destroyed, as data may die during the exit of the process.
extern LeafMutex cacheMutex;

class CacheBooks;
class CacheKeeper;

/// What data and creators keep for the caches. Guarded by the mutex.
struct CacheAccess {
  static CacheEntry& entryOf(Cacheable& data) noexcept { return data.entry_; }
  static const CacheEntry& entryOf(const Cacheable& data) noexcept { return data.entry_; }
  static const WeakPtr<Creature, Creature>& creatorOf(const Cacheable& data) noexcept { return data.creator_; }
  /// Where a creator is registered; null if nowhere.
  static CacheBooks*& booksOf(const Creature& creator) noexcept { return creator.books_; }
  /// The creator of data, which lives as long as the mutex is held; null if it has died.
  static const Creature* livingCreatorOf(const WeakPtr<Creature, Creature>& creator) noexcept {
    const ReferenceRecord* const record = creator.getRecord();
    if (record == nullptr || record->strong.load(std::memory_order_acquire) < 1) return nullptr;
    return static_cast<const Creature*>(record->object.load(std::memory_order_acquire));
  }
  static void setSeconds(const Creature& creator, double seconds) noexcept {
    creator.productionSeconds_.store(seconds, std::memory_order_relaxed);
  }
};

/// The bytes that one thread has in flight in one cache. Belongs to the thread; the links are guarded by the mutex.
struct CacheCharge {
  CacheLink<CacheCharge> link{this};  ///< in the ring of the cache
  CacheBooks* books = nullptr;        ///< null once the cache has died
  CacheCharge* next = nullptr;        ///< in the list of the thread
  unsigned long long nBytes = 0;      ///< written by the thread under the mutex
  bool isDue = false;                 ///< the limits are to be looked at, though nothing was brought in
  bool isPostponed = false;           ///< what is left to let go waits until creators may be asked that call others
};

/// A listener as a cache and the events on their way to it share it.
struct ListenerCall {
  explicit ListenerCall(const CacheListener& function) : listener(function) {}
  const CacheListener listener;
  std::atomic<bool> isRemoved{false};  ///< it is told nothing any more
};

/// An event on its way to a listener.
struct PendingEvent {
  std::shared_ptr<const ListenerCall> listener;
  CacheEvent event;
  std::shared_ptr<const std::string> text;  ///< of the event; made outside the mutex
};

/// What one thread knows of its dealings with caches. Reached by a thread-local pointer.
struct ThreadBooks {
  static constexpr unsigned MaxShown = 16;

  /// Those of this thread; null if there is no memory for them, or the thread is about to end. The operations of such
  /// a thread are carried out, but it hands its uses in one by one and lets nothing go of its own accord.
  static ThreadBooks* mine() noexcept;

  /// Hands the batch in. `dying` are data in their `PreDestructor`, which their record does not show any more.
  void handIn(Cacheable* dying = nullptr) noexcept TRESK_REQUIRES(cacheMutex);
  void handInAll() noexcept;
  /// Sees to it that there is memory for what is noted next under the mutex: the charge in one more cache, and events.
  /// Called just before the mutex is taken.
  void prepare() noexcept;
  /// The charge of this thread in a cache; null without memory.
  CacheCharge* chargeIn(CacheBooks& books) noexcept TRESK_REQUIRES(cacheMutex);
  /// Ends the outermost operation, or the outermost walk. The first exception of a creator goes to `thrown`, if it is
  /// given and empty.
  void settle(std::exception_ptr* thrown = nullptr) noexcept;
  /// Tells the listeners what has happened. Nothing of ours is locked.
  void tellListeners() noexcept;
  /// Notes an event for the listeners of a cache and its parents.
  void noteEvent(const CacheBooks& books, CacheEvent event,
                 const std::shared_ptr<const std::string>& text = nullptr) noexcept TRESK_REQUIRES(cacheMutex);
  /// Whether creators may be asked whose release calls others.
  bool mayCallOut() const noexcept { return nWalks == 0 && !isAwaited; }

  int nOperations = 0;
  int nWalks = 0;
  bool isAsking = false;   ///< a cache asks a creator on this thread
  bool isAwaited = false;  ///< others wait for this thread, perhaps with locks in hand
  bool isSettling = false;
  long long takenOff = 0;  ///< serial number of the data that were taken off a list last while they were asked for
  UseBatch uses;
  CacheCharge* charges = nullptr;
  CacheCharge* spare = nullptr;  ///< made outside the mutex for the next cache
  CacheProduction* innermost = nullptr;
  std::array<std::atomic<const Creature*>, MaxShown> shown{};  ///< productions that run, for reports of other threads
  int nProductions = 0;
  CacheLink<ThreadBooks> link{this};
  std::vector<PendingEvent> pending;  ///< room is made outside the mutex; what finds no room is lost
};

/// The thread's own, or null before their first use. Initial-exec: one load.
extern thread_local constinit ThreadBooks* threadBooks __attribute__((tls_model("initial-exec")));

/// The books of one cache. All members are guarded by the mutex.
class CacheBooks {
 public:
  explicit CacheBooks(CacheBooks* parentBooks);
  /// Leaves nothing in any ring.
  ~CacheBooks();
  CacheBooks(const CacheBooks&) = delete;
  CacheBooks& operator=(const CacheBooks&) = delete;

  /// Lists data at the end of the order, or moves them there; `nBytes` is what they count from now on. `isOthers` says
  /// that they had another creator before.
  void list(Cacheable& data, unsigned long long nBytes, const Creature* creator, bool isOthers, ThreadBooks* thread)
      TRESK_REQUIRES(cacheMutex);
  /// Takes data off their list, if they stand on one.
  static void unlist(Cacheable& data) noexcept TRESK_REQUIRES(cacheMutex);
  /// The same for data that die, which are evicted if they were being asked for.
  static void bury(Cacheable& data) noexcept TRESK_REQUIRES(cacheMutex);
  /// The same for data that lose their creator: the answer, if they were being asked for, though they may live on.
  static void takeOff(Cacheable& data, ThreadBooks* thread) noexcept TRESK_REQUIRES(cacheMutex);
  /// Moves listed data to the end of the order.
  void moveToEnd(CacheEntry& entry) noexcept TRESK_REQUIRES(cacheMutex);
  /// Does not ask for these data again until they are used, set again, or asked for explicitly.
  void park(CacheEntry& entry) noexcept TRESK_REQUIRES(cacheMutex);
  /// Brings all parked data of this cache and its children back in the order of use.
  void unparkAll() noexcept TRESK_REQUIRES(cacheMutex);

  /// By how many bytes the limit is passed, leaving out what other charges than `nOwn` account for; 0 if it holds.
  unsigned long long excess(unsigned long long nOwn) const noexcept TRESK_REQUIRES(cacheMutex);
  /// The first of this cache and its parents whose limit is passed; null if none is.
  CacheBooks* firstOver(unsigned long long nOwn) noexcept TRESK_REQUIRES(cacheMutex);
  /// Whether somebody listens to events here.
  bool isHeard() const noexcept TRESK_REQUIRES(cacheMutex);
  /// Takes bytes from what is in flight here and in the parents.
  void settleCharge(unsigned long long nBytes) noexcept TRESK_REQUIRES(cacheMutex);
  /// Whether this is `other` or one of its children's children.
  bool isWithin(const CacheBooks& other) const noexcept TRESK_REQUIRES(cacheMutex);

  /// Calls `f(books)` for this cache and all above.
  template <class F>
  void forEachAbove(const F& f) TRESK_REQUIRES(cacheMutex) {
    for (CacheBooks* books = this; books != nullptr; books = books->parent) f(*books);
  }
  /// Calls `f(books)` for this cache and all below.
  template <class F>
  void forEachBelow(const F& f) TRESK_REQUIRES(cacheMutex) {
    f(*this);
    for (CacheLink<CacheBooks>* child = children.next; child != &children; child = child->next)
      child->owner->forEachBelow(f);
  }

  CacheLink<Cacheable> order{nullptr};  ///< least recently used first
  CacheLink<Cacheable> parked{nullptr};
  CacheLink<const Creature> creatures{nullptr};
  CacheLink<CacheCharge> charges{nullptr};
  CacheLink<CacheBooks> siblings{this};
  CacheLink<CacheBooks> children{nullptr};
  CacheLink<CacheBooks> registered{this};  ///< in the ring of all caches, from the construction of the cache to its end
  Cache* cache = nullptr;                  ///< whose books these are; to be referred to while they stand in that ring
  CacheBooks* parent;
  CacheStatistics counts;           ///< with those of the children; `nInFlightBytes` are the charges alone
  unsigned long long nLeaving = 0;  ///< bytes of data whose creators are being asked
  bool isExcused = false;           ///< data have come in above the limit while others were leaving
  unsigned long long nListed = 0;   ///< data of this cache alone
  StrongPtr<CachePolicy, CachePolicy> policy;
  std::shared_ptr<ListenerCall> listener;
  std::shared_ptr<CacheKeeper> keeper;
  unsigned long long returnsFrom = ~0ULL;  ///< evicted bytes after which free memory goes back to the system
  unsigned long long nUnreturned = 0;      ///< evicted bytes since that was done

  /// Data in the order of the policy, as far as they have been ranked.
  struct Ranked {
    ReferenceRecord* record;
    long long serialNumber;
    long long nUses;
    double worth;
  };
  std::vector<Ranked> ranked;
  std::size_t nRankedTaken = 0;
};

/// The creators whose productions run now on any thread, to be compared only.
std::vector<const Creature*> shownProductions();

/// Number of caches that want to know what productions take.
extern std::atomic<int> nMeasuringCaches;
/// Number of caches with a listener.
extern std::atomic<int> nListeningCaches;

/// What a pass over a cache is for.
struct PassGoal {
  unsigned long long nWanted = 0;        ///< bytes to be given back; 0: until the limits hold
  bool isExplicit = false;               ///< asked for by the program: parked data are asked too, and exceptions pass
  bool wakesKeeper = true;               ///< if the limits cannot be brought to hold
  std::exception_ptr* thrown = nullptr;  ///< takes the first exception of a creator; may be null
};
/// What it came to.
struct PassResult {
  unsigned long long nGivenBack = 0;
  bool holds = true;  ///< the limits hold, or `nWanted` bytes were given back
};

/// Lets data of a cache go. The charge says for which cache, and survives its death.
PassResult runPass(CacheCharge& charge, const PassGoal& goal);

}  // namespace Ostrel::Detail
