// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/Chunks.hpp>
#include <tresk/foundation/Diagnostics.hpp>
#include <tresk/foundation/Geometry.hpp>
#include <tresk/foundation/Intercube.hpp>
#include <tresk/foundation/Pointers.hpp>
#include <tresk/foundation/TraceWriter.hpp>

#include <input/BadPointers.hpp>
#include <support/BreakpointRecorder.hpp>
#include <support/CreatorDoubles.hpp>
#include <support/PointerClasses.hpp>
#include <support/ProfilerRecorder.hpp>
#include <support/RecordBalance.hpp>
#include <support/TraceFile.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::Ageable;
using Ostrel::Cache;
using Ostrel::ChunkBase;
using Ostrel::Creature;
using Ostrel::Intercube;
using Ostrel::InterfaceBase;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using TreskTest::CountingCreature;
using TreskTest::CountingData;
using TreskTest::DataPtr;
using TreskTest::ForeignData;
using TreskTest::ForgetfulCreator;
using TreskTest::Greatest;
using TreskTest::KeepingCreator;
using TreskTest::killed;
using TreskTest::Root;
using TreskTest::Shifted;
using TreskTest::textOf;

using FoundationInput = TreskTest::RecordBalanceTest;
using RootPtr = StrongPtr<Root, Root>;
using RootWeakPtr = WeakPtr<Root, Root>;
using ShiftedPtr = StrongPtr<Shifted, Root>;
using CachePtr = TreskTest::CachePtr;
using CreaturePtr = StrongPtr<Creature, Creature>;
using InterfacePtr = StrongPtr<InterfaceBase, InterfaceBase>;
using Triple = Quorvel::FixedArray<double, 3>;

RootPtr makeRoot() { return RootPtr(new Root); }
CachePtr makeCache() { return CachePtr(new Cache); }
CreaturePtr makeCreature(const CachePtr& cache = {}) { return CreaturePtr(new CountingCreature(cache)); }
DataPtr makeData() { return DataPtr(new CountingData); }

// --------------------------------------------------------------------------------------------------------- pointers

template <class Pointer>
void expectNoObject(const Pointer& pointer) {
  EXPECT_FALSE(pointer.isValid());
  EXPECT_FALSE(static_cast<bool>(pointer));
  EXPECT_TRUE(!pointer);
  EXPECT_EQ(pointer.get(), nullptr);
}

TEST_F(FoundationInput, PointersToNothing) {
  Root* const none = nullptr;
  for (const RootPtr& empty : {RootPtr(), RootPtr(none), RootPtr(RootWeakPtr()), RootPtr(RootWeakPtr(none))}) {
    expectNoObject(empty);
    expectNoObject(RootWeakPtr(empty));
    EXPECT_EQ(empty.getRecord(), nullptr);
    EXPECT_EQ(empty.strongCount(), 0);
    EXPECT_EQ(empty.weakCount(), 0);
    EXPECT_EQ(empty, RootPtr());
    EXPECT_FALSE(Ostrel::Pin<Root>(empty));
  }
}

TEST_F(FoundationInput, PointersToTheDead) {
  const RootPtr dead = killed(makeRoot());
  expectNoObject(dead);
  expectNoObject(RootPtr(RootWeakPtr(dead)));
  expectNoObject(ShiftedPtr(dead));
  EXPECT_LT(dead.strongCount(), 0);
  EXPECT_GT(dead.weakCount(), 0);
  EXPECT_NE(dead, RootPtr());  // it goes on serving as a key
  EXPECT_EQ(dead, RootPtr(dead));
  EXPECT_FALSE(Ostrel::Pin<Root>(dead));
}

TEST_F(FoundationInput, PointersToAnotherClass) {
  const RootPtr root = makeRoot();
  const ShiftedPtr foreign(root);
  expectNoObject(foreign);
  expectNoObject(WeakPtr<Shifted, Root>(root));
  EXPECT_EQ(root.strongCount(), 2);  // it keeps the object alive all the same
  EXPECT_TRUE(RootPtr(foreign));
}

TEST_F(FoundationInput, GivingUpNothing) {
  for (const RootPtr& none : {RootPtr(), killed(makeRoot())}) {
    RootPtr pointer = none;
    EXPECT_EQ(pointer.forgetIfSole(), Ostrel::Forgetting::WasInvalid);
    EXPECT_FALSE(pointer.take());
    pointer.reset();
    pointer.fill(none);
    EXPECT_FALSE(pointer.holdsObject());
    EXPECT_FALSE(pointer.exchangeFor(none));
    EXPECT_TRUE(pointer.resetUnlessLast());
    EXPECT_EQ(pointer.getRecord(), nullptr);
  }
  ShiftedPtr foreign(makeRoot());
  EXPECT_EQ(foreign.forgetIfSole(), Ostrel::Forgetting::WasInvalid);
  EXPECT_FALSE(foreign.resetUnlessLast());
  foreign.reset();
  EXPECT_EQ(Root::nAlive, 0);
}

TEST_F(FoundationInput, CountedObjectWithoutItself) {
  class Nobody : public Ostrel::ReferenceBase<Nobody> {
   public:
    Nobody() : Ostrel::ReferenceBase<Nobody>(nullptr) {}
  };
  EXPECT_FALSE(textOf<Ostrel::MemoryException>([] { const Nobody nobody; }).empty());
}

TEST_F(FoundationInput, SetSpeaker) {
  Ostrel::SpeakPtr* const former = Ostrel::SpeakPtr::setSpeaker(nullptr);
  EXPECT_NE(former, nullptr);
  EXPECT_NE(Ostrel::SpeakPtr::theSpeaker(), nullptr);
  EXPECT_EQ(Ostrel::SpeakPtr::setSpeaker(former), former);
}

// ----------------------------------------------------------------------------------------------------------- chunks

TEST_F(FoundationInput, ChunkConstruction) {
  using Chunk = Ostrel::Chunk<double>;
  const StrongPtr<Chunk, ChunkBase> empty(new Chunk(0));
  EXPECT_EQ(static_cast<ChunkBase&>(*empty).data(), nullptr);
  EXPECT_EQ(empty->clone()->size(), 0U);
  EXPECT_EQ(empty->newChunk(0, false)->size(), 0U);
  const char* const tooLarge = "cannot create std::vector larger than max_size()";
  EXPECT_EQ(textOf<std::length_error>([] { Chunk chunk(Greatest); }), tooLarge);
  EXPECT_EQ(textOf<std::length_error>([] { Chunk chunk(Greatest, [](std::vector<double>&) {}); }), tooLarge);
  EXPECT_EQ(textOf<std::length_error>([&empty] { empty->newChunk(Greatest, false); }), tooLarge);
  EXPECT_EQ(textOf<std::length_error>([&empty] { empty->newTypedChunk(Greatest, true); }), "vector::reserve");
}

// ------------------------------------------------------------------------------------------------ data and creators

TEST_F(FoundationInput, CreatureWithoutACache) {
  for (const CachePtr& cache : {CachePtr(), killed(makeCache())}) {
    const CreaturePtr creature = makeCreature(cache);
    creature->enableCaching(true);
    EXPECT_TRUE(creature->isKept());
    EXPECT_FALSE(creature->getCache());
    EXPECT_FALSE(creature->hasData());
    EXPECT_FALSE(creature->isUnderCreation());
    EXPECT_FALSE(creature->discardCreation());
    EXPECT_EQ(creature->getProductionSeconds(), 0.0);
  }
}

TEST_F(FoundationInput, Provenances) {
  const CreaturePtr creature = makeCreature();
  EXPECT_TRUE(creature->getProvenances().empty());
  using ProvenancePtr = StrongPtr<Ostrel::Provenance, Ostrel::Provenance>;
  const ProvenancePtr nameless(new Ostrel::Provenance(""));
  EXPECT_EQ(nameless->getPath('/'), "");
  for (const ProvenancePtr& provenance : {ProvenancePtr(), killed(ProvenancePtr(new Ostrel::Provenance("a")))})
    creature->addProvenance(provenance);
  ASSERT_EQ(creature->getProvenances().size(), 2U);
  EXPECT_FALSE(creature->getProvenances()[0]);
  EXPECT_FALSE(creature->getProvenances()[1]);
}

TEST_F(FoundationInput, SetCreatorOfData) {
  const CachePtr cache = makeCache();
  const CreaturePtr living = makeCreature(cache);
  const DataPtr data = makeData();
  for (const CreaturePtr& creature :
       {CreaturePtr(), killed(makeCreature(cache)), makeCreature(), makeCreature(killed(makeCache()))}) {
    data->setCreator(living);
    EXPECT_TRUE(data->isOnCacheList());
    data->setCreator(creature);
    EXPECT_FALSE(data->isOnCacheList());
    EXPECT_TRUE(data->getCreator().sameRecord(creature));
  }
  const DataPtr orphan(new CountingData(0, 100, killed(makeCreature())));
  EXPECT_FALSE(orphan->getCreator());
  EXPECT_EQ(orphan->CreatorType(), typeid(void));
  EXPECT_EQ(DataPtr(makeData())->CreatorType(), typeid(void));
}

TEST_F(FoundationInput, CreatorOfNothing) {
  const StrongPtr<ForeignData, Ostrel::Cacheable> foreign(new ForeignData);
  for (const DataPtr& data : {DataPtr(), killed(makeData()), DataPtr(foreign)}) {
    const TreskTest::CreatorPtr<KeepingCreator> keeping(new KeepingCreator(data, {}));
    const TreskTest::CreatorPtr<ForgetfulCreator> forgetful(new ForgetfulCreator(data, {}));
    EXPECT_FALSE(keeping->hasData());
    EXPECT_FALSE(keeping->create(false));
    EXPECT_FALSE(keeping->takeData());
    EXPECT_EQ(keeping->release(), Creature::CannotRelease);
    EXPECT_EQ(forgetful->release(), Creature::Released);
    const auto producer = attachProducer(*forgetful, [data](const auto&) { return data; });
    EXPECT_FALSE(forgetful->create(false));
    EXPECT_FALSE(forgetful->getData());
    EXPECT_EQ(producer->nProductions, 1);
  }
}

// ----------------------------------------------------------------------------------------------------------- caches

TEST_F(FoundationInput, CacheWithoutAParent) {
  for (const CachePtr& none : {CachePtr(), killed(makeCache())}) {
    const CachePtr cache(new Cache(none));
    EXPECT_FALSE(cache->getParent());
    EXPECT_EQ(cache->getLimit(), Cache::NoLimit);
  }
}

TEST_F(FoundationInput, CacheOfNothing) {
  const CachePtr cache = makeCache();
  for (const unsigned long long limit : {0ULL, Cache::NoLimit}) {
    cache->setLimit(limit);
    cache->setReturnsMemoryAfter(limit);
    EXPECT_EQ(cache->trim(limit), 0U);
    EXPECT_TRUE(cache->enforceLimit());
  }
  EXPECT_TRUE(cache->getHoldings().empty());
  EXPECT_TRUE(cache->getCreatures().empty());
  EXPECT_EQ(cache->nCacheables(), 0U);
  EXPECT_EQ(cache->describe(0).find("limit none, held 0 B"), 0U);
}

TEST_F(FoundationInput, CachePolicyAndListener) {
  const CachePtr cache = makeCache();
  using PolicyPtr = StrongPtr<Ostrel::CachePolicy, Ostrel::CachePolicy>;
  for (const PolicyPtr& policy : {PolicyPtr(), killed(PolicyPtr(new Ostrel::CostAwarePolicy))}) {
    cache->setPolicy(policy);
    cache->setListener({});
    // Least recently used first.
    DataPtr first = makeData();
    DataPtr second = makeData();
    const TreskTest::CreatorPtr<ForgetfulCreator> a(new ForgetfulCreator(first, cache));
    const TreskTest::CreatorPtr<ForgetfulCreator> b(new ForgetfulCreator(second, cache));
    const WeakPtr<CountingData, Ostrel::Cacheable> observer(first);
    first.reset();
    second.reset();
    EXPECT_EQ(cache->trim(1), 100U);
    EXPECT_FALSE(observer);
    EXPECT_TRUE(b->hasData());
  }
  Ostrel::CacheCandidate ofNoBytes;
  EXPECT_EQ(Ostrel::CostAwarePolicy().worth(ofNoBytes), 0.0);
  ofNoBytes.seconds = 3;
  EXPECT_EQ(Ostrel::CostAwarePolicy().worth(ofNoBytes), 3.0);
}

TEST_F(FoundationInput, CacheThread) {
  const CachePtr cache = makeCache();
  cache->stopThread();
  cache->startThread();
  cache->startThread();
  cache->stopThread();
  cache->stopThread();
  EXPECT_EQ(cache->nCacheables(), 0U);
}

TEST_F(FoundationInput, CacheNamesOfUnknownNumbers) {
  EXPECT_STREQ(toString(static_cast<Ostrel::CacheEventKind>(99)), "");
  EXPECT_STREQ(toString(static_cast<Ostrel::CacheHoldingState>(-1)), "");
}

// ------------------------------------------------------------------------------------------------------- interfaces

class Label : public Ostrel::Interface<Label> {};
/// Stands under the key of `Label` without being one.
class Pretender : public InterfaceBase {
 public:
  const std::type_info& getInterfaceType() const override { return typeid(Label); }
};

TEST_F(FoundationInput, Interfaces) {
  Intercube cube;
  for (const InterfacePtr& none : {InterfacePtr(), killed(InterfacePtr(new Label))}) {
    cube.addInterface(none);
    EXPECT_FALSE(cube.findInterface(typeid(Label)));
    EXPECT_FALSE(Ostrel::findInterface<Label>(cube));
  }
  const InterfacePtr pretender(new Pretender);
  cube.addInterface(pretender);
  cube.addInterface(InterfacePtr());
  EXPECT_EQ(cube.findInterface(typeid(Label)), pretender);
  EXPECT_FALSE(Ostrel::findInterface<Label>(cube));
  pretender->apply(cube, {});
  pretender->apply_const(cube, {});
}

class LabelSaver : public Ostrel::SaveInterfaceCreator<Intercube> {
 public:
  long long createInterface(Intercube*) override { return ++nCalls; }
  int nCalls = 0;
};

TEST_F(FoundationInput, SaveRegistry) {
  using Ostrel::SaveRegistryBase;
  using SaverPtr = StrongPtr<Ostrel::SaveInterfaceCreatorBase, Ostrel::SaveInterfaceCreatorBase>;
  const SaverPtr saver(new LabelSaver);
  Intercube cube;
  Ostrel::SaveRegistry<Intercube> registry(&cube);
  Ostrel::SaveRegistry<ChunkBase> foreign(nullptr);
  for (const SaverPtr& none : {SaverPtr(), killed(SaverPtr(new LabelSaver))}) {
    EXPECT_FALSE(SaveRegistryBase::registerCreator(typeid(Label), none));
    EXPECT_FALSE(SaveRegistryBase::unregisterCreator(typeid(Label), none));
    EXPECT_EQ(registry.apply(none), 0);
  }
  EXPECT_EQ(foreign.apply(saver), 0);
  EXPECT_FALSE(SaveRegistryBase::unregisterCreator(typeid(Label), saver));
  EXPECT_TRUE(SaveRegistryBase::registerCreator(typeid(Label), saver));
  EXPECT_FALSE(SaveRegistryBase::registerCreator(typeid(Label), saver));
  registry.traverseCreators(typeid(Pretender));
  foreign.traverseCreators(typeid(Label));
  EXPECT_EQ(dynamic_cast<LabelSaver&>(*saver).nCalls, 0);
  EXPECT_TRUE(SaveRegistryBase::unregisterCreator(typeid(Label), saver));
}

TEST_F(FoundationInput, StringListGetLine) {
  const StrongPtr<Ostrel::StringList, Ostrel::StringList> lines(new Ostrel::StringList);
  EXPECT_EQ(textOf<std::out_of_range>([&lines] { lines->getLine(0); }), "StringList::getLine(): line 0 of 0");
  lines->addLine("");
  EXPECT_EQ(lines->getLine(0), "");
  EXPECT_EQ(textOf<std::out_of_range>([&lines] { lines->getLine(Greatest); }),
            "StringList::getLine(): line 18446744073709551615 of 1");
}

// ------------------------------------------------------------------------------------------------------ diagnostics

TEST_F(FoundationInput, BreakpointHandler) {
  const Ostrel::BreakpointHandler former = Ostrel::setBreakpointHandler(nullptr);
  testing::internal::CaptureStderr();
  Ostrel::breakpoint("");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Ostrel: \n");
  EXPECT_EQ(Ostrel::setBreakpointHandler(former), nullptr);
}

TEST_F(FoundationInput, TextsOfNumbers) {
  EXPECT_EQ(Ostrel::toByteText(0), "0 B");
  EXPECT_EQ(Ostrel::toByteText(Greatest), "16.0 EiB");
  EXPECT_EQ(Ageable::Ooooold.str(), "never");
  Ageable age(5);
  EXPECT_FALSE(age.raiseTo(Ageable::Ooooold));
  EXPECT_EQ(age.str(), "5");
}

TEST_F(FoundationInput, ProfilerScope) {
  Ostrel::Profiler::Listener* const former = Ostrel::Profiler::setListener(nullptr);
  { const Ostrel::Profiler unheard("a", 1, "b", "c", 2, "d"); }
  Ostrel::Profiler::setListener(former);
  const TreskTest::ProfilerRecorder recorder;
  { const Ostrel::Profiler scope("", -1, "", "", -1, ""); }
  ASSERT_EQ(recorder.events().size(), 2U);
  EXPECT_EQ(recorder.events()[0].scope.name, "");
  EXPECT_EQ(recorder.events()[0].scope.line, -1);
}

TEST_F(FoundationInput, ReplaceListener) {
  TreskTest::ProfilerRecorder recorder;
  TreskTest::ProfilerRecorder* const installed = &recorder;
  {
    const TreskTest::ProfilerRecorder other;
    EXPECT_FALSE(Ostrel::Profiler::replaceListener(installed, nullptr)) << "another one is installed";
    EXPECT_FALSE(Ostrel::Profiler::replaceListener(nullptr, installed));
  }
  EXPECT_TRUE(Ostrel::Profiler::replaceListener(installed, nullptr));
  { const Ostrel::Profiler unheard("a", 1, "b", "c", 2, "d"); }
  EXPECT_TRUE(recorder.events().empty());
  EXPECT_TRUE(Ostrel::Profiler::replaceListener(nullptr, installed));
}

TEST_F(FoundationInput, TraceWriterPath) {
  const TreskTest::TestFolder folder;
  for (const std::string& path : {std::string(), folder / "", folder / "no/trace.json"}) {
    const std::string text = textOf<std::runtime_error>([&path] { const Ostrel::TraceWriter writer(path); });
    EXPECT_EQ(text.find("cannot write the trace file '" + path + "': "), 0U) << text;
  }
}

TEST_F(FoundationInput, TraceOfNothing) {
  const TreskTest::TestFolder folder;
  const std::string path = folder / "trace.json";
  const CachePtr cache = makeCache();
  const Ostrel::Profiler::Scope nameless{"", -1, "", "", -1, ""};
  Ostrel::TraceWriter writer(path);
  writer.end(nameless);  // has no beginning
  writer.begin(nameless);
  writer.end(nameless);
  writer.end(nameless);
  for (const double value : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity()})
    writer.counter("no number", value);
  writer.counter("", std::numeric_limits<double>::lowest());
  const Ostrel::CacheListener listener = writer.makeCacheListener("");
  Ostrel::CacheEvent event;
  event.kind = static_cast<Ostrel::CacheEventKind>(99);
  for (const CreaturePtr& creature : {CreaturePtr(), killed(makeCreature())}) {
    event.creator = creature;
    listener(event);
  }
  event.kind = Ostrel::CacheEventKind::Produced;
  for (const double seconds :
       {-1.0, 1e300, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    event.seconds = seconds;
    listener(event);
  }
  event.nHeldBytes = Greatest;
  listener(event);
  EXPECT_TRUE(writer.isComplete());
  EXPECT_TRUE(writer.close());
  EXPECT_TRUE(writer.close());
  writer.begin(nameless);
  writer.end(nameless);
  writer.counter("late", 1);
  writer.attach();
  listener(event);
  const TreskTest::TraceFile trace(path);
  EXPECT_EQ(trace.events("B").size(), 1U);
  EXPECT_EQ(trace.events("E").size(), 1U);
  EXPECT_TRUE(trace.events("C", "no number").empty());
  EXPECT_TRUE(trace.events("C", "late").empty());
  ASSERT_EQ(trace.events("i").size(), 2U);
  EXPECT_EQ(trace.events("i")[0]["name"], "") << "a kind that stands for nothing";
  EXPECT_FALSE(trace.events("i")[0]["args"].contains("creator"));
  EXPECT_EQ(trace.events("X").size(), 5U);
}

// --------------------------------------------------------------------------------------------------------- geometry

TEST_F(FoundationInput, BoundingBoxUpsideDown) {
  using Quorvel::PhysicalSpace;
  const StrongPtr<Quorvel::BoundingBox, InterfaceBase> box(
      new Quorvel::BoundingBox(PhysicalSpace::point(1, 1, 1), PhysicalSpace::point(0, 0, 0)));
  EXPECT_EQ((*box)[0], PhysicalSpace::point(1, 1, 1));
  EXPECT_EQ((*box)[1], PhysicalSpace::point(0, 0, 0));
}

TEST_F(FoundationInput, PackingOfNoVectors) {
  using Pack = Quorvel::Vec3Pack_10_11_11;
  using ChunkPtr = StrongPtr<ChunkBase, ChunkBase>;
  const Triple zero(0.0, 0.0, 0.0);
  const Triple one(1.0, 1.0, 1.0);
  const ChunkPtr dead = killed(ChunkPtr(new Ostrel::Chunk<Triple>(2)));
  const ChunkPtr foreign(new Ostrel::Chunk<double>(2));
  for (const ChunkPtr& none : {ChunkPtr(), dead, foreign, ChunkPtr(new Ostrel::Chunk<Triple>(0))})
    EXPECT_EQ(Pack(Pack::Vectors(none), zero, one).getPacked()->size(), 0U);
  // Numbers and bounds that are none.
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  const Pack::Vectors vectors(new Ostrel::Chunk<Triple>(1));
  vectors->vector()[0] = Triple(nan, -inf, inf);
  EXPECT_EQ(Pack(vectors, zero, one).getPacked()->vector()[0], 2047U << 21U);
  vectors->vector()[0] = one;
  for (const Triple& upper : {zero, Triple(nan, nan, nan), Triple(inf, inf, inf), Triple(-1.0, -1.0, -1.0)}) {
    EXPECT_EQ(Pack(vectors, zero, upper).getPacked()->vector()[0], 0U);
    EXPECT_EQ(Pack::unpack(~0U, zero, upper), zero);
  }
}

}  // namespace
