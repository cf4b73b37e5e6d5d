// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Chunks.hpp>
#include <tresk/foundation/Pointers.hpp>

#include <support/CreatorDoubles.hpp>
#include <support/PointerClasses.hpp>
#include <support/RecordBalance.hpp>
#include <support/SpeakRecorder.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <new>
#include <set>
#include <stdexcept>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

namespace {

using Ostrel::DynPtr;
using Ostrel::Forgetting;
using Ostrel::ReferenceRecord;
using Ostrel::RefPtr;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using TreskTest::Root;
using TreskTest::Shifted;
using TreskTest::ShiftedLeaf;
using TreskTest::Virtual;

using Strong = StrongPtr<Root, Root>;
using Weak = WeakPtr<Root, Root>;
using StrongPtrTest = TreskTest::RecordBalanceTest;

/// A dead pointer with its record.
Strong makeDead() {
  Weak observer;
  { observer = Strong(new Shifted); }
  return Strong(observer);
}

TEST_F(StrongPtrTest, IsEmptyAtFirst) {
  const Strong pointer;
  EXPECT_FALSE(pointer.isValid());
  EXPECT_EQ(pointer.getRecord(), nullptr);
  EXPECT_EQ(pointer.get(), nullptr);
}

TEST_F(StrongPtrTest, FromNullIsEmpty) {
  const Strong pointer(static_cast<Root*>(nullptr));
  EXPECT_EQ(pointer.getRecord(), nullptr);
}

TEST_F(StrongPtrTest, FirstPointerTakesTheUnitOfTheBirthOver) {
  Root* const object = new Root;
  const Strong first(object);
  EXPECT_EQ(first.strongCount(), 1);
  EXPECT_EQ(object->getRecord()->deferred.load(), ReferenceRecord::Claimed);
  const Strong second(object);
  EXPECT_EQ(first.strongCount(), 2) << "a second one made from the object raises";
  EXPECT_EQ(first.weakCount(), 4);
}

TEST_F(StrongPtrTest, FirstPointerMadeFromAWeakOneTakesTheUnitOfTheBirthOver) {
  const Weak observer(new Root);
  EXPECT_EQ(observer.weakCount(), 3);
  Strong first(observer);
  EXPECT_EQ(first.strongCount(), 1);
  EXPECT_EQ(first.weakCount(), 4);
  const Strong second(observer);
  EXPECT_EQ(first.strongCount(), 2);
  EXPECT_EQ(first.weakCount(), 5);
}

TEST_F(StrongPtrTest, FirstPointerOfTheWrongTypeClaimsAndReleasesTheObject) {
  const int nBefore = Root::nAlive;
  const Weak observer(new Shifted);
  {
    const StrongPtr<Virtual, Root> wrong(observer);
    EXPECT_FALSE(wrong.isValid());
    EXPECT_EQ(wrong.strongCount(), 1);
    EXPECT_EQ(Root::nAlive, nBefore + 1);
  }
  EXPECT_EQ(Root::nAlive, nBefore);
  EXPECT_EQ(observer.strongCount(), -111);
}

TEST_F(StrongPtrTest, MadeFromADeadWeakPointerIsInvalidAndRaisesWeakOnly) {
  Weak observer;
  { observer = Strong(new Root); }
  EXPECT_EQ(observer.weakCount(), 1);
  const Strong pointer(observer);
  EXPECT_FALSE(pointer.isValid());
  EXPECT_EQ(pointer.strongCount(), -111);
  EXPECT_EQ(pointer.weakCount(), 2);
  EXPECT_TRUE(pointer.sameRecord(observer)) << "it stays bound to the record";
}

TEST_F(StrongPtrTest, WeakPointerToAnUnclaimedObjectThatDiedNeverYieldsAValidPointer) {
  Weak observer;
  {
    const Root object;
    observer = object.getSelf();
  }
  const Strong pointer(observer);
  EXPECT_FALSE(pointer.isValid());
  EXPECT_EQ(pointer.strongCount(), -111);
  EXPECT_EQ(pointer.weakCount(), 2);
}

TEST_F(StrongPtrTest, CopyRaisesBothCounts) {
  const Strong first(new Root);
  {
    const Strong second(first);
    EXPECT_EQ(first.strongCount(), 2);
    EXPECT_EQ(first.weakCount(), 4);
    EXPECT_EQ(second.get(), first.get());
  }
  EXPECT_EQ(first.strongCount(), 1);
  EXPECT_EQ(first.weakCount(), 3);
}

TEST_F(StrongPtrTest, CopyOfAnInvalidPointerHoldsItsWeakCountOnly) {
  const Strong dead = makeDead();
  const Strong copy(dead);
  EXPECT_FALSE(copy.isValid());
  EXPECT_TRUE(copy.sameRecord(dead));
  EXPECT_EQ(copy.strongCount(), -111);
  EXPECT_EQ(copy.weakCount(), 2);
}

TEST_F(StrongPtrTest, CopyOfAnEmptyPointerIsEmptyAndTakesAnId) {
  const Strong empty;
  const Strong copy(empty);
  EXPECT_EQ(copy.getRecord(), nullptr);
  EXPECT_EQ(copy.getPointerID(), empty.getPointerID() + 1);
}

TEST_F(StrongPtrTest, PointersMadeOneAfterTheOtherHaveConsecutiveIds) {
  const Strong first(new Root);  // the object's own id comes before
  const Strong second(first);
  const Strong third;
  EXPECT_EQ(second.getPointerID(), first.getPointerID() + 1);
  EXPECT_EQ(third.getPointerID(), first.getPointerID() + 2);
}

TEST_F(StrongPtrTest, AssignmentOfTheSameRecordDoesNothing) {
  Strong first(new Root);
  Strong second(first);
  second = first;
  EXPECT_EQ(first.strongCount(), 2);
  EXPECT_EQ(first.weakCount(), 4);
  Strong& alias = first;
  first = alias;
  EXPECT_EQ(first.strongCount(), 2);
  EXPECT_TRUE(first.isValid());
}

TEST_F(StrongPtrTest, AssignmentSharesTheSourceAndReleasesTheOldObject) {
  const int nBefore = Root::nAlive;
  const Strong source(new Root);
  Strong target(new Root);
  const Weak old(target);
  const long long id = target.getPointerID();
  target = source;
  EXPECT_EQ(source.strongCount(), 2);
  EXPECT_EQ(source.weakCount(), 4);
  EXPECT_EQ(old.strongCount(), -111);
  EXPECT_EQ(old.weakCount(), 1);
  EXPECT_EQ(target.getPointerID(), id) << "assignment leaves the id alone";
  EXPECT_EQ(Root::nAlive, nBefore + 1);
}

TEST_F(StrongPtrTest, AssignmentOfAnInvalidPointerKeepsItsRecord) {
  const Strong dead = makeDead();
  Strong target(new Root);
  target = dead;
  EXPECT_FALSE(target.isValid());
  EXPECT_TRUE(target.sameRecord(dead));
  EXPECT_EQ(dead.weakCount(), 2);
  EXPECT_EQ(dead.strongCount(), -111);
}

TEST_F(StrongPtrTest, AssignmentOfAnEmptyPointerEmpties) {
  const int nBefore = Root::nAlive;
  Strong target(new Root);
  target = Strong();
  EXPECT_EQ(target.getRecord(), nullptr);
  EXPECT_EQ(Root::nAlive, nBefore);
}

TEST_F(StrongPtrTest, AssignmentBetweenTypesCastsTheObject) {
  const Strong shifted(new Shifted);
  StrongPtr<Shifted, Root> target;
  target = shifted;
  ASSERT_TRUE(target.isValid());
  EXPECT_EQ(target->mark, 11);
  EXPECT_EQ(shifted.strongCount(), 2);
  const Strong other(new Virtual);
  target = other;
  EXPECT_FALSE(target.isValid());
  EXPECT_TRUE(target.sameRecord(other));
  EXPECT_EQ(other.strongCount(), 2) << "a pointer of the wrong type holds its object nevertheless";
  EXPECT_EQ(shifted.strongCount(), 1);
}

/// A chain: the object that dies holds the one that is assigned.
class Chained : public Ostrel::ReferenceBase<Chained> {
 public:
  Chained() : ReferenceBase<Chained>(this) {}
  StrongPtr<Chained, Chained> next;
};

TEST_F(StrongPtrTest, AssignmentOfWhatTheOldObjectHeldKeepsIt) {
  StrongPtr<Chained, Chained> head(new Chained);
  head->next = StrongPtr<Chained, Chained>(new Chained);
  const WeakPtr<Chained, Chained> second(head->next);
  head = head->next;
  EXPECT_TRUE(second.isValid());
  EXPECT_EQ(head.get(), second.get());
  EXPECT_EQ(head.strongCount(), 1);
}

class AsksItsOwner : public Ostrel::ReferenceBase<AsksItsOwner> {
 public:
  explicit AsksItsOwner(std::function<void()> question) : ReferenceBase<AsksItsOwner>(this), question_(question) {}
  ~AsksItsOwner() override { question_(); }

 private:
  std::function<void()> question_;
};

TEST_F(StrongPtrTest, PointerIsEmptyBeforeItsObjectDies) {
  StrongPtr<AsksItsOwner, AsksItsOwner> owner;
  bool isEmpty = false;
  owner = StrongPtr<AsksItsOwner, AsksItsOwner>(new AsksItsOwner([&] { isEmpty = owner.getRecord() == nullptr; }));
  owner.reset();
  EXPECT_TRUE(isEmpty);
}

TEST_F(StrongPtrTest, PointerShowsTheNewObjectBeforeTheOldOneDies) {
  StrongPtr<AsksItsOwner, AsksItsOwner> owner;
  const StrongPtr<AsksItsOwner, AsksItsOwner> successor(new AsksItsOwner([] {}));
  bool isSuccessor = false;
  owner = StrongPtr<AsksItsOwner, AsksItsOwner>(new AsksItsOwner([&] { isSuccessor = owner == successor; }));
  owner = successor;
  EXPECT_TRUE(isSuccessor);
}

TEST_F(StrongPtrTest, ResetOfAnEmptyPointerDoesNothing) {
  Strong pointer;
  const long long id = pointer.getPointerID();
  pointer.reset();
  EXPECT_EQ(pointer.getPointerID(), id);
  EXPECT_EQ(Ostrel::PointerID, id);
}

TEST_F(StrongPtrTest, ReleaseOfAnInvalidPointerGivesTheWeakCountBackOnly) {
  Strong dead = makeDead();
  const Weak observer(dead);
  EXPECT_EQ(observer.weakCount(), 2);
  dead.reset();
  EXPECT_EQ(observer.weakCount(), 1);
  EXPECT_EQ(observer.strongCount(), -111);
}

TEST_F(StrongPtrTest, ReleaseWithoutWeakCountIsReportedAfterTheStrongUnitIsGone) {
  TreskTest::SpeakRecorder recorder;
  const Strong owner(new Shifted);
  ReferenceRecord* const record = owner.getRecord();
  long long id = 0;
  {
    const StrongPtr<Shifted, Root> second(owner);
    id = second.getPointerID();
    record->weak.store(0);
  }
  ASSERT_EQ(recorder.invalidWeaks().size(), 1U);
  const auto report = recorder.invalidWeaks()[0];
  EXPECT_EQ(*report.pointer, typeid(DynPtr<Shifted, Root>));
  EXPECT_EQ(*report.base, typeid(Root));
  EXPECT_EQ(*report.dynamicType, typeid(Shifted));
  EXPECT_EQ(report.strong, 1);
  EXPECT_EQ(report.object, owner.get());
  EXPECT_EQ(report.id, id);
  record->weak.store(3);
}

TEST_F(StrongPtrTest, ConversionCastsDownUpAndAcross) {
  const StrongPtr<ShiftedLeaf, Root> leaf(new ShiftedLeaf);
  const Strong base(leaf);
  EXPECT_EQ(base.get(), static_cast<Root*>(leaf.get()));
  const StrongPtr<Shifted, Root> middle(base);
  EXPECT_EQ(middle.get(), static_cast<Shifted*>(leaf.get()));
  const StrongPtr<Virtual, Root> across(middle);
  EXPECT_FALSE(across.isValid());
  EXPECT_EQ(across.get(), nullptr);
  EXPECT_EQ(leaf.strongCount(), 4);
  EXPECT_EQ(leaf.weakCount(), 6);
}

TEST_F(StrongPtrTest, WrongTypedPointerBecomesValidAgainInItsBaseForm) {
  StrongPtr<Virtual, Root> wrong;
  {
    const StrongPtr<Shifted, Root> owner(new Shifted);
    wrong = StrongPtr<Virtual, Root>(owner);
  }
  EXPECT_FALSE(wrong.isValid());
  EXPECT_EQ(wrong.strongCount(), 1) << "it is the only holder by now";
  const StrongPtr<Virtual, Root> copy(wrong);
  EXPECT_FALSE(copy.isValid());
  const Strong base(wrong);
  EXPECT_TRUE(base.isValid());
  const StrongPtr<Shifted, Root> right(copy);
  EXPECT_TRUE(right.isValid());
  EXPECT_EQ(right->mark, 11);
  EXPECT_EQ(wrong.strongCount(), 4);
}

TEST_F(StrongPtrTest, ConversionOfAnInvalidPointerStaysBoundToTheRecord) {
  const Strong dead = makeDead();
  const StrongPtr<Shifted, Root> typed(dead);
  EXPECT_FALSE(typed.isValid());
  EXPECT_TRUE(typed.sameRecord(dead));
  const Strong back(typed);
  EXPECT_FALSE(back.isValid());
  EXPECT_EQ(dead.weakCount(), 3);
}

TEST_F(StrongPtrTest, FollowsAVirtualBase) {
  const Strong base(new Virtual);
  const StrongPtr<Virtual, Root> down(base);
  ASSERT_TRUE(down.isValid());
  EXPECT_EQ(down.get(), dynamic_cast<Virtual*>(base.get()));
  const StrongPtr<Virtual, Root> copy(down);
  EXPECT_EQ(copy->mark, 13);
  EXPECT_EQ(static_cast<Root*>(copy.get()), base.get());
}

TEST_F(StrongPtrTest, MoveTakesTheReferenceOver) {
  StrongPtr<Shifted, Root> first(new Shifted);
  Shifted* const object = first.get();
  const StrongPtr<Shifted, Root> second(std::move(first));
  EXPECT_EQ(first.getRecord(), nullptr);  // NOLINT(bugprone-use-after-move)
  EXPECT_FALSE(first.isValid());
  EXPECT_EQ(first.get(), nullptr);
  EXPECT_EQ(second.get(), object);
  EXPECT_EQ(second.strongCount(), 1);
  EXPECT_EQ(second.weakCount(), 3);
}

TEST_F(StrongPtrTest, MoveAssignmentReleasesTheOldObject) {
  const int nBefore = Root::nAlive;
  StrongPtr<Virtual, Root> first(new Virtual);
  StrongPtr<Virtual, Root> second(new Virtual);
  second = std::move(first);
  EXPECT_EQ(Root::nAlive, nBefore + 1);
  EXPECT_EQ(second.strongCount(), 1);
  EXPECT_EQ(second->mark, 13);
  StrongPtr<Virtual, Root>& alias = second;
  second = std::move(alias);
  EXPECT_TRUE(second.isValid());
}

TEST_F(StrongPtrTest, MoveAssignmentWithinOneRecordLeavesOneHolder) {
  Strong first(new Root);
  Strong second(first);
  second = std::move(first);
  EXPECT_TRUE(second.isValid());
  EXPECT_EQ(second.strongCount(), 1);
  EXPECT_EQ(second.weakCount(), 3);
}

TEST_F(StrongPtrTest, MoveBetweenTypesCasts) {
  Strong base(new Shifted);
  StrongPtr<Shifted, Root> down(std::move(base));
  EXPECT_EQ(base.getRecord(), nullptr);  // NOLINT(bugprone-use-after-move)
  ASSERT_TRUE(down.isValid());
  EXPECT_EQ(down->mark, 11);
  StrongPtr<Virtual, Root> wrong(std::move(down));
  EXPECT_FALSE(wrong.isValid());
  EXPECT_EQ(wrong.strongCount(), 1);
  const Strong again(std::move(wrong));
  EXPECT_TRUE(again.isValid());
  EXPECT_EQ(again.strongCount(), 1);
  EXPECT_EQ(again.weakCount(), 3);
}

TEST_F(StrongPtrTest, MoveOfAnInvalidPointerKeepsTheRecord) {
  Strong dead = makeDead();
  const ReferenceRecord* const record = dead.getRecord();
  const StrongPtr<Shifted, Root> moved(std::move(dead));
  EXPECT_EQ(moved.getRecord(), record);
  EXPECT_EQ(moved.weakCount(), 1);
  EXPECT_FALSE(moved.isValid());
}

TEST_F(StrongPtrTest, TakeHandsTheReferenceOver) {
  StrongPtr<Virtual, Root> slot(new Virtual);
  const long long id = slot.getPointerID();
  const StrongPtr<Virtual, Root> taken = slot.take();
  EXPECT_EQ(slot.getRecord(), nullptr);
  EXPECT_EQ(slot.getPointerID(), id);
  EXPECT_EQ(taken.strongCount(), 1);
  EXPECT_EQ(taken.weakCount(), 3);
  EXPECT_EQ(taken->mark, 13);
}

TEST_F(StrongPtrTest, TakeFromAnEmptyOrInvalidPointer) {
  Strong empty;
  EXPECT_EQ(empty.take().getRecord(), nullptr);
  Strong dead = makeDead();
  const Strong taken = dead.take();
  EXPECT_EQ(dead.getRecord(), nullptr);
  EXPECT_FALSE(taken.isValid());
  EXPECT_EQ(taken.weakCount(), 1);
}

TEST_F(StrongPtrTest, ExchangeHandsTheFormerReferenceToTheCaller) {
  const int nBefore = Root::nAlive;
  Strong slot(new Root);
  const Weak old(slot);
  const Strong successor(new Root);
  {
    const Strong former = slot.exchangeFor(successor);
    EXPECT_EQ(former.get(), old.get());
    EXPECT_EQ(former.strongCount(), 1);
    EXPECT_EQ(former.weakCount(), 4);
    EXPECT_EQ(Root::nAlive, nBefore + 2);
  }
  EXPECT_EQ(Root::nAlive, nBefore + 1);
  EXPECT_EQ(slot.get(), successor.get());
  EXPECT_EQ(successor.strongCount(), 2);
  EXPECT_EQ(successor.weakCount(), 4);
}

TEST_F(StrongPtrTest, ExchangeWithinOneRecordDoesNothing) {
  Strong slot(new Root);
  const Strong same(slot);
  EXPECT_EQ(slot.exchangeFor(same).getRecord(), nullptr);
  EXPECT_EQ(same.strongCount(), 2);
  EXPECT_EQ(same.weakCount(), 4);
}

TEST_F(StrongPtrTest, ForgettingTheSoleReferenceDestroysTheObject) {
  const int nBefore = Root::nAlive;
  StrongPtr<Shifted, Root> slot(new Shifted);
  EXPECT_EQ(slot.forgetIfSole(), Forgetting::Forgotten);
  EXPECT_EQ(slot.getRecord(), nullptr);
  EXPECT_EQ(Root::nAlive, nBefore);
}

TEST_F(StrongPtrTest, ForgettingASharedReferenceKeepsIt) {
  Strong slot(new Root);
  const Strong other(slot);
  EXPECT_EQ(slot.forgetIfSole(), Forgetting::IsShared);
  EXPECT_EQ(slot.get(), other.get());
  EXPECT_EQ(other.strongCount(), 2);
  EXPECT_EQ(other.weakCount(), 4);
}

TEST_F(StrongPtrTest, ForgettingCountsStrongHoldersOnly) {
  Strong slot(new Root);
  const Weak observer(slot);
  EXPECT_EQ(slot.forgetIfSole(), Forgetting::Forgotten);
  EXPECT_FALSE(observer.isValid());
}

TEST_F(StrongPtrTest, ForgettingAnInvalidReferenceLeavesItAsItIs) {
  Strong empty;
  EXPECT_EQ(empty.forgetIfSole(), Forgetting::WasInvalid);
  Strong dead = makeDead();
  EXPECT_EQ(dead.forgetIfSole(), Forgetting::WasInvalid);
  EXPECT_NE(dead.getRecord(), nullptr);
  StrongPtr<Virtual, Root> wrong(Strong(new Shifted));
  EXPECT_EQ(wrong.forgetIfSole(), Forgetting::WasInvalid);
  EXPECT_EQ(wrong.strongCount(), 1);
}

TEST_F(StrongPtrTest, ForgetGivesTheWeakCountBackAndLeavesTheStrongUnit) {
  Root object;
  Strong pointer(&object);
  EXPECT_EQ(object.getRecord()->weak.load(), 3);
  pointer.forget();
  EXPECT_EQ(pointer.getRecord(), nullptr);
  EXPECT_EQ(object.getRecord()->strong.load(), 1);
  EXPECT_EQ(object.getRecord()->weak.load(), 2);
}

TEST_F(StrongPtrTest, ConstructionFromItselfIsReportedAndGoesOn) {
  TreskTest::SpeakRecorder recorder;
  using Typed = StrongPtr<Shifted, Root>;
  alignas(Typed) std::byte storage[sizeof(Typed)]{};
  auto* const place = reinterpret_cast<Typed*>(storage);
  const Typed* const pointer = new (storage) Typed(*place);
  ASSERT_EQ(recorder.selfCopies().size(), 1U);
  EXPECT_EQ(recorder.selfCopies()[0].self, pointer);
  EXPECT_EQ(recorder.selfCopies()[0].sourceRecord, nullptr);
  EXPECT_EQ(*recorder.selfCopies()[0].pointer, typeid(DynPtr<Shifted, Root>));
  EXPECT_FALSE(pointer->isValid());
  EXPECT_EQ(pointer->getRecord(), nullptr);
  EXPECT_EQ(pointer->getPointerID(), Ostrel::PointerID);
  pointer->~Typed();
}

TEST_F(StrongPtrTest, AccessReachesTheObject) {
  const StrongPtr<Shifted, Root> pointer(new Shifted);
  pointer->mark = 5;
  EXPECT_EQ((*pointer).mark, 5);
  EXPECT_EQ(pointer.get()->mark, 5);
  EXPECT_TRUE(static_cast<bool>(pointer));
  EXPECT_FALSE(!pointer);
}

TEST_F(StrongPtrTest, ShortSpellingIsTheSameType) {
  static_assert(std::is_same_v<RefPtr<Shifted>, StrongPtr<Shifted, Root>>);
  static_assert(std::is_same_v<RefPtr<Root>, Strong>);
  EXPECT_EQ(typeid(RefPtr<Virtual>), typeid(StrongPtr<Virtual, Root>));
  EXPECT_EQ(typeid(RefPtr<TreskTest::CountingData>), typeid(StrongPtr<TreskTest::CountingData, Ostrel::Cacheable>));
}

TEST_F(StrongPtrTest, ConversionsThatWouldLoseCountsAreClosed) {
  class Other : public Ostrel::ReferenceBase<Other> {
   public:
    Other() : ReferenceBase<Other>(this) {}
  };
  static_assert(!std::is_constructible_v<Strong, StrongPtr<Other, Other>>);
  static_assert(!std::is_assignable_v<Strong&, StrongPtr<Other, Other>>);
  static_assert(!std::is_assignable_v<Strong&, Weak>, "a strong pointer is made from a weak one by name");
  static_assert(std::is_constructible_v<Strong, Weak>);
  static_assert(std::is_constructible_v<Strong, DynPtr<Root, Root>>);
  static_assert(!std::is_convertible_v<Root*, Strong>, "raw pointers convert by name only");
  static_assert(!std::is_convertible_v<std::nullptr_t, Strong>);
  static_assert(!std::is_convertible_v<Strong, bool>);
  static_assert(std::is_convertible_v<Strong, Weak>);
  static_assert(std::is_base_of_v<Weak, Strong> && std::is_base_of_v<DynPtr<Root, Root>, Weak>);
}

TEST_F(StrongPtrTest, EqualityGoesByTheRecord) {
  const StrongPtr<ShiftedLeaf, Root> leaf(new ShiftedLeaf);
  const Strong base(leaf);
  const Strong other(new Root);
  EXPECT_TRUE(leaf == base) << "pointers of different types to one object";
  EXPECT_FALSE(leaf != base);
  EXPECT_TRUE(base != other);
  EXPECT_TRUE(Weak(base) == base);
  EXPECT_TRUE(Strong() == Strong()) << "two empty pointers are equal";
  EXPECT_FALSE(Strong() == base);
  EXPECT_TRUE(base < other || other < base);
  EXPECT_FALSE(base < leaf || leaf < base);
}

TEST_F(StrongPtrTest, HashGoesByTheRecord) {
  const Strong base(new Shifted);
  const StrongPtr<Shifted, Root> down(base);
  EXPECT_EQ(std::hash<Strong>()(base), (std::hash<StrongPtr<Shifted, Root>>()(down)));
  EXPECT_EQ(std::hash<Weak>()(Weak(base)), std::hash<Strong>()(base));
  EXPECT_EQ(std::hash<Strong>()(Strong()), std::hash<Strong>()(Strong()));
}

TEST_F(StrongPtrTest, OrderedAndUnorderedSetsHoldEveryObjectOnce) {
  std::vector<Strong> objects;
  for (int i = 0; i < 10; ++i) objects.emplace_back(new Root);
  std::set<Strong> ordered;
  std::unordered_set<Weak> unordered;
  for (int round = 0; round < 2; ++round) {
    for (const Strong& object : objects) {
      ordered.insert(object);
      unordered.insert(object);
    }
  }
  EXPECT_EQ(ordered.size(), 10U);
  EXPECT_EQ(unordered.size(), 10U);
}

TEST_F(StrongPtrTest, KeysKeepTheirPlaceWhenTheirObjectsDie) {
  std::set<Weak> ordered;
  std::unordered_set<Weak> unordered;
  std::map<Weak, int> numbers;
  std::vector<Weak> keys;
  {
    std::vector<Strong> objects;
    for (int i = 0; i < 10; ++i) {
      objects.emplace_back(new Root);
      keys.emplace_back(objects.back());
      ordered.insert(keys.back());
      unordered.insert(keys.back());
      numbers[keys.back()] = i;
    }
  }
  int i = 0;
  for (const Weak& key : keys) {
    EXPECT_FALSE(key.isValid());
    EXPECT_EQ(ordered.count(key), 1U);
    EXPECT_EQ(unordered.count(key), 1U);
    EXPECT_EQ(numbers.at(key), i++);
  }
}

TEST_F(StrongPtrTest, ValidityNeedsRecordObjectCountAndType) {
  const StrongPtr<Shifted, Root> pointer(new Shifted);
  ReferenceRecord& record = *pointer.getRecord();
  EXPECT_TRUE(pointer.isValid());
  record.strong.store(0);
  EXPECT_FALSE(pointer.isValid());
  record.strong.store(-333);
  EXPECT_FALSE(pointer.isValid());
  record.strong.store(1);
  void* const object = record.object.exchange(nullptr);
  EXPECT_FALSE(pointer.isValid());
  record.object.store(object);
  EXPECT_TRUE(pointer.isValid());
}

TEST_F(StrongPtrTest, RaiseNeverLiftsAZeroOrAMark) {
  Root object;
  ReferenceRecord& record = *object.getRecord();
  for (const int mark : {0, -111, -333}) {
    record.strong.store(mark);
    EXPECT_FALSE(record.raiseStrongIfPositive());
    EXPECT_EQ(record.strong.load(), mark);
  }
  record.strong.store(1);
  EXPECT_TRUE(record.raiseStrongIfPositive());
  EXPECT_EQ(record.strong.load(), 2);
}

using DeferredStepTest = TreskTest::RecordBalanceTest;
using TreskTest::CountingData;
using TreskTest::DataPtr;

TEST_F(DeferredStepTest, DataFinishTheirConstructionAtTheFirstStrongPointerOnly) {
  auto* const object = new CountingData;
  EXPECT_EQ(object->nDeferred, 0);
  const DataPtr first(object);
  EXPECT_EQ(object->nDeferred, 1);
  const DataPtr second(first);
  const DataPtr third(object);
  const DataPtr fourth{Ostrel::WeakPtr<Ostrel::Cacheable, Ostrel::Cacheable>(first)};
  EXPECT_EQ(object->nDeferred, 1);
}

TEST_F(DeferredStepTest, RunsForAFirstPointerMadeFromAWeakOne) {
  auto* const object = new CountingData;
  const Ostrel::WeakPtr<CountingData, Ostrel::Cacheable> observer(object);
  EXPECT_EQ(object->nDeferred, 0);
  const DataPtr first(observer);
  EXPECT_EQ(object->nDeferred, 1);
}

TEST_F(DeferredStepTest, RunsForAFirstPointerOfTheWrongType) {
  auto* const object = new CountingData;
  int nSeen = 0;
  object->onDeferred = [&](CountingData&) { ++nSeen; };
  { const StrongPtr<TreskTest::ForeignData, Ostrel::Cacheable> wrong{object->getSelf()}; }
  EXPECT_EQ(nSeen, 1);
}

TEST_F(DeferredStepTest, DoesNotRunForADeadObject) {
  Ostrel::WeakPtr<Ostrel::Cacheable, Ostrel::Cacheable> observer;
  {
    CountingData object;
    observer = object.getSelf();
  }
  const DataPtr pointer(observer);
  EXPECT_FALSE(pointer.isValid());
}

TEST_F(DeferredStepTest, MayMakeStrongPointersToItsObject) {
  std::vector<int> counts;
  auto* const object = new CountingData;
  object->onDeferred = [&](CountingData& self) {
    counts.push_back(self.getRecord()->strong.load());
    const DataPtr mine(&self);
    counts.push_back(self.getRecord()->strong.load());
  };
  const DataPtr first(object);
  EXPECT_EQ(counts, (std::vector<int>{1, 2}));
  EXPECT_EQ(first.strongCount(), 1);
  EXPECT_EQ(object->nDeferred, 1);
}

TEST_F(DeferredStepTest, ExceptionReleasesTheObjectAndPasses) {
  const int nBefore = CountingData::nAlive;
  auto* const object = new CountingData;
  object->onDeferred = [](CountingData&) { throw std::runtime_error("deferred"); };
  EXPECT_THROW(DataPtr{object}, std::runtime_error);
  EXPECT_EQ(CountingData::nAlive, nBefore);
  EXPECT_EQ(nLiveSinceStart(), 0);
}

TEST_F(DeferredStepTest, ExceptionOfAPointerMadeFromAWeakOneLeavesADeadRecord) {
  auto* const object = new CountingData;
  object->onDeferred = [](CountingData&) { throw std::runtime_error("deferred"); };
  const Ostrel::WeakPtr<CountingData, Ostrel::Cacheable> observer(object);
  EXPECT_THROW(DataPtr{observer}, std::runtime_error);
  EXPECT_EQ(observer.strongCount(), -111);
  EXPECT_EQ(observer.weakCount(), 1);
}

TEST_F(DeferredStepTest, CreaturesEnableCachingAtTheFirstStrongPointerOnly) {
  const StrongPtr<TreskTest::CountingCreature, Ostrel::Creature> first(new TreskTest::CountingCreature);
  EXPECT_EQ(first->getCachingCount(), 1);
  EXPECT_FALSE(first->isKept());
  const StrongPtr<Ostrel::Creature, Ostrel::Creature> second(first);
  const StrongPtr<Ostrel::Creature, Ostrel::Creature> third{TreskTest::WeakCreature(first)};
  EXPECT_EQ(first->getCachingCount(), 1);
}

TEST_F(DeferredStepTest, PreDestructorRunsBeforeTheDestructorOfListedData) {
  const TreskTest::CachePtr cache(new Ostrel::Cache);
  const TreskTest::CreatorPtr<TreskTest::KeepingCreator> creator(new TreskTest::KeepingCreator(cache));
  const int nListedBefore = CountingData::nListedAtDeath;
  DataPtr data(new CountingData);
  data->setCreator(creator->getSelf());
  EXPECT_TRUE(data->isOnCacheList());
  data.reset();
  EXPECT_EQ(CountingData::nListedAtDeath, nListedBefore) << "the list was left before the destructor";
}

}  // namespace
