// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/BaseSpace.hpp>
#include <tresk/field/ComputationalField.hpp>
#include <tresk/field/FieldCollection.hpp>
#include <tresk/field/Fragment.hpp>
#include <tresk/field/FragmentIDContainer.hpp>
#include <tresk/field/MemoryLedger.hpp>
#include <tresk/field/RegularlyFragmentedField.hpp>

#include <input/BadInput.hpp>
#include <support/BreakpointRecorder.hpp>
#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Tresk::addFields;
using Tresk::DynamicSize;
using Tresk::Field;
using Tresk::FieldCollection;
using Tresk::FieldWeakPtr;
using Tresk::Fragment;
using Tresk::FragmentID;
using Tresk::FragmentIDCollection;
using Tresk::FragmentIDContainer;
using Tresk::MemArray;
using Tresk::MemoryLedger;
using Tresk::MultiIndex;
using TreskTest::CreatorPtr;
using TreskTest::CreatorWeakPtr;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::Greatest;
using TreskTest::HalfWidth;
using TreskTest::killed;
using TreskTest::makeArray;
using TreskTest::makeFixed;
using TreskTest::makeForgetful;
using TreskTest::makeFragment;
using TreskTest::makeNames;
using TreskTest::MemBasePtr;
using TreskTest::NameArray;
using TreskTest::NameArrayPtr;
using TreskTest::textOf;
using TreskTest::unnamed;

using FieldFamilyInput = TreskTest::RecordBalanceTest;
using Blocks = Tresk::RegularlyFragmentedField<3>;
using BlocksPtr = Ostrel::StrongPtr<Blocks, Tresk::CreatorContainer>;

constexpr unsigned int NoNumber = FragmentIDCollection::NoNumber;
constexpr const char* TooLarge = "cannot create std::vector larger than max_size()";

FragmentIDCollectionPtr makeCollection(const std::vector<std::string>& names = {}) {
  const FragmentIDCollectionPtr collection(new FragmentIDCollection);
  for (const std::string& name : names) collection->makeFragmentID(name);
  return collection;
}
/// Collections that have no slots for a name: one of no names, and one that was made without an array.
std::vector<FragmentIDCollectionPtr> emptyCollections() {
  return {makeCollection(), FragmentIDCollectionPtr(new FragmentIDCollection(NameArrayPtr()))};
}

FieldPtr makeField() { return FieldPtr(new Field); }
/// A field of the collection with an array for its first fragment.
FieldPtr makeField(const FragmentIDCollectionPtr& collection, const MemBasePtr& data) {
  const FieldPtr field(new Field(collection));
  field->setPersistentData(data, collection->findFragmentID(0), {}, "");
  return field;
}

// --------------------------------------------------------------------------------------------- fragment collections

TEST_F(FieldFamilyInput, FragmentIDConstruction) {
  EXPECT_EQ(makeFragment("")->getName(), "");
  EXPECT_FALSE(makeFragment("a")->getOwner());
  const FragmentIDPtr orphan = makeCollection({"a"})->findFragmentID(0);
  EXPECT_FALSE(orphan->getOwner());
  EXPECT_EQ(orphan->getNumericalID(), 0U);
  EXPECT_EQ(makeFragment("<")->xml(), "\t     <NUMERICALID>0</NUMERICALID>\n\t     <NAME><</NAME>\n");
}

TEST_F(FieldFamilyInput, CollectionConstruction) {
  for (const NameArrayPtr& names :
       {NameArrayPtr(), killed(makeNames({1}, {"a"})), NameArrayPtr(new NameArray(DynamicSize{3}))}) {
    const FragmentIDCollectionPtr collection(new FragmentIDCollection(names));
    EXPECT_EQ(collection->nFragmentIDs(), 0U);
    EXPECT_EQ(collection->getShape().Dims(), 0);
  }
  EXPECT_EQ(makeFixed({0}, {})->nFragmentIDs(), 0U);
  const FragmentIDCollectionPtr withGaps = makeFixed({3}, {"a"});
  EXPECT_EQ(withGaps->nFragmentIDs(), 3U);
  EXPECT_FALSE(withGaps->findFragmentID(2));
  EXPECT_EQ(makeFixed({1, 1, 1, 1, 1}, {"a"})->getShape().Dims(), 5);
  EXPECT_EQ(textOf<std::length_error>([] { makeFixed({Greatest}, {"a"}); }), TooLarge);
}

TEST_F(FieldFamilyInput, CollectionMakeFragmentID) {
  for (const FragmentIDCollectionPtr& collection : emptyCollections()) {
    EXPECT_EQ(collection->makeFragmentID("")->getNumericalID(), 0U);
    EXPECT_EQ(collection->makeFragmentID(""), collection->findFragmentID(0));
  }
}

TEST_F(FieldFamilyInput, CollectionReserve) {
  for (const FragmentIDCollectionPtr& collection : emptyCollections()) {
    collection->reserve(0);
    EXPECT_EQ(textOf<std::length_error>([&collection] { collection->reserve(Greatest); }),
              "FragmentIDCollection::reserve: no room for 18446744073709551615 fragments");
    EXPECT_EQ(collection->nFragmentIDs(), 0U);
  }
}

TEST_F(FieldFamilyInput, CollectionGetID) {
  const TreskTest::BreakpointRecorder warnings;
  const FragmentIDCollectionPtr collection = makeCollection({"a"});
  EXPECT_EQ(collection->getID(unnamed()), 1U);
  EXPECT_EQ(collection->getID(killed(makeFragment("a"))), 1U);
  EXPECT_EQ(collection->getID(makeFragment("")), 2U);
  EXPECT_TRUE(warnings.messages().empty());
  const FragmentIDCollectionPtr other = makeCollection({"x", "y", "z", "u"});
  EXPECT_EQ(collection->getID(other->findFragmentID(3)), 3U);
  ASSERT_EQ(warnings.messages().size(), 1U);
  EXPECT_NE(warnings.messages()[0].find("external fragment"), std::string::npos);
  EXPECT_EQ(makeFixed({1}, {"a"})->getID(makeFragment("b")), NoNumber);
  EXPECT_EQ(emptyCollections()[1]->getID(unnamed()), 0U);
}

TEST_F(FieldFamilyInput, CollectionLookups) {
  const FragmentIDCollectionPtr other = makeCollection({"x", "y"});
  for (const FragmentIDCollectionPtr& collection : emptyCollections()) {
    EXPECT_EQ(collection->findID(unnamed()), 0U);
    EXPECT_EQ(collection->findID(killed(makeFragment("a"))), 0U);
    EXPECT_EQ(collection->findID(makeFragment("a")), 0U);
    EXPECT_EQ(collection->findID(other->findFragmentID(1)), 1U);
    for (const unsigned int number : {0U, NoNumber}) EXPECT_FALSE(collection->findFragmentID(number));
    for (const char* const name : {"", "a"}) {
      EXPECT_FALSE(collection->findFragmentIDByName(name));
      EXPECT_EQ(collection->findNumericalIDByName(name), NoNumber);
    }
    EXPECT_TRUE(collection->getFragmentIDs().empty());
    EXPECT_NE(collection->xml().find("<NUMBEROFFRAGMENTIDS>0<"), std::string::npos);
  }
}

TEST_F(FieldFamilyInput, CollectionIterate) {
  const auto never = [](const FragmentIDPtr&, int, const std::string&) -> bool { throw std::logic_error("called"); };
  for (const FragmentIDCollectionPtr& collection : emptyCollections()) EXPECT_EQ(collection->iterate(never), 0U);
  EXPECT_EQ(textOf<std::bad_function_call>([] { makeCollection({"a"})->iterate({}); }), "bad_function_call");
}

TEST_F(FieldFamilyInput, CollectionGetFragmentIDArray) {
  for (const FragmentIDCollectionPtr& collection : emptyCollections()) EXPECT_FALSE(collection->getFragmentIDArray());
  EXPECT_FALSE(makeCollection({"a"})->getFragmentIDArray());
  EXPECT_FALSE(makeFixed({1, 1, 1, 1}, {"a"})->getFragmentIDArray());
  EXPECT_EQ(makeFixed({0, 4}, {})->getFragmentIDArray()->nElements(), 0U);
  const auto gap = makeFixed({2}, {"a"})->getFragmentIDArray();
  EXPECT_FALSE(gap->last());
}

TEST_F(FieldFamilyInput, Container) {
  FragmentIDContainer container;
  EXPECT_FALSE(container.getFirst());
  EXPECT_EQ(container.createFragmentID("")->getName(), "");
  EXPECT_TRUE(container.addFragmentID(FragmentIDPtr()));  // entered like any other pointer
  EXPECT_FALSE(container.addFragmentID(FragmentIDPtr()));
  EXPECT_TRUE(container.addFragmentID(killed(makeFragment("a"))));
  EXPECT_EQ(container.nFragments(), 2U);
  EXPECT_FALSE(container.getFirst());
}

// ------------------------------------------------------------------------------------------------------ named things

template <class Entries, class Pointer>
class CountingIterator : public Entries::Iterator {
 public:
  bool apply(const std::string&, Pointer& entry) override {
    nEntries += entry ? 0 : 1;
    return true;
  }
  unsigned int nEntries = 0;  ///< those of nothing
};

TEST_F(FieldFamilyInput, FragmentOfNothing) {
  Fragment fragment;
  CountingIterator<Fragment, CreatorPtr> iterator;
  EXPECT_EQ(fragment.iterate(iterator), 0U);
  for (const char* const name : {"", "a"}) EXPECT_FALSE(fragment(name));
  EXPECT_FALSE(fragment[""]);
  fragment["dead"] = killed(CreatorPtr(makeForgetful()));
  EXPECT_FALSE(fragment("dead"));
  EXPECT_EQ(fragment.iterate(iterator), 2U);
  EXPECT_EQ(iterator.nEntries, 2U);
}

TEST_F(FieldFamilyInput, FieldCollectionOfNothing) {
  FieldCollection fields;
  CountingIterator<FieldCollection, FieldPtr> iterator;
  EXPECT_EQ(fields.iterate(iterator), 0U);
  for (const char* const name : {"", "a"}) EXPECT_FALSE(fields(name));
  EXPECT_FALSE(fields[""]);
  fields["dead"] = killed(makeField());
  EXPECT_FALSE(fields("dead"));
  EXPECT_EQ(fields.iterate(iterator), 2U);
  Ostrel::Ageable age = Ostrel::Ageable::Ooooold;
  EXPECT_TRUE(fields.FieldsAreOlderThan(age));
  fields.updateAge(age);
  EXPECT_EQ(age, Ostrel::Ageable::Ooooold);
}

// --------------------------------------------------------------------------------------------------- fields of blocks

TEST_F(FieldFamilyInput, BlocksConstruction) {
  const MultiIndex<3> extents(2, 1, 1);
  const FragmentIDCollectionPtr deadCollection = killed(makeCollection());
  for (const FragmentIDCollectionPtr& collection : {FragmentIDCollectionPtr(), deadCollection})
    EXPECT_EQ(BlocksPtr(new Blocks(extents, collection, ""))->getFragmentIDs().size(), 2U);
  for (const FieldWeakPtr& sibling : {FieldWeakPtr(), FieldWeakPtr(killed(makeField()))})
    EXPECT_EQ(BlocksPtr(new Blocks(extents, sibling, ""))->getFragmentID("1x0x0")->getNumericalID(), 1U);
  // Taken as it is.
  EXPECT_EQ(BlocksPtr(new Blocks(extents, makeCollection({"a", "b", "c"}), ""))->getFragmentIDs().size(), 3U);
  EXPECT_TRUE(BlocksPtr(new Blocks(MultiIndex<3>(0, Greatest, Greatest), ""))->getFragmentIDs().empty());
  for (const MultiIndex<3>& vast : {MultiIndex<3>(Greatest, 1, 1), MultiIndex<3>(HalfWidth, HalfWidth, 1)})
    EXPECT_EQ(textOf<std::length_error>([&vast] { Blocks field(vast, ""); }), TooLarge);
}

TEST_F(FieldFamilyInput, BlocksOutsideTheExtents) {
  const BlocksPtr field(new Blocks(MultiIndex<3>(2, 2, 1), ""));
  for (const MultiIndex<3>& index :
       {MultiIndex<3>(2, 0, 0), MultiIndex<3>(0, 2, 0), MultiIndex<3>(0, 0, 1), MultiIndex<3>(Greatest, 0, 0)}) {
    EXPECT_FALSE(field->getFragmentID(index));
    EXPECT_FALSE(field->getCreator(index));
  }
  // The numbers of other blocks, or of none.
  EXPECT_TRUE(field->validate(MultiIndex<3>(2, 0, 0)));
  EXPECT_FALSE(field->validate(MultiIndex<3>(0, 2, 0)));
  EXPECT_TRUE(field->validate(MultiIndex<3>(HalfWidth, 0, 0)));  // cut to 32 bits
  EXPECT_FALSE(field->getCreatorReference(MultiIndex<3>(0, 0, 1)));
  EXPECT_EQ(field->nFragments(), 1U);
}

TEST_F(FieldFamilyInput, NewRegularlyFragmentedField) {
  for (const DynamicSize& size : {DynamicSize(), DynamicSize{1, 1}, DynamicSize{1, 1, 1, 1}})
    EXPECT_FALSE(Tresk::newRegularlyFragmentedField(size));
  EXPECT_TRUE(Tresk::newRegularlyFragmentedField({0, 1, 1})->getFragmentIDs().empty());
  const DynamicSize vast{HalfWidth, HalfWidth, 1};
  EXPECT_EQ(textOf<std::length_error>([&vast] { Tresk::newRegularlyFragmentedField(vast); }), TooLarge);
}

// ---------------------------------------------------------------------------------------------------- computed fields

TEST_F(FieldFamilyInput, SumOfNoField) {
  const FragmentIDCollectionPtr collection = makeCollection({"a"});
  const FieldPtr field = makeField(collection, makeArray(2, 1));
  for (const FieldPtr& none : {FieldPtr(), killed(makeField())}) {
    EXPECT_EQ(addFields(none, none)->nFragments(), 0U);
    EXPECT_EQ(addFields(none, field)->nFragments(), 0U);
    const FieldPtr withoutRight = addFields(field, none);
    EXPECT_EQ(withoutRight->nFragments(), 1U);
    EXPECT_FALSE(withoutRight->getFirstData());
  }
  EXPECT_EQ(addFields(makeField(), field)->nFragments(), 0U);
  EXPECT_FALSE(addFields(field, makeField())->getFirstData());
}

TEST_F(FieldFamilyInput, SumOfOperandsThatDoNotFit) {
  const FragmentIDCollectionPtr collection = makeCollection({"a"});
  const FieldPtr field = makeField(collection, makeArray(2, 1));
  const CreatorWeakPtr nobody;
  const MemBasePtr integers(new MemArray<1, unsigned int>(MultiIndex<1>(2), nobody));
  const MemBasePtr ofRank4(new MemArray<4, double>(MultiIndex<4>(2, 1, 1, 1), nobody));
  const MemBasePtr withoutMemory(
      new MemArray<1, double>(Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>(), MultiIndex<1>(2), nobody));
  for (const MemBasePtr& wrong : {integers, ofRank4}) {
    EXPECT_EQ(addFields(makeField(collection, wrong), field)->nFragments(), 0U);
    EXPECT_FALSE(addFields(field, makeField(collection, wrong))->getFirstData());
  }
  EXPECT_FALSE(addFields(field, makeField(collection, makeArray(2, 1, 1)))->getFirstData());
  EXPECT_FALSE(addFields(makeField(collection, withoutMemory), field)->getFirstData());
  EXPECT_FALSE(addFields(field, makeField(collection, withoutMemory))->getFirstData());
  // A fragment of that name in another collection is another fragment.
  EXPECT_FALSE(addFields(field, makeField(makeCollection({"a"}), makeArray(2, 1)))->getFirstData());
}

// ----------------------------------------------------------------------------------------------------------- the rest

TEST_F(FieldFamilyInput, BaseSpaceAddDependency) {
  using Tresk::BaseSpaceDependency;
  const auto dead = killed(Tresk::BaseSpaceDependencyPtr(new BaseSpaceDependency));
  Tresk::BaseSpace space;
  for (const auto& dependency : {Tresk::BaseSpaceDependencyPtr(), dead}) {
    const auto before = dependency.weakCount();
    space.addDependency(dependency);
    EXPECT_EQ(dependency.weakCount(), before);
  }
}

TEST_F(FieldFamilyInput, Ledger) {
  const MemoryLedger nothing = MemoryLedger::of(std::vector<MemoryLedger::NamedField>());
  EXPECT_TRUE(nothing.fields.empty());
  EXPECT_EQ(nothing.total.nCreators(), 0U);
  EXPECT_FALSE(nothing.toText().empty());
  EXPECT_EQ(MemoryLedger::of(*makeField()).total.nCreators(), 0U);

  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, CreatorPtr());
  field->setCreatorViaFragmentIndex(1, killed(CreatorPtr(makeForgetful())));
  field->setCreatorViaFragmentIndex(2, makeForgetful());
  const std::vector<MemoryLedger::NamedField> fields = {
      {"null", FieldPtr()}, {"", field}, {"again", field}, {"dead", killed(makeField())}};
  for (const MemoryLedger& ledger : {MemoryLedger::of(fields), MemoryLedger::ofProcess(fields)}) {
    ASSERT_EQ(ledger.fields.size(), 1U);
    EXPECT_FALSE(ledger.fields[0].name.empty());
    EXPECT_EQ(ledger.fields[0].nCreators(), 1U);
    EXPECT_EQ(ledger.fields[0].unknown.nCreators, 1U);
  }
}

}  // namespace
