// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemoryLedger.hpp>

#include <support/AsynchronDoubles.hpp>
#include <support/FieldDoubles.hpp>
#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Ostrel::Cache;
using Tresk::CacheMemoryRow;
using Tresk::CachePtr;
using Tresk::DynamicSize;
using Tresk::Field;
using Tresk::getTreskType;
using Tresk::MemoryAmount;
using Tresk::MemoryLedger;
using Tresk::MemoryRow;
using TreskTest::CacheWeakPtr;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::KindPtr;
using TreskTest::makeArray;
using TreskTest::makeForgetful;
using TreskTest::makeFunctional;
using TreskTest::MemBasePtr;
using TreskTest::WatchedArray;
using TreskTest::WatchedForgetful;

void expectAmount(const MemoryAmount& amount, unsigned long long nCreators, unsigned long long nBytes,
                  unsigned long long nOfUnknownSize = 0) {
  EXPECT_EQ(amount.nCreators, nCreators);
  EXPECT_EQ(amount.nBytes, nBytes);
  EXPECT_EQ(amount.nOfUnknownSize, nOfUnknownSize);
}

/// The row of a name, or one that says so.
template <class Row>
Row findRow(const std::vector<Row>& rows, const std::string& name) {
  const auto place = std::find_if(rows.begin(), rows.end(), [&name](const Row& row) { return row.name == name; });
  if (place != rows.end()) return *place;
  ADD_FAILURE() << "no row " << name;
  return Row();
}
template <class Row>
bool hasRow(const std::vector<Row>& rows, const std::string& name) {
  return std::any_of(rows.begin(), rows.end(), [&name](const Row& row) { return row.name == name; });
}

FieldPtr makeField(const std::vector<CreatorPtr>& creators) {
  const FieldPtr field(new Field);
  for (const CreatorPtr& creator : creators)
    field->setCreator(creator, field->makeFragmentID(std::to_string(field->nFragments())));
  return field;
}

std::string nameOf(const CachePtr& cache) { return "cache #" + std::to_string(cache->getSerialNumber()); }
std::string nameOf(const FieldPtr& field) { return "field #" + std::to_string(field->getSerialNumber()); }

class MemoryLedgerTest : public TreskTest::RecordBalanceTest {
 protected:
  KindPtr<WatchedForgetful> makeHolding(unsigned long long nElements) { return makeHolding(nElements, cache); }
  KindPtr<WatchedForgetful> makeHolding(unsigned long long nElements, const CachePtr& itsCache) {
    return makeForgetful(makeArray(nElements), itsCache);
  }
  /// A creator that tells what its data would take.
  KindPtr<WatchedForgetful> makeForgotten(unsigned long long nElements) {
    const auto creator = makeForgetful({}, cache);
    creator->addMetaInfo(DynamicSize({nElements}), getTreskType<double>());
    return creator;
  }

  /// The ledger of the process without what was there before the test.
  MemoryLedger takeOfProcess(const std::vector<MemoryLedger::NamedField>& fields = {}) const {
    MemoryLedger ledger = MemoryLedger::ofProcess(fields);
    std::erase_if(ledger.fields, [this](const MemoryRow& row) {
      return std::any_of(atStart_.fields.begin(), atStart_.fields.end(),
                         [&row](const MemoryRow& former) { return former.name == row.name; });
    });
    subtract(ledger.total, atStart_.total);
    subtract(ledger.inNoField, atStart_.inNoField);
    subtract(ledger.inNoCache, atStart_.inNoCache);
    ledger.nInSeveralFields -= atStart_.nInSeveralFields;
    ledger.nAccountedBytes -= atStart_.nAccountedBytes;
    return ledger;
  }

 private:
  static void subtract(MemoryRow& row, const MemoryRow& former) {
    for (MemoryAmount MemoryRow::*state : {&MemoryRow::held, &MemoryRow::heldByCallers, &MemoryRow::computing,
                                           &MemoryRow::stuck, &MemoryRow::forgotten, &MemoryRow::unknown}) {
      (row.*state).nCreators -= (former.*state).nCreators;
      (row.*state).nBytes -= (former.*state).nBytes;
      (row.*state).nOfUnknownSize -= (former.*state).nOfUnknownSize;
    }
  }
  const MemoryLedger atStart_ = MemoryLedger::ofProcess();

 protected:
  const CachePtr cache{new Cache};
};
using MemoryLedgerOfAsynchronTest = TreskTest::AsynchronCreatorFixture;

// ---------------------------------------------------------------------------------------------------------- states

TEST_F(MemoryLedgerTest, AFieldWithoutCreatorsHasEmptyRows) {
  const FieldPtr field(new Field);
  const MemoryLedger ledger = MemoryLedger::of(*field);
  ASSERT_EQ(ledger.fields.size(), 1U);
  EXPECT_EQ(ledger.fields[0].name, nameOf(field));
  EXPECT_EQ(ledger.fields[0].nCreators(), 0U);
  EXPECT_EQ(ledger.total.nCreators(), 0U);
  EXPECT_TRUE(ledger.caches.empty());
}

TEST_F(MemoryLedgerTest, DataThatTheCreatorAloneHoldsAreHeld) {
  const FieldPtr field = makeField({makeHolding(10), makeHolding(5)});
  const MemoryRow row = MemoryLedger::of(*field).fields.at(0);
  expectAmount(row.held, 2, 120);
  EXPECT_EQ(row.nCreators(), 2U) << "each creator is in one state";
  EXPECT_EQ(row.nHeldBytes(), 120U);
}

TEST_F(MemoryLedgerTest, DataThatACallerHoldsTooStandApart) {
  const FieldPtr field = makeField({makeHolding(10), makeHolding(5)});
  const MemBasePtr mine = field->getFirstData();
  const MemoryRow row = MemoryLedger::of(*field).fields.at(0);
  expectAmount(row.held, 1, 40);
  expectAmount(row.heldByCallers, 1, 80);
  EXPECT_EQ(row.nCreators(), 2U);
  EXPECT_EQ(row.nHeldBytes(), 120U);
}

TEST_F(MemoryLedgerTest, DataOfSeveralCreatorsCountTheirBytesOnceInEachRow) {
  MemBasePtr data = makeArray(10);
  const CreatorPtr one = makeForgetful(data, cache);
  const CreatorPtr other = makeForgetful(data, cache);
  data.reset();
  const FieldPtr both = makeField({one, other});
  const FieldPtr single = makeField({other});
  const MemoryLedger ledger = MemoryLedger::of({{"both", both}, {"single", single}});
  expectAmount(findRow(ledger.fields, "both").heldByCallers, 2, 80);
  expectAmount(findRow(ledger.fields, "single").heldByCallers, 1, 80);
  expectAmount(findRow(ledger.caches, nameOf(cache)).heldByCallers, 2, 80);
  expectAmount(ledger.total.heldByCallers, 2, 80);
}

TEST_F(MemoryLedgerTest, DataThatWereLetGoCountTheBytesThatTheyWouldTake) {
  const auto creator = makeForgetful(makeArray(10), cache);
  creator->addDataMetaInfo(creator->getData());
  const FieldPtr field = makeField({creator, makeForgotten(7)});
  creator->release();
  const MemoryRow row = MemoryLedger::of(*field).fields.at(0);
  expectAmount(row.forgotten, 2, 136);
  EXPECT_EQ(row.nCreators(), 2U);
  EXPECT_EQ(row.nHeldBytes(), 0U);
}

TEST_F(MemoryLedgerTest, WithoutSizeOrElementTypeNobodyKnowsTheBytes) {
  const auto typed = makeForgetful({}, cache);
  typed->addMetaInfo(1, getTreskType<double>());
  const auto sized = makeForgetful({}, cache);
  sized->addMetaInfo(DynamicSize({4}), Tresk::TreskTypePtr());
  const FieldPtr field = makeField({makeForgetful({}, cache), typed, sized, makeForgotten(2)});
  const MemoryRow row = MemoryLedger::of(*field).fields.at(0);
  expectAmount(row.unknown, 3, 0, 3);
  expectAmount(row.forgotten, 1, 16);
}

TEST_F(MemoryLedgerTest, TheTypeRecordOfACreatorServesWhereItStandsInAField) {
  const auto creator = makeForgetful({}, cache);
  creator->addMetaInfo(DynamicSize({4}), Tresk::TreskTypePtr());
  creator->setTreskType(getTreskType<double>());
  expectAmount(takeOfProcess().inNoField.unknown, 1, 0, 1);
  const FieldPtr field = makeField({creator});
  expectAmount(takeOfProcess().total.forgotten, 1, 32);
}

TEST_F(MemoryLedgerTest, AProductionOnACallersThreadIsComputing) {
  FieldPtr field;
  MemoryLedger during;
  const auto creator = makeFunctional(
      [&] {
        during = MemoryLedger::of(*field);
        return makeArray(6);
      },
      cache);
  creator->addMetaInfo(DynamicSize({6}), getTreskType<double>());
  field = makeField({creator, makeForgotten(1)});
  expectAmount(MemoryLedger::of(*field).total.forgotten, 2, 56);
  creator->create(false);
  expectAmount(during.total.computing, 1, 48);
  expectAmount(during.total.forgotten, 1, 8);
  expectAmount(MemoryLedger::of(*field).total.held, 1, 48);
}

TEST_F(MemoryLedgerOfAsynchronTest, RunningWorkIsComputingWithTheBytesThatAreExpected) {
  const auto sized = makeGated();
  sized->setup(DynamicSize({3}), getTreskType<double>());
  const auto unsized = make([this](const TreskTest::Flag&) {
    gate.pass();
    return makeArray(1);
  });
  const FieldPtr field = makeField({sized, unsized});
  start(*sized);
  start(*unsized);
  const MemoryLedger ledger = MemoryLedger::of(*field);
  expectAmount(ledger.total.computing, 2, 24, 1);
  expectAmount(findRow(ledger.caches, nameOf(cache)).computing, 2, 24, 1);
  gate.open();
  finish(*sized);
  waitForEnd(*unsized);
  EXPECT_EQ(MemoryLedger::of(*field).total.computing.nCreators, 0U);
}

TEST_F(MemoryLedgerOfAsynchronTest, FormerDataAreHeldThoughWorkIsRunning) {
  const auto creator = makeGated();
  const FieldPtr field = makeField({creator});
  start(*creator);
  creator->hold(makeArray(9));
  expectAmount(MemoryLedger::of(*field).total.held, 1, 72);
  expectAmount(MemoryLedger::of(*field).total.computing, 0, 0);
  finish(*creator);
}

TEST_F(MemoryLedgerOfAsynchronTest, WorkThatHasFailedIsStuck) {
  const auto creator = makeFailing();
  creator->setup(DynamicSize({3}), getTreskType<double>());
  const FieldPtr field = makeField({creator});
  start(*creator);
  EXPECT_FALSE(creator->hasFailed());
  expectAmount(MemoryLedger::of(*field).total.computing, 1, 24);
  gate.open();
  EXPECT_THROW(creator->produce(), TreskTest::Failure);
  EXPECT_TRUE(creator->hasFailed());
  const MemoryLedger ledger = MemoryLedger::of(*field);
  expectAmount(ledger.total.stuck, 1, 24);
  EXPECT_EQ(ledger.total.nCreators(), 1U);
  expectAmount(findRow(ledger.caches, nameOf(cache)).stuck, 1, 24);
}

TEST_F(MemoryLedgerOfAsynchronTest, AFailureOnACallersThreadLeavesTheCreatorForgotten) {
  const auto creator = make([](const TreskTest::Flag&) -> MemBasePtr { throw TreskTest::Failure("no such file"); });
  creator->setup(DynamicSize({3}), getTreskType<double>());
  const FieldPtr field = makeField({creator});
  EXPECT_THROW(creator->produce(), TreskTest::Failure);
  EXPECT_FALSE(creator->hasFailed());
  expectAmount(MemoryLedger::of(*field).total.forgotten, 1, 24);
}

// ---------------------------------------------------------------------------------------------------------- fields

TEST_F(MemoryLedgerTest, FieldsStandInTheirOrderAndUnderTheirNames) {
  const FieldPtr pressure = makeField({makeHolding(1)});
  const FieldPtr density = makeField({makeForgotten(2), makeHolding(3)});
  const FieldPtr unnamed = makeField({});
  const MemoryLedger ledger =
      MemoryLedger::of({{"pressure", pressure}, {"nothing", FieldPtr()}, {"density", density}, {"", unnamed}});
  ASSERT_EQ(ledger.fields.size(), 3U);
  EXPECT_EQ(ledger.fields[0].name, "pressure");
  expectAmount(ledger.fields[0].held, 1, 8);
  EXPECT_EQ(ledger.fields[1].name, "density");
  expectAmount(ledger.fields[1].held, 1, 24);
  expectAmount(ledger.fields[1].forgotten, 1, 16);
  EXPECT_EQ(ledger.fields[2].name, nameOf(unnamed));
  expectAmount(ledger.total.held, 2, 32);
  expectAmount(ledger.total.forgotten, 1, 16);
  EXPECT_EQ(ledger.nInSeveralFields, 0U);
  EXPECT_EQ(ledger.inNoField.nCreators(), 0U);
}

TEST_F(MemoryLedgerTest, ACreatorInTwoFieldsCountsInBothAndOnceInTheTotal) {
  const CreatorPtr shared = makeHolding(10);
  const FieldPtr one = makeField({shared, makeHolding(1)});
  const FieldPtr other = makeField({makeHolding(2), shared});
  const MemoryLedger ledger = MemoryLedger::of({{"one", one}, {"other", other}});
  expectAmount(ledger.fields[0].held, 2, 88);
  expectAmount(ledger.fields[1].held, 2, 96);
  expectAmount(ledger.total.held, 3, 104);
  expectAmount(findRow(ledger.caches, nameOf(cache)).held, 3, 104);
  EXPECT_EQ(ledger.nInSeveralFields, 1U);
}

TEST_F(MemoryLedgerTest, AFieldThatIsGivenTwiceAndACreatorOfTwoFragmentsCountOnce) {
  const CreatorPtr creator = makeHolding(10);
  const FieldPtr field = makeField({creator, creator});
  const MemoryLedger ledger = MemoryLedger::of({{"first", field}, {"second", field}});
  ASSERT_EQ(ledger.fields.size(), 1U);
  EXPECT_EQ(ledger.fields[0].name, "first");
  expectAmount(ledger.fields[0].held, 1, 80);
  EXPECT_EQ(ledger.nInSeveralFields, 0U);
}

TEST_F(MemoryLedgerTest, EntriesWithoutACreatorAndFieldsWithoutACollectionAreWalked) {
  const FieldPtr field(new Field(TreskTest::FragmentIDCollectionPtr()));
  field->getCreatorReferenceViaFragmentIndex(3);
  EXPECT_EQ(MemoryLedger::of(*field).total.nCreators(), 0U);
  field->setCreatorViaFragmentIndex(1, makeHolding(1));
  field->setCreatorViaFragmentIndex(2, makeHolding(2));
  expectAmount(MemoryLedger::of(*field).total.held, 2, 24);
}

TEST_F(MemoryLedgerTest, AFieldThatNobodyHoldsHasALedgerAndNoRowInThatOfTheProcess) {
  const CreatorPtr creator = makeHolding(3);
  {
    Field unheld;
    unheld.setCreatorViaFragmentIndex(0, creator);
    expectAmount(MemoryLedger::of(unheld).fields.at(0).held, 1, 24);
    const MemoryLedger ledger = takeOfProcess();
    EXPECT_TRUE(ledger.fields.empty());
    expectAmount(ledger.inNoField.held, 1, 24);
    EXPECT_EQ(unheld.nFragments(), 1U) << "it lives on";
  }
}

// ---------------------------------------------------------------------------------------------------------- caches

TEST_F(MemoryLedgerTest, EachCacheHasTheCreatorsThatKeepTheirBooksInIt) {
  const CachePtr other(new Cache);
  const FieldPtr field = makeField({makeHolding(1), makeHolding(2, other), makeHolding(3, other), makeForgotten(4)});
  const MemoryLedger ledger = MemoryLedger::of(*field);
  ASSERT_EQ(ledger.caches.size(), 2U) << "only those of the creators";
  EXPECT_EQ(ledger.caches[0].name, nameOf(cache)) << "oldest first";
  expectAmount(ledger.caches[0].held, 1, 8);
  expectAmount(ledger.caches[0].forgotten, 1, 32);
  EXPECT_EQ(ledger.caches[1].name, nameOf(other));
  expectAmount(ledger.caches[1].held, 2, 40);
}

TEST_F(MemoryLedgerTest, CachesTellTheirLimitsAndWhatTheyCount) {
  const CachePtr child(new Cache(cache));
  cache->setLimit(1000);
  child->setLimit(100);
  const FieldPtr field = makeField({makeHolding(10), makeHolding(4, child)});
  const auto leaving = makeHolding(1, child);
  child->trim(1);  // the least recently used ones first
  const MemoryLedger ledger = takeOfProcess();
  const CacheMemoryRow parents = findRow(ledger.caches, nameOf(cache));
  EXPECT_EQ(parents.parent, "");
  EXPECT_EQ(parents.statistics.limit, 1000U);
  EXPECT_EQ(parents.statistics.nHeldBytes, 88U) << "with those of the child";
  EXPECT_EQ(parents.statistics.nPeakBytes, 120U);
  expectAmount(parents.held, 1, 80);
  const CacheMemoryRow childs = findRow(ledger.caches, nameOf(child));
  EXPECT_EQ(childs.parent, nameOf(cache));
  EXPECT_EQ(childs.statistics.limit, 100U);
  EXPECT_EQ(childs.statistics.nHeldBytes, 8U);
  EXPECT_EQ(childs.statistics.nEvicted, 1U);
  expectAmount(childs.held, 1, 8);
  expectAmount(childs.unknown, 1, 0, 1);
  EXPECT_EQ(ledger.nAccountedBytes, 88U) << "each byte once, though two caches count it";
}

TEST_F(MemoryLedgerTest, TheDefaultCacheIsCalledSo) {
  const FieldPtr field = makeField({makeHolding(2, Cache::MemCache())});
  const MemoryLedger ledger = MemoryLedger::of(*field);
  ASSERT_EQ(ledger.caches.size(), 1U);
  EXPECT_EQ(ledger.caches[0].name, "default cache");
  expectAmount(ledger.caches[0].held, 1, 16);
}

TEST_F(MemoryLedgerTest, CreatorsWhoseCacheHasDiedOrThatNeverHadOneAreInNoCache) {
  CachePtr mortal(new Cache);
  const FieldPtr field = makeField({makeHolding(2, mortal), makeForgetful(makeArray(1)), makeHolding(4)});
  mortal.reset();
  const MemoryLedger ledger = MemoryLedger::of(*field);
  ASSERT_EQ(ledger.caches.size(), 1U);
  expectAmount(ledger.caches[0].held, 1, 32);
  EXPECT_EQ(ledger.inNoCache.name, "in no cache");
  expectAmount(ledger.inNoCache.held, 2, 24);
  expectAmount(ledger.total.held, 3, 56);
}

TEST_F(MemoryLedgerTest, ACacheThatNobodyHoldsIsLeftOutAndLivesOn) {
  const Cache unheld;
  const std::string name = "cache #" + std::to_string(unheld.getSerialNumber());
  EXPECT_FALSE(hasRow(takeOfProcess().caches, name));
  EXPECT_EQ(unheld.nCreatures(), 0U);
  std::string mortal;
  {
    const CachePtr held(new Cache);
    mortal = nameOf(held);
    EXPECT_TRUE(hasRow(takeOfProcess().caches, mortal));
  }
  EXPECT_FALSE(hasRow(takeOfProcess().caches, mortal));
}

TEST_F(MemoryLedgerTest, ResidentMemoryAndChunksAreThoseOfTheProcess) {
  const long long nBefore = Ostrel::ChunkBase::TotalMemsize;
  const MemBasePtr data = makeArray(1000);
  const MemoryLedger ledger = MemoryLedger::of(std::vector<MemoryLedger::NamedField>());
  EXPECT_EQ(static_cast<long long>(ledger.nChunkBytes), std::max(0LL, nBefore + 8000));
  EXPECT_EQ(ledger.nResidentBytes == 0, Ostrel::getResidentBytes() == 0);
}

// --------------------------------------------------------------------------------------------------------- process

TEST_F(MemoryLedgerTest, TheProcessSeesFieldsByTheirCreatorsAndThoseOfNoField) {
  const FieldPtr later = makeField({makeHolding(1), makeForgotten(2)});
  const FieldPtr given = makeField({makeHolding(3)});
  const CreatorPtr loose = makeHolding(4);
  const MemoryLedger ledger = takeOfProcess({{"given", given}});
  ASSERT_EQ(ledger.fields.size(), 2U);
  EXPECT_EQ(ledger.fields[0].name, "given") << "those come first";
  expectAmount(ledger.fields[0].held, 1, 24);
  EXPECT_EQ(ledger.fields[1].name, nameOf(later));
  expectAmount(ledger.fields[1].held, 1, 8);
  expectAmount(ledger.fields[1].forgotten, 1, 16);
  EXPECT_EQ(ledger.inNoField.name, "in no field");
  expectAmount(ledger.inNoField.held, 1, 32);
  expectAmount(ledger.total.held, 3, 64);
}

TEST_F(MemoryLedgerTest, TheFieldsOfTheProcessStandInTheOrderOfTheirConstruction) {
  const FieldPtr fields[] = {makeField({}), makeField({}), makeField({}), makeField({})};
  const CreatorPtr shared = makeHolding(1);
  for (const int i : {2, 0, 3, 1}) fields[i]->setCreator(shared, TreskTest::unnamed());
  const MemoryLedger ledger = takeOfProcess();
  ASSERT_EQ(ledger.fields.size(), 4U);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(ledger.fields[i].name, nameOf(fields[i]));
    expectAmount(ledger.fields[i].held, 1, 8);
  }
  expectAmount(ledger.total.held, 1, 8);
  EXPECT_EQ(ledger.nInSeveralFields, 1U);
}

TEST_F(MemoryLedgerTest, AFieldBringsInItsCreatorsWithoutACacheAndTheirFields) {
  const CreatorPtr uncached = makeForgetful(makeArray(2));
  const FieldPtr one = makeField({makeHolding(1), uncached});
  const FieldPtr other = makeField({uncached});
  const MemoryLedger ledger = takeOfProcess();
  ASSERT_EQ(ledger.fields.size(), 2U);
  expectAmount(ledger.fields[0].held, 2, 24);
  expectAmount(ledger.fields[1].held, 1, 16);
  expectAmount(ledger.inNoCache.held, 1, 16);
  expectAmount(ledger.total.held, 2, 24);
}

TEST_F(MemoryLedgerTest, ACreatorThatItsFieldHasReplacedIsInNoField) {
  const CreatorPtr former = makeHolding(5);
  const FieldPtr field = makeField({former});
  field->setCreatorViaFragmentIndex(0, makeHolding(6));
  const MemoryLedger ledger = takeOfProcess();
  expectAmount(findRow(ledger.fields, nameOf(field)).held, 1, 48);
  expectAmount(ledger.inNoField.held, 1, 40);
}

TEST_F(MemoryLedgerTest, OtherOwnersThanFieldsAndDeadFieldsHaveNoRow) {
  const auto owner = TreskTest::makeOwner<TreskTest::CreatorOwner>();
  const CreatorPtr creator = makeHolding(5);
  creator->addOwner(owner);
  FieldPtr field = makeField({creator});
  EXPECT_EQ(takeOfProcess().fields.size(), 1U);
  const MemBasePtr kept = creator->getData();  // a dying field asks its creators to release
  field.reset();
  const MemoryLedger ledger = takeOfProcess();
  EXPECT_TRUE(ledger.fields.empty());
  expectAmount(ledger.inNoField.heldByCallers, 1, 40);
  EXPECT_EQ(owner->nQuestions, 0) << "owners are counted and not asked";
}

// --------------------------------------------------------------------------------------------------- what it leaves

TEST_F(MemoryLedgerTest, NothingIsProducedReleasedSavedOrMarked) {
  const auto dirty = KindPtr<WatchedArray>(new WatchedArray(makeArray(3), cache));
  int nRuns = 0;
  const auto functional = makeFunctional(
      [&nRuns] {
        ++nRuns;
        return makeArray(1);
      },
      cache);
  const auto producer = TreskTest::attachArrayProducer(*dirty, [] { return makeArray(3); });
  const auto owner = TreskTest::makeOwner<TreskTest::FieldOwner>();
  const FieldPtr field = makeField({dirty, functional});
  field->addOwner(owner);
  const long long now = TreskTest::clockNow();
  const long long nUses = dirty->getData()->getUseCount();
  const auto before = cache->getStatistics();
  for (const MemoryLedger& ledger : {MemoryLedger::of(*field), takeOfProcess()}) {
    expectAmount(ledger.total.held, 1, 24);
    expectAmount(ledger.total.unknown, 1, 0, 1);
  }
  EXPECT_EQ(nRuns, 0);
  EXPECT_EQ(dirty->nProductions, 0);
  EXPECT_EQ(dirty->nReleases, 0);
  EXPECT_EQ(producer->nProductions + producer->nQuestions, 0);
  EXPECT_EQ(owner->nQuestions, 0);
  EXPECT_EQ(TreskTest::clockNow(), now);
  EXPECT_EQ(dirty->getData()->getUseCount(), nUses);
  EXPECT_EQ(cache->getStatistics().nHits, before.nHits);
  EXPECT_EQ(functional->release(), Ostrel::Creature::Released) << "the data are not held any longer";
  EXPECT_EQ(dirty->getData().strongCount(), 2) << "the creator and this look";
}

TEST_F(MemoryLedgerTest, CreatorsAreAskedUnderNoLockOfAField) {
  const auto asked = makeHolding(1);
  const FieldPtr field = makeField({asked});
  bool isFirst = true;
  asked->onQuestion = [&] {
    if (!std::exchange(isFirst, false)) return;
    field->setCreator(makeHolding(2), field->makeFragmentID("more"));
  };
  expectAmount(MemoryLedger::of(*field).total.held, 1, 8);
  expectAmount(MemoryLedger::of(*field).total.held, 2, 24);
  asked->onQuestion = nullptr;
}

TEST_F(MemoryLedgerTest, TheDataOfOneCreatorAreHeldAtATime) {
  const auto first = makeHolding(1);
  const auto second = makeHolding(2);
  const FieldPtr field = makeField({first, second});
  std::vector<Ostrel::Creature::ReasonForReleasal> answers;
  first->onQuestion = [&] { answers.push_back(second->release()); };
  second->onQuestion = [&] { answers.push_back(first->release()); };
  const MemoryLedger ledger = MemoryLedger::of(*field);
  first->onQuestion = second->onQuestion = nullptr;
  ASSERT_EQ(answers.size(), 1U) << "the second one has no data then";
  EXPECT_EQ(answers[0], Ostrel::Creature::Released);
  expectAmount(ledger.total.held, 1, 8);
}

TEST_F(MemoryLedgerTest, ExceptionsOfCreatorsPass) {
  const auto failing = makeHolding(1);
  const FieldPtr field = makeField({failing});
  failing->onQuestion = [] { throw std::runtime_error("not now"); };
  EXPECT_THROW(MemoryLedger::of(*field), std::runtime_error);
  failing->onQuestion = nullptr;
  expectAmount(MemoryLedger::of(*field).total.held, 1, 8);
}

// --------------------------------------------------------------------------------------------------------- threads

TEST_F(MemoryLedgerTest, MayBeTakenWhileOthersBindProduceAndRelease) {
  constexpr unsigned int nFragments = 8;
  constexpr int nTurns = 200;
  const FieldPtr field(new Field);
  const auto makeOne = [this] {
    const auto creator = makeFunctional([] { return makeArray(4); }, cache);
    creator->addMetaInfo(DynamicSize({4}), getTreskType<double>());
    return creator;
  };
  for (unsigned int i = 0; i < nFragments; ++i) field->setCreatorViaFragmentIndex(i, makeOne());
  std::atomic<int> nAtWork{2};
  TreskTest::RaceRunner race;
  race.add([&](int) {
    for (int turn = 0; turn < nTurns; ++turn)
      field->setCreatorViaFragmentIndex(static_cast<unsigned int>(turn) % nFragments, makeOne());
    --nAtWork;
  });
  race.add([&](int) {
    for (int turn = 0; turn < nTurns; ++turn) {
      const CreatorPtr creator = field->getCreatorByNumericalID(static_cast<unsigned int>(turn) % nFragments);
      creator->create(false);
      if (turn % 3 == 0) creator->release();
      const CachePtr mortal(new Cache(cache));
    }
    --nAtWork;
  });
  race.add([&](int) {
    do {
      for (const MemoryLedger& ledger : {MemoryLedger::of(*field), takeOfProcess({{"given", field}})}) {
        const MemoryRow& total = ledger.total;
        EXPECT_EQ(total.nHeldBytes(), 32 * (total.held.nCreators + total.heldByCallers.nCreators));
        EXPECT_EQ(total.forgotten.nBytes, 32 * total.forgotten.nCreators);
        EXPECT_EQ(ledger.fields.size(), 1U);
        EXPECT_EQ(total.nCreators(), ledger.fields.at(0).nCreators() + ledger.inNoField.nCreators());
      }
    } while (nAtWork > 0);
  });
  race.run();
  const MemoryLedger ledger = takeOfProcess();
  EXPECT_EQ(ledger.total.nCreators(), nFragments);
  EXPECT_EQ(findRow(ledger.caches, nameOf(cache)).nCreators(), nFragments);
}

/// A field that a class derived from it goes on constructing after it has bound a creator.
class LateField : public Field {
 public:
  explicit LateField(const CreatorPtr& creator) : Field(creator, TreskTest::FragmentIDCollectionPtr()) {}

  int nElements = 0;
};

TEST_F(MemoryLedgerTest, MayBeTakenWhileOthersBuildAndDropFieldsCachesAndCreators) {
  constexpr int nTurns = 200;
  const CreatorPtr lasting = makeForgotten(2);
  std::atomic<int> nAtWork{2};
  TreskTest::RaceRunner race;
  race.add(2, [&](int) {
    for (int turn = 0; turn < nTurns; ++turn) {
      const CachePtr mortal(new Cache(cache));
      const CreatorPtr creator = makeForgetful({}, mortal);
      creator->addMetaInfo(DynamicSize({4}), getTreskType<double>());
      const FieldPtr field(new LateField(creator));
      const CreatorPtr held = makeHolding(1, mortal);
      field->setCreatorViaFragmentIndex(1, held);
    }
    --nAtWork;
  });
  race.add([&](int) {
    do {
      const MemoryLedger ledger = takeOfProcess();
      EXPECT_EQ(ledger.total.nHeldBytes(), 8 * (ledger.total.held.nCreators + ledger.total.heldByCallers.nCreators));
      EXPECT_GE(ledger.total.forgotten.nBytes, 16U);
    } while (nAtWork > 0);
  });
  race.run();
  const MemoryLedger ledger = takeOfProcess();
  expectAmount(ledger.total.forgotten, 1, 16);
  EXPECT_EQ(ledger.total.nCreators(), 1U);
  EXPECT_TRUE(ledger.fields.empty());
}

// ------------------------------------------------------------------------------------------------------------ text

TEST(MemoryLedgerTextTest, TheTablesShowFieldsAndCachesByState) {
  MemoryLedger ledger;
  MemoryRow density;
  density.name = "density";
  density.held = {3, 3072, 0};
  density.computing = {2, 24, 1};
  MemoryRow pressure;
  pressure.name = "pressure";
  pressure.held = {1, 1024, 0};
  pressure.unknown = {12, 0, 12};
  ledger.fields = {density, pressure};
  ledger.inNoField.name = "in no field";
  ledger.inNoField.forgotten = {1, 1536, 0};
  ledger.inNoCache.name = "in no cache";
  ledger.total.name = "total";
  ledger.total.held = {3, 3072, 0};
  ledger.total.computing = {2, 24, 1};
  ledger.total.forgotten = {1, 1536, 0};
  ledger.total.unknown = {12, 0, 12};
  ledger.nInSeveralFields = 1;
  CacheMemoryRow main;
  main.name = "default cache";
  main.computing = ledger.total.computing;
  main.forgotten = ledger.total.forgotten;
  main.unknown = ledger.total.unknown;
  main.statistics.limit = 16 << 20;
  main.statistics.nHeldBytes = 3072;
  main.statistics.nPeakBytes = 4096;
  main.statistics.nHits = 7;
  main.statistics.nProductions = 5;
  CacheMemoryRow child;
  child.name = "cache #3";
  child.parent = "default cache";
  child.held = {3, 3072, 0};
  child.statistics = main.statistics;
  child.statistics.limit = Cache::NoLimit;
  child.statistics.nAsked = 4;
  child.statistics.nEvicted = 1;
  child.statistics.nBytesGivenBack = 1024;
  child.statistics.nStillInUse = 3;
  ledger.caches = {main, child};
  ledger.nAccountedBytes = 3072;
  ledger.nChunkBytes = 4000;
  ledger.nResidentBytes = 12345678;
  EXPECT_EQ(ledger.toText(), R"(field        creators        held     computing   forgotten  unknown
density             5  3: 3.0 KiB  2: 24 B (1?)           -        -
pressure           13  1: 1.0 KiB             -           -   12 (?)
in no field         1           -             -  1: 1.5 KiB        -
total              18  3: 3.0 KiB  2: 24 B (1?)  1: 1.5 KiB   12 (?)
creators in several fields, once in the total: 1
(?): of unknown size, and not in the bytes

cache          creators        held     computing   forgotten  unknown
default cache        15           -  2: 24 B (1?)  1: 1.5 KiB   12 (?)
cache #3              3  3: 3.0 KiB             -           -        -

cache                         limit     held     peak  in flight  given back
default cache              16.0 MiB  3.0 KiB  4.0 KiB        0 B         0 B
cache #3 in default cache      none  3.0 KiB  4.0 KiB        0 B     1.0 KiB

cache                      hits  productions  failures  entries  asked  evicted  cannot release  in use  exceptions
default cache                 7            5         0        0      0        0               0       0           0
cache #3 in default cache     7            5         0        0      4        1               0       3           0

accounted in caches 3.0 KiB, chunks 3.9 KiB, resident set 11.8 MiB
)");
}

TEST(MemoryLedgerTextTest, WhatHasNothingToTellIsLeftOut) {
  const MemoryLedger ledger = MemoryLedger::of(std::vector<MemoryLedger::NamedField>());
  const std::string text = ledger.toText();
  EXPECT_EQ(text.substr(0, text.rfind('\n', text.size() - 2) + 1), "field  creators\ntotal         0\n\n");
  EXPECT_EQ(text.find("in no"), std::string::npos);
}

}  // namespace
