// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FragmentID.hpp>
#include <tresk/field/FragmentIDCollection.hpp>
#include <tresk/field/FragmentIDContainer.hpp>
#include <tresk/field/FunctionalCreator.hpp>

#include <contract/Layout.hpp>
#include <support/FieldDoubles.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <set>
#include <type_traits>

// Slot orders, base orders and member orders of owners, creators, fragment identity and fields. They are part of the
// binary interface. Slots 1 and 2 are the two destructors wherever a function of slot 0 stands before them and the next
// one is slot 3.

namespace {

using namespace Tresk;  // NOLINT(google-build-using-namespace): this file speaks of nothing else
using TreskTest::callSlot;
using TreskTest::CreatorOwner;
using TreskTest::FieldOwner;
using TreskTest::offsetOfBase;
using TreskTest::slotOf;

using FieldOwnable = Ownable<Field, ChildrenProperties>;
using CreatorOwnable = Ownable<CreativeArrayBase, CreativeArrayBaseContainerBase>;
using ArrayCreatorBase = Ostrel::CreatorBase<MemBase>;

/// Offset in bytes of a base or member of a living object.
template <class Part, class Object>
std::ptrdiff_t offsetOf(const Part& part, const Object& object) {
  return reinterpret_cast<const unsigned char*>(&part) - reinterpret_cast<const unsigned char*>(&object);
}

/// The entry of a slot of the first virtual table of an object.
const void* entryOf(const void* object, int slot) {
  const void* const* table;
  std::memcpy(&table, object, sizeof(table));
  return table[slot];
}

TEST(FieldSlotOrderTest, OwnerBase) {
  EXPECT_EQ(slotOf(&OwnerBase::processOwnership), 0);
  EXPECT_EQ(slotOf(&OwnerBase::forEachOwner), 1);
  EXPECT_FALSE(std::has_virtual_destructor_v<OwnerBase>);
  EXPECT_EQ(sizeof(OwnerBase), sizeof(void*));
}

TEST(FieldSlotOrderTest, CreatorsHaveTheSlotsOfTheirFoundation) {
  EXPECT_EQ(slotOf(&CreativeArrayBase::extremeUnction), 0);
  EXPECT_EQ(slotOf(&Ostrel::Creature::release), 3);
  EXPECT_EQ(slotOf(&Ostrel::Creature::getCacheable), 4);
  EXPECT_EQ(slotOf(&Ostrel::Creature::hasData), 5);
  EXPECT_EQ(slotOf(&Ostrel::Creature::isUnderCreation), 6);
  EXPECT_EQ(slotOf(&Ostrel::Creature::discardCreation), 7);
  EXPECT_EQ(slotOf(&ArrayCreatorBase::canProduce), 8);
  EXPECT_EQ(slotOf(&ArrayCreatorBase::producerName), 9);
  EXPECT_EQ(slotOf(&ArrayCreatorBase::getType), 10);
  EXPECT_EQ(slotOf(&ArrayCreatorBase::produce), 11);
  EXPECT_EQ(slotOf(&ArrayCreatorBase::getData), 12);
  EXPECT_EQ(slotOf(&ArrayCreatorBase::takeData), 13);
  EXPECT_EQ(slotOf(&ArrayCreatorBase::request), 14);
}

TEST(FieldSlotOrderTest, CreatorsAddNoSlotBetweenThatAndCompute) {
  EXPECT_EQ(slotOf(&FunctionalCreatorBase::compute), 15);
  EXPECT_EQ(slotOf(&FunctionalCreator::compute), 15);
  EXPECT_EQ(slotOf(&CreativeArray::release), 3);
  EXPECT_EQ(slotOf(&FunctionalCreatorBase::produce), 11);
  EXPECT_EQ(slotOf(&FunctionalCreatorBase::request), 14);
  EXPECT_EQ(slotOf(&FunctionalCreatorBase::isUnderCreation), 6);
}

TEST(FieldSlotOrderTest, OperationsOfCreatorsThatAreNotVirtual) {
  EXPECT_EQ(slotOf(&CreativeArrayBase::retryCreation), -1);
  EXPECT_EQ(slotOf(&CreativeArrayBase::save), -1);
  EXPECT_EQ(slotOf(&CreativeArrayBase::getBinder), -1);
  EXPECT_EQ(slotOf(&CreativeArrayBase::touch), -1);
  EXPECT_EQ(slotOf(&CreativeArrayBase::touchAttributes), -1);
  EXPECT_EQ(slotOf(&CreativeArrayBase::updateAttributeAge), -1);
  EXPECT_EQ(slotOf(&CreativeArrayBase::addDataMetaInfo), -1);
  EXPECT_EQ(slotOf(&CreativeArrayBase::setTreskType), -1);
  EXPECT_EQ(slotOf(&CreativeArrayBase::getTreskType), -1);
}

/// Counts what becomes of a field.
class DyingField : public Field {
 public:
  ~DyingField() override { ++nDestroyed; }
  static void* operator new(std::size_t nBytes) { return ::operator new(nBytes); }
  static void operator delete(void* memory) {
    ++nDeleted;
    ::operator delete(memory);
  }
  static inline int nDestroyed = 0;
  static inline int nDeleted = 0;
};

TEST(FieldSlotOrderTest, Field) {
  EXPECT_EQ(slotOf(&Tresk::Field::extremeUnction), 0);
  EXPECT_EQ(slotOf(&Tresk::Field::processOwnership), 3);
  EXPECT_EQ(slotOf(&Tresk::Field::getFragmentIDCollection), 4);

  DyingField::nDestroyed = DyingField::nDeleted = 0;
  callSlot(new DyingField, 2);
  EXPECT_EQ(DyingField::nDestroyed, 1);
  EXPECT_EQ(DyingField::nDeleted, 1) << "slot 2 destroys and deletes";
  auto* const field = new DyingField;
  callSlot(field, 1);
  EXPECT_EQ(DyingField::nDestroyed, 2);
  EXPECT_EQ(DyingField::nDeleted, 1) << "slot 1 destroys only";
  DyingField::operator delete(field);
}

TEST(FieldSlotOrderTest, TheSlotsOfAFieldAreFourDifferentFunctions) {
  const FieldPtr field(new Tresk::Field);
  std::set<const void*> entries;
  for (int slot = 0; slot < 5; ++slot) entries.insert(entryOf(field.get(), slot));
  EXPECT_EQ(entries.size(), 5U);
}

TEST(FieldSlotOrderTest, AQuestionReachesAFieldThroughItsFirstTable) {
  const FieldPtr field(new Tresk::Field);
  const auto owner = TreskTest::makeOwner<FieldOwner>();
  owner->answer = false;
  field->addOwner(owner);
  using Function = bool (*)(const void*, Ostrel::Intercube*, const Ostrel::Intercube*);
  const auto ask = reinterpret_cast<Function>(reinterpret_cast<std::uintptr_t>(entryOf(field.get(), 3)));
  Ostrel::Intercube question;
  EXPECT_FALSE(ask(field.get(), &question, &question));
  EXPECT_EQ(owner->nQuestions, 1);
  const OwnerBase& base = *field;
  EXPECT_FALSE(base.processOwnership(question, question)) << "and through that of the virtual base";
  EXPECT_EQ(owner->nQuestions, 2);
}

TEST(FieldSlotOrderTest, FragmentIdentity) {
  EXPECT_EQ(slotOf(&FragmentID::extremeUnction), 0);
  EXPECT_EQ(slotOf(&FragmentIDCollection::extremeUnction), 0);
  EXPECT_EQ(slotOf(&FragmentIDCollectionProvider::getFragmentIDCollection), 0);
  EXPECT_EQ(sizeof(FragmentIDCollectionProvider), sizeof(void*));
  EXPECT_EQ(slotOf(&BinderBase::extremeUnction), 0);
  EXPECT_FALSE(std::is_polymorphic_v<FragmentIDContainer>);
  EXPECT_EQ(slotOf(&FragmentIDCollection::makeFragmentID), -1);
  EXPECT_EQ(slotOf(&FragmentIDCollection::getID), -1);
}

TEST(FieldBaseOrderTest, Creator) {
  const CreatorPtr creator = TreskTest::makeForgetful();
  const CreativeArrayBase& object = *creator;
  EXPECT_EQ(offsetOf(static_cast<const ArrayCreatorBase&>(object), object), 0);
  const std::ptrdiff_t ownable = offsetOf(static_cast<const CreatorOwnable&>(object), object);
  const std::ptrdiff_t attributes = offsetOf(static_cast<const SaveableAttributes&>(object), object);
  EXPECT_GT(ownable, 0);
  EXPECT_GT(attributes, ownable);
  EXPECT_GT(offsetOf(object.savedAge, object), attributes) << "members stand behind the bases";
}

TEST(FieldBaseOrderTest, MembersOfACreatorForSavers) {
  const CreatorPtr creator = TreskTest::makeForgetful();
  const CreativeArrayBase& object = *creator;
  const std::ptrdiff_t savedAge = offsetOf(object.savedAge, object);
  const std::ptrdiff_t binderAges = offsetOf(object.binderAges, object);
  const std::ptrdiff_t attributeSaveAge = offsetOf(object.attributeSaveAge, object);
  const std::ptrdiff_t savingState = offsetOf(object.savingState, object);
  EXPECT_EQ(binderAges, savedAge + static_cast<std::ptrdiff_t>(sizeof(Ostrel::Ageable)));
  EXPECT_EQ(attributeSaveAge, binderAges + static_cast<std::ptrdiff_t>(sizeof(object.binderAges)));
  EXPECT_EQ(savingState, attributeSaveAge + static_cast<std::ptrdiff_t>(sizeof(Ostrel::Ageable)));
  EXPECT_EQ(sizeof(object.savingState), 4U);
  // Type index and type record stand between the last base and the saved age.
  const std::ptrdiff_t endOfBases = offsetOf(static_cast<const SaveableAttributes&>(object), object) +
                                    static_cast<std::ptrdiff_t>(sizeof(SaveableAttributes));
  EXPECT_EQ(savedAge - endOfBases, static_cast<std::ptrdiff_t>(sizeof(TreskTypeIndex) + sizeof(TreskTypeWeakPtr)));
}

TEST(FieldBaseOrderTest, CreatorsBuildOnEachOther) {
  EXPECT_TRUE((std::is_base_of_v<Ostrel::Creator<MemBase, CreativeArrayBase>, CreativeArray>));
  EXPECT_FALSE((std::is_base_of_v<TreskTest::ForgetfulArray, CreativeArray>));
  EXPECT_EQ(sizeof(CreativeArray), sizeof(Ostrel::Creator<MemBase, CreativeArrayBase>)) << "it adds no member";
  EXPECT_EQ((offsetOfBase<TreskTest::ForgetfulArray, ArrayCreatorBase>()), 0);
}

TEST(FieldBaseOrderTest, Owner) {
  const auto owner = TreskTest::makeOwner<CreatorOwner>();
  const CreatorOwner& object = *owner;
  EXPECT_EQ(offsetOf(static_cast<const Ostrel::ReferenceBase<CreatorOwner>&>(object), object), 0);
  EXPECT_EQ(offsetOf(object.attributeAge, object) - offsetOf(object.dataAge, object),
            static_cast<std::ptrdiff_t>(sizeof(Ostrel::Ageable)));
  EXPECT_EQ(sizeof(CreativeArrayBaseContainerBase), 2 * sizeof(Ostrel::Ageable));
  EXPECT_EQ(sizeof(ChildrenProperties), sizeof(Ostrel::Ageable));
}

TEST(FieldBaseOrderTest, Field) {
  const FieldPtr field(new Tresk::Field);
  const Tresk::Field& object = *field;
  const std::ptrdiff_t offsets[] = {
      offsetOf(static_cast<const CreatorOwner&>(object), object),
      offsetOf(static_cast<const FieldOwnable&>(object), object),
      offsetOf(static_cast<const Ostrel::Intercube&>(object), object),
      offsetOf(static_cast<const FragmentIDCollectionProvider&>(object), object),
      offsetOf(static_cast<const Ostrel::Ageable&>(object), object),
      offsetOf(static_cast<const SaveableAttributes&>(object), object),
  };
  EXPECT_EQ(offsets[0], 0);
  for (std::size_t i = 1; i < std::size(offsets); ++i) EXPECT_LT(offsets[i - 1], offsets[i]) << i;
}

TEST(FieldBaseOrderTest, BothPathsOfAFieldLeadToOneOwnerBase) {
  const FieldPtr field(new Tresk::Field);
  const CreatorOwner& container = *field;
  const FieldOwnable& ownable = *field;
  EXPECT_EQ(static_cast<const OwnerBase*>(&container), static_cast<const OwnerBase*>(&ownable));
}

TEST(FieldBaseOrderTest, FragmentID) {
  EXPECT_EQ((offsetOfBase<FragmentID, Ostrel::ReferenceBase<FragmentID>>()), 0);
  EXPECT_EQ((offsetOfBase<FragmentID, Ostrel::Intercube>()),
            static_cast<std::ptrdiff_t>(sizeof(Ostrel::ReferenceBase<FragmentID>)));
  const FragmentIDPtr fragment(new Tresk::FragmentID("a"));
  const std::ptrdiff_t name = offsetOf(fragment->getName(), *fragment);
  const std::ptrdiff_t owner = offsetOf(fragment->getOwner(), *fragment);
  EXPECT_EQ(name, static_cast<std::ptrdiff_t>(sizeof(Ostrel::ReferenceBase<FragmentID>) + sizeof(Ostrel::Intercube)));
  EXPECT_EQ(owner, name + static_cast<std::ptrdiff_t>(sizeof(std::string)));
}

TEST(FieldBaseOrderTest, TableOfAField) {
  const Tresk::Field::fragments_t table;
  EXPECT_EQ(offsetOf(table.keys, table), 0);
  EXPECT_EQ(offsetOf(table.values, table), static_cast<std::ptrdiff_t>(sizeof(table.keys)));
  EXPECT_TRUE((std::is_same_v<decltype(table.keys), std::vector<std::uint32_t>>));
  EXPECT_TRUE((std::is_same_v<decltype(table.values), std::vector<CreatorPtr>>));
  EXPECT_TRUE((std::is_same_v<Tresk::Field::fragment_mutex_t, FragmentMutex>));
}

}  // namespace
