// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>
#include <tresk/field/FragmentIterator.hpp>
#include <tresk/field/FragmentSelector.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/foundation/Cache.hpp>

#include <input/BadInput.hpp>
#include <support/BreakpointRecorder.hpp>
#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Tresk::CachePtr;
using Tresk::Field;
using Tresk::FieldWeakPtr;
using Tresk::FragmentIDCollection;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::Greatest;
using TreskTest::HalfWidth;
using TreskTest::killed;
using TreskTest::makeArray;
using TreskTest::makeDeadArray;
using TreskTest::makeFixed;
using TreskTest::makeForgetful;
using TreskTest::makeFragment;
using TreskTest::MemBasePtr;
using TreskTest::textOf;
using TreskTest::unnamed;

using FieldInput = TreskTest::RecordBalanceTest;

constexpr unsigned int NoNumber = FragmentIDCollection::NoNumber;
constexpr const char* Inconsistent = "Field::setCreator(): Inconsistent Fragment ID Collection!";
constexpr const char* External =
    "FragmentIDCollection::getID(): WARNING: accessing fragmentID collection from an external fragment";

FieldPtr makeField() { return FieldPtr(new Field); }
/// A field without a collection.
FieldPtr makeBareField() { return FieldPtr(new Field(FragmentIDCollectionPtr())); }
/// A field with creators for fragments of these names.
FieldPtr makeField(const std::vector<std::string>& names) {
  const FieldPtr field = makeField();
  for (const std::string& name : names) {
    const FragmentIDPtr fragment = field->makeFragmentID(name);
    field->setCreator(makeForgetful(makeArray(1)), fragment);
  }
  return field;
}

CreatorPtr makeCreator() { return makeForgetful(makeArray(1)); }
CreatorPtr makeDeadCreator() { return killed(makeCreator()); }
FragmentIDPtr makeDeadFragment() { return killed(makeFragment("a")); }
CachePtr makeCache() { return CachePtr(new Ostrel::Cache); }

/// What `setCreator` throws; null if nothing.
const char* thrownBySetCreator(Field& field, const FragmentIDPtr& fragment) {
  try {
    field.setCreator(makeCreator(), fragment);
  } catch (const char* text) {
    return text;
  }
  return nullptr;
}

// ----------------------------------------------------------------------------------------------------- construction

TEST_F(FieldInput, ConstructionOnACollectionOrASibling) {
  EXPECT_FALSE(Field(FragmentIDCollectionPtr()).getFragmentIDCollection());
  EXPECT_FALSE(Field(killed(FragmentIDCollectionPtr(new FragmentIDCollection))).getFragmentIDCollection());
  EXPECT_FALSE(Field(FieldWeakPtr()).getFragmentIDCollection());
  EXPECT_FALSE(Field(FieldWeakPtr(killed(makeField()))).getFragmentIDCollection());
  const FieldPtr bare = makeBareField();
  const Tresk::FragmentIDCollectionProvider& provider = *bare;
  EXPECT_FALSE(Field(provider).getFragmentIDCollection());
}

TEST_F(FieldInput, ConstructionWithACreator) {
  for (const CreatorPtr& creator : {CreatorPtr(), makeDeadCreator()}) {
    const FieldPtr field(new Field(creator, FragmentIDCollectionPtr()));
    EXPECT_EQ(field->nFragments(), 1U);
    EXPECT_FALSE(field->getFirstCreator());
  }
  // What names no collection gives a new one.
  const FieldPtr sibling(new Field(makeCreator(), FieldWeakPtr(killed(makeField()))));
  EXPECT_TRUE(sibling->getFragmentIDCollection());
  EXPECT_TRUE(sibling->getCreator(unnamed()));
}

TEST_F(FieldInput, ConstructionWithData) {
  for (const MemBasePtr& data : {MemBasePtr(), makeDeadArray()}) {
    const FieldPtr field(new Field(data, FragmentIDCollectionPtr()));
    EXPECT_EQ(field->nFragments(), 0U);
    EXPECT_FALSE(field->getFragmentIDCollection());
  }
  for (const CachePtr& cache : {CachePtr(), killed(makeCache())}) {
    const MemBasePtr data = makeArray(1);
    const FieldPtr field(new Field(data, cache, FragmentIDCollectionPtr()));
    EXPECT_EQ(field->getFirstData(), data);
    EXPECT_FALSE(data->isOnCacheList());
  }
}

// -------------------------------------------------------------------------------------------------------- fragments

TEST_F(FieldInput, MakeFragmentID) {
  const FieldPtr field = makeField();
  EXPECT_EQ(field->makeFragmentID("")->getName(), "");
  EXPECT_EQ(field->findNumericalIDByName(""), 0U);
  const FieldPtr bare(new Field(killed(FragmentIDCollectionPtr(new FragmentIDCollection))));
  EXPECT_EQ(bare->makeFragmentID("a")->getNumericalID(), 0U);
  EXPECT_TRUE(bare->getFragmentIDCollection());
}

TEST_F(FieldInput, GetNumericalID) {
  const TreskTest::BreakpointRecorder warnings;
  const FieldPtr field = makeField({"a"});
  EXPECT_EQ(field->getNumericalID(unnamed()), 1U);  // the first slot without a fragment
  EXPECT_EQ(field->getNumericalID(makeDeadFragment()), 1U);
  EXPECT_TRUE(warnings.messages().empty());

  const FieldPtr other = makeField({"x", "y", "z"});
  EXPECT_EQ(field->getNumericalID(other->getFragmentID("z")), 2U);
  EXPECT_EQ(warnings.messages(), std::vector<std::string>{External});

  const FieldPtr fixed(new Field(makeFixed({1}, {"a"})));
  EXPECT_EQ(fixed->getNumericalID(makeFragment("b")), NoNumber);
  const FieldPtr bare = makeBareField();
  EXPECT_EQ(bare->getNumericalID(other->getFragmentID("z")), 2U);
  EXPECT_EQ(bare->getFragmentIDCollection(), other->getFragmentIDCollection());
}

TEST_F(FieldInput, FindNumericalID) {
  const FieldPtr field = makeField({"a", "b"});
  const FieldPtr other = makeField({"x", "y", "z"});
  const FieldPtr bare = makeBareField();
  for (const FieldPtr& asked : {field, bare}) {
    EXPECT_EQ(asked->findNumericalID(unnamed()), 0U);
    EXPECT_EQ(asked->findNumericalID(makeDeadFragment()), 0U);
  }
  EXPECT_EQ(field->findNumericalID(other->getFragmentID("z")), 2U);
  EXPECT_EQ(field->findNumericalID(makeFragment("b")), 0U);
  EXPECT_EQ(bare->findNumericalID(other->getFragmentID("z")), NoNumber);
  EXPECT_EQ(field->getFragmentIDCollection()->nFragmentIDs(), 2U);
}

TEST_F(FieldInput, LookupByName) {
  const FieldPtr bare = makeBareField();
  for (const FieldPtr& field : {makeField(), makeField({"a"}), bare}) {
    for (const char* const name : {"", "b", "A", "a ", " a"}) {
      EXPECT_EQ(field->findNumericalIDByName(name), NoNumber) << name;
      EXPECT_FALSE(field->getFragmentID(name)) << name;
      EXPECT_FALSE(field->getCreatorByName(name)) << name;
      EXPECT_FALSE(field->getCreatorByNameF(name).first) << name;
      EXPECT_FALSE(field->getCreatorByNameF(name).second) << name;
    }
  }
  // A fragment that was never bound.
  const FieldPtr field = makeField();
  const FragmentIDPtr fragment = field->makeFragmentID("a");
  EXPECT_EQ(field->getFragmentID("a"), fragment);
  EXPECT_FALSE(field->getCreatorByName("a"));
  EXPECT_FALSE(field->getCreatorByNameF("a").second);
}

TEST_F(FieldInput, FragmentsOfAFieldWithoutAny) {
  const FieldPtr bare = makeBareField();
  for (const FieldPtr& field : {makeField(), bare}) {
    EXPECT_TRUE(field->getFragmentIDs().empty());
    EXPECT_FALSE(field->getFirstFragmentID());
    EXPECT_FALSE(field->newFragmentationArray());
  }
  EXPECT_FALSE(makeField({"a"})->newFragmentationArray());  // a collection without a shape
  const FieldPtr ofRank4(new Field(makeFixed({1, 1, 1, 1}, {"a"})));
  EXPECT_FALSE(ofRank4->newFragmentationArray());
}

TEST_F(FieldInput, Validate) {
  const FieldPtr field = makeField({"a"});
  EXPECT_TRUE(field->validate(0));
  EXPECT_FALSE(field->validate(1));
  EXPECT_FALSE(field->validate(NoNumber));
  EXPECT_FALSE(makeField()->validate(0));
  EXPECT_FALSE(makeBareField()->validate(0));
}

// ---------------------------------------------------------------------------------------------------------- reading

TEST_F(FieldInput, ReadingByFragment) {
  const FieldPtr two = makeField({"a", "b"});
  const FieldPtr other = makeField({"a", "b"});
  const FieldPtr bare = makeBareField();
  for (const FieldPtr& field : {makeField(), bare, makeField({"a"}), two}) {
    for (const FragmentIDPtr& fragment :
         {unnamed(), makeDeadFragment(), makeFragment("a"), other->getFragmentID("a")}) {
      EXPECT_FALSE(field->getCreator(fragment));
      EXPECT_FALSE(field->getData(fragment));
    }
  }
  // The unnamed fragment is that of a field with one entry.
  const FieldPtr single(new Field(makeCreator(), FragmentIDCollectionPtr()));
  EXPECT_TRUE(single->getData(unnamed()));
  EXPECT_TRUE(single->getData(makeDeadFragment()));
  EXPECT_FALSE(single->getData(makeFragment("a")));
}

TEST_F(FieldInput, ReadingByNumber) {
  for (const FieldPtr& field : {makeField(), makeField({"a"})}) {
    for (const unsigned int number : {1U, 0x7FFFFFFFU, NoNumber}) {
      EXPECT_FALSE(field->getCreatorByNumericalID(number));
      EXPECT_FALSE(field->getDataByNumericalID(number));
    }
  }
  const FieldPtr field = makeField();
  field->setCreatorViaFragmentIndex(0, CreatorPtr());
  EXPECT_FALSE(field->getDataByNumericalID(0));
}

TEST_F(FieldInput, GetCompatibleCreatorF) {
  const FieldPtr field = makeField({"a", "b"});
  const FieldPtr other = makeField({"x", "a"});
  for (const FragmentIDPtr& fragment : {unnamed(), makeDeadFragment(), makeFragment(""), other->getFragmentID("x")}) {
    EXPECT_FALSE(field->getCompatibleCreatorF(fragment).first);
    EXPECT_FALSE(field->getCompatibleCreatorF(fragment).second);
  }
  const FieldPtr single(new Field(makeCreator(), FragmentIDCollectionPtr()));
  for (const FragmentIDPtr& fragment : {unnamed(), makeDeadFragment()})
    EXPECT_EQ(single->getCompatibleCreatorF(fragment).first, single->getFirstCreator());
  for (const FragmentIDPtr& fragment : {makeFragment("a"), other->getFragmentID("a")}) {
    EXPECT_EQ(field->getCompatibleCreatorF(fragment).first, field->getCreatorByName("a"));
    EXPECT_EQ(field->getCompatibleCreatorF(fragment).second, field->getFragmentID("a"));
  }
}

TEST_F(FieldInput, ReadingTheFirstEntry) {
  const FieldPtr bare = makeBareField();
  const FieldPtr withoutCreator(new Field(CreatorPtr(), FragmentIDCollectionPtr()));
  for (const FieldPtr& field : {makeField(), bare, withoutCreator}) {
    EXPECT_FALSE(field->getFirstCreator());
    EXPECT_FALSE(field->getFirstData());
  }
}

TEST_F(FieldInput, GetCreatorReferenceViaFragmentIndex) {
  const FieldPtr field = makeField();
  for (const unsigned int number : {7U, NoNumber}) EXPECT_FALSE(field->getCreatorReferenceViaFragmentIndex(number));
  EXPECT_EQ(field->nFragments(), 2U);
}

// ---------------------------------------------------------------------------------------------------------- binding

TEST_F(FieldInput, SetCreator) {
  const FieldPtr field = makeField();
  const FragmentIDPtr fragment = field->makeFragmentID("a");
  EXPECT_FALSE(field->setCreator(CreatorPtr(), fragment));
  EXPECT_FALSE(field->setCreator(makeDeadCreator(), fragment));
  EXPECT_EQ(field->nFragments(), 1U);
  EXPECT_TRUE(field->setCreator(makeCreator(), unnamed()));
  EXPECT_TRUE(field->setCreator(makeCreator(), makeDeadFragment()));
  EXPECT_EQ(field->nFragments(), 2U);  // both are the unnamed fragment

  const FieldPtr other = makeField({"x"});
  const FieldPtr bare = makeBareField();
  EXPECT_STREQ(thrownBySetCreator(*field, other->getFragmentID("x")), Inconsistent);
  EXPECT_STREQ(thrownBySetCreator(*field, makeFragment("b")), Inconsistent);
  EXPECT_STREQ(thrownBySetCreator(*bare, other->getFragmentID("x")), Inconsistent);
  EXPECT_EQ(field->nFragments(), 2U);
  EXPECT_EQ(field->getFragmentIDCollection()->nFragmentIDs(), 2U);
  EXPECT_EQ(bare->nFragments(), 0U);
  EXPECT_EQ(thrownBySetCreator(*bare, makeFragment("b")), nullptr);
  EXPECT_TRUE(bare->getCreatorByName("b"));
}

TEST_F(FieldInput, SetCreatorViaFragmentIndex) {
  const FieldPtr field = makeField();
  EXPECT_FALSE(field->setCreatorViaFragmentIndex(3, CreatorPtr()));
  EXPECT_FALSE(field->setCreatorViaFragmentIndex(3, makeDeadCreator()));
  EXPECT_EQ(field->nFragments(), 1U);
  const CreatorPtr creator = makeCreator();
  EXPECT_EQ(field->setCreatorViaFragmentIndex(NoNumber - 1, creator), creator);
  EXPECT_EQ(field->getCreatorByNumericalID(NoNumber - 1), creator);
}

TEST_F(FieldInput, SetCreatorsViaFragmentIndex) {
  const FieldPtr field = makeField();
  const long long age = TreskTest::fieldStamp(*field);
  field->setCreatorsViaFragmentIndex({});
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_EQ(TreskTest::fieldStamp(*field), age);
  const CreatorPtr creator = makeCreator();
  field->setCreatorsViaFragmentIndex({{5, CreatorPtr()}, {2, creator}, {4, makeDeadCreator()}, {2, CreatorPtr()}});
  EXPECT_EQ(field->nFragments(), 3U);
  for (const unsigned int number : {2U, 4U, 5U}) EXPECT_FALSE(field->getCreatorByNumericalID(number));
}

TEST_F(FieldInput, CreateCreator) {
  const TreskTest::BreakpointRecorder warnings;
  const FieldPtr field = makeField();
  const FieldPtr other = makeField({"x", "y"});
  const CachePtr cache = makeCache();
  const FragmentIDPtr fragment = field->makeFragmentID("a");
  for (const auto kind : {Field::PersistentCreatorAlternative, Field::DiscardableCreatorAlternative}) {
    for (const MemBasePtr& data : {MemBasePtr(), makeDeadArray()})
      EXPECT_FALSE(field->createCreator(data, fragment, kind, cache));
    for (const CachePtr& none : {CachePtr(), killed(makeCache())})
      EXPECT_FALSE(field->createCreator(makeArray(1), fragment, kind, none));
  }
  for (const auto kind : {Field::PersistentCreatorAlternative, Field::DiscardableCreatorAlternative}) {
    const MemBasePtr owned = makeArray(1);
    const CreatorPtr former = makeForgetful(owned);
    EXPECT_FALSE(field->createCreator(owned, fragment, kind, CachePtr()));
    EXPECT_FALSE(owned->getCreator()) << "data that come into no cache lose their creator";
    EXPECT_EQ(former->getData(), owned);
    EXPECT_FALSE(field->createCreator(owned, fragment, Field::NoCreatorAlternative, cache));
  }
  for (const int kind : {0, 3}) {
    const auto alternative = static_cast<Field::CreationFailAlternative>(kind);
    EXPECT_FALSE(field->createCreator(makeArray(1), fragment, alternative, cache));
  }
  EXPECT_EQ(field->nFragments(), 0U);

  const auto kind = Field::DiscardableCreatorAlternative;
  for (const FragmentIDPtr& nobody : {unnamed(), makeDeadFragment()}) {
    const CreatorPtr creator = field->createCreator(makeArray(1), nobody, kind, cache);
    EXPECT_TRUE(creator);
    EXPECT_EQ(field->getCreatorByNumericalID(1), creator);
  }
  EXPECT_TRUE(warnings.messages().empty());
  const CreatorPtr creator = field->createCreator(makeArray(1), other->getFragmentID("x"), kind, cache);
  EXPECT_TRUE(creator);
  EXPECT_EQ(field->getCreatorByNumericalID(0), creator);
  EXPECT_EQ(warnings.messages(), std::vector<std::string>{External});
}

TEST_F(FieldInput, CreateCreatorByName) {
  const FieldPtr field = makeField();
  const CachePtr cache = makeCache();
  const auto kind = Field::PersistentCreatorAlternative;
  for (const MemBasePtr& data : {MemBasePtr(), makeDeadArray()})
    EXPECT_FALSE(field->createCreator(data, "a", kind, cache));
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_EQ(field->findNumericalIDByName("a"), 0U);  // the name is entered all the same
  EXPECT_TRUE(field->createCreator(makeArray(1), "", kind, cache));
  EXPECT_TRUE(field->getCreatorByName(""));
}

TEST_F(FieldInput, SetPersistentData) {
  const TreskTest::BreakpointRecorder warnings;
  const FieldPtr field = makeField();
  const long long age = TreskTest::fieldStamp(*field);
  for (const MemBasePtr& data : {MemBasePtr(), makeDeadArray()})
    EXPECT_EQ(&field->setPersistentData(data, unnamed(), makeCache(), "file"), &Field::CreativeArrayNullPtr());
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_EQ(TreskTest::fieldStamp(*field), age);

  for (const CachePtr& cache : {CachePtr(), killed(makeCache())}) {
    for (const FragmentIDPtr& fragment : {unnamed(), makeDeadFragment()}) {
      const CreatorPtr creator = field->setPersistentData(makeArray(1), fragment, cache, "");
      EXPECT_TRUE(creator->getProvenances().empty());
      EXPECT_EQ(field->getCreator(unnamed()), creator);
      EXPECT_FALSE(field->getData(unnamed())->isOnCacheList());
    }
  }
  const FieldPtr other = makeField({"x", "y"});
  field->setPersistentData(makeArray(1), other->getFragmentID("y"), makeCache(), "");
  EXPECT_TRUE(field->getDataByNumericalID(1));
  EXPECT_EQ(warnings.messages(), std::vector<std::string>{External});
}

TEST_F(FieldInput, SetDiscardableData) {
  const TreskTest::BreakpointRecorder warnings;
  const FieldPtr field = makeField();
  for (const MemBasePtr& data : {MemBasePtr(), makeDeadArray()})
    EXPECT_FALSE(field->setDiscardableData(data, makeCache(), unnamed()));
  EXPECT_EQ(field->nFragments(), 0U);
  for (const CachePtr& cache : {CachePtr(), killed(makeCache())}) {
    for (const FragmentIDPtr& fragment : {unnamed(), makeDeadFragment()}) {
      const CreatorPtr creator = field->setDiscardableData(makeArray(1), cache, fragment);
      EXPECT_EQ(field->getCreator(unnamed()), creator);
      EXPECT_FALSE(field->getData(unnamed())->isOnCacheList());
    }
  }
  const FieldPtr other = makeField({"x", "y"});
  field->setDiscardableData(makeArray(1), makeCache(), other->getFragmentID("y"));
  EXPECT_TRUE(field->getDataByNumericalID(1));
  EXPECT_EQ(warnings.messages(), std::vector<std::string>{External});
}

TEST_F(FieldInput, ReserveFragments) {
  const FieldPtr field = makeField({"a"});
  field->reserve_fragments(0);
  EXPECT_EQ(textOf<std::length_error>([&field] { field->reserve_fragments(Greatest); }), "vector::reserve");
  EXPECT_TRUE(field->getCreatorByName("a"));
}

TEST_F(FieldInput, Clear) {
  const FieldPtr field = makeField();
  field->clear();
  field->setCreatorViaFragmentIndex(0, CreatorPtr());
  field->clear();
  EXPECT_EQ(field->nFragments(), 0U);
  makeBareField()->clear();
}

// ------------------------------------------------------------------------------------------------------------ walks

class CountingIterator : public Tresk::FragmentIterator {
 public:
  bool apply(const FragmentIDPtr&, const CreatorPtr&) override {
    ++nCalls;
    return true;
  }
  int nCalls = 0;
};

class CountingIndexIterator : public Tresk::FragmentIndexIterator {
 public:
  bool apply(unsigned int, const CreatorPtr&) override {
    ++nCalls;
    return true;
  }
  int nCalls = 0;
};

class SelectNone : public Tresk::FragmentSelector {
 public:
  bool isSelected(const Tresk::CreativeArrayBase&, FragmentIDPtr) override { return false; }
};
using SelectorPtr = Tresk::FragmentSelectorPtr;

TEST_F(FieldInput, IterateWithAFunction) {
  const FieldPtr two = makeField({"a", "b"});
  const FieldPtr bare = makeBareField();
  int nCalls = 0;
  const auto count = [&nCalls](const FragmentIDPtr&, const CreatorPtr&) { return ++nCalls > 0; };
  for (const bool parallel : {false, true}) {
    for (const bool snapshot : {false, true}) {
      for (const FieldPtr& field : {two, bare}) EXPECT_EQ(field->iterate({}, parallel, snapshot), 0U);
      for (const FieldPtr& field : {makeField(), bare}) EXPECT_EQ(field->iterate(count, parallel, snapshot), 0U);
    }
  }
  two->setCreatorViaFragmentIndex(0, CreatorPtr());
  two->setCreatorViaFragmentIndex(1, makeDeadCreator());
  EXPECT_EQ(two->iterate(count, false, false), 0U);
  EXPECT_EQ(two->iterate(count, false, true), 0U);
  EXPECT_EQ(nCalls, 0);
  std::atomic<unsigned int> nWithoutCreator{0};
  for (const bool snapshot : {false, true}) {
    const auto countAll = [&nWithoutCreator](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
      if (fragment && !creator) ++nWithoutCreator;
      return true;
    };
    EXPECT_EQ(two->iterate(countAll, true, snapshot), 2U);
    EXPECT_EQ(nWithoutCreator.exchange(0), 2U);
  }
}

TEST_F(FieldInput, IterateWithAnIterator) {
  const FieldPtr two = makeField({"a", "b"});
  CountingIterator iterator;
  for (const FieldPtr& field : {makeField(), makeBareField()}) EXPECT_EQ(field->iterate(iterator, {}), 0U);
  EXPECT_EQ(iterator.nCalls, 0);
  const SelectorPtr none(new SelectNone);
  EXPECT_EQ(two->iterate(iterator, none), 0U);
  EXPECT_EQ(two->iterate(iterator, SelectorPtr()), 2U);
  EXPECT_EQ(two->iterate(iterator, killed(SelectorPtr(new SelectNone))), 2U);
  two->setCreatorViaFragmentIndex(0, CreatorPtr());
  EXPECT_EQ(two->iterate(iterator, {}), 1U);
}

TEST_F(FieldInput, IterateWithAnIndexIterator) {
  for (const bool snapshot : {false, true}) {
    const FieldPtr two = makeField({"a", "b"});
    CountingIndexIterator iterator;
    for (const FieldPtr& field : {makeField(), makeBareField()}) EXPECT_EQ(field->iterate(iterator, {}, snapshot), 0U);
    EXPECT_EQ(iterator.nCalls, 0);
    const SelectorPtr none(new SelectNone);
    EXPECT_EQ(two->iterate(iterator, none, snapshot), 0U);
    EXPECT_EQ(two->iterate(iterator, SelectorPtr(), snapshot), 2U);
    EXPECT_EQ(two->iterate(iterator, killed(SelectorPtr(new SelectNone)), snapshot), 2U);
    two->setCreatorViaFragmentIndex(0, CreatorPtr());
    EXPECT_EQ(two->iterate(iterator, {}, snapshot), 1U);
  }
}

// -------------------------------------------------------------------------------------------------------- questions

TEST_F(FieldInput, QuestionsToAFieldThatKnowsNothing) {
  const FieldPtr empty = makeField();
  const FieldPtr bare = makeBareField();
  const FieldPtr withoutCreators = makeField();
  withoutCreators->setCreatorViaFragmentIndex(0, CreatorPtr());
  withoutCreators->setCreatorViaFragmentIndex(1, makeDeadCreator());
  for (const FieldPtr& field : {empty, bare, withoutCreators}) {
    EXPECT_FALSE(field->isUnfragmented());
    EXPECT_FALSE(field->getProperties());
    EXPECT_EQ(field->Dims(), -1);
    EXPECT_FALSE(field->getElementTreskType());
    EXPECT_EQ(field->getElementType(), typeid(void));
    EXPECT_EQ(field->getFieldStorageType(), typeid(void));
    EXPECT_FALSE(field->getSize());
    EXPECT_TRUE(field->isCompatible(*field));
    EXPECT_TRUE(field->isCompatible(*makeField({"a"})));
    EXPECT_FALSE(field->hasFragmentsNewerThan(Ostrel::Ageable::Ooooold));
    EXPECT_EQ(field->getMostRecentCreatorAge(), Ostrel::Ageable::now());
    EXPECT_EQ(field->getMostRecentAttributeAge(), Ostrel::Ageable::now());
  }
  EXPECT_EQ(empty->nFragments(), 0U);
  EXPECT_EQ(withoutCreators->nFragments(), 2U);
  EXPECT_TRUE(Field(CreatorPtr(), FragmentIDCollectionPtr()).isUnfragmented());
  // Properties whose record is gone.
  withoutCreators->addInterface(Ostrel::StrongPtr<Ostrel::InterfaceBase, Ostrel::InterfaceBase>(
      new Tresk::MemArrayProperties(2, Tresk::TreskTypeWeakPtr())));
  EXPECT_EQ(withoutCreators->getElementType(), typeid(std::nullptr_t));
  EXPECT_FALSE(withoutCreators->getElementTreskType());
}

TEST_F(FieldInput, GetMemoryUsage) {
  unsigned long long inMemory = 3;
  unsigned long long fullSize = 4;
  EXPECT_EQ(makeField()->getMemoryUsage(inMemory, fullSize), -1);
  EXPECT_EQ(makeBareField()->getMemoryUsage(inMemory, fullSize), -1);
  EXPECT_EQ(inMemory, 3U);
  EXPECT_EQ(fullSize, 4U);
  // A size beyond 64 bits counts by its lower 64.
  const FieldPtr field = makeField();
  const CreatorPtr creator = makeForgetful();
  creator->addMetaInfo({HalfWidth, HalfWidth}, Tresk::getTreskType<double>());
  field->setCreator(creator, unnamed());
  EXPECT_EQ(field->getMemoryUsage(inMemory, fullSize), 0);
  EXPECT_EQ(inMemory, 3U);
  EXPECT_EQ(fullSize, 4U);
}

TEST_F(FieldInput, Texts) {
  testing::internal::CaptureStdout();
  makeField()->Speak(-1, 0);
  makeField()->Speak(2, 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "0 Fragments\n");
  EXPECT_NE(makeBareField()->xml().find("<TYPE></TYPE>\n\t    <TRESKTYPE>\n\t    <FRAGMENTIDCOLLECTION/>\n"
                                        "\t   <NUMBEROFRAGMENTS>0</NUMBEROFRAGMENTS>\n"),
            std::string::npos);
  const FieldPtr field(new Field(CreatorPtr(), FragmentIDCollectionPtr()));
  EXPECT_NE(field->xml().find("\t     <NODATA/>\n"), std::string::npos);
}

TEST_F(FieldInput, NullPointersToReferTo) {
  EXPECT_FALSE(Field::CreativeArrayNullPtr());
  EXPECT_FALSE(Field::NullPtrField());
}

TEST_F(FieldInput, FieldSyntaxCheck) {
  const FieldPtr bare = makeBareField();
  EXPECT_TRUE(Tresk::fieldSyntaxCheck(*bare));
  EXPECT_EQ(bare->nFragments(), 3U);
  const FieldPtr fixed(new Field(makeFixed({1}, {"a"})));
  EXPECT_TRUE(Tresk::fieldSyntaxCheck(*fixed));
  EXPECT_EQ(fixed->nFragments(), 3U);
}

}  // namespace
