// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Creator.hpp>

#include <support/CreatorDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::Cacheable;
using Ostrel::Creature;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using TreskTest::attachProducer;
using TreskTest::CountingCreature;
using TreskTest::CountingData;
using TreskTest::CountingProducer;
using TreskTest::CreatorPtr;
using TreskTest::DataCreatorBase;
using TreskTest::DataProducer;
using TreskTest::DataPtr;
using TreskTest::ForgetfulCreator;
using TreskTest::KeepingCreator;
using TreskTest::WeakCache;

using ProducedFor = WeakPtr<DataCreatorBase, Creature>;

DataPtr makeFive(const ProducedFor&) { return DataPtr(new CountingData(5)); }

CreatorPtr<KeepingCreator> makeKeeping(const DataPtr& data = {}) {
  return data ? CreatorPtr<KeepingCreator>(new KeepingCreator(data, WeakCache()))
              : CreatorPtr<KeepingCreator>(new KeepingCreator(WeakCache()));
}
CreatorPtr<ForgetfulCreator> makeForgetful(const DataPtr& data = {}) {
  return data ? CreatorPtr<ForgetfulCreator>(new ForgetfulCreator(data, WeakCache()))
              : CreatorPtr<ForgetfulCreator>(new ForgetfulCreator(WeakCache()));
}

/// A pointer with a record whose object has died.
DataPtr makeDeadData() {
  WeakPtr<CountingData, Cacheable> observer;
  { observer = DataPtr(new CountingData); }
  return DataPtr(observer);
}

using CreatorTest = TreskTest::RecordBalanceTest;

TEST_F(CreatorTest, EmptyCreatorHoldsNothing) {
  const auto creator = makeKeeping();
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->getData().getRecord(), nullptr);
  EXPECT_EQ(creator->getCacheable().getRecord(), nullptr);
  EXPECT_EQ(creator->getAge(), 0);
}

TEST_F(CreatorTest, InitialDataAreTiedToTheCreatorAndMakeItYoung) {
  const DataPtr data(new CountingData);
  const auto creator = makeKeeping(data);
  EXPECT_TRUE(creator->hasData());
  EXPECT_TRUE(creator->getData() == data);
  EXPECT_TRUE(data->getCreator() == creator->getSelf());
  EXPECT_GT(creator->getAge(), 0);
  EXPECT_EQ(data.strongCount(), 2);
}

TEST_F(CreatorTest, InvalidInitialDataNeitherTieNorTouch) {
  const long long clock = Ostrel::Ageable::GlobalTime.load();
  const CreatorPtr<KeepingCreator> creator(new KeepingCreator(makeDeadData(), WeakCache()));
  EXPECT_FALSE(creator->hasData());
  EXPECT_NE(creator->getData().getRecord(), nullptr);
  EXPECT_EQ(creator->getAge(), 0);
  EXPECT_EQ(Ostrel::Ageable::GlobalTime.load(), clock);
}

TEST_F(CreatorTest, DataInBaseFormShareTheRecord) {
  const DataPtr data(new CountingData);
  const auto creator = makeKeeping(data);
  const StrongPtr<Cacheable, Cacheable> base = creator->getCacheable();
  EXPECT_TRUE(base == data);
  EXPECT_TRUE(base.isValid());
  EXPECT_EQ(creator->nProductions, 0);
}

TEST_F(CreatorTest, TakenDataLeaveTheCreatorEmpty) {
  const auto creator = makeKeeping(DataPtr(new CountingData(3)));
  const DataPtr taken = creator->takeData();
  EXPECT_EQ(taken->value, 3);
  EXPECT_EQ(taken.strongCount(), 1) << "the only reference that the creator had";
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->held().getRecord(), nullptr);
  EXPECT_EQ(creator->takeData().getRecord(), nullptr);
}

TEST_F(CreatorTest, TypeOfAnEmptyCreatorIsThatOfTheNullPointer) {
  EXPECT_EQ(makeKeeping()->getType(), typeid(std::nullptr_t));
}

TEST_F(CreatorTest, TypeOfDeadDataIsVoid) {
  const auto creator = makeKeeping();
  creator->held() = makeDeadData();
  EXPECT_EQ(creator->getType(), typeid(void));
}

class SpecialData : public CountingData {};

TEST_F(CreatorTest, TypeOfDataIsTheirDynamicType) {
  EXPECT_EQ(makeKeeping(DataPtr(new CountingData))->getType(), typeid(CountingData));
  EXPECT_EQ(makeKeeping(DataPtr(new SpecialData))->getType(), typeid(SpecialData));
}

TEST_F(CreatorTest, TypeOfForeignDataIsTheirDynamicTypeThoughTheyCannotBeShown) {
  const auto creator = makeKeeping();
  creator->held() = DataPtr(StrongPtr<Cacheable, Cacheable>(new TreskTest::ForeignData));
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->getType(), typeid(TreskTest::ForeignData));
  EXPECT_TRUE(creator->getCacheable().isValid()) << "the base form shows them";
}

TEST_F(CreatorTest, ReleaseIsRefusedWithAndWithoutData) {
  const auto empty = makeKeeping();
  EXPECT_EQ(empty->release(), Creature::CannotRelease);
  const auto creator = makeKeeping(DataPtr(new CountingData));
  EXPECT_EQ(creator->release(), Creature::CannotRelease);
  EXPECT_TRUE(creator->hasData());
}

TEST_F(CreatorTest, ReasonsHaveTheirNumbers) {
  EXPECT_EQ(static_cast<int>(Creature::CannotRelease), 0);
  EXPECT_EQ(static_cast<int>(Creature::StillInUse), 1);
  EXPECT_EQ(static_cast<int>(Creature::Released), 2);
}

TEST_F(CreatorTest, ProductionWithoutProducerAndDataGivesAnEmptyPointer) {
  const auto creator = makeKeeping();
  EXPECT_EQ(creator->produce().getRecord(), nullptr);
}

TEST_F(CreatorTest, ProductionWithoutProducerReturnsWhatIsHeld) {
  const DataPtr data(new CountingData);
  const auto creator = makeKeeping(data);
  EXPECT_TRUE(creator->produce() == data);
}

TEST_F(CreatorTest, ProducerIsCalledWithAWeakPointerToTheCreator) {
  const auto creator = makeKeeping();
  const Creature* asked = nullptr;
  int strongWithin = 0;
  const auto producer = attachProducer(*creator, [&](const ProducedFor& wanted) {
    asked = wanted.get();
    strongWithin = wanted.strongCount();
    return DataPtr(new CountingData(9));
  });
  const DataPtr data = creator->produce();
  EXPECT_EQ(asked, creator.get());
  EXPECT_EQ(strongWithin, 1) << "the pointer is weak";
  EXPECT_EQ(data->value, 9);
  EXPECT_EQ(data.strongCount(), 2) << "the creator holds the product";
  EXPECT_EQ(producer->nProductions, 1);
}

TEST_F(CreatorTest, ProductionNeitherTiesNorTouchesNorMarks) {
  const auto creator = makeKeeping();
  attachProducer(*creator, makeFive);
  const DataPtr data = creator->produce();
  EXPECT_EQ(data->getCreator().getRecord(), nullptr);
  EXPECT_EQ(data->getUseCount(), 0);
  EXPECT_EQ(creator->getAge(), 0);
  EXPECT_EQ(creator->getCachingCount(), 1) << "the one of the first strong pointer";
}

TEST_F(CreatorTest, ProductionReplacesHeldDataEvenByAnInvalidResult) {
  const auto creator = makeKeeping(DataPtr(new CountingData(1)));
  bool fails = false;
  const auto producer =
      attachProducer(*creator, [&](const ProducedFor& wanted) { return fails ? DataPtr() : makeFive(wanted); });
  EXPECT_EQ(creator->produce()->value, 5);
  fails = true;
  EXPECT_FALSE(creator->produce().isValid());
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(producer->nProductions, 2);
}

TEST_F(CreatorTest, ExceptionOfTheProducerPassesAndLeavesTheDataAlone) {
  const DataPtr data(new CountingData(1));
  const auto creator = makeKeeping(data);
  attachProducer(*creator, [](const ProducedFor&) -> DataPtr { throw std::runtime_error("production"); });
  EXPECT_THROW(creator->produce(), std::runtime_error);
  EXPECT_TRUE(creator->getData() == data);
  const auto empty = makeKeeping();
  attachProducer(*empty, [](const ProducedFor&) -> DataPtr { throw std::runtime_error("production"); });
  EXPECT_THROW(empty->create(false), std::runtime_error);
  EXPECT_FALSE(empty->hasData());
}

TEST_F(CreatorTest, CreateOfHeldDataMarksThemOnceAndProducesNothing) {
  const DataPtr data(new CountingData);
  const auto creator = makeKeeping(data);
  const auto producer = attachProducer(*creator, makeFive);
  const long long nCachings = creator->getCachingCount();
  const DataPtr got = creator->create(false);
  EXPECT_TRUE(got == data);
  EXPECT_EQ(data->getUseCount(), 1);
  EXPECT_EQ(creator->nProductions, 0);
  EXPECT_EQ(creator->nQuestions, 1);
  EXPECT_EQ(producer->nProductions, 0);
  EXPECT_EQ(creator->getCachingCount(), nCachings);
}

TEST_F(CreatorTest, CreateWithKeepDoesNotMarkHeldData) {
  const DataPtr data(new CountingData);
  const auto creator = makeKeeping(data);
  EXPECT_TRUE(creator->create(true) == data);
  EXPECT_EQ(data->getUseCount(), 0);
}

TEST_F(CreatorTest, CreateProducesTiesAndEnablesCaching) {
  const auto creator = makeKeeping();
  attachProducer(*creator, makeFive);
  const DataPtr data = creator->create(false);
  ASSERT_TRUE(data.isValid());
  EXPECT_EQ(creator->nProductions, 1);
  EXPECT_TRUE(data->getCreator() == creator->getSelf());
  EXPECT_EQ(data->getUseCount(), 0) << "a product is not marked";
  EXPECT_EQ(creator->getCachingCount(), 2) << "the first strong pointer, and the production";
  EXPECT_FALSE(creator->isKept());
  EXPECT_EQ(creator->getAge(), 0) << "a production is no change";
}

TEST_F(CreatorTest, CreateHandsKeepToTheCache) {
  const auto creator = makeKeeping();
  attachProducer(*creator, makeFive);
  const DataPtr data = creator->create(true);
  EXPECT_TRUE(creator->isKept());
  EXPECT_EQ(creator->getCachingCount(), 2);
}

TEST_F(CreatorTest, CreateTurnsAnInvalidProductIntoAnEmptyResult) {
  const auto creator = makeKeeping();
  attachProducer(*creator, [](const ProducedFor&) { return makeDeadData(); });
  const DataPtr result = creator->create(false);
  EXPECT_EQ(result.getRecord(), nullptr);
  EXPECT_NE(creator->held().getRecord(), nullptr) << "the creator holds the product as it came";
  EXPECT_EQ(creator->getType(), typeid(void));
  EXPECT_EQ(creator->getCachingCount(), 1);
}

TEST_F(CreatorTest, CreateOfDeadDataProduces) {
  const auto creator = makeKeeping();
  creator->held() = makeDeadData();
  attachProducer(*creator, makeFive);
  EXPECT_EQ(creator->create(false)->value, 5);
}

TEST_F(CreatorTest, CreateWithoutProducerGivesAnEmptyPointer) {
  EXPECT_EQ(makeKeeping()->create(false).getRecord(), nullptr);
}

TEST_F(CreatorTest, CycleOfEmptyAndFilledRepeats) {
  const auto creator = makeForgetful();
  const auto producer = attachProducer(*creator, makeFive);
  for (int round = 1; round <= 4; ++round) {
    EXPECT_EQ(creator->create(false)->value, 5);
    EXPECT_TRUE(creator->hasData());
    EXPECT_EQ(producer->nProductions, round);
    EXPECT_EQ(creator->release(), Creature::Released);
    EXPECT_FALSE(creator->hasData());
    EXPECT_EQ(creator->getType(), typeid(std::nullptr_t));
  }
}

TEST_F(CreatorTest, DataSurviveTheirCreator) {
  auto creator = makeKeeping();
  attachProducer(*creator, makeFive);
  const DataPtr data = creator->create(false);
  creator.reset();
  EXPECT_TRUE(data.isValid());
  EXPECT_EQ(data.strongCount(), 1);
  EXPECT_FALSE(data->getCreator().isValid());
  EXPECT_EQ(data->CreatorType(), typeid(void));
}

TEST_F(CreatorTest, CreatorReleasesItsDataWhenItDies) {
  const int nBefore = CountingData::nAlive;
  { const auto creator = makeKeeping(DataPtr(new CountingData)); }
  EXPECT_EQ(CountingData::nAlive, nBefore);
}

TEST_F(CreatorTest, DataKnowTheTypesOfThemselvesAndTheirCreator) {
  const auto creator = makeKeeping(DataPtr(new SpecialData));
  const DataPtr data = creator->getData();
  EXPECT_EQ(data->DomainType(), typeid(SpecialData));
  EXPECT_EQ(data->CreatorType(), typeid(KeepingCreator));
  EXPECT_EQ(DataPtr(new CountingData)->CreatorType(), typeid(void));
}

TEST_F(CreatorTest, QuestionsForTheProducerWithoutOne) {
  const auto creator = makeKeeping();
  EXPECT_FALSE(creator->canProduce());
  EXPECT_EQ(creator->producerName(), "");
  EXPECT_FALSE(creator->isUnderCreation());
  bool wasCalled = false;
  EXPECT_FALSE(creator->request([&](const DataCreatorBase&, const DataPtr&) { wasCalled = true; }));
  EXPECT_FALSE(wasCalled);
  EXPECT_FALSE(creator->discardCreation());
}

TEST_F(CreatorTest, QuestionsReachTheProducer) {
  const auto creator = makeKeeping();
  const auto producer = attachProducer(*creator, makeFive);
  EXPECT_EQ(creator->producerName(), "counting");
  producer->name = "renamed";
  EXPECT_EQ(creator->producerName(), "renamed");
  EXPECT_TRUE(creator->canProduce());
  producer->canProduceNow = false;
  EXPECT_FALSE(creator->canProduce());
  EXPECT_FALSE(creator->isUnderCreation());
  producer->isCreating = true;
  EXPECT_TRUE(creator->isUnderCreation());
  EXPECT_TRUE(creator->request(nullptr)) << "a producer accepts every request unless it says otherwise";
  EXPECT_EQ(producer->nProductions, 0);
}

class RequestingProducer : public CountingProducer {
 public:
  using CountingProducer::CountingProducer;
  bool request(const DataCreatorBase::Callback& callback) override {
    last = callback;
    return answer;
  }
  DataCreatorBase::Callback last;
  bool answer = false;
};

TEST_F(CreatorTest, RequestHandsTheCallbackToTheProducer) {
  const auto creator = makeKeeping();
  const StrongPtr<RequestingProducer, Ostrel::InterfaceBase> producer(new RequestingProducer(makeFive));
  creator->addInterface(producer);
  int nCalls = 0;
  EXPECT_FALSE(creator->request([&](const DataCreatorBase&, const DataPtr&) { ++nCalls; }));
  producer->answer = true;
  EXPECT_TRUE(creator->request([&](const DataCreatorBase&, const DataPtr&) { ++nCalls; }));
  producer->last(*creator, DataPtr());
  EXPECT_EQ(nCalls, 1);
}

TEST_F(CreatorTest, ProducerIsFoundUnderItsOwnKey) {
  const auto creator = makeKeeping();
  EXPECT_FALSE(creator->findInterface(typeid(DataProducer)).isValid());
  const auto producer = attachProducer(*creator, makeFive);
  EXPECT_TRUE(creator->findInterface(typeid(DataProducer)) == producer);
  EXPECT_FALSE(creator->findInterface(typeid(CountingProducer)).isValid());
}

TEST_F(CreatorTest, LastProducerWins) {
  const auto creator = makeKeeping();
  const auto first = attachProducer(*creator, makeFive);
  const auto second = attachProducer(*creator, [](const ProducedFor&) { return DataPtr(new CountingData(6)); });
  EXPECT_EQ(creator->produce()->value, 6);
  EXPECT_EQ(first->nProductions, 0);
  EXPECT_EQ(second->nProductions, 1);
}

TEST_F(CreatorTest, ProducerMayReplaceItselfWhileItProduces) {
  const auto creator = makeKeeping();
  attachProducer(*creator, [](const ProducedFor& wanted) {
    attachProducer(*wanted, makeFive);
    return DataPtr(new CountingData(1));
  });
  EXPECT_EQ(creator->produce()->value, 1);
  EXPECT_EQ(creator->produce()->value, 5);
}

/// A middle class without data: the defaults of the creator base.
class BareCreator : public DataCreatorBase {
 public:
  using DataCreatorBase::DataCreatorBase;
  ReasonForReleasal release() override { return CannotRelease; }
  StrongPtr<Cacheable, Cacheable> getCacheable() override { return getData(); }
  const std::type_info& getType() override { return typeid(void); }
  DataPtr produce() override { return DataPtr(); }
  DataPtr getData() override { return DataPtr(); }
};

TEST_F(CreatorTest, DefaultsOfTheBase) {
  const CreatorPtr<BareCreator> creator(new BareCreator(WeakCache()));
  EXPECT_EQ(creator->takeData().getRecord(), nullptr);
  EXPECT_FALSE(creator->hasData());
  EXPECT_FALSE(creator->canProduce());
  EXPECT_FALSE(creator->discardCreation());
}

using AlzheimerCreatorTest = TreskTest::RecordBalanceTest;

TEST_F(AlzheimerCreatorTest, ReleaseOfNothingIsReleased) {
  EXPECT_EQ(makeForgetful()->release(), Creature::Released);
  const auto creator = makeForgetful();
  creator->held() = makeDeadData();
  EXPECT_EQ(creator->release(), Creature::Released);
}

TEST_F(AlzheimerCreatorTest, ReleaseForgetsUnsharedDataAtOnce) {
  const int nBefore = CountingData::nAlive;
  const auto creator = makeForgetful(DataPtr(new CountingData));
  EXPECT_TRUE(creator->hasData());
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->held().getRecord(), nullptr);
  EXPECT_EQ(CountingData::nAlive, nBefore);
}

TEST_F(AlzheimerCreatorTest, ReleaseOfDataThatACallerHoldsIsRefusedAndLeavesThem) {
  const DataPtr data(new CountingData);
  const auto creator = makeForgetful(data);
  EXPECT_EQ(creator->release(), Creature::StillInUse);
  EXPECT_TRUE(creator->getData() == data);
  EXPECT_EQ(data.strongCount(), 2);
}

TEST_F(AlzheimerCreatorTest, WeakObserversDoNotKeepTheData) {
  const auto creator = makeForgetful(DataPtr(new CountingData));
  const WeakPtr<CountingData, Cacheable> observer(creator->getData());
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_FALSE(observer.isValid());
}

TEST_F(AlzheimerCreatorTest, ReleaseNeedsNoProducer) {
  const auto creator = makeForgetful(DataPtr(new CountingData));
  EXPECT_FALSE(creator->canProduce());
  EXPECT_EQ(creator->release(), Creature::Released);
}

TEST_F(AlzheimerCreatorTest, DataMayAskTheirCreatorWhileTheyDie) {
  class AskingData : public CountingData {
   public:
    explicit AskingData(std::vector<bool>& answers) : answers_(answers) {}
    ~AskingData() override {
      if (const Ostrel::Pin<Creature> creator(getCreator()); creator) answers_.push_back(creator->hasData());
    }

   private:
    std::vector<bool>& answers_;
  };
  std::vector<bool> answers;
  const auto creator = makeForgetful(DataPtr(new AskingData(answers)));
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(answers, std::vector<bool>{false});
}

using CreatureTest = TreskTest::RecordBalanceTest;

TEST_F(CreatureTest, DefaultsOfACreature) {
  const CreatorPtr<CountingCreature> creature(new CountingCreature);
  EXPECT_FALSE(creature->hasData());
  EXPECT_FALSE(creature->isUnderCreation());
  EXPECT_FALSE(creature->discardCreation());
  EXPECT_EQ(creature->getAge(), 0);
  EXPECT_TRUE(creature->getProvenances().empty());
}

TEST_F(CreatureTest, CachingCanBeEnabledOnAConstantObject) {
  const CreatorPtr<CountingCreature> creature(new CountingCreature);
  const Creature& constant = *creature;
  constant.enableCaching(true);
  EXPECT_TRUE(creature->isKept());
  constant.enableCaching(false);
  EXPECT_FALSE(creature->isKept());
  EXPECT_EQ(creature->getCachingCount(), 3);
}

TEST_F(CreatureTest, HistoryIsKeptInOrder) {
  const CreatorPtr<CountingCreature> creature(new CountingCreature);
  using Entry = StrongPtr<Ostrel::Provenance, Ostrel::Provenance>;
  const Entry first(new Ostrel::Provenance("a/b"));
  creature->addProvenance(first);
  creature->addProvenance(Entry(new Ostrel::Provenance("c")));
  creature->addProvenance(first);
  const std::vector<Entry> history = creature->getProvenances();
  ASSERT_EQ(history.size(), 3U);
  EXPECT_TRUE(history[0] == first);
  EXPECT_EQ(history[1]->getPath('/'), "c");
  EXPECT_TRUE(history[2] == first);
}

TEST_F(CreatureTest, HistoryGrowsFromSeveralThreadsWhileItIsRead) {
  const CreatorPtr<CountingCreature> creature(new CountingCreature);
  using Entry = StrongPtr<Ostrel::Provenance, Ostrel::Provenance>;
  constexpr int nEntries = 100;
  TreskTest::RaceRunner race;
  race.add(2, [&](int thread) {
    for (int i = 0; i < nEntries; ++i) creature->addProvenance(Entry(new Ostrel::Provenance(std::to_string(thread))));
  });
  std::size_t nSeen = 0;
  bool hasShrunk = false;
  race.add([&](int) {
    while (nSeen < 2 * nEntries) {
      const std::size_t n = creature->getProvenances().size();
      if (n < nSeen) hasShrunk = true;
      nSeen = n;
    }
  });
  race.run();
  EXPECT_FALSE(hasShrunk);
  EXPECT_EQ(creature->getProvenances().size(), 2U * nEntries);
}

}  // namespace
