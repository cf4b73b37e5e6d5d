// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CreativeArrayBase.hpp>
#include <tresk/field/MemArray.hpp>

#include "PlainFragments.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// \file
/// Creators and fields as they should be, out of plain maps and vectors.

namespace TreskFuzz {

using Numbers = std::vector<unsigned long long>;

inline unsigned long long product(const Numbers& extents) {
  unsigned long long product = 1;
  for (const unsigned long long extent : extents) product *= extent;
  return product;
}

inline Tresk::DynamicSize sizeOf(const Numbers& extents) { return {static_cast<int>(extents.size()), extents.data()}; }

inline Numbers numbersOf(const Tresk::DynamicSize& size) {
  return {size.getExtents(), size.getExtents() + size.Dims()};
}

// ---------------------------------------------------------------------------------------------------------------- data

/// What an array holds: element e is `first + e * step`.
struct Content {
  Numbers extents;
  double first = 0;
  double step = 0;

  double at(std::size_t e) const { return first + step * static_cast<double>(e); }
};

template <int N>
Tresk::MemBasePtr makeArray(const Content& content) {
  Tresk::MultiIndex<N> extents;
  for (int d = 0; d < N; ++d) extents[d] = content.extents[static_cast<std::size_t>(d)];
  auto* const array = new Tresk::MemArray<N, double>(extents, Tresk::CreatorWeakPtr());
  const Tresk::MemBasePtr held(array);
  std::vector<double>& elements = array->getTypedChunk()->vector();
  for (std::size_t e = 0; e < elements.size(); ++e) elements[e] = content.at(e);
  return held;
}

inline Tresk::MemBasePtr makeArray(const Content& content) {
  switch (content.extents.size()) {
    case 1:
      return makeArray<1>(content);
    case 2:
      return makeArray<2>(content);
    default:
      return makeArray<3>(content);
  }
}

inline const std::vector<double>& elementsOf(const Tresk::MemBasePtr& data) {
  const auto* const array = dynamic_cast<const Tresk::TypedArray<double>*>(data.get());
  demand(array != nullptr, "class of data");
  return array->getTypedChunk()->vector();
}

inline void checkData(const Tresk::MemBasePtr& data, const Content& content) {
  demand(numbersOf(data->getSize()) == content.extents, "extents of data");
  const std::vector<double>& elements = elementsOf(data);
  demand(elements.size() == product(content.extents), "number of elements of data");
  for (std::size_t e = 0; e < elements.size(); ++e) demand(elements[e] == content.at(e), "element of data");
}

// ----------------------------------------------------------------------------------------------------------- creators

/// What the function of a failing creator throws.
struct Failure : std::runtime_error {
  Failure() : std::runtime_error("failure of a function") {}
};

enum class Kind { Computing, Nothing, Throwing, Persistent, Discardable };

struct PlainCreator {
  Kind kind = Kind::Computing;
  Content content;
  bool knowsSize = false;
  bool knowsType = false;
  bool isLost = false;            ///< its data have gone for good
  std::set<unsigned int> owners;  ///< fields by number, those that are gone too
  std::shared_ptr<PlainCreator> summand;
  Tresk::CreativeArrayBase* object = nullptr;

  /// Whether the size can be told now. The first answer stands.
  bool tellsSize() {
    knowsSize = knowsSize || object->hasData();
    return knowsSize;
  }
  bool tellsType() const { return knowsType || object->hasData(); }
};
/// Held wherever the creator itself is held, so that both die together.
using PlainCreatorPtr = std::shared_ptr<PlainCreator>;

struct KnownCreator {
  Tresk::CreatorPtr creator;
  PlainCreatorPtr plain;
};

inline bool isSame(const Tresk::CreatorPtr& creator, const PlainCreatorPtr& plain) {
  return creator.get() == (plain ? plain->object : nullptr);
}

// ------------------------------------------------------------------------------------------------------------- fields

struct PlainField {
  unsigned int id = 0;
  PlainCollectionPtr collection;
  std::map<std::uint32_t, PlainCreatorPtr> table;
  std::optional<std::pair<Numbers, std::size_t>> size;  ///< the remembered sum, and of how many entries
  bool isTouched = false;

  PlainCreatorPtr find(unsigned int number) const {
    const auto entry = table.find(number);
    return entry == table.end() ? PlainCreatorPtr() : entry->second;
  }
  PlainFragmentPtr fragmentOf(unsigned int number) const {
    return collection ? collection->find(number) : PlainFragmentPtr();
  }
  unsigned int numberOf(const std::string& name) const {
    return collection ? collection->numberOf(name) : PlainCollection::None;
  }
  /// Whether the fragment is one of this field's collection, or has none where this field has none.
  bool isOwn(const PlainFragmentPtr& fragment) const {
    return !fragment->owner.owner_before(collection) && !collection.owner_before(fragment->owner);
  }
  PlainCreatorPtr find(const PlainFragmentPtr& fragment) const {
    if (table.empty()) return {};
    if (fragment) return isOwn(fragment) ? find(collection ? fragment->number : PlainCollection::None) : nullptr;
    if (table.size() > 1 || fragmentOf(table.begin()->first)) return {};
    return table.begin()->second;
  }
  void needCollection() {
    if (!collection) collection = std::make_shared<PlainCollection>();
  }
  unsigned int getNumber(const PlainFragmentPtr& fragment) {
    if (!collection && fragment) collection = fragment->owner.lock();
    needCollection();
    return collection->getID(fragment);
  }
  void bind(unsigned int number, const PlainCreatorPtr& creator) {
    table[number] = creator;
    isTouched = true;
    if (creator) creator->owners.insert(id);
  }
};
using PlainFieldPtr = std::shared_ptr<PlainField>;

}  // namespace TreskFuzz
