// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Pointers.hpp>

#include <support/PointerClasses.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using Ostrel::Pin;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using TreskTest::Root;
using TreskTest::Shifted;
using TreskTest::Virtual;

using Strong = StrongPtr<Root, Root>;
using Weak = WeakPtr<Root, Root>;
using PinTest = TreskTest::RecordBalanceTest;

TEST_F(PinTest, HoldsAnObjectForAScope) {
  const Strong owner(new Root);
  {
    const Pin<Root> pin(owner);
    EXPECT_TRUE(static_cast<bool>(pin));
    EXPECT_EQ(pin.get(), owner.get());
    EXPECT_EQ(owner.strongCount(), 2);
    EXPECT_EQ(owner.weakCount(), 4);
  }
  EXPECT_EQ(owner.strongCount(), 1);
  EXPECT_EQ(owner.weakCount(), 3);
}

TEST_F(PinTest, LeavesTheUnitOfTheBirthOfAnObjectOnTheStackAlone) {
  Root object;
  {
    const Pin<Root> pin(object.getSelf());
    EXPECT_EQ(pin.get(), &object);
    EXPECT_EQ(object.getRecord()->strong.load(), 2);
    EXPECT_EQ(object.getRecord()->deferred.load(), 0);
  }
  EXPECT_EQ(object.getRecord()->strong.load(), 1);
  EXPECT_EQ(object.getRecord()->weak.load(), 2);
  EXPECT_EQ(object.getRecord()->deferred.load(), 0);
}

class PinsItself : public Root {
 public:
  explicit PinsItself(int& strongWithin) {
    const Pin<Root> pin(getSelf());
    strongWithin = pin->getRecord()->strong.load();
  }
};

TEST_F(PinTest, HoldsAnObjectUnderConstruction) {
  int strongWithin = 0;
  const Strong owner(new PinsItself(strongWithin));
  EXPECT_EQ(strongWithin, 2);
  EXPECT_TRUE(owner.isValid());
  EXPECT_EQ(owner.strongCount(), 1) << "the first strong pointer still finds the unit of the birth";
  EXPECT_EQ(owner.weakCount(), 3);
}

TEST_F(PinTest, FindsNothingInADeadOrEmptyPointer) {
  Weak dead;
  { dead = Strong(new Root); }
  {
    const Pin<Root> pin(dead);
    EXPECT_FALSE(static_cast<bool>(pin));
    EXPECT_EQ(pin.get(), nullptr);
    EXPECT_EQ(dead.weakCount(), 2);
    EXPECT_EQ(dead.strongCount(), -111);
  }
  EXPECT_EQ(dead.weakCount(), 1);
  const Pin<Root> none{Weak()};
  EXPECT_FALSE(static_cast<bool>(none));
}

TEST_F(PinTest, KeepsTheObjectBeyondItsLastPointer) {
  const int nBefore = Root::nAlive;
  Strong owner(new Root);
  {
    const Pin<Root> pin(owner);
    owner.reset();
    EXPECT_EQ(Root::nAlive, nBefore + 1);
    EXPECT_EQ(pin->getRecord()->strong.load(), 1);
  }
  EXPECT_EQ(Root::nAlive, nBefore);
}

TEST_F(PinTest, SeesTheObjectInItsCountedClassWhateverThePointerType) {
  const Strong owner(new Shifted);
  const StrongPtr<Virtual, Root> wrong(owner);
  const Pin<Root> pin(wrong);
  EXPECT_EQ(pin.get(), owner.get());
  EXPECT_EQ(&*pin, owner.get());
}

TEST_F(PinTest, CannotBeCopied) {
  static_assert(!std::is_copy_constructible_v<Pin<Root>>);
  static_assert(!std::is_copy_assignable_v<Pin<Root>>);
}

}  // namespace
