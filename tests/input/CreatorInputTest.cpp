// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/MemArrayProperties.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/foundation/Cache.hpp>

#include <input/BadInput.hpp>
#include <support/AsynchronDoubles.hpp>
#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::Creature;
using Tresk::AsynchronCreator;
using Tresk::CachePtr;
using Tresk::CreativeArray;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::FunctionalCreator;
using Tresk::MemArray;
using Tresk::MemArrayProperties;
using Tresk::OnDemandCreator;
using Tresk::SizeInterface;
using Tresk::TreskTypePtr;
using TreskTest::attachArrayProducer;
using TreskTest::CreatorOwner;
using TreskTest::CreatorPtr;
using TreskTest::Failure;
using TreskTest::Flag;
using TreskTest::killed;
using TreskTest::makeArray;
using TreskTest::makeDeadArray;
using TreskTest::makeForgetful;
using TreskTest::makeOwner;
using TreskTest::MemBasePtr;
using TreskTest::SharedComputer;
using TreskTest::textOf;

using CreatorInput = TreskTest::RecordBalanceTest;
using OnDemand = OnDemandCreator<SharedComputer, 1, double>;
using OwnerPointer = Tresk::CreativeArrayBase::OwnerPointer;
using BinderPtr = Ostrel::StrongPtr<Tresk::BinderBase, Tresk::BinderBase>;

const CachePtr noCache;

std::vector<MemBasePtr> noData() { return {MemBasePtr(), makeDeadArray()}; }
CreatorPtr makeKeeping(const MemBasePtr& data = {}) { return CreatorPtr(new CreativeArray(data, noCache)); }
CreatorPtr makeFunctional(const FunctionalCreator::Function& f) {
  return CreatorPtr(new FunctionalCreator(f, false, noCache));
}
CreatorPtr makeOnDemand(const MemBasePtr& made) {
  return CreatorPtr(new OnDemand(SharedComputer([made](const CreatorWeakPtr&) { return made; }), noCache));
}
Ostrel::StrongPtr<AsynchronCreator, Creature> makeAsynchron(const AsynchronCreator::Function& f) {
  return Ostrel::StrongPtr<AsynchronCreator, Creature>(new AsynchronCreator(f, noCache));
}
TreskTypePtr makeDeadType() { return killed(TreskTest::makeRecord()); }

void expectEmpty(Tresk::CreativeArrayBase& creator) {
  EXPECT_FALSE(creator.hasData());
  EXPECT_FALSE(creator.getData());
  EXPECT_FALSE(creator.takeData());
  EXPECT_FALSE(creator.getCacheable());
  EXPECT_FALSE(Tresk::getSize(creator));
  EXPECT_EQ(Tresk::getMemoryUsage(creator), 0U);
}

// -------------------------------------------------------------------------------------------------- holding of data

TEST_F(CreatorInput, ConstructionWithData) {
  for (const MemBasePtr& data : noData()) {
    const CreatorPtr keeping = makeKeeping(data);
    expectEmpty(*keeping);
    EXPECT_FALSE(keeping->getTreskType());
    expectEmpty(*CreatorPtr(new TreskTest::ForgetfulArray(data, noCache)));
  }
  for (const CachePtr& cache : {noCache, killed(CachePtr(new Ostrel::Cache))}) {
    const MemBasePtr data = makeArray(2);
    const CreatorPtr keeping(new CreativeArray(data, cache));
    EXPECT_EQ(keeping->create(false), data);
    EXPECT_FALSE(data->isOnCacheList());
  }
}

TEST_F(CreatorInput, GetType) {
  EXPECT_EQ(makeKeeping()->getType(), typeid(std::nullptr_t));
  EXPECT_EQ(makeKeeping(makeDeadArray())->getType(), typeid(void));
  EXPECT_EQ(makeOnDemand({})->getType(), typeid(double));
  EXPECT_EQ(makeAsynchron({})->getType(), typeid(void));
}

TEST_F(CreatorInput, CreateWithoutAProducer) {
  const CreatorPtr creator = makeKeeping();
  EXPECT_FALSE(creator->create(false));
  EXPECT_FALSE(creator->create(true));
  EXPECT_FALSE(creator->produce());
  EXPECT_FALSE(creator->canProduce());
  EXPECT_EQ(creator->producerName(), "");
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_FALSE(creator->discardCreation());
  EXPECT_FALSE(creator->request({}));
  EXPECT_FALSE(creator->retryCreation(*creator));
  expectEmpty(*creator);
}

TEST_F(CreatorInput, CreateFromAProducer) {
  for (const MemBasePtr& data : noData()) {
    const CreatorPtr creator = makeKeeping();
    const auto producer = attachArrayProducer(*creator, [data] { return data; });
    EXPECT_FALSE(creator->create(false));
    expectEmpty(*creator);
    EXPECT_TRUE(creator->request({}));  // a producer takes any request
    producer->make = []() -> MemBasePtr { throw Failure("no such file"); };
    EXPECT_EQ(textOf<Failure>([&creator] { creator->create(false); }), "no such file");
    producer->make = [] { return makeArray(1); };
    EXPECT_TRUE(creator->create(false));
  }
}

TEST_F(CreatorInput, ReleaseOfNothing) {
  EXPECT_EQ(makeKeeping()->release(), Creature::CannotRelease);
  const CreatorPtr withProducer = makeKeeping(makeDeadArray());
  attachArrayProducer(*withProducer, [] { return MemBasePtr(); });
  EXPECT_EQ(withProducer->release(), Creature::Released);
  for (const CreatorPtr& creator : {CreatorPtr(makeForgetful()), makeFunctional({}), makeOnDemand({}),
                                    CreatorPtr(makeAsynchron({})), CreatorPtr(makeForgetful(makeDeadArray()))})
    EXPECT_EQ(creator->release(), Creature::Released);
}

// ------------------------------------------------------------------------------------------------------ description

TEST_F(CreatorInput, AddMetaInfo) {
  for (const TreskTypePtr& type : {TreskTypePtr(), makeDeadType()}) {
    const CreatorPtr creator = makeKeeping();
    creator->addMetaInfo(3, type);
    EXPECT_FALSE(Tresk::getSize(*creator));
    creator->addMetaInfo({4, 5}, type);
    EXPECT_EQ(Tresk::getSize(*creator)->str(), "4x5");
    EXPECT_FALSE(Ostrel::findInterface<MemArrayProperties>(*creator));
    EXPECT_FALSE(creator->getTreskType());
  }
  const CreatorPtr creator = makeKeeping();
  creator->addMetaInfo(DynamicSize(), Tresk::getTreskType<double>());
  EXPECT_EQ(Tresk::getSize(*creator)->Dims(), 0);
  creator->addMetaInfo(-1, Tresk::getTreskType<double>());
  EXPECT_EQ(Ostrel::findInterface<MemArrayProperties>(*creator)->getRank(), -1);
}

TEST_F(CreatorInput, AddDataMetaInfo) {
  const CreatorPtr creator = makeKeeping();
  for (const MemBasePtr& data : noData()) creator->addDataMetaInfo(data);
  EXPECT_FALSE(Tresk::getSize(*creator));
  creator->addDataMetaInfo(TreskTest::makeNames({1}, {"a"}));  // no record of such elements
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "1");
  EXPECT_FALSE(creator->getTreskType());
}

TEST_F(CreatorInput, SetTreskType) {
  const TreskTypePtr ofDouble = Tresk::getTreskType<double>();
  for (const TreskTypePtr& type : {TreskTypePtr(), makeDeadType()}) {
    const CreatorPtr creator = makeKeeping();
    creator->setTreskType(type);
    EXPECT_FALSE(creator->getTreskType());
    creator->setTreskType(ofDouble);
    creator->setTreskType(type);
    EXPECT_EQ(creator->getTreskType(), ofDouble);  // by the index of the former type
  }
}

TEST_F(CreatorInput, SizeOfUnknownData) {
  for (const CreatorPtr& creator : {makeKeeping(), makeFunctional({}), makeOnDemand({})}) {
    EXPECT_FALSE(Tresk::getSize(*creator));
    EXPECT_FALSE(Tresk::makeSize(*creator));
  }
  const CreatorPtr failing = makeFunctional([]() -> MemBasePtr { throw Failure("no such file"); });
  EXPECT_FALSE(Tresk::getSize(*failing));
  EXPECT_EQ(textOf<Failure>([&failing] { Tresk::makeSize(*failing); }), "no such file");
}

TEST_F(CreatorInput, UpdateAttributeAge) {
  const CreatorPtr creator = makeKeeping();
  creator->addOwner(OwnerPointer(killed(makeOwner<CreatorOwner>())));
  const long long stamp = creator->touchAttributes().getAge();
  EXPECT_EQ(creator->updateAttributeAge(Ostrel::Ageable::Ooooold).getAge(), stamp);
  EXPECT_GT(creator->touch().getAge(), stamp);
}

// ----------------------------------------------------------------------------------------------------------- owners

TEST_F(CreatorInput, Owners) {
  const CreatorPtr creator = makeKeeping();
  const OwnerPointer dead(killed(makeOwner<CreatorOwner>()));
  const auto other = makeOwner<CreatorOwner>();
  EXPECT_FALSE(creator->addOwner(OwnerPointer()));
  EXPECT_FALSE(creator->removeOwner(OwnerPointer()));
  EXPECT_FALSE(creator->removeOwner(other));
  EXPECT_FALSE(creator->isOwnedBy(OwnerPointer()));
  EXPECT_FALSE(creator->isOwnedBy(other));
  EXPECT_TRUE(creator->getOwners().empty());
  EXPECT_TRUE(creator->addOwner(dead));
  EXPECT_FALSE(creator->addOwner(dead));
  EXPECT_TRUE(creator->isOwnedBy(dead));
  EXPECT_EQ(creator->nOwners(), 1U);
  EXPECT_TRUE(creator->removeOwner(dead));
}

TEST_F(CreatorInput, QuestionsToNoOwner) {
  const CreatorPtr creator = makeKeeping();
  Ostrel::Intercube question;
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(creator->processOwnership(question, question));
    creator->forEachOwner(nullptr);
    EXPECT_FALSE(creator->getBinder());
    for (const MemBasePtr& data : noData()) creator->save(data);
    creator->addOwner(OwnerPointer(killed(makeOwner<CreatorOwner>())));
  }
}

TEST_F(CreatorInput, SaveAndBinder) {
  const CreatorPtr creator = makeKeeping();
  const auto owner = makeOwner<CreatorOwner>();
  creator->addOwner(owner);
  for (const MemBasePtr& data : noData()) creator->save(data);  // owners are asked all the same
  EXPECT_EQ(owner->nQuestions, 2);
  owner->answer = false;
  EXPECT_FALSE(creator->getBinder());
  owner->onQuestion = [](Ostrel::Intercube&, const Ostrel::Intercube&) -> bool { throw Failure("disk full"); };
  EXPECT_EQ(textOf<Failure>([&creator] { creator->save({}); }), "disk full");
  EXPECT_EQ(textOf<Failure>([&creator] { creator->getBinder(); }), "disk full");
  EXPECT_EQ(BinderPtr(new Tresk::BinderBase(""))->getName(), "");
}

// --------------------------------------------------------------------------------------------- creators that compute

TEST_F(CreatorInput, FunctionalCreator) {
  for (const MemBasePtr& data : noData()) {
    int nRuns = 0;
    const auto makeNone = [&nRuns, data] {
      ++nRuns;
      return data;
    };
    for (const CreatorPtr& creator : {makeFunctional({}), makeFunctional(makeNone)}) {
      EXPECT_FALSE(creator->create(false));
      EXPECT_TRUE(creator->request({}));
      EXPECT_FALSE(creator->isUnderCreation());
      expectEmpty(*creator);
    }
    EXPECT_EQ(nRuns, 2);
  }
  bool fails = true;
  const CreatorPtr creator = makeFunctional([&fails] {
    if (fails) throw Failure("no such file");
    return makeArray(1);
  });
  EXPECT_EQ(textOf<Failure>([&creator] { creator->create(false); }), "no such file");
  EXPECT_EQ(textOf<Failure>([&creator] { creator->request({}); }), "no such file");
  fails = false;
  EXPECT_TRUE(creator->create(false));
}

TEST_F(CreatorInput, OnDemandCreator) {
  const MemBasePtr ofIntegers(new MemArray<1, unsigned int>(Tresk::MultiIndex<1>(1), CreatorWeakPtr()));
  for (const MemBasePtr& made : {MemBasePtr(), makeDeadArray(), ofIntegers, makeArray(1, 1, 0)}) {
    const CreatorPtr creator = makeOnDemand(made);
    EXPECT_FALSE(creator->create(false));
    EXPECT_FALSE(creator->produce());
    expectEmpty(*creator);
  }
}

class AsynchronInput : public TreskTest::AsynchronCreatorFixture {};

TEST_F(AsynchronInput, Setup) {
  const auto creator = makeAsynchron({});
  for (const TreskTypePtr& type : {TreskTypePtr(), makeDeadType()}) creator->setup({3}, type);
  EXPECT_FALSE(Tresk::getSize(*creator));
  EXPECT_EQ(creator->getType(), typeid(void));
}

TEST_F(AsynchronInput, CreateData) {
  EXPECT_FALSE(AsynchronCreator::createData({}, {}));
  EXPECT_FALSE(AsynchronCreator::createData(killed(makeAsynchron({})), {}));
}

TEST_F(AsynchronInput, ProduceAndRequest) {
  const AsynchronCreator::Function none;
  for (const auto& function : {none, AsynchronCreator::Function([](const Flag&) { return MemBasePtr(); }),
                               AsynchronCreator::Function([](const Flag&) { return makeDeadArray(); })}) {
    const auto creator = makeAsynchron(function);
    EXPECT_FALSE(creator->create_data());
    EXPECT_FALSE(creator->create(false));
    EXPECT_TRUE(creator->request({}));
    EXPECT_FALSE(creator->produce());
    EXPECT_FALSE(creator->isUnderCreation());
    EXPECT_FALSE(creator->hasFailed());
    EXPECT_FALSE(creator->discardCreation());
    expectEmpty(*creator);
  }
}

TEST_F(AsynchronInput, ExceptionsOfTheFunction) {
  const auto creator = makeAsynchron([](const Flag&) -> MemBasePtr { throw Failure("no such file"); });
  EXPECT_EQ(textOf<Failure>([&creator] { creator->create(false); }), "no such file");
  EXPECT_FALSE(creator->hasFailed());
  EXPECT_TRUE(creator->request({}));
  EXPECT_EQ(textOf<Failure>([&creator] { creator->produce(); }), "no such file");
  EXPECT_TRUE(creator->hasFailed());
  EXPECT_FALSE(creator->request({}));
  EXPECT_EQ(creator->release(), Creature::StillInUse);
}

}  // namespace
