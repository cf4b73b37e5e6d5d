// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Pointers.hpp>

#include <support/RecordBalance.hpp>
#include <support/SpeakRecorder.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Ostrel::ReferenceBase;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;

/// Runs a function as its last chance.
class Dying : public ReferenceBase<Dying> {
 public:
  using Hook = std::function<void(Dying&)>;

  explicit Dying(Hook hook) : ReferenceBase<Dying>(this), hook_(std::move(hook)) { ++nAlive; }
  ~Dying() override { --nAlive; }

  void extremeUnction() override {
    ++nHooks;
    if (hook_) hook_(*this);
  }
  /// Forgets the function, so that the object may die at last.
  void makePeace() { hook_ = nullptr; }

  static inline int nAlive = 0;
  static inline int nHooks = 0;

 private:
  Hook hook_;
};
using Strong = StrongPtr<Dying, Dying>;
using Weak = WeakPtr<Dying, Dying>;

/// Pointers to resurrected objects, which never die: kept reachable to the end of the process.
std::vector<Strong>& parkingPlace() {
  static auto* const place = new std::vector<Strong>;
  return *place;
}

class ExtremeUnctionTest : public TreskTest::RecordBalanceTest {
 protected:
  ExtremeUnctionTest() {
    parkingPlace();
    Dying::nHooks = 0;
    nAliveAtStart_ = Dying::nAlive;
  }
  int nAlive() const { return Dying::nAlive - nAliveAtStart_; }

  TreskTest::SpeakRecorder recorder;

 private:
  int nAliveAtStart_ = 0;
};

TEST_F(ExtremeUnctionTest, RunsOnceAtTheLastReleaseWithTheCountStillOne) {
  int strong = 0;
  int weak = 0;
  bool isThere = false;
  std::thread::id thread;
  Strong owner(new Dying([&](Dying& self) {
    strong = self.getRecord()->strong.load();
    weak = self.getRecord()->weak.load();
    isThere = self.getSelf().isValid();
    thread = std::this_thread::get_id();
  }));
  Strong other(owner);
  owner.reset();
  EXPECT_EQ(Dying::nHooks, 0);
  other.reset();
  EXPECT_EQ(Dying::nHooks, 1);
  EXPECT_EQ(strong, 1);
  EXPECT_EQ(weak, 3);
  EXPECT_TRUE(isThere);
  EXPECT_EQ(thread, std::this_thread::get_id());
  EXPECT_EQ(nAlive(), 0);
  EXPECT_TRUE(recorder.unctionChanges().empty());
}

TEST_F(ExtremeUnctionTest, RunsOnTheThreadOfTheLastRelease) {
  std::thread::id seen;
  Strong owner(new Dying([&](Dying&) { seen = std::this_thread::get_id(); }));
  std::thread::id expected;
  std::thread releaser([&, mine = std::move(owner)]() mutable {
    expected = std::this_thread::get_id();
    mine.reset();
  });
  releaser.join();
  EXPECT_EQ(seen, expected);
  EXPECT_NE(seen, std::this_thread::get_id());
}

TEST_F(ExtremeUnctionTest, RunsAtTheDestructionOfTheLastPointerToo) {
  { const Strong owner(new Dying(nullptr)); }
  EXPECT_EQ(Dying::nHooks, 1);
  EXPECT_EQ(nAlive(), 0);
}

TEST_F(ExtremeUnctionTest, RunsAtTheAssignmentThatReplacesTheLastPointer) {
  Strong owner(new Dying(nullptr));
  owner = Strong(new Dying(nullptr));
  EXPECT_EQ(Dying::nHooks, 1);
  EXPECT_EQ(nAlive(), 1);
}

TEST_F(ExtremeUnctionTest, DoesNotRunForAnObjectWithoutStrongPointer) {
  delete new Dying(nullptr);
  EXPECT_EQ(Dying::nHooks, 0);
  EXPECT_EQ(nAlive(), 0);
}

TEST_F(ExtremeUnctionTest, TemporaryPointersInTheHookChangeNothing) {
  int strongWithin = 0;
  Strong owner(new Dying([&](Dying& self) {
    const Strong mine(&self);
    const Strong again(mine);
    strongWithin = again.strongCount();
  }));
  owner.reset();
  EXPECT_EQ(strongWithin, 3);
  EXPECT_EQ(Dying::nHooks, 1) << "the release of a temporary is not the last one";
  EXPECT_EQ(nAlive(), 0);
  EXPECT_TRUE(recorder.unctionChanges().empty());
}

TEST_F(ExtremeUnctionTest, KeptReferenceResurrectsTheObjectWithOneCountTooMany) {
  Strong owner(new Dying([](Dying& self) { parkingPlace().emplace_back(&self); }));
  expectParked(1);
  const Weak observer(owner);
  owner.reset();

  ASSERT_EQ(recorder.unctionChanges().size(), 1U);
  const auto warning = recorder.unctionChanges()[0];
  EXPECT_EQ(warning.strong, 2);
  EXPECT_EQ(warning.weak, 5) << "object, self pointer, observer, kept pointer and the pointer under release";
  EXPECT_EQ(*warning.base, typeid(Dying));

  EXPECT_FALSE(owner.isValid());
  EXPECT_EQ(owner.getRecord(), nullptr) << "the pointer itself is empty";
  EXPECT_TRUE(observer.isValid());
  EXPECT_EQ(observer.strongCount(), 2) << "one more than there are holders";
  EXPECT_EQ(observer.weakCount(), 4);
  EXPECT_EQ(nAlive(), 1);
}

TEST_F(ExtremeUnctionTest, ResurrectedObjectStaysAliveWhenItsLastHolderLetsGo) {
  Strong owner(new Dying([](Dying& self) { parkingPlace().emplace_back(&self); }));
  expectParked(1);
  owner.reset();
  Strong holder(std::move(parkingPlace().back()));
  parkingPlace().pop_back();
  EXPECT_EQ(holder.strongCount(), 2);
  Strong further(holder);
  EXPECT_EQ(further.strongCount(), 3);
  further.reset();
  EXPECT_EQ(holder.strongCount(), 2);
  const Weak observer(holder);
  holder.reset();
  EXPECT_EQ(observer.strongCount(), 1);
  EXPECT_TRUE(observer.isValid());
  EXPECT_EQ(Dying::nHooks, 1) << "the surplus unit is never released";
  parkingPlace().emplace_back(observer);  // keeps the object reachable
}

TEST_F(ExtremeUnctionTest, KeptReferenceResurrectsThroughTheDestructorOfThePointer) {
  Weak observer;
  {
    const Strong owner(new Dying([](Dying& self) { parkingPlace().emplace_back(&self); }));
    observer = owner;
  }
  expectParked(1);
  EXPECT_EQ(recorder.unctionChanges().size(), 1U);
  EXPECT_EQ(observer.strongCount(), 2);
  EXPECT_EQ(observer.weakCount(), 4);
}

TEST_F(ExtremeUnctionTest, TwoKeptReferencesWarnOnce) {
  Strong owner(new Dying([](Dying& self) {
    parkingPlace().emplace_back(&self);
    parkingPlace().emplace_back(parkingPlace().back());
  }));
  expectParked(1);
  owner.reset();
  ASSERT_EQ(recorder.unctionChanges().size(), 1U);
  EXPECT_EQ(recorder.unctionChanges()[0].strong, 3);
}

TEST_F(ExtremeUnctionTest, ReferenceTakenByAnotherThreadMeanwhileIsAnOrdinaryHolder) {
  Strong rescuer;
  Strong owner(new Dying([&](Dying& self) {
    const Weak weak = self.getSelf();
    std::thread other([&] { rescuer = Strong(weak); });
    other.join();
  }));
  const Weak observer(owner);
  owner.reset();

  EXPECT_TRUE(recorder.unctionChanges().empty()) << "nobody has resurrected anything";
  EXPECT_EQ(nAlive(), 1);
  EXPECT_TRUE(rescuer.isValid());
  EXPECT_EQ(observer.strongCount(), 1) << "the unit under release was given back";
  EXPECT_EQ(observer.weakCount(), 4);

  rescuer->makePeace();
  rescuer.reset();
  EXPECT_EQ(Dying::nHooks, 2) << "the last release comes again";
  EXPECT_EQ(nAlive(), 0);
  EXPECT_EQ(observer.strongCount(), -111);
}

TEST_F(ExtremeUnctionTest, ReferenceTakenAndDroppedByAnotherThreadMeanwhileChangesNothing) {
  int strongWithin = 0;
  Strong owner(new Dying([&](Dying& self) {
    const Weak weak = self.getSelf();
    std::thread other([&] { strongWithin = Strong(weak).strongCount(); });
    other.join();
  }));
  owner.reset();
  EXPECT_EQ(strongWithin, 2);
  EXPECT_EQ(Dying::nHooks, 1);
  EXPECT_EQ(nAlive(), 0);
  EXPECT_TRUE(recorder.unctionChanges().empty());
}

TEST_F(ExtremeUnctionTest, OwnKeptReferenceWarnsAlsoWhenAnotherThreadHoldsTheObject) {
  Strong rescuer;
  Strong owner(new Dying([&](Dying& self) {
    parkingPlace().emplace_back(&self);
    const Weak weak = self.getSelf();
    std::thread other([&] { rescuer = Strong(weak); });
    other.join();
  }));
  expectParked(1);
  owner.reset();
  ASSERT_EQ(recorder.unctionChanges().size(), 1U);
  EXPECT_EQ(recorder.unctionChanges()[0].strong, 3);
  EXPECT_EQ(rescuer.strongCount(), 3);
  rescuer.reset();
  EXPECT_EQ(parkingPlace().back().strongCount(), 2);
}

TEST_F(ExtremeUnctionTest, ReferenceTakenByTheHookAndDroppedElsewhereLetsTheObjectDie) {
  Strong owner(new Dying([](Dying& self) {
    Strong mine(&self);
    std::thread other([theirs = std::move(mine)]() mutable { theirs.reset(); });
    other.join();
  }));
  owner.reset();
  EXPECT_EQ(Dying::nHooks, 1);
  EXPECT_EQ(nAlive(), 0);
  EXPECT_TRUE(recorder.unctionChanges().empty());
}

TEST_F(ExtremeUnctionTest, HookMayReleaseOtherObjectsWithHooksOfTheirOwn) {
  Strong inner(new Dying(nullptr));
  Strong outer(new Dying([&](Dying&) { inner.reset(); }));
  outer.reset();
  EXPECT_EQ(Dying::nHooks, 2);
  EXPECT_EQ(nAlive(), 0);
}

TEST_F(ExtremeUnctionTest, KeptReferenceToAnotherObjectIsNoResurrection) {
  Strong inner(new Dying(nullptr));
  Strong keeper;
  Strong outer(new Dying([&](Dying&) { keeper = inner; }));
  outer.reset();
  EXPECT_TRUE(recorder.unctionChanges().empty());
  EXPECT_EQ(nAlive(), 1);
  EXPECT_EQ(keeper.strongCount(), 2);
}

TEST_F(ExtremeUnctionTest, NestedHooksBookTheReferenceForTheObjectThatIsKept) {
  // While the hook of the outer object runs, the inner object dies, and its hook keeps the outer one.
  Weak outerSelf;
  Strong inner(new Dying([&](Dying&) { parkingPlace().emplace_back(outerSelf); }));
  Strong outer(new Dying([&](Dying&) { inner.reset(); }));
  outerSelf = outer;
  expectParked(1);
  outer.reset();
  ASSERT_EQ(recorder.unctionChanges().size(), 1U);
  EXPECT_EQ(outerSelf.strongCount(), 2);
  EXPECT_EQ(Dying::nHooks, 2);
  EXPECT_EQ(nAlive(), 1) << "the inner object is gone, the outer one is resurrected";
}

TEST_F(ExtremeUnctionTest, PinThatReleasesLastRunsTheHook) {
  Strong owner(new Dying(nullptr));
  {
    const Ostrel::Pin<Dying> pin(owner);
    owner.reset();
    EXPECT_EQ(Dying::nHooks, 0);
    EXPECT_EQ(nAlive(), 1);
  }
  EXPECT_EQ(Dying::nHooks, 1);
  EXPECT_EQ(nAlive(), 0);
}

TEST_F(ExtremeUnctionTest, DefaultHookMakesNoDifference) {
  class Plain : public ReferenceBase<Plain> {
   public:
    Plain() : ReferenceBase<Plain>(this) {}
  };
  StrongPtr<Plain, Plain> owner(new Plain);
  owner->extremeUnction();
  EXPECT_EQ(owner.strongCount(), 1);
  const WeakPtr<Plain, Plain> observer(owner);
  owner.reset();
  EXPECT_EQ(observer.strongCount(), -111);
}

}  // namespace
