// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/BinderBase.hpp>
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArrayProperties.hpp>
#include <tresk/field/OnDemandCreator.hpp>
#include <tresk/field/SizeInterface.hpp>
#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/Profiler.hpp>

#include <support/AsynchronDoubles.hpp>
#include <support/FieldDoubles.hpp>

#include <gtest/gtest.h>

#include "EachAllocation.hpp"

#include <array>
#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

namespace {

using namespace Tresk;
using Ostrel::Creature;
using TreskTest::CreatorOwner;
using TreskTest::EachAllocation;
using TreskTest::KindPtr;
using TreskTest::makeArray;
using TreskTest::OwnerPtr;

using Numbers = Ostrel::StrongPtr<MemArray<1, double>, Ostrel::Cacheable>;

/// What a function keeps that is too large to stand in the function object itself.
struct Ballast {
  std::array<double, 8> numbers{};
};

MemBasePtr makeThree() { return makeArray(3, 1.5); }
bool isThree(const MemBasePtr& data) {
  const auto* const array = dynamic_cast<const MemArray<1, double>*>(data.get());
  return array != nullptr && array->nElements() == 3 && array->last() == 1.5;
}
FunctionalCreator::Function functionWithBallast() {
  return [ballast = Ballast()] {
    static_cast<void>(ballast);
    return makeThree();
  };
}

/// A cache of its own, so that its books tell of each test alone.
class CreatorAllocationTest : public ::testing::Test {
 protected:
  ~CreatorAllocationTest() override {
    EXPECT_EQ(cache->getStatistics().nHeldBytes, 0U);
    EXPECT_EQ(cache->getStatistics().nInFlightBytes, 0U);
    EXPECT_EQ(cache->nCreatures(), 0U);
  }

  KindPtr<FunctionalCreator> makeFunctional() const {
    return KindPtr<FunctionalCreator>(new FunctionalCreator(functionWithBallast(), false, cache));
  }

  EachAllocation each;
  const CachePtr cache{new Ostrel::Cache};
};

/// A creator and what comes of it.
template <class Kind>
struct Attempt {
  KindPtr<Kind> creator;
  MemBasePtr made;
};
template <class Kind>
bool isEmpty(const Attempt<Kind>& attempt) {
  return !attempt.creator->hasData() && !attempt.made;
}

TEST_F(CreatorAllocationTest, CreatorsAreMadeOrNot) {
  struct Data {
    MemBasePtr data = makeThree();
    CreatorPtr creator;
  };
  const auto isAlone = [](const Data& d) { return !d.creator && d.data.strongCount() == 1 && isThree(d.data); };
  each.changes(
      "keeping creator", [] { return Data(); },
      [&](Data& d) { d.creator = CreatorPtr(new CreativeArray(d.data, cache)); }, isAlone,
      [](const Data& d) {
        return d.creator->getData() == d.data && d.data->getCreator() == d.creator && d.data->isOnCacheList() &&
               getSize(*d.creator)->str() == "3" && d.creator->getTreskType() == getTreskType<double>();
      });
  each.changes(
      "forgetting creator", [] { return Data(); },
      [&](Data& d) { d.creator = CreatorPtr(new TreskTest::ForgetfulArray(d.data, cache)); }, isAlone,
      [](const Data& d) { return d.creator->getData() == d.data && d.data->getCreator() == d.creator; });
  each.makes(
      "functional creator", [&] { return makeFunctional(); }, [](const auto& p) { return isThree(p->create(false)); });
  each.makes(
      "asynchronous creator",
      [&] {
        return KindPtr<AsynchronCreator>(new AsynchronCreator(
            [ballast = Ballast()](const std::atomic<bool>&) {
              static_cast<void>(ballast);
              return makeThree();
            },
            cache));
      },
      [](const auto& p) { return isThree(p->create_data()); });
  each.makes(
      "creator with a computer",
      [&] {
        const TreskTest::SharedComputer computer([](const CreatorWeakPtr&) { return makeThree(); });
        return CreatorPtr(new OnDemandCreator<TreskTest::SharedComputer, 1, double>(computer, cache));
      },
      [](const CreatorPtr& p) { return isThree(p->create(false)); });
}

TEST_F(CreatorAllocationTest, ProductionsYieldDataOrThrowAndLeaveTheCreatorEmpty) {
  const auto isMade = [](const auto& a) {
    return isThree(a.made) && a.creator->getData() == a.made && a.made->getCreator() == a.creator;
  };
  const auto make = [&] { return Attempt<FunctionalCreator>{makeFunctional(), {}}; };
  each.changes(
      "functional creator", make, [](auto& a) { a.made = a.creator->create(false); },
      [](const auto& a) { return isEmpty(a); }, isMade);
  each.changes(
      "functional creator, kept", make, [](auto& a) { a.made = a.creator->create(true); },
      [](const auto& a) { return isEmpty(a); }, [&](const auto& a) { return isMade(a) && a.creator->isKept(); });
  each.changes(
      "functional creator, on request", make,
      [](auto& a) {
        EXPECT_TRUE(a.creator->request({}));
        a.made = a.creator->getData();
      },
      [](const auto& a) { return isEmpty(a); }, isMade);
  each.changes(
      "functional creator, without the cache", make, [](auto& a) { a.made = a.creator->produce(); },
      [](const auto& a) { return isEmpty(a); }, [](const auto& a) { return isThree(a.made) && a.creator->hasData(); });
  /// A creator with a computation of its own.
  class Triple final : public FunctionalCreatorBase {
   public:
    explicit Triple(const CacheWeakPtr& cache) : FunctionalCreatorBase(false, cache) {}
    MemBasePtr compute() const override { return makeThree(); }
  };
  each.changes(
      "derived functional creator",
      [&] {
        return Attempt<Triple>{KindPtr<Triple>(new Triple(cache)), {}};
      },
      [](auto& a) { a.made = a.creator->create(false); }, [](const auto& a) { return isEmpty(a); }, isMade);
  using Computing = OnDemandCreator<TreskTest::SharedComputer, 1, double>;
  each.changes(
      "creator with a computer",
      [&] {
        const TreskTest::SharedComputer computer([](const CreatorWeakPtr&) { return makeThree(); });
        return Attempt<Computing>{KindPtr<Computing>(new Computing(computer, cache)), {}};
      },
      [](auto& a) { a.made = a.creator->create(false); }, [](const auto& a) { return isEmpty(a); }, isMade);
  each.changes(
      "keeping creator with a producer",
      [&] {
        Attempt<CreativeArray> attempt{KindPtr<CreativeArray>(new CreativeArray(MemBasePtr(), cache)), {}};
        TreskTest::attachArrayProducer(*attempt.creator, makeThree);
        return attempt;
      },
      [](auto& a) { a.made = a.creator->create(false); }, [](const auto& a) { return isEmpty(a); }, isMade);
}

TEST_F(CreatorAllocationTest, HooksOfWhichTheDefaultDoesNothingNeedNoMemory) {
  const KindPtr<FunctionalCreator> creator = makeFunctional();
  each.needsNone("trying again", [&] { return !creator->retryCreation(*creator); });
  each.needsNone("discarding", [&] { return !creator->discardCreation(); });
  each.needsNone("state", [&] { return !creator->isUnderCreation() && !creator->hasData() && !creator->isKept(); });
}

TEST_F(CreatorAllocationTest, ProductionsOfWhichACacheTellsYieldDataOrThrow) {
  int nTold = 0;
  cache->setListener([&nTold](const Ostrel::CacheEvent&) { ++nTold; });
  cache->setPolicy(Ostrel::StrongPtr<Ostrel::CachePolicy, Ostrel::CachePolicy>(new Ostrel::CostAwarePolicy));
  each.changes(
      "production",
      [&] {
        return Attempt<FunctionalCreator>{makeFunctional(), {}};
      },
      [](auto& a) { a.made = a.creator->create(false); }, [](const auto& a) { return isEmpty(a); },
      [](const auto& a) { return isThree(a.made); });
  cache->setListener({});
  cache->setPolicy({});
  EXPECT_GT(nTold, 0);
}

TEST_F(CreatorAllocationTest, SizesAreToldOrNot) {
  struct Sized {
    CreatorPtr creator;
    SizePtr size;
  };
  const auto isTold = [](const Sized& s) { return s.size && s.size->str() == "3" && getSize(*s.creator) == s.size; };
  each.changes(
      "size of held data",
      [&] {
        return Sized{CreatorPtr(new TreskTest::ForgetfulArray(makeThree(), cache)), {}};
      },
      [](Sized& s) { s.size = getSize(*s.creator); },
      [](const Sized& s) { return !s.size && !Ostrel::findInterface<SizeInterface>(*s.creator); }, isTold);
  each.changes(
      "size of data to be made",
      [&] {
        return Sized{makeFunctional(), {}};
      },
      [](Sized& s) { s.size = makeSize(*s.creator); },
      [](const Sized& s) {  // data that were made stay
        return !s.size && !Ostrel::findInterface<SizeInterface>(*s.creator) &&
               (!s.creator->hasData() || s.creator->getData()->getCreator() == s.creator);
      },
      isTold);
  const CreatorPtr known = makeFunctional();
  makeSize(*known);
  each.needsNone("known size", [&] {
    return getSize(*known)->Dims() == 1 && makeSize(*known)->nElements() == 3 && getMemoryUsage(*known) == 24;
  });
}

TEST_F(CreatorAllocationTest, DescriptionsAreAddedOrNot) {
  const DynamicSize size = {4, 5};
  const TreskTypePtr type = getTreskType<double>();
  const auto typeOf = [](const CreatorPtr& creator) {
    const auto properties = Ostrel::findInterface<MemArrayProperties>(*creator);
    return properties ? properties->getType() : TreskTypeWeakPtr();
  };
  const auto make = [&] { return CreatorPtr(makeFunctional()); };
  each.changes(
      "rank and type", make, [&](const CreatorPtr& p) { p->addMetaInfo(2, type); },
      [&](const CreatorPtr& p) { return !typeOf(p); },
      [&](const CreatorPtr& p) { return typeOf(p) == type && p->getTreskType() == type; });
  // What comes first may be there already.
  each.changes(
      "size and type", make, [&](const CreatorPtr& p) { p->addMetaInfo(size, type); },
      [&](const CreatorPtr& p) { return !typeOf(p); },
      [&](const CreatorPtr& p) { return typeOf(p) == type && getSize(*p)->str() == "4x5"; });
  const MemBasePtr three = makeThree();
  each.changes(
      "an array", make, [&](const CreatorPtr& p) { p->addDataMetaInfo(three); },
      [&](const CreatorPtr& p) { return !typeOf(p); },
      [&](const CreatorPtr& p) { return typeOf(p) == type && getSize(*p)->str() == "3"; });
  each.changes(
      "an asynchronous creator", [&] { return KindPtr<AsynchronCreator>(new AsynchronCreator({}, cache)); },
      [&](const auto& p) { p->setup(size, type); }, [&](const auto& p) { return !typeOf(p); },
      [&](const auto& p) { return typeOf(p) == type && p->getType() == typeid(double); });
  each.makes(
      "properties",
      [&] { return Ostrel::StrongPtr<MemArrayProperties, Ostrel::InterfaceBase>(new MemArrayProperties(2, type)); },
      [&](const auto& p) { return p->getRank() == 2 && p->getType() == type; });
  const TreskTypePtr vectors = getTreskType<Quorvel::Vector<double, 3>>();
  each.changes(
      "type", make, [&](const CreatorPtr& p) { p->setTreskType(vectors); }, [](const CreatorPtr&) { return true; },
      [&](const CreatorPtr& p) { return p->getTreskType() == vectors; });
}

/// A creator of data with owners, who save what they are asked to.
struct Owned {
  explicit Owned(const CachePtr& cache, int nOwners) : creator(new CreativeArray(makeThree(), cache)) {
    TreskTest::attachArrayProducer(*creator, makeThree);
    for (int i = 0; i < nOwners; ++i) {
      owners.push_back(
          TreskTest::makeOwner<CreatorOwner>([this](Ostrel::Intercube& question, const Ostrel::Intercube&) {
            if (question.findInterface(typeid(MemBasePtr))) ++nSaves;
            if (const auto slot = Ostrel::findInterface<BinderSlot>(question)) static_cast<BinderPtr&>(*slot) = binder;
            return true;
          }));
      creator->addOwner(owners.back());
    }
  }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;

  KindPtr<CreativeArray> creator;
  std::vector<OwnerPtr<CreatorOwner>> owners;
  BinderPtr binder{new BinderBase("binder")};
  BinderPtr found;
  int nSaves = 0;
  Creature::ReasonForReleasal answer = Creature::CannotRelease;
};

TEST_F(CreatorAllocationTest, OwnersAreAskedOrNot) {
  for (const int nOwners : {1, 3}) {
    const auto make = [&, nOwners] { return std::make_unique<Owned>(cache, nOwners); };
    const std::string with = " with owners: " + std::to_string(nOwners);
    each.changes(
        "saving" + with, make,
        [](const auto& o) {
          o->nSaves = 0;
          o->creator->save(o->creator->getData());
        },
        [=](const auto& o) { return o->nSaves < nOwners; }, [=](const auto& o) { return o->nSaves == nOwners; });
    each.changes(
        "binder" + with, make, [](const auto& o) { o->found = o->creator->getBinder(); },
        [](const auto& o) { return !o->found; }, [](const auto& o) { return o->found == o->binder; });
    each.changes(
        "release" + with, make, [](const auto& o) { o->answer = o->creator->release(); },
        [](const auto& o) { return isThree(o->creator->getData()); },
        [](const auto& o) { return o->answer == Creature::Released && !o->creator->hasData() && o->nSaves > 0; });
  }
}

TEST_F(CreatorAllocationTest, OwnersEnterOrNot) {
  struct Entry {
    CreatorPtr creator{new TreskTest::ForgetfulArray(CacheWeakPtr())};
    OwnerPtr<CreatorOwner> owner = TreskTest::makeOwner<CreatorOwner>();
  };
  each.changes(
      "entry", [] { return Entry(); }, [](const Entry& e) { EXPECT_TRUE(e.creator->addOwner(e.owner)); },
      [](const Entry& e) { return e.creator->nOwners() == 0 && !e.creator->isOwnedBy(e.owner); },
      [](const Entry& e) { return e.creator->nOwners() == 1 && e.creator->isOwnedBy(e.owner); });
  const Entry e;
  e.creator->addOwner(e.owner);
  each.makes(
      "list", [&] { return e.creator->getOwners(); },
      [&](const auto& owners) { return owners.size() == 1 && owners[0] == e.owner; });
  each.needsNone("ages", [&] {
    e.creator->touch();
    e.creator->touchAttributes();
    e.creator->updateAttributeAge(Ostrel::Ageable::now());
    return e.owner->dataAge > Ostrel::Ageable::Ooooold;
  });
  each.needsNone("leaving", [&] {
    e.creator->removeOwner(e.owner);
    return e.creator->nOwners() == 0;
  });
}

TEST_F(CreatorAllocationTest, ReleasesThatAreProfiledTakePlaceOrThrow) {
  class Listener : public Ostrel::Profiler::Listener {
   public:
    void begin(const Ostrel::Profiler::Scope&) override { ++nOpen; }
    void end(const Ostrel::Profiler::Scope&) override { --nOpen; }
    int nOpen = 0;
  } listener;
  Ostrel::Profiler::Listener* const former = Ostrel::Profiler::setListener(&listener);
  each.changes(
      "release", [&] { return std::make_unique<Owned>(cache, 1); },
      [](const auto& o) { o->answer = o->creator->release(); },
      [&](const auto& o) { return isThree(o->creator->getData()) && listener.nOpen == 0; },
      [&](const auto& o) { return o->answer == Creature::Released && listener.nOpen == 0; });
  Ostrel::Profiler::setListener(former);
}

TEST_F(CreatorAllocationTest, QuestionsAndItemsAreMadeOrNot) {
  each.makes(
      "binder", [] { return BinderPtr(new BinderBase("a binder with a name that is long enough")); },
      [](const BinderPtr& p) { return p->getName().size() == 40; });
  const MemBasePtr three = makeThree();
  using ItemPtr = Ostrel::StrongPtr<SaveItem<MemBasePtr>, Ostrel::InterfaceBase>;
  each.makes(
      "item", [&] { return ItemPtr(new SaveItem<MemBasePtr>(three)); },
      [&](const ItemPtr& p) { return p->getItem() == three; });
  each.makes(
      "slot", [] { return Ostrel::StrongPtr<BinderSlot, Ostrel::InterfaceBase>(new BinderSlot); },
      [](const auto& p) { return !static_cast<const BinderPtr&>(*p); });
  each.makes(
      "raw interface", [&] { return three->create(typeid(void)); },
      [](const MemBasePtr& p) { return p->nElements() == 3; });
}

// ---------------------------------------------------------------------------------------------- asynchronous creators

class AsynchronAllocationTest : public TreskTest::AsynchronCreatorFixture {
 protected:
  static void waitForEndOf(const AsynchronCreator& creator) {
    while (creator.isUnderCreation() && !creator.hasFailed()) std::this_thread::yield();
  }
};

TEST_F(AsynchronAllocationTest, RequestsStartAThreadOrThrowAndCanBeMadeAgain) {
  const TreskTest::SubjectPtr warm = make([](const TreskTest::Flag&) { return makeThree(); });
  EXPECT_TRUE(warm->request({}));
  waitForEndOf(*warm);
  int nThrown = 0;
  for (const auto kind : {TreskTest::FailingAllocation::Kind::Once, TreskTest::FailingAllocation::Kind::FromThereOn}) {
    bool hasStruck = true;
    for (long long n = 0; hasStruck; ++n) {
      const TreskTest::SubjectPtr creator = make([](const TreskTest::Flag&) { return makeThree(); });
      bool isRequested = false;
      {
        const TreskTest::FailingAllocation failing(n, kind);
        try {
          isRequested =
              creator->request([ballast = Ballast()](const auto&, const auto&) { static_cast<void>(ballast); });
        } catch (const std::bad_alloc&) {
          TreskTest::FailingAllocation::end();
          ++nThrown;
        }
        TreskTest::FailingAllocation::end();
        hasStruck = failing.hasStruck();
      }
      if (!isRequested) {
        EXPECT_FALSE(creator->isUnderCreation());
        EXPECT_FALSE(creator->hasFailed());
        EXPECT_TRUE(creator->request({}));
      }
      EXPECT_TRUE(isThree(creator->produce()));
      EXPECT_FALSE(creator->isUnderCreation());
    }
  }
  EXPECT_GE(nThrown, 4);
}

TEST_F(AsynchronAllocationTest, NobodyWaitsForAThreadThatCouldNotBeStartedAfterAnother) {
  int nThrown = 0;
  bool hasStruck = true;
  for (long long n = 0; hasStruck; ++n) {
    const TreskTest::SubjectPtr creator = make([](const TreskTest::Flag&) { return makeThree(); });
    EXPECT_TRUE(creator->request({}));
    waitForEndOf(*creator);
    EXPECT_EQ(creator->release(), Creature::Released);  // nobody has read the result of the thread
    {
      const TreskTest::FailingAllocation failing(n, TreskTest::FailingAllocation::Kind::Once);
      try {
        creator->request({});
      } catch (const std::bad_alloc&) {
        ++nThrown;
      }
      TreskTest::FailingAllocation::end();
      hasStruck = failing.hasStruck();
    }
    EXPECT_TRUE(isThree(creator->produce()));
    EXPECT_FALSE(creator->isUnderCreation());
  }
  EXPECT_GT(nThrown, 0);
}

TEST_F(AsynchronAllocationTest, WorkOnACallersThreadYieldsDataOrThrows) {
  EachAllocation each;
  const TreskTest::SubjectPtr creator = make([](const TreskTest::Flag&) { return makeThree(); });
  each.makes(
      "data", [&] { return creator->create_data(); }, isThree);
  each.makes(
      "production", [&] { return creator->produce(); }, isThree);
  each.makes(
      "access", [&] { return creator->create(false); }, isThree);
  EXPECT_FALSE(creator->hasFailed());
  each.needsNone("discarding", [&] { return !creator->discardCreation() && creator->getType() == typeid(void); });
}

TEST_F(AsynchronAllocationTest, WorkThatFindsNoMemoryOnItsThreadLeavesTheCreatorStuckAndTellsOnce) {
  int nStuck = 0;
  int nDone = 0;
  bool hasStruck = true;
  for (long long n = 0; hasStruck; ++n) {
    const TreskTest::SubjectPtr creator = make([](const TreskTest::Flag&) { return makeThree(); });
    {
      const TreskTest::FailingElsewhere failing(n);
      EXPECT_TRUE(creator->request({}));
      waitForEndOf(*creator);
      hasStruck = failing.hasStruck();
    }
    if (creator->hasFailed()) {
      ++nStuck;
      EXPECT_TRUE(creator->isUnderCreation());
      EXPECT_FALSE(creator->hasData());
      EXPECT_FALSE(creator->request({}));
      EXPECT_EQ(creator->release(), Creature::StillInUse);
      EXPECT_THROW(creator->produce(), std::bad_alloc);
    } else {
      ++nDone;
      EXPECT_TRUE(creator->hasData());
    }
    EXPECT_TRUE(isThree(creator->produce())) << "by another way if need be";
  }
  EXPECT_GT(nStuck, 0);
  EXPECT_GT(nDone, 0);
}

TEST_F(AsynchronAllocationTest, WhatTheThreadDoesStoresDataOrThrowsOnAnyOtherThread) {
  EachAllocation each;
  const auto make = [&] { return this->make([](const TreskTest::Flag&) { return makeThree(); }); };
  each.changes(
      "work", make, [](const auto& p) { EXPECT_TRUE(AsynchronCreator::createData(p, {})); },
      [](const auto& p) { return !p->hasData() && !p->isUnderCreation(); },
      [](const auto& p) { return isThree(p->getData()) && p->getData()->getCreator() == p && !p->isUnderCreation(); });
}

}  // namespace
