// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Pointers.hpp>

#include <support/RaceRunner.hpp>
#include <support/RecordBalance.hpp>
#include <support/SpeakRecorder.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <numeric>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace {

using Ostrel::ReferenceBase;
using Ostrel::ReferenceRecord;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;

class Thing : public ReferenceBase<Thing> {
 public:
  Thing() : ReferenceBase<Thing>(this) {}
};
using Strong = StrongPtr<Thing, Thing>;
using Weak = WeakPtr<Thing, Thing>;

using ReferenceBaseTest = TreskTest::RecordBalanceTest;

TEST_F(ReferenceBaseTest, PlainLifeTakesTheStatedCounts) {
  Thing* const object = new Thing;
  ReferenceRecord* const record = object->getRecord();
  EXPECT_EQ(record->strong.load(), 1);
  EXPECT_EQ(record->weak.load(), 2);
  EXPECT_EQ(record->deferred.load(), 0);
  EXPECT_EQ(record->object.load(), object);

  Strong first(object);
  EXPECT_EQ(first.strongCount(), 1);
  EXPECT_EQ(first.weakCount(), 3);
  EXPECT_EQ(record->deferred.load(), 2);

  Strong second(first);
  EXPECT_EQ(second.strongCount(), 2);
  EXPECT_EQ(second.weakCount(), 4);

  Weak observer(second);
  EXPECT_EQ(observer.strongCount(), 2);
  EXPECT_EQ(observer.weakCount(), 5);

  second.reset();
  EXPECT_EQ(observer.strongCount(), 1);
  EXPECT_EQ(observer.weakCount(), 4);

  first.reset();
  EXPECT_EQ(observer.strongCount(), -111);
  EXPECT_EQ(observer.weakCount(), 1);
  EXPECT_EQ(record->object.load(), nullptr);
  EXPECT_EQ(nLiveSinceStart(), 1);

  observer.reset();
  EXPECT_EQ(nLiveSinceStart(), 0);
}

TEST_F(ReferenceBaseTest, UnclaimedObjectOutOfScopeLeavesNoRecordBehind) {
  {
    const Thing object;
    EXPECT_EQ(nLiveSinceStart(), 1);
  }
  EXPECT_EQ(nLiveSinceStart(), 0);
}

TEST_F(ReferenceBaseTest, UnclaimedObjectLeavesADeadRecordToItsWeakPointers) {
  Weak observer;
  {
    const Thing object;
    observer = object.getSelf();
    EXPECT_TRUE(observer.isValid());
    EXPECT_EQ(observer.strongCount(), 1);
    EXPECT_EQ(observer.weakCount(), 3);
  }
  EXPECT_FALSE(observer.isValid());
  EXPECT_EQ(observer.strongCount(), -111);
  EXPECT_EQ(observer.weakCount(), 1);
  EXPECT_EQ(observer.getRecord()->object.load(), nullptr);
  EXPECT_EQ(observer.get(), nullptr);
}

TEST_F(ReferenceBaseTest, DeletingAnUnclaimedHeapObjectLeavesNoRecordBehind) {
  delete new Thing;
  EXPECT_EQ(nLiveSinceStart(), 0);
}

class ThrowsInConstructor : public Thing {
 public:
  explicit ThrowsInConstructor(Weak& observer) {
    observer = getSelf();
    throw std::runtime_error("construction");
  }
};

TEST_F(ReferenceBaseTest, ObjectThatUnwindsFromItsConstructorDiesUnclaimed) {
  Weak observer;
  EXPECT_THROW(new ThrowsInConstructor(observer), std::runtime_error);
  EXPECT_FALSE(observer.isValid());
  EXPECT_EQ(observer.strongCount(), -111);
  EXPECT_EQ(observer.weakCount(), 1);
}

TEST_F(ReferenceBaseTest, ObjectThatDiesInSpiteOfAStrongPointerIsMarkedAndLeavesThePointerInvalid) {
  // An object in storage of its own, destroyed by hand while a strong pointer refers to it.
  alignas(Thing) unsigned char storage[sizeof(Thing)];
  Thing* const object = new (storage) Thing;
  Strong pointer(object);
  EXPECT_EQ(pointer.weakCount(), 3);
  object->~Thing();
  EXPECT_EQ(pointer.strongCount(), -111);
  EXPECT_EQ(pointer.weakCount(), 1);
  EXPECT_FALSE(pointer.isValid());
  pointer.reset();
  EXPECT_EQ(nLiveSinceStart(), 0);
}

class NullSelf : public ReferenceBase<NullSelf> {
 public:
  NullSelf() : ReferenceBase<NullSelf>(nullptr) {}
};

TEST_F(ReferenceBaseTest, NullSelfThrowsMemoryExceptionAndFreesTheRecord) {
  const long long idBefore = Ostrel::PointerID;
  EXPECT_THROW(NullSelf(), Ostrel::MemoryException);
  EXPECT_EQ(Ostrel::PointerID, idBefore) << "the id is taken after the test of the self pointer";
  EXPECT_EQ(nLiveSinceStart(), 0);
}

class NullOrNot : public ReferenceBase<NullOrNot> {
 public:
  explicit NullOrNot(bool isNull) : ReferenceBase<NullOrNot>(isNull ? nullptr : this) {}
};

TEST_F(ReferenceBaseTest, RefusedConstructionTakesNoSerialNumber) {
  EXPECT_THROW(NullOrNot(true), Ostrel::MemoryException);
  EXPECT_EQ(NullOrNot(false).getSerialNumber(), 1);
}

TEST_F(ReferenceBaseTest, MemoryExceptionIsAStandardException) {
  static_assert(std::is_base_of_v<std::exception, Ostrel::MemoryException>);
  try {
    NullSelf();
    FAIL() << "no exception";
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), std::exception().what()) << "it carries no text of its own";
    EXPECT_NE(dynamic_cast<const Ostrel::MemoryException*>(&e), nullptr);
  }
}

class FirstClass : public ReferenceBase<FirstClass> {
 public:
  FirstClass() : ReferenceBase<FirstClass>(this) {}
};
class SecondClass : public ReferenceBase<SecondClass> {
 public:
  SecondClass() : ReferenceBase<SecondClass>(this) {}
};
class DerivedOfSecond : public SecondClass {};

TEST_F(ReferenceBaseTest, SerialNumbersBeginWithOneForEachClassOnItsOwn) {
  const FirstClass a;
  const FirstClass b;
  const SecondClass c;
  const FirstClass d;
  const DerivedOfSecond e;
  EXPECT_EQ(a.getSerialNumber(), 1);
  EXPECT_EQ(b.getSerialNumber(), 2);
  EXPECT_EQ(c.getSerialNumber(), 1);
  EXPECT_EQ(d.getSerialNumber(), 3);
  EXPECT_EQ(e.getSerialNumber(), 2) << "derived classes count with their counted class";
}

TEST_F(ReferenceBaseTest, SerialNumbersAreNotReusedAfterDeath) {
  class Fleeting : public ReferenceBase<Fleeting> {
   public:
    Fleeting() : ReferenceBase<Fleeting>(this) {}
  };
  for (long long n = 1; n <= 5; ++n) EXPECT_EQ(Fleeting().getSerialNumber(), n);
}

TEST_F(ReferenceBaseTest, SerialNumbersOfSeveralThreadsNeverRepeat) {
  class Raced : public ReferenceBase<Raced> {
   public:
    Raced() : ReferenceBase<Raced>(this) {}
  };
  constexpr int nThreads = 3;
  constexpr int nObjects = 2000;
  std::vector<std::vector<long long>> serials(nThreads);
  TreskTest::RaceRunner race;
  race.add(nThreads, [&](int thread) {
    for (int i = 0; i < nObjects; ++i) serials[static_cast<std::size_t>(thread)].push_back(Raced().getSerialNumber());
  });
  race.run();
  std::vector<long long> all;
  for (const std::vector<long long>& some : serials) {
    EXPECT_TRUE(std::is_sorted(some.begin(), some.end()));
    all.insert(all.end(), some.begin(), some.end());
  }
  std::sort(all.begin(), all.end());
  std::vector<long long> expected(nThreads * nObjects);
  std::iota(expected.begin(), expected.end(), 1);
  EXPECT_EQ(all, expected);
}

TEST_F(ReferenceBaseTest, ConstructionTakesOneId) {
  const long long before = Ostrel::PointerID;
  const Thing object;
  EXPECT_EQ(Ostrel::PointerID, before + 1);
}

TEST_F(ReferenceBaseTest, SelfIsAWeakPointerThatClaimsNothing) {
  const Thing object;
  const Weak self = object.getSelf();
  EXPECT_EQ(self.get(), &object);
  EXPECT_EQ(self.strongCount(), 1);
  EXPECT_EQ(self.weakCount(), 3);
  EXPECT_EQ(object.getRecord()->deferred.load(), 0);
}

class TellsItsDeath : public ReferenceBase<TellsItsDeath> {
 public:
  explicit TellsItsDeath(std::vector<int>& seen) : ReferenceBase<TellsItsDeath>(this), seen_(seen) {}
  ~TellsItsDeath() override {
    const ReferenceRecord& record = *getRecord();
    seen_ = {record.strong.load(), record.weak.load(), record.object.load() == nullptr};
  }

 private:
  std::vector<int>& seen_;
};

TEST_F(ReferenceBaseTest, DestructorRunsUnderTheMarkOfDeathWithAllWeakCountsStillThere) {
  std::vector<int> seen;
  StrongPtr<TellsItsDeath, TellsItsDeath> owner(new TellsItsDeath(seen));
  const WeakPtr<TellsItsDeath, TellsItsDeath> observer(owner);
  owner.reset();
  // The object, its self pointer, the pointer under release and the observer.
  EXPECT_EQ(seen, (std::vector<int>{-111, 4, 1}));
}

TEST_F(ReferenceBaseTest, DestructorOfAnUnclaimedObjectRunsBeforeTheMark) {
  std::vector<int> seen;
  { const TellsItsDeath object(seen); }
  EXPECT_EQ(seen, (std::vector<int>{1, 2, 0}));
}

TEST_F(ReferenceBaseTest, MissingWeakCountOfTheSelfPointerIsReported) {
  TreskTest::SpeakRecorder recorder;
  ReferenceRecord* record = nullptr;
  {
    const Thing object;
    record = object.getRecord();
    record->weak.store(1);  // the object's own count is gone when its destructor gives it back
  }
  ASSERT_EQ(recorder.invalidWeaks().size(), 1U);
  const auto report = recorder.invalidWeaks()[0];
  EXPECT_EQ(*report.target, typeid(void));
  EXPECT_EQ(*report.base, typeid(Thing));
  EXPECT_EQ(*report.dynamicType, typeid(void));
  EXPECT_EQ(report.strong, -111);
  EXPECT_EQ(report.weak, 0);
  EXPECT_EQ(report.record, record);
  EXPECT_EQ(report.object, nullptr);
  EXPECT_EQ(record->weak.load(), 0) << "the record is left as it is";
  record->weak.store(1);
  EXPECT_TRUE(record->lowerWeak());
}

TEST_F(ReferenceBaseTest, CountedClassesCannotBeCopied) {
  static_assert(!std::is_copy_constructible_v<Thing>);
  static_assert(!std::is_copy_assignable_v<Thing>);
  static_assert(std::has_virtual_destructor_v<Thing>);
}

TEST_F(ReferenceBaseTest, RecordsAreReusedAfterTheLastWeakCount) {
  for (int round = 0; round < 1000; ++round) {
    std::vector<Strong> objects;
    for (int i = 0; i < 20; ++i) objects.emplace_back(new Thing);
    EXPECT_EQ(nLiveSinceStart(), 20);
  }
}

TEST_F(ReferenceBaseTest, RecordsThatChangeThreadsAreCountedOnce) {
  std::vector<Strong> objects(100);
  TreskTest::RaceRunner maker;
  maker.add([&](int) {
    for (Strong& object : objects) object = Strong(new Thing);
  });
  maker.run();
  EXPECT_EQ(nLiveSinceStart(), 100);
  TreskTest::RaceRunner dropper;
  dropper.add([&](int) {
    for (std::size_t i = 0; i < 50; ++i) objects[i].reset();
  });
  dropper.run();
  EXPECT_EQ(nLiveSinceStart(), 50);
}

}  // namespace
