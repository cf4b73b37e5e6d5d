// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>

#include <tresk/field/TreskType.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <typeinfo>

namespace {

using Tresk::DynamicSize;
using Tresk::Field;
using Tresk::FragmentedSizeInterface;
using Tresk::getTreskType;
using Tresk::MemArrayProperties;
using Tresk::SizeInterface;
using Tresk::SizePtr;
using Tresk::TreskTypePtr;
using Tresk::TreskTypeWeakPtr;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::makeArray;
using TreskTest::makeForgetful;
using TreskTest::makeFunctional;
using TreskTest::MemBasePtr;
using TreskTest::unnamed;

using FieldQuestionsTest = TreskTest::RecordBalanceTest;
using PropertiesPtr = Ostrel::StrongPtr<MemArrayProperties, Ostrel::InterfaceBase>;

FieldPtr makeField() { return FieldPtr(new Field); }
PropertiesPtr makeProperties(int rank, const TreskTypeWeakPtr& type) {
  return PropertiesPtr(new MemArrayProperties(rank, type));
}

/// A creator that tells its size and type and has no data.
TreskTest::KindPtr<TreskTest::WatchedForgetful> makeDeclared(const DynamicSize& size) {
  const auto creator = makeForgetful();
  creator->addMetaInfo(size, getTreskType<double>());
  return creator;
}
/// A creator that tells its size only.
TreskTest::KindPtr<TreskTest::WatchedForgetful> makeSized(const DynamicSize& size) {
  const auto creator = makeForgetful();
  creator->addMetaInfo(size, TreskTypePtr());
  return creator;
}

/// The summed size that a field remembers.
FragmentedSizeInterface* rememberedBy(const Field& field) {
  return dynamic_cast<FragmentedSizeInterface*>(Ostrel::findInterface<SizeInterface>(field).get());
}

// -------------------------------------------------------------------------------------------------- unfragmented

TEST_F(FieldQuestionsTest, AFieldIsUnfragmentedWithOneEntryThatBelongsToNoNamedFragment) {
  const FieldPtr field = makeField();
  EXPECT_FALSE(field->isUnfragmented()) << "an empty field";
  field->setCreator(makeForgetful(), unnamed());
  EXPECT_TRUE(field->isUnfragmented());
  field->setCreator(makeForgetful(), field->makeFragmentID("a"));
  EXPECT_FALSE(field->isUnfragmented()) << "two entries";
}

TEST_F(FieldQuestionsTest, AFieldOfOneNamedFragmentIsFragmented) {
  const FieldPtr field = makeField();
  field->setCreator(makeForgetful(), field->makeFragmentID("a"));
  EXPECT_FALSE(field->isUnfragmented());
}

TEST_F(FieldQuestionsTest, AFieldOfOneEntryWithoutCollectionIsUnfragmented) {
  const FieldPtr field(new Field(FragmentIDCollectionPtr()));
  EXPECT_FALSE(field->isUnfragmented());
  field->setCreatorViaFragmentIndex(3, makeForgetful());
  EXPECT_TRUE(field->isUnfragmented());
  const FieldPtr beyond = makeField();
  beyond->setCreatorViaFragmentIndex(3, CreatorPtr());
  EXPECT_TRUE(beyond->isUnfragmented()) << "a number beyond the collection, even without a creator";
}

// ---------------------------------------------------------------------------------------------------- properties

TEST_F(FieldQuestionsTest, AnEmptyFieldKnowsNothing) {
  const FieldPtr field = makeField();
  EXPECT_EQ(field->getProperties().getRecord(), nullptr);
  EXPECT_EQ(field->Dims(), -1);
  EXPECT_EQ(field->getElementTreskType().getRecord(), nullptr);
  EXPECT_EQ(field->getElementType(), typeid(void));
  EXPECT_EQ(field->getFieldStorageType(), typeid(void));
  EXPECT_EQ(field->getSize().getRecord(), nullptr);
}

TEST_F(FieldQuestionsTest, PropertiesAreThoseOfTheFirstCreatorThatHasSome) {
  const FieldPtr field = makeField();
  const auto second = makeDeclared({4, 5});
  const auto third = makeDeclared({4, 5, 6});
  field->setCreatorViaFragmentIndex(3, third);
  field->setCreatorViaFragmentIndex(2, second);
  field->setCreatorViaFragmentIndex(1, makeForgetful());
  field->setCreatorViaFragmentIndex(0, CreatorPtr());
  EXPECT_TRUE(field->getProperties() == Ostrel::findInterface<MemArrayProperties>(*second));
  EXPECT_EQ(field->Dims(), 2);
}

TEST_F(FieldQuestionsTest, PropertiesOfTheFieldServeWhereNoCreatorHasAny) {
  const FieldPtr field = makeField();
  const PropertiesPtr own = makeProperties(4, getTreskType<double>());
  field->addInterface(own);
  EXPECT_TRUE(field->getProperties() == own);
  EXPECT_EQ(field->Dims(), 4);
  EXPECT_TRUE(field->getElementTreskType() == getTreskType<double>());
  EXPECT_EQ(field->getElementType(), typeid(double));
  field->setCreator(makeSized({1}), unnamed());
  EXPECT_TRUE(field->getProperties() == own);
  field->setCreator(makeDeclared({1, 2}), unnamed());
  EXPECT_EQ(field->getProperties()->getRank(), 2);
}

TEST_F(FieldQuestionsTest, TheRankIsThatOfTheFirstKnownSizeWithoutProperties) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, makeForgetful());
  EXPECT_EQ(field->Dims(), -1);
  field->setCreatorViaFragmentIndex(2, makeSized({1, 2, 3}));
  field->setCreatorViaFragmentIndex(1, makeForgetful(makeArray(2, 2, 0.0)));
  EXPECT_EQ(field->Dims(), 2) << "told by data present";
  EXPECT_FALSE(field->getProperties());
}

// -------------------------------------------------------------------------------------------------- element type

TEST_F(FieldQuestionsTest, TheElementTypeIsThatOfTheProperties) {
  const FieldPtr field = makeField();
  field->setCreator(makeDeclared({1}), unnamed());
  EXPECT_TRUE(field->getElementTreskType() == getTreskType<double>());
  EXPECT_EQ(field->getElementType(), typeid(double));
}

TEST_F(FieldQuestionsTest, PropertiesWithoutALivingRecordGiveNoRecordAndTheTypeOfTheNullPointer) {
  const FieldPtr field = makeField();
  field->addInterface(makeProperties(2, TreskTypeWeakPtr()));
  const auto creator = makeForgetful();
  creator->setTreskType(getTreskType<double>());
  field->setCreator(creator, unnamed());
  EXPECT_FALSE(field->getElementTreskType().isValid()) << "properties are believed";
  EXPECT_EQ(field->getElementType(), typeid(std::nullptr_t));
  EXPECT_EQ(field->Dims(), 2);
}

TEST_F(FieldQuestionsTest, TheElementTypeIsThatOfTheFirstCreatorWithATypeOrData) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, CreatorPtr());
  field->setCreatorViaFragmentIndex(1, makeForgetful());
  EXPECT_EQ(field->getElementType(), typeid(void));
  EXPECT_FALSE(field->getElementTreskType().isValid());
  const auto typed = makeForgetful();
  typed->setTreskType(getTreskType<unsigned int>());
  field->setCreatorViaFragmentIndex(3, typed);
  EXPECT_EQ(field->getElementType(), typeid(unsigned int));
  EXPECT_TRUE(field->getElementTreskType() == getTreskType<unsigned int>());
  const auto filled = makeForgetful(makeArray(1));
  field->setCreatorViaFragmentIndex(2, filled);
  EXPECT_EQ(field->getElementType(), typeid(double)) << "by the data present";
  EXPECT_TRUE(field->getElementTreskType() == getTreskType<double>());
  EXPECT_EQ(filled->getData()->getUseCount(), 0);
}

TEST_F(FieldQuestionsTest, TheStorageTypeIsThatOfTheFirstLivingCreator) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, CreatorPtr());
  EXPECT_EQ(field->getFieldStorageType(), typeid(void));
  field->setCreatorViaFragmentIndex(2, makeForgetful(makeArray(1)));
  EXPECT_EQ(field->getFieldStorageType(), typeid(Tresk::MemArray<1, double>));
  field->setCreatorViaFragmentIndex(1, makeForgetful());
  EXPECT_EQ(field->getFieldStorageType(), typeid(std::nullptr_t)) << "a creator that never held data";
}

// ----------------------------------------------------------------------------------------------------------- size

TEST_F(FieldQuestionsTest, TheSizeIsTheSumOfTheFragmentsDimensionByDimension) {
  const FieldPtr field = makeField();
  field->setCreator(makeDeclared({10, 10}), field->makeFragmentID("a"));
  field->setCreator(makeDeclared({10, 10}), field->makeFragmentID("b"));
  EXPECT_EQ(field->getSize()->str(), "20x20");
}

TEST_F(FieldQuestionsTest, AnUnknownSizeIsNullAndNothingIsRemembered) {
  const FieldPtr field = makeField();
  field->setCreator(makeForgetful(), field->makeFragmentID("a"));
  field->setCreatorViaFragmentIndex(5, CreatorPtr());
  EXPECT_EQ(field->getSize().getRecord(), nullptr);
  EXPECT_FALSE(Ostrel::findInterface<SizeInterface>(*field));
}

TEST_F(FieldQuestionsTest, TheFirstAnswerIsTheSumItselfAndLaterOnesTheRememberedSize) {
  const FieldPtr field = makeField();
  field->setCreator(makeDeclared({10}), field->makeFragmentID("a"));
  field->setCreator(makeDeclared({5}), field->makeFragmentID("b"));
  const SizePtr first = field->getSize();
  EXPECT_EQ(dynamic_cast<FragmentedSizeInterface*>(first.get()), nullptr);
  ASSERT_NE(rememberedBy(*field), nullptr);
  EXPECT_EQ(rememberedBy(*field)->getFragmentCount(), 2U);
  EXPECT_EQ(rememberedBy(*field)->str(), "15");
  const SizePtr second = field->getSize();
  EXPECT_EQ(second.get(), rememberedBy(*field));
  EXPECT_EQ(field->getSize().get(), second.get());
  EXPECT_FALSE(first == second);
}

TEST_F(FieldQuestionsTest, ANewEntryInvalidatesTheRememberedSize) {
  const FieldPtr field = makeField();
  field->setCreator(makeDeclared({10}), field->makeFragmentID("a"));
  EXPECT_EQ(field->getSize()->str(), "10");
  field->setCreator(makeDeclared({7}), field->makeFragmentID("b"));
  EXPECT_EQ(field->getSize()->str(), "17");
  EXPECT_EQ(rememberedBy(*field)->getFragmentCount(), 2U) << "it replaces the earlier one";
}

TEST_F(FieldQuestionsTest, AnEntryWithoutCreatorInvalidatesTheRememberedSizeToo) {
  const FieldPtr field = makeField();
  field->setCreator(makeDeclared({10}), field->makeFragmentID("a"));
  field->getSize();
  const SizePtr remembered = field->getSize();
  field->getCreatorReferenceViaFragmentIndex(9);
  EXPECT_EQ(field->getSize()->str(), "10");
  EXPECT_NE(rememberedBy(*field), remembered.get());
  EXPECT_EQ(rememberedBy(*field)->getFragmentCount(), 2U);
}

TEST_F(FieldQuestionsTest, AReplacedCreatorDoesNotInvalidateTheRememberedSize) {
  const FieldPtr field = makeField();
  const FragmentIDPtr a = field->makeFragmentID("a");
  field->setCreator(makeDeclared({10}), a);
  field->getSize();
  field->setCreator(makeDeclared({99}), a);
  EXPECT_EQ(field->getSize()->str(), "10");
}

TEST_F(FieldQuestionsTest, APartialSumIsRememberedAsSoonAsAnySizeIsKnown) {
  const FieldPtr field = makeField();
  const auto late = makeForgetful();
  field->setCreator(makeDeclared({10}), field->makeFragmentID("a"));
  field->setCreator(late, field->makeFragmentID("b"));
  EXPECT_EQ(field->getSize()->str(), "10");
  late->addMetaInfo(DynamicSize{5}, getTreskType<double>());
  EXPECT_EQ(field->getSize()->str(), "10") << "the size that became known later does not show";
}

TEST_F(FieldQuestionsTest, AClearedFieldForgetsItsSizeByTheCount) {
  const FieldPtr field = makeField();
  field->setCreator(makeDeclared({10}), field->makeFragmentID("a"));
  field->getSize();
  field->clear();
  EXPECT_FALSE(field->getSize());
}

TEST_F(FieldQuestionsTest, ASizeThatSomebodyElseAttachedIsNotTakenForTheSum) {
  const FieldPtr field = makeField();
  field->addInterface(SizePtr(new SizeInterface(DynamicSize{77})));
  EXPECT_FALSE(field->getSize());
  field->setCreator(makeDeclared({10}), unnamed());
  EXPECT_EQ(field->getSize()->str(), "10");
}

TEST_F(FieldQuestionsTest, SizesOfDifferentRanksAreAlignedAtTheLowestDimension) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, makeSized({1, 2}));
  field->setCreatorViaFragmentIndex(1, makeSized({10, 20, 30}));
  EXPECT_EQ(field->getSize()->str(), "11x22x30");
}

TEST_F(FieldQuestionsTest, TheSumLeavesTheSizesOfTheFragmentsAlone) {
  const FieldPtr field = makeField();
  const auto creator = makeSized({4});
  field->setCreatorViaFragmentIndex(0, creator);
  field->setCreatorViaFragmentIndex(1, makeSized({6}));
  field->getSize();
  EXPECT_EQ(Tresk::getSize(*creator)->str(), "4");
}

TEST_F(FieldQuestionsTest, NoQuestionProducesData) {
  const FieldPtr field = makeField();
  const auto creator = makeFunctional([] { return makeArray(3); });
  field->setCreator(creator, unnamed());
  field->getSize();
  field->Dims();
  field->getProperties();
  field->getElementType();
  field->getElementTreskType();
  field->getFieldStorageType();
  field->isUnfragmented();
  field->isCompatible(*field);
  EXPECT_EQ(creator->nProductions, 0);
}

TEST_F(FieldQuestionsTest, ACreatorMayReadTheFieldWhileItIsAskedForItsData) {
  const FieldPtr field = makeField();
  const auto creator = makeForgetful(makeArray(3));
  int nReads = 0;
  creator->onQuestion = [&] {
    if (field->nFragments() == 1 && field->getFirstFragmentID() == FragmentIDPtr()) ++nReads;
  };
  field->setCreator(creator, unnamed());
  EXPECT_EQ(field->getSize()->str(), "3");
  EXPECT_EQ(nReads, 1);
  creator->onQuestion = nullptr;
}

// ---------------------------------------------------------------------------------------------------- compatibility

TEST_F(FieldQuestionsTest, FieldsAreCompatibleWhereNoCommonFragmentDiffersInAKnownSize) {
  const FieldPtr one = makeField();
  const FieldPtr two = makeField();
  EXPECT_TRUE(one->isCompatible(*two)) << "two empty fields";
  one->setCreatorViaFragmentIndex(0, makeSized({4, 5}));
  EXPECT_TRUE(one->isCompatible(*two)) << "a key that the other has not";
  EXPECT_TRUE(two->isCompatible(*one));
  two->setCreatorViaFragmentIndex(1, makeSized({6}));
  EXPECT_TRUE(one->isCompatible(*two)) << "no common key";
  two->setCreatorViaFragmentIndex(0, CreatorPtr());
  EXPECT_TRUE(one->isCompatible(*two)) << "an entry without a creator";
  EXPECT_TRUE(two->isCompatible(*one));
  two->setCreatorViaFragmentIndex(0, makeForgetful());
  EXPECT_TRUE(one->isCompatible(*two)) << "an unknown size";
  EXPECT_TRUE(two->isCompatible(*one));
  two->setCreatorViaFragmentIndex(0, makeSized({4, 5}));
  EXPECT_TRUE(one->isCompatible(*two));
}

TEST_F(FieldQuestionsTest, OneFragmentOfAnotherSizeMakesFieldsIncompatible) {
  const FieldPtr one = makeField();
  const FieldPtr two = makeField();
  for (unsigned int i = 0; i < 3; ++i) {
    one->setCreatorViaFragmentIndex(i, makeSized({4, 5}));
    two->setCreatorViaFragmentIndex(i, makeSized({4, 5}));
  }
  EXPECT_TRUE(one->isCompatible(*two));
  two->setCreatorViaFragmentIndex(1, makeSized({4, 6}));
  EXPECT_FALSE(one->isCompatible(*two));
  EXPECT_FALSE(two->isCompatible(*one));
  two->setCreatorViaFragmentIndex(1, makeSized({4}));
  EXPECT_FALSE(one->isCompatible(*two)) << "another rank";
}

TEST_F(FieldQuestionsTest, AFieldIsCompatibleWithItself) {
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, makeForgetful(makeArray(3)));
  EXPECT_TRUE(field->isCompatible(*field));
}

}  // namespace
