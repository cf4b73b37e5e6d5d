// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Auto.hpp>
#include <tresk/foundation/BoundingBox.hpp>
#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/Chunks.hpp>
#include <tresk/foundation/Diagnostics.hpp>
#include <tresk/foundation/Geometry.hpp>
#include <tresk/foundation/Intercube.hpp>
#include <tresk/foundation/Vec3Pack.hpp>

#include <support/CreatorDoubles.hpp>

#include <gtest/gtest.h>

#include "EachAllocation.hpp"

#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace {

using namespace Ostrel;
using Quorvel::FixedArray;
using TreskTest::CountingData;
using TreskTest::DataPtr;
using TreskTest::EachAllocation;
using TreskTest::FailingAllocation;

/// A text that does not fit into a string object.
const std::string longText = "a text that is too long to stand in the string object itself";

class Named : public Interface<Named> {
 public:
  explicit Named(const std::string& text) : name(text) {}
  std::string name;
};
using NamedPtr = StrongPtr<Named, InterfaceBase>;
struct Value {
  std::string text = longText;
};
using ChunkPtr = StrongPtr<ChunkBase, ChunkBase>;
using DoublesPtr = StrongPtr<TypedChunkBase<double>, ChunkBase>;

TEST(FoundationAllocationTest, ObjectsThatFindNoMemoryLeaveNothingBehind) {
  EachAllocation each;
  each.makes(
      "counted object", [] { return DataPtr(new CountingData(3)); }, [](const DataPtr& p) { return p->value == 3; });
  each.makes(
      "interface", [] { return NamedPtr(new Named(longText)); }, [](const NamedPtr& p) { return p->name == longText; });
  each.makes(
      "interface by value",
      [] { return StrongPtr<InterfaceData<Value>, InterfaceBase>(new InterfaceData<Value>(Value())); },
      [](const auto& p) { return p->text == longText; });
  each.makes(
      "iteration parameter",
      [] {
        return StrongPtr<InterfaceIterationParameter, InterfaceIterationParameter>(new InterfaceIterationParameter);
      },
      [](const auto& p) { return p.isValid(); });
  each.makes(
      "object of static storage", [] { return std::make_unique<Auto<CountingData>>(5); },
      [](const auto& p) { return p->value == 5; });
  each.makes(
      "provenance", [] { return StrongPtr<Provenance, Provenance>(new Provenance(longText)); },
      [](const auto& p) { return p->getPath('/') == longText; });
  each.makes(
      "bounding box",
      [] {
        using Point = Quorvel::PhysicalSpace::point;
        return StrongPtr<Quorvel::BoundingBox, InterfaceBase>(
            new Quorvel::BoundingBox(Point(0.0, 1.0, 2.0), Point(3.0, 4.0, 5.0)));
      },
      [](const auto& p) { return (*p)[1][2] == 5; });
  each.makes(
      "policy", [] { return StrongPtr<CostAwarePolicy, CachePolicy>(new CostAwarePolicy); },
      [](const auto& p) { return p->worth({.nBytes = 4, .seconds = 2}) == 0.5; });
  EXPECT_EQ(CountingData::nAlive.load(), 0);
}

TEST(FoundationAllocationTest, PointersNeedNoMemory) {
  EachAllocation each;
  const DataPtr data(new CountingData(1));
  StrongPtr<Cacheable, Cacheable> plain = data;
  const WeakPtr<CountingData, Cacheable> weak(data);
  each.needsNone("copies", [&] {
    const DataPtr copy = data;
    const DataPtr cast(plain);
    const DataPtr upgraded(weak);
    const WeakPtr<Cacheable, Cacheable> self = data->getSelf();
    const Pin<Cacheable> pin(weak);
    DataPtr assigned;
    assigned = copy;
    return cast == upgraded && self == data && pin && assigned.take()->value == 1;
  });
  each.needsNone("letting go", [&] {
    DataPtr copy = data;
    DataPtr former = copy.exchangeFor(DataPtr());
    return former.forgetIfSole() == Forgetting::IsShared && former.resetUnlessLast();
  });
  each.needsNone("stamps", [] { return Ageable().touch() > Ageable::Ooooold; });
}

TEST(FoundationAllocationTest, ReportsOfPointersAreMadeWithoutMemory) {
  EachAllocation each;
  Ostrel::SpeakPtr* const former = Ostrel::SpeakPtr::setSpeaker(nullptr);
  testing::internal::CaptureStderr();
  each.copes("report", [] {
    Ostrel::SpeakPtr::theSpeaker()->InvalidWeakPtr(typeid(void), typeid(std::string), typeid(DataPtr), typeid(float), 3,
                                                   -1, nullptr, nullptr, 77);
    return true;
  });
  const std::string reports = testing::internal::GetCapturedStderr();
  Ostrel::SpeakPtr::setSpeaker(former);
  const auto count = [&reports](const std::string& text) {
    int n = 0;
    for (std::size_t at = reports.find(text); at != std::string::npos; at = reports.find(text, at + 1)) ++n;
    return n;
  };
  EXPECT_EQ(count("pointer 77 of type "), 3);
  // The readable name where there is memory for it, and else the one of the compiler.
  EXPECT_EQ(count(Ostrel::Typename(typeid(DataPtr))), 1);
  EXPECT_EQ(count(typeid(DataPtr).name()), 2);
}

TEST(FoundationAllocationTest, TextsAreThereOrThrow) {
  EachAllocation each;
  const StrongPtr<Provenance, Provenance> provenance(new Provenance("a place/" + longText));
  each.makes(
      "path", [&] { return provenance->getPath('.'); },
      [](const std::string& text) { return text == "a place." + longText; });
  each.makes(
      "age", [] { return Ageable(1234567890123456789).str(); },
      [](const std::string& text) { return text == "1234567890123456789"; });
  each.makes(
      "name of a type", [] { return Typename(typeid(FixedArray<double, 3>)); },
      [](const std::string& text) { return text == "Quorvel::FixedArray<double, 3>"; });
  each.needsNone("bytes", [] { return toByteText(1536ULL << 20U) == "1.5 GiB"; });
  each.changes(
      "line", [] { return StrongPtr<StringList, StringList>(new StringList); },
      [](const auto& list) { list->addLine(longText); }, [](const auto& list) { return list->nLines() == 0; },
      [](const auto& list) { return list->nLines() == 1 && list->getLine(0) == longText; });
  each.changes(
      "description", [] { return DataPtr(new CountingData); },
      [](const DataPtr& data) { data->setDescription(longText); },
      [](const DataPtr& data) { return data->getDescription().empty(); },
      [](const DataPtr& data) { return data->getDescription() == longText; });
}

TEST(FoundationAllocationTest, ChunksCountTheirBytesOnlyWhenTheyAreThere) {
  EachAllocation each;
  const long long nBytesBefore = ChunkBase::TotalMemsize;
  {
    DoublesPtr chunk(new Chunk<double>(5));
    chunk->vector()[4] = 7;
    const long long nBytes = ChunkBase::TotalMemsize;
    const auto areCounted = [&](long long nMade) { return ChunkBase::TotalMemsize == nBytes + 8 * nMade; };
    each.makes(
        "chunk", [] { return ChunkPtr(new Chunk<double>(3)); },
        [&](const ChunkPtr& p) { return p->size() == 3 && areCounted(3); });
    each.makes(
        "reserved chunk", [] { return ChunkPtr(new Chunk<double>(3, true)); },
        [&](const ChunkPtr& p) { return p->size() == 0 && areCounted(0); });
    each.makes(
        "filled chunk",
        [] {
          return ChunkPtr(new Chunk<double>(2, [](std::vector<double>& elements) { elements.assign({1.0, 2.0}); }));
        },
        [&](const ChunkPtr& p) { return p->size() == 2 && areCounted(2); });
    each.makes(
        "new chunk", [&] { return chunk->newChunk(4, false); },
        [&](const ChunkPtr& p) { return p->size() == 4 && areCounted(4); });
    each.makes(
        "new typed chunk", [&] { return chunk->newTypedChunk(4, false); },
        [&](const DoublesPtr& p) { return p->vector().size() == 4 && areCounted(4); });
    each.makes(
        "clone", [&] { return DoublesPtr(chunk->clone()); },
        [&](const DoublesPtr& p) { return p->vector().at(4) == 7 && areCounted(5); });
    each.makes(
        "chunk of texts",
        [] {
          return StrongPtr<TypedChunkBase<std::string>, ChunkBase>(
              new Chunk<std::string>(2, [](std::vector<std::string>& texts) {
                texts.push_back(longText);
                texts.push_back(longText);
              }));
        },
        [](const auto& p) { return p->vector().at(1) == longText; });
  }
  EXPECT_EQ(ChunkBase::TotalMemsize, nBytesBefore);
}

TEST(FoundationAllocationTest, VectorsArePackedOrNot) {
  EachAllocation each;
  const Quorvel::Vec3Pack_10_11_11::Vectors vectors(new Chunk<FixedArray<double, 3>>(2));
  vectors->vector().assign(2, FixedArray<double, 3>(1, 1, 1));
  const FixedArray<double, 3> lower(0, 0, 0);
  const FixedArray<double, 3> upper(1, 1, 1);
  each.makes(
      "packing", [&] { return Quorvel::Vec3Pack_10_11_11(vectors, lower, upper).getPacked(); },
      [](const auto& packed) { return packed->vector() == std::vector<unsigned int>(2, ~0U); });
}

TEST(FoundationAllocationTest, InterfacesAreAddedOrNot) {
  EachAllocation each;
  struct Bag {
    std::unique_ptr<Intercube> cube = std::make_unique<Intercube>();
    NamedPtr named{new Named(longText)};
    StrongPtr<InterfaceData<Value>, InterfaceBase> value{new InterfaceData<Value>};
  };
  const auto add = [](const Bag& bag) { bag.cube->addInterface(bag.named); };
  const auto has = [](const Bag& bag) { return findInterface<Named>(*bag.cube) == bag.named; };
  const auto hasNot = [](const Bag& bag) { return !findInterface<Named>(*bag.cube); };
  each.changes(
      "first interface", [] { return Bag(); }, add, hasNot, has);
  each.changes(
      "second interface",
      [] {
        Bag bag;
        bag.cube->addInterface(bag.value);
        return bag;
      },
      add, [&](const Bag& bag) { return hasNot(bag) && findInterface<InterfaceData<Value>>(*bag.cube) == bag.value; },
      [&](const Bag& bag) { return has(bag) && findInterface<InterfaceData<Value>>(*bag.cube) == bag.value; });
  const Bag bag;
  add(bag);
  const NamedPtr other(new Named("other"));
  each.needsNone("interface in place of another", [&] {
    bag.cube->addInterface(other);
    return findInterface<Named>(*bag.cube) == other;
  });
  each.needsNone("lookup of none", [&] { return !findInterface<InterfaceData<Value>>(*bag.cube); });
}

class NamesForSaving : public SaveInterfaceCreator<Value> {
 public:
  long long createInterface(Value* value) override {
    value->text += '!';
    return 1;
  }
};
using SaverPtr = StrongPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>;

TEST(FoundationAllocationTest, SaveInterfaceCreatorsAreRegisteredOrNot) {
  EachAllocation each;
  struct Registration {
    SaverPtr saver{new NamesForSaving};
    ~Registration() { SaveRegistryBase::unregisterCreator(typeid(Value), saver); }
  };
  each.changes(
      "traversal",
      [] {
        auto r = std::make_unique<Registration>();
        SaveRegistryBase::registerCreator(typeid(Value), r->saver);
        return std::make_pair(std::move(r), longText);
      },
      [](auto& pair) {
        Value value{std::string()};
        value.text.reserve(100);
        SaveRegistry<Value>(&value).traverseCreators(typeid(Value));
        pair.second = std::move(value.text);
      },
      [](const auto& pair) { return pair.second == longText; }, [](const auto& pair) { return pair.second == "!"; });
}

template <std::size_t>
struct Tag {};

TEST(FoundationAllocationTest, FirstRegistrationForATypeIsMadeOrNot) {
  // The table keeps the entry of a type for good: each attempt has a type of its own.
  static constexpr std::size_t nTypes = 64;
  static std::size_t nUsed = 0;
  if (nUsed + 4 > nTypes) GTEST_SKIP() << "all types have been used up by repetitions";
  const auto types = [&]<std::size_t... I>(std::index_sequence<I...>) {
    return std::array<const std::type_info*, nTypes>{&typeid(Tag<I>)...};
  }
  (std::make_index_sequence<nTypes>());
  const auto nCalls = [](const std::type_info& type) {
    Value value;
    SaveRegistry<Value>(&value).traverseCreators(type);
    return value.text.size() - longText.size();
  };
  int nThrown = 0;
  bool hasStruck = true;
  for (long long n = 0; hasStruck; ++n) {
    const std::type_info& type = *types[nUsed++];
    const SaverPtr saver(new NamesForSaving);
    bool isRegistered = false;
    {
      const FailingAllocation failing(n, FailingAllocation::Kind::FromThereOn);
      try {
        isRegistered = SaveRegistryBase::registerCreator(type, saver);
      } catch (const std::bad_alloc&) {
        FailingAllocation::end();
        ++nThrown;
      }
      FailingAllocation::end();
      hasStruck = failing.hasStruck();
    }
    EXPECT_EQ(isRegistered, !hasStruck);
    EXPECT_EQ(nCalls(type), isRegistered ? 1U : 0U);
    EXPECT_NE(SaveRegistryBase::registerCreator(type, saver), isRegistered);
    EXPECT_EQ(nCalls(type), 1U);
    EXPECT_TRUE(SaveRegistryBase::unregisterCreator(type, saver));
  }
  EXPECT_GE(nThrown, 2) << "an entry, and its place in it";
}

class SomeCreator : public TreskTest::ForgetfulCreator {
 public:
  using TreskTest::ForgetfulCreator::ForgetfulCreator;
};
using SomeCreatorPtr = StrongPtr<SomeCreator, Creature>;

TEST(FoundationAllocationTest, CreatorsOfTheFoundationAreThereOrNot) {
  EachAllocation each;
  const TreskTest::CachePtr cache(new Cache);
  const DataPtr data(new CountingData(4));
  each.makes(
      "empty creator", [&] { return SomeCreatorPtr(new SomeCreator(cache)); },
      [&](const SomeCreatorPtr& p) { return !p->hasData() && cache->nCreatures() == 1; });
  each.makes(
      "creator of data", [&] { return SomeCreatorPtr(new SomeCreator(DataPtr(new CountingData(4)), cache)); },
      [&](const SomeCreatorPtr& p) { return p->create(false)->value == 4 && cache->nCacheables() == 1; });
  struct Producing {
    explicit Producing(const TreskTest::CachePtr& itsCache) : creator(new SomeCreator(itsCache)) {
      TreskTest::attachProducer(*creator, [](const auto&) { return DataPtr(new CountingData(8)); });
    }
    SomeCreatorPtr creator;
    DataPtr made;
  };
  each.changes(
      "production", [&] { return Producing(cache); }, [](Producing& p) { p.made = p.creator->create(false); },
      [&](const Producing& p) { return !p.creator->hasData() && cache->nCacheables() == 0; },
      [&](const Producing& p) { return p.made->value == 8 && p.made->getCreator() == p.creator; });
  each.changes(
      "production on request", [&] { return Producing(cache); }, [](Producing& p) { p.made = p.creator->produce(); },
      [&](const Producing& p) { return !p.creator->hasData(); }, [](const Producing& p) { return p.made->value == 8; });
  each.changes(
      "provenance", [&] { return Producing(cache); },
      [](const Producing& p) { p.creator->addProvenance(StrongPtr<Provenance, Provenance>(new Provenance(longText))); },
      [](const Producing& p) { return p.creator->getProvenances().empty(); },
      [](const Producing& p) {
        const auto all = p.creator->getProvenances();
        return all.size() == 1 && all[0]->getPath('/') == longText;
      });
  const Producing named(cache);
  named.creator->addProvenance(StrongPtr<Provenance, Provenance>(new Provenance(longText)));
  each.makes(
      "history", [&] { return named.creator->getProvenances(); }, [](const auto& all) { return all.size() == 1; });
  const TreskTest::CreatorPtr<TreskTest::KeepingCreator> keeping(new TreskTest::KeepingCreator(cache));
  const auto producer = TreskTest::attachProducer(*keeping, [](const auto&) { return DataPtr(new CountingData(8)); });
  producer->name = longText;
  each.makes(
      "name of the producer", [&] { return keeping->producerName(); },
      [](const std::string& name) { return name == longText; });
  EXPECT_EQ(cache->getStatistics().nInFlightBytes, 0U);
}

TEST(FoundationAllocationTest, HeldDataAreReadUsedAndReleasedWithoutMemory) {
  EachAllocation each;
  const TreskTest::CachePtr cache(new Cache);
  const SomeCreatorPtr creator(new SomeCreator(cache));
  const auto tie = [&] {
    const DataPtr data(new CountingData(2));
    creator->held() = data;
    data->setCreator(creator);
  };
  tie();
  each.needsNone("access", [&] {
    for (int i = 0; i < 200; ++i)
      if (creator->create(false)->value != 2) return false;
    return creator->hasData() && creator->getData()->getUseCount() >= 200;
  });
  each.needsNone("questions", [&] { return creator->canProduce() == false && !creator->isUnderCreation(); });
  each.needsNone("listing again", [&] {
    creator->getData()->setCreator(creator);
    creator->enableCaching(true);
    creator->enableCaching(false);
    return cache->nCacheables() == 1;
  });
  each.needsNone("release", [&] { return creator->release() == Creature::Released; });
  tie();
  each.needsNone("taking", [&] {
    const DataPtr taken = creator->takeData();
    creator->held() = taken;
    return taken->value == 2;
  });
  each.needsNone("eviction", [&] {
    cache->trim(1);
    return !creator->hasData();
  });
}

}  // namespace
