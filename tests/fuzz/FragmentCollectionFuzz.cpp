// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentIDContainer.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/foundation/ReferenceRecord.hpp>

#include <support/BreakpointRecorder.hpp>
#include <support/NameArray.hpp>

#include "PlainFragments.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// \file
/// Sequences of operations on collections and sets of fragments, against maps and vectors.

namespace {

using Tresk::FragmentID;
using Tresk::FragmentIDCollection;
using Tresk::FragmentIDCollectionPtr;
using Tresk::FragmentIDContainer;
using Tresk::FragmentIDPtr;
using TreskFuzz::demand;
using TreskFuzz::isSame;
using TreskFuzz::Known;
using TreskFuzz::onceIn;
using TreskFuzz::oneOf;
using TreskFuzz::PlainCollection;
using TreskFuzz::PlainCollectionPtr;
using TreskFuzz::PlainFragment;
using TreskFuzz::PlainFragmentPtr;
using TreskFuzz::upTo;

const char* const Warning =
    "FragmentIDCollection::getID(): WARNING: accessing fragmentID collection from an external fragment";

/// A set as it should be: the records of its fragments, and the fragments that it holds.
using PlainContainer = std::map<const void*, PlainFragmentPtr, std::less<>>;

class World {
 public:
  explicit World(FuzzedDataProvider& data) : data_(data) {
    pool_.resize(8);
    for (std::size_t i = 0; i < NCollections; ++i) makeEmpty(i);
  }

  void run() {
    for (int nOperations = 0; nOperations < 100 && data_.remaining_bytes() > 0; ++nOperations) {
      operate();
      checkAll();
    }
  }

 private:
  static constexpr std::size_t NCollections = 3;
  static constexpr std::size_t NContainers = 2;

  void operate() {
    const std::size_t i = upTo(data_, NCollections - 1);
    switch (upTo(data_, 15)) {
      case 0:
        makeEmpty(i);
        break;
      case 1:
        makeFixed(i);
        break;
      case 2:
        makeOfNothing();
        break;
      case 3:
      case 4:
      case 5:
        makeFragment(i);
        break;
      case 6:
      case 7:
        getID(i);
        break;
      case 8:
        makeFree();
        break;
      case 9:
        // What is let go here lives on where else it is held.
        oneOf(data_, pool_) = Known();
        break;
      case 10:
        find(i);
        break;
      case 11:
        reserve(i);
        break;
      case 12:
        show(i);
        break;
      case 13:
        walk(i);
        break;
      default:
        useContainers();
    }
  }

  std::string name() { return TreskFuzz::nameFrom(data_, names_); }

  void makeEmpty(std::size_t i) {
    collections_[i] = FragmentIDCollectionPtr(new FragmentIDCollection);
    plain_[i] = std::make_shared<PlainCollection>();
    plain_[i]->meet(*collections_[i]);
  }

  void makeFixed(std::size_t i) {
    const PlainCollectionPtr plain = std::make_shared<PlainCollection>();
    unsigned long long nNames = 1;
    for (std::size_t rank = 1 + upTo(data_, 3); rank > 0; --rank) {
      plain->shape.push_back(upTo(data_, 3));
      nNames *= plain->shape.back();
    }
    std::vector<std::string> names(nNames);
    for (std::string& each : names) plain->append(each = name());
    const Tresk::DynamicSize shape(static_cast<int>(plain->shape.size()), plain->shape.data());
    collections_[i] = FragmentIDCollectionPtr(new FragmentIDCollection(TreskTest::makeNames(shape, names)));
    plain_[i] = plain;
    plain->meet(*collections_[i]);
  }

  /// Without names there is nothing but an end.
  void makeOfNothing() {
    const TreskTest::NameArrayPtr names(data_.ConsumeBool() ? new TreskTest::NameArray({2}) : nullptr);
    const FragmentIDCollectionPtr collection(new FragmentIDCollection(names));
  }

  void makeFragment(std::size_t i) {
    const std::string given = name();
    PlainCollection& plain = *plain_[i];
    const unsigned int number = plain.make(given);
    FragmentIDPtr& slot = collections_[i]->makeFragmentID(given);
    plain.meet(*collections_[i]);
    demand(&slot == &collections_[i]->getFragmentIDs()[number], "slot that was made");
    if (data_.ConsumeBool()) {
      oneOf(data_, pool_) = Known{slot, plain.slots[number]};
    } else if (onceIn(data_, 8)) {
      // The slot is open to the caller, who may put another fragment there, or none.
      const Known& other = oneOf(data_, pool_);
      slot = other.fragment;
      plain.slots[number] = other.plain;
    }
  }

  void getID(std::size_t i) {
    // A copy, and at times the slot itself.
    const bool isSlot = onceIn(data_, 4) && !plain_[i]->slots.empty();
    const std::size_t number = isSlot ? upTo(data_, plain_[i]->slots.size() - 1) : 0;
    const Known given = isSlot ? Known{{}, plain_[i]->slots[number]} : oneOf(data_, pool_);
    const bool isForeign = plain_[i]->isForeign(given.plain);
    const unsigned int expected = plain_[i]->getID(given.plain);
    const TreskTest::BreakpointRecorder recorder;
    demand(collections_[i]->getID(isSlot ? collections_[i]->getFragmentIDs()[number] : given.fragment) == expected,
           "number of a fragment that is registered");
    demand(recorder.messages() == (isForeign ? std::vector<std::string>{Warning} : std::vector<std::string>()),
           "warning of a foreign fragment");
    plain_[i]->meet(*collections_[i]);
    // It changes nothing but at its first time.
    demand(plain_[i]->getID(given.plain) == expected, "number of a fragment in the reference");
    demand(collections_[i]->getID(given.plain ? poolPointer(given) : FragmentIDPtr()) == expected,
           "number of a fragment at the second time");
  }
  static FragmentIDPtr poolPointer(const Known& known) {
    return known.fragment ? known.fragment : FragmentIDPtr(const_cast<FragmentID*>(known.plain->object));
  }

  void makeFree() {
    const std::string given = name();
    Known& place = oneOf(data_, pool_);
    place.fragment =
        data_.ConsumeBool() ? containers_[0].createFragmentID(given) : FragmentIDPtr(new FragmentID(given));
    place.plain = std::make_shared<PlainFragment>(PlainFragment{given, {}, 0, place.fragment.get()});
  }

  void find(std::size_t i) {
    Known& place = oneOf(data_, pool_);
    if (data_.ConsumeBool()) {
      const std::string given = name();
      place = Known{collections_[i]->findFragmentIDByName(given), plain_[i]->findByName(given)};
    } else {
      const auto number = static_cast<unsigned int>(TreskFuzz::number(data_, 20));
      place = Known{collections_[i]->findFragmentID(number), plain_[i]->find(number)};
    }
    demand(isSame(place.fragment, place.plain), "fragment that was found");
    // An empty slot may hold a pointer that had an object once.
    if (!place.plain) place.fragment.reset();
  }

  void reserve(std::size_t i) {
    if (data_.ConsumeBool()) {
      collections_[i]->reserve(upTo(data_, 300));
      return;
    }
    bool isRefused = false;
    try {
      collections_[i]->reserve(1ULL << 62 | data_.ConsumeIntegral<unsigned long long>());
    } catch (const std::length_error&) {
      isRefused = true;
    }
    demand(isRefused, "room for more fragments than there is");
  }

  /// The fragments as an array, which stays as it is while the collection grows.
  void show(std::size_t i) {
    const PlainCollection& plain = *plain_[i];
    const auto array = collections_[i]->getFragmentIDArray();
    const bool isShown = !plain.shape.empty() && plain.shape.size() <= 3;
    demand((array.getRecord() != nullptr) == isShown, "array of fragments");
    if (!isShown) return;
    const std::vector<PlainFragmentPtr> shown = plain.slots;
    unsigned long long nElements = 1;
    for (const unsigned long long extent : plain.shape) nElements *= extent;
    for (std::size_t n = upTo(data_, 5); n > 0; --n) {
      const std::string given = name();
      plain_[i]->make(given);
      collections_[i]->makeFragmentID(given);
      plain_[i]->meet(*collections_[i]);
    }
    demand(!(array->getSize() != collections_[i]->getShape()), "shape of an array of fragments");
    demand(array->nElements() == nElements && array->getIterator().nElements() == nElements, "elements of an array");
    demand(array->getHyperslab().nReachableElements() >= nElements, "room of an array of fragments");
    for (unsigned long long e = 0; e < nElements; ++e)
      demand(isSame(array->getIterator().getElement(e), shown[e]), "element of an array of fragments");
  }

  /// Each name once, until the function refuses.
  void walk(std::size_t i) {
    const PlainCollection& plain = *plain_[i];
    const std::size_t nWanted = upTo(data_, plain.index.size());
    std::map<std::string, unsigned int> visited;
    const unsigned int nTrue =
        collections_[i]->iterate([&](const FragmentIDPtr& fragment, int number, const std::string& each) {
          demand(visited.size() <= nWanted, "call after a refusal");
          demand(visited.emplace(each, number).second, "name that is visited twice");
          demand(isSame(fragment, plain.find(static_cast<unsigned int>(number))), "fragment that is visited");
          return visited.size() <= nWanted;
        });
    demand(nTrue == nWanted, "number of visits");
    demand(visited.size() == std::min(nWanted + 1, plain.index.size()), "number of calls");
    for (const auto& [each, number] : visited) demand(plain.numberOf(each) == number, "number that is visited");
    bool isRefused = false;
    try {
      demand(collections_[i]->iterate({}) == 0, "walk without a function");
    } catch (const std::bad_function_call&) {
      isRefused = true;
    }
    demand(isRefused == !plain.index.empty(), "function that is missing");
  }

  void useContainers() {
    const std::size_t to = upTo(data_, NContainers - 1);
    const std::size_t from = upTo(data_, NContainers - 1);
    switch (upTo(data_, 4)) {
      case 0:
        containers_[to] = containers_[from];
        plainContainers_[to] = PlainContainer(plainContainers_[from]);
        break;
      case 1: {
        const FragmentIDContainer copy(containers_[from]);
        check(copy, plainContainers_[from]);
        break;
      }
      case 2:
        containers_[to] = FragmentIDContainer();
        plainContainers_[to].clear();
        break;
      default: {
        const Known& known = oneOf(data_, pool_);
        demand(containers_[to].addFragmentID(known.fragment) ==
                   plainContainers_[to].emplace(known.fragment.getRecord(), known.plain).second,
               "fragment that enters a set");
      }
    }
  }
  static void check(const FragmentIDContainer& container, const PlainContainer& plain) {
    demand(container.nFragments() == plain.size(), "number of fragments in a set");
    const FragmentIDPtr first = container.getFirst();
    demand(first.getRecord() == (plain.empty() ? nullptr : plain.begin()->first), "first fragment of a set");
    demand(isSame(first, plain.empty() ? PlainFragmentPtr() : plain.begin()->second), "object of a first fragment");
  }

  void checkAll() {
    for (const Known& known : pool_)
      if (known.plain) TreskFuzz::check(known);
    for (std::size_t i = 0; i < NCollections; ++i) TreskFuzz::check(*collections_[i], *plain_[i], names_, pool_);
    for (std::size_t i = 0; i < NContainers; ++i) check(containers_[i], plainContainers_[i]);
  }

  FuzzedDataProvider& data_;
  std::vector<std::string> names_{"", "a", "b", "c", std::string("a\0", 2)};
  FragmentIDCollectionPtr collections_[NCollections];
  PlainCollectionPtr plain_[NCollections];
  std::vector<Known> pool_;
  FragmentIDContainer containers_[NContainers];
  PlainContainer plainContainers_[NContainers];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t n) {
  FuzzedDataProvider data(bytes, n);
  const long long nRecords = Ostrel::ReferenceRecord::nLive();
  World(data).run();
  demand(Ostrel::ReferenceRecord::nLive() == nRecords, "objects that stay behind");
  return 0;
}
