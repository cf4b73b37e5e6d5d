// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/FragmentIDCollection.hpp>

#include <tresk/field/FragmentIDCollectionProvider.hpp>

#include <support/BreakpointRecorder.hpp>
#include <support/FieldDoubles.hpp>
#include <support/NameArray.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Tresk::FragmentID;
using Tresk::FragmentIDCollection;
using Tresk::MemArray;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::makeNames;
using TreskTest::NameArrayPtr;

using FragmentIDCollectionTest = TreskTest::RecordBalanceTest;
constexpr unsigned int None = 0xFFFFFFFFU;

FragmentIDCollectionPtr makeCollection() { return FragmentIDCollectionPtr(new FragmentIDCollection); }
FragmentIDCollectionPtr makeFixed(const NameArrayPtr& names) {
  return FragmentIDCollectionPtr(new FragmentIDCollection(names));
}
FragmentIDPtr makeFree(const std::string& name) { return FragmentIDPtr(new FragmentID(name)); }
FragmentIDPtr makeOrphan(const std::string& name) { return makeCollection()->makeFragmentID(name); }
FragmentIDPtr makeDead() {
  Ostrel::WeakPtr<FragmentID, FragmentID> observer;
  { observer = makeFree("gone"); }
  return FragmentIDPtr(observer);
}

TEST_F(FragmentIDCollectionTest, IsCountedAndItsProviderIsAnInterface) {
  EXPECT_TRUE((std::is_base_of_v<Ostrel::ReferenceBase<FragmentIDCollection>, FragmentIDCollection>));
  using Provider = Tresk::FragmentIDCollectionProvider;
  EXPECT_TRUE(std::is_abstract_v<Provider>);
  EXPECT_FALSE(std::has_virtual_destructor_v<Provider>);
  EXPECT_EQ(sizeof(Provider), sizeof(void*)) << "no fields";
  EXPECT_TRUE(
      (std::is_same_v<decltype(&Provider::getFragmentIDCollection), FragmentIDCollectionPtr (Provider::*)() const>));
}

TEST_F(FragmentIDCollectionTest, BeginsEmptyAndIrregular) {
  const auto collection = makeCollection();
  EXPECT_EQ(collection->nFragmentIDs(), 0U);
  EXPECT_EQ(collection->getShape().Dims(), 0);
  EXPECT_EQ(collection->getShape().getExtents(), nullptr);
  EXPECT_TRUE(collection->getFragmentIDs().empty());
  EXPECT_FALSE(collection->getFragmentIDArray());
}

// --------------------------------------------------------------------------------------------------- from an array

TEST_F(FragmentIDCollectionTest, AnArrayOfNamesGivesAFixedCollectionInStorageOrder) {
  const auto collection = makeFixed(makeNames({2, 3}, {"a", "b", "c", "d", "e", "f"}));
  EXPECT_EQ(collection->nFragmentIDs(), 6U);
  EXPECT_EQ(collection->getShape().str(), "2x3");
  for (unsigned int i = 0; i < 6; ++i) {
    const FragmentIDPtr fragment = collection->findFragmentID(i);
    ASSERT_TRUE(fragment);
    EXPECT_EQ(fragment->getName(), std::string(1, static_cast<char>('a' + i)));
    EXPECT_EQ(fragment->getNumericalID(), i);
    EXPECT_TRUE(fragment->getOwner() == collection);
    EXPECT_EQ(collection->findNumericalIDByName(fragment->getName()), i);
  }
  EXPECT_EQ(collection.strongCount(), 1) << "fragments hold their collection weakly";
}

TEST_F(FragmentIDCollectionTest, ANameThatOccursTwiceMakesTwoFragmentsAndIsFoundAtTheLater) {
  const auto collection = makeFixed(makeNames({3}, {"a", "b", "a"}));
  EXPECT_EQ(collection->nFragmentIDs(), 3U);
  EXPECT_EQ(collection->findFragmentID(0)->getName(), "a");
  EXPECT_EQ(collection->findFragmentID(2)->getName(), "a");
  EXPECT_FALSE(collection->findFragmentID(0) == collection->findFragmentID(2));
  EXPECT_EQ(collection->findNumericalIDByName("a"), 2U);
  EXPECT_EQ(collection->iterate([](const FragmentIDPtr&, int, const std::string&) { return true; }), 2U);
}

TEST_F(FragmentIDCollectionTest, AnArrayOfRankZeroLeavesTheCollectionIrregular) {
  // A copy of a size of rank 0 has no array of extents.
  const auto collection = makeFixed(makeNames({}, {"only"}));
  EXPECT_EQ(collection->getShape().getExtents(), nullptr);
  EXPECT_EQ(collection->nFragmentIDs(), 0U);
  EXPECT_EQ(collection->getID(makeFree("a")), 0U) << "it takes new names";
}

TEST_F(FragmentIDCollectionTest, NamesThatAreMissingLeaveSlotsWithoutFragment) {
  const auto collection = makeFixed(makeNames({3}, {"a"}));
  EXPECT_EQ(collection->nFragmentIDs(), 3U);
  EXPECT_TRUE(collection->findFragmentID(0));
  EXPECT_FALSE(collection->findFragmentID(1));
  EXPECT_EQ(collection->getID(FragmentIDPtr()), 1U);
}

TEST_F(FragmentIDCollectionTest, ANameArrayWithoutNamesMakesAnEmptyFixedCollection) {
  const auto collection = makeFixed(makeNames({0}, {}));
  EXPECT_EQ(collection->nFragmentIDs(), 0U);
  EXPECT_EQ(collection->getID(makeFree("a")), None);
  EXPECT_EQ(collection->makeFragmentID("a")->getNumericalID(), 0U);
}

TEST_F(FragmentIDCollectionTest, WithoutAnArrayOrItsChunkTheCollectionCanBeDestroyedAndHasNoSlots) {
  for (const NameArrayPtr& names : {NameArrayPtr(), NameArrayPtr(new TreskTest::NameArray({2}))}) {
    const auto collection = makeFixed(names);
    EXPECT_EQ(collection->nFragmentIDs(), 0U);
    EXPECT_EQ(collection->getShape().getExtents(), nullptr);
    EXPECT_FALSE(collection->findFragmentID(0));
    EXPECT_EQ(collection->findNumericalIDByName("a"), None);
    EXPECT_FALSE(collection->getFragmentIDArray());
  }
}

// ------------------------------------------------------------------------------------------------------ making names

TEST_F(FragmentIDCollectionTest, MadeFragmentsAreNumberedInOrderAndFoundAgain) {
  const auto collection = makeCollection();
  const FragmentIDPtr a = collection->makeFragmentID("a");
  const FragmentIDPtr b = collection->makeFragmentID("b");
  EXPECT_EQ(a->getNumericalID(), 0U);
  EXPECT_EQ(b->getNumericalID(), 1U);
  EXPECT_TRUE(a->getOwner() == collection);
  EXPECT_TRUE(collection->makeFragmentID("a") == a);
  EXPECT_EQ(collection->nFragmentIDs(), 2U);
  EXPECT_EQ(a.strongCount(), 2) << "the collection holds it strongly";
}

TEST_F(FragmentIDCollectionTest, MakingReturnsTheSlotItself) {
  const auto collection = makeCollection();
  FragmentIDPtr& slot = collection->makeFragmentID("a");
  EXPECT_EQ(&slot, &collection->getFragmentIDs()[0]);
  EXPECT_EQ(&collection->makeFragmentID("a"), &slot);
}

TEST_F(FragmentIDCollectionTest, TheEmptyNameIsANameLikeAnyOther) {
  const auto collection = makeCollection();
  EXPECT_EQ(collection->makeFragmentID("")->getNumericalID(), 0U);
  EXPECT_EQ(collection->findNumericalIDByName(""), 0U);
}

TEST_F(FragmentIDCollectionTest, DroppingTheCollectionDropsItsFragments) {
  Ostrel::WeakPtr<FragmentID, FragmentID> observer;
  {
    const auto collection = makeCollection();
    observer = collection->makeFragmentID("a");
    ASSERT_TRUE(observer.isValid());
  }
  EXPECT_FALSE(observer.isValid());
}

// ---------------------------------------------------------------------------------------------------- the null case

TEST_F(FragmentIDCollectionTest, ANullFragmentTakesAnEmptySlotAndTheSameOneAgain) {
  const auto collection = makeCollection();
  EXPECT_EQ(collection->getID(FragmentIDPtr()), 0U);
  EXPECT_EQ(collection->nFragmentIDs(), 1U);
  EXPECT_FALSE(collection->findFragmentID(0));
  EXPECT_EQ(collection->getID(FragmentIDPtr()), 0U);
  EXPECT_EQ(collection->nFragmentIDs(), 1U);
}

TEST_F(FragmentIDCollectionTest, TheSlotOfTheUnnamedFragmentStaysReserved) {
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  EXPECT_EQ(collection->getID(FragmentIDPtr()), 1U);
  EXPECT_EQ(collection->makeFragmentID("b")->getNumericalID(), 2U);
  EXPECT_EQ(collection->getID(FragmentIDPtr()), 1U);
  EXPECT_EQ(collection->findNumericalIDByName(""), None) << "it has no name";
}

TEST_F(FragmentIDCollectionTest, ADeadFragmentCountsAsNull) {
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  EXPECT_EQ(collection->getID(makeDead()), 1U);
  EXPECT_EQ(collection->findID(makeDead()), 0U);
}

TEST_F(FragmentIDCollectionTest, ANullFragmentGrowsAFixedCollectionWhenAllSlotsAreTaken) {
  const auto collection = makeFixed(makeNames({2}, {"a", "b"}));
  EXPECT_EQ(collection->getID(FragmentIDPtr()), 2U);
  EXPECT_EQ(collection->nFragmentIDs(), 3U);
  EXPECT_EQ(collection->getID(FragmentIDPtr()), 2U);
}

TEST_F(FragmentIDCollectionTest, FindingTheNumberOfANullFragmentGivesZeroThoughItMayBeTaken) {
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  EXPECT_EQ(collection->findID(FragmentIDPtr()), 0U);
  EXPECT_EQ(collection->nFragmentIDs(), 1U) << "finding registers nothing";
}

// ------------------------------------------------------------------------------------------------ owned and foreign

TEST_F(FragmentIDCollectionTest, AFragmentOfThisCollectionHasItsNumber) {
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  const FragmentIDPtr b = collection->makeFragmentID("b");
  const TreskTest::BreakpointRecorder recorder;
  EXPECT_EQ(collection->getID(b), 1U);
  EXPECT_EQ(collection->findID(b), 1U);
  EXPECT_TRUE(recorder.messages().empty());
  EXPECT_EQ(collection->nFragmentIDs(), 2U);
}

TEST_F(FragmentIDCollectionTest, AForeignFragmentKeepsItsNumberAndTheCallOnlyWarns) {
  const auto home = makeCollection();
  home->makeFragmentID("x");
  const FragmentIDPtr foreign = home->makeFragmentID("a");
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  const TreskTest::BreakpointRecorder recorder;
  EXPECT_EQ(collection->getID(foreign), 1U);
  EXPECT_EQ(recorder.messages(),
            std::vector<std::string>{"FragmentIDCollection::getID(): WARNING: accessing fragmentID collection from an "
                                     "external fragment"});
  EXPECT_TRUE(foreign->getOwner() == home);
  EXPECT_EQ(collection->nFragmentIDs(), 1U);
  EXPECT_EQ(collection->findID(foreign), 1U) << "finding does not look at the owner at all";
  EXPECT_EQ(recorder.messages().size(), 1U);
}

// --------------------------------------------------------------------------------------------------------- adoption

TEST_F(FragmentIDCollectionTest, AFreeFragmentOfAnUnknownNameIsTakenIn) {
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  const FragmentIDPtr fragment = makeFree("b");
  const TreskTest::BreakpointRecorder recorder;
  EXPECT_EQ(collection->getID(fragment), 1U);
  EXPECT_TRUE(fragment->getOwner() == collection);
  EXPECT_EQ(fragment->getNumericalID(), 1U);
  EXPECT_TRUE(collection->findFragmentID(1) == fragment);
  EXPECT_EQ(collection->findNumericalIDByName("b"), 1U);
  EXPECT_EQ(collection->getID(fragment), 1U);
  EXPECT_TRUE(recorder.messages().empty());
}

TEST_F(FragmentIDCollectionTest, AFreeFragmentOfAKnownNameTakesTheNumberAndTheSlotKeepsTheFirstObject) {
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  const FragmentIDPtr first = collection->makeFragmentID("b");
  const FragmentIDPtr second = makeFree("b");
  EXPECT_EQ(collection->getID(second), 1U);
  EXPECT_TRUE(second->getOwner() == collection);
  EXPECT_EQ(second->getNumericalID(), 1U);
  EXPECT_TRUE(collection->findFragmentID(1) == first);
  EXPECT_TRUE(collection->findFragmentIDByName("b") == first);
  EXPECT_EQ(collection->nFragmentIDs(), 2U);
}

TEST_F(FragmentIDCollectionTest, AnOrphanIsTakenInLikeAFreeFragment) {
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  const FragmentIDPtr unknown = makeOrphan("b");
  EXPECT_EQ(collection->getID(unknown), 1U);
  EXPECT_TRUE(unknown->getOwner() == collection);
  const FragmentIDPtr known = makeOrphan("a");
  EXPECT_EQ(collection->getID(known), 0U);
  EXPECT_TRUE(known->getOwner() == collection);
}

TEST_F(FragmentIDCollectionTest, AFixedCollectionRefusesAnUnknownFreeFragmentAndStaysAsItIs) {
  const auto collection = makeFixed(makeNames({2}, {"a", "b"}));
  const FragmentIDPtr fragment = makeFree("c");
  EXPECT_EQ(collection->getID(fragment), None);
  EXPECT_EQ(fragment->getOwner().getRecord(), nullptr);
  EXPECT_EQ(fragment->getNumericalID(), 0U);
  EXPECT_EQ(collection->nFragmentIDs(), 2U);
  EXPECT_EQ(collection->findNumericalIDByName("c"), None);
  EXPECT_EQ(collection->getID(makeFree("b")), 1U) << "a known name is welcome";
}

TEST_F(FragmentIDCollectionTest, MakingTheRefusedNameAddsASlotBeyondTheShape) {
  const auto collection = makeFixed(makeNames({2}, {"a", "b"}));
  const FragmentIDPtr fragment = makeFree("c");
  ASSERT_EQ(collection->getID(fragment), None);
  EXPECT_EQ(collection->makeFragmentID("c")->getNumericalID(), 2U);
  EXPECT_EQ(collection->getShape().str(), "2");
  EXPECT_EQ(collection->nFragmentIDs(), 3U);
  EXPECT_EQ(collection->getID(fragment), 2U);
}

// ---------------------------------------------------------------------------------------------------------- lookups

TEST_F(FragmentIDCollectionTest, LookupsOfTheUnknownAnswerNothing) {
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  EXPECT_EQ(collection->findFragmentID(1).getRecord(), nullptr);
  EXPECT_EQ(collection->findFragmentID(None).getRecord(), nullptr);
  EXPECT_EQ(collection->findFragmentIDByName("b").getRecord(), nullptr);
  EXPECT_EQ(collection->findNumericalIDByName("b"), None);
  EXPECT_EQ(FragmentIDCollection::NoNumber, None);
  EXPECT_EQ(collection->nFragmentIDs(), 1U);
}

TEST_F(FragmentIDCollectionTest, FindingDoesNotRegister) {
  const auto collection = makeCollection();
  const FragmentIDPtr fragment = makeFree("a");
  EXPECT_EQ(collection->findID(fragment), 0U);
  EXPECT_EQ(collection->nFragmentIDs(), 0U);
  EXPECT_EQ(fragment->getOwner().getRecord(), nullptr);
}

TEST_F(FragmentIDCollectionTest, IterationVisitsEachNameOnceWithSlotAndNumber) {
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  collection->getID(FragmentIDPtr());
  collection->makeFragmentID("b");
  std::map<std::string, int> visited;
  const unsigned int nTrue =
      collection->iterate([&](const FragmentIDPtr& fragment, int number, const std::string& name) {
        EXPECT_TRUE(fragment == collection->findFragmentID(static_cast<unsigned int>(number)));
        EXPECT_EQ(fragment->getName(), name);
        EXPECT_TRUE(visited.emplace(name, number).second);
        return true;
      });
  EXPECT_EQ(nTrue, 2U) << "the slot without a name is not visited";
  EXPECT_EQ(visited, (std::map<std::string, int>{{"a", 0}, {"b", 2}}));
}

TEST_F(FragmentIDCollectionTest, IterationGivesTheNameOfTheEntryAndTheObjectOfTheSlot) {
  const auto collection = makeCollection();
  FragmentIDPtr& slot = collection->makeFragmentID("a");
  slot = makeFree("something else");
  collection->iterate([](const FragmentIDPtr& fragment, int, const std::string& name) {
    EXPECT_EQ(name, "a");
    EXPECT_EQ(fragment->getName(), "something else");
    return true;
  });
}

TEST_F(FragmentIDCollectionTest, ARefusalEndsTheIterationAndIsNotCounted) {
  const auto collection = makeCollection();
  for (const char* const name : {"a", "b", "c", "d"}) collection->makeFragmentID(name);
  int nCalls = 0;
  EXPECT_EQ(collection->iterate([&nCalls](const FragmentIDPtr&, int, const std::string&) { return ++nCalls < 3; }), 2U);
  EXPECT_EQ(nCalls, 3);
}

TEST_F(FragmentIDCollectionTest, AnEmptyFunctionRaisesAtTheFirstEntryOnly) {
  const auto collection = makeCollection();
  const std::function<bool(const FragmentIDPtr&, int, const std::string&)> none;
  EXPECT_EQ(collection->iterate(none), 0U);
  collection->makeFragmentID("a");
  EXPECT_THROW(collection->iterate(none), std::bad_function_call);
}

TEST_F(FragmentIDCollectionTest, AnExceptionOfTheVisitorPasses) {
  const auto collection = makeCollection();
  collection->makeFragmentID("a");
  EXPECT_THROW(collection->iterate(
                   [](const FragmentIDPtr&, int, const std::string&) -> bool { throw std::runtime_error("enough"); }),
               std::runtime_error);
}

// -------------------------------------------------------------------------------------------------- shown as an array

TEST_F(FragmentIDCollectionTest, AFixedCollectionShowsItsFragmentsAsAnArrayOfItsShape) {
  const std::vector<std::string> names{"a", "b", "c", "d", "e", "f", "g", "h"};
  const auto line = makeFixed(makeNames({8}, names))->getFragmentIDArray();
  const auto plane = makeFixed(makeNames({4, 2}, names))->getFragmentIDArray();
  const auto cube = makeFixed(makeNames({2, 2, 2}, names))->getFragmentIDArray();
  ASSERT_TRUE(line && plane && cube);
  EXPECT_EQ(line->getSize().str(), "8");
  EXPECT_EQ(plane->getSize().str(), "4x2");
  EXPECT_EQ(cube->getSize().str(), "2x2x2");
  EXPECT_NE((dynamic_cast<MemArray<1, FragmentIDPtr>*>(line.get())), nullptr);
  EXPECT_NE((dynamic_cast<MemArray<2, FragmentIDPtr>*>(plane.get())), nullptr);
  EXPECT_NE((dynamic_cast<MemArray<3, FragmentIDPtr>*>(cube.get())), nullptr);
  EXPECT_EQ(cube->last()->getName(), "h");
  EXPECT_EQ(cube->getCreator().getRecord(), nullptr);
  EXPECT_FALSE(cube->isOnCacheList());
}

TEST_F(FragmentIDCollectionTest, ARankAboveThreeIsNotShown) {
  EXPECT_FALSE(makeFixed(makeNames({1, 1, 1, 1}, {"a"}))->getFragmentIDArray());
}

TEST_F(FragmentIDCollectionTest, TheArraySharesTheStorageOfTheCollection) {
  const auto collection = makeFixed(makeNames({2}, {"a", "b"}));
  const auto array = collection->getFragmentIDArray();
  EXPECT_EQ(array->getDataPointer(), static_cast<const void*>(collection->getFragmentIDs().data()));
  EXPECT_EQ(collection->findFragmentID(0).strongCount(), 2) << "no element is copied";
}

TEST_F(FragmentIDCollectionTest, SlotsBeyondTheShapeAreTheExcessOfTheArraysView) {
  const auto collection = makeFixed(makeNames({2}, {"a", "b"}));
  collection->makeFragmentID("c");
  const auto array = collection->getFragmentIDArray();
  EXPECT_EQ(array->nElements(), 2U);
  EXPECT_EQ(array->getChunk()->size(), 3U);
  EXPECT_EQ(array->last()->getName(), "b");
  EXPECT_EQ(array->getHyperslab().tail, 1U);
}

TEST_F(FragmentIDCollectionTest, AnArrayShownStaysReadableWhileTheCollectionGrows) {
  const auto collection = makeFixed(makeNames({2}, {"a", "b"}));
  const auto array = collection->getFragmentIDArray();
  for (int i = 0; i < 100; ++i) collection->makeFragmentID("further " + std::to_string(i));
  for (int i = 0; i < 3; ++i) collection->getID(FragmentIDPtr());
  EXPECT_EQ(collection->nFragmentIDs(), 103U);
  EXPECT_EQ(collection->findFragmentID(0)->getName(), "a");
  EXPECT_EQ(array->first()->getName(), "a");
  EXPECT_EQ(array->last()->getName(), "b");
  EXPECT_TRUE(array->first() == collection->findFragmentID(0));
}

TEST_F(FragmentIDCollectionTest, AnArrayShownOutlivesTheCollection) {
  Ostrel::StrongPtr<Tresk::TypedArray<FragmentIDPtr>, Ostrel::Cacheable> array;
  {
    const auto collection = makeFixed(makeNames({2}, {"a", "b"}));
    array = collection->getFragmentIDArray();
  }
  EXPECT_EQ(array->last()->getName(), "b");
  EXPECT_FALSE(array->last()->getOwner().isValid());
}

}  // namespace
