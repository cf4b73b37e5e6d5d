// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// How a cache lets data go.

#include <tresk/foundation/CacheBooks.hpp>
#include <tresk/foundation/CacheKeeper.hpp>

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace Ostrel::Detail {

namespace {

/// Of this many ranked data, and an eighth of all, are let go before they are ranked anew.
constexpr std::size_t RankedAtLeast = 16;

/// The number of the last pass. Guarded by the mutex of the caches.
unsigned long long lastPass = 0;

/// Marks the time in which a creator is asked: operations inside it are not outermost ones.
class Asking {
 public:
  explicit Asking(ThreadBooks* thread) noexcept : thread_(thread) {
    if (thread_ == nullptr) return;
    ++thread_->nOperations;
    wasAsking_ = std::exchange(thread_->isAsking, true);
  }
  Asking(const Asking&) = delete;
  Asking& operator=(const Asking&) = delete;
  ~Asking() {
    if (thread_ == nullptr) return;
    thread_->isAsking = wasAsking_;
    --thread_->nOperations;
  }

 private:
  ThreadBooks* const thread_;
  bool wasAsking_ = false;
};

std::string textOf(const std::exception_ptr& exception) {
  try {
    std::rethrow_exception(exception);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "an exception of unknown type";
  }
}

/// One pass over a cache: picks data under the mutex, asks their creator without it, and books the answer with the next
/// pick.
class Pass {
 public:
  Pass(CacheCharge& charge, const PassGoal& goal) noexcept
      : charge_(charge),
        goal_(goal),
        thread_(ThreadBooks::mine()),
        mayCallOut_(thread_ == nullptr || thread_->mayCallOut()) {}
  Pass(const Pass&) = delete;
  Pass& operator=(const Pass&) = delete;
  ~Pass() {
    if (!isMarked_) return;
    const LeafLock lock(cacheMutex);
    mark_.unlink();
  }

  PassResult run() {
    for (;;) {
      Step step;
      if (thread_ != nullptr) thread_->prepare();
      {
        const LeafLock lock(cacheMutex);
        step = next();
      }
      if (step == Step::Rank) {
        rank();
        continue;
      }
      if (step == Step::Ended) break;
      ask();
      // Unless the release itself has brought something in.
      if (isSettledEarly_ && isGone() && charge_.nBytes == 0) break;
    }
    finish();
    return result_;
  }

 private:
  enum class Step { Ask, Rank, Ended };

  /// Books the last answer, and finds out what to do next.
  Step next() TRESK_REQUIRES(cacheMutex) {
    if (id_ == 0) id_ = ++lastPass;
    if (hasAnswer_) book();
    CacheBooks* const books = charge_.books;
    if (books == nullptr || (thrown_ && goal_.isExplicit)) return end(books);
    CacheBooks* const over = whereToLetGo(*books);
    if (over == nullptr) return end(books);
    if (over_ == nullptr) begin(*books);
    if (over_ != over) {
      mark_.unlink();  // it stands in the ring of the former one
      over_ = over;
      hasRanked_ = false;
      if (goal_.isExplicit) over->unparkAll();
    }
    needsRanking_ = false;
    Cacheable* const data = nAsksLeft_ == 0 ? nullptr : pick(*over);
    if (data == nullptr && needsRanking_) return Step::Rank;
    if (data == nullptr) {
      result_.holds = false;
      noteExcess(*over);
      return end(books);
    }
    --nAsksLeft_;
    take(*data, *books);
    return Step::Ask;
  }

  void begin(CacheBooks& books) TRESK_REQUIRES(cacheMutex) {
    if (thread_ != nullptr) thread_->handIn();
    CacheBooks* top = &books;
    while (top->parent != nullptr) top = top->parent;
    top->forEachBelow([this](const CacheBooks& b) { nAsksLeft_ += b.nListed; });
  }

  CacheBooks* whereToLetGo(CacheBooks& books) const noexcept TRESK_REQUIRES(cacheMutex) {
    if (goal_.nWanted != 0) return result_.nGivenBack < goal_.nWanted ? &books : nullptr;
    for (CacheBooks* b = &books; b != nullptr; b = b->parent)
      if (b->excess(nOwnIn(*b)) != 0) return b;
    return nullptr;
  }

  /// What the limits do not have to wait for: the bytes that this thread has brought in. For a pass that the program
  /// has asked for outside all operations these are also those that wait for the end of a walk.
  unsigned long long nOwnIn(const CacheBooks& books) const noexcept TRESK_REQUIRES(cacheMutex) {
    unsigned long long nOwn = charge_.nBytes;
    if (!goal_.isExplicit || thread_ == nullptr || thread_->nOperations != 0) return nOwn;
    for (const CacheCharge* charge = thread_->charges; charge != nullptr; charge = charge->next)
      if (charge != &charge_ && charge->books != nullptr && charge->books->isWithin(books)) nOwn += charge->nBytes;
    return nOwn;
  }

  Step end(CacheBooks* books) noexcept TRESK_REQUIRES(cacheMutex) {
    // What waits for the end of a walk stays in flight until then.
    charge_.isDue = false;
    charge_.isPostponed = books != nullptr && wasPostponed_ && !result_.holds;
    if (charge_.isPostponed && thread_ != nullptr && goal_.nWanted == 0)
      if (CacheCharge* const own = thread_->chargeIn(*books)) own->isPostponed = true;
    if (!charge_.isPostponed) settleCharge(books);
    if (books != nullptr) {
      for (CacheBooks* b = books; b != nullptr; b = b->parent) {
        if (!result_.holds && goal_.wakesKeeper && !keeper_) keeper_ = b->keeper;
        if (b->nUnreturned == 0 || b->nUnreturned < b->returnsFrom) continue;
        nReturned_ = b->nUnreturned;
        b->nUnreturned = 0;
        if (thread_ != nullptr) thread_->noteEvent(*b, {CacheEventKind::Returned, {}, nReturned_, 0, 0, 0, {}});
      }
    }
    return Step::Ended;
  }

  void settleCharge(CacheBooks* books) noexcept TRESK_REQUIRES(cacheMutex) {
    if (books != nullptr) books->settleCharge(charge_.nBytes);
    charge_.nBytes = 0;
  }

  void noteExcess(const CacheBooks& over) TRESK_REQUIRES(cacheMutex) {
    if (goal_.nWanted != 0 || thread_ == nullptr) return;
    thread_->noteEvent(over, {CacheEventKind::LimitExceeded, {}, over.excess(charge_.nBytes), 0, 0, 0, {}});
  }

  /// Whether to ask for these data now.
  bool isEligible(Cacheable& data) TRESK_REQUIRES(cacheMutex) {
    CacheEntry& entry = CacheAccess::entryOf(data);
    if (entry.isLeaving || entry.refusedBy == id_) return false;
    // Somebody else holds them. The program may ask all the same, as its savers may want to see them.
    if (!goal_.isExplicit && data.getRecord()->strong.load(std::memory_order_relaxed) > 1) return false;
    const Creature* const creator = CacheAccess::livingCreatorOf(CacheAccess::creatorOf(data));
    if (creator == nullptr || creator->isKept()) {
      entry.books->park(entry);
      return false;
    }
    if (creator->getCachingCount() == 0) return false;  // it may still be in its constructor
    if (mayCallOut_ || creator->isReleaseSilent()) return true;
    wasPostponed_ = true;
    return false;
  }

  Cacheable* pick(CacheBooks& over) TRESK_REQUIRES(cacheMutex) {
    isPickedInOrder_ = false;
    if (over.policy) {
      if (Cacheable* const data = pickRanked(over)) return data;
      if (needsRanking_) return nullptr;
    }
    isPickedInOrder_ = true;
    if (!over.children.isLinked()) return firstEligible(over, mark_.isLinked() ? mark_.next : over.order.next);
    Cacheable* oldest = nullptr;
    over.forEachBelow([&](CacheBooks& books) TRESK_NO_THREAD_SAFETY_ANALYSIS {
      Cacheable* const data = firstEligible(books, books.order.next);
      if (data != nullptr &&
          (oldest == nullptr || CacheAccess::entryOf(*data).stamp < CacheAccess::entryOf(*oldest).stamp))
        oldest = data;
    });
    return oldest;
  }

  Cacheable* firstEligible(const CacheBooks& books, CacheLink<Cacheable>* link) TRESK_REQUIRES(cacheMutex) {
    while (link != &books.order) {
      CacheLink<Cacheable>* const following = link->next;
      if (link->owner != nullptr && isEligible(*link->owner)) return link->owner;
      link = following;
    }
    return nullptr;
  }

  /// The next of the ranked data that has not been used since.
  Cacheable* pickRanked(CacheBooks& over) TRESK_REQUIRES(cacheMutex) {
    const std::size_t nServing = std::min(over.ranked.size(), RankedAtLeast + over.ranked.size() / 8);
    while (over.nRankedTaken < nServing || (hasRanked_ && over.nRankedTaken < over.ranked.size())) {
      const CacheBooks::Ranked& next = over.ranked[over.nRankedTaken++];
      if (next.record->tag.load(std::memory_order_relaxed) != next.serialNumber) continue;
      auto* const data = static_cast<Cacheable*>(next.record->object.load(std::memory_order_relaxed));
      if (data == nullptr || CacheAccess::entryOf(*data).nUses != next.nUses) continue;
      if (CacheAccess::entryOf(*data).books == nullptr || !CacheAccess::entryOf(*data).books->isWithin(over) ||
          CacheAccess::entryOf(*data).isParked)
        continue;
      if (isEligible(*data)) return data;
    }
    needsRanking_ = !hasRanked_;
    return nullptr;
  }

  /// Ranks the data of the cache that is over its limit by its policy. If that fails, the order of use holds.
  void rank() {
    hasRanked_ = true;
    std::vector<CacheBooks::Ranked> ranked;
    std::vector<CacheCandidate> candidates;
    StrongPtr<CachePolicy, CachePolicy> policy;
    try {
      std::size_t nRoom = 0;
      for (;;) {
        ranked.reserve(nRoom);
        candidates.reserve(nRoom);
        const LeafLock lock(cacheMutex);
        CacheBooks* const over = charge_.books == nullptr ? nullptr : whereToLetGo(*charge_.books);
        if (over == nullptr || !over->policy) return;
        nRoom = 0;
        over->forEachBelow([&](const CacheBooks& b) { nRoom += b.nListed; });
        if (nRoom > ranked.capacity()) continue;
        policy = over->policy;
        over->forEachBelow([&](CacheBooks& b) TRESK_NO_THREAD_SAFETY_ANALYSIS { collect(b, ranked, candidates); });
        break;
      }
      for (std::size_t i = 0; i < ranked.size(); ++i) ranked[i].worth = policy->worth(candidates[i]);
      std::vector<std::size_t> places(ranked.size());
      for (std::size_t i = 0; i < places.size(); ++i) places[i] = i;
      std::sort(places.begin(), places.end(), [&](std::size_t a, std::size_t b) {
        // What is no number is worth nothing.
        const double worthA = ranked[a].worth == ranked[a].worth ? ranked[a].worth : 0;
        const double worthB = ranked[b].worth == ranked[b].worth ? ranked[b].worth : 0;
        return worthA != worthB ? worthA < worthB : candidates[a].recency < candidates[b].recency;
      });
      std::vector<CacheBooks::Ranked> sorted;
      sorted.reserve(ranked.size());
      for (const std::size_t place : places) sorted.push_back(ranked[place]);
      const LeafLock lock(cacheMutex);
      CacheBooks* const over = charge_.books == nullptr ? nullptr : whereToLetGo(*charge_.books);
      if (over == nullptr || over->policy.getRecord() != policy.getRecord()) return;
      over->ranked.swap(sorted);
      over->nRankedTaken = 0;
    } catch (...) {  // NOLINT(bugprone-empty-catch): a policy that fails has no say
    }
  }

  void collect(CacheBooks& books, std::vector<CacheBooks::Ranked>& ranked,
               std::vector<CacheCandidate>& candidates) const TRESK_REQUIRES(cacheMutex) {
    for (const CacheLink<Cacheable>* link = books.order.next; link != &books.order; link = link->next) {
      if (link->owner == nullptr) continue;
      const Cacheable& data = *link->owner;
      const Creature* const creator = CacheAccess::livingCreatorOf(CacheAccess::creatorOf(data));
      if (creator == nullptr) continue;
      const CacheEntry& entry = CacheAccess::entryOf(data);
      candidates.push_back({entry.nBytes, creator->getProductionSeconds(), entry.nUses, entry.stamp});
      ranked.push_back({data.getRecord(), data.getSerialNumber(), entry.nUses, 0});
    }
  }

  /// Notes whom to ask, and holds the creator for that time.
  void take(Cacheable& data, CacheBooks& books) TRESK_REQUIRES(cacheMutex) {
    CacheEntry& entry = CacheAccess::entryOf(data);
    record_ = data.getRecord();
    serialNumber_ = data.getSerialNumber();
    nBytes_ = entry.nBytes;
    entry.isLeaving = true;
    entry.books->forEachAbove([&](CacheBooks& b) {
      ++b.counts.nAsked;
      b.nLeaving += nBytes_;
    });
    creator_.emplace(CacheAccess::creatorOf(data));
    askedSerialNumber_ = *creator_ ? (*creator_)->getSerialNumber() : 0;
    isSettledEarly_ = !goal_.isExplicit && whereToLetGo(books) == nullptr && !willReturn(books);
    if (isSettledEarly_) {
      nSettledEarly_ = charge_.nBytes;
      settleCharge(&books);
    }
    if (isPickedInOrder_ && (!isSettledEarly_ || wasRefused_) && !over_->children.isLinked()) {
      // The next pick goes on behind these data, wherever they are by then.
      mark_.unlink();
      mark_.enterBefore(*entry.link.next);
      isMarked_ = true;
    }
  }

  /// Whether freed memory is due to go back to the system when these data have gone.
  bool willReturn(const CacheBooks& books) const noexcept TRESK_REQUIRES(cacheMutex) {
    for (const CacheBooks* b = &books; b != nullptr; b = b->parent)
      if (b->nUnreturned + nBytes_ >= b->returnsFrom) return true;
    return false;
  }

  /// Asks the creator. Nothing of ours is locked.
  void ask() {
    const Asking asking(thread_);
    hasAnswer_ = true;
    isHeldByCreator_ = true;
    thrown_ = nullptr;
    answer_ = Creature::StillInUse;
    if (*creator_) {
      try {
        isHeldByCreator_ = (*creator_)->getCacheable().getRecord() == record_;
        if (isHeldByCreator_) answer_ = (*creator_)->release();
      } catch (...) {
        thrown_ = std::current_exception();
        if (goal_.thrown != nullptr && !*goal_.thrown) *goal_.thrown = thrown_;
        try {
          if (thread_ != nullptr && thread_->pending.capacity() != 0)
            thrownText_ = std::make_shared<const std::string>(textOf(thrown_));
        } catch (...) {  // NOLINT(bugprone-empty-catch): told without a text, as there is no room for it
        }
      }
    }
    creator_.reset();  // may be its end
    if (!thrown_ && answer_ == Creature::Released && isGone()) result_.nGivenBack += nBytes_;
    if (thread_ != nullptr && !thread_->pending.empty()) thread_->tellListeners();
  }

  bool isGone() const noexcept { return record_->tag.load(std::memory_order_acquire) != serialNumber_; }

  /// Books the answer of the creator that was asked last. Data that have died were booked by their end.
  void book() TRESK_REQUIRES(cacheMutex) {
    hasAnswer_ = false;
    if (isGone()) {
      // Data that were taken off the list first did not find their cache when they died.
      if (thread_ != nullptr && thread_->takenOff == serialNumber_ && charge_.books != nullptr) {
        charge_.books->forEachAbove([&](CacheBooks& b) {
          b.counts.nBytesGivenBack += nBytes_;
          b.nUnreturned += nBytes_;
        });
      }
      return;
    }
    auto* const data = static_cast<Cacheable*>(record_->object.load());
    if (data == nullptr) return;  // about to be booked by their end
    CacheEntry& entry = CacheAccess::entryOf(*data);
    entry.refusedBy = id_;
    wasRefused_ = true;
    if (entry.isLeaving) {
      entry.isLeaving = false;
      if (entry.books != nullptr) entry.books->forEachAbove([&](CacheBooks& b) { b.nLeaving -= entry.nBytes; });
    }
    if (isSettledEarly_ && charge_.books != nullptr) {
      charge_.nBytes = nSettledEarly_;
      charge_.books->forEachAbove([&](CacheBooks& b) { b.counts.nInFlightBytes += nSettledEarly_; });
    }
    isSettledEarly_ = false;
    if (entry.books == nullptr) return;
    seeToOthers(*entry.books);
    // They may have got another creator meanwhile, who has not been asked.
    const Creature* const creator = CacheAccess::livingCreatorOf(CacheAccess::creatorOf(*data));
    const bool isOthers = creator != nullptr && creator->getSerialNumber() != askedSerialNumber_;
    if (isOthers) entry.refusedBy = 0;
    if (!isHeldByCreator_ && !thrown_) {
      // The creator would let go other data. It was not asked.
      entry.books->forEachAbove([](CacheBooks& b) { --b.counts.nAsked; });
      if (isOthers) return;
      entry.isForsaken = true;
      entry.books->park(entry);
      return;
    }
    CacheEvent event{CacheEventKind::StillInUse, CacheAccess::creatorOf(*data), entry.nBytes, 0, 0, 0, {}};
    unsigned long long CacheStatistics::*count = &CacheStatistics::nStillInUse;
    if (thrown_) {
      count = &CacheStatistics::nThrown;
      event.kind = CacheEventKind::Thrown;
    } else if (isOthers) {
      // In use by their new creator, whatever the former one has answered.
    } else if (answer_ == Creature::CannotRelease) {
      count = &CacheStatistics::nCannotRelease;
      event.kind = CacheEventKind::CannotRelease;
    } else if (answer_ == Creature::Released) {
      count = &CacheStatistics::nEvicted;  // though somebody else holds them still
      event.kind = CacheEventKind::Evicted;
    }
    entry.books->forEachAbove([&](CacheBooks& b) { ++(b.counts.*count); });
    if (thread_ != nullptr && entry.books->isHeard())
      thread_->noteEvent(*entry.books, event, thrown_ ? thrownText_ : nullptr);
    // What the creator has let go, or never held, it will not let go again.
    if (count == &CacheStatistics::nEvicted) entry.isForsaken = true;
    if (count == &CacheStatistics::nCannotRelease || entry.isForsaken) entry.books->park(entry);
  }

  /// What has come in elsewhere was excused by bytes that were about to leave, and stay. Where this pass does not go on
  /// to look, the thread does so at the end of its operation.
  void seeToOthers(CacheBooks& books) TRESK_REQUIRES(cacheMutex) {
    const bool goesOn = goal_.nWanted == 0 && !(thrown_ && goal_.isExplicit) && charge_.books != nullptr &&
                        charge_.books->isWithin(books);
    if (goesOn || thread_ == nullptr) return;
    bool isPassed = false;
    books.forEachAbove([&isPassed](CacheBooks& b) TRESK_NO_THREAD_SAFETY_ANALYSIS {
      if (std::exchange(b.isExcused, false) && b.excess(0) != 0) isPassed = true;
    });
    CacheCharge* const own = isPassed ? thread_->chargeIn(books) : nullptr;
    if (own != nullptr) own->isDue = true;
  }

  /// What is left to do when the mutex is free again.
  void finish() {
    if (keeper_) keeper_->wake();
#if defined(__GLIBC__)
    if (nReturned_ != 0) malloc_trim(0);
#endif
    // What releases and listeners have brought in.
    if (thread_ != nullptr && thread_->nOperations == 0) thread_->settle(goal_.isExplicit ? &thrown_ : nullptr);
    if (goal_.isExplicit && thrown_) std::rethrow_exception(thrown_);
  }

  CacheCharge& charge_;
  const PassGoal goal_;
  ThreadBooks* const thread_;
  const bool mayCallOut_;
  unsigned long long id_ = 0;
  const CacheBooks* over_ = nullptr;   ///< the cache that is brought to its limit at the moment
  unsigned long long nAsksLeft_ = 16;  ///< and the data at the beginning: releases may bring in as much as they let go
  bool hasRanked_ = false;
  bool needsRanking_ = false;
  bool wasPostponed_ = false;
  bool wasRefused_ = false;
  bool isPickedInOrder_ = false;
  bool isMarked_ = false;               ///< the mark has been set, and may stand in a ring
  CacheLink<Cacheable> mark_{nullptr};  ///< behind what has been looked at, in a cache without children
  PassResult result_;
  std::shared_ptr<CacheKeeper> keeper_;
  unsigned long long nReturned_ = 0;

  // What is being asked for.
  std::optional<Pin<Creature>> creator_;
  ReferenceRecord* record_ = nullptr;
  long long serialNumber_ = 0;
  long long askedSerialNumber_ = 0;  ///< of the creator
  unsigned long long nBytes_ = 0;
  bool isSettledEarly_ = false;  ///< nothing is left to do if the creator lets go
  unsigned long long nSettledEarly_ = 0;
  bool hasAnswer_ = false;
  bool isHeldByCreator_ = true;
  Creature::ReasonForReleasal answer_ = Creature::StillInUse;
  std::exception_ptr thrown_;
  std::shared_ptr<const std::string> thrownText_;
};

}  // namespace

PassResult runPass(CacheCharge& charge, const PassGoal& goal) { return Pass(charge, goal).run(); }

}  // namespace Ostrel::Detail
