// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Binding many creators at once, room for many fragments, and lookups in tables with gaps.

#include <tresk/field/Field.hpp>

#include <support/FieldDoubles.hpp>
#include <support/NameArray.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using Tresk::Field;
using Tresk::fragment_copy_t;
using Tresk::FragmentIDCollection;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::fieldStamp;
using TreskTest::FragmentIDPtr;
using TreskTest::makeFunctional;

using FieldBulkTest = TreskTest::RecordBalanceTest;

FieldPtr makeField() { return FieldPtr(new Field); }

CreatorPtr makeCreator() { return CreatorPtr(makeFunctional(nullptr)); }

/// The numbers of a field in its own order.
std::vector<std::uint32_t> numbersOf(const Field& field, unsigned int nLookups) {
  std::vector<std::uint32_t> numbers;
  for (unsigned int n = 0; n < nLookups; ++n)
    if (field.getCreatorByNumericalID(n)) numbers.push_back(n);
  return numbers;
}

TEST_F(FieldBulkTest, ManyCreatorsInAnyOrderAreFoundByTheirNumbers) {
  const FieldPtr field = makeField();
  std::map<std::uint32_t, CreatorPtr> expected;
  fragment_copy_t entries;
  for (std::uint32_t n = 0; n < 300; n += 3) entries.emplace_back(n, expected[n] = makeCreator());
  std::shuffle(entries.begin(), entries.end(), std::mt19937(5));
  field->setCreatorsViaFragmentIndex(entries);
  EXPECT_EQ(field->nFragments(), 100U);
  for (std::uint32_t n = 0; n < 310; ++n) {
    const auto found = expected.find(n);
    EXPECT_EQ(field->getCreatorByNumericalID(n), found == expected.end() ? CreatorPtr() : found->second) << n;
  }
}

TEST_F(FieldBulkTest, EntriesMergeWithThoseThatAreThere) {
  const FieldPtr field = makeField();
  const CreatorPtr kept = makeCreator();
  const CreatorPtr replaced = makeCreator();
  field->setCreatorViaFragmentIndex(4, kept);
  field->setCreatorViaFragmentIndex(7, replaced);
  const CreatorPtr a = makeCreator();
  const CreatorPtr b = makeCreator();
  const CreatorPtr c = makeCreator();
  field->setCreatorsViaFragmentIndex({{9, a}, {7, b}, {2, c}});
  EXPECT_EQ(field->nFragments(), 4U);
  EXPECT_EQ(field->getCreatorByNumericalID(2), c);
  EXPECT_EQ(field->getCreatorByNumericalID(4), kept);
  EXPECT_EQ(field->getCreatorByNumericalID(7), b);
  EXPECT_EQ(field->getCreatorByNumericalID(9), a);
  EXPECT_EQ(replaced.strongCount(), 1);
}

TEST_F(FieldBulkTest, EntriesBehindTheLastAreAppended) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(4, makeCreator());
  field->setCreatorsViaFragmentIndex({{6, makeCreator()}, {5, makeCreator()}});
  EXPECT_EQ(numbersOf(*field, 20), (std::vector<std::uint32_t>{4, 5, 6}));
}

TEST_F(FieldBulkTest, OfOneNumberTheLastEntryHolds) {
  const FieldPtr field = makeField();
  const CreatorPtr first = makeCreator();
  const CreatorPtr last = makeCreator();
  field->setCreatorsViaFragmentIndex({{3, first}, {1, makeCreator()}, {3, last}});
  EXPECT_EQ(field->nFragments(), 2U);
  EXPECT_EQ(field->getCreatorByNumericalID(3), last);
  EXPECT_EQ(first.strongCount(), 1);
}

TEST_F(FieldBulkTest, AnEntryWithoutACreatorCountsLikeOneThatWasBoundAlone) {
  const FieldPtr field = makeField();
  field->setCreatorsViaFragmentIndex({{1, CreatorPtr()}, {0, makeCreator()}});
  EXPECT_EQ(field->nFragments(), 2U);
  EXPECT_FALSE(field->getCreatorByNumericalID(1));
}

TEST_F(FieldBulkTest, EachCreatorGetsTheFieldAsAnOwnerAndTheFieldIsTouched) {
  const FieldPtr field = makeField();
  const CreatorPtr a = makeCreator();
  const CreatorPtr replacedAtOnce = makeCreator();
  const long long before = fieldStamp(*field);
  field->setCreatorsViaFragmentIndex({{1, replacedAtOnce}, {1, a}});
  EXPECT_GT(fieldStamp(*field), before);
  EXPECT_TRUE(a->isOwnedBy(field->getSelf()));
  EXPECT_TRUE(replacedAtOnce->isOwnedBy(field->getSelf())) << "as when it had been bound and replaced";
}

TEST_F(FieldBulkTest, NoEntriesChangeNothing) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(2, makeCreator());
  const long long before = fieldStamp(*field);
  field->setCreatorsViaFragmentIndex({});
  EXPECT_EQ(fieldStamp(*field), before);
  EXPECT_EQ(field->nFragments(), 1U);
}

TEST_F(FieldBulkTest, TheGreatestNumbersHaveTheirPlace) {
  const FieldPtr field = makeField();
  field->setCreatorsViaFragmentIndex({{0xFFFFFFFFU, makeCreator()}, {0, makeCreator()}, {0x80000000U, makeCreator()}});
  EXPECT_TRUE(field->getCreatorByNumericalID(0xFFFFFFFFU));
  EXPECT_TRUE(field->getCreatorByNumericalID(0x80000000U));
  EXPECT_FALSE(field->getCreatorByNumericalID(0xFFFFFFFEU));
  EXPECT_EQ(field->nFragments(), 3U);
}

/// A creator whose end asks its field.
class LastQuestion : public Tresk::FunctionalCreator {
 public:
  LastQuestion(const FieldPtr& field, unsigned long long& nSeen)
      : FunctionalCreator(nullptr, false, Tresk::CacheWeakPtr()), field_(*field), nSeen_(nSeen) {}
  ~LastQuestion() override { nSeen_ = field_.nFragments(); }

 private:
  Field& field_;
  unsigned long long& nSeen_;
};

TEST_F(FieldBulkTest, AReplacedCreatorDiesWithoutTheLockOfTheField) {
  const FieldPtr field = makeField();
  unsigned long long nSeen = 0;
  field->setCreatorViaFragmentIndex(0, CreatorPtr(new LastQuestion(field, nSeen)));
  field->setCreatorsViaFragmentIndex({{0, makeCreator()}, {1, makeCreator()}});
  EXPECT_EQ(nSeen, 2U);
}

TEST_F(FieldBulkTest, MergingAgreesWithBindingOneByOneWhateverIsThere) {
  std::mt19937 random(3);
  for (int round = 0; round < 50; ++round) {
    const FieldPtr bulk = makeField();
    const FieldPtr single = makeField();
    for (int batch = 0; batch < 4; ++batch) {
      fragment_copy_t entries;
      for (auto n = random() % 12; n > 0; --n)
        entries.emplace_back(static_cast<std::uint32_t>(random() % 30), makeCreator());
      bulk->setCreatorsViaFragmentIndex(entries);
      for (const auto& [number, creator] : entries) single->setCreatorViaFragmentIndex(number, creator);
      ASSERT_EQ(bulk->nFragments(), single->nFragments());
      for (unsigned int n = 0; n < 32; ++n)
        ASSERT_EQ(bulk->getCreatorByNumericalID(n), single->getCreatorByNumericalID(n)) << n << " in round " << round;
    }
  }
}

TEST_F(FieldBulkTest, SlotsStayWhereTheyAreIfAllNumbersWereKnown) {
  const FieldPtr field = makeField();
  field->setCreatorsViaFragmentIndex({{0, makeCreator()}, {4, makeCreator()}});
  const CreatorPtr& slot = field->getCreatorReferenceViaFragmentIndex(4);
  const CreatorPtr replacement = makeCreator();
  field->setCreatorsViaFragmentIndex({{4, replacement}, {0, makeCreator()}});
  EXPECT_EQ(&field->getCreatorReferenceViaFragmentIndex(4), &slot);
  EXPECT_EQ(slot, replacement);
}

TEST_F(FieldBulkTest, ReservedRoomIsUsed) {
  const FieldPtr field = makeField();
  field->reserve_fragments(100);
  field->setCreatorViaFragmentIndex(10, makeCreator());
  const CreatorPtr* const first = &field->getCreatorReferenceViaFragmentIndex(10);
  field->setCreatorsViaFragmentIndex({{30, makeCreator()}, {20, makeCreator()}});
  field->setCreatorsViaFragmentIndex({{25, makeCreator()}, {40, makeCreator()}});
  EXPECT_EQ(&field->getCreatorReferenceViaFragmentIndex(10), first);
  field->setCreatorsViaFragmentIndex({{5, makeCreator()}});
  EXPECT_EQ(&field->getCreatorReferenceViaFragmentIndex(5), first) << "the others have moved by one";
}

/// A creator that holds another one.
class Wrapper : public Tresk::FunctionalCreator {
 public:
  explicit Wrapper(const CreatorPtr& wrapped)
      : FunctionalCreator(nullptr, false, Tresk::CacheWeakPtr()), inner(wrapped) {}
  const CreatorPtr inner;
};

TEST_F(FieldBulkTest, ACreatorMayTakeThePlaceOfTheOneThatHoldsIt) {
  const FieldPtr field = makeField();
  const CreatorPtr plain = makeCreator();
  auto* const wrapper = new Wrapper(plain);
  field->setCreatorViaFragmentIndex(0, CreatorPtr(wrapper));
  field->setCreatorViaFragmentIndex(0, wrapper->inner);
  EXPECT_EQ(field->getCreatorByNumericalID(0), plain);
  EXPECT_TRUE(plain->isOwnedBy(field->getSelf()));
}

/// The same answers as a map, for tables with and without gaps.
TEST_F(FieldBulkTest, LookupsAgreeWithAMapWhateverGapsThereAre) {
  std::mt19937 random(11);
  for (const unsigned int density : {1U, 2U, 7U}) {
    const FieldPtr field = makeField();
    std::map<std::uint32_t, CreatorPtr> expected;
    for (std::uint32_t n = 0; n < 200; ++n) {
      if (random() % density != 0) continue;
      expected[n] = makeCreator();
      field->setCreatorViaFragmentIndex(n, expected[n]);
    }
    for (std::uint32_t n = 0; n < 250; ++n) {
      const auto found = expected.find(n);
      EXPECT_EQ(field->getCreatorByNumericalID(n), found == expected.end() ? CreatorPtr() : found->second)
          << n << " of density " << density;
    }
    EXPECT_FALSE(field->getCreatorByNumericalID(0xFFFFFFFFU));
  }
}

// --------------------------------------------------------------------------------------------- room for fragments

TEST_F(FieldBulkTest, FragmentsAreAddedWithoutMovingOnceThereIsRoom) {
  const FieldPtr field = makeField();
  const auto collection = field->getFragmentIDCollection();
  collection->reserve(100);
  const FragmentIDPtr* const first = &collection->makeFragmentID("0");
  for (int i = 1; i < 100; ++i) collection->makeFragmentID(std::to_string(i));
  EXPECT_EQ(&collection->makeFragmentID("0"), first);
  EXPECT_EQ(collection->nFragmentIDs(), 100U);
}

TEST_F(FieldBulkTest, RoomForLessTakesNoneBack) {
  const FieldPtr field = makeField();
  const auto collection = field->getFragmentIDCollection();
  const FragmentIDPtr* const first = &collection->makeFragmentID("a");
  collection->reserve(1);
  collection->reserve(0);
  EXPECT_EQ(&collection->makeFragmentID("a"), first);
  EXPECT_EQ(collection->nFragmentIDs(), 1U);
}

TEST_F(FieldBulkTest, RoomBeyondAnyVectorIsRefusedAndTheCollectionSurvives) {
  const FieldPtr field = makeField();
  const auto collection = field->getFragmentIDCollection();
  collection->makeFragmentID("a");
  try {
    collection->reserve(~0ULL);
    FAIL() << "no exception";
  } catch (const std::length_error& e) {
    EXPECT_STREQ(e.what(), "FragmentIDCollection::reserve: no room for 18446744073709551615 fragments");
  }
  EXPECT_EQ(collection->findNumericalIDByName("a"), 0U);
}

TEST_F(FieldBulkTest, AnArrayThatShowsTheFragmentsKeepsThemWhenRoomIsMade) {
  const TreskTest::FragmentIDCollectionPtr collection(new FragmentIDCollection(TreskTest::makeNames({2}, {"a", "b"})));
  const auto shown = collection->getFragmentIDArray();
  collection->reserve(1000);
  collection->makeFragmentID("c");
  EXPECT_EQ(shown->nElements(), 2U);
  EXPECT_EQ(collection->nFragmentIDs(), 3U);
}

}  // namespace
