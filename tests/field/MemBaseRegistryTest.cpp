// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemArray.hpp>
#include <tresk/field/MemArrayProperties.hpp>
#include <tresk/field/MemBase.hpp>
#include <tresk/field/TreskType.hpp>

#include <field/ElementSamples.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace {
/// An element type that only these tests know; its allocator makes arrays of doubles.
struct Unlisted {
  double value;
};
struct Forgotten {
  double value;
};
}  // namespace

template <>
struct Tresk::ElementTraits<Unlisted> : Tresk::TupleTraits<double, 1> {};
template <>
struct Tresk::ElementTraits<Forgotten> : Tresk::TupleTraits<double, 1> {};

namespace {

using Ostrel::ChunkBase;
using Ostrel::InterfaceBase;
using Ostrel::StrongPtr;
using Ostrel::WeakPtr;
using Tresk::DynamicSize;
using Tresk::getTreskType;
using Tresk::MemArray;
using Tresk::MemArrayAllocator;
using Tresk::MemArrayProperties;
using Tresk::MemBase;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;
using Tresk::TreskType;
using Tresk::TreskTypeBase;
using Tresk::TreskTypePtr;
using Tresk::TreskTypeWeakPtr;
using TreskTest::ArrayPtr;

using AllocatorPtr = StrongPtr<MemBase::Allocator, InterfaceBase>;

/// Makes arrays of doubles of rank 1, whatever it is asked for, and counts.
class CountingAllocator : public MemBase::Allocator {
 public:
  explicit CountingAllocator(int& nCalls) : nCalls_(nCalls) {}
  MemBasePtr create(const DynamicSize& size) const override {
    ++nCalls_;
    return MemBasePtr(new MemArray<1, double>(MultiIndex<1>(size.nElements()), Tresk::CreatorWeakPtr()));
  }

 private:
  int& nCalls_;
};

/// Puts the allocator of the library back at the end of a test.
template <class T>
class AllocatorKeeper {
 public:
  AllocatorKeeper() = default;
  ~AllocatorKeeper() { MemBase::registerCreator(AllocatorPtr(new MemArrayAllocator<T>), getTreskType<T>()); }
  AllocatorKeeper(const AllocatorKeeper&) = delete;
  AllocatorKeeper& operator=(const AllocatorKeeper&) = delete;
};

DynamicSize sizeOfRank(int rank) {
  const unsigned long long extents[] = {2, 3, 4, 5, 6};
  return DynamicSize(rank, extents);
}

class MemBaseRegistryTest : public ::testing::Test {};

template <class T>
class MemBaseCreateTest : public TreskTest::RecordBalanceTest {};
TYPED_TEST_SUITE(MemBaseCreateTest, TreskTest::AllElementTypes);

TYPED_TEST(MemBaseCreateTest, MakesAnArrayOfEachRank) {
  using T = TypeParam;
  TreskTest::forEachRank([]<int N>(std::integral_constant<int, N>) {
    const MemBasePtr base = MemBase::create(getTreskType<T>(), sizeOfRank(N), typeid(void));
    ASSERT_TRUE(base);
    const MemBase& made = *base;
    EXPECT_EQ(typeid(made), (typeid(MemArray<N, T>)));
    EXPECT_FALSE(made.getSize() != sizeOfRank(N));
    EXPECT_EQ(made.memsize(), sizeOfRank(N).nElements() * sizeof(T));
    EXPECT_FALSE(made.getCreator());
    EXPECT_EQ(base.strongCount(), 1);
  });
}

TYPED_TEST(MemBaseCreateTest, MakesNothingOfRankZeroAndAboveFour) {
  const long long nBytes = ChunkBase::TotalMemsize.get();
  const TreskTypePtr type = getTreskType<TypeParam>();
  EXPECT_FALSE(MemBase::create(type, DynamicSize(), typeid(void)));
  EXPECT_FALSE(MemBase::create(type, DynamicSize(0, DynamicSize(), DynamicSize()), typeid(void)));
  EXPECT_FALSE(MemBase::create(type, sizeOfRank(5), typeid(void)));
  EXPECT_EQ(MemBase::create(type, sizeOfRank(5), typeid(void)).getRecord(), nullptr);
  EXPECT_EQ(ChunkBase::TotalMemsize.get(), nBytes);
}

TYPED_TEST(MemBaseCreateTest, AnArrayMakesAnotherOfItsElementType) {
  using T = TypeParam;
  const MemBasePtr array = MemBase::create(getTreskType<T>(), DynamicSize{2, 3}, typeid(void));
  const MemBasePtr other = array->create(DynamicSize{4, 5, 6}, typeid(void));
  ASSERT_TRUE((ArrayPtr<3, T>(other)));
  EXPECT_EQ(other->getSize().str(), "4x5x6");
  EXPECT_FALSE(array->create(DynamicSize(), typeid(void)));
  EXPECT_FALSE(array->create(sizeOfRank(5), typeid(void)));
}

TYPED_TEST(MemBaseCreateTest, AnArrayMakesAnotherOfItsTypeAndSize) {
  using T = TypeParam;
  const MemBasePtr array = MemBase::create(getTreskType<T>(), DynamicSize{2, 3}, typeid(void));
  const ArrayPtr<2, T> other(array->create(typeid(void)));
  ASSERT_TRUE(other);
  EXPECT_FALSE(other == array);
  EXPECT_FALSE(other->getChunk() == array->getChunk());
  EXPECT_EQ(other->getSize().str(), "2x3");
}

TYPED_TEST(MemBaseCreateTest, TheRequesterMakesNoDifference) {
  using T = TypeParam;
  const MemBasePtr a = MemBase::create(getTreskType<T>(), DynamicSize{2}, typeid(void));
  const MemBasePtr b = MemBase::create(getTreskType<T>(), DynamicSize{2}, typeid(MemBase));
  const MemBase& first = *a;
  const MemBase& second = *b;
  EXPECT_EQ(typeid(first), typeid(second));
}

TEST_F(MemBaseRegistryTest, AnArrayOfDoublesMakesAnotherWithZeroValues) {
  const ArrayPtr<2, double> array = TreskTest::makeSamples<2, double>(MultiIndex<2>(3, 4));
  const ArrayPtr<2, double> other(static_cast<const MemBase&>(*array).create(typeid(MemBaseRegistryTest)));
  ASSERT_TRUE(other);
  EXPECT_FALSE(other == array);
  EXPECT_TRUE(other->getIndexSize() == array->getIndexSize());
  for (const double value : other->getTypedChunk()->vector()) EXPECT_EQ(value, 0.0);
}

TEST_F(MemBaseRegistryTest, AnInvalidTypeIsNotRegistered) {
  int nCalls = 0;
  const AllocatorPtr allocator(new CountingAllocator(nCalls));
  const int nPointers = allocator.weakCount();
  EXPECT_EQ(MemBase::registerCreator(allocator, TreskTypePtr()), 0);
  TreskTypePtr record(new TreskType<Unlisted>);
  const TreskTypeWeakPtr weak(record);
  record.reset();
  EXPECT_EQ(MemBase::registerCreator(allocator, TreskTypePtr(weak)), 0);
  EXPECT_EQ(MemBase::registerCreator(AllocatorPtr(), TreskTypePtr()), 0);
  EXPECT_EQ(allocator.strongCount(), 1);
  EXPECT_EQ(allocator.weakCount(), nPointers) << "the registry kept nothing";
}

TEST_F(MemBaseRegistryTest, ATypeWithoutAnEntryGivesNoArray) {
  const TreskTypePtr record(new TreskType<Forgotten>);
  EXPECT_FALSE(MemBase::create(record, DynamicSize{2}, typeid(void)));
}

TEST_F(MemBaseRegistryTest, TheSameAllocatorAgainChangesNothing) {
  const AllocatorKeeper<double> keeper;
  int nCalls = 0;
  const AllocatorPtr allocator(new CountingAllocator(nCalls));
  EXPECT_EQ(MemBase::registerCreator(allocator, getTreskType<double>()), 1);
  EXPECT_EQ(allocator.strongCount(), 2);
  EXPECT_EQ(MemBase::registerCreator(allocator, getTreskType<double>()), 1);
  EXPECT_EQ(allocator.strongCount(), 2) << "one entry";
  EXPECT_TRUE(MemBase::create(getTreskType<double>(), DynamicSize{2}, typeid(void)));
  EXPECT_EQ(nCalls, 1);
}

TEST_F(MemBaseRegistryTest, TheLastAllocatorOfATypeWinsAndTheFormerLivesWithItsHolders) {
  const AllocatorKeeper<double> keeper;
  int nFirst = 0;
  int nSecond = 0;
  AllocatorPtr first(new CountingAllocator(nFirst));
  const WeakPtr<MemBase::Allocator, InterfaceBase> observed(first);
  const AllocatorPtr second(new CountingAllocator(nSecond));
  EXPECT_EQ(MemBase::registerCreator(first, getTreskType<double>()), 1);
  EXPECT_TRUE(MemBase::create(getTreskType<double>(), DynamicSize{2}, typeid(void)));
  EXPECT_EQ(nFirst, 1);
  EXPECT_EQ(MemBase::registerCreator(second, getTreskType<double>()), 1);
  EXPECT_TRUE(MemBase::create(getTreskType<double>(), DynamicSize{2}, typeid(void)));
  EXPECT_EQ(nFirst, 1);
  EXPECT_EQ(nSecond, 1);
  EXPECT_EQ(first.strongCount(), 1);
  EXPECT_TRUE(first->create(DynamicSize{2}));
  EXPECT_EQ(nFirst, 2);
  first.reset();
  EXPECT_FALSE(observed);
}

TEST_F(MemBaseRegistryTest, TheAllocatorOfOneTypeServesNoOther) {
  const AllocatorKeeper<double> keeper;
  int nCalls = 0;
  EXPECT_EQ(MemBase::registerCreator(AllocatorPtr(new CountingAllocator(nCalls)), getTreskType<double>()), 1);
  EXPECT_TRUE(MemBase::create(getTreskType<unsigned int>(), DynamicSize{2}, typeid(void)));
  EXPECT_EQ(nCalls, 0);
  const MemBasePtr array = MemBase::create(getTreskType<double>(), DynamicSize{2, 3}, typeid(void));
  EXPECT_EQ(array->getSize().str(), "6");
  EXPECT_EQ(nCalls, 1);
  EXPECT_TRUE(array->create(typeid(void)));
  EXPECT_EQ(nCalls, 2) << "the member forms use the registry too";
}

TEST_F(MemBaseRegistryTest, ANullAllocatorIsStoredAndMakesNothing) {
  {
    const AllocatorKeeper<unsigned int> keeper;
    EXPECT_EQ(MemBase::registerCreator(AllocatorPtr(), getTreskType<unsigned int>()), 1);
    EXPECT_FALSE(MemBase::create(getTreskType<unsigned int>(), DynamicSize{2}, typeid(void)));
    const ArrayPtr<1, unsigned int> array = TreskTest::makeArray<1, unsigned int>(MultiIndex<1>(2));
    EXPECT_FALSE(array->create(typeid(void)));
  }
  EXPECT_TRUE(MemBase::create(getTreskType<unsigned int>(), DynamicSize{2}, typeid(void)));
}

TEST_F(MemBaseRegistryTest, ANewTypeIsServedFromItsRegistrationOn) {
  int nCalls = 0;
  const TreskTypePtr record(new TreskType<Unlisted>);
  EXPECT_FALSE(MemBase::create(record, DynamicSize{4}, typeid(void)));
  EXPECT_EQ(MemBase::registerCreator(AllocatorPtr(new CountingAllocator(nCalls)), record), 1);
  EXPECT_TRUE(MemBase::create(record, DynamicSize{4}, typeid(void)));
  EXPECT_EQ(nCalls, 1);
  const TreskTypePtr twin(new TreskType<Unlisted>);
  EXPECT_TRUE(MemBase::create(twin, DynamicSize{4}, typeid(void))) << "the key is the index and not the record";
  EXPECT_EQ(nCalls, 2);
  // The registry goes on holding the allocator, so it must not refer to this frame any longer.
  EXPECT_EQ(MemBase::registerCreator(AllocatorPtr(), record), 1);
}

/// A record of doubles under another index.
class RenamedDouble : public TreskTypeBase {
 public:
  explicit RenamedDouble(const Tresk::TreskTypeIndex& index) : TreskTypeBase(index) {}
  const std::type_info& getType() const override { return typeid(double); }
  bool isType(const std::type_info& type) const override { return type == typeid(double); }
  StrongPtr<ChunkBase, ChunkBase> createChunk(std::size_t) const override { return {}; }
  unsigned int indexOf(const unsigned int& i) const override { return i; }
  TreskTypePtr getComponentType() const override { return {}; }
  std::string chartComponentName(int) const override { return {}; }
  const std::type_info& getChartType() const override { return typeid(void); }
  int indexKind(unsigned int) const override { return 0; }
  int indexExtra(unsigned int) const override { return 0; }
};

TEST_F(MemBaseRegistryTest, ATypeIsRegisteredUnderItsExactIndexOnly) {
  Tresk::TreskTypeIndex index = *getTreskType<double>();
  ++index.grade;
  const TreskTypePtr renamed(new RenamedDouble(index));
  EXPECT_FALSE(MemBase::create(renamed, DynamicSize{4}, typeid(void)));
  --index.grade;
  const TreskTypePtr same(new RenamedDouble(index));
  EXPECT_TRUE(MemBase::create(same, DynamicSize{4}, typeid(void)));
}

/// An array whose element type nobody has a record of.
class WithoutRecord : public MemArray<1, double> {
 public:
  explicit WithoutRecord(const Tresk::TreskTypeIndex& index)
      : MemBase(index, Tresk::CreatorWeakPtr()), MemArray<1, double>(MultiIndex<1>(2), Tresk::CreatorWeakPtr()) {}
};

TEST_F(MemBaseRegistryTest, AnArrayWithoutARecordMakesNothing) {
  Tresk::TreskTypeIndex index = *getTreskType<double>();
  index.typeName = "a name without a record";
  const MemBasePtr array(new WithoutRecord(index));
  EXPECT_TRUE(array->getTreskTypeIndex() == index);
  EXPECT_FALSE(array->create(DynamicSize{2}, typeid(void)));
  EXPECT_FALSE(array->create(typeid(void)));
}

TEST_F(MemBaseRegistryTest, AnAllocatorIsAnInterfaceOfItsOwnKey) {
  const AllocatorPtr allocator(new MemArrayAllocator<double>);
  EXPECT_EQ(allocator->getInterfaceType(), typeid(MemBase::Allocator));
  EXPECT_TRUE((std::is_base_of_v<Ostrel::Interface<MemBase::Allocator>, MemBase::Allocator>));
  EXPECT_EQ(sizeof(MemArrayAllocator<double>), sizeof(InterfaceBase)) << "no field";
}

// ------------------------------------------------------------------------------------------------- MemArrayProperties

class MemArrayPropertiesTest : public TreskTest::RecordBalanceTest {};

TEST_F(MemArrayPropertiesTest, TellsRankAndElementTypeOfWhatCarriesIt) {
  const Ostrel::Intercube carrier;
  carrier.addInterface(StrongPtr<MemArrayProperties, InterfaceBase>(new MemArrayProperties(3, getTreskType<double>())));
  const auto found = Ostrel::findInterface<MemArrayProperties>(carrier);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->getInterfaceType(), typeid(MemArrayProperties));
  EXPECT_EQ(found->getRank(), 3);
  EXPECT_TRUE(found->getType() == getTreskType<double>());
  carrier.addInterface(
      StrongPtr<MemArrayProperties, InterfaceBase>(new MemArrayProperties(-1, getTreskType<unsigned int>())));
  EXPECT_EQ(Ostrel::findInterface<MemArrayProperties>(carrier)->getRank(), -1) << "the later one replaces";
}

TEST(MemArrayPropertiesLifetimeTest, KeepsNoRecordAlive) {
  TreskTypePtr record(new TreskType<Unlisted>);
  const StrongPtr<MemArrayProperties, InterfaceBase> properties(new MemArrayProperties(1, record));
  EXPECT_EQ(record.strongCount(), 1);
  EXPECT_TRUE(properties->getType());
  record.reset();
  EXPECT_FALSE(properties->getType());
}

}  // namespace
