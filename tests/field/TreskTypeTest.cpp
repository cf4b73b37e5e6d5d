// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/TreskType.hpp>

#include <field/ElementSamples.hpp>
#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

namespace {
/// Element types that only these tests know: one without a record, and two whose records come and go.
struct WithoutRecord {};
struct Passing {
  double value;
};
struct Dying {
  double value;
};
}  // namespace

template <>
struct Tresk::ElementTraits<Passing> : Tresk::TupleTraits<double, 1> {};
template <>
struct Tresk::ElementTraits<Dying> : Tresk::TupleTraits<double, 1> {};

namespace {

using Ostrel::ChunkBase;
using Ostrel::StrongPtr;
using Quorvel::FixedArray;
using Tresk::FragmentIDPtr;
using Tresk::getTreskType;
using Tresk::IJ_CellNamingConvention;
using Tresk::TreskType;
using Tresk::TreskTypeBase;
using Tresk::TreskTypeIndex;
using Tresk::TreskTypePtr;
using Tresk::TreskTypeWeakPtr;

using Point = Quorvel::PhysicalSpace::point;
using Vector3 = Quorvel::Vector<double, 3>;
using Line = Tresk::SimplexCell<1, unsigned int, IJ_CellNamingConvention>;
using Triangle = Tresk::SimplexCell<2, unsigned int, IJ_CellNamingConvention>;
using Tetrahedron = Tresk::SimplexCell<3, unsigned int, IJ_CellNamingConvention>;
using Quadrilateral = Tresk::RegularCell<2, unsigned int, IJ_CellNamingConvention>;
using Hexahedron = Tresk::RegularCell<3, unsigned int, IJ_CellNamingConvention>;

const TreskTypeIndex& indexOf(const TreskTypePtr& type) { return *type; }

// ------------------------------------------------------------------------------------------------ the index by itself

TEST(TreskTypeIndexTest, ComparesNumbersSignedOrUnsignedByTheirMeaning) {
  TreskTypeIndex low;
  TreskTypeIndex high;
  high.multiplicity = 0xFFFFFFFFU;
  EXPECT_TRUE(low < high);
  low = high = TreskTypeIndex();
  high.memSize = 0xFFFFFFFFU;
  EXPECT_TRUE(low < high);
  low = high = TreskTypeIndex();
  low.rank = -1;
  EXPECT_TRUE(low < high);
  low = high = TreskTypeIndex();
  low.grade = -1;
  EXPECT_TRUE(low < high);
  low = high = TreskTypeIndex();
  high.elementSize = 0xFFFFFFFFU;
  EXPECT_TRUE(low < high);
  low = high = TreskTypeIndex();
  low.chartDimension = -1;
  EXPECT_TRUE(low < high);
}

TEST(TreskTypeIndexTest, ComparesTextsByBytesAndThenByLength) {
  for (std::string TreskTypeIndex::*field :
       {&TreskTypeIndex::typeName, &TreskTypeIndex::componentTypeName, &TreskTypeIndex::chartName}) {
    TreskTypeIndex low;
    TreskTypeIndex high;
    low.*field = "Z";
    high.*field = "a";
    EXPECT_TRUE(low < high);
    low.*field = "a";
    high.*field = "aa";
    EXPECT_TRUE(low < high);
    low.*field = "ab";
    high.*field = "b";
    EXPECT_TRUE(low < high);
    low.*field = "z";
    high.*field = "\xC3\xA9";
    EXPECT_TRUE(low < high) << "bytes compare without sign";
  }
}

TEST(TreskTypeIndexTest, TheFirstFieldThatDiffersDecides) {
  // Index i is greater than i + 1 in field i, and smaller in every field behind it.
  const auto make = [](int greaterFrom) {
    const auto number = [&](int field) { return field < greaterFrom ? 5 : field == greaterFrom ? 6 : 1; };
    const auto text = [&](int field) { return std::string(1, static_cast<char>('a' + number(field))); };
    TreskTypeIndex index;
    index.multiplicity = static_cast<unsigned int>(number(0));
    index.memSize = static_cast<unsigned int>(number(1));
    index.rank = number(2);
    index.grade = number(3);
    index.elementSize = static_cast<unsigned int>(number(4));
    index.typeName = text(5);
    index.componentTypeName = text(6);
    index.chartName = text(7);
    index.chartDimension = number(8);
    return index;
  };
  for (int field = 0; field < 9; ++field) {
    const TreskTypeIndex greater = make(field);
    const TreskTypeIndex smaller = make(field + 1);
    EXPECT_TRUE(smaller < greater) << "field " << field;
    EXPECT_FALSE(greater < smaller) << "field " << field;
    EXPECT_FALSE(greater == smaller) << "field " << field;
  }
}

TEST(TreskTypeIndexTest, IsEqualIfAllNineFieldsAre) {
  const TreskTypeIndex original = indexOf(getTreskType<Point>());
  TreskTypeIndex copy = original;
  EXPECT_TRUE(copy == original);
  EXPECT_FALSE(copy < original || original < copy);
  copy.chartName += ' ';
  EXPECT_FALSE(copy == original);
}

TEST(TreskTypeIndexTest, DescribesItselfFromItsFields) {
  TreskTypeIndex index;
  EXPECT_EQ(index.description(), "{} is [0] (rank 0, grade 0) Size=0 [0 x 0]");
  index.multiplicity = 4294967295U;
  index.memSize = 12;
  index.rank = -2;
  index.grade = -3;
  index.elementSize = 4;
  index.typeName = "Type";
  index.componentTypeName = "Component";
  index.chartName = "Chart";
  index.chartDimension = 7;
  EXPECT_EQ(index.description(), "{Type} is ChartComponent[4294967295] (rank -2, grade -3) Size=12 [4294967295 x 4]");
}

// ------------------------------------------------------------------------------------------------- the table of types

/// One row of the table, all literal.
struct Row {
  TreskTypePtr record;
  const std::type_info& type;
  unsigned int multiplicity;
  unsigned int memSize;
  int rank;
  int grade;
  unsigned int elementSize;
  const char* typeName;
  const char* componentTypeName;
  const char* chartName;
  int chartDimension;
  const std::type_info& componentType;
  const std::type_info& chartType;
  int indexKind;
};

template <class T>
Row row(unsigned int multiplicity, unsigned int memSize, int rank, int grade, unsigned int elementSize,
        const char* typeName, const char* componentTypeName, const char* chartName, int chartDimension,
        const std::type_info& componentType, const std::type_info& chartType, int indexKind) {
  return {getTreskType<T>(), typeid(T),         multiplicity, memSize,        rank,          grade,     elementSize,
          typeName,          componentTypeName, chartName,    chartDimension, componentType, chartType, indexKind};
}

std::vector<Row> theTable() {
  const char* const d = "double";
  const char* const u = "unsigned int";
  const char* const line = "Tresk::SimplexCell<1, unsigned int, Tresk::IJ_CellNamingConvention>";
  const char* const triangle = "Tresk::SimplexCell<2, unsigned int, Tresk::IJ_CellNamingConvention>";
  const char* const tetrahedron = "Tresk::SimplexCell<3, unsigned int, Tresk::IJ_CellNamingConvention>";
  const char* const quadrilateral = "Tresk::RegularCell<2, unsigned int, Tresk::IJ_CellNamingConvention>";
  const char* const hexahedron = "Tresk::RegularCell<3, unsigned int, Tresk::IJ_CellNamingConvention>";
  const char* const fragment = "Ostrel::StrongPtr<Tresk::FragmentID, Tresk::FragmentID>";
  const std::type_info& D = typeid(double);
  const std::type_info& U = typeid(unsigned int);
  const std::type_info& V = typeid(void);
  return {
      row<double>(1, 8, 0, 0, 8, d, d, "void", 0, D, V, 0),
      row<unsigned int>(1, 4, 0, 0, 4, u, u, "void", 0, U, V, 0),
      row<FixedArray<double, 2>>(2, 16, 0, 0, 8, "Quorvel::FixedArray<double, 2>", d, "void", 0, D, V, 0),
      row<FixedArray<double, 3>>(3, 24, 0, 0, 8, "Quorvel::FixedArray<double, 3>", d, "void", 0, D, V, 0),
      row<Point>(3, 24, 0, 0, 8, "Quorvel::PhysicalSpace::point", d, "Quorvel::Cartesian3D", 3, D,
                 typeid(Quorvel::Cartesian3D), 0),
      row<Vector3>(3, 24, 1, 1, 8, "Quorvel::Vector<double, 3>", d, "void", 0, D, V, -1),
      row<Line>(2, 8, 0, 0, 4, line, u, line, 1, U, typeid(Line), 0),
      row<Triangle>(3, 12, 0, 0, 4, triangle, u, triangle, 2, U, typeid(Triangle), 0),
      row<Tetrahedron>(4, 16, 0, 0, 4, tetrahedron, u, tetrahedron, 3, U, typeid(Tetrahedron), 0),
      row<Quadrilateral>(4, 16, 0, 0, 4, quadrilateral, u, quadrilateral, 2, U, typeid(Quadrilateral), 0),
      row<Hexahedron>(8, 32, 0, 0, 4, hexahedron, u, hexahedron, 3, U, typeid(Hexahedron), 0),
      row<FragmentIDPtr>(1, 16, 0, 0, 16, fragment, fragment, "void", 0, typeid(FragmentIDPtr), V, 0),
  };
}

TEST(TreskTypeTableTest, EachRowIsThatOfItsType) {
  for (const Row& row : theTable()) {
    SCOPED_TRACE(row.typeName);
    ASSERT_TRUE(row.record);
    const TreskTypeBase& record = *row.record;
    EXPECT_EQ(record.multiplicity, row.multiplicity);
    EXPECT_EQ(record.memSize, row.memSize);
    EXPECT_EQ(record.rank, row.rank);
    EXPECT_EQ(record.grade, row.grade);
    EXPECT_EQ(record.elementSize, row.elementSize);
    EXPECT_EQ(record.typeName, row.typeName);
    EXPECT_EQ(record.componentTypeName, row.componentTypeName);
    EXPECT_EQ(record.chartName, row.chartName);
    EXPECT_EQ(record.chartDimension, row.chartDimension);
    EXPECT_EQ(record.getType(), row.type);
    EXPECT_EQ(record.getChartType(), row.chartType);
    EXPECT_EQ(record.getComponentType()->getType(), row.componentType);
    for (const unsigned int i : {0U, 1U, 2U, 7U, 0xFFFFFFFFU}) EXPECT_EQ(record.indexKind(i), row.indexKind);
  }
}

TEST(TreskTypeTableTest, TheRowsAreThoseOfTheElementTypes) {
  std::vector<TreskTypePtr> records;
  for (const Row& row : theTable()) records.push_back(row.record);
  EXPECT_EQ(records.size(), 12U);
  std::size_t nTypes = 0;
  std::size_t nFound = 0;
#define COUNT_TYPE(...)                      \
  ++nTypes;                                  \
  for (const TreskTypePtr& record : records) \
    if (record->isType(typeid(__VA_ARGS__))) ++nFound;
  TRESK_FOR_EACH_ELEMENT_TYPE(COUNT_TYPE)
#undef COUNT_TYPE
  EXPECT_EQ(nTypes, 12U);
  EXPECT_EQ(nFound, 12U);
}

TEST(TreskTypeTableTest, NamesCoordinatesByTheChart) {
  const TreskTypePtr point = getTreskType<Point>();
  EXPECT_EQ(point->chartComponentName(0), "x");
  EXPECT_EQ(point->chartComponentName(1), "y");
  EXPECT_EQ(point->chartComponentName(2), "z");
  for (const TreskTypePtr& cell : {getTreskType<Line>(), getTreskType<Triangle>(), getTreskType<Tetrahedron>(),
                                   getTreskType<Quadrilateral>(), getTreskType<Hexahedron>()}) {
    for (int i = 0; i < cell->chartDimension; ++i)
      EXPECT_EQ(cell->chartComponentName(i), IJ_CellNamingConvention::chartComponentName(i));
  }
  for (const TreskTypePtr& other :
       {getTreskType<double>(), getTreskType<unsigned int>(), getTreskType<FixedArray<double, 2>>(),
        getTreskType<FixedArray<double, 3>>(), getTreskType<Vector3>(), getTreskType<FragmentIDPtr>()}) {
    for (const int i : {0, 1, 2, 100}) EXPECT_EQ(other->chartComponentName(i), "") << other->typeName;
  }
}

TEST(TreskTypeTableTest, CoordinatesOutsideTheChartHaveNoName) {
  for (const int i : {-1, 3, 4, 100, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    EXPECT_EQ(getTreskType<Point>()->chartComponentName(i), "");
    EXPECT_EQ(getTreskType<Hexahedron>()->chartComponentName(i), "");
  }
}

TEST(TreskTypeTableTest, TheComponentOfAFragmentPointerIsItself) {
  const TreskTypePtr record = getTreskType<FragmentIDPtr>();
  EXPECT_TRUE(record->getComponentType() == record);
}

TEST(TreskTypeTableTest, TypesOfEqualLayoutHaveDifferentIndices) {
  const TreskTypeIndex array = indexOf(getTreskType<FixedArray<double, 3>>());
  const TreskTypeIndex point = indexOf(getTreskType<Point>());
  const TreskTypeIndex vector = indexOf(getTreskType<Vector3>());
  EXPECT_EQ(array.memSize, point.memSize);
  EXPECT_FALSE(array == point);
  EXPECT_NE(array.typeName, point.typeName);
  EXPECT_NE(array.chartName, point.chartName);
  EXPECT_FALSE(vector == array);
  EXPECT_FALSE(vector == point);
  EXPECT_NE(vector.rank, array.rank);
  EXPECT_NE(vector.grade, array.grade);
  EXPECT_NE(vector.rank, point.rank);
  EXPECT_NE(vector.grade, point.grade);
}

// ---------------------------------------------------------------------------------------------------- typed behaviour

template <class T>
class TreskTypeTest : public ::testing::Test {};
TYPED_TEST_SUITE(TreskTypeTest, TreskTest::AllElementTypes);

TYPED_TEST(TreskTypeTest, TheAccessorGivesTheSameRecordEachTime) {
  using T = TypeParam;
  const TreskTypePtr first = getTreskType<T>();
  const TreskTypePtr second = getTreskType<T>();
  ASSERT_TRUE(first);
  EXPECT_TRUE(first == second);
  EXPECT_EQ(first.get(), second.get());
  EXPECT_NE(dynamic_cast<TreskType<T>*>(first.get()), nullptr);
  EXPECT_NE(dynamic_cast<Ostrel::Auto<TreskType<T>>*>(first.get()), nullptr);
}

TYPED_TEST(TreskTypeTest, TheRecordOutlivesAllPointersToIt) {
  using T = TypeParam;
  TreskTypePtr record = getTreskType<T>();
  const TreskTypeBase* const address = record.get();
  EXPECT_EQ(record.strongCount(), 2) << "the record's own reference and this one";
  record.reset();
  EXPECT_EQ(getTreskType<T>().get(), address);
}

TYPED_TEST(TreskTypeTest, KnowsItsTypeAndNoOther) {
  using T = TypeParam;
  const TreskTypePtr record = getTreskType<T>();
  EXPECT_EQ(record->getType(), typeid(T));
  EXPECT_TRUE(record->isType(typeid(T)));
  EXPECT_FALSE(record->isType(typeid(void)));
  EXPECT_FALSE(record->isType(typeid(WithoutRecord)));
  EXPECT_FALSE(record->isType(typeid(T*)));
}

TYPED_TEST(TreskTypeTest, MakesChunksOfItsElements) {
  using T = TypeParam;
  const TreskTypePtr record = getTreskType<T>();
  const long long nBytes = ChunkBase::TotalMemsize.get();
  {
    const StrongPtr<ChunkBase, ChunkBase> chunk = record->createChunk(9);
    ASSERT_TRUE(chunk);
    EXPECT_EQ(chunk->size(), 9U);
    EXPECT_EQ(chunk->elementType(), typeid(T));
    EXPECT_EQ(chunk->elementSize(), static_cast<int>(record->memSize));
    EXPECT_EQ(ChunkBase::TotalMemsize.get() - nBytes, static_cast<long long>(9 * sizeof(T)));
    const StrongPtr<Ostrel::TypedChunk<T>, ChunkBase> typed(chunk);
    ASSERT_TRUE(typed);
    if constexpr (TreskTest::isInitialised<T>) {
      for (const T& element : typed->vector()) EXPECT_TRUE(TreskTest::sameElement<T>(element, T()));
    }
  }
  EXPECT_EQ(ChunkBase::TotalMemsize.get(), nBytes);
}

TYPED_TEST(TreskTypeTest, AnEmptyChunkAddsNothingToTheMemoryTotal) {
  const long long nBytes = ChunkBase::TotalMemsize.get();
  const StrongPtr<ChunkBase, ChunkBase> chunk = getTreskType<TypeParam>()->createChunk(0);
  ASSERT_TRUE(chunk);
  EXPECT_EQ(chunk->size(), 0U);
  EXPECT_EQ(static_cast<const ChunkBase&>(*chunk).data(), nullptr);
  EXPECT_EQ(ChunkBase::TotalMemsize.get(), nBytes);
}

TYPED_TEST(TreskTypeTest, AChunkThatNoVectorHoldsIsALengthErrorAndLeavesNothingBehind) {
  const TreskTypePtr record = getTreskType<TypeParam>();
  const long long nBytes = ChunkBase::TotalMemsize.get();
  const long long nRecords = Ostrel::ReferenceRecord::nLive();
  try {
    record->createChunk(std::numeric_limits<std::size_t>::max());
    ADD_FAILURE() << "no exception";
  } catch (const std::length_error& error) {
    EXPECT_STREQ(error.what(), "cannot create std::vector larger than max_size()");
  }
  EXPECT_EQ(ChunkBase::TotalMemsize.get(), nBytes);
  EXPECT_EQ(Ostrel::ReferenceRecord::nLive(), nRecords);
}

TYPED_TEST(TreskTypeTest, TheOperationsForOutsideAnswerAlike) {
  const TreskTypePtr record = getTreskType<TypeParam>();
  for (const unsigned int i : {0U, 1U, 17U, 0xFFFFFFFFU}) {
    EXPECT_EQ(record->indexOf(i), i);
    EXPECT_EQ(record->indexExtra(i), 0);
  }
}

TYPED_TEST(TreskTypeTest, IsFoundByItsIndexAndByItsType) {
  using T = TypeParam;
  const TreskTypePtr record = getTreskType<T>();
  const TreskTypePtr byIndex(TreskTypeBase::find(indexOf(record)));
  ASSERT_TRUE(byIndex);
  EXPECT_TRUE(indexOf(byIndex) == indexOf(record));
  EXPECT_TRUE(byIndex->isType(typeid(T)));
  const TreskTypePtr byType(TreskTypeBase::find(typeid(T)));
  ASSERT_TRUE(byType);
  EXPECT_TRUE(byType->isType(typeid(T)));
  if constexpr (!std::is_same_v<T, double>) {
    EXPECT_TRUE(byIndex == record);
    EXPECT_TRUE(byType == record);
  }
}

TYPED_TEST(TreskTypeTest, IsNotFoundByAnIndexWhoseChartDimensionDiffers) {
  TreskTypeIndex index = indexOf(getTreskType<TypeParam>());
  ++index.chartDimension;
  EXPECT_FALSE(TreskTypeBase::find(index));
  EXPECT_EQ(TreskTypeBase::find(index).getRecord(), nullptr);
}

// ------------------------------------------------------------------------------------------------------- the registry

TEST(TreskTypeRegistryTest, FindsNothingForATypeWithoutARecord) {
  EXPECT_FALSE(TreskTypeBase::find(typeid(WithoutRecord)));
  EXPECT_EQ(TreskTypeBase::find(typeid(WithoutRecord)).getRecord(), nullptr);
  EXPECT_FALSE(TreskTypeBase::find(typeid(float)));
  EXPECT_FALSE(TreskTypeBase::find(TreskTypeIndex()));
}

TEST(TreskTypeRegistryTest, FindsOneOfTheTwoRecordsOfDoubleAndTheSameEachTime) {
  const TreskTypeIndex index = indexOf(getTreskType<double>());
  const TreskTypePtr found(TreskTypeBase::find(index));
  ASSERT_TRUE(found);
  EXPECT_TRUE(found->isType(typeid(double)));
  EXPECT_NE(dynamic_cast<Ostrel::Auto<TreskType<double>>*>(found.get()), nullptr);
  for (int round = 0; round < 10; ++round) EXPECT_TRUE(TreskTypeBase::find(index) == found);
}

TEST(TreskTypeRegistryTest, EqualIndicesStandInTheOrderOfTheirEntryAndDeadOnesAreSkipped) {
  TreskTypePtr first(new TreskType<Passing>);
  TreskTypePtr second(new TreskType<Passing>);
  TreskTypePtr third(new TreskType<Passing>);
  const TreskTypeIndex index = indexOf(first);
  EXPECT_TRUE(indexOf(second) == index);
  EXPECT_TRUE(TreskTypeBase::find(index) == first);
  EXPECT_TRUE(TreskTypeBase::find(typeid(Passing)) == first);
  second.reset();
  EXPECT_TRUE(TreskTypeBase::find(index) == first);
  first.reset();
  EXPECT_TRUE(TreskTypeBase::find(index) == third) << "the dead entries in front are skipped";
  EXPECT_TRUE(TreskTypeBase::find(typeid(Passing)) == third);
  third.reset();
  EXPECT_FALSE(TreskTypeBase::find(index)) << "dead entries only";
  EXPECT_EQ(TreskTypeBase::find(index).getRecord(), nullptr);
  EXPECT_FALSE(TreskTypeBase::find(typeid(Passing)));
  const TreskTypePtr later(new TreskType<Passing>);
  EXPECT_TRUE(TreskTypeBase::find(index) == later) << "it stands behind the dead entries";
}

TEST(TreskTypeRegistryTest, HoldsNoRecordAlive) {
  TreskTypePtr record(new TreskType<Passing>);
  const TreskTypeWeakPtr weak(record);
  EXPECT_EQ(record.strongCount(), 1);
  record.reset();
  EXPECT_FALSE(weak);
}

TEST(TreskTypeRegistryTest, ARecordMayEnterAgain) {
  TreskTypePtr record(new TreskType<Passing>);
  const int nWeak = record.weakCount();
  EXPECT_TRUE(record->remember());
  EXPECT_EQ(record.weakCount(), nWeak + 1) << "one more entry";
  EXPECT_TRUE(TreskTypeBase::find(indexOf(record)) == record);
  EXPECT_TRUE(getTreskType<double>()->remember());
}

TEST(TreskTypeRegistryTest, TheSelfReferenceAndTheSerialNumberAreThoseOfTheCountedBase) {
  const TreskTypePtr first(new TreskType<Passing>);
  const TreskTypePtr second(new TreskType<Passing>);
  EXPECT_TRUE(first->getSelf() == first);
  EXPECT_EQ(second->getSerialNumber(), first->getSerialNumber() + 1);
}

/// A record that tries to enter the registry at its end, when nobody can hold it any more.
class RemembersAtItsEnd : public TreskType<Dying> {
 public:
  explicit RemembersAtItsEnd(bool& answer) : answer_(answer) {}
  ~RemembersAtItsEnd() override { answer_ = remember(); }

 private:
  bool& answer_;
};

TEST(TreskTypeRegistryTest, ADyingRecordDoesNotEnter) {
  bool answer = true;
  TreskTypePtr record(new RemembersAtItsEnd(answer));
  const TreskTypeIndex index = indexOf(record);
  record.reset();
  EXPECT_FALSE(answer);
  EXPECT_FALSE(TreskTypeBase::find(index));
}

TEST(TreskTypeRegistryTest, ManyThreadsSearchAtOnce) {
  TreskTest::RaceRunner race;
  const TreskTypeIndex index = indexOf(getTreskType<Hexahedron>());
  const TreskTypePtr expected = getTreskType<Hexahedron>();
  race.add(4, [&](int) {
    for (int round = 0; round < 200; ++round) {
      ASSERT_TRUE(TreskTypeBase::find(index) == expected);
      ASSERT_TRUE(TreskTypeBase::find(typeid(Hexahedron)) == expected);
      ASSERT_TRUE(getTreskType<Hexahedron>() == expected);
    }
  });
  race.run();
  EXPECT_EQ(expected.strongCount(), 2);
}

// --------------------------------------------------------------------------------------------------------- the texts

TEST(TreskTypeTextTest, DescriptionOfDoubleRunsChartAndComponentTogetherAndHasNoMark) {
  EXPECT_EQ(getTreskType<double>()->description(), "{double} is voiddouble[1] (rank 0, grade 0) Size=8 [1 x 8]");
}

TEST(TreskTypeTextTest, DescriptionOfAVectorEndsInTheMarkOfItsIndex) {
  EXPECT_EQ(getTreskType<Vector3>()->description(),
            "{Quorvel::Vector<double, 3>} is voiddouble[3] (rank 1, grade 1) Size=24 [3 x 8](lower)");
}

TEST(TreskTypeTextTest, DescriptionOfEveryOtherType) {
  EXPECT_EQ(getTreskType<unsigned int>()->description(),
            "{unsigned int} is voidunsigned int[1] (rank 0, grade 0) Size=4 [1 x 4]");
  EXPECT_EQ((getTreskType<FixedArray<double, 2>>()->description()),
            "{Quorvel::FixedArray<double, 2>} is voiddouble[2] (rank 0, grade 0) Size=16 [2 x 8]");
  EXPECT_EQ((getTreskType<FixedArray<double, 3>>()->description()),
            "{Quorvel::FixedArray<double, 3>} is voiddouble[3] (rank 0, grade 0) Size=24 [3 x 8]");
  EXPECT_EQ(getTreskType<Point>()->description(),
            "{Quorvel::PhysicalSpace::point} is Quorvel::Cartesian3Ddouble[3] (rank 0, grade 0) Size=24 [3 x 8]");
  EXPECT_EQ(getTreskType<Line>()->description(),
            "{Tresk::SimplexCell<1, unsigned int, Tresk::IJ_CellNamingConvention>} is "
            "Tresk::SimplexCell<1, unsigned int, Tresk::IJ_CellNamingConvention>unsigned int"
            "[2] (rank 0, grade 0) Size=8 [2 x 4]");
  EXPECT_EQ(getTreskType<Hexahedron>()->description(),
            "{Tresk::RegularCell<3, unsigned int, Tresk::IJ_CellNamingConvention>} is "
            "Tresk::RegularCell<3, unsigned int, Tresk::IJ_CellNamingConvention>unsigned int"
            "[8] (rank 0, grade 0) Size=32 [8 x 4]");
  EXPECT_EQ(getTreskType<FragmentIDPtr>()->description(),
            "{Ostrel::StrongPtr<Tresk::FragmentID, Tresk::FragmentID>} is "
            "voidOstrel::StrongPtr<Tresk::FragmentID, Tresk::FragmentID>[1] (rank 0, grade 0) Size=16 [1 x 16]");
}

TEST(TreskTypeTextTest, TheDescriptionOfTheIndexAloneHasNoMark) {
  EXPECT_EQ(indexOf(getTreskType<Vector3>()).description(),
            "{Quorvel::Vector<double, 3>} is voiddouble[3] (rank 1, grade 1) Size=24 [3 x 8]");
}

TEST(TreskTypeTextTest, LongFormOfDouble) {
  EXPECT_EQ(std::to_string(*getTreskType<double>()),
            "double: Ostrel::Auto<Tresk::TreskType<double> >[1] rank 0 (that many indices: {} , 0=scalar, 1=vector, "
            "2=matrix), grade 0, multiplicity 1, chart dimension 0, domain: [void] {} tensor type: <double>");
}

TEST(TreskTypeTextTest, LongFormOfAVector) {
  EXPECT_EQ(std::to_string(*getTreskType<Vector3>()),
            "Quorvel::Vector<double, 3>: Ostrel::Auto<Tresk::TreskType<double> >[3] rank 1 (that many indices: {_} , "
            "0=scalar, 1=vector, 2=matrix), grade 1, multiplicity 3, chart dimension 0, domain: [void] {} "
            "tensor type: <d,d,d>");
}

TEST(TreskTypeTextTest, LongFormOfAPoint) {
  EXPECT_EQ(std::to_string(*getTreskType<Point>()),
            "Quorvel::PhysicalSpace::point: Ostrel::Auto<Tresk::TreskType<double> >[3] rank 0 (that many indices: {} "
            ", 0=scalar, 1=vector, 2=matrix), grade 0, multiplicity 3, chart dimension 3, domain: "
            "[Quorvel::Cartesian3D] {x,y,z} tensor type: <Quorvel::PhysicalSpace::point,Quorvel::PhysicalSpace::point,"
            "Quorvel::PhysicalSpace::point>");
}

TEST(TreskTypeTextTest, LongFormOfAFragmentPointerNamesItsOwnRecord) {
  EXPECT_EQ(std::to_string(*getTreskType<FragmentIDPtr>()),
            "Ostrel::StrongPtr<Tresk::FragmentID, Tresk::FragmentID>: Ostrel::Auto<Tresk::TreskType<"
            "Ostrel::StrongPtr<Tresk::FragmentID, Tresk::FragmentID> > >[1] rank 0 (that many indices: {} , 0=scalar, "
            "1=vector, 2=matrix), grade 0, multiplicity 1, chart dimension 0, domain: [void] {} tensor type: "
            "<Ostrel::StrongPtr<Tresk::FragmentID, Tresk::FragmentID>>");
}

TEST(TreskTypeTextTest, ComponentsOfAScalarTypeAreNamedAfterTheType) {
  for (const unsigned int i : {0U, 1U, 99U}) {
    EXPECT_EQ(getTreskType<double>()->component_name(i), "double");
    EXPECT_EQ((getTreskType<FixedArray<double, 2>>()->component_name(i)), "Quorvel::FixedArray<double, 2>");
    EXPECT_EQ(getTreskType<Point>()->component_name(i), "Quorvel::PhysicalSpace::point");
  }
}

TEST(TreskTypeTextTest, ComponentsOfAVectorWithoutAChartAreBareDifferentials) {
  for (const unsigned int i : {0U, 1U, 2U}) EXPECT_EQ(getTreskType<Vector3>()->component_name(i), "d");
}

std::string spoken(const TreskTypeBase& record) {
  testing::internal::CaptureStdout();
  record.speak();
  return testing::internal::GetCapturedStdout();
}

TEST(TreskTypeTextTest, SpeaksOneLineForEachItem) {
  EXPECT_EQ(spoken(*getTreskType<double>()),
            "Rank:\t       0\n"
            "Multiplicity: 1\n"
            "Grade:\t       0\n"
            "Chart Dim:    0\n"
            "Type Info:    d\n"
            "Chart Type:   v\n"
            "MemSize:      8\n"
            "ElementSize:  8\n"
            "Description:  {double} is voiddouble[1] (rank 0, grade 0) Size=8 [1 x 8]\n");
}

TEST(TreskTypeTextTest, SpeaksTheComponentsOfACompoundType) {
  EXPECT_EQ(spoken(*getTreskType<Point>()),
            "Rank:\t       0\n"
            "Multiplicity: 3\n"
            "Grade:\t       0\n"
            "Chart Dim:    3\n"
            "Type Info:    N7Quorvel13PhysicalSpace5pointE\n"
            "Chart Type:   N7Quorvel11Cartesian3DE\n"
            "Components:   x y z \n"
            "MemSize:      24\n"
            "ElementSize:  8\n"
            "Description:  {Quorvel::PhysicalSpace::point} is Quorvel::Cartesian3Ddouble[3] (rank 0, grade 0) Size=24 "
            "[3 x 8]\n");
}

TEST(TreskTypeTextTest, SpeaksBlanksForComponentsWithoutNames) {
  EXPECT_EQ(spoken(*getTreskType<Vector3>()),
            "Rank:\t       1\n"
            "Multiplicity: 3\n"
            "Grade:\t       1\n"
            "Chart Dim:    0\n"
            "Type Info:    N7Quorvel6VectorIdLi3EEE\n"
            "Chart Type:   v\n"
            "Components:      \n"
            "MemSize:      24\n"
            "ElementSize:  8\n"
            "Description:  {Quorvel::Vector<double, 3>} is voiddouble[3] (rank 1, grade 1) Size=24 [3 x 8](lower)\n");
}

TEST(TreskTypeTextTest, SpeaksEveryComponentOfACellAlsoThoseWithoutACoordinate) {
  EXPECT_NE(spoken(*getTreskType<Line>()).find("\nComponents:   I J \n"), std::string::npos);
  EXPECT_NE(spoken(*getTreskType<Hexahedron>()).find("\nComponents:   I J K      \n"), std::string::npos);
}

// ------------------------------------------------------------------------------------- texts of records from outside

/// A record whose every answer is told by the test.
class ToldType : public TreskTypeBase {
 public:
  explicit ToldType(const TreskTypeIndex& index, std::vector<int> indexKinds = {})
      : TreskTypeBase(index), kinds(std::move(indexKinds)) {}

  const std::type_info& getType() const override { return typeid(Passing*); }
  bool isType(const std::type_info& type) const override { return type == getType(); }
  StrongPtr<ChunkBase, ChunkBase> createChunk(std::size_t) const override { return {}; }
  unsigned int indexOf(const unsigned int& i) const override { return i; }
  TreskTypePtr getComponentType() const override { return component; }
  std::string chartComponentName(int i) const override { return "c" + std::to_string(i); }
  const std::type_info& getChartType() const override { return typeid(void); }
  int indexKind(unsigned int i) const override { return kinds.at(i); }
  int indexExtra(unsigned int) const override { return 0; }

  std::vector<int> kinds;
  TreskTypePtr component;
};

StrongPtr<ToldType, TreskTypeBase> told(unsigned int multiplicity, int rank, int grade, int chartDimension,
                                        const std::vector<int>& kinds) {
  TreskTypeIndex index;
  index.multiplicity = multiplicity;
  index.rank = rank;
  index.grade = grade;
  index.chartDimension = chartDimension;
  index.typeName = "stored";
  index.chartName = "Chart";
  index.componentTypeName = "Component";
  return StrongPtr<ToldType, TreskTypeBase>(new ToldType(index, kinds));
}

TEST(ToldTypeTest, DescriptionMarksEachIndexByTheSignOfItsKind) {
  const auto record = told(9, 5, 0, 3, {1, -1, 0, 2, -7});
  const std::string name = Ostrel::Typename(typeid(Passing*));
  EXPECT_EQ(record->description(), "{" + name +
                                       "} is ChartComponent[9] (rank 5, grade 0) Size=0 [9 x 0]"
                                       "(upper)(lower)()(upper)(lower)");
  EXPECT_EQ(record->TreskTypeIndex::description(), "{stored} is ChartComponent[9] (rank 5, grade 0) Size=0 [9 x 0]")
      << "the index takes the stored name and has no marks";
}

TEST(ToldTypeTest, NegativeNumbersHaveASign) {
  const auto record = told(1, -4, -2, 0, {});
  EXPECT_NE(record->description().find("(rank -4, grade -2)"), std::string::npos);
  EXPECT_NE(std::to_string(*record).find("] rank -4 (that many indices: {} ,"), std::string::npos);
  EXPECT_NE(std::to_string(*record).find(", grade -2, multiplicity 1, "), std::string::npos);
  EXPECT_NE(spoken(*record).find("Rank:\t       -4\n"), std::string::npos);
}

TEST(ToldTypeTest, LongFormShowsOnlyTheTwoVariancesBySigns) {
  const auto record = told(1, 5, 0, 2, {1, -1, 0, 2, -7});
  EXPECT_NE(std::to_string(*record).find("(that many indices: {^_{0}{2}{-7}} ,"), std::string::npos)
      << std::to_string(*record);
}

TEST(ToldTypeTest, LongFormWithoutAComponentRecordSaysVoid) {
  const auto record = told(1, 0, 0, 2, {});
  const std::string name = Ostrel::Typename(typeid(Passing*));
  EXPECT_EQ(std::to_string(*record),
            name +
                ": void[1] rank 0 (that many indices: {} , 0=scalar, 1=vector, 2=matrix), grade 0, multiplicity 1, "
                "chart dimension 2, domain: [Chart] {c0,c1} tensor type: <" +
                name + ">");
  record->component = getTreskType<unsigned int>();
  EXPECT_NE(std::to_string(*record).find(": Ostrel::Auto<Tresk::TreskType<unsigned int> >[1] rank"), std::string::npos);
}

TEST(ToldTypeTest, ComponentsOfTwoFormsAreNamedAfterTheBasis) {
  const auto lower = told(3, 1, 2, 3, {-1});
  EXPECT_EQ(lower->component_name(0), "dy^dz");
  EXPECT_EQ(lower->component_name(1), "dz^dx");
  EXPECT_EQ(lower->component_name(2), "dx^dy");
  const auto upper = told(3, 1, 2, 3, {1});
  EXPECT_EQ(upper->component_name(0), "Dy^Dz");
  EXPECT_EQ(upper->component_name(1), "Dz^Dx");
  EXPECT_EQ(upper->component_name(2), "Dx^Dy");
}

TEST(ToldTypeTest, TwoFormsNeedATensorOfThreeComponentsAndGradeTwo) {
  EXPECT_EQ(told(3, 0, 2, 3, {-1})->component_name(0), Ostrel::Typename(typeid(Passing*)));
  EXPECT_EQ(told(3, -1, 2, 3, {-1})->component_name(0), Ostrel::Typename(typeid(Passing*)));
  EXPECT_EQ(told(4, 1, 2, 3, {-1})->component_name(0), "dc0");
  EXPECT_EQ(told(3, 1, 1, 3, {-1})->component_name(0), "dc0");
}

TEST(ToldTypeTest, ComponentsOfATensorOfRankOneAreNamedAfterTheirCoordinate) {
  for (const unsigned int i : {0U, 1U, 2U}) {
    const std::string coordinate = "c" + std::to_string(i);
    EXPECT_EQ(told(3, 1, 1, 3, {-1})->component_name(i), "d" + coordinate);
    EXPECT_EQ(told(3, 1, 1, 3, {1})->component_name(i), "D" + coordinate);
    EXPECT_EQ(told(3, 1, 1, 3, {0})->component_name(i), coordinate);
  }
}

TEST(ToldTypeTest, ComponentsOfAMatrixJoinAPieceForEachIndex) {
  const auto record = told(9, 2, 0, 3, {1, -1});
  EXPECT_EQ(record->component_name(0), "Dc0dc0");
  EXPECT_EQ(record->component_name(4), "Dc1dc1");
  EXPECT_EQ(record->component_name(8), "Dc2dc2");
  std::vector<std::string> names;
  for (unsigned int i = 0; i < 9; ++i) names.push_back(record->component_name(i));
  std::sort(names.begin(), names.end());
  EXPECT_EQ(std::unique(names.begin(), names.end()), names.end()) << "no two components have one name";
}

TEST(ToldTypeTest, SpeechCutsLongTextsToABufferOf512Bytes) {
  TreskTypeIndex index;
  index.chartName = std::string(600, 'n');
  const StrongPtr<ToldType, TreskTypeBase> record(new ToldType(index));
  const std::string description = record->description();
  ASSERT_GT(description.size(), 511U);
  const std::string text = spoken(*record);
  const std::string line = "Description:  " + description.substr(0, 511) + "\n";
  ASSERT_GE(text.size(), line.size());
  EXPECT_EQ(text.substr(text.size() - line.size()), line);
}

TEST(ToldTypeTest, SpeechShowsNoComponentsForASingleOne) {
  EXPECT_EQ(spoken(*told(1, 0, 0, 3, {})).find("Components:"), std::string::npos);
  EXPECT_EQ(spoken(*told(0, 0, 0, 3, {})).find("Components:"), std::string::npos);
  EXPECT_NE(spoken(*told(2, 0, 0, 3, {})).find("Components:   c0 c1 \n"), std::string::npos);
}

TEST(ToldTypeTest, ARecordIsInTheRegistryOnlyIfItWasRemembered) {
  TreskTypeIndex index;
  index.typeName = "a type that nobody else has";
  const StrongPtr<ToldType, TreskTypeBase> record(new ToldType(index));
  EXPECT_FALSE(TreskTypeBase::find(index));
  EXPECT_TRUE(record->remember());
  EXPECT_TRUE(TreskTypeBase::find(index) == record);
  EXPECT_TRUE(TreskTypeBase::find(typeid(Passing*)) == record);
}

}  // namespace
