// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/OnDemandCreator.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>
#include <typeinfo>

namespace {

using Ostrel::Creature;
using Tresk::MemArray;
using Tresk::MultiIndex;
using Tresk::OnDemandCreator;
using TreskTest::CacheWeakPtr;
using TreskTest::clockNow;
using TreskTest::CreatorOwner;
using TreskTest::CreatorPtr;
using TreskTest::CreatorWeakPtr;
using TreskTest::dataStamp;
using TreskTest::KindPtr;
using TreskTest::makeArray;
using TreskTest::makeOwner;
using TreskTest::MemBasePtr;
using TreskTest::SharedComputer;

using OnDemandCreatorTest = TreskTest::RecordBalanceTest;
using Lines = OnDemandCreator<SharedComputer, 1, double>;
using LinesPtr = KindPtr<Lines>;

LinesPtr makeLines(SharedComputer::Compute compute, const CacheWeakPtr& cache = {}) {
  return LinesPtr(new Lines(SharedComputer(std::move(compute)), cache));
}
LinesPtr makeLines() {
  return makeLines([](const CreatorWeakPtr&) { return makeArray(4); });
}

TEST_F(OnDemandCreatorTest, IsACreatorAndNoneOfTheHoldingKind) {
  EXPECT_TRUE((std::is_base_of_v<Tresk::CreativeArrayBase, Lines>));
  EXPECT_FALSE((std::is_base_of_v<Ostrel::Creator<Tresk::MemBase, Tresk::CreativeArrayBase>, Lines>));
}

TEST_F(OnDemandCreatorTest, BeginsEmpty) {
  const auto creator = makeLines();
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->getData().getRecord(), nullptr);
  EXPECT_EQ(creator->getCacheable().getRecord(), nullptr);
  EXPECT_EQ(creator->takeData().getRecord(), nullptr);
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_EQ(dataStamp(*creator), 0);
}

TEST_F(OnDemandCreatorTest, ProductionTiesTheArrayAndTouchesTheCreatorAtOnce) {
  const auto owner = makeOwner<CreatorOwner>();
  const auto creator = makeLines();
  creator->addOwner(owner);
  const long long clock = clockNow();
  const MemBasePtr made = creator->produce();
  ASSERT_TRUE(made);
  EXPECT_TRUE(creator->getData() == made);
  EXPECT_TRUE(made->getCreator() == creator);
  EXPECT_EQ(clockNow(), clock + 1);
  EXPECT_EQ(dataStamp(*creator), clock + 1);
  EXPECT_EQ(owner->dataAge.getAge(), clock + 1);
  EXPECT_EQ(made->getUseCount(), 0);
  EXPECT_EQ(creator->getCachingCount(), 1) << "that of the first strong pointer";
}

TEST_F(OnDemandCreatorTest, ProductionOfHeldDataComputesTouchesAndMarksNothing) {
  int nRuns = 0;
  const auto creator = makeLines([&nRuns](const CreatorWeakPtr&) {
    ++nRuns;
    return makeArray(1);
  });
  const MemBasePtr made = creator->produce();
  const long long clock = clockNow();
  EXPECT_TRUE(creator->produce() == made);
  EXPECT_EQ(nRuns, 1);
  EXPECT_EQ(clockNow(), clock);
  EXPECT_EQ(made->getUseCount(), 0);
}

TEST_F(OnDemandCreatorTest, TheComputerIsToldItsCreator) {
  CreatorWeakPtr told;
  const auto creator = makeLines([&told](const CreatorWeakPtr& self) {
    told = self;
    return makeArray(1);
  });
  creator->produce();
  EXPECT_TRUE(told == creator);
  EXPECT_EQ(creator.strongCount(), 1);
}

/// Returns the typed array itself.
struct TypedComputer {
  Ostrel::StrongPtr<MemArray<2, double>, Ostrel::Cacheable> operator()(const CreatorWeakPtr& creator) const {
    return Ostrel::StrongPtr<MemArray<2, double>, Ostrel::Cacheable>(
        new MemArray<2, double>(MultiIndex<2>(2, 3), creator));
  }
};
struct CubeComputer {
  MemBasePtr operator()(const CreatorWeakPtr& creator) const {
    return MemBasePtr(new MemArray<3, double>(MultiIndex<3>(2, 3, 4), creator));
  }
};

TEST_F(OnDemandCreatorTest, ServesEveryRankAndATypedResult) {
  const CreatorPtr plane(new OnDemandCreator<TypedComputer, 2, double>(TypedComputer(), CacheWeakPtr()));
  EXPECT_EQ(plane->create(false)->getSize().str(), "2x3");
  const CreatorPtr cube(new OnDemandCreator<CubeComputer, 3, double>(CubeComputer(), CacheWeakPtr()));
  EXPECT_EQ(cube->create(false)->getSize().str(), "2x3x4");
}

TEST_F(OnDemandCreatorTest, AnArrayOfAnotherRankOrTypeCountsAsNone) {
  const auto otherRank = makeLines([](const CreatorWeakPtr&) { return makeArray(2, 2, 0.0); });
  const auto otherType = makeLines(
      [](const CreatorWeakPtr& self) { return MemBasePtr(new MemArray<1, unsigned int>(MultiIndex<1>(2), self)); });
  const long long clock = clockNow();
  for (const auto& creator : {otherRank, otherType}) {
    EXPECT_FALSE(creator->produce());
    EXPECT_FALSE(creator->hasData());
    EXPECT_FALSE(creator->getData());
    EXPECT_FALSE(creator->create(false));
    EXPECT_EQ(creator->release(), Creature::Released);
  }
  EXPECT_EQ(clockNow(), clock) << "nothing was made, nothing is touched";
}

TEST_F(OnDemandCreatorTest, AComputerWithoutResultIsTriedAnew) {
  int nRuns = 0;
  const auto creator = makeLines([&nRuns](const CreatorWeakPtr&) { return ++nRuns < 2 ? MemBasePtr() : makeArray(1); });
  EXPECT_FALSE(creator->create(false));
  EXPECT_EQ(dataStamp(*creator), 0);
  EXPECT_TRUE(creator->create(false));
  EXPECT_EQ(nRuns, 2);
}

TEST_F(OnDemandCreatorTest, AnExceptionOfTheComputerPassesAndLeavesTheCreatorUsable) {
  bool fails = true;
  const auto creator = makeLines([&fails](const CreatorWeakPtr&) {
    if (fails) throw std::runtime_error("no operand");
    return makeArray(1);
  });
  EXPECT_THROW(creator->produce(), std::runtime_error);
  EXPECT_THROW(creator->create(false), std::runtime_error);
  EXPECT_FALSE(creator->hasData());
  fails = false;
  EXPECT_TRUE(creator->create(false));
}

TEST_F(OnDemandCreatorTest, TheTypeIsThatOfTheElementsWhetherDataAreHeldOrNot) {
  const auto creator = makeLines();
  EXPECT_EQ(creator->getType(), typeid(double));
  creator->produce();
  EXPECT_EQ(creator->getType(), typeid(double));
  creator->release();
  EXPECT_EQ(creator->getType(), typeid(double));
}

TEST_F(OnDemandCreatorTest, AFieldTellsTheElementTypeAsItsStorage) {
  const TreskTest::FieldPtr field(new Tresk::Field);
  field->setCreator(makeLines(), TreskTest::unnamed());
  EXPECT_EQ(field->getFieldStorageType(), typeid(double));
}

TEST_F(OnDemandCreatorTest, HeldDataShareTheirRecordInEveryForm) {
  const auto creator = makeLines();
  const MemBasePtr made = creator->produce();
  EXPECT_TRUE(creator->hasData());
  EXPECT_TRUE(creator->getData() == made);
  const Ostrel::StrongPtr<Ostrel::Cacheable, Ostrel::Cacheable> base = creator->getCacheable();
  EXPECT_TRUE(base == made);
  EXPECT_EQ(made.strongCount(), 3) << "the creator and two pointers here";
}

TEST_F(OnDemandCreatorTest, TakenDataLeaveTheCreatorEmpty) {
  const auto creator = makeLines();
  creator->produce();
  const MemBasePtr taken = creator->takeData();
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken.strongCount(), 1);
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->getData().getRecord(), nullptr);
}

TEST_F(OnDemandCreatorTest, ReleaseIsRefusedWhileACallerHoldsTheArray) {
  const auto creator = makeLines();
  MemBasePtr held = creator->produce();
  EXPECT_EQ(creator->release(), Creature::StillInUse);
  EXPECT_TRUE(creator->hasData());
  held.reset();
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_FALSE(creator->hasData());
}

TEST_F(OnDemandCreatorTest, TheRestIsThatOfAnyCreator) {
  const auto creator = makeLines();
  EXPECT_FALSE(creator->isUnderCreation());
  EXPECT_FALSE(creator->discardCreation());
  EXPECT_FALSE(creator->canProduce());
  EXPECT_EQ(creator->producerName(), "");
  EXPECT_FALSE(creator->request({}));
  const auto producer = TreskTest::attachArrayProducer(*creator, [] { return makeArray(9); });
  EXPECT_TRUE(creator->canProduce());
  EXPECT_EQ(creator->producerName(), "array producer");
  EXPECT_TRUE(creator->request({}));
  EXPECT_EQ(creator->create(false)->nElements(), 4U) << "the computer makes the data all the same";
  EXPECT_EQ(producer->nProductions, 0);
}

TEST_F(OnDemandCreatorTest, CreatingTiesAgainAndEnablesCaching) {
  const auto creator = makeLines();
  EXPECT_TRUE(creator->create(true));
  EXPECT_EQ(creator->getCachingCount(), 2);
  EXPECT_TRUE(creator->isKept());
  EXPECT_TRUE(creator->getData()->getCreator() == creator);
}

}  // namespace
