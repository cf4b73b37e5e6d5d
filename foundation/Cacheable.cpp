// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Cacheable.hpp>

#include <tresk/foundation/CacheBooks.hpp>
#include <tresk/foundation/Creature.hpp>

namespace Ostrel {

using Detail::CacheAccess;
using Detail::cacheMutex;

void ReferenceTraits<Cacheable>::firstStrongPointer(Cacheable* object) { object->CacheableDeferredConstructor(); }
void ReferenceTraits<Cacheable>::preDestructor(Cacheable* object) noexcept { object->PreDestructor(); }

Cacheable::Cacheable(const WeakPtr<Creature, Creature>& creator) : ReferenceBase<Cacheable>(this), creator_(creator) {}

Cacheable::~Cacheable() { PreDestructor(); }

void Cacheable::DeferredConstructor() {}

const std::type_info& Cacheable::DomainType() const { return typeid(*this); }

const std::type_info& Cacheable::CreatorType() const {
  const Pin<Creature> creator(getCreator());
  if (!creator) return typeid(void);
  const Creature& object = *creator;
  return typeid(object);
}

void Cacheable::tie(const WeakPtr<Creature, Creature>& creator, const Creature* living, Detail::CacheBooks* books,
                    unsigned long long nBytes) TRESK_NO_THREAD_SAFETY_ANALYSIS {
  const bool isOthers = !creator_.sameRecord(creator);
  if (isOthers) creator_ = creator;
  if (books == nullptr)
    Detail::CacheBooks::takeOff(*this, Detail::threadBooks);
  else
    list(living, isOthers, *books, nBytes);
}

void Cacheable::list(const Creature* creator, bool isOthers, Detail::CacheBooks& books,
                     unsigned long long nBytes) TRESK_NO_THREAD_SAFETY_ANALYSIS {
  getRecord()->tag.store(getSerialNumber(), std::memory_order_relaxed);
  books.list(*this, nBytes, creator, isOthers, Detail::threadBooks);
}

void Cacheable::setCreator(const WeakPtr<Creature, Creature>& creator) {
  const Detail::CacheOperation operation;
  const unsigned long long nBytes = memsize();
  {
    const LeafLock lock(cacheMutex);
    const Creature* const living = CacheAccess::livingCreatorOf(creator);
    Detail::CacheBooks* const books = living == nullptr ? nullptr : CacheAccess::booksOf(*living);
    if (living == nullptr || books != nullptr || living->getCache().getRecord() == nullptr) {
      tie(creator, living, books, nBytes);
      return;
    }
  }
  // The creator is still being built, or its cache has died. Both are held from outside the mutex: giving them up may
  // destroy them.
  const Pin<Creature> holder(creator);
  const Pin<CacheBase> cacheHolder(holder ? holder->getCache() : WeakPtr<Cache, CacheBase>());
  Cache* const cache = dynamic_cast<Cache*>(cacheHolder.get());
  const LeafLock lock(cacheMutex);
  tie(creator, holder.get(), cache == nullptr ? nullptr : cache->books_.get(), nBytes);
}

WeakPtr<Creature, Creature> Cacheable::getCreator() const {
  const LeafLock lock(cacheMutex);
  return creator_;
}

long long Cacheable::getUseCount() const {
  Detail::handInUses();
  const LeafLock lock(cacheMutex);
  return entry_.nUses;
}

bool Cacheable::isOnCacheList() const {
  const LeafLock lock(cacheMutex);
  return entry_.books != nullptr;
}

CacheHolding Cacheable::getHolding() const {
  CacheHolding holding;
  holding.nBytes = entry_.nBytes;
  holding.nHolders = getRecord()->strong.load() - 1;
  holding.creature = creator_;
  if (entry_.isParked) holding.state = CacheHoldingState::CannotRelease;
  return holding;
}

void Cacheable::PreDestructor() noexcept {
  // Without a tag no cache and no thread knows of these data.
  if (getRecord()->tag.load(std::memory_order_relaxed) == 0) return;
  const LeafLock lock(cacheMutex);
  // Those uses are of data that their record does not show any more.
  if (Detail::threadBooks != nullptr && !Detail::threadBooks->uses.isEmpty()) Detail::threadBooks->handIn(this);
  Detail::CacheBooks::bury(*this);
  getRecord()->tag.store(0, std::memory_order_relaxed);
}

}  // namespace Ostrel
