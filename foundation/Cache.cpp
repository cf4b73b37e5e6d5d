// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Cache.hpp>

#include <tresk/foundation/CacheMutex.hpp>
#include <tresk/foundation/Creature.hpp>

namespace Ostrel {

constinit Mutex Detail::cacheMutex;

CacheBase::CacheBase() : ReferenceBase<CacheBase>(this) {}
CacheBase::~CacheBase() = default;

Cache::Cache() : cacheables_(nullptr), creatures_(nullptr) {}

Cache::~Cache() {
  const MutexLock lock(Detail::cacheMutex);
  while (cacheables_.isLinked()) cacheables_.next->unlink();
  while (creatures_.isLinked()) creatures_.next->unlink();
}

const StrongPtr<Cache, CacheBase>& Cache::MemCache() {
  // Kept for good: static fields of a program may outlive every static object of this library.
  static const StrongPtr<Cache, CacheBase>* const cache = new StrongPtr<Cache, CacheBase>(new Cache);
  return *cache;
}

unsigned long long Cache::trim(unsigned long long bytes) {
  std::vector<WeakPtr<Creature, Creature>> creators;
  {
    const MutexLock lock(Detail::cacheMutex);
    for (const CacheLink<Cacheable>* link = cacheables_.next; link != &cacheables_; link = link->next)
      creators.push_back(link->owner->creator_);
  }
  unsigned long long nReleased = 0;
  for (const WeakPtr<Creature, Creature>& creator : creators) {
    if (nReleased >= bytes) break;
    const Pin<Creature> pinned(creator);
    // A creator that nobody holds yet may still be in its constructor.
    if (!pinned || pinned->getCachingCount() == 0 || pinned->isKept()) continue;
    unsigned long long nHeld = 0;
    if (const StrongPtr<Cacheable, Cacheable> data = pinned->getCacheable()) nHeld = data->memsize();
    if (pinned->release() == Creature::Released) nReleased += nHeld;
  }
  return nReleased;
}

unsigned long long Cache::nCacheables() const {
  const MutexLock lock(Detail::cacheMutex);
  unsigned long long n = 0;
  for (const CacheLink<Cacheable>* link = cacheables_.next; link != &cacheables_; link = link->next) ++n;
  return n;
}

unsigned long long Cache::nCreatures() const {
  const MutexLock lock(Detail::cacheMutex);
  unsigned long long n = 0;
  for (const CacheLink<const Creature>* link = creatures_.next; link != &creatures_; link = link->next) ++n;
  return n;
}

}  // namespace Ostrel
