// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <field/ElementSamples.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <type_traits>
#include <typeinfo>

namespace {

using Quorvel::FixedArray;
using Tresk::Cell;
using Tresk::DynamicSize;
using Tresk::getTreskType;
using Tresk::IJ_CellNamingConvention;
using Tresk::MemArray;
using Tresk::MemBase;
using Tresk::MemBasePtr;

template <int Dims>
using Simplex = Tresk::SimplexCell<Dims, unsigned int, IJ_CellNamingConvention>;
template <int Dims>
using Regular = Tresk::RegularCell<Dims, unsigned int, IJ_CellNamingConvention>;

template <class CellType, int Dims, int Vertices>
void expectShape() {
  EXPECT_TRUE((std::is_base_of_v<Cell<Dims, Vertices, unsigned int>, CellType>));
  EXPECT_TRUE((std::is_base_of_v<FixedArray<unsigned int, Vertices>, Cell<Dims, Vertices, unsigned int>>));
  EXPECT_EQ(sizeof(CellType), Vertices * sizeof(unsigned int));
  EXPECT_EQ(sizeof(Cell<Dims, Vertices, unsigned int>), Vertices * sizeof(unsigned int));
  EXPECT_EQ(alignof(CellType), alignof(unsigned int));
  EXPECT_FALSE(std::is_polymorphic_v<CellType>);
  EXPECT_TRUE(std::is_trivially_copyable_v<CellType>);
}

TEST(CellTest, ACellIsItsVerticesAndNothingElse) {
  expectShape<Simplex<1>, 1, 2>();
  expectShape<Simplex<2>, 2, 3>();
  expectShape<Simplex<3>, 3, 4>();
  expectShape<Regular<2>, 2, 4>();
  expectShape<Regular<3>, 3, 8>();
}

TEST(CellTest, CellsOfOtherDimensionsAndIndicesCanBeFormed) {
  EXPECT_EQ((sizeof(Tresk::SimplexCell<4, unsigned long long, IJ_CellNamingConvention>)), 40U);
  EXPECT_EQ((sizeof(Tresk::RegularCell<1, int, IJ_CellNamingConvention>)), 8U);
}

TEST(CellTest, VerticesAreReadWrittenAndComparedByIndex) {
  Simplex<2> triangle(1U, 2U, 3U);
  EXPECT_EQ(triangle[0], 1U);
  EXPECT_EQ(triangle[2], 3U);
  EXPECT_TRUE(triangle == Simplex<2>(1U, 2U, 3U));
  triangle[1] = 20;
  EXPECT_FALSE(triangle == Simplex<2>(1U, 2U, 3U));
}

TEST(CellTest, TheConventionNamesDirectionsAndHasNoData) {
  EXPECT_TRUE(std::is_empty_v<IJ_CellNamingConvention>);
  EXPECT_EQ(IJ_CellNamingConvention::chartComponentName(0), "I");
  EXPECT_EQ(IJ_CellNamingConvention::chartComponentName(1), "J");
  EXPECT_EQ(IJ_CellNamingConvention::chartComponentName(2), "K");
  EXPECT_EQ(IJ_CellNamingConvention::chartComponentName(3), "");
  EXPECT_EQ(IJ_CellNamingConvention::chartComponentName(-1), "");
}

class CellArrayTest : public TreskTest::RecordBalanceTest {};

TEST_F(CellArrayTest, CellsOfEqualSizeGiveArraysOfDifferentTypes) {
  const MemBasePtr quadrilaterals = MemBase::create(getTreskType<Regular<2>>(), DynamicSize{3}, typeid(void));
  const MemBasePtr tetrahedra = MemBase::create(getTreskType<Simplex<3>>(), DynamicSize{3}, typeid(void));
  ASSERT_TRUE(quadrilaterals);
  ASSERT_TRUE(tetrahedra);
  const MemBase& a = *quadrilaterals;
  const MemBase& b = *tetrahedra;
  EXPECT_NE(typeid(a), typeid(b));
  EXPECT_EQ(a.getElementType(), typeid(Regular<2>));
  EXPECT_EQ(b.getElementType(), typeid(Simplex<3>));
  EXPECT_EQ(a.memsize(), b.memsize());
  EXPECT_FALSE(a.getTreskTypeIndex() == b.getTreskTypeIndex());
  EXPECT_EQ((dynamic_cast<const MemArray<1, Simplex<3>>*>(&a)), nullptr);
  EXPECT_NE(getTreskType<Regular<2>>()->chartDimension, getTreskType<Simplex<3>>()->chartDimension);
}

TEST_F(CellArrayTest, TheLastVertexOfAHexahedronHasAViewAndTheNextHasNone) {
  const auto hexahedra = TreskTest::makeSamples<1, Regular<3>>(Tresk::MultiIndex<1>(4));
  EXPECT_FALSE(hexahedra->getComponent(8, Tresk::CreatorWeakPtr()));
  const TreskTest::ArrayPtr<1, unsigned int> last(hexahedra->getComponent(7, Tresk::CreatorWeakPtr()));
  ASSERT_TRUE(last);
  ASSERT_EQ(last->nElements(), 4U);
  for (unsigned int e = 0; e < 4; ++e) EXPECT_EQ((*last)(e), (*hexahedra)(e)[7]);
  const Tresk::CreativeIterator<unsigned int>& walk = last->getIterator();
  for (unsigned int e = 0; e < 4; ++e) EXPECT_EQ(walk.getElement(e), 100 * (e + 1) + 7);
}

TEST_F(CellArrayTest, CellsAreWalkedAsWholeUnits) {
  const auto triangles = TreskTest::makeArray<2, Simplex<2>>(Tresk::MultiIndex<2>(4, 5));
  const Tresk::HyperslabParameters& walk = triangles->getHyperslab();
  EXPECT_EQ(walk.stride, 1U);
  EXPECT_EQ(walk.span, 20U);
  EXPECT_EQ(walk.count, 20U);
  EXPECT_EQ(triangles->memsize(), 240U);
}

}  // namespace
