// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace TreskBench {

/// The order in which entries stand in a table: number above place.
inline std::vector<std::uint64_t> orderOf(const Tresk::fragment_copy_t& entries) {
  std::vector<std::uint64_t> order;
  order.reserve(entries.size());
  for (const auto& entry : entries) order.push_back(std::uint64_t{entry.first} << 32U | order.size());
  std::sort(order.begin(), order.end());
  return order;
}

/// The function of the walks: counts fragments by something that the compiler cannot foresee.
struct Count {
  unsigned long long* sum;
  bool operator()(const Tresk::FragmentIDPtr& fragment, const Tresk::CreatorPtr& creator) const {
    *sum += fragment.isValid() && creator.isValid() ? 1 : 0;
    return true;
  }
};

/// The raw twin of a field: the same lock, hash, tables, objects and pointers, put together by hand.
struct RawField : Tresk::CreatorContainer {
  std::unordered_map<std::string, std::uint32_t> index;
  Tresk::FragmentIDCollectionPtr collection{new Tresk::FragmentIDCollection};  ///< for fragments to refer to
  std::vector<Tresk::FragmentIDPtr> slots;
  Tresk::FragmentMutex mutex;
  std::vector<std::uint32_t> keys;
  std::vector<Tresk::CreatorPtr> values;
  Ostrel::Ageable age;

  void reserve(std::size_t n) {
    index.reserve(n);
    slots.reserve(n);
    keys.reserve(n);
    values.reserve(n);
  }

  void bind(const Tresk::CreatorPtr& creator, const std::string& name) {
    const auto number = static_cast<std::uint32_t>(slots.size());
    if (index.find(name) != index.end()) return;
    slots.push_back(Tresk::FragmentIDPtr(new Tresk::FragmentID(name, number, collection->getSelf())));
    index.emplace(name, number);
    bind(creator, number);
  }
  void bind(const Tresk::CreatorPtr& creator, std::uint32_t number) {
    {
      const Tresk::SharedFragmentLock lock(mutex);
      if (!keys.empty() && number <= keys.back()) return;
    }
    {
      const Tresk::ExclusiveFragmentLock lock(mutex);
      keys.push_back(number);
      values.push_back(creator);
    }
    own(creator);
  }
  void own(const Tresk::CreatorPtr& creator) {
    age.touch();
    creator->addOwner(getSelf());
    creator->forEachOwner(&age);
  }

  /// Of a table without gaps.
  Tresk::CreatorPtr at(std::uint32_t number) {
    const Tresk::SharedFragmentLock lock(mutex);
    return number < values.size() ? values[number] : Tresk::CreatorPtr();
  }
  /// Of any table.
  Tresk::CreatorPtr find(std::uint32_t number) {
    const Tresk::SharedFragmentLock lock(mutex);
    const auto place = std::lower_bound(keys.begin(), keys.end(), number);
    return place != keys.end() && *place == number ? values[static_cast<std::size_t>(place - keys.begin())]
                                                   : Tresk::CreatorPtr();
  }
  Tresk::CreatorPtr find(const std::string& name) {
    const auto known = index.find(name);
    return known == index.end() ? Tresk::CreatorPtr() : at(known->second);
  }
  Tresk::CreatorPtr find(const Tresk::FragmentIDPtr& fragment) {
    const Tresk::SharedFragmentLock lock(mutex);
    if (keys.empty() || !fragment || fragment->getOwner().getRecord() != collection.getRecord())
      return Tresk::CreatorPtr();
    const std::uint32_t number = fragment->getNumericalID();
    return number < values.size() ? values[number] : Tresk::CreatorPtr();
  }

  /// Calls `f` for each creator under the lock, as a walk does: with an owning copy of fragment and creator.
  template <class F>
  unsigned int walk(const F& f) {
    unsigned int nTrue = 0;
    const Tresk::SharedFragmentLock lock(mutex);
    for (std::size_t i = 0; i < keys.size(); ++i) {
      const Tresk::CreatorPtr creator = values[i];
      const Tresk::FragmentIDPtr fragment = keys[i] < slots.size() ? slots[keys[i]] : Tresk::FragmentIDPtr();
      if (creator && f(fragment, creator)) ++nTrue;
    }
    return nTrue;
  }

  /// Binds in any order: appends, sorts by number, and enters the field as an owner.
  void bindAll(const Tresk::fragment_copy_t& entries) {
    const std::vector<std::uint64_t> order = orderOf(entries);
    {
      const Tresk::ExclusiveFragmentLock lock(mutex);
      keys.reserve(entries.size());
      values.reserve(entries.size());
      for (const std::uint64_t place : order) {
        keys.push_back(static_cast<std::uint32_t>(place >> 32U));
        values.push_back(entries[static_cast<std::uint32_t>(place)].second);
      }
    }
    age.touch();
    const auto self = getSelf();
    for (const auto& entry : entries) {
      entry.second->addOwner(self);
      entry.second->forEachOwner(&age);
    }
  }
};
using RawFieldPtr = Ostrel::StrongPtr<RawField, Tresk::CreatorContainer>;

/// "block 0", "block 1" and so on, for fields up to `n` fragments. Made once.
inline const std::vector<std::string>& fragmentNames(std::size_t n) {
  static std::vector<std::string> names;
  names.reserve(n);
  while (names.size() < n) names.push_back("block " + std::to_string(names.size()));
  return names;
}

/// Creators that belong to no field yet.
inline std::vector<Tresk::CreatorPtr> makeCreators(std::size_t n) {
  std::vector<Tresk::CreatorPtr> creators;
  creators.reserve(n);
  for (std::size_t i = 0; i < n; ++i)
    creators.push_back(Tresk::CreatorPtr(new Tresk::FunctionalCreator(nullptr, false, Tresk::CacheWeakPtr())));
  return creators;
}

/// Numbers below `n` in random order, always the same.
inline std::vector<std::uint32_t> shuffledNumbers(std::size_t n) {
  std::vector<std::uint32_t> order(n);
  for (std::size_t i = 0; i < n; ++i) order[i] = static_cast<std::uint32_t>(i);
  std::shuffle(order.begin(), order.end(), std::mt19937(7));
  return order;
}

/// Entries in random order.
inline Tresk::fragment_copy_t shuffledEntries(const std::vector<Tresk::CreatorPtr>& creators) {
  Tresk::fragment_copy_t entries;
  entries.reserve(creators.size());
  for (const std::uint32_t number : shuffledNumbers(creators.size())) entries.emplace_back(number, creators[number]);
  return entries;
}

}  // namespace TreskBench
