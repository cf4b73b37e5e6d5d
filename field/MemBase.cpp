// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemBase.hpp>

#include <tresk/field/TreskTypeBase.hpp>

#include <map>

namespace Tresk {

namespace {

using AllocatorRegistry = std::map<TreskTypeIndex, MemBase::AllocatorPtr>;

/// Lets the allocators go at exit. The entries stay for threads that still look for one, and find none.
struct AllocatorRelease {
  AllocatorRegistry& registry;
  ~AllocatorRelease() {
    for (auto& [index, allocator] : registry) allocator.reset();
  }
};

AllocatorRegistry& theRegistry() {
  static AllocatorRegistry* const registry = new AllocatorRegistry;
  static const AllocatorRelease atExit{*registry};
  return *registry;
}

}  // namespace

constinit Ostrel::PlainCounter<int> MemBase::RegisteredTypes{0};

MemBase::Allocator::Allocator() = default;
MemBase::Allocator::~Allocator() = default;

MemBase::MemBase(const TreskTypeIndex& index, const CreatorWeakPtr& creator)
    : Ostrel::Cacheable(Ostrel::WeakPtr<Ostrel::Creature, Ostrel::Creature>(creator)), index_(index) {}

MemBase::~MemBase() = default;

void MemBase::DeferredConstructor() {}

int MemBase::registerCreator(const AllocatorPtr& allocator, const TreskTypePtr& type) {
  AllocatorRegistry& registry = theRegistry();
  if (!type) return 0;
  // The same allocator again changes nothing; another one replaces it. A null allocator is stored like any other.
  registry[static_cast<const TreskTypeIndex&>(*type)] = allocator;
  return 1;
}

MemBasePtr MemBase::create(const TreskTypePtr& type, const DynamicSize& size, const std::type_info&) {
  const AllocatorRegistry& registry = theRegistry();
  if (!type) return MemBasePtr();
  const auto entry = registry.find(static_cast<const TreskTypeIndex&>(*type));
  if (entry == registry.end()) return MemBasePtr();
  const AllocatorPtr allocator = entry->second;
  return allocator ? allocator->create(size) : MemBasePtr();
}

MemBasePtr MemBase::create(const DynamicSize& size, const std::type_info& requester) const {
  const TreskTypePtr type(TreskTypeBase::find(index_));
  return type ? create(type, size, requester) : MemBasePtr();
}

MemBasePtr MemBase::create(const std::type_info& requester) const { return create(getSize(), requester); }

}  // namespace Tresk
