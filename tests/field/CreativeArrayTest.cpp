// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArray.hpp>

#include <tresk/field/TreskType.hpp>

#include <support/FieldDoubles.hpp>
#include <support/ProfilerRecorder.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Ostrel::Ageable;
using Ostrel::Creature;
using Ostrel::Intercube;
using Tresk::CachePtr;
using Tresk::CreativeArray;
using Tresk::SaveItem;
using TreskTest::attachArrayProducer;
using TreskTest::clockNow;
using TreskTest::CreatorOwner;
using TreskTest::CreatorPtr;
using TreskTest::CreatorWeakPtr;
using TreskTest::dataStamp;
using TreskTest::KindPtr;
using TreskTest::makeArray;
using TreskTest::makeDeadArray;
using TreskTest::makeOwner;
using TreskTest::MemBasePtr;
using TreskTest::WatchedArray;

using CreativeArrayTest = TreskTest::RecordBalanceTest;
using ArrayPtr = KindPtr<WatchedArray>;

ArrayPtr makeCreator(const MemBasePtr& data, const CachePtr& cache = {}) {
  return ArrayPtr(new WatchedArray(data, cache));
}
MemBasePtr makeOne() { return makeArray(1); }

/// An array that tells of its end.
class Doomed : public Tresk::MemArray<1, double> {
 public:
  explicit Doomed(std::vector<std::string>& log)
      : MemBase(*Tresk::getTreskType<double>(), CreatorWeakPtr()),
        MemArray<1, double>(Tresk::MultiIndex<1>(1), CreatorWeakPtr()),
        log_(log) {}
  ~Doomed() override { log_.push_back(isOnCacheList() ? "destroyed on a list" : "destroyed"); }
  void extremeUnction() override { log_.push_back(isOnCacheList() ? "rites on a list" : "rites"); }

 private:
  std::vector<std::string>& log_;
};

TEST_F(CreativeArrayTest, HoldsTiesTouchesAndDescribesItsData) {
  const MemBasePtr data = makeArray(3, 2, 0.0);
  const CachePtr cache(new Ostrel::Cache);
  const long long clock = clockNow();
  auto* const made = new WatchedArray(data, cache);
  EXPECT_EQ(made->getCachingCount(), 0) << "a constructor enables no caching";
  const ArrayPtr creator(made);
  EXPECT_EQ(clockNow(), clock + 1) << "one touch";
  EXPECT_EQ(dataStamp(*creator), clock + 1);
  EXPECT_EQ(data.strongCount(), 2);
  EXPECT_TRUE(data->getCreator() == creator);
  EXPECT_EQ(cache->nCacheables(), 1U);
  EXPECT_EQ(data->getUseCount(), 0);
  EXPECT_EQ(creator->getCachingCount(), 1);
  EXPECT_EQ(Ostrel::findInterface<Tresk::SizeInterface>(*creator)->str(), "3x2");
  EXPECT_EQ(Ostrel::findInterface<Tresk::MemArrayProperties>(*creator)->getRank(), 2);
  EXPECT_TRUE(creator->getTreskType() == Tresk::getTreskType<double>());
  EXPECT_EQ(creator->savedAge, Ageable::Ooooold);
}

TEST_F(CreativeArrayTest, HoldsDataThatItsCreatorFormerlyHeld) {
  const MemBasePtr data = makeArray(1);
  const auto former = makeCreator(data);
  const auto creator = makeCreator(data);
  EXPECT_TRUE(data->getCreator() == creator);
  EXPECT_TRUE(former->hasData());
}

TEST_F(CreativeArrayTest, InvalidDataMakeAnEmptyCreatorWithoutSize) {
  const long long clock = clockNow();
  for (const MemBasePtr& none : {MemBasePtr(), makeDeadArray()}) {
    const auto creator = makeCreator(none);
    EXPECT_FALSE(creator->hasData());
    EXPECT_FALSE(Tresk::getSize(*creator));
    EXPECT_FALSE(creator->getTreskType());
    EXPECT_EQ(dataStamp(*creator), 0);
  }
  EXPECT_EQ(clockNow(), clock);
}

TEST_F(CreativeArrayTest, AnEmptyCreatorCannotReleaseWithoutAProducerAndHasReleasedWithOne) {
  const auto creator = makeCreator(MemBasePtr());
  EXPECT_EQ(creator->release(), Creature::CannotRelease);
  attachArrayProducer(*creator, makeOne);
  EXPECT_EQ(creator->release(), Creature::Released);
}

TEST_F(CreativeArrayTest, AnEmptyCreatorOffersItsInvalidDataForSaving) {
  const auto creator = makeCreator(MemBasePtr());
  bool isValid = true;
  const auto saver = makeOwner<CreatorOwner>([&isValid](Intercube& question, const Intercube&) {
    isValid = Ostrel::StrongPtr<SaveItem<MemBasePtr>, Ostrel::InterfaceBase>(question.findInterface(typeid(MemBasePtr)))
                  ->getItem()
                  .isValid();
    return true;
  });
  creator->addOwner(saver);
  creator->release();
  EXPECT_EQ(saver->nQuestions, 1) << "a data age of 0 is newer than never saved";
  EXPECT_FALSE(isValid);
}

// ------------------------------------------------------------------------------------------------------ the release

/// What `release` did in one situation.
struct Outcome {
  Creature::ReasonForReleasal reason;
  int nSaved;
  bool isHeldAfterwards;
};

struct Situation {
  bool isSaved = false;      ///< the data age is not newer than the saved age
  bool hasProducer = false;  ///< a producer that says yes
  bool hasData = true;
  bool isHeldElsewhere = false;
};

Outcome releaseIn(const Situation& situation) {
  MemBasePtr data = situation.hasData ? makeArray(1) : MemBasePtr();
  const auto creator = makeCreator(data);
  if (!situation.isHeldElsewhere) data.reset();
  if (situation.isSaved) creator->savedAge = creator->getDataAge();
  if (situation.hasProducer) attachArrayProducer(*creator, makeOne);
  const auto saver = makeOwner<CreatorOwner>();
  creator->addOwner(saver);
  const auto reason = creator->CreativeArray::release();
  return {reason, saver->nQuestions, creator->hasData()};
}

TEST_F(CreativeArrayTest, SavedDataWithoutProducerStay) {
  const Outcome outcome = releaseIn({.isSaved = true});
  EXPECT_EQ(outcome.reason, Creature::CannotRelease);
  EXPECT_EQ(outcome.nSaved, 0);
  EXPECT_TRUE(outcome.isHeldAfterwards);
}

TEST_F(CreativeArrayTest, DirtyDataWithoutProducerAreSavedAndStay) {
  const Outcome outcome = releaseIn({});
  EXPECT_EQ(outcome.reason, Creature::CannotRelease);
  EXPECT_EQ(outcome.nSaved, 1);
  EXPECT_TRUE(outcome.isHeldAfterwards);
}

TEST_F(CreativeArrayTest, WithAProducerAndWithoutDataThereIsNothingLeftToRelease) {
  for (const bool isSaved : {false, true}) {
    const Outcome outcome = releaseIn({.isSaved = isSaved, .hasProducer = true, .hasData = false});
    EXPECT_EQ(outcome.reason, Creature::Released);
    EXPECT_EQ(outcome.nSaved, isSaved ? 0 : 1);
    EXPECT_FALSE(outcome.isHeldAfterwards);
  }
}

TEST_F(CreativeArrayTest, DataThatACallerHoldsDuringTheReleaseStay) {
  for (const bool isSaved : {false, true}) {
    const Outcome outcome = releaseIn({.isSaved = isSaved, .hasProducer = true, .isHeldElsewhere = true});
    EXPECT_EQ(outcome.reason, Creature::StillInUse);
    EXPECT_EQ(outcome.nSaved, isSaved ? 0 : 1);
    EXPECT_TRUE(outcome.isHeldAfterwards);
  }
}

TEST_F(CreativeArrayTest, DataThatTheCreatorAloneHoldsGo) {
  for (const bool isSaved : {false, true}) {
    const Outcome outcome = releaseIn({.isSaved = isSaved, .hasProducer = true});
    EXPECT_EQ(outcome.reason, Creature::Released);
    EXPECT_EQ(outcome.nSaved, isSaved ? 0 : 1);
    EXPECT_FALSE(outcome.isHeldAfterwards);
  }
}

TEST_F(CreativeArrayTest, ReleaseSavesDirtyDataBeforeItLetsGo) {
  std::vector<std::string> log;
  const auto creator = makeCreator(MemBasePtr(new Doomed(log)));
  const auto saver = makeOwner<CreatorOwner>([&](Intercube&, const Intercube&) {
    log.push_back(creator->hasData() ? "saved with data" : "saved without data");
    return true;
  });
  creator->addOwner(saver);
  const auto producer = attachArrayProducer(*creator, makeOne);
  producer->onQuestion = [&log] { log.push_back("producer asked"); };
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(log, (std::vector<std::string>{"saved with data", "producer asked", "rites", "destroyed"}));
  EXPECT_EQ(creator->getData().getRecord(), nullptr);
}

TEST_F(CreativeArrayTest, ReleasedDataLeaveTheListOfTheCacheBetweenTheirRitesAndTheirDestructor) {
  std::vector<std::string> log;
  const CachePtr cache(new Ostrel::Cache);
  const auto creator = makeCreator(MemBasePtr(new Doomed(log)), cache);
  ASSERT_EQ(cache->nCacheables(), 1U);
  attachArrayProducer(*creator, makeOne);
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(log, (std::vector<std::string>{"rites on a list", "destroyed"}));
  EXPECT_EQ(cache->nCacheables(), 0U);
}

TEST_F(CreativeArrayTest, TheProducerIsAskedBeforeTheDataAreLookedAt) {
  const auto creator = makeCreator(MemBasePtr());
  const auto producer = attachArrayProducer(*creator, makeOne);
  producer->canProduceNow = false;
  EXPECT_EQ(creator->release(), Creature::CannotRelease);
  EXPECT_EQ(producer->nQuestions, 1);
}

TEST_F(CreativeArrayTest, AProducerThatCannotProduceNowKeepsTheData) {
  const auto creator = makeCreator(makeArray(1));
  const auto producer = attachArrayProducer(*creator, makeOne);
  producer->canProduceNow = false;
  EXPECT_EQ(creator->release(), Creature::CannotRelease);
  EXPECT_TRUE(creator->hasData());
  producer->canProduceNow = true;
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_FALSE(creator->hasData());
}

TEST_F(CreativeArrayTest, AProducerThatIsReplacedIsAskedNoMore) {
  const auto creator = makeCreator(makeArray(1));
  const auto former = attachArrayProducer(*creator, makeOne);
  const auto present = attachArrayProducer(*creator, makeOne);
  present->canProduceNow = false;
  EXPECT_EQ(creator->release(), Creature::CannotRelease);
  EXPECT_EQ(former->nQuestions, 0);
  EXPECT_EQ(present->nQuestions, 1);
}

TEST_F(CreativeArrayTest, TheSavedAgeIsTheSaversToRaise) {
  const auto creator = makeCreator(makeArray(1));
  const auto saver = makeOwner<CreatorOwner>();
  creator->addOwner(saver);
  const Ageable dataAge = creator->getDataAge();
  creator->release();
  EXPECT_EQ(creator->savedAge, Ageable::Ooooold);
  EXPECT_EQ(creator->getDataAge(), dataAge);
  creator->release();
  EXPECT_EQ(saver->nQuestions, 2) << "as long as nobody raises the saved age, each release saves";
}

TEST_F(CreativeArrayTest, ASecondReleaseOfReleasedDataSavesAgain) {
  const auto creator = makeCreator(makeArray(1));
  attachArrayProducer(*creator, makeOne);
  const auto saver = makeOwner<CreatorOwner>();
  creator->addOwner(saver);
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(saver->nQuestions, 2);
}

TEST_F(CreativeArrayTest, ASaverThatRaisesTheSavedAgeIsAskedAgainOnlyAfterAChange) {
  const auto creator = makeCreator(makeArray(1));
  const auto saver = makeOwner<CreatorOwner>([](Intercube& question, const Intercube&) {
    const Ostrel::StrongPtr<SaveItem<CreatorPtr>, Ostrel::InterfaceBase> item(
        question.findInterface(typeid(CreatorPtr)));
    item->getItem()->savedAge = item->getItem()->getDataAge();
    return true;
  });
  creator->addOwner(saver);
  creator->release();
  creator->release();
  EXPECT_EQ(saver->nQuestions, 1);
  creator->touch();
  creator->release();
  EXPECT_EQ(saver->nQuestions, 2);
}

TEST_F(CreativeArrayTest, ASaverThatKeepsTheDataKeepsThemInUse) {
  const auto creator = makeCreator(makeArray(1));
  attachArrayProducer(*creator, makeOne);
  MemBasePtr kept;
  const auto saver = makeOwner<CreatorOwner>([&kept](Intercube& question, const Intercube&) {
    kept = Ostrel::StrongPtr<SaveItem<MemBasePtr>, Ostrel::InterfaceBase>(question.findInterface(typeid(MemBasePtr)))
               ->getItem();
    return true;
  });
  creator->addOwner(saver);
  EXPECT_EQ(creator->release(), Creature::StillInUse);
  EXPECT_TRUE(kept == creator->getData());
}

TEST_F(CreativeArrayTest, ReleaseCopiesNoData) {
  const auto creator = makeCreator(makeArray(1000));
  const Ostrel::WeakPtr<Tresk::MemBase, Ostrel::Cacheable> data = creator->getData();
  const auto saver = makeOwner<CreatorOwner>();
  const long long nBytes = Ostrel::ChunkBase::TotalMemsize.get();
  long long nBytesInside = 0;
  saver->onQuestion = [&nBytesInside](Intercube&, const Intercube&) {
    nBytesInside = Ostrel::ChunkBase::TotalMemsize.get();
    return true;
  };
  creator->addOwner(saver);
  creator->release();
  EXPECT_EQ(nBytesInside, nBytes);
  EXPECT_EQ(Ostrel::ChunkBase::TotalMemsize.get(), nBytes);
  EXPECT_TRUE(creator->getData() == data);
}

void expectReleaseScope(const Ostrel::Profiler::Scope& scope) {
  EXPECT_EQ(scope.file, "field/CreativeArray");
  EXPECT_EQ(scope.line, 74);
  EXPECT_EQ(scope.function, "virtual Ostrel::Creature::ReasonForReleasal Tresk::CreativeArray::release()");
  EXPECT_EQ(scope.name, "CreativeArray::release()");
  EXPECT_EQ(scope.level, 5);
  EXPECT_EQ(scope.detail, "");
}

TEST_F(CreativeArrayTest, TheScopeOfTheProfileHasItsLiteralTextsAndHoldsThatOfTheSave) {
  const auto creator = makeCreator(makeArray(1));
  TreskTest::ProfilerRecorder recorder;
  creator->release();
  const auto events = recorder.events();
  ASSERT_EQ(events.size(), 4U);
  EXPECT_TRUE(events[0].isBegin);
  expectReleaseScope(events[0].scope);
  EXPECT_TRUE(events[1].isBegin);
  EXPECT_EQ(events[1].scope.name, "CreativeArrayBase::save()");
  EXPECT_FALSE(events[2].isBegin);
  EXPECT_EQ(events[2].scope.name, "CreativeArrayBase::save()");
  EXPECT_FALSE(events[3].isBegin);
  EXPECT_EQ(events[3].scope.name, "CreativeArray::release()");
}

TEST_F(CreativeArrayTest, TheScopeOfTheProfileHoldsTheEndOfTheDataOnThePathThatReleasesThem) {
  std::vector<std::string> log;
  const auto creator = makeCreator(MemBasePtr(new Doomed(log)));
  creator->savedAge = creator->getDataAge();
  attachArrayProducer(*creator, makeOne);

  class Order : public Ostrel::Profiler::Listener {
   public:
    explicit Order(std::vector<std::string>& log) : log_(log) { former_ = Ostrel::Profiler::setListener(this); }
    ~Order() override { Ostrel::Profiler::setListener(former_); }
    void begin(const Ostrel::Profiler::Scope&) override { log_.push_back("begin"); }
    void end(const Ostrel::Profiler::Scope&) override { log_.push_back("end"); }

   private:
    std::vector<std::string>& log_;
    Listener* former_;
  };
  {
    const Order order(log);
    creator->release();
  }
  EXPECT_EQ(log, (std::vector<std::string>{"begin", "rites", "destroyed", "end"}));
}

TEST_F(CreativeArrayTest, AnExceptionOfASaverPassesAndLeavesTheData) {
  const auto creator = makeCreator(makeArray(1));
  const auto producer = attachArrayProducer(*creator, makeOne);
  const auto saver = makeOwner<CreatorOwner>(
      [](Intercube&, const Intercube&) -> bool { throw std::runtime_error("the disk is full"); });
  creator->addOwner(saver);
  TreskTest::ProfilerRecorder recorder;
  EXPECT_THROW(creator->release(), std::runtime_error);
  EXPECT_TRUE(creator->hasData());
  EXPECT_EQ(creator->getData().strongCount(), 2);
  EXPECT_EQ(producer->nQuestions, 0);
  ASSERT_EQ(recorder.events().size(), 4U);
  EXPECT_FALSE(recorder.events()[3].isBegin);
  expectReleaseScope(recorder.events()[3].scope);
}

TEST_F(CreativeArrayTest, AnExceptionOfAProducerPassesAndLeavesTheData) {
  const auto creator = makeCreator(makeArray(1));
  const auto producer = attachArrayProducer(*creator, makeOne);
  producer->onQuestion = [] { throw std::runtime_error("no connection"); };
  TreskTest::ProfilerRecorder recorder;
  EXPECT_THROW(creator->release(), std::runtime_error);
  EXPECT_TRUE(creator->hasData());
  EXPECT_EQ(recorder.events().size(), 4U);
}

// --------------------------------------------------------------------------------------------------------- its life

TEST_F(CreativeArrayTest, ReleasedDataComeBackThroughTheProducer) {
  const auto creator = makeCreator(makeArray(2, 3, 1.0));
  const auto producer = attachArrayProducer(*creator, [] { return makeArray(2, 3, 2.0); });
  ASSERT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "2x3") << "size and type stay known meanwhile";
  EXPECT_TRUE(creator->getTreskType() == Tresk::getTreskType<double>());
  EXPECT_EQ(producer->nProductions, 0);
  const MemBasePtr again = creator->create(false);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->getElementString(0), makeArray(2, 3, 2.0)->getElementString(0));
  EXPECT_EQ(producer->nProductions, 1);
  EXPECT_TRUE(producer->lastCreator == creator);
  EXPECT_TRUE(again->getCreator() == creator);
}

TEST_F(CreativeArrayTest, WithoutProducerTheDataStayForLife) {
  const CachePtr cache(new Ostrel::Cache);
  const auto creator = makeCreator(makeArray(4), cache);
  const auto saver = makeOwner<CreatorOwner>();
  creator->addOwner(saver);
  EXPECT_EQ(cache->trim(1000), 0U);
  EXPECT_EQ(cache->trim(1000), 0U);
  EXPECT_EQ(creator->nReleases, 2);
  EXPECT_EQ(saver->nQuestions, 2) << "each attempt may save";
  EXPECT_TRUE(creator->hasData());
}

TEST_F(CreativeArrayTest, ItsEndSavesNothing) {
  const auto saver = makeOwner<CreatorOwner>();
  Ostrel::WeakPtr<Tresk::MemBase, Ostrel::Cacheable> data;
  {
    const auto creator = makeCreator(makeArray(1));
    creator->addOwner(saver);
    data = creator->getData();
  }
  EXPECT_EQ(saver->nQuestions, 0);
  EXPECT_FALSE(data.isValid());
}

TEST_F(CreativeArrayTest, InheritsProductionAndRequests) {
  const auto creator = makeCreator(makeArray(1));
  EXPECT_FALSE(creator->request({}));
  EXPECT_FALSE(creator->canProduce());
  EXPECT_EQ(creator->producerName(), "");
  EXPECT_TRUE(creator->produce() == creator->getData());
  attachArrayProducer(*creator, makeOne);
  EXPECT_TRUE(creator->request({}));
  EXPECT_TRUE(creator->canProduce());
  EXPECT_EQ(creator->producerName(), "array producer");
}

TEST_F(CreativeArrayTest, ProductionNeitherTiesNorTouchesNorMarksNorEnablesCaching) {
  const auto creator = makeCreator(MemBasePtr());
  attachArrayProducer(*creator, makeOne);
  const long long clock = clockNow();
  const MemBasePtr made = creator->produce();
  ASSERT_TRUE(made);
  EXPECT_EQ(made->getCreator().getRecord(), nullptr);
  EXPECT_EQ(made->getUseCount(), 0);
  EXPECT_EQ(clockNow(), clock);
  EXPECT_EQ(creator->getCachingCount(), 1);
  EXPECT_FALSE(Ostrel::findInterface<Tresk::SizeInterface>(*creator)) << "producers describe nothing";
}

}  // namespace
