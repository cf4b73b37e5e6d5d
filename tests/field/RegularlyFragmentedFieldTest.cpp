// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/RegularlyFragmentedField.hpp>

#include <support/BreakpointRecorder.hpp>
#include <support/FieldDoubles.hpp>
#include <support/NameArray.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using Tresk::DynamicSize;
using Tresk::Field;
using Tresk::FragmentIDCollection;
using Tresk::MultiIndex;
using Tresk::newRegularlyFragmentedField;
using Tresk::RegularlyFragmentedField;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::makeForgetful;

using RegularlyFragmentedFieldTest = TreskTest::RecordBalanceTest;
using Blocks = RegularlyFragmentedField<3>;
using BlocksPtr = Ostrel::StrongPtr<Blocks, Tresk::CreatorContainer>;
using Names = std::vector<std::string>;
using Index = MultiIndex<3>;

static_assert(std::is_base_of_v<Field, Blocks>);
static_assert(std::is_same_v<decltype(std::declval<const Blocks&>().getExtents()), const MultiIndex<3>&>);

BlocksPtr makeBlocks(const Index& extents, const std::string& suffix = "B") {
  return BlocksPtr(new Blocks(extents, suffix));
}

/// The names of the slots, "-" for an empty one.
Names namesOf(const Field& field) {
  Names names;
  for (const FragmentIDPtr& fragment : field.getFragmentIDs()) names.push_back(fragment ? fragment->getName() : "-");
  return names;
}

// --------------------------------------------------------------------------------------------------------- factory

TEST_F(RegularlyFragmentedFieldTest, TheFactoryMakesAFieldForThreeDimensionsOnly) {
  EXPECT_EQ(newRegularlyFragmentedField(DynamicSize()).getRecord(), nullptr);
  EXPECT_EQ(newRegularlyFragmentedField({5}).getRecord(), nullptr);
  EXPECT_EQ(newRegularlyFragmentedField({2, 2}).getRecord(), nullptr);
  EXPECT_EQ(newRegularlyFragmentedField({1, 1, 1, 1}).getRecord(), nullptr);
  const FieldPtr field = newRegularlyFragmentedField({2, 1, 1});
  ASSERT_TRUE(field);
  EXPECT_EQ(field.strongCount(), 1);
  const auto* const blocks = dynamic_cast<const Blocks*>(field.get());
  ASSERT_NE(blocks, nullptr);
  EXPECT_TRUE(blocks->getExtents() == Index(2, 1, 1));
}

TEST_F(RegularlyFragmentedFieldTest, TheFactoryNamesFragmentsByTheirIndexAndAFixedSuffix) {
  const FieldPtr field = newRegularlyFragmentedField({2, 1, 1});
  EXPECT_EQ(namesOf(*field), Names({"0x0x0RegularFragment", "1x0x0RegularFragment"}));
  EXPECT_EQ(field->findNumericalIDByName("0x0x0RegularFragment"), 0U);
  EXPECT_EQ(field->findNumericalIDByName("1x0x0RegularFragment"), 1U);
  EXPECT_EQ(field->getFragmentID("1x0x0RegularFragment")->getNumericalID(), 1U);
  EXPECT_EQ(field->nFragments(), 0U);
}

TEST_F(RegularlyFragmentedFieldTest, TheFactoryMakesALivingCollectionAlsoForNoBlocks) {
  const FieldPtr field = newRegularlyFragmentedField({2, 0, 3});
  ASSERT_TRUE(field);
  ASSERT_TRUE(field->getFragmentIDCollection());
  EXPECT_EQ(field->getFragmentIDCollection()->getShape().str(), "2x0x3");
}

// ------------------------------------------------------------------------------------------------- names and numbers

TEST_F(RegularlyFragmentedFieldTest, DimensionZeroVariesFastest) {
  const BlocksPtr field = makeBlocks({2, 3, 2}, "_b");
  EXPECT_EQ(namesOf(*field), Names({"0x0x0_b", "1x0x0_b", "0x1x0_b", "1x1x0_b", "0x2x0_b", "1x2x0_b", "0x0x1_b",
                                    "1x0x1_b", "0x1x1_b", "1x1x1_b", "0x2x1_b", "1x2x1_b"}));
}

TEST_F(RegularlyFragmentedFieldTest, EachBlockHasTheNumberOfItsIndexAndItsCollectionAsOwner) {
  const Index extents(11, 3, 4);
  const BlocksPtr field = makeBlocks(extents, "");
  const FragmentIDCollectionPtr collection = field->getFragmentIDCollection();
  ASSERT_EQ(collection->nFragmentIDs(), 132U);
  EXPECT_EQ(collection->getShape().str(), "11x3x4");
  for (unsigned int k = 0; k < 4; ++k) {
    for (unsigned int j = 0; j < 3; ++j) {
      for (unsigned int i = 0; i < 11; ++i) {
        const unsigned int number = i + 11 * (j + 3 * k);
        const std::string name = std::to_string(i) + "x" + std::to_string(j) + "x" + std::to_string(k);
        const FragmentIDPtr fragment = field->getFragmentID(Index(i, j, k));
        ASSERT_TRUE(fragment);
        EXPECT_EQ(fragment->getName(), name);
        EXPECT_EQ(fragment->getNumericalID(), number);
        EXPECT_TRUE(fragment->getOwner() == collection);
        EXPECT_TRUE(fragment == collection->findFragmentID(number));
        EXPECT_TRUE(fragment == field->getFragmentID(name));
        EXPECT_EQ(collection->getID(fragment), number);
      }
    }
  }
}

TEST_F(RegularlyFragmentedFieldTest, NumbersAreComputedInSixtyFourBitsAndCutToThirtyTwo) {
  // On a collection of other blocks: 2^20 * 2^20 * k is 0 modulo 2^32.
  const FragmentIDCollectionPtr collection = makeBlocks({4, 1, 1})->getFragmentIDCollection();
  const BlocksPtr field(new Blocks(Index(1 << 20, 1 << 20, 1 << 20), collection, "B"));
  EXPECT_EQ(field->getFragmentID(Index(3, 0, 5))->getName(), "3x0x0B");
  EXPECT_EQ(field->getFragmentID(Index(2, 1 << 12, 5))->getName(), "2x0x0B");
  EXPECT_FALSE(field->getFragmentID(Index(3, 1, 0)));
  EXPECT_TRUE(field->validate(Index(0, 1 << 12, 7)));
  EXPECT_FALSE(field->validate(Index(4, 1 << 12, 7)));
}

// ----------------------------------------------------------------------------------------------------- construction

TEST_F(RegularlyFragmentedFieldTest, ANewFieldHasItsExtentsAFixedCollectionAndNoCreators) {
  const BlocksPtr field = makeBlocks({2, 2, 2});
  EXPECT_TRUE(field->getExtents() == Index(2, 2, 2));
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_EQ(field->getFragmentIDCollection()->getID(FragmentIDPtr(new Tresk::FragmentID("new"))), 0xFFFFFFFFU);
  EXPECT_EQ(field->getFragmentIDCollection().strongCount(), 2);
}

TEST_F(RegularlyFragmentedFieldTest, NoBlocksGiveAFixedCollectionWithoutSlotsAndNames) {
  for (const Index& extents : {Index(0, 3, 4), Index(3, 0, 4), Index(3, 4, 0), Index(0, 0, 0)}) {
    const BlocksPtr field = makeBlocks(extents);
    const FragmentIDCollectionPtr collection = field->getFragmentIDCollection();
    ASSERT_TRUE(collection);
    EXPECT_EQ(collection->nFragmentIDs(), 0U);
    EXPECT_EQ(collection->getShape().Dims(), 3);
    for (int d = 0; d < 3; ++d) EXPECT_EQ(collection->getShape()[d], extents[d]);
    EXPECT_EQ(collection->findNumericalIDByName("0x0x0B"), 0xFFFFFFFFU);
    EXPECT_EQ(collection->getID(FragmentIDPtr(new Tresk::FragmentID("0x0x0B"))), 0xFFFFFFFFU);
    EXPECT_FALSE(field->getFragmentID(Index(0, 0, 0)));
    EXPECT_EQ(collection->iterate([](const FragmentIDPtr&, int, const std::string&) { return true; }), 0U);
  }
}

TEST_F(RegularlyFragmentedFieldTest, TheTableHasRoomForAllBlocks) {
  const BlocksPtr field = makeBlocks({3, 3, 3});
  const CreatorPtr* const first = &field->setCreatorViaFragmentIndex(0, makeForgetful());
  for (unsigned int i = 1; i < 27; ++i) field->setCreatorViaFragmentIndex(i, makeForgetful());
  EXPECT_EQ(&field->setCreatorViaFragmentIndex(0, makeForgetful()), first) << "slots stay where they are";
}

TEST_F(RegularlyFragmentedFieldTest, AFilledCollectionIsTakenAsItIs) {
  const FragmentIDCollectionPtr collection = makeBlocks({2, 1, 1}, "old")->getFragmentIDCollection();
  const BlocksPtr field(new Blocks(Index(3, 3, 3), collection, "new"));
  EXPECT_TRUE(field->getFragmentIDCollection() == collection);
  EXPECT_TRUE(field->getExtents() == Index(3, 3, 3));
  EXPECT_EQ(namesOf(*field), Names({"0x0x0old", "1x0x0old"}));
  EXPECT_EQ(collection->getShape().str(), "2x1x1");
  EXPECT_EQ(field->getFragmentID(Index(1, 0, 0))->getName(), "1x0x0old");
  EXPECT_FALSE(field->getFragmentID(Index(0, 1, 0))) << "number 3 by the extents of the field";
  EXPECT_FALSE(field->validate(Index(0, 1, 0)));
}

TEST_F(RegularlyFragmentedFieldTest, ALivingEmptyCollectionIsTakenAsItIsToo) {
  const FragmentIDCollectionPtr collection(new FragmentIDCollection);
  const BlocksPtr field(new Blocks(Index(2, 2, 2), collection, "B"));
  EXPECT_TRUE(field->getFragmentIDCollection() == collection);
  EXPECT_EQ(collection->nFragmentIDs(), 0U) << "the caller vouches for it";
  EXPECT_EQ(collection->getShape().Dims(), 0);
  EXPECT_FALSE(field->getFragmentID(Index(0, 0, 0)));
}

TEST_F(RegularlyFragmentedFieldTest, ANullCollectionIsReplacedByANewOne) {
  const BlocksPtr field(new Blocks(Index(1, 2, 1), FragmentIDCollectionPtr(), "B"));
  EXPECT_EQ(namesOf(*field), Names({"0x0x0B", "0x1x0B"}));
  EXPECT_EQ(field->getFragmentIDCollection()->getShape().str(), "1x2x1");
}

TEST_F(RegularlyFragmentedFieldTest, TheCollectionOfALivingFieldIsShared) {
  const FieldPtr other(new Field);
  other->makeFragmentID("a");
  const BlocksPtr field(new Blocks(Index(2, 1, 1), Tresk::FieldWeakPtr(other), "B"));
  EXPECT_TRUE(field->getFragmentIDCollection() == other->getFragmentIDCollection());
  EXPECT_EQ(namesOf(*field), Names({"a"}));
  EXPECT_EQ(field->getFragmentID(Index(0, 0, 0))->getName(), "a");
}

TEST_F(RegularlyFragmentedFieldTest, ADeadOrNullFieldGivesANewCollection) {
  Tresk::FieldWeakPtr dead;
  {
    const FieldPtr field(new Field);
    dead = field;
  }
  for (const Tresk::FieldWeakPtr& sibling : {dead, Tresk::FieldWeakPtr()}) {
    const BlocksPtr field(new Blocks(Index(2, 1, 1), sibling, "B"));
    EXPECT_EQ(namesOf(*field), Names({"0x0x0B", "1x0x0B"}));
    EXPECT_TRUE(field->getFragmentIDCollection());
  }
}

TEST_F(RegularlyFragmentedFieldTest, AFieldWithoutACollectionGivesANewCollectionAndKeepsNone) {
  const FieldPtr other((new Field(FragmentIDCollectionPtr())));
  const BlocksPtr field(new Blocks(Index(2, 1, 1), Tresk::FieldWeakPtr(other), "B"));
  EXPECT_EQ(namesOf(*field), Names({"0x0x0B", "1x0x0B"}));
  EXPECT_FALSE(other->getFragmentIDCollection());
}

TEST_F(RegularlyFragmentedFieldTest, ACopySharesCollectionAndExtentsAndHasNoCreators) {
  const BlocksPtr field = makeBlocks({2, 2, 1});
  field->getCreatorReference(Index(1, 1, 0)) = makeForgetful();
  const BlocksPtr copy(new Blocks(*field));
  EXPECT_TRUE(copy->getFragmentIDCollection() == field->getFragmentIDCollection());
  EXPECT_TRUE(copy->getExtents() == Index(2, 2, 1));
  EXPECT_EQ(copy->nFragments(), 0U);
  EXPECT_EQ(field->nFragments(), 1U);
  EXPECT_EQ(TreskTest::fieldStamp(*copy), 0) << "a copy is a new field";
  copy->setCreator(makeForgetful(), field->getFragmentID(Index(0, 1, 0)));
  EXPECT_TRUE(copy->getCreator(Index(0, 1, 0)));
  EXPECT_FALSE(field->getCreator(Index(0, 1, 0)));
}

/// Shows another collection than it was made with.
class Redirecting : public Blocks {
 public:
  Redirecting() : Blocks(Index(2, 1, 1), "own") {}
  FragmentIDCollectionPtr getFragmentIDCollection() const override { return shown; }
  FragmentIDCollectionPtr shown;
};
using RedirectingPtr = Ostrel::StrongPtr<Redirecting, Tresk::CreatorContainer>;

TEST_F(RegularlyFragmentedFieldTest, ACopyAndALookupAskForTheCollectionThroughTheVirtualTable) {
  const RedirectingPtr field(new Redirecting);
  EXPECT_FALSE(field->getFragmentID(Index(0, 0, 0))) << "no collection";
  field->shown = makeBlocks({2, 1, 1}, "other")->getFragmentIDCollection();
  EXPECT_EQ(field->getFragmentID(Index(1, 0, 0))->getName(), "1x0x0other");
  const BlocksPtr copy(new Blocks(*field));
  EXPECT_TRUE(copy->getFragmentIDCollection() == field->shown);
}

// ------------------------------------------------------------------------------------------------- access by index

TEST_F(RegularlyFragmentedFieldTest, CreatorsAreFoundByTheIndexOfTheirBlock) {
  const BlocksPtr field = makeBlocks({2, 3, 4});
  const CreatorPtr creator = makeForgetful();
  field->setCreator(creator, field->getFragmentID(Index(1, 2, 3)));
  EXPECT_TRUE(field->getCreator(Index(1, 2, 3)) == creator);
  EXPECT_TRUE(field->getCreatorByNumericalID(23) == creator);
  EXPECT_TRUE(field->getCreatorByName("1x2x3B") == creator);
  EXPECT_TRUE(field->getCreator(field->getFragmentID("1x2x3B")) == creator) << "the lookups of a field stay";
  EXPECT_EQ(field->getCreator(Index(0, 0, 0)).getRecord(), nullptr);
  EXPECT_EQ(field->nFragments(), 1U);
}

TEST_F(RegularlyFragmentedFieldTest, AReferenceMakesTheEntryAndTouchesTheField) {
  const BlocksPtr field = makeBlocks({2, 3, 4});
  const long long clock = TreskTest::clockNow();
  CreatorPtr& slot = field->getCreatorReference(Index(1, 1, 1));
  EXPECT_FALSE(slot);
  EXPECT_EQ(field->nFragments(), 1U);
  EXPECT_EQ(TreskTest::clockNow(), clock + 1);
  EXPECT_EQ(TreskTest::fieldStamp(*field), clock + 1);
  const CreatorPtr creator = makeForgetful();
  slot = creator;
  EXPECT_TRUE(field->getCreatorByNumericalID(9) == creator);
  EXPECT_TRUE(&field->getCreatorReference(Index(1, 1, 1)) == &slot);
  EXPECT_EQ(TreskTest::fieldStamp(*field), clock + 2) << "a known block too";
}

TEST_F(RegularlyFragmentedFieldTest, AnIndexIsValidIfItsNumberIs) {
  const BlocksPtr field = makeBlocks({2, 3, 4});
  EXPECT_TRUE(field->validate(Index(0, 0, 0)));
  EXPECT_TRUE(field->validate(Index(1, 2, 3)));
  EXPECT_FALSE(field->validate(Index(0, 0, 4)));
  EXPECT_TRUE(field->validate(Index(2, 0, 0))) << "outside, but number 2 is known";
  EXPECT_TRUE(field->validate(Index(0, 3, 0)));
  EXPECT_TRUE(field->validate(23U)) << "the question of a field stays";
  EXPECT_FALSE(field->validate(24U));
}

TEST_F(RegularlyFragmentedFieldTest, OnlyTheFragmentIsTestedForBounds) {
  const BlocksPtr field = makeBlocks({2, 3, 4});
  const CreatorPtr creator = makeForgetful();
  field->setCreatorViaFragmentIndex(2, creator);
  EXPECT_TRUE(field->getCreator(Index(0, 1, 0)) == creator);
  EXPECT_TRUE(field->getCreator(Index(2, 0, 0)) == creator) << "another block of the same number";
  EXPECT_TRUE(field->getCreatorReference(Index(2, 0, 0)) == creator);
  EXPECT_FALSE(field->getFragmentID(Index(2, 0, 0)));
  EXPECT_FALSE(field->getFragmentID(Index(0, 3, 0)));
  EXPECT_FALSE(field->getFragmentID(Index(0, 0, 4)));
  EXPECT_FALSE(field->getFragmentID(Index(~0ULL, 0, 0)));
  EXPECT_TRUE(field->getFragmentID(Index(1, 2, 3)));
}

TEST_F(RegularlyFragmentedFieldTest, AnIndexFarOutsideMakesAnEntryThatBelongsToNoBlock) {
  const BlocksPtr field = makeBlocks({2, 2, 2});
  field->getCreatorReference(Index(0, 0, 25)) = makeForgetful();
  EXPECT_TRUE(field->getCreatorByNumericalID(100));
  EXPECT_FALSE(field->validate(Index(0, 0, 25)));
  EXPECT_EQ(field->getFragmentIDs().size(), 8U);
}

TEST_F(RegularlyFragmentedFieldTest, AFragmentAddedByNameFollowsTheBlocks) {
  const BlocksPtr field = makeBlocks({2, 1, 1});
  EXPECT_EQ(field->makeFragmentID("more")->getNumericalID(), 2U);
  EXPECT_EQ(namesOf(*field), Names({"0x0x0B", "1x0x0B", "more"}));
  EXPECT_EQ(field->makeFragmentID("1x0x0B")->getNumericalID(), 1U);
  EXPECT_FALSE(field->getFragmentID(Index(2, 0, 0)));
}

TEST_F(RegularlyFragmentedFieldTest, TheBlocksAreShownAsAnArrayOfTheirShape) {
  const BlocksPtr field = makeBlocks({2, 3, 4});
  const TreskTest::MemBasePtr array = field->newFragmentationArray();
  ASSERT_TRUE(array);
  EXPECT_EQ(array->getSize().str(), "2x3x4");
}

TEST_F(RegularlyFragmentedFieldTest, AWalkVisitsTheBlocksInTheirOrder) {
  const BlocksPtr field = makeBlocks({2, 2, 1});
  for (unsigned int j = 2; j-- > 0;)
    for (unsigned int i = 2; i-- > 0;) field->getCreatorReference(Index(i, j, 0)) = makeForgetful();
  Names names;
  field->iterate(
      [&names](const FragmentIDPtr& fragment, const CreatorPtr&) {
        names.push_back(fragment->getName());
        return true;
      },
      false, false);
  EXPECT_EQ(names, Names({"0x0x0B", "1x0x0B", "0x1x0B", "1x1x0B"}));
}

// ---------------------------------------------------------------------------------------------------------- errors

/// The message of the length error that `make` raises; empty if there is none.
template <class F>
std::string lengthErrorOf(const F& make) {
  try {
    make();
  } catch (const std::length_error& error) {
    return error.what();
  }
  return std::string();
}

TEST_F(RegularlyFragmentedFieldTest, MoreBlocksThanAVectorHoldsRaiseAndLeaveNothingBehind) {
  const char* const message = "cannot create std::vector larger than max_size()";
  const long long nLive = nLiveSinceStart();
  for (const Index& extents : {Index(1ULL << 62, 1, 1), Index(1, 1ULL << 31, 1ULL << 31), Index(~0ULL, 1, 1),
                               Index(1ULL << 32, 1ULL << 32, 1), Index(~0ULL, ~0ULL, ~0ULL)}) {
    EXPECT_EQ(lengthErrorOf([&] { makeBlocks(extents); }), message);
    EXPECT_EQ(lengthErrorOf([&] { BlocksPtr(new Blocks(extents, FragmentIDCollectionPtr(), "B")); }), message);
    EXPECT_EQ(lengthErrorOf([&] { BlocksPtr(new Blocks(extents, Tresk::FieldWeakPtr(), "B")); }), message);
    EXPECT_EQ(lengthErrorOf([&] { newRegularlyFragmentedField({extents[0], extents[1], extents[2]}); }), message);
  }
  EXPECT_EQ(nLiveSinceStart(), nLive);
}

TEST_F(RegularlyFragmentedFieldTest, AnExtentOfZeroMakesAnyOthersHarmless) {
  for (const Index& extents : {Index(0, ~0ULL, ~0ULL), Index(~0ULL, 0, ~0ULL), Index(~0ULL, ~0ULL, 0)}) {
    const BlocksPtr field = makeBlocks(extents);
    EXPECT_TRUE(field->getExtents() == extents);
    EXPECT_EQ(field->getFragmentIDs().size(), 0U);
  }
}

TEST_F(RegularlyFragmentedFieldTest, ExtentsThatDoNotFitTheCollectionAreNoError) {
  const TreskTest::BreakpointRecorder breakpoints;
  const FragmentIDCollectionPtr collection(
      new FragmentIDCollection(TreskTest::makeNames(DynamicSize{2, 1}, {"a", "b"})));
  const BlocksPtr field(new Blocks(Index(1ULL << 40, 1ULL << 40, 1ULL << 40), collection, "B"));
  EXPECT_EQ(namesOf(*field), Names({"a", "b"}));
  EXPECT_TRUE(breakpoints.messages().empty());
}

// ----------------------------------------------------------------------------------------------------- description

TEST_F(RegularlyFragmentedFieldTest, TheDescriptionBeginsWithALineOfSixtySevenCharacters) {
  const BlocksPtr field = makeBlocks({2, 1, 1});
  const std::string prefix = "<REGULARLYFRAGMENTIONDIMENSIONS>3</REGULARLYFRAGMENTIONDIMENSIONS>\n";
  EXPECT_EQ(prefix.size(), 67U);
  EXPECT_EQ(field->xml(), prefix + static_cast<const Field&>(*field).xml());
}

TEST_F(RegularlyFragmentedFieldTest, TheDescriptionInFull) {
  const BlocksPtr field = makeBlocks({2, 1, 1}, "RegularFragment");
  field->getCreatorReference(Index(1, 0, 0)) = makeForgetful();
  char address[64];
  std::snprintf(address, sizeof(address), "%p", static_cast<void*>(field->getFragmentIDCollection().get()));
  EXPECT_EQ(field->xml(),
            "<REGULARLYFRAGMENTIONDIMENSIONS>3</REGULARLYFRAGMENTIONDIMENSIONS>\n"
            "\t    <TRESKTYPE>\n"
            "\t     <TYPE></TYPE>\n"
            "\t    <TRESKTYPE>\n"
            "\t    <FRAGMENTIDCOLLECTION>\n"
            "\t\t <PTR>" +
                std::string(address) +
                "</PTR>\n"
                "\t      <NUMBEROFFRAGMENTIDS>2</NUMBEROFFRAGMENTIDS>\n"
                "\t    <FRAGMENTID>\n"
                "\t     <NUMBER>0</NUMBER>\n"
                "\t     <NUMERICALID>0</NUMERICALID>\n"
                "\t     <NAME>0x0x0RegularFragment</NAME>\n"
                "\t    </FRAGMENTID>\n"
                "\t    <FRAGMENTID>\n"
                "\t     <NUMBER>1</NUMBER>\n"
                "\t     <NUMERICALID>1</NUMERICALID>\n"
                "\t     <NAME>1x0x0RegularFragment</NAME>\n"
                "\t    </FRAGMENTID>\n"
                "\t    </FRAGMENTIDCOLLECTION>\n"
                "\t   <NUMBEROFRAGMENTS>1</NUMBEROFRAGMENTS>\n"
                "\t    <FRAGMENT>\n"
                "\t      <ID>1</ID>\n"
                "<SIZE/>\n"
                "\t      <DATA/>\n"
                "\t    </FRAGMENT>\n");
}

TEST_F(RegularlyFragmentedFieldTest, FieldAndFragmentsDieTogether) {
  Ostrel::WeakPtr<FragmentIDCollection, FragmentIDCollection> collection;
  {
    const BlocksPtr field = makeBlocks({3, 3, 3});
    collection = field->getFragmentIDCollection();
    EXPECT_TRUE(collection);
  }
  EXPECT_FALSE(collection);
}

}  // namespace
