// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/CacheOperation.hpp>

#include <tresk/foundation/CacheBooks.hpp>

#include <new>
#include <utility>

namespace Ostrel::Detail {

CacheOperation::CacheOperation() noexcept {
  ThreadBooks* const thread = ThreadBooks::mine();
  if (thread == nullptr) return;
  ++thread->nOperations;
  thread->prepare();
}

CacheOperation::~CacheOperation() {
  ThreadBooks* const thread = threadBooks;
  if (thread == nullptr || thread->nOperations == 0 || --thread->nOperations != 0) return;
  if (thread->charges != nullptr || !thread->pending.empty()) thread->settle();
}

CacheProduction::CacheProduction(const Creature& creator) noexcept : creator_(&creator) {
  ThreadBooks* const thread = threadBooks;
  if (thread != nullptr) {
    isNoted_ = true;
    outer_ = std::exchange(thread->innermost, this);
    const int place = thread->nProductions++;
    if (place < static_cast<int>(ThreadBooks::MaxShown))
      thread->shown[static_cast<unsigned>(place)].store(&creator, std::memory_order_relaxed);
  }
  isMeasured_ = nMeasuringCaches.load(std::memory_order_relaxed) != 0;
  if (isMeasured_) begin_ = std::chrono::steady_clock::now();
}

CacheProduction::Time CacheProduction::time() const noexcept {
  const std::chrono::steady_clock::time_point end =
      isMeasured_ && isFinished_ ? end_ : std::chrono::steady_clock::now();
  return {isMeasured_ ? std::chrono::duration<double>(end - begin_).count() : 0, end};
}

void CacheProduction::finish(bool isMade) noexcept {
  if (isMeasured_ && !isFinished_) end_ = std::chrono::steady_clock::now();
  isFinished_ = true;
  isMade_ = isMade;
  if (isMade && isMeasured_) CacheAccess::setSeconds(*creator_, time().seconds);
}

void CacheProduction::enter(Cacheable& made) {
  isMade_ = false;  // if it throws, nobody will know of these data
  const unsigned long long nBytes = made.memsize();
  isMade_ = true;
  if (threadBooks != nullptr) threadBooks->prepare();  // the production may have used up what there was
  {
    const LeafLock lock(cacheMutex);
    CacheBooks* const books = CacheAccess::booksOf(*creator_);
    if (books != nullptr && made.creator_.getRecord() == creator_->getRecord()) {
      made.list(creator_, false, *books, nBytes);
      return;
    }
  }
  made.setCreator(creator_->getSelf());
}

CacheProduction::~CacheProduction() {
  ThreadBooks* const thread = threadBooks;
  if (isNoted_ && thread != nullptr) {
    thread->innermost = outer_;
    const int place = --thread->nProductions;
    if (place < static_cast<int>(ThreadBooks::MaxShown))
      thread->shown[static_cast<unsigned>(place)].store(nullptr, std::memory_order_relaxed);
  }
  if (isMade_) return;
  if (thread != nullptr) thread->prepare();
  const LeafLock lock(cacheMutex);
  CacheBooks* const books = CacheAccess::booksOf(*creator_);
  if (books == nullptr) return;
  books->forEachAbove([](CacheBooks& b) { ++b.counts.nFailures; });
  if (thread == nullptr) return;
  if (books->firstOver(0) != nullptr) {
    // Callers may have given back by now what was in use before.
    if (CacheCharge* const charge = thread->chargeIn(*books)) charge->isDue = true;
  }
  if (books->isHeard()) thread->noteEvent(*books, {CacheEventKind::Failed, creator_->getSelf(), 0, 0, 0, 0, {}});
}

void handInUses() noexcept {
  if (threadBooks != nullptr) threadBooks->handInAll();
}

void markThreadAsAwaited() noexcept {
  if (ThreadBooks* const thread = ThreadBooks::mine()) thread->isAwaited = true;
}

bool isAskedByCache() noexcept { return threadBooks != nullptr && threadBooks->isAsking; }

CacheWalk::CacheWalk() noexcept {
  if (ThreadBooks* const thread = ThreadBooks::mine()) ++thread->nWalks;
}

CacheWalk::~CacheWalk() {
  ThreadBooks* const thread = threadBooks;
  if (thread == nullptr || thread->nWalks == 0 || --thread->nWalks != 0 || thread->nOperations != 0) return;
  if (thread->charges != nullptr) thread->settle();
}

}  // namespace Ostrel::Detail
