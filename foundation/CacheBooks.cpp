// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/CacheBooks.hpp>

#include <algorithm>
#include <new>
#include <utility>

namespace Ostrel::Detail {

constinit LeafMutex cacheMutex;
std::atomic<int> nMeasuringCaches{0};
std::atomic<int> nListeningCaches{0};
thread_local constinit ThreadBooks* threadBooks = nullptr;
thread_local constinit UseBatch* useBatch = nullptr;

namespace {

/// All threads that have books. Guarded by the mutex of the caches. Kept for good.
CacheLink<ThreadBooks>& allThreads() {
  static constinit CacheLink<ThreadBooks> ring(nullptr);
  return ring;
}

/// The time of the caches: rises with each listing and each use that is handed in. Guarded by their mutex.
unsigned long long useClock = 0;

/// Ends the books of a thread with it.
struct ThreadEnd {
  ThreadBooks* books = nullptr;
  bool hasEnded = false;
  ~ThreadEnd() {
    hasEnded = true;
    if (books == nullptr) return;
    books->handInAll();
    books->settle();
    threadBooks = nullptr;
    useBatch = nullptr;
    {
      const LeafLock lock(cacheMutex);
      books->handIn();
      books->link.unlink();
      for (CacheCharge* charge = books->charges; charge != nullptr; charge = charge->next) {
        if (charge->books != nullptr) charge->books->settleCharge(charge->nBytes);
        charge->link.unlink();
      }
    }
    while (books->charges != nullptr) delete std::exchange(books->charges, books->charges->next);
    delete books->spare;
    delete books;
  }
};
thread_local ThreadEnd threadEnd;

/// The data of a note, if they have not passed `PreDestructor`; null if they have, or are about to.
Cacheable* find(const UseBatch::Noted& use) noexcept TRESK_REQUIRES(cacheMutex) {
  if (use.record->tag.load(std::memory_order_relaxed) != use.serialNumber) return nullptr;
  return static_cast<Cacheable*>(use.record->object.load(std::memory_order_relaxed));
}

}  // namespace

ThreadBooks* ThreadBooks::mine() noexcept {
  if (threadBooks != nullptr) return threadBooks;
  if (threadEnd.hasEnded) return nullptr;
  ThreadBooks* const books = new (std::nothrow) ThreadBooks;
  if (books == nullptr) return nullptr;
  threadEnd.books = books;
  threadBooks = books;
  useBatch = &books->uses;
  CacheLink<ThreadBooks>& ring = allThreads();
  const LeafLock lock(cacheMutex);
  books->link.enterBefore(ring);
  return books;
}

void ThreadBooks::handIn(Cacheable* dying) noexcept {
  // Hits are booked at the end of each run of uses in one cache.
  CacheBooks* books = nullptr;
  unsigned long long nHits = 0;
  const auto bookHits = [&]() TRESK_REQUIRES(cacheMutex) {
    if (books != nullptr) books->forEachAbove([&](CacheBooks& b) { b.counts.nHits += nHits; });
    nHits = 0;
  };
  for (const UseBatch::Noted* use = uses.noted.data() + 1; use <= uses.last; ++use) {
    Cacheable* const there = dying != nullptr && use->serialNumber == dying->getSerialNumber() ? dying : find(*use);
    if (there == nullptr) continue;
    Cacheable& data = *there;
    CacheEntry& entry = CacheAccess::entryOf(data);
    entry.nUses += use->nUses;
    if (entry.books == nullptr) {
      entry.nUnbooked += use->nUses;
      continue;
    }
    if (entry.books != books) {
      bookHits();
      books = entry.books;
    }
    nHits += static_cast<unsigned long long>(use->nUses);
    books->moveToEnd(entry);
    if (books->isHeard())
      noteEvent(*books, {CacheEventKind::Used,
                         CacheAccess::creatorOf(data),
                         entry.nBytes,
                         static_cast<unsigned long long>(use->nUses),
                         0,
                         0,
                         {}});
  }
  bookHits();
  uses.clear();
}

void ThreadBooks::handInAll() noexcept {
  if (!uses.isEmpty()) {
    prepare();
    const LeafLock lock(cacheMutex);
    handIn();
  }
  if (!pending.empty() && nOperations == 0) settle();
}

void UseBatch::handIn() noexcept { threadBooks->handInAll(); }

void noteFirstUse(ReferenceRecord* record, long long serialNumber) noexcept {
  if (ThreadBooks* const thread = ThreadBooks::mine()) {
    thread->uses.note(record, serialNumber);
    return;
  }
  ThreadBooks thread;  // for this one use
  thread.uses.note(record, serialNumber);
  const LeafLock lock(cacheMutex);
  thread.handIn();
}

CacheCharge* ThreadBooks::chargeIn(CacheBooks& books) noexcept {
  CacheCharge* unused = nullptr;
  for (CacheCharge* charge = charges; charge != nullptr; charge = charge->next) {
    if (charge->books == &books) return charge;
    if (charge->books == nullptr && charge->nBytes == 0) unused = charge;
  }
  if (unused == nullptr) {
    unused = std::exchange(spare, nullptr);
    if (unused == nullptr) return nullptr;
    unused->next = charges;
    charges = unused;
  }
  unused->books = &books;
  unused->isDue = unused->isPostponed = false;
  unused->link.enterBefore(books.charges);
  return unused;
}

void ThreadBooks::settle(std::exception_ptr* thrown) noexcept {
  if (isSettling) return;
  isSettling = true;
  // What releases and listeners bring in is let go in the next round. Some that never come to rest are left to the next
  // operation.
  bool isSettled = false;
  for (int nRounds = 0; nRounds < 4 && !isSettled; ++nRounds) {
    isSettled = true;
    for (CacheCharge* charge = charges; charge != nullptr; charge = charge->next) {
      const bool hasWork = charge->isPostponed ? mayCallOut() : charge->nBytes != 0;
      if (!hasWork && !charge->isDue) continue;
      runPass(*charge, {.thrown = thrown});
      isSettled = false;
    }
    if (pending.empty()) continue;
    tellListeners();
    isSettled = false;
  }
  isSettling = false;
}

void ThreadBooks::tellListeners() noexcept {
  // What is told may bring about more to be told.
  while (!pending.empty()) {
    std::vector<PendingEvent> told;
    told.swap(pending);
    ++nOperations;
    for (PendingEvent& event : told) {
      try {
        if (event.listener->isRemoved.load(std::memory_order_acquire)) continue;
        if (event.text != nullptr) event.event.text = *event.text;
        event.listener->listener(event.event);
      } catch (...) {  // NOLINT(bugprone-empty-catch): a listener's own affair, as it is stated
      }
    }
    --nOperations;
    told.clear();
    if (pending.empty()) pending.swap(told);  // the room is used again
  }
}

void ThreadBooks::prepare() noexcept {
  if (spare == nullptr) spare = new (std::nothrow) CacheCharge;
  const int nListening = nListeningCaches.load(std::memory_order_relaxed);
  if (nListening == 0) return;
  // Each event may be told to each of them, and a whole batch of uses may be handed in besides.
  const std::size_t nNeeded = 2 * UseBatch::Size * static_cast<std::size_t>(nListening);
  if (pending.capacity() - pending.size() >= nNeeded) return;
  try {
    pending.reserve(2 * (pending.size() + nNeeded));
  } catch (...) {  // NOLINT(bugprone-empty-catch): the events are lost, as there is no room for them
  }
}

void ThreadBooks::noteEvent(const CacheBooks& books, CacheEvent event,
                            const std::shared_ptr<const std::string>& text) noexcept {
  if (event.time == std::chrono::steady_clock::time_point()) event.time = std::chrono::steady_clock::now();
  for (const CacheBooks* heard = &books; heard != nullptr; heard = heard->parent) {
    if (heard->listener == nullptr || pending.size() == pending.capacity()) continue;
    event.nHeldBytes = heard->counts.nHeldBytes;
    pending.push_back({heard->listener, event, text});
  }
}

CacheBooks::CacheBooks(CacheBooks* parentBooks) : parent(parentBooks) {
  counts.limit = ~0ULL;
  if (parent == nullptr) return;
  const LeafLock lock(cacheMutex);
  siblings.enterBefore(parent->children);
}

CacheBooks::~CacheBooks() {
  const LeafLock lock(cacheMutex);
  while (order.isLinked()) {
    if (order.next->owner == nullptr) {
      order.next->unlink();  // the mark of a pass
      continue;
    }
    if (CacheAccess::entryOf(*order.next->owner).isLeaving)
      forEachAbove([](CacheBooks& books) { ++books.counts.nStillInUse; });
    unlist(*order.next->owner);
  }
  while (parked.isLinked()) unlist(*parked.next->owner);
  while (creatures.isLinked()) {
    CacheAccess::booksOf(*creatures.next->owner) = nullptr;
    creatures.next->unlink();
  }
  while (charges.isLinked()) {
    CacheCharge& charge = *charges.next->owner;
    settleCharge(charge.nBytes);
    charge.books = nullptr;
    charge.link.unlink();
  }
  siblings.unlink();
}

bool CacheBooks::isHeard() const noexcept {
  if (nListeningCaches.load(std::memory_order_relaxed) == 0) return false;
  for (const CacheBooks* books = this; books != nullptr; books = books->parent)
    if (books->listener != nullptr) return true;
  return false;
}

void CacheBooks::list(Cacheable& data, unsigned long long nBytes, const Creature* creator, bool isOthers,
                      ThreadBooks* thread) {
  if (thread != nullptr && !thread->uses.isEmpty()) thread->handIn();  // those uses came before
  CacheEntry& entry = CacheAccess::entryOf(data);
  const bool isNew = entry.books != this;
  const unsigned long long nFormer = isNew ? 0 : entry.nBytes;
  const bool isLeaving = entry.isLeaving;  // it goes on being asked for
  const bool isProduction = (isNew || isOthers) && thread != nullptr && thread->innermost != nullptr &&
                            creator != nullptr && thread->innermost->countFor(*creator);
  const bool isEntry = isNew && !isProduction;
  unlist(data);
  entry.books = this;
  entry.nBytes = nBytes;
  entry.stamp = ++useClock;
  entry.link.enterBefore(order);
  ++nListed;
  forEachAbove([&](CacheBooks& books) {
    CacheStatistics& c = books.counts;
    c.nHeldBytes += nBytes;
    c.nPeakBytes = std::max(c.nPeakBytes, c.nHeldBytes);
    if (isProduction) ++c.nProductions;
    if (isEntry) ++c.nEntries;
    c.nHits += static_cast<unsigned long long>(entry.nUnbooked);
    if (isLeaving) books.nLeaving += nBytes;
    if (books.nLeaving != 0 && c.nHeldBytes > c.limit) books.isExcused = true;
  });
  entry.isLeaving = isLeaving;
  entry.nUnbooked = 0;
  if (thread == nullptr) return;
  if ((isProduction || isEntry) && isHeard()) {
    const CacheProduction::Time time = isProduction ? thread->innermost->time() : CacheProduction::Time();
    thread->noteEvent(*this, {isProduction ? CacheEventKind::Produced : CacheEventKind::Entered,
                              CacheAccess::creatorOf(data),
                              nBytes,
                              0,
                              time.seconds,
                              0,
                              {},
                              time.end});
  }
  // Only what passes a limit has to be answered for at the end of the operation: as in flight, as far as it is new.
  // Data that were set again may have got a creator that can let them go.
  if (thread->nOperations == 0) return;
  unsigned long long nOver = 0;
  forEachAbove([&](const CacheBooks& books) TRESK_REQUIRES(cacheMutex) { nOver = std::max(nOver, books.excess(0)); });
  if (nOver == 0) return;
  CacheCharge* const charge = thread->chargeIn(*this);
  if (charge == nullptr) return;
  nOver = std::min(nOver, nBytes > nFormer ? nBytes - nFormer : 0);
  charge->nBytes += nOver;
  charge->isDue = true;
  forEachAbove([&](CacheBooks& books) { books.counts.nInFlightBytes += nOver; });
}

void CacheBooks::unlist(Cacheable& data) noexcept {
  CacheEntry& entry = CacheAccess::entryOf(data);
  if (entry.books == nullptr) return;
  entry.link.unlink();
  --entry.books->nListed;
  entry.books->forEachAbove([&](CacheBooks& books) {
    books.counts.nHeldBytes -= entry.nBytes;
    if (entry.isLeaving) books.nLeaving -= entry.nBytes;
  });
  entry.books = nullptr;
  entry.isLeaving = entry.isParked = entry.isForsaken = false;
}

void CacheBooks::takeOff(Cacheable& data, ThreadBooks* thread) noexcept {
  const CacheEntry& entry = CacheAccess::entryOf(data);
  if (entry.isLeaving) {
    entry.books->forEachAbove([](CacheBooks& books) { ++books.counts.nEvicted; });
    if (thread != nullptr) thread->takenOff = data.getSerialNumber();
  }
  unlist(data);
}

void CacheBooks::bury(Cacheable& data) noexcept {
  const CacheEntry& entry = CacheAccess::entryOf(data);
  if (entry.isLeaving) {
    entry.books->forEachAbove([&](CacheBooks& books) {
      ++books.counts.nEvicted;
      books.counts.nBytesGivenBack += entry.nBytes;
      books.nUnreturned += entry.nBytes;
    });
    if (entry.books->isHeard() && threadBooks != nullptr) {
      const CacheBooks& books = *entry.books;
      const CacheEvent event{CacheEventKind::Evicted, CacheAccess::creatorOf(data), entry.nBytes, 0, 0, 0, {}};
      unlist(data);
      threadBooks->noteEvent(books, event);
      return;
    }
  }
  unlist(data);
}

void CacheBooks::moveToEnd(CacheEntry& entry) noexcept {
  entry.stamp = ++useClock;
  if (entry.link.next == &order || entry.isForsaken) return;
  entry.link.unlink();
  entry.link.enterBefore(order);
  entry.isParked = false;
}

void CacheBooks::park(CacheEntry& entry) noexcept {
  entry.link.unlink();
  entry.link.enterBefore(parked);
  entry.isParked = true;
}

void CacheBooks::unparkAll() noexcept {
  forEachBelow([](CacheBooks& books) TRESK_NO_THREAD_SAFETY_ANALYSIS {
    // Both rings rise in their stamps but for what was parked late: each finds its place from the last one's.
    CacheLink<Cacheable>* place = books.order.next;
    for (CacheLink<Cacheable>* next = books.parked.next; next != &books.parked;) {
      CacheLink<Cacheable>& link = *next;
      next = link.next;
      CacheEntry& entry = CacheAccess::entryOf(*link.owner);
      if (entry.isForsaken) continue;
      const auto isBefore = [&](const CacheLink<Cacheable>* other) {
        return other != &books.order &&
               (other->owner == nullptr || CacheAccess::entryOf(*other->owner).stamp < entry.stamp);
      };
      while (place->previous != &books.order && !isBefore(place->previous)) place = place->previous;
      while (isBefore(place)) place = place->next;
      link.unlink();
      link.enterBefore(*place);
      entry.isParked = false;
    }
  });
}

unsigned long long CacheBooks::excess(unsigned long long nOwn) const noexcept {
  if (counts.limit == ~0ULL) return 0;
  const unsigned long long nWeighed = counts.nHeldBytes - nLeaving;
  const unsigned long long nOthers = counts.nInFlightBytes - std::min(nOwn, counts.nInFlightBytes);
  if (nWeighed <= counts.limit || nWeighed - counts.limit <= nOthers) return 0;
  return nWeighed - counts.limit - nOthers;
}

CacheBooks* CacheBooks::firstOver(unsigned long long nOwn) noexcept {
  for (CacheBooks* books = this; books != nullptr; books = books->parent)
    if (books->excess(nOwn) != 0) return books;
  return nullptr;
}

void CacheBooks::settleCharge(unsigned long long nBytes) noexcept {
  forEachAbove([&](CacheBooks& books) { books.counts.nInFlightBytes -= nBytes; });
}

bool CacheBooks::isWithin(const CacheBooks& other) const noexcept {
  for (const CacheBooks* books = this; books != nullptr; books = books->parent)
    if (books == &other) return true;
  return false;
}

std::vector<const Creature*> shownProductions() {
  std::vector<const Creature*> all;
  all.reserve(256);
  const LeafLock lock(cacheMutex);
  const CacheLink<ThreadBooks>& ring = allThreads();
  for (const CacheLink<ThreadBooks>* link = ring.next; link != &ring; link = link->next) {
    for (const std::atomic<const Creature*>& shown : link->owner->shown) {
      const Creature* const creator = shown.load(std::memory_order_relaxed);
      if (creator != nullptr && all.size() < all.capacity()) all.push_back(creator);
    }
  }
  return all;
}

}  // namespace Ostrel::Detail
