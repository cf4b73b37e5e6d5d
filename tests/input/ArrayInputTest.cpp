// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ArrayInterpolator.hpp>
#include <tresk/field/ElementText.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/MemArrayProperties.hpp>
#include <tresk/field/RawData.hpp>
#include <tresk/field/SizeInterface.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/field/TypeList.hpp>
#include <tresk/field/UniformCartesianArray.hpp>

#include <input/BadInput.hpp>
#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using Quorvel::FixedArray;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::MemArray;
using Tresk::MemBase;
using Tresk::MultiIndex;
using Tresk::SizeInterface;
using Tresk::TreskTypeBase;
using Tresk::TreskTypeIndex;
using Tresk::TreskTypePtr;
using Tresk::TreskTypeWeakPtr;
using Tresk::TypeList;
using TreskTest::CreatorPtr;
using TreskTest::FragmentIDPtr;
using TreskTest::Greatest;
using TreskTest::HalfWidth;
using TreskTest::killed;
using TreskTest::makeArray;
using TreskTest::makeRecord;
using TreskTest::MemBasePtr;
using TreskTest::textOf;

using ArrayInput = TreskTest::RecordBalanceTest;

template <int N, class T>
using ArrayPtr = Ostrel::StrongPtr<MemArray<N, T>, Ostrel::Cacheable>;
using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;
using Point = Quorvel::PhysicalSpace::point;

constexpr const char* TooLarge = "cannot create std::vector larger than max_size()";
const CreatorWeakPtr nobody;

template <class T>
ChunkPtr makeChunk(unsigned long long count) {
  return ChunkPtr(new Ostrel::Chunk<T>(count));
}
/// Chunks that are no storage of two doubles.
std::vector<ChunkPtr> badChunks() { return {ChunkPtr(), killed(makeChunk<double>(2)), makeChunk<unsigned int>(2)}; }

ArrayPtr<2, double> makeMatrix(unsigned long long n0, unsigned long long n1) {
  return ArrayPtr<2, double>(new MemArray<2, double>(MultiIndex<2>(n0, n1), nobody));
}
ArrayPtr<1, double> makeOnChunk(const ChunkPtr& chunk, unsigned long long n) {
  return ArrayPtr<1, double>(new MemArray<1, double>(chunk, MultiIndex<1>(n), nobody));
}

// ------------------------------------------------------------------------------------------------------------ sizes

TEST_F(ArrayInput, SizeConstruction) {
  for (const int rank : {0, -1, std::numeric_limits<int>::min()}) {
    EXPECT_EQ(DynamicSize(rank, nullptr).Dims(), 0);
    EXPECT_EQ(DynamicSize(rank, nullptr).getExtents(), nullptr);
  }
  EXPECT_EQ(DynamicSize(std::initializer_list<unsigned long long>()).Dims(), 0);
  EXPECT_EQ(DynamicSize(7, DynamicSize()).str(), "7");
  EXPECT_EQ(DynamicSize(0, DynamicSize(), DynamicSize()).nElements(), 1U);
  EXPECT_EQ(textOf<std::bad_array_new_length>([] { const DynamicSize size(-1, DynamicSize(), DynamicSize()); }),
            "std::bad_array_new_length");
  EXPECT_EQ(DynamicSize(1, DynamicSize{Greatest}, DynamicSize{2})[0], 1U);
}

TEST_F(ArrayInput, SizeQuestions) {
  const DynamicSize none;
  EXPECT_EQ(none.nElements(), 0U);
  EXPECT_EQ(none.str(), "");
  EXPECT_FALSE(none != DynamicSize());
  EXPECT_TRUE(none != DynamicSize{0});
  EXPECT_FALSE(none.hasIncompatibleLowerDims(DynamicSize{1}));
  EXPECT_TRUE(DynamicSize{1}.hasIncompatibleLowerDims(none));
  EXPECT_FALSE(none.hasIncompatibleHigherDims(DynamicSize{1}));
  EXPECT_FALSE(DynamicSize{1}.hasIncompatibleHigherDims(none));
  const DynamicSize box{4, 5, 6};
  EXPECT_TRUE((box != DynamicSize{4, 5}));
  EXPECT_FALSE((DynamicSize{4, 5}.hasIncompatibleLowerDims(box)));
  EXPECT_TRUE((box.hasIncompatibleLowerDims(DynamicSize{4, 5})));
  EXPECT_FALSE((box.hasIncompatibleHigherDims(DynamicSize{5, 6})));
  EXPECT_TRUE((box.hasIncompatibleHigherDims(DynamicSize{4, 5})));
  EXPECT_EQ((DynamicSize{HalfWidth, HalfWidth}.nElements()), 0U);
  EXPECT_EQ((DynamicSize{HalfWidth + 1, HalfWidth + 1}.nElements()), 2 * HalfWidth + 1);
  EXPECT_EQ(DynamicSize{Greatest}.str(), "18446744073709551615");
}

TEST_F(ArrayInput, SizeAddition) {
  DynamicSize size;
  size += DynamicSize();
  EXPECT_EQ(size.Dims(), 0);
  size += DynamicSize{3};
  size += DynamicSize();
  EXPECT_EQ(size.str(), "3");
  size += DynamicSize{Greatest, 2};
  EXPECT_EQ(size.str(), "2x2");
}

TEST_F(ArrayInput, MultiIndexProductAndPosition) {
  EXPECT_EQ(MultiIndex<2>(HalfWidth, HalfWidth).nElements(), 0U);
  EXPECT_EQ(MultiIndex<2>(0, 3).nElements(), 0U);
  EXPECT_EQ(MultiIndex<2>(4, 3).linear(MultiIndex<2>(4, 3)), 16U);
  EXPECT_EQ(MultiIndex<2>(4, 3).linear(MultiIndex<2>(0, Greatest)), Greatest - 3);
}

TEST_F(ArrayInput, HyperslabOfNothing) {
  Tresk::HyperslabParameters walk;
  EXPECT_EQ(walk.nBlockElements(), 0U);
  EXPECT_EQ(walk.nElements(), 0U);
  walk.fitTo(Greatest);
  walk.fitTo(0);
  EXPECT_EQ(walk.tail, 0U);
}

TEST_F(ArrayInput, SizeInterfaceConstruction) {
  const Ostrel::StrongPtr<SizeInterface, Ostrel::InterfaceBase> empty(new SizeInterface(DynamicSize()));
  EXPECT_EQ(empty->Dims(), 0);
  EXPECT_THROW(SizeInterface(-1, *empty, *empty), std::bad_array_new_length);
  const Ostrel::StrongPtr<Tresk::FragmentedSizeInterface, Ostrel::InterfaceBase> ofNone(
      new Tresk::FragmentedSizeInterface(DynamicSize(), Greatest));
  EXPECT_EQ(ofNone->getFragmentCount(), Greatest);
}

// ---------------------------------------------------------------------------------------------------- element types

TEST_F(ArrayInput, FindRecord) {
  EXPECT_FALSE(TreskTypeBase::find(TreskTypeIndex()));
  EXPECT_FALSE(TreskTypeBase::find(typeid(void)));
  EXPECT_FALSE(TreskTypeBase::find(typeid(TreskTest::OwnRecord)));
  TreskTypePtr record = makeRecord("remembered and dead");
  const TreskTypeIndex index = *record;
  EXPECT_FALSE(TreskTypeBase::find(index));
  expectParked(1);  // the registry keeps the weak pointer
  EXPECT_TRUE(record->remember());
  EXPECT_EQ(TreskTypeBase::find(index), record);
  record.reset();
  EXPECT_FALSE(TreskTypeBase::find(index));
  EXPECT_FALSE(TreskTypeBase::find(typeid(TreskTest::OwnRecord)));
}

TEST_F(ArrayInput, RecordQuestions) {
  const TreskTypePtr point = Tresk::getTreskType<Point>();
  const TreskTypePtr vector = Tresk::getTreskType<Quorvel::Vector<double, 3>>();
  for (const int i : {-1, 3, std::numeric_limits<int>::max()}) {
    EXPECT_EQ(point->chartComponentName(i), "");
    EXPECT_EQ(Tresk::IJ_CellNamingConvention::chartComponentName(i), "");
  }
  EXPECT_EQ(vector->component_name(~0U), "d");
  EXPECT_EQ(point->component_name(~0U), "Quorvel::PhysicalSpace::point");
  EXPECT_EQ(vector->indexKind(~0U), -1);
  EXPECT_EQ(vector->indexExtra(~0U), 0);
  EXPECT_EQ(TreskTypeIndex().description(), "{} is [0] (rank 0, grade 0) Size=0 [0 x 0]");
  EXPECT_EQ(makeRecord()->description().find("{TreskTest::OwnRecord} is "), 0U);
  EXPECT_NE(std::to_string(*makeRecord()).find(": void[0]"), std::string::npos);  // no record of a component
}

TEST_F(ArrayInput, RecordCreateChunk) {
  const TreskTypePtr type = Tresk::getTreskType<double>();
  EXPECT_EQ(type->createChunk(0)->size(), 0U);
  EXPECT_EQ(textOf<std::length_error>([&type] { type->createChunk(Greatest); }), TooLarge);
}

TEST_F(ArrayInput, TypeListEntries) {
  EXPECT_TRUE(TypeList().contains(typeid(void)));
  EXPECT_TRUE(Tresk::containsType(TypeList(), typeid(double)));
  EXPECT_EQ(TypeList().asText()->nLines(), 0U);
  const TreskTypePtr dead = killed(makeRecord());
  for (const TreskTypeWeakPtr& type : {TreskTypeWeakPtr(), TreskTypeWeakPtr(dead)}) {
    const TypeList list(type);
    EXPECT_EQ(list.nTypes(), 1U);
    EXPECT_FALSE(list.contains(typeid(double)));
    EXPECT_FALSE(list.contains(typeid(TreskTest::OwnRecord)));
    EXPECT_EQ(list.asText()->nLines(), 0U);
    testing::internal::CaptureStdout();
    list.speak();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  }
}

TEST_F(ArrayInput, ElementTextOfNoFragment) {
  const std::string nameless = Tresk::elementText(TreskTest::makeFragment(""));
  EXPECT_EQ(Tresk::elementText(FragmentIDPtr()), nameless);
  EXPECT_EQ(Tresk::elementText(killed(TreskTest::makeFragment("a"))), nameless);
}

TEST_F(ArrayInput, MemArrayPropertiesAreKeptAsGiven) {
  const Ostrel::StrongPtr<Tresk::MemArrayProperties, Ostrel::InterfaceBase> properties(
      new Tresk::MemArrayProperties(-1, TreskTypeWeakPtr()));
  EXPECT_EQ(properties->getRank(), -1);
  EXPECT_FALSE(properties->getType());
}

// -------------------------------------------------------------------------------------------- arrays of any element

TEST_F(ArrayInput, RegisterCreator) {
  const MemBase::AllocatorPtr allocator(new Tresk::MemArrayAllocator<double>);
  EXPECT_EQ(MemBase::registerCreator(allocator, TreskTypePtr()), 0);
  EXPECT_EQ(MemBase::registerCreator(allocator, killed(makeRecord())), 0);
  // A type without an allocator: no arrays are made.
  const TreskTypePtr type = makeRecord();
  for (const MemBase::AllocatorPtr& none :
       {MemBase::AllocatorPtr(), killed(MemBase::AllocatorPtr(new Tresk::MemArrayAllocator<double>))}) {
    EXPECT_EQ(MemBase::registerCreator(none, type), 1);
    EXPECT_FALSE(MemBase::create(type, DynamicSize{1}, typeid(void)));
  }
  MemBase::registerCreator(MemBase::AllocatorPtr(), type);
}

TEST_F(ArrayInput, CreateOfAType) {
  const TreskTypePtr type = Tresk::getTreskType<double>();
  for (const TreskTypePtr& none : {TreskTypePtr(), killed(makeRecord()), makeRecord("without an allocator")})
    EXPECT_FALSE(MemBase::create(none, DynamicSize{1}, typeid(void)));
  EXPECT_FALSE(MemBase::create(type, DynamicSize(), typeid(void)));
  EXPECT_FALSE(MemBase::create(type, DynamicSize{1, 1, 1, 1, 1}, typeid(void)));
  EXPECT_EQ(MemBase::create(type, DynamicSize{3, 0}, typeid(void))->nElements(), 0U);
  for (const DynamicSize& size : {DynamicSize{Greatest}, DynamicSize{HalfWidth, HalfWidth}})
    EXPECT_EQ(textOf<std::length_error>([&] { MemBase::create(type, size, typeid(void)); }), TooLarge);
}

TEST_F(ArrayInput, CreateOfTheSameType) {
  const MemBasePtr array = makeArray(2);
  EXPECT_EQ(array->create(DynamicSize{0}, typeid(void))->nElements(), 0U);
  EXPECT_EQ(makeArray(0)->create(typeid(void))->nElements(), 0U);
  EXPECT_FALSE(array->create(DynamicSize(), typeid(void)));
  EXPECT_FALSE(array->create(DynamicSize{1, 1, 1, 1, 1}, typeid(void)));
  EXPECT_EQ(textOf<std::length_error>([&array] { array->create(DynamicSize{Greatest}, typeid(void)); }), TooLarge);
  const TreskTest::NameArrayPtr ofUnknownType = TreskTest::makeNames({1}, {"a"});
  EXPECT_FALSE(ofUnknownType->create(DynamicSize{1}, typeid(void)));
  EXPECT_FALSE(ofUnknownType->create(typeid(void)));
}

TEST_F(ArrayInput, ConstructionOfASize) {
  for (const MultiIndex<2>& size : {MultiIndex<2>(HalfWidth, HalfWidth), MultiIndex<2>(Greatest, 1)})
    EXPECT_EQ(textOf<std::length_error>([&size] { MemArray<2, double> array(size, nobody); }), TooLarge);
  const MultiIndex<2> vast(Greatest, 2);
  EXPECT_EQ(textOf<std::length_error>([&vast] { makeMatrix(1, 1)->createArray(vast, nobody); }), TooLarge);
  const ArrayPtr<2, double> empty = makeMatrix(0, Greatest);
  EXPECT_EQ(empty->nElements(), 0U);
  EXPECT_EQ(empty->getDataPointer(), nullptr);
  // None is none, however much the other extents come to.
  const MemBasePtr flat(new MemArray<3, double>(MultiIndex<3>(HalfWidth, HalfWidth + 1, 0), nobody));
  EXPECT_EQ(flat->getChunk()->size(), 0U);
  const CreatorPtr dead = killed(CreatorPtr(TreskTest::makeForgetful()));
  const MemBasePtr orphan(new MemArray<1, double>(MultiIndex<1>(1), dead));
  EXPECT_EQ(orphan->CreatorType(), typeid(void));
}

TEST_F(ArrayInput, ConstructionOnAChunk) {
  for (const ChunkPtr& chunk : badChunks()) {
    const ArrayPtr<1, double> array = makeOnChunk(chunk, 2);
    EXPECT_FALSE(array->getChunk());
    EXPECT_FALSE(array->getTypedChunk());
    EXPECT_EQ(array->getDataPointer(), nullptr);
    EXPECT_EQ(array->memsize(), 0U);
    EXPECT_EQ(array->nElements(), 2U);
  }
  const ArrayPtr<1, double> front = makeOnChunk(makeChunk<double>(5), 2);
  EXPECT_EQ(front->getIterator().nElements(), 2U);
  EXPECT_EQ(makeOnChunk(makeChunk<double>(0), 0)->last(), 0.0);
  for (const ChunkPtr& chunk : badChunks()) {
    const MemBasePtr view(new MemArray<1, double>(Tresk::WalkParameters<double>(), MultiIndex<1>(2), chunk, nobody));
    EXPECT_EQ(view->getDataPointer(), nullptr);
    EXPECT_EQ(view->getHyperslab().nElements(), 0U);
  }
}

TEST_F(ArrayInput, ReadingAnArrayWithoutMemory) {
  for (const ChunkPtr& chunk : badChunks()) {
    const ArrayPtr<1, double> array = makeOnChunk(chunk, 2);
    EXPECT_EQ(array->first(), 0.0);
    EXPECT_EQ(array->last(), 0.0);
    EXPECT_EQ(array->getElementString(0), "");
    EXPECT_EQ(array->getOrigin(), nullptr);
    EXPECT_EQ(array->getDelta(), nullptr);
    const auto sum = [](double a, double b) { return a + b; };
    EXPECT_EQ(array->getIterator().reduceElements(3.0, sum), 3.0);
    array->getIterator().forEachElement([](double) { FAIL(); });
  }
  const ArrayPtr<1, Point> points(new MemArray<1, Point>(ChunkPtr(), MultiIndex<1>(2), nobody));
  EXPECT_EQ(points->last(), Point(0, 0, 0));
}

TEST_F(ArrayInput, GetElementString) {
  const MemBasePtr array = makeArray(2, 7);
  EXPECT_EQ(array->getElementString(1), "7");
  EXPECT_EQ(array->getElementString(2), "");
  EXPECT_EQ(array->getElementString(Greatest), "");
  EXPECT_EQ(makeArray(0)->getElementString(0), "");
}

TEST_F(ArrayInput, CreateSubArray) {
  const MemBasePtr array = makeMatrix(2, 3);
  for (const DynamicSize& wrong : {DynamicSize(), DynamicSize{1}, DynamicSize{1, 1, 1}}) {
    EXPECT_FALSE(array->createSubArray(wrong, {1, 1}, nobody));
    EXPECT_FALSE(array->createSubArray({0, 0}, wrong, nobody));
  }
  const MemBasePtr ofNone = array->createSubArray({2, 3}, {0, 0}, nobody);
  EXPECT_EQ(ofNone->nElements(), 0U);
  const MemBasePtr fromNone = makeMatrix(0, 4)->createSubArray(DynamicSize{0, 1}, DynamicSize{0, 2}, nobody);
  ASSERT_TRUE(fromNone);
  EXPECT_EQ(fromNone->getSize().str(), "0x2");
  EXPECT_FALSE(makeOnChunk(makeChunk<unsigned int>(2), 2)->createSubArray(DynamicSize{0}, DynamicSize{1}, nobody));
  const DynamicSize vast{HalfWidth, HalfWidth};
  const DynamicSize start{0, 0};
  EXPECT_EQ(textOf<std::length_error>([&] { array->createSubArray(start, vast, nobody); }), TooLarge);
}

TEST_F(ArrayInput, GetSlice) {
  EXPECT_FALSE(makeOnChunk(makeChunk<double>(2), 2)->getSlice(0, nobody));
  EXPECT_FALSE(makeOnChunk(makeChunk<double>(2), 2)->getSlice(Greatest, nobody));
  const MemArray<2, double> withoutMemory(ChunkPtr(), MultiIndex<2>(2, 3), nobody);
  EXPECT_EQ(withoutMemory.getSlice(2, nobody)->getDataPointer(), nullptr);
}

TEST_F(ArrayInput, GetComponent) {
  const MemBasePtr points(new MemArray<1, Point>(MultiIndex<1>(2), nobody));
  for (const int component : {3, std::numeric_limits<int>::max()})
    EXPECT_FALSE(points->getComponent(component, nobody));
  EXPECT_FALSE(makeArray(2)->getComponent(1, nobody));
  const MemBasePtr withoutMemory(new MemArray<1, Point>(ChunkPtr(), MultiIndex<1>(2), nobody));
  EXPECT_EQ(withoutMemory->getComponent(2, nobody)->getDataPointer(), nullptr);
}

TEST_F(ArrayInput, CreateOnChunk) {
  const MemBasePtr array = makeArray(2);
  EXPECT_FALSE(array->createOnChunk(ChunkPtr(), nobody));
  EXPECT_FALSE(array->createOnChunk(killed(makeChunk<double>(2)), nobody));
  for (const unsigned long long n : {0ULL, 1ULL, 3ULL})
    EXPECT_FALSE(array->createOnChunk(makeChunk<double>(n), nobody));
  const MemBasePtr onIntegers = array->createOnChunk(makeChunk<unsigned int>(2), nobody);
  EXPECT_FALSE(onIntegers->getChunk());
  const MemBasePtr vast(new MemArray<2, double>(ChunkPtr(), MultiIndex<2>(HalfWidth, HalfWidth), nobody));
  const MemBasePtr flat(new MemArray<3, double>(ChunkPtr(), MultiIndex<3>(HalfWidth, HalfWidth + 1, 0), nobody));
  EXPECT_TRUE(flat->createOnChunk(makeChunk<double>(0), nobody));
  EXPECT_FALSE(flat->createOnChunk(makeChunk<double>(1), nobody));
  EXPECT_FALSE(vast->createOnChunk(makeChunk<double>(0), nobody)) << "its number of elements is 0 modulo 2^64 only";
}

TEST_F(ArrayInput, CopyFromChunk) {
  const MemBasePtr array = makeArray(2, 7);
  for (const ChunkPtr& chunk : badChunks()) {
    EXPECT_FALSE(array->copyFromChunk(chunk));
    EXPECT_FALSE(makeOnChunk(chunk, 2)->copyFromChunk(makeChunk<double>(2)));
  }
  for (const unsigned long long n : {0ULL, 1ULL, 3ULL}) EXPECT_FALSE(array->copyFromChunk(makeChunk<double>(n)));
  EXPECT_EQ(array->getElementString(1), "7");
}

TEST_F(ArrayInput, CopiesOfAnArrayWithoutMemory) {
  for (const ChunkPtr& chunk : badChunks()) {
    const MemBasePtr array = makeOnChunk(chunk, 2);
    EXPECT_FALSE(array->copy(nobody));
    EXPECT_EQ(array->makeExplicit(nobody), array);
  }
}

TEST_F(ArrayInput, GetInterpolator) { EXPECT_FALSE(makeMatrix(1, 1)->getInterpolator()); }

// ------------------------------------------------------------------------------------------------- computing arrays

using Grid = Tresk::UniformCartesianArray;
using Axis = Tresk::CoordinateAxisArray<double, Tresk::LinearCoordinateAxisArray>;
using AxisPtr = Tresk::CoordinateAxisPtr<Tresk::LinearCoordinateAxisArray>;
using Product = Tresk::DirectProductMemArray<FixedArray<double, 2>, Tresk::LinearCoordinateAxisArray, 2>;

TEST_F(ArrayInput, DirectProductAxes) {
  for (const AxisPtr& none : {AxisPtr(), killed(AxisPtr(new Axis(1, 1, 3)))}) {
    Product array(nobody);
    array.setAxis(0, AxisPtr(new Axis(5, 1, 3)));
    array.setAxis(1, none);
    EXPECT_EQ(array.nElements(), 0U);
    FixedArray<double, 2> point(-1.0, -2.0);
    array.computeCoordinate(MultiIndex<2>(2, 7), point);
    EXPECT_EQ(point, (FixedArray<double, 2>(7.0, -2.0)));
    EXPECT_EQ(array.last(), (FixedArray<double, 2>(7.0, 0.0)));
    EXPECT_EQ(array.getElementString(0), "");
    EXPECT_EQ(array.makeExplicit(nobody)->nElements(), 0U);
    array.setAxisMap(1, ~0U);  // no component: one layer
    EXPECT_EQ(array.getSize().str(), "3x1");
    EXPECT_EQ(array.getElementString(3), "{5,0}");  // modulo the number of points
    EXPECT_EQ(array.copy(nobody)->getSize().str(), "3x1");
  }
}

TEST_F(ArrayInput, DirectProductGivesNoMemory) {
  const Ostrel::StrongPtr<Grid, Ostrel::Cacheable> grid(
      new Grid(MultiIndex<3>(1, 1, 1), Point(0, 0, 0), Grid::Vector(1, 1, 1), nobody));
  EXPECT_FALSE(grid->getChunk());
  EXPECT_EQ(grid->getDataPointer(), nullptr);
  EXPECT_FALSE(grid->createArray(MultiIndex<3>(Greatest, 1, 1), nobody));
  EXPECT_FALSE(grid->createSubArray(MultiIndex<3>(0, 0, 0), MultiIndex<3>(1, 1, 1), nobody));
  EXPECT_FALSE(grid->createSubArray(DynamicSize(), DynamicSize{1}, nobody));
  EXPECT_FALSE(grid->getSlice(Greatest, nobody));
  EXPECT_FALSE(grid->getComponent(0, nobody));
  for (const ChunkPtr& chunk : {ChunkPtr(), killed(makeChunk<Point>(1)), makeChunk<double>(1), makeChunk<Point>(1)})
    EXPECT_FALSE(grid->copyFromChunk(chunk));
  EXPECT_EQ(grid->getIterator().nElements(), 0U);
}

TEST_F(ArrayInput, DirectProductCreateOnChunk) {
  const MemBasePtr grid(new Grid(MultiIndex<3>(2, 1, 1), Point(0, 0, 0), Grid::Vector(1, 1, 1), nobody));
  EXPECT_FALSE(grid->createOnChunk(ChunkPtr(), nobody));
  EXPECT_FALSE(grid->createOnChunk(killed(makeChunk<Point>(2)), nobody));
  EXPECT_FALSE(grid->createOnChunk(makeChunk<Point>(3), nobody));
  EXPECT_FALSE(grid->createOnChunk(makeChunk<double>(2), nobody)->getChunk());
  const MemBasePtr vast(
      new Grid(MultiIndex<3>(HalfWidth, HalfWidth, 1), Point(0, 0, 0), Grid::Vector(1, 1, 1), nobody));
  EXPECT_FALSE(vast->createOnChunk(makeChunk<Point>(0), nobody)) << "its number of points is 0 modulo 2^64 only";
}

TEST_F(ArrayInput, UniformGrid) {
  const Grid none(Point(1, 2, 3), MultiIndex<3>(0, 1, 1), Point(4, 4, 4), nobody);
  EXPECT_EQ(none.nElements(), 0U);
  EXPECT_EQ(none.last(), Point(1, 2, 3));
  EXPECT_EQ((*none.getBoundingBox())[1], Point(1, 2, 3));
  const Grid inverted(Point(4, 0, 0), MultiIndex<3>(3, 1, 1), Point(0, 0, 0), nobody);
  EXPECT_EQ(inverted.getDelta()[0], -2.0);
  const Grid vast(MultiIndex<3>(HalfWidth, HalfWidth, 1), Point(0, 0, 0), Grid::Vector(1, 1, 1), nobody);
  EXPECT_EQ(vast.nElements(), 0U);
  EXPECT_EQ(vast.last()[0], static_cast<double>(HalfWidth - 1));
  EXPECT_EQ(textOf<std::length_error>([&vast] { vast.makeExplicit(nobody); }), TooLarge);
}

TEST_F(ArrayInput, CoordinateAxes) {
  const Axis none(1, 2, 0);
  EXPECT_EQ(none.nPositions(), 0U);
  EXPECT_EQ(none.getPosition(3), 7.0);  // computed also beyond the last position
  EXPECT_EQ(Tresk::copyAxis(none)->nPositions(), 0U);
  using Explicit = Tresk::CoordinateAxisArray<double, Tresk::ExplicitCoordinateAxisArray>;
  const Explicit nothing{std::vector<double>()};
  nothing.writePositions(nullptr);
  EXPECT_EQ(Tresk::copyAxis(nothing)->nPositions(), 0U);
}

// --------------------------------------------------------------------------------------------------------- raw data

TEST_F(ArrayInput, RawDataOfNoCreator) {
  using RawDataPtr = Ostrel::StrongPtr<Tresk::RawData, Ostrel::InterfaceBase>;
  EXPECT_FALSE(RawDataPtr(new Tresk::RawData(CreatorPtr()))->getCreator());
  EXPECT_FALSE(RawDataPtr(new Tresk::RawData(killed(CreatorPtr(TreskTest::makeForgetful()))))->getCreator());
}

TEST_F(ArrayInput, PackOfNoVectors) {
  using Vectors = Quorvel::Vec3Pack_10_11_11::Vectors;
  const FixedArray<double, 3> zero(0.0, 0.0, 0.0);
  const Ostrel::StrongPtr<Tresk::VecPacked_10_11_11, Ostrel::InterfaceBase> packed(
      new Tresk::VecPacked_10_11_11(CreatorPtr(), zero, zero));
  for (const Vectors& vectors : {Vectors(), Vectors(killed(makeChunk<FixedArray<double, 3>>(2))),
                                 Vectors(makeChunk<double>(2)), Vectors(makeChunk<FixedArray<double, 3>>(0))})
    EXPECT_EQ(packed->pack(vectors)->size(), 0U);
}

}  // namespace
