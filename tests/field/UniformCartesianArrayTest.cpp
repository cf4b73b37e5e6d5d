// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/UniformCartesianArray.hpp>

#include <gtest/gtest.h>

namespace {

using namespace Tresk;
using Point = Quorvel::PhysicalSpace::point;
using Step = Quorvel::PhysicalSpace::vector;
using GridPtr = Ostrel::StrongPtr<UniformCartesianArray, Ostrel::Cacheable>;
const CreatorWeakPtr nobody;

void expectTriple(const double* actual, double x, double y, double z) {
  ASSERT_NE(actual, nullptr);
  EXPECT_EQ(actual[0], x);
  EXPECT_EQ(actual[1], y);
  EXPECT_EQ(actual[2], z);
}

TEST(UniformCartesianArrayTest, TakesOriginAndStepAsTheyAre) {
  const GridPtr grid(new UniformCartesianArray({2, 3, 4}, Point(1, 2, 3), Step(0.5, -1, 0), nobody));
  expectTriple(grid->getOrigin(), 1, 2, 3);
  expectTriple(grid->getDelta(), 0.5, -1, 0);
  EXPECT_EQ(grid->getSize().str(), "2x3x4");
  EXPECT_EQ(grid->last(), Point(1.5, 0, 3));
  EXPECT_EQ(grid->getElementType(), typeid(Point));
}

TEST(UniformCartesianArrayTest, OnePointKeepsTheWholeDiagonalAsItsStep) {
  const GridPtr grid(new UniformCartesianArray(Point(0, 0, 0), {1, 1, 1}, Point(1, 2, 3), nobody));
  expectTriple(grid->getDelta(), 1, 2, 3);
  EXPECT_EQ(grid->first(), Point(0, 0, 0));
  EXPECT_EQ(grid->last(), Point(0, 0, 0));
  const auto box = grid->getBoundingBox();
  EXPECT_EQ((*box)[0], Point(0, 0, 0));
  EXPECT_EQ((*box)[1], Point(0, 0, 0));
}

TEST(UniformCartesianArrayTest, DividesTheDiagonalBySizeLessOne) {
  const GridPtr grid(new UniformCartesianArray(Point(0, 0, 0), {3, 2, 1}, Point(4, 4, 4), nobody));
  expectTriple(grid->getDelta(), 2, 4, 4);
  EXPECT_EQ(grid->last(), Point(4, 4, 0));
}

TEST(UniformCartesianArrayTest, BoxAndItsCornersGiveEqualArrays) {
  const Point low(-1, 0.25, 3);
  const Point high(2, 7, 3.5);
  const Ostrel::StrongPtr<Quorvel::BoundingBox, Ostrel::InterfaceBase> box(new Quorvel::BoundingBox(low, high));
  const GridPtr fromBox(new UniformCartesianArray(*box, {3, 4, 5}, nobody));
  const GridPtr fromCorners(new UniformCartesianArray(low, {3, 4, 5}, high, nobody));
  for (unsigned long long i = 0; i < 60; ++i) EXPECT_EQ(fromBox->getElementString(i), fromCorners->getElementString(i));
}

TEST(UniformCartesianArrayTest, BoundingBoxRunsFromTheFirstToTheLastPointAlsoIfInverted) {
  const GridPtr grid(new UniformCartesianArray(Point(5, 5, 5), {2, 2, 2}, Point(1, 2, 3), nobody));
  const auto box = grid->getBoundingBox();
  EXPECT_EQ((*box)[0], Point(5, 5, 5));
  EXPECT_EQ((*box)[1], Point(1, 2, 3));
}

TEST(UniformCartesianArrayTest, CopyHasEqualPointsOnAxesOfItsOwn) {
  const GridPtr grid(new UniformCartesianArray(Point(0, 1, 2), {3, 2, 2}, Point(4, 5, 6), nobody));
  const GridPtr copy(grid->copy(nobody));
  ASSERT_TRUE(copy);
  for (unsigned long long i = 0; i < 12; ++i) EXPECT_EQ(copy->getElementString(i), grid->getElementString(i));
  EXPECT_FALSE(copy->getAxis(0).sameRecord(grid->getAxis(0)));
  EXPECT_EQ((*copy->getBoundingBox())[0], (*grid->getBoundingBox())[0]);
  EXPECT_EQ((*copy->getBoundingBox())[1], (*grid->getBoundingBox())[1]);
}

TEST(UniformCartesianArrayTest, AcceptsExtentsOfZero) {
  const GridPtr grid(new UniformCartesianArray(Point(1, 1, 1), {0, 2, 2}, Point(2, 2, 2), nobody));
  EXPECT_EQ(grid->nElements(), 0U);
  EXPECT_EQ(grid->last(), Point(1, 2, 2));
}

TEST(UniformCartesianArrayTest, MakeExplicitHoldsTheComputedPoints) {
  const GridPtr grid(new UniformCartesianArray(Point(0.1, 0.2, 0.3), {7, 5, 3}, Point(1, 2, 3), nobody));
  const Ostrel::StrongPtr<MemArray<3, Point>, Ostrel::Cacheable> points(grid->makeExplicit(nobody));
  for (unsigned long long k = 0; k < 3; ++k) {
    for (unsigned long long j = 0; j < 5; ++j) {
      for (unsigned long long i = 0; i < 7; ++i) {
        const volatile double x = static_cast<double>(i) * grid->getDelta()[0];
        EXPECT_EQ((*points)(i, j, k)[0], x + grid->getOrigin()[0]);
      }
    }
  }
}

}  // namespace
