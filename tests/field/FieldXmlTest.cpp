// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>
#include <tresk/field/TreskType.hpp>

#include <support/FieldDoubles.hpp>
#include <support/NameArray.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

// All texts are compared literally: consumers match them byte for byte.

namespace {

using Tresk::Field;
using Tresk::FragmentID;
using Tresk::FragmentIDCollection;
using Tresk::MemArrayProperties;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::makeArray;
using TreskTest::makeForgetful;
using TreskTest::unnamed;

using FieldXmlTest = TreskTest::RecordBalanceTest;

FieldPtr makeField() { return FieldPtr(new Field); }
FieldPtr makeFieldWithoutCollection() { return FieldPtr((new Field(FragmentIDCollectionPtr()))); }

/// The address of a collection as its description writes it.
std::string addressOf(const FragmentIDCollectionPtr& collection) {
  char text[64];
  std::snprintf(text, sizeof(text), "%p", static_cast<void*>(collection.get()));
  return text;
}

/// What a field without a known element type and without a collection writes before its fragments.
const char* const nothingKnown =
    "\t    <TRESKTYPE>\n"
    "\t     <TYPE></TYPE>\n"
    "\t    <TRESKTYPE>\n"
    "\t    <FRAGMENTIDCOLLECTION/>\n";
/// The same for elements of type double.
const char* const doublesKnown =
    "\t    <TRESKTYPE>\n"
    "\t     <TYPE>double</TYPE>\n"
    "\t     <MULTIPLICITY>1</MULTIPLICITY>\n"
    "\t     <RANK>0</RANK>\n"
    "\t     <CHART>void</CHART>\n"
    "\t    <TRESKTYPE>\n"
    "\t    <FRAGMENTIDCOLLECTION/>\n";

// ------------------------------------------------------------------------------------------------------- fragments

TEST_F(FieldXmlTest, AFragmentIsTwoLines) {
  const FragmentIDPtr free(new FragmentID("Block"));
  EXPECT_EQ(free->xml(),
            "\t     <NUMERICALID>0</NUMERICALID>\n"
            "\t     <NAME>Block</NAME>\n");
  const FragmentIDCollectionPtr collection(new FragmentIDCollection);
  collection->makeFragmentID("first");
  EXPECT_EQ(FragmentIDPtr(collection->makeFragmentID("second"))->xml(),
            "\t     <NUMERICALID>1</NUMERICALID>\n"
            "\t     <NAME>second</NAME>\n");
}

TEST_F(FieldXmlTest, TheNumberOfAFragmentIsSigned) {
  const FragmentIDPtr none(new FragmentID("", 0xFFFFFFFFU, {}));
  EXPECT_EQ(none->xml(),
            "\t     <NUMERICALID>-1</NUMERICALID>\n"
            "\t     <NAME></NAME>\n");
  const FragmentIDPtr least(new FragmentID("x", 0x80000000U, {}));
  EXPECT_EQ(least->xml(),
            "\t     <NUMERICALID>-2147483648</NUMERICALID>\n"
            "\t     <NAME>x</NAME>\n");
  const FragmentIDPtr greatest(new FragmentID("x", 0x7FFFFFFFU, {}));
  EXPECT_EQ(greatest->xml(),
            "\t     <NUMERICALID>2147483647</NUMERICALID>\n"
            "\t     <NAME>x</NAME>\n");
}

TEST_F(FieldXmlTest, ANameIsWrittenAsItIs) {
  const FragmentIDPtr fragment(new FragmentID("a<b & \"c\">\n\t%d\xC3\xA4"));
  EXPECT_EQ(fragment->xml(),
            "\t     <NUMERICALID>0</NUMERICALID>\n"
            "\t     <NAME>a<b & \"c\">\n\t%d\xC3\xA4</NAME>\n");
}

// ----------------------------------------------------------------------------------------------------- collections

TEST_F(FieldXmlTest, AnEmptyCollectionHasNoSlots) {
  const FragmentIDCollectionPtr collection(new FragmentIDCollection);
  EXPECT_EQ(collection->xml(),
            "\t    <FRAGMENTIDCOLLECTION>\n"
            "\t\t <PTR>" +
                addressOf(collection) +
                "</PTR>\n"
                "\t      <NUMBEROFFRAGMENTIDS>0</NUMBEROFFRAGMENTIDS>\n"
                "\t    </FRAGMENTIDCOLLECTION>\n");
}

TEST_F(FieldXmlTest, ACollectionListsItsSlotsAndAnUnnamedOneHasItsNumberOnly) {
  const FragmentIDCollectionPtr collection(new FragmentIDCollection);
  collection->makeFragmentID("a<b");
  collection->getID(unnamed());
  collection->makeFragmentID("c");
  EXPECT_EQ(collection->xml(),
            "\t    <FRAGMENTIDCOLLECTION>\n"
            "\t\t <PTR>" +
                addressOf(collection) +
                "</PTR>\n"
                "\t      <NUMBEROFFRAGMENTIDS>3</NUMBEROFFRAGMENTIDS>\n"
                "\t    <FRAGMENTID>\n"
                "\t     <NUMBER>0</NUMBER>\n"
                "\t     <NUMERICALID>0</NUMERICALID>\n"
                "\t     <NAME>a<b</NAME>\n"
                "\t    </FRAGMENTID>\n"
                "\t    <FRAGMENTID>\n"
                "\t     <NUMBER>1</NUMBER>\n"
                "\t    </FRAGMENTID>\n"
                "\t    <FRAGMENTID>\n"
                "\t     <NUMBER>2</NUMBER>\n"
                "\t     <NUMERICALID>2</NUMERICALID>\n"
                "\t     <NAME>c</NAME>\n"
                "\t    </FRAGMENTID>\n"
                "\t    </FRAGMENTIDCOLLECTION>\n");
}

TEST_F(FieldXmlTest, ACollectionMadeOfNothingHasNoSlotsEither) {
  const FragmentIDCollectionPtr collection((new FragmentIDCollection(TreskTest::NameArrayPtr())));
  EXPECT_EQ(collection->xml(),
            "\t    <FRAGMENTIDCOLLECTION>\n"
            "\t\t <PTR>" +
                addressOf(collection) +
                "</PTR>\n"
                "\t      <NUMBEROFFRAGMENTIDS>0</NUMBEROFFRAGMENTIDS>\n"
                "\t    </FRAGMENTIDCOLLECTION>\n");
}

TEST_F(FieldXmlTest, TheAddressTellsWhetherFieldsShareACollection) {
  const FieldPtr field = makeField();
  const FieldPtr sibling((new Field(Tresk::FieldWeakPtr(field))));
  const FieldPtr other = makeField();
  EXPECT_EQ(field->xml(), sibling->xml());
  EXPECT_NE(field->xml(), other->xml());
}

// ---------------------------------------------------------------------------------------------------------- fields

TEST_F(FieldXmlTest, AnEmptyFieldWithoutACollection) {
  EXPECT_EQ(makeFieldWithoutCollection()->xml(),
            "\t    <TRESKTYPE>\n"
            "\t     <TYPE></TYPE>\n"
            "\t    <TRESKTYPE>\n"
            "\t    <FRAGMENTIDCOLLECTION/>\n"
            "\t   <NUMBEROFRAGMENTS>0</NUMBEROFRAGMENTS>\n");
}

TEST_F(FieldXmlTest, AnEmptyTableStillShowsTheCollectionWithItsSlots) {
  const FieldPtr field = makeField();
  field->makeFragmentID("north");
  EXPECT_EQ(field->xml(),
            "\t    <TRESKTYPE>\n"
            "\t     <TYPE></TYPE>\n"
            "\t    <TRESKTYPE>\n"
            "\t    <FRAGMENTIDCOLLECTION>\n"
            "\t\t <PTR>" +
                addressOf(field->getFragmentIDCollection()) +
                "</PTR>\n"
                "\t      <NUMBEROFFRAGMENTIDS>1</NUMBEROFFRAGMENTIDS>\n"
                "\t    <FRAGMENTID>\n"
                "\t     <NUMBER>0</NUMBER>\n"
                "\t     <NUMERICALID>0</NUMERICALID>\n"
                "\t     <NAME>north</NAME>\n"
                "\t    </FRAGMENTID>\n"
                "\t    </FRAGMENTIDCOLLECTION>\n"
                "\t   <NUMBEROFRAGMENTS>0</NUMBEROFRAGMENTS>\n");
}

TEST_F(FieldXmlTest, AFieldOfTwoNamedFragmentsInFull) {
  const FieldPtr field = makeField();
  const FragmentIDPtr north = field->makeFragmentID("north");
  const FragmentIDPtr south = field->makeFragmentID("south");
  const auto declared = makeForgetful();
  declared->addMetaInfo(Tresk::DynamicSize{7, 8, 9}, Tresk::getTreskType<double>());
  field->setCreator(declared, south);
  field->setPersistentData(makeArray(2, 5, 0.5), north, Ostrel::Cache::MemCache(), "");
  EXPECT_EQ(field->xml(),
            "\t    <TRESKTYPE>\n"
            "\t     <TYPE>double</TYPE>\n"
            "\t     <MULTIPLICITY>1</MULTIPLICITY>\n"
            "\t     <RANK>0</RANK>\n"
            "\t     <CHART>void</CHART>\n"
            "\t    <TRESKTYPE>\n"
            "\t    <FRAGMENTIDCOLLECTION>\n"
            "\t\t <PTR>" +
                addressOf(field->getFragmentIDCollection()) +
                "</PTR>\n"
                "\t      <NUMBEROFFRAGMENTIDS>2</NUMBEROFFRAGMENTIDS>\n"
                "\t    <FRAGMENTID>\n"
                "\t     <NUMBER>0</NUMBER>\n"
                "\t     <NUMERICALID>0</NUMERICALID>\n"
                "\t     <NAME>north</NAME>\n"
                "\t    </FRAGMENTID>\n"
                "\t    <FRAGMENTID>\n"
                "\t     <NUMBER>1</NUMBER>\n"
                "\t     <NUMERICALID>1</NUMERICALID>\n"
                "\t     <NAME>south</NAME>\n"
                "\t    </FRAGMENTID>\n"
                "\t    </FRAGMENTIDCOLLECTION>\n"
                "\t   <NUMBEROFRAGMENTS>2</NUMBEROFRAGMENTS>\n"
                "\t    <FRAGMENT>\n"
                "\t      <ID>0</ID>\n"
                "\t      <SIZE>2x5</SIZE>\n"
                "\t      <DATA>\n"
                "\t      </DATA>\n"
                "\t    </FRAGMENT>\n"
                "\t    <FRAGMENT>\n"
                "\t      <ID>1</ID>\n"
                "\t      <SIZE>7x8x9</SIZE>\n"
                "\t      <DATA/>\n"
                "\t    </FRAGMENT>\n");
}

TEST_F(FieldXmlTest, AnEntryWithoutACreatorHasNoData) {
  const FieldPtr field = makeFieldWithoutCollection();
  field->setCreatorViaFragmentIndex(4, CreatorPtr());
  EXPECT_EQ(field->xml(), std::string(nothingKnown) +
                              "\t   <NUMBEROFRAGMENTS>1</NUMBEROFRAGMENTS>\n"
                              "\t    <FRAGMENT>\n"
                              "\t      <ID>4</ID>\n"
                              "\t     <NODATA/>\n"
                              "\t    </FRAGMENT>\n");
}

TEST_F(FieldXmlTest, AnUnknownSizeStandsAtTheMargin) {
  const FieldPtr field = makeFieldWithoutCollection();
  field->setCreatorViaFragmentIndex(0, makeForgetful());
  EXPECT_EQ(field->xml(), std::string(nothingKnown) +
                              "\t   <NUMBEROFRAGMENTS>1</NUMBEROFRAGMENTS>\n"
                              "\t    <FRAGMENT>\n"
                              "\t      <ID>0</ID>\n"
                              "<SIZE/>\n"
                              "\t      <DATA/>\n"
                              "\t    </FRAGMENT>\n");
}

/// A creator that has data of which it cannot tell the size.
class Secretive : public TreskTest::ForgetfulArray {
 public:
  using AlzheimerCreator::AlzheimerCreator;
  bool hasData() const override { return true; }
};

TEST_F(FieldXmlTest, SizeAndDataAreToldIndependently) {
  const FieldPtr field = makeFieldWithoutCollection();
  field->setCreatorViaFragmentIndex(0, CreatorPtr(new Secretive(Tresk::CacheWeakPtr())));
  EXPECT_EQ(field->xml(), std::string(nothingKnown) +
                              "\t   <NUMBEROFRAGMENTS>1</NUMBEROFRAGMENTS>\n"
                              "\t    <FRAGMENT>\n"
                              "\t      <ID>0</ID>\n"
                              "<SIZE/>\n"
                              "\t      <DATA>\n"
                              "\t      </DATA>\n"
                              "\t    </FRAGMENT>\n");
}

TEST_F(FieldXmlTest, ASizeOfNoDimensionsIsAnEmptyText) {
  const FieldPtr field = makeFieldWithoutCollection();
  const auto creator = makeForgetful();
  creator->addMetaInfo(Tresk::DynamicSize(), Tresk::TreskTypePtr());
  field->setCreatorViaFragmentIndex(0, creator);
  EXPECT_EQ(field->xml(), std::string(nothingKnown) +
                              "\t   <NUMBEROFRAGMENTS>1</NUMBEROFRAGMENTS>\n"
                              "\t    <FRAGMENT>\n"
                              "\t      <ID>0</ID>\n"
                              "\t      <SIZE></SIZE>\n"
                              "\t      <DATA/>\n"
                              "\t    </FRAGMENT>\n");
}

TEST_F(FieldXmlTest, EntriesStandInTheOrderOfTheirUnsignedKeysAndAreWrittenSigned) {
  const FieldPtr field = makeFieldWithoutCollection();
  field->setCreatorViaFragmentIndex(0xFFFFFFFFU, CreatorPtr());
  field->setCreatorViaFragmentIndex(12, makeForgetful(makeArray(3)));
  field->setCreatorViaFragmentIndex(0x80000000U, CreatorPtr());
  EXPECT_EQ(field->xml(), std::string(doublesKnown) +
                              "\t   <NUMBEROFRAGMENTS>3</NUMBEROFRAGMENTS>\n"
                              "\t    <FRAGMENT>\n"
                              "\t      <ID>12</ID>\n"
                              "\t      <SIZE>3</SIZE>\n"
                              "\t      <DATA>\n"
                              "\t      </DATA>\n"
                              "\t    </FRAGMENT>\n"
                              "\t    <FRAGMENT>\n"
                              "\t      <ID>-2147483648</ID>\n"
                              "\t     <NODATA/>\n"
                              "\t    </FRAGMENT>\n"
                              "\t    <FRAGMENT>\n"
                              "\t      <ID>-1</ID>\n"
                              "\t     <NODATA/>\n"
                              "\t    </FRAGMENT>\n");
}

TEST_F(FieldXmlTest, ReleasedDataLeaveTheirSize) {
  const FieldPtr field = makeFieldWithoutCollection();
  const auto creator = makeForgetful(makeArray(4, 6, 1.0));
  field->setCreatorViaFragmentIndex(0, creator);
  field->xml();
  EXPECT_EQ(creator->release(), Ostrel::Creature::Released);
  EXPECT_EQ(field->xml(), std::string(nothingKnown) +
                              "\t   <NUMBEROFRAGMENTS>1</NUMBEROFRAGMENTS>\n"
                              "\t    <FRAGMENT>\n"
                              "\t      <ID>0</ID>\n"
                              "\t      <SIZE>4x6</SIZE>\n"
                              "\t      <DATA/>\n"
                              "\t    </FRAGMENT>\n");
}

// --------------------------------------------------------------------------------------------------- element types

TEST_F(FieldXmlTest, AnElementOfManyComponentsHasItsChart) {
  const FieldPtr field = makeFieldWithoutCollection();
  field->addInterface(Ostrel::StrongPtr<MemArrayProperties, Ostrel::InterfaceBase>(
      new MemArrayProperties(3, Tresk::getTreskType<Quorvel::FixedArray<double, 3>>())));
  EXPECT_EQ(field->xml(),
            "\t    <TRESKTYPE>\n"
            "\t     <TYPE>Quorvel::FixedArray<double, 3></TYPE>\n"
            "\t     <MULTIPLICITY>3</MULTIPLICITY>\n"
            "\t     <RANK>0</RANK>\n"
            "\t     <CHART>void</CHART>\n"
            "\t    <TRESKTYPE>\n"
            "\t    <FRAGMENTIDCOLLECTION/>\n"
            "\t   <NUMBEROFRAGMENTS>0</NUMBEROFRAGMENTS>\n");
}

/// A record with numbers and a chart of its own, which no registry knows.
class OddType : public Tresk::TreskTypeBase {
 public:
  explicit OddType(const Tresk::TreskTypeIndex& index) : TreskTypeBase(index) {}
  const std::type_info& getType() const override { return typeid(unsigned int); }
  bool isType(const std::type_info& type) const override { return type == getType(); }
  Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> createChunk(std::size_t) const override { return {}; }
  unsigned int indexOf(const unsigned int& i) const override { return i; }
  Tresk::TreskTypePtr getComponentType() const override { return {}; }
  std::string chartComponentName(int) const override { return {}; }
  const std::type_info& getChartType() const override { return typeid(void); }
  int indexKind(unsigned int) const override { return 0; }
  int indexExtra(unsigned int) const override { return 0; }
};

TEST_F(FieldXmlTest, TheTypeIsThatOfTheRecordAndTheNumbersAreUnsigned) {
  Tresk::TreskTypeIndex index;
  index.multiplicity = 0xFFFFFFFFU;
  index.rank = -1;
  index.typeName = "not this";
  index.chartName = "a<b>";
  Tresk::TreskTypePtr record(new OddType(index));
  const FieldPtr field = makeFieldWithoutCollection();
  field->addInterface(Ostrel::StrongPtr<MemArrayProperties, Ostrel::InterfaceBase>(new MemArrayProperties(3, record)));
  EXPECT_EQ(field->xml(),
            "\t    <TRESKTYPE>\n"
            "\t     <TYPE>unsigned int</TYPE>\n"
            "\t     <MULTIPLICITY>4294967295</MULTIPLICITY>\n"
            "\t     <RANK>4294967295</RANK>\n"
            "\t     <CHART>a<b></CHART>\n"
            "\t    <TRESKTYPE>\n"
            "\t    <FRAGMENTIDCOLLECTION/>\n"
            "\t   <NUMBEROFRAGMENTS>0</NUMBEROFRAGMENTS>\n");
  record.reset();
  EXPECT_EQ(field->xml(), std::string(nothingKnown) + "\t   <NUMBEROFRAGMENTS>0</NUMBEROFRAGMENTS>\n")
      << "properties whose record is gone";
}

// ------------------------------------------------------------------------------------------------------- behaviour

TEST_F(FieldXmlTest, NothingIsProducedOrTouched) {
  const FieldPtr field = makeField();
  int nRuns = 0;
  const auto creator = TreskTest::makeFunctional([&nRuns] {
    ++nRuns;
    return makeArray(3);
  });
  field->setCreator(creator, field->makeFragmentID("a"));
  const long long clock = TreskTest::clockNow();
  const std::string text = field->xml();
  EXPECT_EQ(nRuns, 0);
  EXPECT_EQ(creator->nProductions, 0);
  EXPECT_EQ(TreskTest::clockNow(), clock);
  field->getData(field->getFragmentID("a"));
  EXPECT_NE(field->xml(), text);
  EXPECT_EQ(nRuns, 1);
}

TEST_F(FieldXmlTest, CreatorsMayReadTheFieldWhileTheyAreAsked) {
  const FieldPtr field = makeFieldWithoutCollection();
  const auto creator = makeForgetful();
  unsigned long long nSeen = 0;
  creator->onQuestion = [&nSeen, field = &*field] { nSeen += field->nFragments(); };
  field->setCreatorViaFragmentIndex(0, creator);
  field->xml();
  EXPECT_GT(nSeen, 0U);
  creator->onQuestion = nullptr;
}

}  // namespace
