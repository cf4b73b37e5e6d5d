// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ElementText.hpp>
#include <tresk/field/FragmentID.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>

namespace {

using Quorvel::FixedArray;
using Tresk::elementText;
using Tresk::FragmentIDPtr;
using Tresk::IJ_CellNamingConvention;

TEST(ElementTextTest, DoublesAreTheShortestTextThatReadsBack) {
  EXPECT_EQ(elementText(0.0), "0");
  EXPECT_EQ(elementText(-0.0), "-0");
  EXPECT_EQ(elementText(1.0), "1");
  EXPECT_EQ(elementText(-1.5), "-1.5");
  EXPECT_EQ(elementText(0.1), "0.1");
  EXPECT_EQ(elementText(1.0 / 3.0), "0.3333333333333333");
  EXPECT_EQ(elementText(100000.0), "1e+05");
  EXPECT_EQ(elementText(123456.0), "123456");
  EXPECT_EQ(elementText(0.0001), "1e-04");
  EXPECT_EQ(elementText(0.00012), "0.00012");
  EXPECT_EQ(elementText(1e22), "1e+22");
  EXPECT_EQ(elementText(0.1 + 0.2), "0.30000000000000004");
}

TEST(ElementTextTest, DoublesAtTheEdgesOfTheirRangeAreShownInFull) {
  using Limits = std::numeric_limits<double>;
  EXPECT_EQ(elementText(Limits::max()), "1.7976931348623157e+308");
  EXPECT_EQ(elementText(Limits::min()), "2.2250738585072014e-308");
  EXPECT_EQ(elementText(Limits::denorm_min()), "5e-324");
  EXPECT_EQ(elementText(-Limits::max()), "-1.7976931348623157e+308");
  EXPECT_EQ(elementText(Limits::infinity()), "inf");
  EXPECT_EQ(elementText(-Limits::infinity()), "-inf");
  EXPECT_EQ(elementText(Limits::quiet_NaN()), "nan");
}

TEST(ElementTextTest, EveryFiniteDoubleReadsBackToItself) {
  std::mt19937_64 random(20260103);
  for (int round = 0; round < 20000; ++round) {
    const unsigned long long bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof(value));
    if (value != value || value - value != 0) continue;
    const std::string text = elementText(value);
    const double back = std::strtod(text.c_str(), nullptr);
    EXPECT_EQ(std::memcmp(&back, &value, sizeof(value)), 0) << text;
  }
}

TEST(ElementTextTest, UnsignedNumbersAreDecimal) {
  EXPECT_EQ(elementText(0U), "0");
  EXPECT_EQ(elementText(100000U), "100000");
  EXPECT_EQ(elementText(4294967295U), "4294967295");
}

TEST(ElementTextTest, TuplesOfDoublesStandInBraces) {
  EXPECT_EQ(elementText(FixedArray<double, 2>(1.5, -2.0)), "{1.5,-2}");
  EXPECT_EQ(elementText(FixedArray<double, 3>(100000.0, 0.0001, -0.0)), "{1e+05,1e-04,-0}");
  EXPECT_EQ(elementText(Quorvel::Vector<double, 3>(1.0, 2.0, 3.0)), "{1,2,3}");
  EXPECT_EQ(elementText(Quorvel::PhysicalSpace::point(0.1, 0.2, 0.3)), "{0.1,0.2,0.3}");
}

TEST(ElementTextTest, CellsAreTheirVerticesJoinedByX) {
  using Line = Tresk::SimplexCell<1, unsigned int, IJ_CellNamingConvention>;
  using Triangle = Tresk::SimplexCell<2, unsigned int, IJ_CellNamingConvention>;
  using Tetrahedron = Tresk::SimplexCell<3, unsigned int, IJ_CellNamingConvention>;
  using Quadrilateral = Tresk::RegularCell<2, unsigned int, IJ_CellNamingConvention>;
  using Hexahedron = Tresk::RegularCell<3, unsigned int, IJ_CellNamingConvention>;
  EXPECT_EQ(elementText(Line(0U, 4294967295U)), "0x4294967295");
  EXPECT_EQ(elementText(Triangle(1U, 2U, 3U)), "1x2x3");
  EXPECT_EQ(elementText(Tetrahedron(1U, 2U, 3U, 4U)), "1x2x3x4");
  EXPECT_EQ(elementText(Quadrilateral(4U, 3U, 2U, 1U)), "4x3x2x1");
  EXPECT_EQ(elementText(Hexahedron(0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U)), "0x1x2x3x4x5x6x7");
}

TEST(ElementTextTest, FragmentsAreTheirNameInBracketsAndQuotationMarks) {
  const FragmentIDPtr fragment(new Tresk::FragmentID("month 3, depth \"10\""));
  EXPECT_EQ(elementText(fragment), "[\"month 3, depth \"10\"\"]");
  EXPECT_EQ(elementText(FragmentIDPtr(new Tresk::FragmentID(""))), "[\"\"]");
}

TEST(ElementTextTest, NoFragmentAndADeadOneHaveAnEmptyName) {
  EXPECT_EQ(elementText(FragmentIDPtr()), "[\"\"]");
  FragmentIDPtr alive(new Tresk::FragmentID("gone"));
  const Ostrel::WeakPtr<Tresk::FragmentID, Tresk::FragmentID> weak(alive);
  alive.reset();
  const FragmentIDPtr dead(weak);
  EXPECT_FALSE(dead);
  EXPECT_EQ(elementText(dead), "[\"\"]");
}

}  // namespace
