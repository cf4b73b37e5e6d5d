// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Creature.hpp>

#include <tresk/foundation/CacheBooks.hpp>

namespace Ostrel {

void ReferenceTraits<Creature>::firstStrongPointer(Creature* object) { object->enableCaching(false); }

/// One entry of the history of a creator: a list that grows at its end and is never shortened, so that it needs no
/// lock.
struct Creature::History {
  explicit History(const StrongPtr<Provenance, Provenance>& entry) : provenance(entry) {}
  StrongPtr<Provenance, Provenance> provenance;
  std::atomic<History*> next{nullptr};
};

Creature::Creature(const WeakPtr<Cache, CacheBase>& cache) : ReferenceBase<Creature>(this), cache_(cache) {}

Creature::~Creature() {
  {
    const LeafLock lock(Detail::cacheMutex);
    link_.unlink();
  }
  History* entry = history_.load(std::memory_order_acquire);
  while (entry != nullptr) {
    History* const next = entry->next.load(std::memory_order_acquire);
    delete entry;
    entry = next;
  }
}

bool Creature::hasData() const { return false; }
bool Creature::isUnderCreation() const { return false; }
bool Creature::discardCreation() { return false; }

void Creature::enableCaching(bool keep) const {
  if (isKept_.load(std::memory_order_relaxed) != keep) {
    isKept_.store(keep, std::memory_order_relaxed);
    const LeafLock lock(Detail::cacheMutex);
    if (!keep && books_ != nullptr) books_->unparkAll();
  }
  // A plain addition beyond the first: calls on two threads at the same moment may count as one.
  if (const long long n = nCachings_.load(std::memory_order_relaxed); n > 0) {
    nCachings_.store(n + 1, std::memory_order_release);
    return;
  }
  if (nCachings_.fetch_add(1, std::memory_order_acq_rel) != 0) return;
  const Pin<CacheBase> holder(cache_);
  Cache* const cache = dynamic_cast<Cache*>(holder.get());
  if (cache == nullptr) return;
  const LeafLock lock(Detail::cacheMutex);
  books_ = cache->books_.get();
  link_.enterBefore(books_->creatures);
}

void Creature::addProvenance(const StrongPtr<Provenance, Provenance>& provenance) {
  History* const entry = new History(provenance);
  std::atomic<History*>* place = &history_;
  History* found = nullptr;
  while (!place->compare_exchange_strong(found, entry, std::memory_order_acq_rel)) {
    place = &found->next;
    found = nullptr;
  }
}

std::vector<StrongPtr<Provenance, Provenance>> Creature::getProvenances() const {
  std::vector<StrongPtr<Provenance, Provenance>> all;
  for (const History* entry = history_.load(std::memory_order_acquire); entry != nullptr;
       entry = entry->next.load(std::memory_order_acquire))
    all.push_back(entry->provenance);
  return all;
}

}  // namespace Ostrel
