// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Cache.hpp>

#include <tresk/foundation/CacheBooks.hpp>
#include <tresk/foundation/CacheKeeper.hpp>
#include <tresk/foundation/ChunkBase.hpp>
#include <tresk/foundation/Creature.hpp>
#include <tresk/foundation/Diagnostics.hpp>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <utility>

#if defined(__unix__)
#include <unistd.h>
#endif

namespace Ostrel {

using Detail::CacheBooks;
using Detail::cacheMutex;

namespace {

/// Runs a pass for a cache that the caller holds.
Detail::PassResult runPassOn(CacheBooks& books, const Detail::PassGoal& goal) {
  Detail::CacheCharge charge;
  {
    const LeafLock lock(cacheMutex);
    charge.books = &books;
    charge.link.enterBefore(books.charges);
  }
  struct Leave {
    Detail::CacheCharge& charge;
    ~Leave() {
      const LeafLock lock(cacheMutex);
      charge.link.unlink();
    }
  } const leave{charge};
  return Detail::runPass(charge, goal);
}

/// The books of all caches, oldest first. Guarded by the mutex of the caches. Kept for good.
CacheLink<CacheBooks>& allCaches() {
  static CacheLink<CacheBooks>* const ring = new CacheLink<CacheBooks>(nullptr);
  return *ring;
}

}  // namespace

const char* toString(CacheEventKind kind) noexcept {
  switch (kind) {
    case CacheEventKind::Used:
      return "Used";
    case CacheEventKind::Produced:
      return "Produced";
    case CacheEventKind::Failed:
      return "Failed";
    case CacheEventKind::Entered:
      return "Entered";
    case CacheEventKind::Evicted:
      return "Evicted";
    case CacheEventKind::CannotRelease:
      return "CannotRelease";
    case CacheEventKind::StillInUse:
      return "StillInUse";
    case CacheEventKind::Thrown:
      return "Thrown";
    case CacheEventKind::LimitExceeded:
      return "LimitExceeded";
    case CacheEventKind::Returned:
      return "Returned";
  }
  return "";
}

const char* toString(CacheHoldingState state) noexcept {
  switch (state) {
    case CacheHoldingState::Held:
      return "held";
    case CacheHoldingState::HeldByCallers:
      return "held by callers";
    case CacheHoldingState::Kept:
      return "kept";
    case CacheHoldingState::CannotRelease:
      return "cannot be brought back";
    case CacheHoldingState::InProduction:
      return "in production";
  }
  return "";
}

CacheBase::CacheBase() : ReferenceBase<CacheBase>(this) {}
CacheBase::~CacheBase() = default;

Cache::Cache() : Cache(StrongPtr<Cache, CacheBase>()) {}

Cache::Cache(const StrongPtr<Cache, CacheBase>& parent)
    : parent_(parent), books_(new CacheBooks(parent ? parent->books_.get() : nullptr)) {
  CacheLink<CacheBooks>& ring = allCaches();
  const LeafLock lock(cacheMutex);
  books_->cache = this;
  books_->registered.enterBefore(ring);
}

Cache::~Cache() {
  {
    const LeafLock lock(cacheMutex);
    books_->registered.unlink();
  }
  stopThread();
  setPolicy(StrongPtr<CachePolicy, CachePolicy>());
  setListener(CacheListener());
}

const StrongPtr<Cache, CacheBase>& Cache::MemCache() {
  // Kept for good: static fields of a program may outlive every static object of this library.
  static const StrongPtr<Cache, CacheBase>* const cache = new StrongPtr<Cache, CacheBase>(new Cache);
  return *cache;
}

std::vector<StrongPtr<Cache, CacheBase>> Cache::getCaches() {
  const CacheLink<CacheBooks>& ring = allCaches();
  std::vector<WeakPtr<Cache, CacheBase>> found;
  for (std::size_t nRoom = 0;;) {
    found.reserve(nRoom);
    const LeafLock lock(cacheMutex);
    nRoom = 0;
    for (const CacheLink<CacheBooks>* link = ring.next; link != &ring; link = link->next) ++nRoom;
    if (nRoom > found.capacity()) continue;
    for (const CacheLink<CacheBooks>* link = ring.next; link != &ring; link = link->next)
      found.emplace_back(link->owner->cache);
    break;
  }
  std::vector<StrongPtr<Cache, CacheBase>> all;
  all.reserve(found.size());
  for (const WeakPtr<Cache, CacheBase>& cache : found) {
    // A cache that nobody has held yet would die with the pointer made here (Note [The birth unit] in
    // ReferenceBase.hpp).
    if (cache.getRecord()->deferred.load(std::memory_order_acquire) == 0) continue;
    StrongPtr<Cache, CacheBase> held(cache);
    if (held) all.push_back(std::move(held));
  }
  return all;
}

void Cache::setLimit(unsigned long long nBytes) {
  // What stands above the new limit is let go where that may be: now, or when the operation or the walk around ends.
  const Detail::CacheOperation operation;
  const LeafLock lock(cacheMutex);
  books_->counts.limit = nBytes;
  Detail::ThreadBooks* const thread = Detail::threadBooks;
  Detail::CacheCharge* const charge = thread == nullptr ? nullptr : thread->chargeIn(*books_);
  if (charge != nullptr) charge->isDue = true;
}

unsigned long long Cache::getLimit() const {
  const LeafLock lock(cacheMutex);
  return books_->counts.limit;
}

unsigned long long Cache::trim(unsigned long long bytes) {
  if (bytes == 0) return 0;
  return runPassOn(*books_, {.nWanted = bytes, .isExplicit = true}).nGivenBack;
}

bool Cache::enforceLimit() { return runPassOn(*books_, {.isExplicit = true}).holds; }

void Cache::setPolicy(const StrongPtr<CachePolicy, CachePolicy>& policy) {
  StrongPtr<CachePolicy, CachePolicy> former;
  std::vector<CacheBooks::Ranked> formerRanks;
  const LeafLock lock(cacheMutex);
  Detail::nMeasuringCaches.fetch_add((policy ? 1 : 0) - (books_->policy ? 1 : 0), std::memory_order_relaxed);
  former = books_->policy.exchangeFor(policy);
  formerRanks.swap(books_->ranked);
  books_->nRankedTaken = 0;
}

void Cache::setListener(const CacheListener& listener) {
  std::shared_ptr<Detail::ListenerCall> next = listener ? std::make_shared<Detail::ListenerCall>(listener) : nullptr;
  const LeafLock lock(cacheMutex);
  const int difference = (next ? 1 : 0) - (books_->listener ? 1 : 0);
  Detail::nMeasuringCaches.fetch_add(difference, std::memory_order_relaxed);
  Detail::nListeningCaches.fetch_add(difference, std::memory_order_relaxed);
  books_->listener.swap(next);
  if (next) next->isRemoved.store(true, std::memory_order_release);
}

void Cache::setReturnsMemoryAfter(unsigned long long nBytes) {
  const LeafLock lock(cacheMutex);
  books_->returnsFrom = nBytes;
  books_->nUnreturned = 0;
}

void Cache::startThread() {
  const auto keeper = std::make_shared<Detail::CacheKeeper>();
  {
    const LeafLock lock(cacheMutex);
    if (books_->keeper != nullptr) return;
    books_->keeper = keeper;
  }
  try {
    keeper->start(*books_);
  } catch (...) {
    stopThread();
    throw;
  }
}

void Cache::stopThread() {
  std::shared_ptr<Detail::CacheKeeper> keeper;
  {
    const LeafLock lock(cacheMutex);
    keeper.swap(books_->keeper);
  }
  if (keeper != nullptr) keeper->stop();
}

CacheStatistics Cache::getStatistics() const {
  Detail::handInUses();
  const LeafLock lock(cacheMutex);
  CacheStatistics counts = books_->counts;
  counts.nInFlightBytes += books_->nLeaving;
  return counts;
}

std::vector<CacheHolding> Cache::getHoldings() const {
  std::vector<const Creature*> producing = Detail::shownProductions();
  std::sort(producing.begin(), producing.end());
  const auto produces = [&producing](const Creature* creator) {
    return std::binary_search(producing.begin(), producing.end(), creator);
  };
  std::vector<CacheHolding> all;
  std::vector<WeakPtr<Creature, Creature>> busy;  // creators of this cache whose productions run
  busy.reserve(producing.size());
  std::vector<const ReferenceRecord*> records;  // to be compared only
  for (std::size_t nRoom = 0;;) {
    all.reserve(nRoom);
    records.reserve(nRoom);
    const LeafLock lock(cacheMutex);
    nRoom = 0;
    books_->forEachBelow([&](const CacheBooks& books) { nRoom += books.nListed; });
    if (nRoom > all.capacity()) continue;
    books_->forEachBelow([&](const CacheBooks& books) {
      for (const CacheLink<const Creature>* link = books.creatures.next; link != &books.creatures; link = link->next)
        if (produces(link->owner) && busy.size() < busy.capacity()) busy.push_back(link->owner->getSelf());
      for (const CacheLink<Cacheable>* ring : {&books.order, &books.parked})
        for (const CacheLink<Cacheable>* link = ring->next; link != ring; link = link->next)
          if (link->owner != nullptr) {
            all.push_back(link->owner->getHolding());
            records.push_back(link->owner->getRecord());
          }
    });
    break;
  }
  const auto tellCreator = [](CacheHolding& holding, const Creature& creator) {
    holding.creator = Typename(typeid(creator));
    const auto history = creator.getProvenances();
    if (!history.empty() && history.front()) holding.path = history.front()->getPath('/');
  };
  for (std::size_t i = 0; i < all.size(); ++i) {
    CacheHolding& holding = all[i];
    const Pin<Creature> creator(holding.creature);
    if (!creator) {
      holding.state = CacheHoldingState::HeldByCallers;
      continue;
    }
    const Creature& object = *creator;
    tellCreator(holding, object);
    const auto producer = std::find(busy.begin(), busy.end(), holding.creature);
    if (producer != busy.end()) busy.erase(producer);
    if (creator->isUnderCreation() || produces(&object))
      holding.state = CacheHoldingState::InProduction;
    else if (creator->isKept())
      holding.state = CacheHoldingState::Kept;
    else if (holding.nHolders > 0 || creator->getCacheable().getRecord() != records[i])
      holding.state = CacheHoldingState::HeldByCallers;
  }
  // Productions whose data do not count yet: their operands do.
  for (const WeakPtr<Creature, Creature>& creature : busy) {
    const Pin<Creature> creator(creature);
    if (!creator) continue;
    CacheHolding holding;
    holding.creature = creature;
    holding.state = CacheHoldingState::InProduction;
    tellCreator(holding, *creator);
    all.push_back(holding);
  }
  std::stable_sort(all.begin(), all.end(),
                   [](const CacheHolding& a, const CacheHolding& b) { return a.nBytes > b.nBytes; });
  return all;
}

std::string Cache::describe(unsigned int nLines) const {
  const CacheStatistics counts = getStatistics();
  std::ostringstream text;
  text.exceptions(std::ios::badbit);  // without memory the text would end early
  text << "limit " << (counts.limit == NoLimit ? std::string("none") : toByteText(counts.limit)) << ", held "
       << toByteText(counts.nHeldBytes) << " (peak " << toByteText(counts.nPeakBytes) << "), in flight "
       << toByteText(counts.nInFlightBytes) << "\nresident set " << toByteText(getResidentBytes()) << ", chunks "
       << toByteText(static_cast<unsigned long long>(std::max(0LL, static_cast<long long>(ChunkBase::TotalMemsize))))
       << "\nhits " << counts.nHits << ", productions " << counts.nProductions << ", failures " << counts.nFailures
       << ", entries " << counts.nEntries << "\nevictions asked " << counts.nAsked << ", done " << counts.nEvicted
       << " (" << toByteText(counts.nBytesGivenBack) << "), refused: cannot be brought back " << counts.nCannotRelease
       << ", in use " << counts.nStillInUse << ", exceptions " << counts.nThrown << '\n';
  if (counts.nHeldBytes <= counts.limit) return text.str();
  text << "the limit is passed by " << toByteText(counts.nHeldBytes - counts.limit) << "; in the way are\n";
  unsigned int nTold = 0;
  unsigned long long nMore = 0;
  for (const CacheHolding& holding : getHoldings()) {
    if (holding.state == CacheHoldingState::Held) continue;
    if (nTold == nLines) {
      ++nMore;
      continue;
    }
    ++nTold;
    text << "  " << toByteText(holding.nBytes) << "  " << toString(holding.state);
    if (holding.nHolders > 0) text << " (" << holding.nHolders << " besides the creator)";
    text << ", " << (holding.creator.empty() ? "creator gone" : holding.creator);
    if (!holding.path.empty()) text << ", " << holding.path;
    text << '\n';
  }
  if (nMore != 0) text << "  and " << nMore << " more\n";
  return text.str();
}

unsigned long long Cache::nCacheables() const {
  const LeafLock lock(cacheMutex);
  return books_->nListed;
}

unsigned long long Cache::nCreatures() const {
  const LeafLock lock(cacheMutex);
  unsigned long long n = 0;
  for (const CacheLink<const Creature>* link = books_->creatures.next; link != &books_->creatures; link = link->next)
    ++n;
  return n;
}

std::vector<WeakPtr<Creature, Creature>> Cache::getCreatures() const {
  const CacheLink<const Creature>& ring = books_->creatures;
  std::vector<WeakPtr<Creature, Creature>> all;
  for (std::size_t nRoom = 0;;) {
    all.reserve(nRoom);
    const LeafLock lock(cacheMutex);
    nRoom = 0;
    for (const CacheLink<const Creature>* link = ring.next; link != &ring; link = link->next) ++nRoom;
    if (nRoom > all.capacity()) continue;
    for (const CacheLink<const Creature>* link = ring.next; link != &ring; link = link->next)
      all.push_back(link->owner->getSelf());
    return all;
  }
}

unsigned long long getResidentBytes() {
#if defined(__linux__)
  std::ifstream file("/proc/self/statm");
  unsigned long long nPages = 0;
  unsigned long long nResidentPages = 0;
  if (file >> nPages >> nResidentPages) return nResidentPages * static_cast<unsigned long long>(sysconf(_SC_PAGESIZE));
#endif
  return 0;
}

}  // namespace Ostrel
