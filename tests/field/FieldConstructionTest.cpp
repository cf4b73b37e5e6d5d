// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Field.hpp>

#include <tresk/foundation/SaveRegistry.hpp>

#include <support/FieldDoubles.hpp>
#include <support/NameArray.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using Tresk::CachePtr;
using Tresk::Field;
using Tresk::FieldWeakPtr;
using Tresk::FragmentIDCollection;
using Tresk::FragmentIDCollectionProvider;
using TreskTest::CreatorPtr;
using TreskTest::FieldPtr;
using TreskTest::FragmentIDCollectionPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::makeArray;
using TreskTest::makeForgetful;
using TreskTest::makeNames;
using TreskTest::MemBasePtr;
using TreskTest::unnamed;

using FieldConstructionTest = TreskTest::RecordBalanceTest;

FragmentIDCollectionPtr makeCollection() { return FragmentIDCollectionPtr(new FragmentIDCollection); }
FragmentIDCollectionPtr makeFixed() {
  return FragmentIDCollectionPtr(new FragmentIDCollection(makeNames({3, 2}, {"a", "b", "c", "d", "e", "f"})));
}

class Provider : public FragmentIDCollectionProvider {
 public:
  explicit Provider(const FragmentIDCollectionPtr& collection) : collection_(collection) {}
  FragmentIDCollectionPtr getFragmentIDCollection() const override { return collection_; }

 private:
  FragmentIDCollectionPtr collection_;
};

TEST_F(FieldConstructionTest, HasItsBases) {
  EXPECT_TRUE((std::is_base_of_v<TreskTest::CreatorOwner, Field>));
  EXPECT_TRUE((std::is_base_of_v<Tresk::Ownable<Field, Tresk::ChildrenProperties>, Field>));
  EXPECT_TRUE((std::is_base_of_v<Ostrel::Intercube, Field>));
  EXPECT_TRUE((std::is_base_of_v<FragmentIDCollectionProvider, Field>));
  EXPECT_TRUE((std::is_base_of_v<Ostrel::Ageable, Field>));
  EXPECT_TRUE((std::is_base_of_v<Tresk::SaveableAttributes, Field>));
  EXPECT_FALSE(std::is_copy_constructible_v<Field>);
  EXPECT_FALSE(std::is_copy_assignable_v<Field>);
}

TEST_F(FieldConstructionTest, ANewFieldIsEmptyOnANewCollection) {
  const long long clock = TreskTest::clockNow();
  const FieldPtr field(new Field);
  ASSERT_TRUE(field->getFragmentIDCollection());
  EXPECT_EQ(field->getFragmentIDCollection()->nFragmentIDs(), 0U);
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_EQ(TreskTest::fieldStamp(*field), 0);
  EXPECT_EQ(field->dataAge, Ostrel::Ageable::Ooooold);
  EXPECT_EQ(field->attributeAge, Ostrel::Ageable::Ooooold);
  EXPECT_EQ(field->attributesSavedAge.getAge(), clock);
  EXPECT_EQ(field->nOwners(), 0U);
  EXPECT_EQ(TreskTest::clockNow(), clock);
  EXPECT_FALSE(FieldPtr(new Field)->getFragmentIDCollection() == field->getFragmentIDCollection());
}

TEST_F(FieldConstructionTest, AFieldTakesTheCollectionGiven) {
  const auto collection = makeCollection();
  const FieldPtr field(new Field(collection));
  EXPECT_TRUE(field->getFragmentIDCollection() == collection);
  EXPECT_EQ(collection.strongCount(), 2);
}

TEST_F(FieldConstructionTest, AFieldMayBeginWithoutACollection) {
  const FieldPtr field(new Field(FragmentIDCollectionPtr()));
  EXPECT_FALSE(field->getFragmentIDCollection());
}

TEST_F(FieldConstructionTest, AFieldTakesTheCollectionThatAProviderNames) {
  const auto collection = makeCollection();
  const FieldPtr field{new Field(Provider(collection))};
  EXPECT_TRUE(field->getFragmentIDCollection() == collection);
  const FieldPtr without{new Field(Provider(FragmentIDCollectionPtr()))};
  EXPECT_FALSE(without->getFragmentIDCollection());
}

TEST_F(FieldConstructionTest, AFieldIsAProviderItself) {
  const FieldPtr first(new Field);
  const FragmentIDCollectionProvider& provider = *first;
  const FieldPtr second(new Field(provider));
  EXPECT_TRUE(second->getFragmentIDCollection() == first->getFragmentIDCollection());
}

TEST_F(FieldConstructionTest, SiblingsShareTheNumbering) {
  const FieldPtr first(new Field);
  const FragmentIDPtr fragment = first->makeFragmentID("a");
  const FieldPtr sibling{new Field(FieldWeakPtr(first))};
  EXPECT_TRUE(sibling->getFragmentIDCollection() == first->getFragmentIDCollection());
  sibling->setCreator(makeForgetful(), fragment);
  EXPECT_TRUE(sibling->getCreatorByName("a"));
  EXPECT_EQ(first.strongCount(), 1);
}

TEST_F(FieldConstructionTest, ASiblingOfADeadFieldHasNoCollection) {
  FieldWeakPtr dead;
  { dead = FieldPtr(new Field); }
  const FieldPtr field(new Field(dead));
  EXPECT_FALSE(field->getFragmentIDCollection());
  const FieldPtr ofNobody{new Field(FieldWeakPtr())};
  EXPECT_FALSE(ofNobody->getFragmentIDCollection());
}

TEST_F(FieldConstructionTest, ASiblingOfAFieldThatNobodyHoldsYetLeavesItUnclaimed) {
  auto* const first = new Field;
  const FieldPtr sibling{new Field(FieldWeakPtr(first))};
  const FieldPtr held(first);
  EXPECT_EQ(held.strongCount(), 1);
  EXPECT_TRUE(sibling->getFragmentIDCollection() == held->getFragmentIDCollection());
}

TEST_F(FieldConstructionTest, ACreatorGivenIsThatOfTheUnnamedFragment) {
  const auto collection = makeCollection();
  const FieldPtr sibling(new Field(collection));
  const auto creator = makeForgetful();
  const std::vector<FieldPtr> fields{FieldPtr(new Field(creator, FieldWeakPtr(sibling))),
                                     FieldPtr(new Field(creator, Provider(collection))),
                                     FieldPtr(new Field(creator, collection))};
  for (const FieldPtr& field : fields) {
    EXPECT_TRUE(field->getFragmentIDCollection() == collection);
    EXPECT_EQ(field->nFragments(), 1U);
    EXPECT_TRUE(field->getCreator(unnamed()) == creator);
    EXPECT_TRUE(field->isUnfragmented());
    EXPECT_TRUE(creator->isOwnedBy(field));
    EXPECT_EQ(field.strongCount(), 1) << "nothing claimed the field in its constructor";
  }
  EXPECT_EQ(collection->nFragmentIDs(), 1U) << "all of them use the same empty slot";
}

TEST_F(FieldConstructionTest, DataGivenAreKeptInTheDefaultCache) {
  const auto collection = makeCollection();
  const FieldPtr sibling(new Field(collection));
  const MemBasePtr data = makeArray(3);
  const std::vector<FieldPtr> fields{FieldPtr(new Field(data, FieldWeakPtr(sibling))),
                                     FieldPtr(new Field(data, Provider(collection))),
                                     FieldPtr(new Field(data, collection))};
  for (const FieldPtr& field : fields) {
    EXPECT_TRUE(field->getFragmentIDCollection() == collection);
    EXPECT_TRUE(field->isUnfragmented());
    const CreatorPtr creator = field->getCreator(unnamed());
    ASSERT_TRUE(creator);
    EXPECT_TRUE(creator->getData() == data);
    const Tresk::CreativeArrayBase& object = *creator;
    EXPECT_EQ(typeid(object), typeid(Tresk::CreativeArray));
    EXPECT_TRUE(creator->getCache() == Ostrel::Cache::MemCache());
    EXPECT_TRUE(creator->getProvenances().empty());
    EXPECT_EQ(field->getSize()->str(), "3");
    EXPECT_EQ(field.strongCount(), 1);
  }
}

TEST_F(FieldConstructionTest, DataGivenWithACacheAreKeptInThatCache) {
  const CachePtr cache(new Ostrel::Cache);
  const FieldPtr field(new Field(makeArray(3), cache, makeCollection()));
  EXPECT_TRUE(field->getFirstCreator()->getCache() == cache);
  EXPECT_EQ(cache->nCacheables(), 1U);
  const FieldPtr uncached(new Field(makeArray(3), CachePtr(), makeCollection()));
  EXPECT_TRUE(uncached->getFirstData());
}

TEST_F(FieldConstructionTest, AFieldOfDataWithoutCollectionHasOneEntryUnderTheNumberOfTheUnnamedSlot) {
  const FieldPtr field(new Field(makeArray(3), FragmentIDCollectionPtr()));
  ASSERT_TRUE(field->getFragmentIDCollection());
  EXPECT_EQ(field->nFragments(), 1U);
  EXPECT_TRUE(field->getCreatorByNumericalID(0));
  EXPECT_TRUE(field->isUnfragmented());
}

TEST_F(FieldConstructionTest, NullDataAndNullCreatorsMakeNoData) {
  const FieldPtr ofNoData(new Field(MemBasePtr(), makeCollection()));
  EXPECT_EQ(ofNoData->nFragments(), 0U);
  const FieldPtr ofNoCreator(new Field(CreatorPtr(), makeCollection()));
  EXPECT_EQ(ofNoCreator->nFragments(), 1U) << "an entry without a creator";
  EXPECT_FALSE(ofNoCreator->getFirstCreator());
}

TEST_F(FieldConstructionTest, AFixedCollectionReservesRoomForItsFragments) {
  const auto collection = makeFixed();
  const FieldPtr field(new Field(collection));
  CreatorPtr& first = field->setCreator(makeForgetful(), collection->findFragmentID(0));
  for (unsigned int i = 1; i < 6; ++i) field->setCreator(makeForgetful(), collection->findFragmentID(i));
  EXPECT_EQ(&first, &field->getCreatorReferenceViaFragmentIndex(0)) << "filling in order moved no entry";
}

// -------------------------------------------------------------------------------------------------- the save registry

/// Notes the fields that are offered.
class FieldNoter : public Ostrel::SaveInterfaceCreator<Field> {
 public:
  long long createInterface(Field* field) override {
    offered.push_back(FieldWeakPtr(field));
    nFragments.push_back(field->nFragments());
    hasCollection.push_back(field->getFragmentIDCollection().isValid());
    return 0;
  }
  std::vector<FieldWeakPtr> offered;
  std::vector<unsigned long long> nFragments;
  std::vector<bool> hasCollection;
};

class FieldRegistryTest : public TreskTest::RecordBalanceTest {
 protected:
  using NoterPtr = Ostrel::StrongPtr<FieldNoter, Ostrel::SaveInterfaceCreatorBase>;
  FieldRegistryTest() { Ostrel::SaveRegistryBase::registerCreator(typeid(Field), noter); }
  ~FieldRegistryTest() override { Ostrel::SaveRegistryBase::unregisterCreator(typeid(Field), noter); }

  NoterPtr noter{new FieldNoter};
};

TEST_F(FieldRegistryTest, EachConstructorOffersTheFieldOnceBeforeItBindsAnything) {
  const auto collection = makeCollection();
  const Provider provider(collection);
  const auto creator = makeForgetful();
  const MemBasePtr data = makeArray(1);
  std::vector<FieldPtr> fields;
  fields.emplace_back(new Field);
  const FieldWeakPtr sibling(fields[0]);
  fields.emplace_back(new Field(collection));
  fields.emplace_back(new Field(provider));
  fields.emplace_back(new Field(sibling));
  fields.emplace_back(new Field(creator, sibling));
  fields.emplace_back(new Field(creator, provider));
  fields.emplace_back(new Field(creator, collection));
  fields.emplace_back(new Field(data, sibling));
  fields.emplace_back(new Field(data, provider));
  fields.emplace_back(new Field(data, collection));
  fields.emplace_back(new Field(data, Ostrel::Cache::MemCache(), collection));
  ASSERT_EQ(noter->offered.size(), fields.size());
  for (std::size_t i = 0; i < fields.size(); ++i) {
    EXPECT_TRUE(noter->offered[i] == fields[i]) << "constructor " << i;
    EXPECT_EQ(noter->nFragments[i], 0U) << "constructor " << i;
    EXPECT_TRUE(noter->hasCollection[i]) << "constructor " << i;
    EXPECT_EQ(fields[i].strongCount(), 1) << "constructor " << i;
  }
}

TEST_F(FieldRegistryTest, AnExceptionOfASaveCreatorPassesAndNothingStays) {
  class Refusing : public Ostrel::SaveInterfaceCreator<Field> {
   public:
    long long createInterface(Field*) override { throw std::runtime_error("no such format"); }
  };
  const Ostrel::StrongPtr<Refusing, Ostrel::SaveInterfaceCreatorBase> refusing(new Refusing);
  Ostrel::SaveRegistryBase::registerCreator(typeid(Field), refusing);
  EXPECT_THROW(FieldPtr(new Field), std::runtime_error);
  Ostrel::SaveRegistryBase::unregisterCreator(typeid(Field), refusing);
  EXPECT_TRUE(FieldPtr(new Field));
}

// --------------------------------------------------------------------------------------------------------- its end

TEST_F(FieldConstructionTest, ItsEndReleasesTheCreators) {
  const auto creator = makeForgetful(makeArray(1));
  {
    const FieldPtr field(new Field);
    field->setCreator(creator, unnamed());
    EXPECT_EQ(creator.strongCount(), 2);
  }
  EXPECT_EQ(creator.strongCount(), 1);
  EXPECT_EQ(creator->nReleases, 1) << "once in the last rites; the destructor finds nothing";
  EXPECT_FALSE(creator->hasData());
  EXPECT_EQ(creator->nOwners(), 1U) << "a dead entry";
}

TEST_F(FieldConstructionTest, CreatorsCanStillAskTheirOwnersInTheLastRites) {
  const auto saver = TreskTest::makeOwner<TreskTest::FieldOwner>();
  FieldPtr field(new Field);
  field->addOwner(saver);
  field->setPersistentData(makeArray(1), unnamed(), CachePtr(), "");
  field.reset();
  EXPECT_EQ(saver->nQuestions, 1) << "dirty data are offered for saving while the field is whole";
}

TEST_F(FieldConstructionTest, TheLastRitesEmptyTheTableAndLeaveTheCollection) {
  const FieldPtr field(new Field);
  field->setCreator(makeForgetful(), field->makeFragmentID("a"));
  field->extremeUnction();
  EXPECT_EQ(field->nFragments(), 0U);
  EXPECT_EQ(field->getFragmentIDCollection()->nFragmentIDs(), 1U);
  EXPECT_TRUE(noexcept(field->extremeUnction()));
}

TEST_F(FieldConstructionTest, CreatorsSharedWithAnotherFieldLiveOn) {
  const FieldPtr kept(new Field);
  {
    const FieldPtr dropped(new Field);
    const auto creator = makeForgetful();
    kept->setCreator(creator, unnamed());
    dropped->setCreator(creator, unnamed());
  }
  ASSERT_TRUE(kept->getFirstCreator());
  EXPECT_EQ(kept->getFirstCreator()->nOwners(), 2U);
}

using FieldConstructionDeathTest = FieldConstructionTest;

TEST_F(FieldConstructionDeathTest, AnExceptionOfASaverInTheLastRitesTerminates) {
  EXPECT_DEATH(
      {
        FieldPtr field(new Field);
        const auto creator = makeForgetful();
        creator->onRelease = [] { throw std::runtime_error("the disk is full"); };
        field->setCreator(creator, unnamed());
        field->extremeUnction();
      },
      "");
}

TEST_F(FieldConstructionTest, NullPointersToReferToAreOneEach) {
  EXPECT_FALSE(Field::CreativeArrayNullPtr());
  EXPECT_EQ(&Field::CreativeArrayNullPtr(), &Field::CreativeArrayNullPtr());
  EXPECT_FALSE(Field::NullPtrField());
  EXPECT_EQ(&Field::NullPtrField(), &Field::NullPtrField());
}

}  // namespace
