// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Chunks.hpp>
#include <tresk/foundation/Geometry.hpp>
#include <tresk/foundation/Intercube.hpp>
#include <tresk/foundation/Pointers.hpp>

#include <contract/Layout.hpp>
#include <support/CreatorDoubles.hpp>
#include <support/PointerClasses.hpp>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <type_traits>
#include <vector>

// The order of virtual functions, of bases and of fields is part of the binary interface. Slot 0 is `extremeUnction`
// of every counted class, slots 1 and 2 are its two destructors.

namespace {

using namespace Ostrel;  // NOLINT(google-build-using-namespace): this file speaks of nothing else
using TreskTest::callSlot;
using TreskTest::CountingData;
using TreskTest::DataCreatorBase;
using TreskTest::offsetOfBase;
using TreskTest::Root;
using TreskTest::Shifted;
using TreskTest::slotOf;
using TreskTest::wordAt;

/// Counts its destructions and deletions.
class Mortal : public ReferenceBase<Mortal> {
 public:
  Mortal() : ReferenceBase<Mortal>(this) {}
  ~Mortal() override { ++nDestroyed; }
  void extremeUnction() override { ++nUnctions; }

  static void operator delete(void* memory) {
    ++nDeleted;
    std::free(memory);
  }
  static void* operator new(std::size_t nBytes) { return std::malloc(nBytes); }
  static void* operator new(std::size_t, void* place) { return place; }

  static inline int nUnctions = 0;
  static inline int nDestroyed = 0;
  static inline int nDeleted = 0;
};

TEST(SlotOrderTest, ReferenceBase) {
  EXPECT_EQ(slotOf(&ReferenceBase<Mortal>::extremeUnction), 0);
  EXPECT_EQ(slotOf(&Mortal::extremeUnction), 0);

  Mortal::nUnctions = Mortal::nDestroyed = Mortal::nDeleted = 0;
  alignas(Mortal) unsigned char storage[sizeof(Mortal)];
  auto* const onTheStack = new (static_cast<void*>(storage)) Mortal;
  callSlot(onTheStack, 0);
  EXPECT_EQ(Mortal::nUnctions, 1);
  callSlot(onTheStack, 1);
  EXPECT_EQ(Mortal::nDestroyed, 1);
  EXPECT_EQ(Mortal::nDeleted, 0) << "slot 1 is the complete destructor";
  auto* const onTheHeap = new Mortal;
  callSlot(onTheHeap, 2);
  EXPECT_EQ(Mortal::nDestroyed, 2);
  EXPECT_EQ(Mortal::nDeleted, 1) << "slot 2 is the deleting destructor";
}

TEST(SlotOrderTest, ChunkBase) {
  EXPECT_EQ(slotOf(&ChunkBase::extremeUnction), 0);
  EXPECT_EQ(slotOf(&ChunkBase::size), 3);
  EXPECT_EQ(slotOf(&ChunkBase::elementSize), 4);
  EXPECT_EQ(slotOf(static_cast<const void* (ChunkBase::*)() const>(&ChunkBase::data)), 5);
  EXPECT_EQ(slotOf(static_cast<void* (ChunkBase::*)()>(&ChunkBase::data)), 6);
  EXPECT_EQ(slotOf(&ChunkBase::elementType), 7);
  EXPECT_EQ(slotOf(&ChunkBase::chunkType), 8);
  EXPECT_EQ(slotOf(&ChunkBase::describe), 9);
  EXPECT_EQ(slotOf(&ChunkBase::newChunk), 10);
  EXPECT_EQ(slotOf(&ChunkBase::clone), 11);
}

template <template <class> class C, class T>
void expectTypedSlots() {
  EXPECT_EQ(slotOf(static_cast<const std::vector<T>& (C<T>::*)() const>(&C<T>::vector)), 12);
  EXPECT_EQ(slotOf(static_cast<std::vector<T>& (C<T>::*)()>(&C<T>::vector)), 13);
  EXPECT_EQ(slotOf(&C<T>::newTypedChunk), 14);
}

TEST(SlotOrderTest, TypedChunks) {
  expectTypedSlots<TypedChunkBase, double>();
  expectTypedSlots<TypedChunk, double>();
  expectTypedSlots<Chunk, double>();
  expectTypedSlots<Chunk, Quorvel::FixedArray<float, 3>>();
}

TEST(SlotOrderTest, ChunkOverridesInTheSlotsOfItsBase) {
  using C = Chunk<double>;
  EXPECT_EQ(slotOf(static_cast<unsigned long long (C::*)() const>(&C::size)), 3);
  EXPECT_EQ(slotOf(static_cast<const void* (C::*)() const>(&C::data)), 5);
  EXPECT_EQ(slotOf(static_cast<void* (C::*)()>(&C::data)), 6);
  EXPECT_EQ(slotOf(&C::newChunk), 10);
  EXPECT_EQ(slotOf(&C::clone), 11);
}

TEST(SlotOrderTest, Cacheable) {
  EXPECT_EQ(slotOf(&Cacheable::memsize), 3);
  EXPECT_EQ(slotOf(&Cacheable::DeferredConstructor), 4);
  EXPECT_EQ(slotOf(&Cacheable::DomainType), 5);
  EXPECT_EQ(slotOf(&Cacheable::CreatorType), 6);
}

TEST(SlotOrderTest, Creature) {
  EXPECT_EQ(slotOf(&Creature::extremeUnction), 0);
  EXPECT_EQ(slotOf(&Creature::release), 3);
  EXPECT_EQ(slotOf(&Creature::getCacheable), 4);
  EXPECT_EQ(slotOf(&Creature::hasData), 5);
  EXPECT_EQ(slotOf(&Creature::isUnderCreation), 6);
  EXPECT_EQ(slotOf(&Creature::discardCreation), 7);
}

template <class C>
void expectCreatorSlots() {
  EXPECT_EQ(slotOf(&C::release), 3);
  EXPECT_EQ(slotOf(&C::getCacheable), 4);
  EXPECT_EQ(slotOf(&C::hasData), 5);
  EXPECT_EQ(slotOf(&C::isUnderCreation), 6);
  EXPECT_EQ(slotOf(&C::discardCreation), 7);
  EXPECT_EQ(slotOf(&C::canProduce), 8);
  EXPECT_EQ(slotOf(&C::producerName), 9);
  EXPECT_EQ(slotOf(&C::getType), 10);
  EXPECT_EQ(slotOf(&C::produce), 11);
  EXPECT_EQ(slotOf(&C::getData), 12);
  EXPECT_EQ(slotOf(&C::takeData), 13);
  EXPECT_EQ(slotOf(&C::request), 14);
}

using PlainCreator = Creator<CountingData, DataCreatorBase>;
using Forgetful = AlzheimerCreator<CountingData, DataCreatorBase>;

TEST(SlotOrderTest, Creators) {
  expectCreatorSlots<DataCreatorBase>();
  expectCreatorSlots<PlainCreator>();
  expectCreatorSlots<Forgetful>();
}

class Computing : public DataCreatorBase {
 public:
  using DataCreatorBase::DataCreatorBase;
  virtual int compute() const { return 1; }
};

TEST(SlotOrderTest, FirstOperationBehindACreatorBase) { EXPECT_EQ(slotOf(&Computing::compute), 15); }

class ComputingForgetfully : public Forgetful {
 public:
  using Forgetful::Forgetful;
  virtual int compute() const { return 1; }
};

TEST(SlotOrderTest, CreatorTemplatesAddNoSlot) { EXPECT_EQ(slotOf(&ComputingForgetfully::compute), 15); }

TEST(SlotOrderTest, InterfaceBase) {
  EXPECT_EQ(slotOf(&InterfaceBase::extremeUnction), 0);
  EXPECT_EQ(slotOf(&InterfaceBase::getInterfaceType), 3);
  EXPECT_EQ(slotOf(&InterfaceBase::apply_const), 4);
  EXPECT_EQ(slotOf(&InterfaceBase::apply), 5);
  EXPECT_EQ(slotOf(&Interface<int>::getInterfaceType), 3);
}

TEST(SlotOrderTest, Producer) {
  using P = DataCreatorBase::Producer;
  EXPECT_EQ(slotOf(&P::getInterfaceType), 3);
  EXPECT_EQ(slotOf(&P::produce), 6);
  EXPECT_EQ(slotOf(&P::canProduce), 7);
  EXPECT_EQ(slotOf(&P::request), 8);
  EXPECT_EQ(slotOf(&P::isUnderCreation), 9);
}

class CountingRegistry : public SaveRegistryBase {
 public:
  ~CountingRegistry() override { ++nDestroyed; }
  int apply(const StrongPtr<SaveInterfaceCreatorBase, SaveInterfaceCreatorBase>&) override { return 1; }

  static void operator delete(void* memory) {
    ++nDeleted;
    std::free(memory);
  }
  static void* operator new(std::size_t nBytes) { return std::malloc(nBytes); }
  static void* operator new(std::size_t, void* place) { return place; }

  static inline int nDestroyed = 0;
  static inline int nDeleted = 0;
};

TEST(SlotOrderTest, SaveRegistry) {
  EXPECT_EQ(slotOf(&SaveRegistryBase::apply), 2);
  EXPECT_EQ(slotOf(&SaveRegistry<int>::apply), 2);
  CountingRegistry::nDestroyed = CountingRegistry::nDeleted = 0;
  alignas(CountingRegistry) unsigned char storage[sizeof(CountingRegistry)];
  callSlot(new (static_cast<void*>(storage)) CountingRegistry, 0);
  EXPECT_EQ(CountingRegistry::nDestroyed, 1);
  EXPECT_EQ(CountingRegistry::nDeleted, 0) << "slot 0 is the complete destructor";
  callSlot(new CountingRegistry, 1);
  EXPECT_EQ(CountingRegistry::nDestroyed, 2);
  EXPECT_EQ(CountingRegistry::nDeleted, 1) << "slot 1 is the deleting destructor";
}

TEST(SlotOrderTest, SaveInterfaceCreator) {
  EXPECT_EQ(slotOf(&SaveInterfaceCreator<int>::extremeUnction), 0);
  EXPECT_EQ(slotOf(&SaveInterfaceCreator<int>::createInterface), 3);
}

TEST(LayoutTest, PointersHoldTheIdTheRecordAndWhereNeededTheTypedObject) {
  EXPECT_EQ(sizeof(DynPtr<Root, Root>), 16U);
  EXPECT_EQ(sizeof(WeakPtr<Root, Root>), 16U);
  EXPECT_EQ(sizeof(StrongPtr<Root, Root>), 16U);
  EXPECT_EQ(sizeof(DynPtr<Shifted, Root>), 24U);
  EXPECT_EQ(sizeof(WeakPtr<Shifted, Root>), 24U);
  EXPECT_EQ(sizeof(StrongPtr<Shifted, Root>), 24U);

  const StrongPtr<Shifted, Root> typed(new Shifted);
  EXPECT_EQ(wordAt(typed, 0), static_cast<std::uint64_t>(typed.getPointerID()));
  EXPECT_EQ(wordAt(typed, 8), reinterpret_cast<std::uintptr_t>(typed.getRecord()));
  EXPECT_EQ(wordAt(typed, 16), reinterpret_cast<std::uintptr_t>(typed.get()));
  const WeakPtr<Root, Root> plain(typed);
  EXPECT_EQ(wordAt(plain, 0), static_cast<std::uint64_t>(plain.getPointerID()));
  EXPECT_EQ(wordAt(plain, 8), reinterpret_cast<std::uintptr_t>(plain.getRecord()));
  const WeakPtr<Shifted, Root> weak(typed);
  EXPECT_EQ(wordAt(weak, 16), reinterpret_cast<std::uintptr_t>(typed.get()));
  EXPECT_EQ(wordAt(StrongPtr<Root, Root>(), 8), 0U);
}

TEST(LayoutTest, CountedObjectHoldsTheSelfPointerAndItsSerialNumber) {
  EXPECT_EQ(sizeof(ReferenceBase<Root>), 32U);
  const Root object;
  const long long id = PointerID;
  EXPECT_EQ(wordAt(object, 8), static_cast<std::uint64_t>(id));
  EXPECT_EQ(wordAt(object, 16), reinterpret_cast<std::uintptr_t>(object.getRecord()));
  EXPECT_EQ(wordAt(object, 24), static_cast<std::uint64_t>(object.getSerialNumber()));
}

template <class Member>
std::ptrdiff_t offsetIn(const ReferenceRecord& record, const Member& member) {
  return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&record);
}

TEST(LayoutTest, RecordHoldsStrongWeakDeferredAndTheObjectInOrder) {
  const Root object;
  const ReferenceRecord& record = *object.getRecord();
  EXPECT_EQ(offsetIn(record, record.strong), 0);
  EXPECT_EQ(offsetIn(record, record.weak), 4);
  EXPECT_EQ(offsetIn(record, record.deferred), 8);
  EXPECT_EQ(offsetIn(record, record.object), 16);
  EXPECT_EQ(sizeof(record.strong), 4U);
  EXPECT_EQ(sizeof(record.weak), 4U);
  EXPECT_EQ(sizeof(record.deferred), 1U);
  EXPECT_EQ(sizeof(record.object), 8U);
  EXPECT_EQ(sizeof(ReferenceRecord), 64U);
}

TEST(LayoutTest, CreatureHasItsBasesInOrder) {
  EXPECT_EQ((offsetOfBase<Creature, ReferenceBase<Creature>>()), 0);
  EXPECT_EQ((offsetOfBase<Creature, Intercube>()), 32);
  EXPECT_EQ((offsetOfBase<Creature, Ageable>()),
            static_cast<std::ptrdiff_t>(sizeof(ReferenceBase<Creature>) + sizeof(Intercube)));
}

TEST(LayoutTest, AgeableIsOneStamp) {
  EXPECT_EQ(sizeof(Ageable), 8U);
  EXPECT_FALSE(std::is_polymorphic_v<Ageable>);
  EXPECT_EQ(wordAt(Ageable(77), 0), 77U);
  EXPECT_EQ(sizeof(Attributes), 8U);
}

TEST(LayoutTest, ChunkIsACountedObjectAndItsVector) {
  using C = Chunk<double>;
  EXPECT_EQ((offsetOfBase<C, TypedChunk<double>>()), 0);
  EXPECT_EQ((offsetOfBase<C, ChunkBase>()), 0);
  EXPECT_EQ((offsetOfBase<C, std::vector<double>>()), 32);
  EXPECT_EQ(sizeof(C), 32 + sizeof(std::vector<double>));
  EXPECT_EQ(sizeof(ChunkBase), 32U);
  EXPECT_EQ(sizeof(TypedChunk<double>), 32U);
}

TEST(LayoutTest, CreatorAddsItsDataPointerOnly) {
  EXPECT_EQ(sizeof(DataCreatorBase), sizeof(Creature));
  EXPECT_EQ(sizeof(PlainCreator), sizeof(DataCreatorBase) + sizeof(StrongPtr<CountingData, Cacheable>));
  EXPECT_EQ(sizeof(Forgetful), sizeof(PlainCreator));
  EXPECT_EQ(sizeof(DataCreatorBase::Producer), sizeof(InterfaceBase) + sizeof(std::string));
}

TEST(LayoutTest, InterfacesAddNothingToTheirBase) {
  EXPECT_EQ(sizeof(InterfaceBase), 32U);
  EXPECT_EQ(sizeof(Interface<int>), 32U);
  EXPECT_EQ(sizeof(SaveInterfaceCreatorBase), 32U);
  EXPECT_EQ(sizeof(SaveInterfaceCreator<int>), 32U);
  EXPECT_EQ(sizeof(SaveRegistryBase), 8U);
  EXPECT_EQ(sizeof(SaveRegistry<int>), 16U);
}

TEST(LayoutTest, ValueInterfaceHasItsValueAsSecondBase) {
  using Value = StrongPtr<Root, Root>;
  using Data = InterfaceData<Value, void>;
  EXPECT_EQ((offsetOfBase<Data, InterfaceBase>()), 0);
  EXPECT_EQ((offsetOfBase<Data, Value>()), 32);
  EXPECT_EQ(sizeof(Data), 48U);
}

TEST(LayoutTest, GeometricValuesHoldTheirNumbersOnly) {
  using namespace Quorvel;  // NOLINT(google-build-using-namespace)
  EXPECT_EQ(sizeof(FixedArray<double, 3>), 24U);
  EXPECT_EQ(sizeof(FixedArray<unsigned int, 8>), 32U);
  EXPECT_EQ(sizeof(FixedArray<unsigned short, 3>), 6U);
  EXPECT_EQ(sizeof(FixedArray<char, 5>), 5U);
  EXPECT_EQ(sizeof(Vector<double, 3>), 24U);
  EXPECT_EQ(sizeof(PhysicalSpace::point), 24U);
  EXPECT_EQ(sizeof(PhysicalSpace::vector), 24U);
  EXPECT_EQ(sizeof(PhysicalSpace::AABB), 48U);
  EXPECT_EQ((offsetOfBase<PhysicalSpace::point, FixedArray<double, 3>>()), 0);
  EXPECT_EQ((offsetOfBase<PhysicalSpace::AABB, std::array<PhysicalSpace::point, 2>>()), 0);
}

TEST(LayoutTest, BoundingBoxIsABallThenABox) {
  using namespace Quorvel;  // NOLINT(google-build-using-namespace)
  EXPECT_EQ((offsetOfBase<BoundingBall, Interface<BoundingBall>>()), 0);
  EXPECT_EQ((offsetOfBase<BoundingBall, Ageable>()), 32);
  EXPECT_EQ((offsetOfBase<BoundingBox, BoundingBall>()), 0);
  EXPECT_EQ((offsetOfBase<BoundingBox, PhysicalSpace::AABB>()), 40);
  EXPECT_EQ(sizeof(BoundingBox), 88U);
}

}  // namespace
