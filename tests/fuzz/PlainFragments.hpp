// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/FragmentIDCollection.hpp>

#include "FuzzSupport.hpp"

#include <cstddef>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// \file
/// Fragments and their collections as they should be, out of plain maps and vectors. Each plain object knows the
/// address of the one that it stands for.

namespace TreskFuzz {

struct PlainCollection;

struct PlainFragment {
  std::string name;
  std::weak_ptr<PlainCollection> owner;
  unsigned int number = 0;
  const Tresk::FragmentID* object = nullptr;
};
/// Held wherever the fragment itself is held, so that both die together.
using PlainFragmentPtr = std::shared_ptr<PlainFragment>;

struct PlainCollection : std::enable_shared_from_this<PlainCollection> {
  static constexpr unsigned int None = std::numeric_limits<unsigned int>::max();

  std::vector<PlainFragmentPtr> slots;
  std::map<std::string, unsigned int> index;
  std::vector<unsigned long long> shape;
  const Tresk::FragmentIDCollection* object = nullptr;

  PlainFragmentPtr find(unsigned int number) const {
    return number < slots.size() ? slots[number] : PlainFragmentPtr();
  }
  unsigned int numberOf(const std::string& name) const {
    const auto known = index.find(name);
    return known == index.end() ? None : known->second;
  }
  PlainFragmentPtr findByName(const std::string& name) const { return find(numberOf(name)); }

  /// The number of a name that is added if it is unknown.
  unsigned int make(const std::string& name) {
    const auto known = index.find(name);
    return known == index.end() ? append(name) : known->second;
  }
  unsigned int append(const std::string& name) {
    const auto number = static_cast<unsigned int>(slots.size());
    slots.push_back(std::make_shared<PlainFragment>(PlainFragment{name, weak_from_this(), number}));
    index[name] = number;
    return number;
  }

  bool isForeign(const PlainFragmentPtr& fragment) const {
    return fragment && !fragment->owner.expired() && fragment->owner.lock().get() != this;
  }
  unsigned int getID(const PlainFragmentPtr& fragment) {
    if (!fragment) {
      unsigned int number = 0;
      while (number < slots.size() && slots[number]) ++number;
      if (number == slots.size()) slots.emplace_back();
      return number;
    }
    if (!fragment->owner.expired()) return fragment->number;
    unsigned int number = numberOf(fragment->name);
    if (number == None) {
      if (!shape.empty()) return None;
      number = static_cast<unsigned int>(slots.size());
      slots.push_back(fragment);
      index[fragment->name] = number;
    }
    fragment->owner = weak_from_this();
    fragment->number = number;
    return number;
  }

  /// Learns which objects stand in new slots.
  void meet(const Tresk::FragmentIDCollection& collection) {
    object = &collection;
    demand(collection.nFragmentIDs() == slots.size(), "number of slots");
    for (std::size_t i = 0; i < slots.size(); ++i)
      if (slots[i] && slots[i]->object == nullptr) slots[i]->object = collection.getFragmentIDs()[i].get();
  }
};
using PlainCollectionPtr = std::shared_ptr<PlainCollection>;

/// A fragment and what it should be. Both are empty for the fragment without a name.
struct Known {
  Tresk::FragmentIDPtr fragment;
  PlainFragmentPtr plain;
};

inline bool isSame(const Tresk::FragmentIDPtr& fragment, const PlainFragmentPtr& plain) {
  return fragment.get() == (plain ? plain->object : nullptr);
}

/// One of a few names, at times a new one of any bytes.
inline std::string nameFrom(FuzzedDataProvider& data, std::vector<std::string>& names) {
  if (names.size() < 12 && onceIn(data, 4)) names.push_back(data.ConsumeRandomLengthString(6));
  return oneOf(data, names);
}

/// Everything that can be asked of a fragment.
inline void check(const Known& known) {
  const PlainFragment& plain = *known.plain;
  demand(known.fragment.get() == plain.object, "address of a fragment");
  demand(known.fragment->getName() == plain.name, "name of a fragment");
  demand(known.fragment->getNumericalID() == plain.number, "number of a fragment");
  const PlainCollectionPtr owner = plain.owner.lock();
  demand(known.fragment->getOwner().get() == (owner ? owner->object : nullptr), "owner of a fragment");
  demand(known.fragment.strongCount() == known.plain.use_count(), "holders of a fragment");
}

/// Everything that can be asked of a collection without changing it, for some names and fragments.
inline void check(const Tresk::FragmentIDCollection& collection, const PlainCollection& plain,
                  const std::vector<std::string>& names, const std::vector<Known>& pool) {
  demand(plain.object == &collection, "address of a collection");
  const std::vector<Tresk::FragmentIDPtr>& slots = collection.getFragmentIDs();
  demand(slots.size() == plain.slots.size() && collection.nFragmentIDs() == slots.size(), "number of slots");
  demand(collection.getShape().Dims() == static_cast<int>(plain.shape.size()), "rank of a shape");
  demand((collection.getShape().getExtents() != nullptr) == !plain.shape.empty(), "extents of a shape");
  for (std::size_t d = 0; d < plain.shape.size(); ++d)
    demand(collection.getShape()[static_cast<int>(d)] == plain.shape[d], "extent of a shape");
  for (std::size_t i = 0; i < slots.size(); ++i) {
    demand(isSame(slots[i], plain.slots[i]), "fragment in a slot");
    demand(collection.findFragmentID(static_cast<unsigned int>(i)) == slots[i], "fragment of a number");
  }
  for (const unsigned int beyond : {static_cast<unsigned int>(slots.size()), 0x80000000U, PlainCollection::None})
    demand(collection.findFragmentID(beyond).getRecord() == nullptr, "fragment beyond the slots");
  for (const std::string& name : names) {
    demand(collection.findNumericalIDByName(name) == plain.numberOf(name), "number of a name");
    demand(isSame(collection.findFragmentIDByName(name), plain.findByName(name)), "fragment of a name");
  }
  for (const Known& known : pool)
    demand(collection.findID(known.fragment) == (known.plain ? known.plain->number : 0), "stored number of a fragment");
}

}  // namespace TreskFuzz
