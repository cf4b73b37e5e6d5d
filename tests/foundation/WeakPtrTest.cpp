// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Pointers.hpp>

#include <support/PointerClasses.hpp>
#include <support/RecordBalance.hpp>
#include <support/SpeakRecorder.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <type_traits>

namespace {

using Ostrel::DynPtr;
using Ostrel::ReferenceRecord;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using TreskTest::Root;
using TreskTest::Shifted;
using TreskTest::ShiftedLeaf;
using TreskTest::Virtual;

using Strong = StrongPtr<Root, Root>;
using Weak = WeakPtr<Root, Root>;
using WeakPtrTest = TreskTest::RecordBalanceTest;

TEST_F(WeakPtrTest, IsEmptyAtFirst) {
  const Weak pointer;
  EXPECT_FALSE(pointer.isValid());
  EXPECT_FALSE(static_cast<bool>(pointer));
  EXPECT_TRUE(!pointer);
  EXPECT_EQ(pointer.getRecord(), nullptr);
  EXPECT_EQ(pointer.get(), nullptr);
  EXPECT_EQ(pointer.strongCount(), 0);
  EXPECT_EQ(pointer.weakCount(), 0);
}

TEST_F(WeakPtrTest, FromAnObjectCountsWeakOnlyAndClaimsNothing) {
  const Root object;
  const Weak pointer(const_cast<Root*>(&object));
  EXPECT_EQ(pointer.strongCount(), 1);
  EXPECT_EQ(pointer.weakCount(), 3);
  EXPECT_EQ(object.getRecord()->deferred.load(), 0);
  EXPECT_EQ(pointer.get(), &object);
  EXPECT_TRUE(pointer.isValid()) << "the unit of the birth is enough";
}

TEST_F(WeakPtrTest, FromNullIsEmpty) { EXPECT_EQ(Weak(static_cast<Root*>(nullptr)).getRecord(), nullptr); }

TEST_F(WeakPtrTest, CopyAddsOneWeakCount) {
  const Strong owner(new Root);
  const Weak first(owner);
  EXPECT_EQ(first.weakCount(), 4);
  const Weak second(first);
  EXPECT_EQ(second.weakCount(), 5);
  EXPECT_EQ(second.strongCount(), 1);
  EXPECT_EQ(second.get(), owner.get());
}

TEST_F(WeakPtrTest, SurvivesItsObjectAndItsReleaseDeletesTheRecord) {
  Weak observer;
  {
    const Strong owner(new Root);
    observer = owner;
    EXPECT_TRUE(observer.isValid());
  }
  EXPECT_FALSE(observer.isValid());
  EXPECT_EQ(observer.get(), nullptr);
  EXPECT_EQ(observer.strongCount(), -111);
  EXPECT_EQ(observer.weakCount(), 1);
  EXPECT_EQ(nLiveSinceStart(), 1);
  observer.reset();
  EXPECT_EQ(nLiveSinceStart(), 0);
  EXPECT_EQ(observer.getRecord(), nullptr);
}

TEST_F(WeakPtrTest, CopyOfADeadPointerCountsInWeak) {
  Weak observer;
  { observer = Strong(new Root); }
  const Weak copy(observer);
  EXPECT_FALSE(copy.isValid());
  EXPECT_EQ(copy.weakCount(), 2);
  EXPECT_TRUE(copy.sameRecord(observer));
}

TEST_F(WeakPtrTest, AssignmentGivesTheOldRecordUp) {
  const Strong a(new Root);
  const Strong b(new Root);
  Weak pointer(a);
  pointer = Weak(b);
  EXPECT_EQ(a.weakCount(), 3);
  EXPECT_EQ(b.weakCount(), 4);
  EXPECT_EQ(pointer.get(), b.get());
}

TEST_F(WeakPtrTest, AssignmentOfTheSameRecordChangesNothing) {
  const Strong a(new Root);
  Weak pointer(a);
  const Weak other(a);
  pointer = other;
  EXPECT_EQ(a.weakCount(), 5);
  Weak& alias = pointer;
  pointer = alias;
  EXPECT_EQ(a.weakCount(), 5);
}

TEST_F(WeakPtrTest, AssignmentKeepsTheIdOfTheTarget) {
  const Strong a(new Root);
  Weak pointer;
  const long long id = pointer.getPointerID();
  pointer = a;
  pointer = Weak();
  EXPECT_EQ(pointer.getPointerID(), id);
}

TEST_F(WeakPtrTest, EveryConstructionTakesAnIdEvenOfAnEmptyPointer) {
  const Weak first;
  const Weak second;
  EXPECT_EQ(second.getPointerID(), first.getPointerID() + 1);
  const Weak third(second);
  EXPECT_EQ(third.getPointerID(), first.getPointerID() + 2);
  EXPECT_EQ(Ostrel::PointerID, third.getPointerID());
}

TEST_F(WeakPtrTest, ConversionDownCastsTheLivingObject) {
  const Strong owner(new Shifted);
  const WeakPtr<Shifted, Root> down(owner);
  ASSERT_TRUE(down.isValid());
  EXPECT_EQ(down.get(), dynamic_cast<Shifted*>(owner.get()));
  EXPECT_NE(static_cast<const void*>(down.get()), static_cast<const void*>(owner.get())) << "the cast shifts";
  EXPECT_EQ(down->mark, 11);
  EXPECT_EQ(owner.strongCount(), 1);
  EXPECT_EQ(owner.weakCount(), 4);
}

TEST_F(WeakPtrTest, ConversionToTheWrongTypeIsInvalidButBound) {
  const Strong owner(new Shifted);
  const WeakPtr<Virtual, Root> wrong(owner);
  EXPECT_FALSE(wrong.isValid());
  EXPECT_EQ(wrong.get(), nullptr);
  EXPECT_TRUE(wrong.sameRecord(owner));
  EXPECT_EQ(owner.weakCount(), 4);
  const Weak back(wrong);
  EXPECT_TRUE(back.isValid()) << "the counted class reads the object from the record";
  EXPECT_EQ(back.get(), owner.get());
}

TEST_F(WeakPtrTest, ConversionUpAndAcrossFollowsTheObject) {
  const StrongPtr<ShiftedLeaf, Root> owner(new ShiftedLeaf);
  const WeakPtr<ShiftedLeaf, Root> leaf(owner);
  const WeakPtr<Shifted, Root> up(leaf);
  EXPECT_EQ(up.get(), static_cast<Shifted*>(owner.get()));
  const WeakPtr<Virtual, Root> across(up);
  EXPECT_FALSE(across.isValid());
  const WeakPtr<ShiftedLeaf, Root> back(across);
  EXPECT_EQ(back.get(), owner.get());
  EXPECT_EQ(owner.strongCount(), 1);
}

TEST_F(WeakPtrTest, ConversionDoesNotClaimTheUnitOfTheBirth) {
  Shifted object;
  const Weak base(&object);
  const WeakPtr<Shifted, Root> down(base);
  EXPECT_EQ(down.get(), &object);
  EXPECT_EQ(object.getRecord()->strong.load(), 1);
  EXPECT_EQ(object.getRecord()->deferred.load(), 0);
}

TEST_F(WeakPtrTest, ConversionOfADeadPointerStaysInvalid) {
  Weak observer;
  { observer = Strong(new Shifted); }
  const WeakPtr<Shifted, Root> down(observer);
  EXPECT_FALSE(down.isValid());
  EXPECT_TRUE(down.sameRecord(observer));
  EXPECT_EQ(down.weakCount(), 2);
}

TEST_F(WeakPtrTest, FollowsAVirtualBase) {
  const StrongPtr<Virtual, Root> owner(new Virtual);
  const WeakPtr<Virtual, Root> observer(owner);
  const WeakPtr<Virtual, Root> copy(observer);
  EXPECT_EQ(copy.get(), owner.get());
  EXPECT_EQ(copy->mark, 13);
}

TEST_F(WeakPtrTest, BaseOfThePointersIsItselfAWeakPointer) {
  const Strong owner(new Root);
  DynPtr<Root, Root> held = owner;
  EXPECT_TRUE(held.isValid());
  EXPECT_EQ(owner.strongCount(), 1);
  EXPECT_EQ(owner.weakCount(), 4);
  const DynPtr<Root, Root> copy(held);
  EXPECT_EQ(owner.weakCount(), 5);
  const Strong again(copy);
  EXPECT_EQ(owner.strongCount(), 2);
  held.reset();
  EXPECT_EQ(held.getRecord(), nullptr);
  EXPECT_EQ(owner.weakCount(), 5);
}

TEST_F(WeakPtrTest, ImpossibleReleaseIsReportedAndLeavesTheRecordAlone) {
  TreskTest::SpeakRecorder recorder;
  const Strong owner(new Shifted);
  ReferenceRecord* const record = owner.getRecord();
  long long id = 0;
  {
    const WeakPtr<Shifted, Root> pointer(owner);
    id = pointer.getPointerID();
    record->weak.store(0);
  }
  ASSERT_EQ(recorder.invalidWeaks().size(), 1U);
  const auto report = recorder.invalidWeaks()[0];
  EXPECT_EQ(*report.target, typeid(void));
  EXPECT_EQ(*report.base, typeid(Root));
  EXPECT_EQ(*report.pointer, typeid(DynPtr<Shifted, Root>));
  EXPECT_EQ(*report.dynamicType, typeid(Shifted));
  EXPECT_EQ(report.strong, 1);
  EXPECT_EQ(report.weak, 0);
  EXPECT_EQ(report.record, record);
  EXPECT_EQ(report.object, owner.get());
  EXPECT_EQ(report.id, id);
  EXPECT_EQ(record->weak.load(), 0);
  record->weak.store(3);
}

TEST_F(WeakPtrTest, ImpossibleReleaseOfADeadRecordReportsNoObject) {
  TreskTest::SpeakRecorder recorder;
  Weak keeper;
  { keeper = Strong(new Root); }
  ReferenceRecord* const record = keeper.getRecord();
  {
    const Weak pointer(keeper);
    record->weak.store(-5);
  }
  ASSERT_EQ(recorder.invalidWeaks().size(), 1U);
  const auto report = recorder.invalidWeaks()[0];
  EXPECT_EQ(*report.dynamicType, typeid(void));
  EXPECT_EQ(*report.pointer, typeid(DynPtr<Root, Root>));
  EXPECT_EQ(report.strong, -111);
  EXPECT_EQ(report.weak, -5);
  EXPECT_EQ(report.object, nullptr);
  EXPECT_EQ(record->weak.load(), -5);
  record->weak.store(1);
}

TEST_F(WeakPtrTest, ConstructionFromItselfIsReportedAndGoesOn) {
  TreskTest::SpeakRecorder recorder;
  alignas(Weak) std::byte storage[sizeof(Weak)]{};
  auto* const place = reinterpret_cast<Weak*>(storage);
  const Weak* const pointer = new (storage) Weak(*place);
  ASSERT_EQ(recorder.selfCopies().size(), 1U);
  EXPECT_EQ(recorder.selfCopies()[0].self, pointer);
  EXPECT_EQ(recorder.selfCopies()[0].sourceRecord, nullptr);
  EXPECT_EQ(*recorder.selfCopies()[0].pointer, typeid(DynPtr<Root, Root>));
  EXPECT_EQ(pointer->getRecord(), nullptr) << "it holds what the zeroed field held";
  EXPECT_EQ(pointer->getPointerID(), Ostrel::PointerID);
  pointer->~Weak();
}

TEST_F(WeakPtrTest, PointersToOtherCountedClassesDoNotConvert) {
  class Other : public Ostrel::ReferenceBase<Other> {
   public:
    Other() : ReferenceBase<Other>(this) {}
  };
  static_assert(!std::is_constructible_v<Weak, WeakPtr<Other, Other>>);
  static_assert(!std::is_assignable_v<Weak&, WeakPtr<Other, Other>>);
  static_assert(!std::is_convertible_v<Root*, Weak>, "raw pointers convert by name only");
  static_assert(!std::is_convertible_v<Weak, bool>, "a pointer is no number");
}

}  // namespace
