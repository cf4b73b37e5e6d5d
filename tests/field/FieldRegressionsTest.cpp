// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <string>
#include <thread>
#include <vector>

namespace {

using Tresk::CachePtr;
using Tresk::Field;
using Tresk::FragmentID;
using Tresk::FragmentIDCollection;
using TreskTest::CreatorOwner;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::ForgetfulArray;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::makeArray;
using TreskTest::makeForgetful;
using TreskTest::makeOwner;
using TreskTest::OwnerPtr;
using TreskTest::RaceRunner;

/// A creator that counts what it is to tell its owners.
class TellingCreator : public ForgetfulArray {
 public:
  using ForgetfulArray::AlzheimerCreator;
  void forEachOwner(void* argument) override {
    ++nTold;
    ForgetfulArray::forEachOwner(argument);
  }
  int nTold = 0;
};

/// An owner of fields that is asked by several threads.
class Saver : public TreskTest::FieldOwner {
 public:
  bool processOwnership(Ostrel::Intercube&, const Ostrel::Intercube&) const override {
    ++nQuestions;
    return true;
  }
  mutable std::atomic<int> nQuestions{0};
};

using FieldRegressionsTest = TreskTest::RecordBalanceTest;

TEST_F(FieldRegressionsTest, TheSlotOfOneFragmentIsBoundToAnotherOneWhileTheTableMoves) {
  const FieldPtr field(new Field);
  for (unsigned int number = 0; number < 100; ++number) {
    const CreatorPtr creator = makeForgetful();
    field->setCreatorViaFragmentIndex(2 * number, creator);
    // The argument is the slot itself, which lies elsewhere once the table has grown.
    field->setCreatorViaFragmentIndex(2 * number + 1, field->getCreatorReferenceViaFragmentIndex(2 * number));
    ASSERT_TRUE(field->getCreatorByNumericalID(2 * number + 1) == creator) << number;
    EXPECT_EQ(creator.strongCount(), 3);
  }
}

TEST_F(FieldRegressionsTest, OfASlotThatMovesAsideTheCreatorThatWasBoundTellsItsOwners) {
  const FieldPtr field(new Field);
  field->reserve_fragments(8);
  const Ostrel::StrongPtr<TellingCreator, Ostrel::Creature> five(new TellingCreator(Tresk::CacheWeakPtr()));
  const Ostrel::StrongPtr<TellingCreator, Ostrel::Creature> six(new TellingCreator(Tresk::CacheWeakPtr()));
  field->setCreatorViaFragmentIndex(5, five);
  const CreatorPtr& slot = field->setCreatorViaFragmentIndex(6, six);
  field->setCreatorViaFragmentIndex(2, slot);
  EXPECT_TRUE(field->getCreatorByNumericalID(2) == six);
  EXPECT_EQ(five->nTold, 1);
  EXPECT_EQ(six->nTold, 2);
}

TEST_F(FieldRegressionsTest, AFragmentThatACallerPutInASlotIsRegisteredWhileTheSlotsMove) {
  const FragmentIDCollectionPtr collection(new FragmentIDCollection);
  for (unsigned int number = 0; number < 64; ++number) {
    collection->makeFragmentID("fragment " + std::to_string(number));
    const unsigned int expected = static_cast<unsigned int>(collection->nFragmentIDs());
    const FragmentIDPtr other(new FragmentID("other " + std::to_string(number)));
    FragmentIDPtr& slot = collection->makeFragmentID("fragment " + std::to_string(number));
    slot = other;
    ASSERT_EQ(collection->getID(slot), expected);
    ASSERT_TRUE(collection->findFragmentID(expected) == other);
  }
}

TEST_F(FieldRegressionsTest, ACreatorThatIsReplacedWhileItIsAskedDiesAfterTheLock) {
  const FieldPtr field(new Field);
  std::latch isAsked(1);
  std::latch isReplaced(1);
  {
    const auto creator = makeForgetful();
    creator->onQuestion = [&] {
      isAsked.count_down();
      isReplaced.wait();
    };
    // The end of the creator binds a new fragment, which waits for good if this thread still reads the field.
    creator->onDeath = [&field] { field->setCreatorViaFragmentIndex(7, CreatorPtr()); };
    field->setCreatorViaFragmentIndex(0, creator);
  }
  std::thread binder([&] {
    isAsked.wait();
    field->setCreatorViaFragmentIndex(0, CreatorPtr());
    isReplaced.count_down();
  });
  EXPECT_EQ(field->Dims(), -1);
  binder.join();
  EXPECT_EQ(field->nFragments(), 2U);
}

TEST_F(FieldRegressionsTest, CreatorsThatAreReplacedDuringAWalkAllDieAfterTheLock) {
  const FieldPtr field(new Field);
  constexpr unsigned int nCreators = 5;
  std::atomic<unsigned int> nDead{0};
  unsigned int nDeadAtTheEnd = 99;
  for (unsigned int number = 0; number < nCreators; ++number) {
    const auto creator = makeForgetful();
    // Under the shared lock an entry that is there may be bound anew.
    creator->onQuestion = [&field, number] { field->setCreatorViaFragmentIndex(number, CreatorPtr()); };
    creator->onDeath = [&field, &nDead] { field->setCreatorViaFragmentIndex(100 + nDead++, CreatorPtr()); };
    field->setCreatorViaFragmentIndex(number, creator);
  }
  const auto last = makeForgetful();
  last->onQuestion = [&nDeadAtTheEnd, &nDead] { nDeadAtTheEnd = nDead; };
  field->setCreatorViaFragmentIndex(nCreators, last);
  EXPECT_FALSE(field->getSize());
  EXPECT_EQ(nDeadAtTheEnd, 0U);
  EXPECT_EQ(nDead, nCreators);
  EXPECT_EQ(field->nFragments(), 2 * nCreators + 1);
  last->onQuestion = nullptr;
}

TEST_F(FieldRegressionsTest, TheCacheAsksTheOwnersWhileAFieldBecomesOne) {
  constexpr unsigned int nFields = 200;
  const CachePtr cache(new Ostrel::Cache);
  const Ostrel::StrongPtr<Saver, TreskTest::FieldOwner> saver(new Saver);
  std::atomic<bool> isDone{false};
  RaceRunner race;
  race.add([&](int) {
    while (!isDone) cache->trim(~0ULL);
  });
  race.add([&](int) {
    for (unsigned int i = 0; i < nFields; ++i) {
      const FieldPtr field(new Field);
      field->addOwner(saver);
      for (unsigned int number = 0; number < 4; ++number)
        field->setPersistentData(makeArray(1, number), field->makeFragmentID(std::to_string(number)), cache, "here");
      for (unsigned int number = 0; number < 4; ++number)
        EXPECT_EQ(field->getCreatorByNumericalID(number)->nOwners(), 1U);
    }
    isDone = true;
  });
  race.run();
  EXPECT_GE(saver->nQuestions, static_cast<int>(4 * nFields)) << "each creator asks at least when its field dies";
  EXPECT_EQ(cache->nCreatures(), 0U);
}

TEST_F(FieldRegressionsTest, OwnersEnterAndLeaveWhileTheyAreAsked) {
  constexpr int nRounds = 2000;
  const auto creator = makeForgetful();
  const auto stays = makeOwner<CreatorOwner>();
  creator->addOwner(stays);
  std::atomic<int> nDone{0};
  RaceRunner race;
  race.add(2, [&](int) {
    for (int round = 0; round < nRounds; ++round) {
      const auto guest = makeOwner<CreatorOwner>();
      EXPECT_TRUE(creator->addOwner(guest));
      EXPECT_FALSE(creator->addOwner(guest));
      EXPECT_TRUE(creator->isOwnedBy(guest));
      EXPECT_TRUE(creator->removeOwner(guest));
      EXPECT_FALSE(creator->removeOwner(guest));
    }
    ++nDone;
  });
  int nAsked = 0;
  race.add([&](int) {
    while (nDone < 2) {
      Ostrel::Intercube question;
      EXPECT_TRUE(creator->processOwnership(question, question));
      ++nAsked;
    }
  });
  race.run();
  EXPECT_EQ(creator->nOwners(), 1U);
  EXPECT_EQ(stays->nQuestions, nAsked);
}

TEST_F(FieldRegressionsTest, OwnersThatRemoveEachOtherDuringTheWalkAreAllAsked) {
  const auto creator = makeForgetful();
  OwnerPtr<CreatorOwner> owners[2] = {makeOwner<CreatorOwner>(), makeOwner<CreatorOwner>()};
  for (int i = 0; i < 2; ++i) {
    owners[i]->onQuestion = [&creator, &other = owners[1 - i]](Ostrel::Intercube&, const Ostrel::Intercube&) {
      return creator->removeOwner(other);
    };
    creator->addOwner(owners[i]);
  }
  Ostrel::Intercube question;
  EXPECT_TRUE(creator->processOwnership(question, question));
  EXPECT_EQ(owners[0]->nQuestions + owners[1]->nQuestions, 2) << "the walk is over the set as it was";
  EXPECT_EQ(creator->nOwners(), 0U);
}

TEST_F(FieldRegressionsTest, AnEmptyPointerIsNoOwner) {
  const auto creator = makeForgetful();
  const Ostrel::WeakPtr<CreatorOwner, CreatorOwner> nobody;
  EXPECT_FALSE(creator->addOwner(nobody));
  EXPECT_FALSE(creator->isOwnedBy(nobody));
  EXPECT_FALSE(creator->removeOwner(nobody));
  EXPECT_EQ(creator->nOwners(), 0U);
}

TEST_F(FieldRegressionsTest, AnOwnerSeesTheCountsOfOneQuestionOnly) {
  const auto creator = makeForgetful();
  const auto owner = makeOwner<CreatorOwner>();
  creator->addOwner(owner);
  const int nStrong = owner.strongCount();
  const int nWeak = owner.weakCount();
  owner->onQuestion = [&](Ostrel::Intercube&, const Ostrel::Intercube&) {
    EXPECT_EQ(owner.strongCount(), nStrong + 1) << "the walk";
    EXPECT_EQ(owner.weakCount(), nWeak + 2) << "the walk, and the trace that it leaves";
    return true;
  };
  {
    Ostrel::Intercube question;
    EXPECT_TRUE(creator->processOwnership(question, question));
    EXPECT_EQ(owner.weakCount(), nWeak + 1);
  }
  EXPECT_EQ(owner.weakCount(), nWeak);
  EXPECT_EQ(owner.strongCount(), nStrong);
}

}  // namespace
