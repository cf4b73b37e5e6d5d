// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Harness.hpp"

#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>

#include <algorithm>
#include <random>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace TreskBench {
namespace {

using namespace Tresk;

constexpr unsigned int Fragments = 100000;

const std::vector<std::string>& names() {
  static const std::vector<std::string> all = [] {
    std::vector<std::string> made;
    for (unsigned int i = 0; i < Fragments; ++i) made.push_back("block " + std::to_string(i));
    return made;
  }();
  return all;
}

/// Creators that belong to no field yet.
std::vector<CreatorPtr> makeCreators() {
  std::vector<CreatorPtr> creators;
  for (unsigned int i = 0; i < Fragments; ++i)
    creators.push_back(CreatorPtr(new FunctionalCreator(nullptr, false, CacheWeakPtr())));
  return creators;
}

/// Numbers of fragments in random order.
const std::vector<unsigned int>& shuffled() {
  static const std::vector<unsigned int> order = [] {
    std::vector<unsigned int> made(Fragments);
    for (unsigned int i = 0; i < Fragments; ++i) made[i] = i;
    std::shuffle(made.begin(), made.end(), std::mt19937(7));
    return made;
  }();
  return order;
}

/// The raw twin of a field: the same lock, hash, tables, objects and pointers, put together by hand.
struct RawField : CreatorContainer {
  std::unordered_map<std::string, std::uint32_t> index;
  std::vector<FragmentIDPtr> slots;
  FragmentMutex mutex;
  std::vector<std::uint32_t> keys;
  std::vector<CreatorPtr> values;
  Ostrel::Ageable age;

  void bind(const CreatorPtr& creator, const std::string& name) {
    const auto number = static_cast<std::uint32_t>(slots.size());
    if (index.find(name) != index.end()) return;
    slots.push_back(FragmentIDPtr(new FragmentID(name)));
    index.emplace(name, number);
    {
      const SharedFragmentLock lock(mutex);
      const auto place = std::lower_bound(keys.begin(), keys.end(), number);
      if (place != keys.end() && *place == number) return;
    }
    {
      const ExclusiveFragmentLock lock(mutex);
      keys.push_back(number);
      values.push_back(creator);
    }
    age.touch();
    creator->addOwner(getSelf());
    creator->forEachOwner(&age);
  }
  CreatorPtr find(std::uint32_t number) {
    const SharedFragmentLock lock(mutex);
    const auto place = std::lower_bound(keys.begin(), keys.end(), number);
    return place != keys.end() && *place == number ? values[static_cast<std::size_t>(place - keys.begin())]
                                                   : CreatorPtr();
  }
  CreatorPtr find(const std::string& name) {
    const auto known = index.find(name);
    return known == index.end() ? CreatorPtr() : find(known->second);
  }
};
using RawFieldPtr = Ostrel::StrongPtr<RawField, CreatorContainer>;

template <class Holder, class Bind>
void build(benchmark::State& state, const Bind& bind) {
  for (auto _ : state) {
    state.PauseTiming();
    const std::vector<CreatorPtr> creators = makeCreators();
    auto* const field = new Holder(new typename Holder::ElementType);
    state.ResumeTiming();
    for (unsigned int i = 0; i < Fragments; ++i) bind(**field, creators[i], names()[i]);
    state.PauseTiming();
    delete field;
    state.ResumeTiming();
  }
}

const FieldPtr& filledField() {
  static const FieldPtr field = [] {
    FieldPtr made(new Field);
    const std::vector<CreatorPtr> creators = makeCreators();
    for (unsigned int i = 0; i < Fragments; ++i)
      made->setCreator(creators[i], FragmentIDPtr(made->makeFragmentID(names()[i])));
    return made;
  }();
  return field;
}

const RawFieldPtr& filledRawField() {
  static const RawFieldPtr field = [] {
    RawFieldPtr made(new RawField);
    const std::vector<CreatorPtr> creators = makeCreators();
    for (unsigned int i = 0; i < Fragments; ++i) made->bind(creators[i], names()[i]);
    return made;
  }();
  return field;
}

/// One random lookup an iteration.
template <class Find>
void lookUp(benchmark::State& state, const Find& find) {
  const std::vector<unsigned int>& order = shuffled();
  std::size_t next = 0;
  for (auto _ : state) {
    const CreatorPtr creator = find(order[next]);
    benchmark::DoNotOptimize(&creator);
    next = next + 1 == order.size() ? 0 : next + 1;
  }
}

const Rows rows([] {
  addRow(
      "field/build 100k", 0,
      [](benchmark::State& state) {
        build<FieldPtr>(state, [](Field& field, const CreatorPtr& creator, const std::string& name) {
          field.setCreator(creator, FragmentIDPtr(field.makeFragmentID(name)));
        });
      },
      [](benchmark::State& state) {
        build<RawFieldPtr>(state, [](RawField& field, const CreatorPtr& creator, const std::string& name) {
          field.bind(creator, name);
        });
      });
  addRow(
      "field/by number 100k", 0,
      [](benchmark::State& state) {
        const Field& field = *filledField();
        lookUp(state, [&field](unsigned int i) { return field.getCreatorByNumericalID(i); });
      },
      [](benchmark::State& state) {
        RawField& field = *filledRawField();
        lookUp(state, [&field](unsigned int i) { return field.find(i); });
      });
  addRow(
      "field/by name 100k", 0,
      [](benchmark::State& state) {
        const Field& field = *filledField();
        lookUp(state, [&field](unsigned int i) { return field.getCreatorByName(names()[i]); });
      },
      [](benchmark::State& state) {
        RawField& field = *filledRawField();
        lookUp(state, [&field](unsigned int i) { return field.find(names()[i]); });
      });
});

}  // namespace
}  // namespace TreskBench
