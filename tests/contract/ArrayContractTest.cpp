// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemArray.hpp>
#include <tresk/field/MemArrayProperties.hpp>
#include <tresk/field/SizeInterface.hpp>
#include <tresk/field/TreskType.hpp>

#include <contract/Layout.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace {

using Ostrel::ChunkBase;
using Ostrel::InterfaceBase;
using Quorvel::FixedArray;
using Tresk::CreativeIterator;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::ElementSource;
using Tresk::HyperslabParameters;
using Tresk::IJ_CellNamingConvention;
using Tresk::MemArray;
using Tresk::MemArrayBase;
using Tresk::MemArrayProperties;
using Tresk::MemBase;
using Tresk::MemBasePtr;
using Tresk::MultiArrayOf;
using Tresk::MultiIndex;
using Tresk::ReferencingMemArray;
using Tresk::TreskType;
using Tresk::TreskTypeBase;
using Tresk::TreskTypeIndex;
using Tresk::TypedArray;
using TreskTest::callSlot;
using TreskTest::slotOf;
using TreskTest::wordAt;

using Point = Quorvel::PhysicalSpace::point;

template <class A, class B>
std::ptrdiff_t bytesBetween(const A* a, const B* b) {
  return reinterpret_cast<const char*>(b) - reinterpret_cast<const char*>(a);
}

// -------------------------------------------------------------------------------------------------------------- slots

TEST(ArraySlotOrderTest, MemBase) {
  EXPECT_EQ(slotOf(&MemBase::extremeUnction), 0);
  // 1 and 2: the destructors.
  EXPECT_EQ(slotOf(&MemBase::memsize), 3);
  EXPECT_EQ(slotOf(&MemBase::DeferredConstructor), 4);
  EXPECT_EQ(slotOf(&MemBase::DomainType), 5);
  EXPECT_EQ(slotOf(&MemBase::CreatorType), 6);
  EXPECT_EQ(slotOf(&MemBase::rank), 7);
  EXPECT_EQ(slotOf(&MemBase::getSize), 8);
  EXPECT_EQ(slotOf(&MemBase::nElements), 9);
  EXPECT_EQ(slotOf(&MemBase::getElementType), 10);
  EXPECT_EQ(slotOf(&MemBase::getHyperslab), 11);
  EXPECT_EQ(slotOf(&MemBase::getElementString), 12);
  EXPECT_EQ(slotOf(&MemBase::getDataPointer), 13);
  EXPECT_EQ(slotOf(&MemBase::getChunk), 14);
  EXPECT_EQ(slotOf(&MemBase::getOrigin), 15);
  EXPECT_EQ(slotOf(&MemBase::getDelta), 16);
  EXPECT_EQ(slotOf(&MemBase::makeExplicit), 17);
  EXPECT_EQ(slotOf(&MemBase::getComponent), 18);
  EXPECT_EQ(slotOf(&MemBase::createSubArray), 19);
  EXPECT_EQ(slotOf(&MemBase::createOnChunk), 20);
  EXPECT_EQ(slotOf(&MemBase::copyFromChunk), 21);
  EXPECT_EQ(slotOf(&MemBase::copy), 22);
}

TEST(ArraySlotOrderTest, WhatIsNotVirtualInMemBase) {
  EXPECT_EQ(slotOf(&MemBase::getTreskTypeIndex), -1);
  EXPECT_EQ(
      slotOf(static_cast<MemBasePtr (MemBase::*)(const DynamicSize&, const std::type_info&) const>(&MemBase::create)),
      -1);
  EXPECT_EQ(slotOf(static_cast<MemBasePtr (MemBase::*)(const std::type_info&) const>(&MemBase::create)), -1);
}

template <int N, class Class>
void expectSlotsOfRank() {
  using BoxByIndex =
      MemBasePtr (MemArrayBase<N>::*)(const MultiIndex<N>&, const MultiIndex<N>&, const CreatorWeakPtr&) const;
  using BoxBySize =
      MemBasePtr (MemArrayBase<N>::*)(const DynamicSize&, const DynamicSize&, const CreatorWeakPtr&) const;
  // 0 and 1: the destructors.
  EXPECT_EQ(slotOf(&Class::rank), 2);
  EXPECT_EQ(slotOf(&Class::getIndexSize), 3);
  EXPECT_EQ(slotOf(&Class::createArray), 4);
  if constexpr (std::is_same_v<Class, MemArrayBase<N>>) {
    EXPECT_EQ(slotOf(static_cast<BoxByIndex>(&Class::createSubArray)), 5);
    EXPECT_EQ(slotOf(static_cast<BoxBySize>(&Class::createSubArray)), 6);
  }
  EXPECT_EQ(slotOf(static_cast<DynamicSize (Class::*)() const>(&Class::getSize)), 7);
}

TEST(ArraySlotOrderTest, MemArrayBase) {
  expectSlotsOfRank<1, MemArrayBase<1>>();
  expectSlotsOfRank<2, MemArrayBase<2>>();
  expectSlotsOfRank<3, MemArrayBase<3>>();
  expectSlotsOfRank<4, MemArrayBase<4>>();
}

template <class T>
void expectSlotsOfType() {
  using Array = TypedArray<T>;
  EXPECT_EQ(slotOf(&Array::first), 0);
  EXPECT_EQ(slotOf(&Array::last), 1);
  EXPECT_EQ(slotOf(static_cast<const CreativeIterator<T>& (Array::*)() const>(&Array::getIterator)), 2);
  EXPECT_EQ(slotOf(static_cast<CreativeIterator<T>& (Array::*)()>(&Array::getIterator)), 3);
  EXPECT_EQ(slotOf(&Array::getTypedChunk), 4);
  EXPECT_EQ(slotOf(&Array::getChunk), 5);
  EXPECT_EQ(slotOf(&Array::getElementType), 6);
  // 7 and 8: the destructors.
}

TEST(ArraySlotOrderTest, TypedArray) {
#define EXPECT_SLOTS(...) expectSlotsOfType<__VA_ARGS__>();
  TRESK_FOR_EACH_ELEMENT_TYPE(EXPECT_SLOTS)
#undef EXPECT_SLOTS
}

template <int N, class T>
void expectSlotsOfArray() {
  using Array = MemArray<N, T>;
  using Iterate = CreativeIterator<T>& (Array::*)();
  using ConstIterate = const CreativeIterator<T>& (Array::*)() const;
  expectSlotsOfRank<N, Array>();
  EXPECT_EQ(slotOf(&Array::getSlice), 8);
  EXPECT_EQ(slotOf(&Array::copyFromChunk), 9);
  EXPECT_EQ(slotOf(&Array::getTypedChunk), 10);
  EXPECT_EQ(slotOf(&Array::memsize), 11);
  EXPECT_EQ(slotOf(static_cast<unsigned long long (Array::*)() const>(&ReferencingMemArray<N, T>::nElements)), 12);
  EXPECT_EQ(slotOf(&Array::getElementString), 13);
  EXPECT_EQ(slotOf(&Array::DeferredConstructor), 14);
  EXPECT_EQ(slotOf(&Array::getElementType), 15);
  EXPECT_EQ(slotOf(&Array::getHyperslab), 16);
  EXPECT_EQ(slotOf(&Array::getDataPointer), 17);
  EXPECT_EQ(slotOf(&Array::getOrigin), 18);
  EXPECT_EQ(slotOf(&Array::getDelta), 19);
  EXPECT_EQ(slotOf(&Array::first), 20);
  EXPECT_EQ(slotOf(&Array::last), 21);
  EXPECT_EQ(slotOf(static_cast<ConstIterate>(&Array::getIterator)), 22);
  EXPECT_EQ(slotOf(static_cast<Iterate>(&Array::getIterator)), 23);
  EXPECT_EQ(slotOf(&Array::makeExplicit), 24);
  EXPECT_EQ(slotOf(&Array::createOnChunk), 25);
  EXPECT_EQ(slotOf(&Array::copy), 26);
  EXPECT_EQ(slotOf(&Array::getComponent), 27);
}

TEST(ArraySlotOrderTest, FirstTableOfMemArray) {
#define EXPECT_SLOTS(...)               \
  expectSlotsOfArray<1, __VA_ARGS__>(); \
  expectSlotsOfArray<2, __VA_ARGS__>(); \
  expectSlotsOfArray<3, __VA_ARGS__>(); \
  expectSlotsOfArray<4, __VA_ARGS__>();
  TRESK_FOR_EACH_ELEMENT_TYPE(EXPECT_SLOTS)
#undef EXPECT_SLOTS
}

/// An array that tells how it ends.
class Mortal : public MemArray<1, double> {
 public:
  Mortal() : MemBase(*Tresk::getTreskType<double>(), CreatorWeakPtr()), MemArray(MultiIndex<1>(2), CreatorWeakPtr()) {}
  ~Mortal() override { ++nDestroyed; }

  static void* operator new(std::size_t size) { return ::operator new(size); }
  static void* operator new(std::size_t, void* place) { return place; }
  static void operator delete(void* memory) {
    ++nDeleted;
    ::operator delete(memory);
  }

  const void* addressOfChunk() const { return &chunk; }

  static inline int nDestroyed = 0;
  static inline int nDeleted = 0;
};

/// Ends one array by the complete and another by the deleting destructor, as seen through `Base`.
template <class Base>
void expectDestructors(int complete, int deleting) {
  Mortal::nDestroyed = Mortal::nDeleted = 0;
  alignas(Mortal) unsigned char storage[sizeof(Mortal)];
  auto* const inPlace = new (static_cast<void*>(storage)) Mortal;
  callSlot(static_cast<Base*>(inPlace), complete);
  EXPECT_EQ(Mortal::nDestroyed, 1);
  EXPECT_EQ(Mortal::nDeleted, 0);
  auto* const onTheHeap = new Mortal;
  callSlot(static_cast<Base*>(onTheHeap), deleting);
  EXPECT_EQ(Mortal::nDestroyed, 2);
  EXPECT_EQ(Mortal::nDeleted, 1);
}

TEST(ArraySlotOrderTest, Destructors) {
  expectDestructors<MemBase>(1, 2);
  expectDestructors<MemArrayBase<1>>(0, 1);
  expectDestructors<MemArray<1, double>>(0, 1);
  expectDestructors<TypedArray<double>>(7, 8);
}

TEST(ArraySlotOrderTest, TreskTypeBase) {
  EXPECT_EQ(slotOf(&TreskTypeBase::extremeUnction), 0);
  // 1 and 2: the destructors.
  EXPECT_EQ(slotOf(&TreskTypeBase::getType), 3);
  EXPECT_EQ(slotOf(&TreskTypeBase::isType), 4);
  EXPECT_EQ(slotOf(&TreskTypeBase::createChunk), 5);
  EXPECT_EQ(slotOf(&TreskTypeBase::indexOf), 6);
  EXPECT_EQ(slotOf(&TreskTypeBase::getComponentType), 7);
  EXPECT_EQ(slotOf(&TreskTypeBase::chartComponentName), 8);
  EXPECT_EQ(slotOf(&TreskTypeBase::getChartType), 9);
  EXPECT_EQ(slotOf(&TreskTypeBase::indexKind), 10);
  EXPECT_EQ(slotOf(&TreskTypeBase::indexExtra), 11);
}

TEST(ArraySlotOrderTest, WhatIsNotVirtualInTreskTypeBase) {
  EXPECT_EQ(slotOf(&TreskTypeBase::remember), -1);
  EXPECT_EQ(slotOf(static_cast<std::string (TreskTypeBase::*)() const>(&TreskTypeBase::description)), -1);
  EXPECT_EQ(slotOf(&TreskTypeBase::component_name), -1);
  EXPECT_EQ(slotOf(&TreskTypeBase::speak), -1);
}

TEST(ArraySlotOrderTest, TreskTypeAddsNoSlotOfItsOwn) {
  EXPECT_EQ(slotOf(&TreskType<double>::getType), 3);
  EXPECT_EQ(slotOf(&TreskType<double>::indexExtra), 11);
}

TEST(ArraySlotOrderTest, Allocator) {
  using Allocator = MemBase::Allocator;
  EXPECT_EQ(slotOf(&Allocator::extremeUnction), 0);
  // 1 and 2: the destructors.
  EXPECT_EQ(slotOf(&Allocator::getInterfaceType), 3);
  EXPECT_EQ(slotOf(&Allocator::apply_const), 4);
  EXPECT_EQ(slotOf(&Allocator::apply), 5);
  EXPECT_EQ(slotOf(&Allocator::create), 6);
  EXPECT_EQ(slotOf(&Tresk::MemArrayAllocator<Point>::create), 6);
}

TEST(ArraySlotOrderTest, ElementSource) {
  EXPECT_EQ(slotOf(&ElementSource<double>::slice), 0);
  EXPECT_EQ(slotOf(&ElementSource<double>::element), 1);
  EXPECT_EQ(sizeof(ElementSource<double>), sizeof(void*));
}

// ------------------------------------------------------------------------------------------------------------- layout

TEST(ArrayLayoutTest, DynamicSizeIsRankThenExtents) {
  const DynamicSize size{4, 5, 6};
  EXPECT_EQ(sizeof(DynamicSize), 16U);
  EXPECT_EQ(wordAt(size, 0) & 0xFFFFFFFFU, 3U);
  EXPECT_EQ(wordAt(size, 8), reinterpret_cast<std::uint64_t>(size.getExtents()));
}

TEST(ArrayLayoutTest, SizeInterfaceHasTheInterfaceFirst) {
  const Tresk::SizePtr size(new Tresk::FragmentedSizeInterface(DynamicSize{4}, 77));
  const auto* const object = static_cast<const Tresk::FragmentedSizeInterface*>(size.get());
  EXPECT_EQ(bytesBetween(size.get(), static_cast<const InterfaceBase*>(size.get())), 0);
  EXPECT_EQ(bytesBetween(size.get(), static_cast<const DynamicSize*>(size.get())),
            static_cast<std::ptrdiff_t>(sizeof(InterfaceBase)));
  EXPECT_EQ(sizeof(Tresk::SizeInterface), sizeof(InterfaceBase) + sizeof(DynamicSize));
  EXPECT_EQ(sizeof(Tresk::FragmentedSizeInterface), sizeof(Tresk::SizeInterface) + 8);
  EXPECT_EQ(wordAt(*object, sizeof(Tresk::SizeInterface)), 77U);
}

TEST(ArrayLayoutTest, TreskTypeIndexHasItsNineFieldsInTheOrderOfComparison) {
  EXPECT_FALSE(std::is_polymorphic_v<TreskTypeIndex>);
  EXPECT_EQ(offsetof(TreskTypeIndex, multiplicity), 0U);
  EXPECT_EQ(offsetof(TreskTypeIndex, memSize), 4U);
  EXPECT_EQ(offsetof(TreskTypeIndex, rank), 8U);
  EXPECT_EQ(offsetof(TreskTypeIndex, grade), 12U);
  EXPECT_EQ(offsetof(TreskTypeIndex, elementSize), 16U);
  EXPECT_LT(offsetof(TreskTypeIndex, elementSize), offsetof(TreskTypeIndex, typeName));
  EXPECT_LT(offsetof(TreskTypeIndex, typeName), offsetof(TreskTypeIndex, componentTypeName));
  EXPECT_LT(offsetof(TreskTypeIndex, componentTypeName), offsetof(TreskTypeIndex, chartName));
  EXPECT_LT(offsetof(TreskTypeIndex, chartName), offsetof(TreskTypeIndex, chartDimension));
#if defined(__GLIBCXX__) && _GLIBCXX_USE_CXX11_ABI
  EXPECT_EQ(offsetof(TreskTypeIndex, typeName), 24U);
  EXPECT_EQ(offsetof(TreskTypeIndex, chartDimension), 120U);
  EXPECT_EQ(sizeof(TreskTypeIndex), 128U);
#endif
}

TEST(ArrayLayoutTest, TreskTypeBaseIsACountedObjectAndItsIndex) {
  const Tresk::TreskTypePtr type = Tresk::getTreskType<double>();
  EXPECT_EQ(bytesBetween(type.get(), static_cast<const Ostrel::ReferenceBase<TreskTypeBase>*>(type.get())), 0);
  EXPECT_EQ(bytesBetween(type.get(), static_cast<const TreskTypeIndex*>(type.get())),
            static_cast<std::ptrdiff_t>(sizeof(Ostrel::ReferenceBase<TreskTypeBase>)));
  EXPECT_EQ(sizeof(TreskTypeBase), sizeof(Ostrel::ReferenceBase<TreskTypeBase>) + sizeof(TreskTypeIndex));
  EXPECT_EQ(sizeof(TreskType<double>), sizeof(TreskTypeBase)) << "no field of its own";
  EXPECT_EQ(sizeof(TreskType<Point>), sizeof(TreskTypeBase));
}

TEST(ArrayLayoutTest, ElementsHaveTheSizesOfTheTable) {
  EXPECT_EQ(sizeof(double), 8U);
  EXPECT_EQ(sizeof(unsigned int), 4U);
  EXPECT_EQ((sizeof(FixedArray<double, 2>)), 16U);
  EXPECT_EQ((sizeof(FixedArray<double, 3>)), 24U);
  EXPECT_EQ(sizeof(Point), 24U);
  EXPECT_EQ((sizeof(Quorvel::Vector<double, 3>)), 24U);
  EXPECT_EQ((sizeof(Tresk::SimplexCell<1, unsigned int, IJ_CellNamingConvention>)), 8U);
  EXPECT_EQ((sizeof(Tresk::SimplexCell<2, unsigned int, IJ_CellNamingConvention>)), 12U);
  EXPECT_EQ((sizeof(Tresk::SimplexCell<3, unsigned int, IJ_CellNamingConvention>)), 16U);
  EXPECT_EQ((sizeof(Tresk::RegularCell<2, unsigned int, IJ_CellNamingConvention>)), 16U);
  EXPECT_EQ((sizeof(Tresk::RegularCell<3, unsigned int, IJ_CellNamingConvention>)), 32U);
  EXPECT_EQ(sizeof(Tresk::FragmentIDPtr), 16U);
}

TEST(ArrayLayoutTest, AWalkHasItsFieldsInOrder) {
  EXPECT_EQ(offsetof(HyperslabParameters, count), 0U);
  EXPECT_EQ(offsetof(HyperslabParameters, stride), 8U);
  EXPECT_EQ(offsetof(HyperslabParameters, span), 16U);
  EXPECT_EQ(offsetof(HyperslabParameters, offset), 24U);
  EXPECT_EQ(offsetof(HyperslabParameters, tail), 32U);
  EXPECT_EQ(sizeof(HyperslabParameters), 40U);
  const Tresk::WalkParameters<double> walk;
  EXPECT_EQ(bytesBetween(&walk, &walk.data), 40);
  EXPECT_EQ(bytesBetween(&walk, &walk.source), 48);
  EXPECT_EQ(sizeof(walk), 56U);
}

template <int N, class T>
void expectFieldsOfMultiArray() {
  const MultiArrayOf<N, T> array;
  EXPECT_FALSE((std::is_polymorphic_v<MultiArrayOf<N, T>>));
  EXPECT_EQ(bytesBetween(&array, &array.count), 0);
  EXPECT_EQ(bytesBetween(&array, &array.data), 40);
  EXPECT_EQ(bytesBetween(&array, &array.source), 48);
  EXPECT_EQ(bytesBetween(&array, &array.extents), 56);
  EXPECT_EQ(sizeof(array), 56U + 8U * N);
  EXPECT_EQ((sizeof(Tresk::MultiArrayBase<N, T>)), sizeof(array)) << "no field of its own";
}

TEST(ArrayLayoutTest, AMultiArrayIsAWalkAndItsExtents) {
#define EXPECT_FIELDS(...)                    \
  expectFieldsOfMultiArray<1, __VA_ARGS__>(); \
  expectFieldsOfMultiArray<2, __VA_ARGS__>(); \
  expectFieldsOfMultiArray<3, __VA_ARGS__>(); \
  expectFieldsOfMultiArray<4, __VA_ARGS__>();
  TRESK_FOR_EACH_ELEMENT_TYPE(EXPECT_FIELDS)
#undef EXPECT_FIELDS
}

TEST(ArrayLayoutTest, TheIndexSequenceOfAMultiArrayIsThatOfItsDimensions) {
  EXPECT_TRUE((std::is_same_v<MultiArrayOf<3, double>,
                              Tresk::MultiArray<3, double, std::make_integer_sequence<unsigned long long, 3>>>));
}

TEST(ArrayLayoutTest, MemBaseIsACacheableAnIntercubeAndItsIndex) {
  const Ostrel::StrongPtr<Mortal, Ostrel::Cacheable> array(new Mortal);
  const MemBase* const base = array.get();
  EXPECT_EQ(bytesBetween(base, static_cast<const Ostrel::Cacheable*>(base)), 0);
  const std::ptrdiff_t intercube = bytesBetween(base, static_cast<const Ostrel::Intercube*>(base));
  EXPECT_EQ(intercube, static_cast<std::ptrdiff_t>(sizeof(Ostrel::Cacheable)));
  EXPECT_EQ(bytesBetween(base, &base->getTreskTypeIndex()),
            intercube + static_cast<std::ptrdiff_t>(sizeof(Ostrel::Intercube)));
  EXPECT_EQ(sizeof(MemBase), sizeof(Ostrel::Cacheable) + sizeof(Ostrel::Intercube) + sizeof(TreskTypeIndex));
}

TEST(ArrayLayoutTest, MemArrayHasItsBasesAndFieldsInOrder) {
  const Ostrel::StrongPtr<Mortal, Ostrel::Cacheable> held(new Mortal);
  const Mortal* const array = held.get();
  EXPECT_EQ(bytesBetween(array, static_cast<const ReferencingMemArray<1, double>*>(array)), 0);
  EXPECT_EQ(bytesBetween(array, static_cast<const MemArrayBase<1>*>(array)), 0);
  EXPECT_EQ(bytesBetween(array, static_cast<const MultiArrayOf<1, double>*>(array)), 8);
  EXPECT_EQ(bytesBetween(array, static_cast<const TypedArray<double>*>(array)), 8 + 64);
  EXPECT_EQ(bytesBetween(array, static_cast<const char*>(array->addressOfChunk())), 8 + 64 + 8);
  EXPECT_GE(bytesBetween(array, static_cast<const MemBase*>(array)), 8 + 64 + 8 + 24) << "the virtual base is last";
  EXPECT_EQ((sizeof(MemArray<1, double>)), (sizeof(ReferencingMemArray<1, double>))) << "no field of its own";
}

TEST(ArrayLayoutTest, OneArrayHasOneMemBase) {
  const Ostrel::StrongPtr<Mortal, Ostrel::Cacheable> held(new Mortal);
  const Mortal* const array = held.get();
  EXPECT_EQ(static_cast<const MemBase*>(static_cast<const MemArrayBase<1>*>(array)),
            static_cast<const MemBase*>(static_cast<const TypedArray<double>*>(array)));
}

TEST(ArrayLayoutTest, MemArrayPropertiesAreRankThenType) {
  const Ostrel::StrongPtr<MemArrayProperties, InterfaceBase> properties(
      new MemArrayProperties(3, Tresk::getTreskType<double>()));
  EXPECT_EQ(wordAt(*properties, sizeof(InterfaceBase)) & 0xFFFFFFFFU, 3U);
  EXPECT_EQ(bytesBetween(properties.get(), &properties->getType()),
            static_cast<std::ptrdiff_t>(sizeof(InterfaceBase)) + 8);
  EXPECT_EQ(sizeof(MemArrayProperties), sizeof(InterfaceBase) + 8 + sizeof(Tresk::TreskTypeWeakPtr));
}

TEST(ArrayLayoutTest, AllocatorsAndCellsAddNoField) {
  EXPECT_EQ(sizeof(MemBase::Allocator), sizeof(InterfaceBase));
  EXPECT_EQ(sizeof(Tresk::MemArrayAllocator<double>), sizeof(InterfaceBase));
  EXPECT_TRUE((std::is_base_of_v<FixedArray<unsigned int, 4>, Tresk::Cell<2, 4, unsigned int>>));
  EXPECT_EQ((sizeof(Tresk::Cell<2, 4, unsigned int>)), 16U);
}

TEST(ArrayLayoutTest, TheCounterOfArraysHas32Bits) {
  EXPECT_TRUE((std::is_same_v<decltype(MemBase::RegisteredTypes.get()), int>));
}

}  // namespace
