// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>

#include <support/BreakpointRecorder.hpp>
#include <support/FieldDoubles.hpp>
#include <support/NameArray.hpp>
#include <support/ProfilerRecorder.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using Tresk::CachePtr;
using Tresk::CacheWeakPtr;
using Tresk::Field;
using Tresk::FragmentID;
using Tresk::FragmentIDCollection;
using Tresk::SizeInterface;
using TreskTest::clockNow;
using TreskTest::CreatorOwner;
using TreskTest::CreatorPtr;
using TreskTest::dataStamp;
using TreskTest::FieldOwner;
using TreskTest::FieldPtr;
using TreskTest::fieldStamp;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::makeArray;
using TreskTest::makeDeadArray;
using TreskTest::makeForgetful;
using TreskTest::makeFunctional;
using TreskTest::makeOwner;
using TreskTest::MemBasePtr;
using TreskTest::unnamed;

using FieldBindingTest = TreskTest::RecordBalanceTest;
constexpr unsigned int None = 0xFFFFFFFFU;

FieldPtr makeField() { return FieldPtr(new Field); }
FieldPtr makeFieldWithoutCollection() { return FieldPtr(new Field(FragmentIDCollectionPtr())); }
FieldPtr makeFixedField() {
  return FieldPtr(new Field(FragmentIDCollectionPtr(new FragmentIDCollection(TreskTest::makeNames({2}, {"a", "b"})))));
}
FragmentIDPtr makeFree(const std::string& name) { return FragmentIDPtr(new FragmentID(name)); }

/// What `setCreator` throws, as text; empty if it does not throw.
std::string refusalOf(Field& field, const CreatorPtr& creator, const FragmentIDPtr& fragment) {
  try {
    field.setCreator(creator, fragment);
  } catch (const char* text) {
    return text;
  }
  return std::string();
}
const char* const Inconsistent = "Field::setCreator(): Inconsistent Fragment ID Collection!";

SizeInterface* sizeOn(const CreatorPtr& creator) { return Ostrel::findInterface<SizeInterface>(*creator).get(); }

// ------------------------------------------------------------------------------------------- binding by number

TEST_F(FieldBindingTest, BindingByNumberStoresTouchesAndOwnsOnce) {
  const FieldPtr field = makeField();
  const auto owner = makeOwner<FieldOwner>();
  field->addOwner(owner);
  const auto creator = makeForgetful();
  const long long clock = clockNow();
  CreatorPtr& slot = field->setCreatorViaFragmentIndex(3, creator);
  EXPECT_TRUE(slot == creator);
  EXPECT_EQ(&slot, &field->getCreatorReferenceViaFragmentIndex(3));
  EXPECT_EQ(clockNow(), clock + 2) << "one tick for the binding, one for the slot just asked for";
  EXPECT_EQ(creator->nOwners(), 1U);
  EXPECT_TRUE(creator->isOwnedBy(field));
  ASSERT_EQ(owner->arguments.size(), 1U) << "the argument goes up through the field";
  EXPECT_EQ(owner->arguments[0], static_cast<const void*>(&field->getAge()));
  EXPECT_EQ(creator.strongCount(), 2);
  EXPECT_EQ(dataStamp(*creator), 0) << "binding is no change of the creator";
  EXPECT_EQ(field->dataAge, Ostrel::Ageable::Ooooold);
}

TEST_F(FieldBindingTest, BindingByNumberTicksOnce) {
  const FieldPtr field = makeField();
  const long long clock = clockNow();
  field->setCreatorViaFragmentIndex(3, makeForgetful());
  EXPECT_EQ(clockNow(), clock + 1);
  EXPECT_EQ(fieldStamp(*field), clock + 1);
  field->setCreatorViaFragmentIndex(3, makeForgetful());
  EXPECT_EQ(fieldStamp(*field), clock + 2) << "a replacement is a change too";
}

TEST_F(FieldBindingTest, BindingTwiceEntersTheFieldAsOwnerOnceAndTellsTheOwnersTwice) {
  const FieldPtr field = makeField();
  const auto owner = makeOwner<FieldOwner>();
  field->addOwner(owner);
  const auto creator = makeForgetful();
  field->setCreatorViaFragmentIndex(0, creator);
  field->setCreatorViaFragmentIndex(0, creator);
  field->setCreatorViaFragmentIndex(1, creator);
  EXPECT_EQ(creator->nOwners(), 1U);
  EXPECT_EQ(owner->arguments.size(), 3U);
  EXPECT_EQ(creator.strongCount(), 3);
}

TEST_F(FieldBindingTest, AllOwnersOfTheCreatorAreToldOfTheBinding) {
  const FieldPtr field = makeField();
  const auto other = makeOwner<CreatorOwner>();
  const auto creator = makeForgetful();
  creator->addOwner(other);
  field->setCreatorViaFragmentIndex(0, creator);
  ASSERT_EQ(other->arguments.size(), 1U);
  EXPECT_EQ(other->arguments[0], static_cast<const void*>(&field->getAge()));
}

TEST_F(FieldBindingTest, ABoundCreatorRaisesTheAgesThatTheFieldKeeps) {
  const FieldPtr field = makeField();
  const auto creator = makeForgetful();
  field->setCreator(creator, unnamed());
  creator->touch();
  creator->touchAttributes();
  EXPECT_EQ(field->dataAge, creator->getDataAge());
  EXPECT_EQ(field->attributeAge, creator->getAttributeAge());
  EXPECT_LT(field->getAge(), field->dataAge) << "the field's own age is that of its table";
}

TEST_F(FieldBindingTest, ANullCreatorIsBoundAndTouchesTheFieldAndTellsNobody) {
  const FieldPtr field = makeField();
  const auto owner = makeOwner<FieldOwner>();
  field->addOwner(owner);
  const long long clock = clockNow();
  EXPECT_FALSE(field->setCreatorViaFragmentIndex(2, CreatorPtr()));
  EXPECT_EQ(field->nFragments(), 1U);
  EXPECT_EQ(fieldStamp(*field), clock + 1);
  EXPECT_TRUE(owner->arguments.empty());
}

TEST_F(FieldBindingTest, ANullCreatorReplacesTheFormerOne) {
  const FieldPtr field = makeField();
  const auto creator = makeForgetful();
  field->setCreatorViaFragmentIndex(2, creator);
  field->setCreatorViaFragmentIndex(2, CreatorPtr());
  EXPECT_EQ(creator.strongCount(), 1);
  EXPECT_EQ(field->nFragments(), 1U);
}

TEST_F(FieldBindingTest, AReplacedCreatorIsNotTold) {
  const FieldPtr field = makeField();
  const auto former = makeForgetful(makeArray(1));
  field->setCreator(former, unnamed());
  field->setCreator(makeForgetful(), unnamed());
  EXPECT_EQ(former->nReleases, 0);
  EXPECT_TRUE(former->hasData());
  EXPECT_TRUE(former->isOwnedBy(field)) << "its weak entry for the field stays";
  EXPECT_EQ(former.strongCount(), 1);
}

TEST_F(FieldBindingTest, AReplacedCreatorDiesWhereItMayUseTheField) {
  const FieldPtr field = makeField();
  unsigned long long nSeen = 0;
  bool hasBound = false;
  {
    const auto creator = makeForgetful();
    creator->onDeath = [&] {
      nSeen = field->nFragments();
      field->setCreatorViaFragmentIndex(9, makeForgetful());  // wants the table for itself
      hasBound = true;
    };
    field->setCreatorViaFragmentIndex(0, creator);
  }
  field->setCreatorViaFragmentIndex(0, makeForgetful());
  EXPECT_EQ(nSeen, 1U);
  EXPECT_TRUE(hasBound);
  EXPECT_EQ(field->nFragments(), 2U);
}

TEST_F(FieldBindingTest, ANullFieldPointerIsNoOwnerAndAFieldThatNobodyHoldsYetIsOne) {
  auto* const field = new Field;
  const auto creator = makeForgetful();
  field->setCreatorViaFragmentIndex(0, creator);
  EXPECT_TRUE(creator->isOwnedBy(field->getSelf()));
  const FieldPtr held(field);
  EXPECT_EQ(held.strongCount(), 1) << "telling the owners claimed nothing";
}

// ----------------------------------------------------------------------------------------- binding by fragment

TEST_F(FieldBindingTest, BindingByFragmentUsesItsNumber) {
  const FieldPtr field = makeField();
  field->makeFragmentID("a");
  const FragmentIDPtr b = field->makeFragmentID("b");
  const auto creator = makeForgetful();
  CreatorPtr& slot = field->setCreator(creator, b);
  EXPECT_TRUE(slot == creator);
  EXPECT_TRUE(field->getCreatorByNumericalID(1) == creator);
  EXPECT_EQ(&field->setCreator(creator, b), &slot);
}

TEST_F(FieldBindingTest, TheUnnamedFragmentTakesTheFirstEmptySlot) {
  const FieldPtr field = makeField();
  field->makeFragmentID("a");
  const auto creator = makeForgetful();
  field->setCreator(creator, unnamed());
  EXPECT_TRUE(field->getCreatorByNumericalID(1) == creator);
  field->setCreator(makeForgetful(), unnamed());
  EXPECT_EQ(field->nFragments(), 1U) << "the same slot again";
}

TEST_F(FieldBindingTest, AFragmentOfAnotherCollectionIsRefusedAndTheTableUnchanged) {
  const FieldPtr other = makeField();
  const FragmentIDPtr foreign = other->makeFragmentID("a");
  const FieldPtr field = makeField();
  field->makeFragmentID("a");
  const auto creator = makeForgetful();
  const long long clock = clockNow();
  EXPECT_EQ(refusalOf(*field, creator, foreign), Inconsistent);
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_EQ(creator->nOwners(), 0U);
  EXPECT_EQ(clockNow(), clock);
  EXPECT_EQ(creator.strongCount(), 1);
}

TEST_F(FieldBindingTest, AFreeFragmentIsRefusedByAFieldWithACollection) {
  const FieldPtr field = makeField();
  EXPECT_EQ(refusalOf(*field, makeForgetful(), makeFree("a")), Inconsistent);
  EXPECT_EQ(field->getFragmentIDCollection()->nFragmentIDs(), 0U);
}

TEST_F(FieldBindingTest, AnOwnedFragmentIsRefusedByAFieldWithoutCollection) {
  const FieldPtr other = makeField();
  const FieldPtr field = makeFieldWithoutCollection();
  EXPECT_EQ(refusalOf(*field, makeForgetful(), other->makeFragmentID("a")), Inconsistent);
  EXPECT_FALSE(field->getFragmentIDCollection());
}

TEST_F(FieldBindingTest, AFreeFragmentOnAFieldWithoutCollectionMakesOneAndIsNumberZero) {
  const FieldPtr field = makeFieldWithoutCollection();
  const FragmentIDPtr free = makeFree("a");
  const auto creator = makeForgetful();
  EXPECT_EQ(refusalOf(*field, creator, free), "");
  ASSERT_TRUE(field->getFragmentIDCollection());
  EXPECT_TRUE(free->getOwner() == field->getFragmentIDCollection());
  EXPECT_EQ(free->getNumericalID(), 0U);
  EXPECT_TRUE(field->getCreatorByNumericalID(0) == creator);
  EXPECT_TRUE(field->getCreator(free) == creator);
}

// ----------------------------------------------------------------------------------------- creators made for data

TEST_F(FieldBindingTest, NoCreatorIsMadeForNullDataOrWithoutAlternative) {
  const FieldPtr field = makeFieldWithoutCollection();
  const CacheWeakPtr cache(Ostrel::Cache::MemCache());
  const long long clock = clockNow();
  EXPECT_EQ(field->createCreator(MemBasePtr(), unnamed(), Field::PersistentCreatorAlternative, cache).getRecord(),
            nullptr);
  EXPECT_FALSE(field->createCreator(makeDeadArray(), unnamed(), Field::PersistentCreatorAlternative, cache));
  const MemBasePtr data = makeArray(1);
  EXPECT_FALSE(field->createCreator(data, unnamed(), Field::NoCreatorAlternative, cache));
  EXPECT_FALSE(field->createCreator(data, unnamed(), static_cast<Field::CreationFailAlternative>(3), cache));
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_FALSE(field->getFragmentIDCollection());
  EXPECT_EQ(data->getCreator().getRecord(), nullptr);
  EXPECT_EQ(clockNow(), clock);
}

TEST_F(FieldBindingTest, AlternativesHaveTheirNumbers) {
  EXPECT_EQ(static_cast<int>(Field::NoCreatorAlternative), 0);
  EXPECT_EQ(static_cast<int>(Field::PersistentCreatorAlternative), 1);
  EXPECT_EQ(static_cast<int>(Field::DiscardableCreatorAlternative), 2);
}

/// Makes a creator of one of the two kinds for data and checks what both have in common.
CreatorPtr expectCreated(Field::CreationFailAlternative alternative) {
  const CachePtr cache(new Ostrel::Cache);
  const FieldPtr field = makeField();
  const auto owner = makeOwner<FieldOwner>();
  field->addOwner(owner);
  field->makeFragmentID("a");
  const FragmentIDPtr b = field->makeFragmentID("b");
  const MemBasePtr data = makeArray(4, 3, 0.0);
  const long long clock = clockNow();
  const CreatorPtr creator = field->createCreator(data, b, alternative, cache);
  EXPECT_TRUE(creator);
  EXPECT_TRUE(field->getCreatorByNumericalID(1) == creator);
  EXPECT_TRUE(creator->getData() == data);
  EXPECT_TRUE(data->getCreator() == creator);
  EXPECT_EQ(cache->nCacheables(), 1U);
  EXPECT_TRUE(creator->getCache() == cache);
  EXPECT_EQ(creator->getCachingCount(), 1) << "that of the first strong pointer";
  EXPECT_EQ(data->getUseCount(), 0);
  EXPECT_EQ(sizeOn(creator)->str(), "4x3");
  EXPECT_EQ(creator->getTreskType()->getType(), typeid(double));
  EXPECT_EQ(clockNow(), clock + 2) << "the creator touched once, the field once";
  EXPECT_EQ(dataStamp(*creator), clock + 1);
  EXPECT_EQ(fieldStamp(*field), clock + 2);
  EXPECT_TRUE(creator->isOwnedBy(field));
  EXPECT_EQ(owner->arguments, std::vector<void*>{const_cast<Ostrel::Ageable*>(&field->getAge())});
  EXPECT_EQ(data->getDescription(), "") << "only persistent data get a description";
  return creator;
}

TEST_F(FieldBindingTest, ThePersistentAlternativeKeepsTheData) {
  const CreatorPtr creator = expectCreated(Field::PersistentCreatorAlternative);
  const Tresk::CreativeArrayBase& object = *creator;
  EXPECT_EQ(typeid(object), typeid(Tresk::CreativeArray));
}

TEST_F(FieldBindingTest, TheDiscardableAlternativeMayForgetTheData) {
  const CreatorPtr creator = expectCreated(Field::DiscardableCreatorAlternative);
  const Tresk::CreativeArrayBase& object = *creator;
  EXPECT_EQ(typeid(object), typeid(TreskTest::ForgetfulArray));
}

TEST_F(FieldBindingTest, DataOnNoCacheListGetNoCreatorAndNothingIsTouched) {
  const FieldPtr field = makeFieldWithoutCollection();
  for (const auto alternative : {Field::PersistentCreatorAlternative, Field::DiscardableCreatorAlternative}) {
    const MemBasePtr data = makeArray(1);
    EXPECT_EQ(field->createCreator(data, unnamed(), alternative, CacheWeakPtr()).getRecord(), nullptr);
    EXPECT_EQ(field->createCreator(data, "a", alternative, CacheWeakPtr()).getRecord(), nullptr);
    EXPECT_EQ(data.strongCount(), 1) << "the creator was dropped";
    EXPECT_FALSE(data->getCreator().isValid());
  }
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_EQ(fieldStamp(*field), 0);
}

TEST_F(FieldBindingTest, ADeadCacheIsNoCache) {
  CacheWeakPtr dead;
  { dead = CachePtr(new Ostrel::Cache); }
  const FieldPtr field = makeField();
  EXPECT_FALSE(field->createCreator(makeArray(1), unnamed(), Field::PersistentCreatorAlternative, dead));
}

TEST_F(FieldBindingTest, ACreatorIsMadeForAForeignFragmentUnderItsForeignNumber) {
  const FieldPtr other = makeField();
  other->makeFragmentID("a");
  const FragmentIDPtr foreign = other->makeFragmentID("b");
  const FieldPtr field = makeField();
  const TreskTest::BreakpointRecorder recorder;
  const CreatorPtr creator =
      field->createCreator(makeArray(1), foreign, Field::PersistentCreatorAlternative, Ostrel::Cache::MemCache());
  ASSERT_TRUE(creator);
  EXPECT_EQ(recorder.messages().size(), 1U) << "a warning";
  EXPECT_TRUE(field->getCreatorByNumericalID(1) == creator);
  EXPECT_EQ(field->getFragmentIDCollection()->nFragmentIDs(), 0U);
}

TEST_F(FieldBindingTest, ACreatorMadeForTheFirstFragmentBringsItsCollection) {
  const FieldPtr other = makeField();
  const FragmentIDPtr a = other->makeFragmentID("a");
  const FieldPtr field = makeFieldWithoutCollection();
  EXPECT_TRUE(field->createCreator(makeArray(1), a, Field::DiscardableCreatorAlternative, Ostrel::Cache::MemCache()));
  EXPECT_TRUE(field->getFragmentIDCollection() == other->getFragmentIDCollection());
  EXPECT_TRUE(field->getCreator(a));
}

TEST_F(FieldBindingTest, ACreatorIsMadeForAName) {
  const FieldPtr field = makeFieldWithoutCollection();
  const CreatorPtr creator =
      field->createCreator(makeArray(1), "here", Field::PersistentCreatorAlternative, Ostrel::Cache::MemCache());
  ASSERT_TRUE(creator);
  EXPECT_TRUE(field->getCreatorByName("here") == creator);
  const CreatorPtr second =
      field->createCreator(makeArray(1), "here", Field::PersistentCreatorAlternative, Ostrel::Cache::MemCache());
  EXPECT_TRUE(field->getCreatorByName("here") == second);
  EXPECT_EQ(field->nFragments(), 1U);
}

TEST_F(FieldBindingTest, TheFragmentOfANameIsMadeAlsoForNullData) {
  const FieldPtr field = makeField();
  EXPECT_FALSE(field->createCreator(MemBasePtr(), "here", Field::PersistentCreatorAlternative, CacheWeakPtr()));
  EXPECT_TRUE(field->getFragmentID("here"));
  EXPECT_EQ(field->nFragments(), 0U);
}

TEST_F(FieldBindingTest, AFreeFragmentUnknownToAFixedCollectionIsBoundUnderTheNumberThatSaysNone) {
  const FieldPtr field = makeFixedField();
  const FragmentIDPtr free = makeFree("c");
  const CreatorPtr creator =
      field->createCreator(makeArray(1), free, Field::PersistentCreatorAlternative, Ostrel::Cache::MemCache());
  EXPECT_TRUE(creator);
  EXPECT_TRUE(field->getCreatorByNumericalID(None) == creator);
  EXPECT_EQ(free->getOwner().getRecord(), nullptr);
}

// ------------------------------------------------------------------------------------------------ persistent data

TEST_F(FieldBindingTest, PersistentDataAreBoundDescribedAndKept) {
  const FieldPtr field = makeField();
  const auto owner = makeOwner<FieldOwner>();
  field->addOwner(owner);
  const FragmentIDPtr a = field->makeFragmentID("a");
  const MemBasePtr data = makeArray(4, 3, 0.0);
  const CachePtr cache(new Ostrel::Cache);
  const long long clock = clockNow();
  const CreatorPtr& slot = field->setPersistentData(data, a, cache, "run 7/step 3");
  EXPECT_EQ(clockNow(), clock + 3) << "the creator touched once, the field twice";
  EXPECT_EQ(fieldStamp(*field), clock + 3);
  EXPECT_EQ(&slot, &field->getCreatorReferenceViaFragmentIndex(0));
  ASSERT_TRUE(slot);
  const Tresk::CreativeArrayBase& object = *slot;
  EXPECT_EQ(typeid(object), typeid(Tresk::CreativeArray));
  EXPECT_EQ(dataStamp(*slot), clock + 1);
  EXPECT_TRUE(slot->getData() == data);
  EXPECT_TRUE(data->getCreator() == slot);
  EXPECT_EQ(cache->nCacheables(), 1U);
  EXPECT_EQ(sizeOn(slot)->str(), "4x3");
  EXPECT_EQ(data->getDescription(), "Field::setPersistentData()");
  ASSERT_EQ(slot->getProvenances().size(), 1U);
  EXPECT_EQ(slot->getProvenances()[0]->getPath('/'), "run 7/step 3");
  EXPECT_TRUE(slot->isOwnedBy(field));
  EXPECT_EQ(owner->arguments.size(), 2U) << "told at the binding and again at the end";
  EXPECT_EQ(data->getUseCount(), 0);
  EXPECT_EQ(slot->getCachingCount(), 1);
}

TEST_F(FieldBindingTest, PersistentDataKeepTheDescriptionThatTheyHave) {
  const FieldPtr field = makeField();
  const MemBasePtr data = makeArray(1);
  data->setDescription("temperature");
  const CreatorPtr& slot = field->setPersistentData(data, unnamed(), CachePtr(), "");
  EXPECT_EQ(data->getDescription(), "temperature");
  EXPECT_TRUE(slot->getProvenances().empty()) << "no text, no provenance";
  EXPECT_FALSE(data->isOnCacheList()) << "no cache is needed";
}

TEST_F(FieldBindingTest, NullPersistentDataGiveTheSharedNullPointerAndLeaveTheFieldAlone) {
  const FieldPtr field = makeFieldWithoutCollection();
  const long long clock = clockNow();
  EXPECT_EQ(&field->setPersistentData(MemBasePtr(), unnamed(), CachePtr(), "x"), &Field::CreativeArrayNullPtr());
  EXPECT_EQ(&field->setPersistentData(makeDeadArray(), unnamed(), CachePtr(), "x"), &Field::CreativeArrayNullPtr());
  EXPECT_FALSE(field->getFragmentIDCollection());
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_EQ(clockNow(), clock);
}

TEST_F(FieldBindingTest, PersistentDataChangeTheirCreator) {
  const FieldPtr field = makeField();
  const auto former = makeForgetful(makeArray(1));
  const MemBasePtr data = former->getData();
  const CreatorPtr& slot = field->setPersistentData(data, unnamed(), CachePtr(), "");
  EXPECT_TRUE(data->getCreator() == slot);
  EXPECT_TRUE(former->hasData());
}

TEST_F(FieldBindingTest, PersistentDataAdoptTheCollectionOfTheFirstFragment) {
  const FieldPtr other = makeField();
  const FragmentIDPtr a = other->makeFragmentID("a");
  const FieldPtr field = makeFieldWithoutCollection();
  field->setPersistentData(makeArray(1), a, CachePtr(), "");
  EXPECT_TRUE(field->getFragmentIDCollection() == other->getFragmentIDCollection());
}

TEST_F(FieldBindingTest, PersistentDataAreBoundInAFieldThatNobodyHoldsYet) {
  auto* const field = new Field;
  field->setPersistentData(makeArray(1), unnamed(), CachePtr(), "");
  const FieldPtr held(field);
  EXPECT_EQ(held.strongCount(), 1);
  EXPECT_TRUE(held->getFirstCreator()->isOwnedBy(held));
}

// ----------------------------------------------------------------------------------------------- discardable data

TEST_F(FieldBindingTest, DiscardableDataAreBoundAndMayBeForgotten) {
  const FieldPtr field = makeField();
  const CachePtr cache(new Ostrel::Cache);
  MemBasePtr data = makeArray(4, 3, 0.0);
  const long long clock = clockNow();
  const CreatorPtr creator = field->setDiscardableData(data, cache, field->makeFragmentID("a"));
  ASSERT_TRUE(creator);
  const Tresk::CreativeArrayBase& object = *creator;
  EXPECT_EQ(typeid(object), typeid(TreskTest::ForgetfulArray));
  EXPECT_TRUE(field->getCreatorByName("a") == creator);
  EXPECT_TRUE(data->getCreator() == creator);
  EXPECT_EQ(clockNow(), clock + 2);
  EXPECT_EQ(dataStamp(*creator), clock + 1);
  EXPECT_EQ(fieldStamp(*field), clock + 2);
  EXPECT_TRUE(creator->isOwnedBy(field));
  EXPECT_EQ(data->getDescription(), "");
  EXPECT_EQ(creator->getCachingCount(), 1);
  data.reset();
  EXPECT_EQ(cache->trim(1), 12 * sizeof(double));
  EXPECT_FALSE(creator->hasData());
  EXPECT_FALSE(field->getFirstData()) << "gone for good";
  EXPECT_EQ(field->getSize()->str(), "4x3") << "and their size still known";
}

TEST_F(FieldBindingTest, DiscardableDataNeedNoCacheList) {
  const FieldPtr field = makeField();
  EXPECT_TRUE(field->setDiscardableData(makeArray(1), CacheWeakPtr(), unnamed()));
  EXPECT_TRUE(field->getFirstData());
}

TEST_F(FieldBindingTest, NullDiscardableDataGiveANullPointer) {
  const FieldPtr field = makeFieldWithoutCollection();
  EXPECT_EQ(field->setDiscardableData(MemBasePtr(), CacheWeakPtr(), unnamed()).getRecord(), nullptr);
  EXPECT_FALSE(field->setDiscardableData(makeDeadArray(), CacheWeakPtr(), unnamed()));
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_FALSE(field->getFragmentIDCollection());
}

// -------------------------------------------------------------------------------------------------- room and emptying

TEST_F(FieldBindingTest, ReservedRoomKeepsSlotsInPlace) {
  const FieldPtr field = makeField();
  field->reserve_fragments(100);
  CreatorPtr& first = field->setCreatorViaFragmentIndex(0, makeForgetful());
  field->reserve_fragments(10);
  for (unsigned int i = 1; i < 100; ++i) field->setCreatorViaFragmentIndex(i, makeForgetful());
  EXPECT_EQ(&field->getCreatorReferenceViaFragmentIndex(0), &first) << "room is never given back";
}

TEST_F(FieldBindingTest, RoomBeyondTheLimitRaisesAndTheTableSurvives) {
  const FieldPtr field = makeField();
  const auto creator = makeForgetful();
  field->setCreator(creator, unnamed());
  for (const unsigned long long count :
       {std::numeric_limits<unsigned long long>::max(), 1ULL << 62, 1000000000000000000ULL}) {
    try {
      field->reserve_fragments(count);
      ADD_FAILURE() << count;
    } catch (const std::length_error& error) {
      EXPECT_STREQ(error.what(), "vector::reserve");
    }
  }
  EXPECT_TRUE(field->getCreator(unnamed()) == creator);
  EXPECT_EQ(field->nFragments(), 1U);
}

TEST_F(FieldBindingTest, ClearingReleasesEachCreatorAndDropsIt) {
  const FieldPtr field = makeField();
  const auto one = makeForgetful(makeArray(1));
  const auto two = makeForgetful(makeArray(1));
  field->setCreator(one, field->makeFragmentID("a"));
  field->setCreator(two, field->makeFragmentID("b"));
  field->getCreatorReferenceViaFragmentIndex(7);
  const long long stamp = fieldStamp(*field);
  const long long clock = clockNow();
  field->clear();
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_EQ(one->nReleases, 1);
  EXPECT_EQ(two->nReleases, 1);
  EXPECT_EQ(one.strongCount(), 1);
  EXPECT_FALSE(one->hasData());
  EXPECT_EQ(fieldStamp(*field), stamp) << "the age is not touched";
  EXPECT_EQ(clockNow(), clock);
  EXPECT_EQ(field->findNumericalIDByName("b"), 1U) << "the collection stays, and so do its numbers";
  EXPECT_TRUE(one->isOwnedBy(field));
}

TEST_F(FieldBindingTest, ClearingAnEmptyFieldDoesNothingAndLeavesTheCollection) {
  const FieldPtr field = makeField();
  field->makeFragmentID("a");
  const auto collection = field->getFragmentIDCollection();
  field->clear();
  field->clear();
  EXPECT_TRUE(field->getFragmentIDCollection() == collection);
  EXPECT_EQ(field->findNumericalIDByName("a"), 0U);
  const FieldPtr without = makeFieldWithoutCollection();
  without->clear();
  EXPECT_FALSE(without->getFragmentIDCollection());
}

TEST_F(FieldBindingTest, ClearingVisitsTheCreatorsInTheOrderOfTheirNumbers) {
  const FieldPtr field = makeField();
  std::vector<int> order;
  for (const int number : {4, 1, 3}) {
    const auto creator = makeForgetful();
    creator->onRelease = [&order, number] { order.push_back(number); };
    field->setCreatorViaFragmentIndex(static_cast<unsigned int>(number), creator);
  }
  field->clear();
  EXPECT_EQ(order, (std::vector<int>{1, 3, 4}));
}

TEST_F(FieldBindingTest, CreatorsMayReadTheFieldWhileItIsCleared) {
  const FieldPtr field = makeField();
  unsigned long long nAtRelease = 0;
  unsigned long long nAtDeath = 99;
  std::string sizeAtRelease;
  {
    const auto creator = makeForgetful(makeArray(3));
    creator->onRelease = [&] {
      nAtRelease = field->nFragments();
      sizeAtRelease = field->getSize()->str();
    };
    creator->onDeath = [&] {
      nAtDeath = field->nFragments();
      field->setCreatorViaFragmentIndex(5, makeForgetful());  // even this: the lock is not held any more
    };
    field->setCreator(creator, unnamed());
  }
  field->clear();
  EXPECT_EQ(nAtRelease, 1U);
  EXPECT_EQ(sizeAtRelease, "3");
  EXPECT_EQ(nAtDeath, 0U);
  EXPECT_EQ(field->nFragments(), 1U) << "the one that the dying creator has bound";
}

TEST_F(FieldBindingTest, ACreatorThatCannotReleaseIsDroppedAllTheSame) {
  const FieldPtr field = makeField();
  const MemBasePtr data = makeArray(1);
  field->setPersistentData(data, unnamed(), CachePtr(), "");
  field->clear();
  EXPECT_EQ(data.strongCount(), 1);
  EXPECT_FALSE(data->getCreator().isValid());
}

TEST_F(FieldBindingTest, AnExceptionInTheMiddleOfClearingReleasesTheLockAndKeepsTheTable) {
  const FieldPtr field = makeField();
  const auto creator = makeForgetful();
  creator->onRelease = [] { throw std::runtime_error("the disk is full"); };
  field->setCreator(creator, unnamed());
  EXPECT_THROW(field->clear(), std::runtime_error);
  EXPECT_EQ(field->nFragments(), 1U);
  field->setCreatorViaFragmentIndex(4, makeForgetful());
  EXPECT_EQ(field->nFragments(), 2U) << "nobody holds the lock";
  creator->onRelease = nullptr;
}

TEST_F(FieldBindingTest, AClearedFieldServesAgain) {
  const FieldPtr field = makeField();
  const FragmentIDPtr a = field->makeFragmentID("a");
  field->setCreator(makeForgetful(), a);
  field->clear();
  const auto creator = makeForgetful();
  field->setCreator(creator, a);
  EXPECT_TRUE(field->getCreator(a) == creator);
}

TEST_F(FieldBindingTest, BindingAndLookingOpenNoScopeOfTheProfile) {
  const FieldPtr field = makeField();
  TreskTest::ProfilerRecorder recorder;
  field->setCreator(makeFunctional([] { return makeArray(1); }), unnamed());
  field->getFirstData();
  field->getSize();
  field->clear();
  EXPECT_TRUE(recorder.events().empty());
}

}  // namespace
