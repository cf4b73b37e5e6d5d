// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ComputationalField.hpp>

#include <support/CacheDoubles.hpp>

#include <gtest/gtest.h>

#include "FailingAllocation.hpp"

#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Ostrel::CacheStatistics;
using Tresk::Field;
using TreskTest::CreatorPtr;
using TreskTest::FailingAllocation;
using TreskTest::FieldOwner;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::hasContent;
using TreskTest::knownContent;
using TreskTest::KnownContent;
using TreskTest::makeKnownArray;
using TreskTest::MemBasePtr;

constexpr std::size_t nElements = 16;
constexpr unsigned long long Bytes = nElements * sizeof(double);
constexpr unsigned int nRoom = 4;

/// Runs an access again and again, each time with a later allocation that fails, until none is left to fail.
class CacheAllocationTest : public TreskTest::LimitedCacheTest {
 protected:
  struct Subject {
    CreatorPtr creator;
    KnownContent content;
  };

  CacheAllocationTest() {
    cache->setLimit(atStart.nHeldBytes + nRoom * Bytes);
    left_ = FieldPtr(new Field);
    const FieldPtr right((new Field(Tresk::FieldWeakPtr(left_))));
    for (unsigned int i = 0; i < 2 * nRoom; ++i) {
      const FragmentIDPtr fragment = left_->makeFragmentID(std::to_string(i));
      left_->setCreator(makeFunctional(i), fragment);
      right->setCreator(makeFunctional(2 * nRoom + i), fragment);
      subjects.push_back({left_->getCreatorByNumericalID(i), knownContent(i)});
    }
    sum_ = Tresk::addFields(left_, right);
    for (unsigned int i = 0; i < 2 * nRoom; ++i)
      subjects.push_back({sum_->getCreatorByNumericalID(i), knownContent(i) + knownContent(2 * nRoom + i)});
    dirty_ = FieldPtr(new Field);
    dirty_->addOwner(owner_);
    for (unsigned int i = 0; i < nRoom; ++i) {
      const CreatorPtr creator(new Tresk::CreativeArray(makeKnownArray(knownContent(i), nElements), cache));
      TreskTest::attachArrayProducer(*creator, [i] { return makeKnownArray(knownContent(i), nElements); });
      dirty_->setCreator(creator, dirty_->makeFragmentID(std::to_string(i)));
      subjects.push_back({creator, knownContent(i)});
    }
  }

  CreatorPtr makeFunctional(unsigned int i) const {
    const CreatorPtr creator(
        new Tresk::FunctionalCreator([i] { return makeKnownArray(knownContent(i), nElements); }, false, cache));
    creator->addMetaInfo(1, Tresk::getTreskType<double>());
    return creator;
  }

  /// Runs `access` on a thread, which is new to the caches if `isFresh`. Whatever fails, the numbers add up afterwards,
  /// and once there is memory again each creator yields what it should.
  void failEachAllocationOf(const std::function<void(const Subject&)>& access, FailingAllocation::Kind kind,
                            bool isFresh) {
    int nThrown = 0;
    for (const Subject& subject : subjects) {
      long long n = 0;
      for (bool goesOn = true; goesOn; ++n) {
        const auto tryOnce = [&] {
          const FailingAllocation failing(n, kind);
          try {
            access(subject);
          } catch (const std::bad_alloc&) {
            FailingAllocation::end();
            ++nThrown;
          }
          FailingAllocation::end();
          goesOn = failing.hasStruck();
        };
        subject.creator->release();
        if (isFresh)
          std::thread(tryOnce).join();
        else
          tryOnce();
        const CacheStatistics now = counts();
        ASSERT_EQ(now.nInFlightBytes, 0U);
        ASSERT_EQ(now.nAsked, now.nEvicted + now.nCannotRelease + now.nStillInUse + now.nThrown);
      }
      EXPECT_GT(n, 1) << "there was something to fail";
    }
    EXPECT_GT(nThrown, 0) << "and somebody was told of it";
    for (const Subject& subject : subjects)
      EXPECT_TRUE(hasContent(subject.creator->create(false), subject.content, nElements));
    EXPECT_LE(counts().nHeldBytes, counts().limit);
  }

  static void create(const Subject& subject) {
    const MemBasePtr data = subject.creator->create(false);
    FailingAllocation::end();
    EXPECT_TRUE(hasContent(data, subject.content, nElements)) << "without an exception all is well";
  }

  std::vector<Subject> subjects;
  bool isSaverOutOfOrder = false;

 private:
  FieldPtr left_;
  FieldPtr sum_;
  FieldPtr dirty_;
  const TreskTest::OwnerPtr<FieldOwner> owner_ =
      TreskTest::makeOwner<FieldOwner>([this](Ostrel::Intercube&, const Ostrel::Intercube&) {
        if (isSaverOutOfOrder) throw std::runtime_error("the saver is out of order, and says so at some length");
        return true;
      });
};

TEST_F(CacheAllocationTest, AccessesWithoutMemoryThrowAndTheNumbersAddUp) {
  failEachAllocationOf(create, FailingAllocation::Kind::Once, false);
  failEachAllocationOf(create, FailingAllocation::Kind::FromThereOn, false);
}

TEST_F(CacheAllocationTest, ThreadsThatFindNoMemoryForTheirOwnBooksGoOnWithoutThem) {
  failEachAllocationOf(create, FailingAllocation::Kind::Once, true);
  failEachAllocationOf(create, FailingAllocation::Kind::FromThereOn, true);
}

TEST_F(CacheAllocationTest, EventsThatFindNoMemoryAreLost) {
  unsigned long long nEvents = 0;
  cache->setListener([&](const Ostrel::CacheEvent&) { ++nEvents; });
  failEachAllocationOf(create, FailingAllocation::Kind::Once, true);
  failEachAllocationOf(create, FailingAllocation::Kind::FromThereOn, false);
  cache->setListener({});
  EXPECT_GT(nEvents, 0U);
}

TEST_F(CacheAllocationTest, TextsOfExceptionsThatFindNoMemoryAreLost) {
  unsigned long long nThrown = 0;
  cache->setListener([&](const Ostrel::CacheEvent& event) {
    if (event.kind == Ostrel::CacheEventKind::Thrown) ++nThrown;
  });
  for (const bool isFresh : {false, true})
    failEachAllocationOf(
        [this](const Subject& subject) {
          isSaverOutOfOrder = true;
          try {
            const MemBasePtr data = subject.creator->create(false);
          } catch (const std::bad_alloc&) {
            isSaverOutOfOrder = false;
            throw;
          }
          isSaverOutOfOrder = false;
        },
        FailingAllocation::Kind::Once, isFresh);
  cache->setListener({});
  EXPECT_GT(nThrown, 0U);
}

TEST_F(CacheAllocationTest, PolicyThatFindsNoMemoryForItsOrderHasNoSay) {
  cache->setPolicy(Ostrel::StrongPtr<Ostrel::CachePolicy, Ostrel::CachePolicy>(new Ostrel::CostAwarePolicy));
  failEachAllocationOf(create, FailingAllocation::Kind::Once, false);
  failEachAllocationOf(create, FailingAllocation::Kind::FromThereOn, true);
  cache->setPolicy({});
}

}  // namespace
