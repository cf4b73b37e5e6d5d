// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/ComputationalField.hpp>

#include <support/AsynchronDoubles.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <type_traits>

using Triple = Quorvel::FixedArray<double, 3>;

/// An operation of a program of its own: the sum of triples.
template <>
struct Quorvel::Operator<'+', 7> {
  static Triple apply(const Triple& a, const Triple& b) { return Triple(a[0] + b[0], a[1] + b[1], a[2] + b[2]); }
};

namespace {

using Ostrel::Creature;
using Tresk::AsynchronCreator;
using TreskTest::Failure;
using TreskTest::Flag;
using TreskTest::makeArray;
using TreskTest::MemBasePtr;
using TreskTest::MortalArray;
using TreskTest::SubjectPtr;
using TreskTest::SubjectWeakPtr;
using TreskTest::Tokens;

// ------------------------------------------------------------------------------------------ one thread after another

/// More than one thread of one creator: an older one that is late, and one that is begun by the end of another.
using SuccessiveThreadsTest = TreskTest::AsynchronCreatorFixture;

TEST_F(SuccessiveThreadsTest, ALateThreadDoesNotSpeakForItsSuccessor) {
  const std::thread::id here = std::this_thread::get_id();
  Tokens hasBegun;
  Tokens first;
  Tokens second;
  std::atomic<int> nThreads{0};
  Tresk::Detail::asynchronHooks().beforeLock = [&] {
    if (std::this_thread::get_id() == here) return;
    if (++nThreads == 1) {
      hasBegun.add();
      first.take();
    } else {
      first.add();
      second.take();
    }
  };
  Tresk::Detail::asynchronHooks().beforeWait = [&second] { second.add(); };
  const SubjectPtr creator = makeGated(0);
  EXPECT_TRUE(creator->request({}));
  hasBegun.take();
  // The work is done here before the thread comes to it, so that another can be requested.
  EXPECT_TRUE(AsynchronCreator::createData(SubjectWeakPtr(creator), {}));
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_TRUE(creator->request({}));  // returns when the first thread has ended; the second has not begun
  EXPECT_EQ(creator->nCreations(), 2);
  EXPECT_EQ(creator->release(), Creature::Released);
  EXPECT_TRUE(creator->produce()) << "which lets the second thread begin, and would hang otherwise";
  EXPECT_EQ(creator->nCreations(), 3);
}

TEST_F(SuccessiveThreadsTest, AnEndingThreadThatWaitsForItsSuccessorGetsTheFailureOfThat) {
  SubjectPtr watched;
  Tokens done;
  int nFailures = 0;
  const SubjectPtr creator = make([this](const Flag&) {
    const int run = ++nRuns;
    if (run == 1) gate.pass();
    if (run == 2) throw Failure("the second time");
    return makeArray(1);
  });
  start(*creator);
  watched = creator;
  // Dies at the end of the first thread, behind the lock.
  creator->hold(MemBasePtr(new MortalArray([&] {
    watched->takeData();
    EXPECT_TRUE(watched->request({}));
    try {
      watched->produce();
    } catch (const Failure&) {
      ++nFailures;
    }
    watched.reset();
    done.add();
  })));
  gate.open();
  done.take();
  EXPECT_EQ(nFailures, 1);
  EXPECT_EQ(nRuns, 2) << "the failure is passed on and not hidden by another run";
  EXPECT_TRUE(creator->isUnderCreation()) << "stuck";
}

// ------------------------------------------------------------------------------------------------ inside the function

using AsynchronFunctionTest = TreskTest::AsynchronCreatorFixture;

TEST_F(AsynchronFunctionTest, AProductionHereMayTrimTheCacheThatListsWhatItMadeBefore) {
  unsigned long long nTrimmed = 1;
  const SubjectPtr creator = make([&](const Flag&) {
    if (++nRuns == 2) nTrimmed = cache->trim(1000);
    return makeArray(1);
  });
  const MemBasePtr former = creator->create(false);  // tied to the creator, and not held by it
  EXPECT_EQ(cache->nCacheables(), 1U);
  EXPECT_TRUE(creator->create(false)) << "would hang if the release waited for the production";
  EXPECT_EQ(nTrimmed, 0U);
  EXPECT_EQ(nRuns, 2);
}

TEST_F(AsynchronFunctionTest, TheProcessMayEndInsideTheFunction) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto endInside = [this] {
    const SubjectPtr creator = make([](const Flag&) -> MemBasePtr { std::exit(3); });
    creator->request({});
    Tokens never;
    never.take();
  };
  EXPECT_EXIT(endInside(), ::testing::ExitedWithCode(3), "");
}

// ------------------------------------------------------------------------------------------------------------ classes

/// The classes of a computed field.
using PlusOfDoubles = Tresk::BinaryOperator<Quorvel::Operator<43, 0>, double, double, double>;
using SumField = Tresk::ComputationalField<PlusOfDoubles>;

TEST(ComputedFieldClassTest, IsAFieldFirstThatInheritsItsEmptyOperator) {
  EXPECT_TRUE(std::is_empty_v<PlusOfDoubles>);
  EXPECT_FALSE(std::is_polymorphic_v<PlusOfDoubles>);
  EXPECT_TRUE((std::is_base_of_v<PlusOfDoubles, SumField>));
  EXPECT_TRUE((std::is_convertible_v<SumField*, PlusOfDoubles*>));
  const Ostrel::StrongPtr<SumField, Tresk::CreatorContainer> sum(new SumField(Tresk::FieldPtr(), Tresk::FieldPtr()));
  const auto* const object = sum.get();
  EXPECT_EQ(static_cast<const void*>(static_cast<const Tresk::Field*>(object)), static_cast<const void*>(object));
  EXPECT_GE(sizeof(SumField), sizeof(Tresk::Field) + sizeof(Tresk::FieldPtr) + sizeof(Tresk::CacheWeakPtr));
}

TEST(ComputedFieldClassTest, CombinesElementsOfSeveralComponentsByAnOperationOfTheProgram) {
  using TriplesPtr = Ostrel::StrongPtr<Tresk::MemArray<2, Triple>, Ostrel::Cacheable>;
  using SumOfTriples = Tresk::BinaryOperator<Quorvel::Operator<'+', 7>, Triple, Triple, Triple>;
  const auto makeTriples = [](double scale) {
    const TriplesPtr triples(new Tresk::MemArray<2, Triple>({4, 2}, Tresk::CreatorWeakPtr()));
    for (unsigned int e = 0; e < 8; ++e) triples->setElement(e, Triple(scale * e, scale * (e + 10), scale * (e + 20)));
    return triples;
  };
  const Tresk::FieldPtr left(new Tresk::Field);
  const Tresk::FieldPtr right(new Tresk::Field(Tresk::FieldWeakPtr(left)));
  const Tresk::FragmentIDPtr fragment = left->makeFragmentID("all");
  left->setPersistentData(makeTriples(1), fragment, Ostrel::Cache::MemCache(), "");
  right->setPersistentData(makeTriples(2), fragment, Ostrel::Cache::MemCache(), "");
  const Tresk::FieldPtr sum = Tresk::combineFields<SumOfTriples>(left, right);
  const TriplesPtr result(sum->getData(fragment));
  ASSERT_TRUE(result);
  for (unsigned int e = 0; e < 8; ++e) EXPECT_EQ(result->getElement(e), Triple(3. * e, 3. * (e + 10), 3. * (e + 20)));
}

}  // namespace
