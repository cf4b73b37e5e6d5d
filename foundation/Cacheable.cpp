// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Cacheable.hpp>

#include <tresk/foundation/CacheMutex.hpp>
#include <tresk/foundation/Creature.hpp>

namespace Ostrel {

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

void Cacheable::setCreator(const WeakPtr<Creature, Creature>& creator) {
  // Creator and cache are held from outside the lock: giving them up may destroy them.
  const Pin<Creature> holder(creator);
  const Pin<CacheBase> cacheHolder(holder ? holder->getCache() : WeakPtr<Cache, CacheBase>());
  Cache* const cache = dynamic_cast<Cache*>(cacheHolder.get());
  const MutexLock lock(Detail::cacheMutex);
  link_.unlink();
  creator_ = creator;
  if (cache != nullptr) link_.enter(cache->cacheables_);
}

WeakPtr<Creature, Creature> Cacheable::getCreator() const {
  const MutexLock lock(Detail::cacheMutex);
  return creator_;
}

void Cacheable::markAsUsed() {
  nUses_.fetch_add(1, std::memory_order_relaxed);
  const MutexLock lock(Detail::cacheMutex);
  link_.moveToEnd();
}

bool Cacheable::isOnCacheList() const {
  const MutexLock lock(Detail::cacheMutex);
  return link_.isLinked();
}

void Cacheable::PreDestructor() noexcept {
  const MutexLock lock(Detail::cacheMutex);
  link_.unlink();
}

}  // namespace Ostrel
