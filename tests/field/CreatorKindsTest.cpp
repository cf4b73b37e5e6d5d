// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

// What holds for every kind of creator, whoever makes its data.

namespace {

using Ostrel::Creature;
using Tresk::CachePtr;
using Tresk::MemBase;
using TreskTest::CacheWeakPtr;
using TreskTest::clockNow;
using TreskTest::CreatorOwner;
using TreskTest::CreatorPtr;
using TreskTest::CreatorWeakPtr;
using TreskTest::dataStamp;
using TreskTest::makeArray;
using TreskTest::makeOwner;
using TreskTest::MemBasePtr;

/// Where the data of the creator under test come from.
struct Source {
  int nMade = 0;
  bool isEmpty = false;
  bool fails = false;

  MemBasePtr make() {
    ++nMade;
    if (fails) throw std::runtime_error("the source is dry");
    return isEmpty ? MemBasePtr() : makeArray(3, 2, nMade);
  }
};
using SourcePtr = std::shared_ptr<Source>;

/// Holds data for good unless a producer can make them again; here it can.
struct KeepingKind {
  static CreatorPtr make(const SourcePtr& source, const CachePtr& cache) {
    const CreatorPtr creator(new Tresk::CreativeArray(MemBasePtr(), cache));
    TreskTest::attachArrayProducer(*creator, [source] { return source->make(); });
    return creator;
  }
  static constexpr bool touchesInProduction = false;
  static constexpr bool tiesInProduction = false;
};
struct ForgetfulKind {
  static CreatorPtr make(const SourcePtr& source, const CachePtr& cache) {
    const CreatorPtr creator(new TreskTest::ForgetfulArray(cache));
    TreskTest::attachArrayProducer(*creator, [source] { return source->make(); });
    return creator;
  }
  static constexpr bool touchesInProduction = false;
  static constexpr bool tiesInProduction = false;
};
struct FunctionalKind {
  static CreatorPtr make(const SourcePtr& source, const CachePtr& cache) {
    return CreatorPtr(new Tresk::FunctionalCreator([source] { return source->make(); }, false, cache));
  }
  static constexpr bool touchesInProduction = false;
  static constexpr bool tiesInProduction = false;
};
struct OnDemandKind {
  static CreatorPtr make(const SourcePtr& source, const CachePtr& cache) {
    const TreskTest::SharedComputer computer([source](const CreatorWeakPtr&) { return source->make(); });
    return CreatorPtr(new Tresk::OnDemandCreator<TreskTest::SharedComputer, 2, double>(computer, cache));
  }
  static constexpr bool touchesInProduction = true;
  static constexpr bool tiesInProduction = true;
};

template <class Kind>
class CreatorKindsTest : public TreskTest::RecordBalanceTest {
 protected:
  SourcePtr source = std::make_shared<Source>();
  CachePtr cache{new Ostrel::Cache};
  CreatorPtr subject = Kind::make(source, cache);

  /// The text of the first element, which numbers the productions.
  static std::string mark(const MemBasePtr& data) { return data ? data->getElementString(0) : "none"; }
};

struct KindNames {
  template <class Kind>
  static std::string GetName(int) {
    if (std::is_same_v<Kind, KeepingKind>) return "CreativeArray";
    if (std::is_same_v<Kind, ForgetfulKind>) return "AlzheimerCreator";
    if (std::is_same_v<Kind, FunctionalKind>) return "FunctionalCreator";
    return "OnDemandCreator";
  }
};
using Kinds = ::testing::Types<KeepingKind, ForgetfulKind, FunctionalKind, OnDemandKind>;
TYPED_TEST_SUITE(CreatorKindsTest, Kinds, KindNames);

TYPED_TEST(CreatorKindsTest, BeginsWithoutDataAndMakesNoneByItself) {
  CreatorPtr& creator = this->subject;
  EXPECT_FALSE(creator->hasData());
  EXPECT_FALSE(creator->getData());
  EXPECT_FALSE(creator->getCacheable());
  EXPECT_FALSE(creator->takeData());
  EXPECT_EQ(Tresk::getMemoryUsage(*creator), 0U);
  EXPECT_FALSE(Tresk::getSize(*creator));
  EXPECT_FALSE(creator->getTreskType());
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_FALSE(creator->discardCreation());
  EXPECT_EQ(dataStamp(*creator), 0);
  EXPECT_EQ(this->source->nMade, 0);
}

TYPED_TEST(CreatorKindsTest, StandsInTheBooksOfItsCacheFromItsFirstStrongPointer) {
  EXPECT_EQ(this->subject->getCachingCount(), 1);
  EXPECT_FALSE(this->subject->isKept());
  EXPECT_EQ(this->cache->nCreatures(), 1U);
  this->subject.reset();
  EXPECT_EQ(this->cache->nCreatures(), 0U);
}

TYPED_TEST(CreatorKindsTest, CreatingProducesOnceTiesListsAndEnablesCaching) {
  CreatorPtr& creator = this->subject;
  const long long clock = clockNow();
  const MemBasePtr made = creator->create(false);
  ASSERT_TRUE(made);
  EXPECT_EQ(this->source->nMade, 1);
  EXPECT_TRUE(made->getCreator() == creator);
  EXPECT_EQ(this->cache->nCacheables(), 1U);
  EXPECT_EQ(creator->getCachingCount(), 2);
  EXPECT_FALSE(creator->isKept());
  EXPECT_EQ(made->getUseCount(), 0) << "fresh data are not marked";
  EXPECT_EQ(clockNow(), clock + (TypeParam::touchesInProduction ? 1 : 0));
  EXPECT_TRUE(creator->hasData());
  EXPECT_TRUE(creator->getData() == made);
}

TYPED_TEST(CreatorKindsTest, CreatingAgainFindsTheDataAndMarksThem) {
  CreatorPtr& creator = this->subject;
  const MemBasePtr made = creator->create(false);
  const long long clock = clockNow();
  EXPECT_TRUE(creator->create(false) == made);
  EXPECT_TRUE(creator->create(false) == made);
  EXPECT_EQ(made->getUseCount(), 2);
  EXPECT_TRUE(creator->create(true) == made);
  EXPECT_EQ(made->getUseCount(), 2) << "what is kept is not marked";
  EXPECT_EQ(this->source->nMade, 1);
  EXPECT_EQ(creator->getCachingCount(), 2) << "a hit enables no caching";
  EXPECT_EQ(clockNow(), clock);
}

TYPED_TEST(CreatorKindsTest, CreatingForKeepsTellsTheCacheToLeaveTheDataAlone) {
  CreatorPtr& creator = this->subject;
  creator->create(true);
  EXPECT_TRUE(creator->isKept());
  EXPECT_EQ(this->cache->trim(1000), 0U);
  EXPECT_TRUE(creator->hasData());
}

TYPED_TEST(CreatorKindsTest, ProductionAloneEnablesNoCachingAndMarksNothing) {
  CreatorPtr& creator = this->subject;
  const long long clock = clockNow();
  const MemBasePtr made = creator->produce();
  ASSERT_TRUE(made);
  EXPECT_EQ(creator->getCachingCount(), 1);
  EXPECT_EQ(made->getUseCount(), 0);
  EXPECT_EQ(made->getCreator() == creator, TypeParam::tiesInProduction);
  EXPECT_EQ(clockNow(), clock + (TypeParam::touchesInProduction ? 1 : 0));
  EXPECT_FALSE(Ostrel::findInterface<Tresk::SizeInterface>(*creator));
}

TYPED_TEST(CreatorKindsTest, LookingAtTheDataNeitherMarksNorTouches) {
  CreatorPtr& creator = this->subject;
  const MemBasePtr made = creator->create(false);
  const long long clock = clockNow();
  EXPECT_TRUE(creator->getData() == made);
  EXPECT_TRUE(creator->getCacheable() == made);
  EXPECT_TRUE(creator->hasData());
  EXPECT_EQ(Tresk::getMemoryUsage(*creator), 6 * sizeof(double));
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "3x2");
  EXPECT_EQ(made->getUseCount(), 0);
  EXPECT_EQ(clockNow(), clock);
  EXPECT_EQ(creator->getCachingCount(), 2);
}

TYPED_TEST(CreatorKindsTest, SizeStaysKnownAfterTheDataHaveGone) {
  CreatorPtr& creator = this->subject;
  creator->create(false);
  const Tresk::SizePtr size = Tresk::getSize(*creator);
  ASSERT_EQ(creator->release(), Creature::Released);
  EXPECT_TRUE(Tresk::getSize(*creator) == size);
  EXPECT_EQ(Tresk::getMemoryUsage(*creator), 0U);
  EXPECT_EQ(this->source->nMade, 1);
}

TYPED_TEST(CreatorKindsTest, MakingTheSizeProducesIfThatIsTheOnlyWay) {
  CreatorPtr& creator = this->subject;
  EXPECT_EQ(Tresk::makeSize(*creator)->str(), "3x2");
  EXPECT_EQ(this->source->nMade, 1);
  EXPECT_TRUE(creator->getData()->getCreator() == creator);
  EXPECT_EQ(creator->getCachingCount(), 2);
  EXPECT_EQ(creator->getData()->getUseCount(), 0);
  Tresk::makeSize(*creator);
  EXPECT_EQ(this->source->nMade, 1);
}

TYPED_TEST(CreatorKindsTest, DeclaredSizeAndTypeAreKnownWithoutData) {
  CreatorPtr& creator = this->subject;
  creator->addMetaInfo(Tresk::DynamicSize{3, 2}, Tresk::TreskTypePtr(Tresk::TreskTypeBase::find(typeid(double))));
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "3x2");
  EXPECT_EQ(creator->getTreskType()->getType(), typeid(double));
  EXPECT_EQ(this->source->nMade, 0);
}

TYPED_TEST(CreatorKindsTest, ReleaseGivesEachOfItsAnswers) {
  CreatorPtr& creator = this->subject;
  EXPECT_EQ(creator->release(), Creature::Released) << "nothing is held";
  MemBasePtr held = creator->create(false);
  EXPECT_EQ(creator->release(), Creature::StillInUse);
  EXPECT_TRUE(creator->getData() == held);
  const Ostrel::WeakPtr<MemBase, Ostrel::Cacheable> observer = held;
  held.reset();
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_FALSE(observer.isValid());
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->getData().getRecord(), nullptr);
  EXPECT_EQ(this->cache->nCacheables(), 0U);
}

TYPED_TEST(CreatorKindsTest, ReleasedDataAreMadeAnewAtTheNextAccess) {
  CreatorPtr& creator = this->subject;
  const std::string first = this->mark(creator->create(false));
  ASSERT_EQ(creator->release(), Creature::Released);
  const std::string second = this->mark(creator->create(false));
  EXPECT_NE(first, second);
  EXPECT_EQ(this->source->nMade, 2);
  EXPECT_EQ(creator->getCachingCount(), 3);
}

TYPED_TEST(CreatorKindsTest, TheCacheCanEmptyIt) {
  CreatorPtr& creator = this->subject;
  creator->create(false);
  EXPECT_EQ(this->cache->trim(1), 6 * sizeof(double));
  EXPECT_FALSE(creator->hasData());
  EXPECT_TRUE(creator->create(false));
  EXPECT_EQ(this->source->nMade, 2);
}

TYPED_TEST(CreatorKindsTest, TheCacheLeavesDataThatSomebodyHolds) {
  CreatorPtr& creator = this->subject;
  const MemBasePtr held = creator->create(false);
  EXPECT_EQ(this->cache->trim(1), 0U);
  EXPECT_TRUE(creator->hasData());
}

TYPED_TEST(CreatorKindsTest, AnExceptionOfTheSourcePassesAndTheNextAccessTriesAgain) {
  CreatorPtr& creator = this->subject;
  this->source->fails = true;
  EXPECT_THROW(creator->create(false), std::runtime_error);
  EXPECT_THROW(creator->produce(), std::runtime_error);
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->getCachingCount(), 1);
  this->source->fails = false;
  EXPECT_TRUE(creator->create(false));
  EXPECT_EQ(this->source->nMade, 3);
}

TYPED_TEST(CreatorKindsTest, AnEmptySourceGivesAnEmptyPointerAndTheNextAccessTriesAgain) {
  CreatorPtr& creator = this->subject;
  this->source->isEmpty = true;
  const long long clock = clockNow();
  EXPECT_EQ(creator->create(false).getRecord(), nullptr);
  EXPECT_FALSE(creator->produce());
  EXPECT_FALSE(Tresk::makeSize(*creator));
  EXPECT_EQ(creator->getCachingCount(), 1);
  EXPECT_EQ(clockNow(), clock);
  this->source->isEmpty = false;
  EXPECT_TRUE(creator->create(false));
}

TYPED_TEST(CreatorKindsTest, TakenDataLeaveItEmpty) {
  CreatorPtr& creator = this->subject;
  creator->create(false);
  const MemBasePtr taken = creator->takeData();
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken.strongCount(), 1);
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->getData().getRecord(), nullptr);
  EXPECT_TRUE(taken->getCreator() == creator) << "taking changes no creator";
}

TYPED_TEST(CreatorKindsTest, DataHeldElsewhereOutliveIt) {
  const MemBasePtr held = this->subject->create(false);
  this->subject.reset();
  EXPECT_FALSE(held->getCreator().isValid());
  EXPECT_EQ(held.strongCount(), 1);
  EXPECT_EQ(this->mark(held), this->mark(makeArray(1, 1, 1.0)));
}

TYPED_TEST(CreatorKindsTest, DataThatItAloneHoldsDieWithIt) {
  const Ostrel::WeakPtr<MemBase, Ostrel::Cacheable> observer = this->subject->create(false);
  ASSERT_TRUE(observer.isValid());
  this->subject.reset();
  EXPECT_FALSE(observer.isValid());
}

TYPED_TEST(CreatorKindsTest, ItsLastLookLeavesEverythingAsItIs) {
  CreatorPtr& creator = this->subject;
  creator->extremeUnction();
  EXPECT_EQ(this->source->nMade, 0);
  const MemBasePtr held = creator->create(false);
  creator->extremeUnction();
  EXPECT_EQ(held.strongCount(), 2);
  EXPECT_TRUE(creator->hasData());
}

TYPED_TEST(CreatorKindsTest, NeverRetries) {
  EXPECT_FALSE(this->subject->retryCreation(*this->subject));
  EXPECT_EQ(this->source->nMade, 0);
}

TYPED_TEST(CreatorKindsTest, RaisesTheAgesOfItsOwners) {
  CreatorPtr& creator = this->subject;
  const auto owner = makeOwner<CreatorOwner>();
  creator->addOwner(owner);
  creator->touch();
  creator->touchAttributes();
  EXPECT_EQ(owner->dataAge, creator->getDataAge());
  EXPECT_EQ(owner->attributeAge, creator->getAttributeAge());
}

TYPED_TEST(CreatorKindsTest, ReachesItsOwnersWhenItSaves) {
  CreatorPtr& creator = this->subject;
  const auto owner = makeOwner<CreatorOwner>();
  creator->addOwner(owner);
  creator->save(creator->create(false));
  EXPECT_FALSE(creator->getBinder());
  EXPECT_EQ(owner->nQuestions, 2);
}

TYPED_TEST(CreatorKindsTest, ServesAField) {
  const TreskTest::FieldPtr field(new Tresk::Field);
  field->setCreator(this->subject, TreskTest::unnamed());
  EXPECT_EQ(this->source->nMade, 0);
  const MemBasePtr made = field->getData(TreskTest::unnamed());
  ASSERT_TRUE(made);
  EXPECT_TRUE(this->subject->getData() == made);
  EXPECT_TRUE(field->getData(TreskTest::unnamed()) == made);
  EXPECT_EQ(made->getUseCount(), 1);
  EXPECT_EQ(this->source->nMade, 1);
  EXPECT_EQ(field->getSize()->str(), "3x2");
}

TYPED_TEST(CreatorKindsTest, AClearedFieldLeavesItWithoutData) {
  const TreskTest::FieldPtr field(new Tresk::Field);
  field->setCreator(this->subject, TreskTest::unnamed());
  field->getFirstData();
  field->clear();
  EXPECT_FALSE(this->subject->hasData());
  EXPECT_EQ(this->subject.strongCount(), 1);
}

}  // namespace
