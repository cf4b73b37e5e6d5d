// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/BaseSpace.hpp>
#include <tresk/field/FieldCollection.hpp>
#include <tresk/field/Fragment.hpp>
#include <tresk/field/FragmentIterator.hpp>
#include <tresk/field/FragmentSelector.hpp>
#include <tresk/field/RegularlyFragmentedField.hpp>

#include <contract/Layout.hpp>
#include <support/FieldDoubles.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <type_traits>

// Slot orders and base orders of what stands around fields: walks, selections, dictionaries, base spaces, fields of
// blocks, and the creator with a thread. Slots 1 and 2 are the two destructors wherever `extremeUnction` is slot 0.

namespace {

using namespace Tresk;  // NOLINT(google-build-using-namespace): this file speaks of nothing else
using TreskTest::callSlot;
using TreskTest::offsetOfBase;
using TreskTest::slotOf;

using FieldOwnable = Ownable<Field, ChildrenProperties>;
using DependencyOwnable = Ownable<BaseSpaceDependency, ChildrenProperties>;
using SpaceOwnable = Ownable<BaseSpace, ChildrenProperties>;

/// The entry of a slot of the first virtual table of an object.
const void* entryOf(const void* object, int slot) {
  const void* const* table;
  std::memcpy(&table, object, sizeof(table));
  return table[slot];
}

/// Offset in bytes of a base or member of a living object.
template <class Part, class Object>
std::ptrdiff_t offsetOf(const Part& part, const Object& object) {
  return reinterpret_cast<const unsigned char*>(&part) - reinterpret_cast<const unsigned char*>(&object);
}

/// Counts what becomes of its objects, which are made of `Kind` and stand on the heap.
template <class Kind>
class Dying : public Kind {
 public:
  using Kind::Kind;
  ~Dying() override { ++nDestroyed; }

  static void* operator new(std::size_t nBytes) { return ::operator new(nBytes); }
  static void operator delete(void* memory) {
    ++nDeleted;
    ::operator delete(memory);
  }

  static inline int nDestroyed = 0;
  static inline int nDeleted = 0;
};

/// Ends one object by the complete and another by the deleting destructor, as seen through `Base`.
template <class Base, class Kind>
void expectDestructors(int complete, Dying<Kind>* one, Dying<Kind>* two) {
  using Object = Dying<Kind>;
  Object::nDestroyed = Object::nDeleted = 0;
  callSlot(static_cast<Base*>(one), complete);
  EXPECT_EQ(Object::nDestroyed, 1);
  EXPECT_EQ(Object::nDeleted, 0) << "slot " << complete << " destroys only";
  Object::operator delete(static_cast<void*>(one));
  callSlot(static_cast<Base*>(two), complete + 1);
  EXPECT_EQ(Object::nDestroyed, 2);
  EXPECT_EQ(Object::nDeleted, 2) << "slot " << complete + 1 << " destroys and deletes";
}

class SomeFragmentIterator : public FragmentIterator {
 public:
  bool apply(const FragmentIDPtr&, const CreatorPtr&) override { return true; }
};
class SomeIndexIterator : public FragmentIndexIterator {
 public:
  bool apply(unsigned int, const CreatorPtr&) override { return true; }
};
class SomeEntryIterator : public Fragment::Iterator {
 public:
  bool apply(const std::string&, CreatorPtr&) override { return true; }
};
class SomeFieldIterator : public FieldCollection::Iterator {
 public:
  bool apply(const std::string&, FieldPtr&) override { return true; }
};
class SomeSelector : public FragmentSelector {
 public:
  bool isSelected(const CreativeArrayBase&, FragmentIDPtr) override { return true; }
};

/// An abstract class without fields whose slots are the destructor and `apply`.
template <class Iterator, class Some>
void expectIterator() {
  EXPECT_TRUE(std::is_abstract_v<Iterator>);
  EXPECT_EQ(sizeof(Iterator), sizeof(void*)) << "no field of its own";
  expectDestructors<Iterator>(0, new Dying<Some>, new Dying<Some>);
  EXPECT_EQ(slotOf(&Iterator::apply), 2);
}

TEST(FieldFamilySlotOrderTest, FragmentIterator) { expectIterator<FragmentIterator, SomeFragmentIterator>(); }
TEST(FieldFamilySlotOrderTest, FragmentIndexIterator) { expectIterator<FragmentIndexIterator, SomeIndexIterator>(); }
TEST(FieldFamilySlotOrderTest, IteratorOfAFragment) { expectIterator<Fragment::Iterator, SomeEntryIterator>(); }
TEST(FieldFamilySlotOrderTest, IteratorOfAFieldCollection) {
  expectIterator<FieldCollection::Iterator, SomeFieldIterator>();
}

TEST(FieldFamilySlotOrderTest, FragmentSelector) {
  EXPECT_TRUE(std::is_abstract_v<FragmentSelector>);
  EXPECT_EQ(slotOf(&FragmentSelector::extremeUnction), 0);
  expectDestructors<FragmentSelector>(1, new Dying<SomeSelector>, new Dying<SomeSelector>);
  EXPECT_EQ(slotOf(&FragmentSelector::isSelected), 3);
}

TEST(FieldFamilySlotOrderTest, Dictionaries) {
  EXPECT_FALSE(std::is_polymorphic_v<Fragment>);
  EXPECT_FALSE(std::is_polymorphic_v<FieldCollection>);
  EXPECT_EQ(slotOf(&Fragment::iterate), -1);
  EXPECT_EQ(slotOf(&FieldCollection::iterate), -1);
  EXPECT_EQ(slotOf(&FieldCollection::FieldsAreOlderThan), -1);
  EXPECT_EQ(slotOf(&FieldCollection::updateAge), -1);
}

TEST(FieldFamilySlotOrderTest, BaseSpaceDependency) {
  EXPECT_EQ(slotOf(&BaseSpaceDependency::extremeUnction), 0);
  expectDestructors<BaseSpaceDependency>(1, new Dying<BaseSpaceDependency>, new Dying<BaseSpaceDependency>);
}

TEST(FieldFamilySlotOrderTest, BaseSpace) {
  EXPECT_EQ(slotOf(&BaseSpace::extremeUnction), 0);
  expectDestructors<BaseSpace>(1, new Dying<BaseSpace>, new Dying<BaseSpace>);
  EXPECT_EQ(slotOf(&BaseSpace::addDependency), -1);
}

template <class Owned>
void expectOwnerSlots() {
  EXPECT_EQ(slotOf(&Owned::processOwnership), 0);
  EXPECT_EQ(slotOf(&Owned::forEachOwner), 1);
  EXPECT_EQ(slotOf(&Owned::addOwner), -1);
}

TEST(FieldFamilySlotOrderTest, WhatIsOwned) {
  expectOwnerSlots<Ownable<CreativeArrayBase, CreativeArrayBaseContainerBase>>();
  expectOwnerSlots<FieldOwnable>();
  expectOwnerSlots<DependencyOwnable>();
  expectOwnerSlots<SpaceOwnable>();
}

TEST(FieldFamilySlotOrderTest, AFieldOfBlocksHasTheTableOfAFieldBesideItsDestructor) {
  using Blocks = RegularlyFragmentedField<3>;
  EXPECT_EQ(slotOf(&Blocks::extremeUnction), 0);
  EXPECT_EQ(slotOf(&Blocks::processOwnership), 3);
  EXPECT_EQ(slotOf(&Blocks::getFragmentIDCollection), 4);
  EXPECT_EQ(slotOf(static_cast<std::string (Blocks::*)() const>(&Blocks::xml)), -1);
  EXPECT_EQ(slotOf(&Blocks::getExtents), -1);
  const FieldPtr plain(new Tresk::Field);
  const FieldPtr blocks(new Blocks(MultiIndex<3>(1, 1, 1), ""));
  for (const int slot : {0, 3, 4}) EXPECT_EQ(entryOf(plain.get(), slot), entryOf(blocks.get(), slot)) << slot;
  for (const int slot : {1, 2}) EXPECT_NE(entryOf(plain.get(), slot), entryOf(blocks.get(), slot)) << slot;
}

TEST(FieldFamilySlotOrderTest, ACreatorWithAThreadAddsNoSlot) {
  EXPECT_EQ(slotOf(&AsynchronCreator::release), 3);
  EXPECT_EQ(slotOf(&AsynchronCreator::isUnderCreation), 6);
  EXPECT_EQ(slotOf(&AsynchronCreator::discardCreation), 7);
  EXPECT_EQ(slotOf(&AsynchronCreator::getType), 10);
  EXPECT_EQ(slotOf(&AsynchronCreator::produce), 11);
  EXPECT_EQ(slotOf(&AsynchronCreator::request), 14);
  EXPECT_EQ(slotOf(&AsynchronCreator::setup), -1);
  EXPECT_EQ(slotOf(&AsynchronCreator::create_data), -1);
  class Further : public AsynchronCreator {
   public:
    using AsynchronCreator::AsynchronCreator;
    virtual int compute() const { return 1; }
  };
  EXPECT_EQ(slotOf(&Further::compute), 15);
}

TEST(FieldFamilyBaseOrderTest, FragmentSelector) {
  EXPECT_EQ((offsetOfBase<FragmentSelector, Ostrel::ReferenceBase<FragmentSelector>>()), 0);
  EXPECT_EQ((offsetOfBase<FragmentSelector, Ostrel::Ageable>()),
            static_cast<std::ptrdiff_t>(sizeof(Ostrel::ReferenceBase<FragmentSelector>)));
  EXPECT_EQ(sizeof(FragmentSelector), sizeof(Ostrel::ReferenceBase<FragmentSelector>) + sizeof(Ostrel::Ageable));
}

TEST(FieldFamilyBaseOrderTest, DictionariesAreTheirMaps) {
  EXPECT_EQ(sizeof(Fragment), sizeof(std::map<std::string, CreatorPtr>));
  EXPECT_EQ(sizeof(FieldCollection), sizeof(std::map<std::string, FieldPtr>));
}

TEST(FieldFamilyBaseOrderTest, BaseSpaceDependency) {
  const BaseSpaceDependencyPtr dependency(new Tresk::BaseSpaceDependency);
  const Tresk::BaseSpaceDependency& object = *dependency;
  const auto& container = static_cast<const FieldOwnable::Container&>(object);
  const auto& ownable = static_cast<const DependencyOwnable&>(object);
  EXPECT_EQ(offsetOf(container, object), 0);
  EXPECT_EQ(offsetOf(static_cast<const Ostrel::ReferenceBase<FieldOwnable::Container>&>(container), object), 0);
  EXPECT_GT(offsetOf(ownable, object), offsetOf(object.age, object));
  EXPECT_EQ(static_cast<const OwnerBase*>(&container), static_cast<const OwnerBase*>(&ownable)) << "one owner base";
}

TEST(FieldFamilyBaseOrderTest, BaseSpace) {
  const Ostrel::StrongPtr<Tresk::BaseSpace, DependencyOwnable::Container> space(new Tresk::BaseSpace);
  const Tresk::BaseSpace& object = *space;
  const auto& container = static_cast<const DependencyOwnable::Container&>(object);
  const auto& ownable = static_cast<const SpaceOwnable&>(object);
  const auto& interfaces = static_cast<const Ostrel::Intercube&>(object);
  EXPECT_EQ(offsetOf(container, object), 0);
  EXPECT_GT(offsetOf(ownable, object), offsetOf(object.age, object));
  EXPECT_GT(offsetOf(interfaces, object), offsetOf(ownable, object));
  EXPECT_EQ(static_cast<const OwnerBase*>(&container), static_cast<const OwnerBase*>(&ownable)) << "one owner base";
  EXPECT_GE(sizeof(object) - static_cast<std::size_t>(offsetOf(interfaces, object)),
            sizeof(Ostrel::Intercube) + sizeof(std::map<int, int>))
      << "the set of dependencies stands behind the bases";
}

TEST(FieldFamilyBaseOrderTest, AFieldOfBlocksIsAFieldAndItsExtents) {
  using Blocks = RegularlyFragmentedField<3>;
  const Ostrel::StrongPtr<Blocks, CreatorContainer> blocks(new Blocks(MultiIndex<3>(1, 2, 3), ""));
  const Blocks& object = *blocks;
  EXPECT_EQ(offsetOf(static_cast<const Tresk::Field&>(object), object), 0);
  EXPECT_GT(offsetOf(object.getExtents(), object), offsetOf(static_cast<const SaveableAttributes&>(object), object));
  EXPECT_EQ(sizeof(Blocks), sizeof(Tresk::Field) + sizeof(MultiIndex<3>));
}

TEST(FieldFamilyBaseOrderTest, ACreatorWithAThreadIsAForgetfulCreatorFirst) {
  const CreatorPtr creator(new AsynchronCreator(AsynchronCreator::Function(), CachePtr()));
  EXPECT_TRUE((std::is_base_of_v<TreskTest::ForgetfulArray, AsynchronCreator>));
  const auto* const object = dynamic_cast<const AsynchronCreator*>(creator.get());
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(offsetOf(static_cast<const TreskTest::ForgetfulArray&>(*object), *object), 0);
}

}  // namespace
