// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Chunks.hpp>
#include <tresk/foundation/Geometry.hpp>
#include <tresk/foundation/Pointers.hpp>

#include <support/PointerClasses.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <limits>
#include <string>
#include <thread>
#include <type_traits>

namespace {

using Ostrel::Cache;
using Ostrel::Cacheable;
using Ostrel::CacheBase;
using Ostrel::Creature;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using TreskTest::Ballast;
using TreskTest::Root;
using TreskTest::Virtual;

using WeakPtrRegressionTest = TreskTest::RecordBalanceTest;

class MiddleWithVirtualBase : public virtual Root {};
class LeafOfVirtualBases : public Ballast, public virtual MiddleWithVirtualBase {};

TEST_F(WeakPtrRegressionTest, ConversionToAVirtualBaseLeavesADeadObjectAlone) {
  StrongPtr<LeafOfVirtualBases, Root> owner(new LeafOfVirtualBases);
  const WeakPtr<LeafOfVirtualBases, Root> observer(owner);
  const WeakPtr<MiddleWithVirtualBase, Root> before(observer);
  EXPECT_EQ(before.get(), static_cast<MiddleWithVirtualBase*>(owner.get()));
  EXPECT_EQ(owner.strongCount(), 1);
  owner.reset();
  const WeakPtr<MiddleWithVirtualBase, Root> after(observer);
  EXPECT_FALSE(after.isValid());
  EXPECT_EQ(after.get(), nullptr);
  EXPECT_TRUE(after.sameRecord(observer));
}

TEST_F(WeakPtrRegressionTest, ConversionOfAnExpiredStrongPointerToAVirtualBaseLeavesTheObjectAlone) {
  StrongPtr<LeafOfVirtualBases, Root> expired;
  {
    LeafOfVirtualBases object;
    expired = StrongPtr<LeafOfVirtualBases, Root>(&object);
  }
  const StrongPtr<MiddleWithVirtualBase, Root> converted(std::move(expired));
  EXPECT_FALSE(converted.isValid());
  EXPECT_EQ(converted.get(), nullptr);
}

/// Lets one thread assign a pointer while another one empties it, many times, with changing delays. Returns how often
/// the pointer was valid afterwards and showed no object.
template <class Clear>
long long nValidWithoutObject(const Clear& clear) {
  constexpr int nRounds = 20000;
  const StrongPtr<Virtual, Root> object(new Virtual);
  StrongPtr<Virtual, Root> slot;
  std::atomic<int> started{0};
  std::atomic<int> finished{0};
  const auto delay = [](int n) {
    static std::atomic<int> sink{0};
    for (int i = 0; i < n; ++i) sink.store(i, std::memory_order_relaxed);
  };
  std::thread clearing([&] {
    for (int round = 1; round <= nRounds; ++round) {
      while (started.load() < round) std::this_thread::yield();
      delay(round % 23);
      clear(slot);
      finished.store(round);
    }
  });
  long long nFaults = 0;
  for (int round = 1; round <= nRounds; ++round) {
    started.store(round);
    delay(round * 7 % 41);
    slot = object;
    while (finished.load() < round) std::this_thread::yield();
    if (slot.isValid() && slot.get() != object.get()) ++nFaults;
    slot.reset();
  }
  clearing.join();
  return nFaults;
}

TEST(StrongPtrRegressionTest, ResetOnAnotherThreadLeavesTheObjectOfAnAssignmentInPlace) {
  EXPECT_EQ(nValidWithoutObject([](StrongPtr<Virtual, Root>& slot) { slot.reset(); }), 0);
}

TEST(StrongPtrRegressionTest, TakeOnAnotherThreadLeavesTheObjectOfAnAssignmentInPlace) {
  EXPECT_EQ(nValidWithoutObject([](StrongPtr<Virtual, Root>& slot) { static_cast<void>(slot.take()); }), 0);
}

class ObservedCache : public Cache {
 public:
  explicit ObservedCache(bool& isAlive) : isAlive_(isAlive) { isAlive_ = true; }
  ~ObservedCache() override { isAlive_ = false; }

 private:
  bool& isAlive_;
};

class EmptyCreature : public Creature {
 public:
  using Creature::Creature;
  ReasonForReleasal release() override { return Released; }
  StrongPtr<Cacheable, Cacheable> getCacheable() override { return StrongPtr<Cacheable, Cacheable>(); }
};

class SmallData : public Cacheable {
 public:
  SmallData() : Cacheable(WeakPtr<Creature, Creature>()) {}
  unsigned long long memsize() const override { return 1; }
};

TEST(CacheRegressionTest, EnteringTheBooksDoesNotTakeOverACacheThatNobodyHoldsYet) {
  bool isAlive = false;
  auto* const unheld = new ObservedCache(isAlive);
  const StrongPtr<Creature, Creature> creator(new EmptyCreature(WeakPtr<Cache, CacheBase>(unheld)));
  ASSERT_TRUE(isAlive);
  EXPECT_EQ(unheld->nCreatures(), 1U);
  EXPECT_EQ(unheld->getRecord()->deferred.load(), 0);
  const StrongPtr<Cache, CacheBase> holder(unheld);
  EXPECT_EQ(holder.strongCount(), 1);
}

TEST(CacheRegressionTest, ListingDataDoesNotTakeOverACacheThatNobodyHoldsYet) {
  bool isAlive = false;
  auto* const unheld = new ObservedCache(isAlive);
  EmptyCreature creator{WeakPtr<Cache, CacheBase>(unheld)};
  const StrongPtr<Cacheable, Cacheable> data(new SmallData);
  data->setCreator(creator.getSelf());
  ASSERT_TRUE(isAlive);
  EXPECT_EQ(unheld->nCacheables(), 1U);
  const StrongPtr<Cache, CacheBase> holder(unheld);
  EXPECT_EQ(holder.strongCount(), 1);
}

TEST(PlainCounterRegressionTest, AdditionBeyondTheGreatestNumberWrapsAround) {
  Ostrel::PlainCounter<int> counter{std::numeric_limits<int>::max()};
  EXPECT_EQ(counter.add(1), std::numeric_limits<int>::min());
  EXPECT_EQ(counter.add(-1), std::numeric_limits<int>::max());
}

TEST(FixedArrayRegressionTest, ArrayOfOneValueIsMadeFromADerivedOne) {
  const Quorvel::Vector<double, 1> vector(2.5);
  const Quorvel::FixedArray<double, 1> array(vector);
  EXPECT_EQ(array[0], 2.5);
  static_assert(!std::is_constructible_v<Quorvel::FixedArray<double, 2>, std::string, std::string>);
  static_assert(std::is_constructible_v<Quorvel::FixedArray<double, 2>, int, float>);
}

}  // namespace
