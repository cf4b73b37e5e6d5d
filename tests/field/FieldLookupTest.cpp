// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>

#include <support/BreakpointRecorder.hpp>
#include <support/FieldDoubles.hpp>
#include <support/NameArray.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Tresk::CreatorWithFragment;
using Tresk::Field;
using Tresk::FragmentID;
using Tresk::FragmentIDCollection;
using TreskTest::clockNow;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::fieldStamp;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::makeArray;
using TreskTest::makeForgetful;
using TreskTest::makeFunctional;
using TreskTest::MemBasePtr;
using TreskTest::unnamed;

using FieldLookupTest = TreskTest::RecordBalanceTest;
constexpr unsigned int None = 0xFFFFFFFFU;

FieldPtr makeField() { return FieldPtr(new Field); }
FieldPtr makeFieldWithoutCollection() { return FieldPtr(new Field(FragmentIDCollectionPtr())); }
FragmentIDPtr makeFree(const std::string& name) { return FragmentIDPtr(new FragmentID(name)); }
FragmentIDPtr makeDead() {
  Ostrel::WeakPtr<FragmentID, FragmentID> observer;
  { observer = makeFree("gone"); }
  return FragmentIDPtr(observer);
}

/// A derived field that answers the question for its collection otherwise.
class Guest : public Field {
 public:
  explicit Guest(const FragmentIDCollectionPtr& shown) : shown_(shown) {}
  FragmentIDCollectionPtr getFragmentIDCollection() const override { return shown_; }

 private:
  FragmentIDCollectionPtr shown_;
};

// -------------------------------------------------------------------------------------------------- identification

TEST_F(FieldLookupTest, AFragmentIsMadeInTheCollectionOfTheField) {
  const FieldPtr field = makeField();
  FragmentIDPtr& slot = field->makeFragmentID("a");
  EXPECT_EQ(slot->getNumericalID(), 0U);
  EXPECT_TRUE(slot->getOwner() == field->getFragmentIDCollection());
  EXPECT_EQ(&field->makeFragmentID("a"), &slot);
  EXPECT_EQ(field->nFragments(), 0U) << "a fragment is no entry";
  EXPECT_EQ(fieldStamp(*field), 0);
}

TEST_F(FieldLookupTest, AFragmentMadeBringsTheMissingCollection) {
  const FieldPtr field = makeFieldWithoutCollection();
  const FragmentIDPtr fragment = field->makeFragmentID("a");
  ASSERT_TRUE(field->getFragmentIDCollection());
  EXPECT_TRUE(fragment->getOwner() == field->getFragmentIDCollection());
}

TEST_F(FieldLookupTest, ANumberIsRegisteredInTheCollection) {
  const FieldPtr field = makeField();
  EXPECT_EQ(field->getNumericalID(makeFree("a")), 0U);
  EXPECT_EQ(field->getNumericalID(unnamed()), 1U);
  EXPECT_EQ(field->getNumericalID(makeFree("a")), 0U);
  EXPECT_EQ(field->getFragmentIDCollection()->nFragmentIDs(), 2U);
  EXPECT_EQ(fieldStamp(*field), 0);
}

TEST_F(FieldLookupTest, AFieldWithoutCollectionTakesOnThatOfTheFirstFragment) {
  const FieldPtr other = makeField();
  other->makeFragmentID("a");
  const FragmentIDPtr fragment = other->makeFragmentID("b");
  const FieldPtr field = makeFieldWithoutCollection();
  const TreskTest::BreakpointRecorder recorder;
  EXPECT_EQ(field->getNumericalID(fragment), 1U);
  EXPECT_TRUE(field->getFragmentIDCollection() == other->getFragmentIDCollection());
  EXPECT_TRUE(recorder.messages().empty());
}

TEST_F(FieldLookupTest, AFieldWithoutCollectionMakesOneForFreeOrphanedAndNullFragments) {
  FragmentIDPtr orphan;
  { orphan = makeField()->makeFragmentID("a"); }
  for (const FragmentIDPtr& fragment : {makeFree("a"), orphan, unnamed(), makeDead()}) {
    const FieldPtr field = makeFieldWithoutCollection();
    EXPECT_EQ(field->getNumericalID(fragment), 0U);
    ASSERT_TRUE(field->getFragmentIDCollection());
    EXPECT_EQ(field->getFragmentIDCollection()->nFragmentIDs(), 1U);
  }
}

TEST_F(FieldLookupTest, ACollectionPresentStays) {
  const FieldPtr other = makeField();
  const FragmentIDPtr foreign = other->makeFragmentID("a");
  const FieldPtr field = makeField();
  const auto collection = field->getFragmentIDCollection();
  const TreskTest::BreakpointRecorder recorder;
  EXPECT_EQ(field->getNumericalID(foreign), 0U);
  EXPECT_TRUE(field->getFragmentIDCollection() == collection);
  EXPECT_EQ(recorder.messages().size(), 1U);
}

TEST_F(FieldLookupTest, FindingANumberRegistersNothing) {
  const FieldPtr field = makeField();
  EXPECT_EQ(field->findNumericalID(unnamed()), 0U);
  EXPECT_EQ(field->findNumericalID(makeDead()), 0U);
  EXPECT_EQ(field->findNumericalID(makeFree("a")), 0U) << "the number that the fragment holds";
  EXPECT_EQ(field->getFragmentIDCollection()->nFragmentIDs(), 0U);
  field->makeFragmentID("a");
  EXPECT_EQ(field->findNumericalID(field->makeFragmentID("b")), 1U);
}

TEST_F(FieldLookupTest, WithoutCollectionNothingIsFound) {
  const FieldPtr field = makeFieldWithoutCollection();
  EXPECT_EQ(field->findNumericalID(unnamed()), 0U) << "the unnamed fragment is asked for first";
  EXPECT_EQ(field->findNumericalID(makeFree("a")), None);
  EXPECT_EQ(field->findNumericalIDByName("a"), None);
  EXPECT_FALSE(field->getFragmentID("a"));
  EXPECT_FALSE(field->getFirstFragmentID());
  EXPECT_FALSE(field->newFragmentationArray());
  EXPECT_FALSE(field->validate(0));
  EXPECT_TRUE(field->getFragmentIDs().empty());
  EXPECT_FALSE(field->getCreatorByName("a"));
  EXPECT_FALSE(field->getFragmentIDCollection()) << "looking makes none";
}

TEST_F(FieldLookupTest, FieldsWithoutCollectionShareOneEmptyList) {
  EXPECT_EQ(&makeFieldWithoutCollection()->getFragmentIDs(), &makeFieldWithoutCollection()->getFragmentIDs());
}

TEST_F(FieldLookupTest, NamesAndNumbersAreThoseOfTheCollection) {
  const FieldPtr field = makeField();
  const FragmentIDPtr a = field->makeFragmentID("a");
  const FragmentIDPtr b = field->makeFragmentID("b");
  EXPECT_EQ(field->findNumericalIDByName("b"), 1U);
  EXPECT_EQ(field->findNumericalIDByName("c"), None);
  EXPECT_TRUE(field->getFragmentID("b") == b);
  EXPECT_FALSE(field->getFragmentID("c"));
  EXPECT_EQ(&field->getFragmentIDs(), &field->getFragmentIDCollection()->getFragmentIDs());
  EXPECT_EQ(field->getFragmentIDs().size(), 2U);
  EXPECT_TRUE(field->getFragmentIDs()[0] == a);
}

TEST_F(FieldLookupTest, TheFirstFragmentIsThatOfTheFirstEntry) {
  const FieldPtr field = makeField();
  field->makeFragmentID("a");
  const FragmentIDPtr b = field->makeFragmentID("b");
  const FragmentIDPtr c = field->makeFragmentID("c");
  EXPECT_FALSE(field->getFirstFragmentID()) << "no entry yet";
  field->setCreator(makeForgetful(), c);
  EXPECT_TRUE(field->getFirstFragmentID() == c);
  field->setCreator(makeForgetful(), b);
  EXPECT_TRUE(field->getFirstFragmentID() == b);
}

TEST_F(FieldLookupTest, ValidNumbersAreThoseOfTheCollectionsSlots) {
  const FieldPtr field = makeField();
  field->makeFragmentID("a");
  field->getNumericalID(unnamed());
  EXPECT_TRUE(field->validate(0)) << "there need be no creator";
  EXPECT_TRUE(field->validate(1)) << "nor a fragment";
  EXPECT_FALSE(field->validate(2));
  EXPECT_FALSE(field->validate(None));
}

TEST_F(FieldLookupTest, TheFragmentationIsShownAsAnArray) {
  EXPECT_FALSE(makeField()->newFragmentationArray()) << "no shape, no array";
  const FragmentIDCollectionPtr fixed(new FragmentIDCollection(TreskTest::makeNames({2, 2}, {"a", "b", "c", "d"})));
  const FieldPtr field(new Field(fixed));
  const MemBasePtr array = field->newFragmentationArray();
  ASSERT_TRUE(array);
  EXPECT_EQ(array->getSize().str(), "2x2");
  EXPECT_EQ(array->getElementType(), typeid(FragmentIDPtr));
}

TEST_F(FieldLookupTest, ADerivedFieldAnswersForItsCollectionWhereItIsAskedThroughTheVirtualTable) {
  const FragmentIDCollectionPtr shown(new FragmentIDCollection(TreskTest::makeNames({2}, {"a", "b"})));
  const FieldPtr field(new Guest(shown));
  EXPECT_TRUE(field->validate(1));
  EXPECT_TRUE(field->newFragmentationArray());
  EXPECT_EQ(field->findNumericalIDByName("b"), None) << "names are looked up in the field's own collection";
}

// ------------------------------------------------------------------------------------------------- creator by fragment

TEST_F(FieldLookupTest, TheCreatorOfTheUnnamedFragmentIsThatOfASingleUnnamedEntry) {
  const FieldPtr field = makeField();
  EXPECT_FALSE(field->getCreator(unnamed())) << "an empty field has none";
  const CreatorPtr creator = field->setCreator(makeForgetful(), unnamed());
  EXPECT_TRUE(field->getCreator(unnamed()) == creator);
  EXPECT_TRUE(field->getCreator(makeDead()) == creator) << "a dead fragment is none";
  field->setCreator(makeForgetful(), field->makeFragmentID("a"));
  EXPECT_FALSE(field->getCreator(unnamed())) << "of two entries none is the unnamed one";
}

TEST_F(FieldLookupTest, TheSingleEntryOfANamedFragmentIsNotTheUnnamedOne) {
  const FieldPtr field = makeField();
  const FragmentIDPtr a = field->makeFragmentID("a");
  field->setCreator(makeForgetful(), a);
  EXPECT_FALSE(field->getCreator(unnamed()));
  EXPECT_TRUE(field->getCreator(a));
}

TEST_F(FieldLookupTest, TheSingleEntryBeyondTheCollectionIsTheUnnamedOne) {
  const FieldPtr field = makeField();
  const CreatorPtr creator = field->setCreatorViaFragmentIndex(7, makeForgetful());
  EXPECT_TRUE(field->getCreator(unnamed()) == creator);
  const FieldPtr without = makeFieldWithoutCollection();
  const CreatorPtr other = without->setCreatorViaFragmentIndex(7, makeForgetful());
  EXPECT_TRUE(without->getCreator(unnamed()) == other);
}

TEST_F(FieldLookupTest, CreatorsAreFoundByTheFragmentsOfTheCollection) {
  const FieldPtr field = makeField();
  const FragmentIDPtr a = field->makeFragmentID("a");
  const FragmentIDPtr b = field->makeFragmentID("b");
  const FragmentIDPtr c = field->makeFragmentID("c");
  const CreatorPtr first = field->setCreator(makeForgetful(), a);
  const CreatorPtr third = field->setCreator(makeForgetful(), c);
  EXPECT_TRUE(field->getCreator(a) == first);
  EXPECT_FALSE(field->getCreator(b)) << "never bound";
  EXPECT_TRUE(field->getCreator(c) == third);
  EXPECT_EQ(first.strongCount(), 2) << "a copy came and went";
}

TEST_F(FieldLookupTest, AFreeFragmentOfAKnownNameHasNoCreatorButACompatibleOne) {
  const FieldPtr field = makeField();
  const FragmentIDPtr a = field->makeFragmentID("a");
  const CreatorPtr creator = field->setCreator(makeForgetful(), a);
  const FragmentIDPtr free = makeFree("a");
  EXPECT_FALSE(field->getCreator(free)) << "its owner differs";
  const CreatorWithFragment found = field->getCompatibleCreatorF(free);
  EXPECT_TRUE(found.first == creator);
  EXPECT_TRUE(found.second == a) << "the fragment of the field's collection";
  EXPECT_EQ(free->getOwner().getRecord(), nullptr);
}

TEST_F(FieldLookupTest, AForeignFragmentHasNoCreatorButACompatibleOne) {
  const FieldPtr other = makeField();
  const FragmentIDPtr foreign = other->makeFragmentID("b");
  const FieldPtr field = makeField();
  field->makeFragmentID("a");
  const CreatorPtr creator = field->setCreator(makeForgetful(), field->makeFragmentID("b"));
  EXPECT_FALSE(field->getCreator(foreign));
  EXPECT_TRUE(field->getCompatibleCreatorF(foreign).first == creator);
  const FragmentIDPtr unknown = other->makeFragmentID("c");
  EXPECT_FALSE(field->getCompatibleCreatorF(unknown).first);
  EXPECT_FALSE(field->getCompatibleCreatorF(unknown).second);
}

TEST_F(FieldLookupTest, TheCompatibleCreatorOfAnOwnFragmentComesWithTheFragmentGiven) {
  const FieldPtr field = makeField();
  const FragmentIDPtr a = field->makeFragmentID("a");
  const CreatorPtr creator = field->setCreator(makeForgetful(), a);
  const FragmentIDPtr second = makeFree("a");
  field->getNumericalID(second);
  EXPECT_TRUE(field->getCompatibleCreatorF(second).first == creator);
  EXPECT_TRUE(field->getCompatibleCreatorF(second).second == second);
}

TEST_F(FieldLookupTest, TheCompatibleCreatorOfTheUnnamedFragmentComesWithoutAFragment) {
  const FieldPtr field = makeField();
  EXPECT_FALSE(field->getCompatibleCreatorF(unnamed()).first);
  const CreatorPtr creator = field->setCreator(makeForgetful(), unnamed());
  EXPECT_TRUE(field->getCompatibleCreatorF(unnamed()).first == creator);
  EXPECT_EQ(field->getCompatibleCreatorF(unnamed()).second.getRecord(), nullptr);
}

TEST_F(FieldLookupTest, AFreeFragmentAndAFieldWithoutCollectionAgreeInHavingNone) {
  const FieldPtr field = makeFieldWithoutCollection();
  field->setCreatorViaFragmentIndex(3, makeForgetful());
  EXPECT_FALSE(field->getCreator(makeFree("a"))) << "no collection, no number";
}

// ---------------------------------------------------------------------------------------- creator by number and name

TEST_F(FieldLookupTest, CreatorsAreFoundByNumberWhateverTheOrderOfTheirBinding) {
  const FieldPtr field = makeField();
  const std::vector<unsigned int> numbers{5, 1, 0xFFFFFFFFU, 3, 0, 0x80000000U, 4, 2};
  std::vector<CreatorPtr> creators;
  for (const unsigned int number : numbers)
    creators.push_back(field->setCreatorViaFragmentIndex(number, makeForgetful()));
  for (std::size_t i = 0; i < numbers.size(); ++i)
    EXPECT_TRUE(field->getCreatorByNumericalID(numbers[i]) == creators[i]) << numbers[i];
  EXPECT_FALSE(field->getCreatorByNumericalID(6));
  EXPECT_EQ(field->nFragments(), numbers.size());
  EXPECT_TRUE(field->getFirstCreator() == creators[4]);
}

TEST_F(FieldLookupTest, CreatorsAreFoundByName) {
  const FieldPtr field = makeField();
  EXPECT_FALSE(field->getCreatorByName("a"));
  const FragmentIDPtr a = field->makeFragmentID("a");
  field->makeFragmentID("b");
  const CreatorPtr creator = field->setCreator(makeForgetful(), a);
  EXPECT_TRUE(field->getCreatorByName("a") == creator);
  EXPECT_FALSE(field->getCreatorByName("b")) << "known and not bound";
  EXPECT_FALSE(field->getCreatorByName("c"));
  const CreatorWithFragment found = field->getCreatorByNameF("a");
  EXPECT_TRUE(found.first == creator);
  EXPECT_TRUE(found.second == a);
  for (const char* const name : {"b", "c"}) {
    EXPECT_FALSE(field->getCreatorByNameF(name).first);
    EXPECT_FALSE(field->getCreatorByNameF(name).second);
  }
}

TEST_F(FieldLookupTest, TheFirstCreatorIsThatOfTheLowestNumberAndMayBeNull) {
  const FieldPtr field = makeField();
  EXPECT_FALSE(field->getFirstCreator());
  EXPECT_FALSE(field->getFirstData());
  const CreatorPtr creator = field->setCreatorViaFragmentIndex(4, makeForgetful());
  EXPECT_TRUE(field->getFirstCreator() == creator);
  field->getCreatorReferenceViaFragmentIndex(2);
  EXPECT_FALSE(field->getFirstCreator());
  EXPECT_FALSE(field->getFirstData());
}

// ------------------------------------------------------------------------------------------------------------- data

TEST_F(FieldLookupTest, DataAreProducedAtTheFirstAccessAndMarkedAtEachFurtherOne) {
  const FieldPtr field = makeField();
  const FragmentIDPtr a = field->makeFragmentID("a");
  const auto creator = makeFunctional([] { return makeArray(4); });
  field->setCreator(creator, a);
  EXPECT_EQ(creator->nProductions, 0);
  const MemBasePtr data = field->getData(a);
  ASSERT_TRUE(data);
  EXPECT_EQ(creator->nProductions, 1);
  EXPECT_EQ(data->getUseCount(), 0);
  EXPECT_TRUE(data->getCreator() == creator);
  EXPECT_TRUE(field->getData(a) == data);
  EXPECT_TRUE(field->getDataByNumericalID(0) == data);
  EXPECT_TRUE(field->getFirstData() == data);
  EXPECT_EQ(data->getUseCount(), 3);
  EXPECT_EQ(creator->nProductions, 1);
}

TEST_F(FieldLookupTest, DataOfAnAbsentFragmentAreNull) {
  const FieldPtr field = makeField();
  const FragmentIDPtr a = field->makeFragmentID("a");
  EXPECT_EQ(field->getData(a).getRecord(), nullptr);
  EXPECT_EQ(field->getData(unnamed()).getRecord(), nullptr);
  EXPECT_EQ(field->getDataByNumericalID(0).getRecord(), nullptr);
  field->getCreatorReferenceViaFragmentIndex(0);
  EXPECT_EQ(field->getDataByNumericalID(0).getRecord(), nullptr) << "an entry without a creator";
}

TEST_F(FieldLookupTest, AnExceptionOfAProductionReachesTheCaller) {
  const FieldPtr field = makeField();
  field->setCreator(makeFunctional([]() -> MemBasePtr { throw std::runtime_error("no such file"); }), unnamed());
  EXPECT_THROW(field->getData(unnamed()), std::runtime_error);
  EXPECT_THROW(field->getDataByNumericalID(0), std::runtime_error);
  EXPECT_THROW(field->getFirstData(), std::runtime_error);
  field->setCreator(makeForgetful(), field->makeFragmentID("a"));
  EXPECT_EQ(field->nFragments(), 2U) << "no lock is left behind";
}

TEST_F(FieldLookupTest, AProductionMayBindFurtherFragments) {
  const FieldPtr field = makeField();
  field->setCreator(makeFunctional([&field] {
                      field->setCreator(makeForgetful(), field->makeFragmentID("by the way"));
                      return makeArray(1);
                    }),
                    unnamed());
  EXPECT_TRUE(field->getData(unnamed()));
  EXPECT_EQ(field->nFragments(), 2U);
}

TEST_F(FieldLookupTest, LookupsTouchNothing) {
  const FieldPtr field = makeField();
  const FragmentIDPtr a = field->makeFragmentID("a");
  field->setCreator(makeForgetful(makeArray(1)), a);
  const long long stamp = fieldStamp(*field);
  const long long clock = clockNow();
  field->getCreator(a);
  field->getCreator(unnamed());
  field->getCreatorByName("a");
  field->getCreatorByNameF("a");
  field->getCompatibleCreatorF(a);
  field->getCreatorByNumericalID(0);
  field->getFirstCreator();
  field->getFirstFragmentID();
  field->getData(a);
  field->getDataByNumericalID(0);
  field->getFirstData();
  field->getSize();
  field->Dims();
  field->getProperties();
  field->getElementType();
  field->getElementTreskType();
  field->getFieldStorageType();
  field->isUnfragmented();
  field->isCompatible(*field);
  field->nFragments();
  field->reserve_fragments(100);
  EXPECT_EQ(fieldStamp(*field), stamp);
  EXPECT_EQ(clockNow(), clock);
}

// ------------------------------------------------------------------------------------------- the slot for writing

TEST_F(FieldLookupTest, TheSlotOfAnUnknownNumberIsANewEntryWithoutCreator) {
  const FieldPtr field = makeField();
  const long long clock = clockNow();
  CreatorPtr& slot = field->getCreatorReferenceViaFragmentIndex(3);
  EXPECT_FALSE(slot);
  EXPECT_EQ(field->nFragments(), 1U);
  EXPECT_EQ(fieldStamp(*field), clock + 1);
  EXPECT_FALSE(field->getCreatorByNumericalID(3));
  slot = makeForgetful();
  EXPECT_TRUE(field->getCreatorByNumericalID(3) == slot) << "the caller writes the table";
  EXPECT_EQ(slot->nOwners(), 0U) << "and the field is not entered as an owner";
}

TEST_F(FieldLookupTest, TheSlotOfAKnownNumberCountsAsAChangeToo) {
  const FieldPtr field = makeField();
  CreatorPtr& slot = field->setCreatorViaFragmentIndex(3, makeForgetful());
  const long long clock = clockNow();
  EXPECT_EQ(&field->getCreatorReferenceViaFragmentIndex(3), &slot);
  EXPECT_EQ(clockNow(), clock + 1);
  EXPECT_EQ(fieldStamp(*field), clock + 1);
  EXPECT_EQ(field->nFragments(), 1U);
}

}  // namespace
