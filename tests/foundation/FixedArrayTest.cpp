// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Geometry.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <new>
#include <set>
#include <tuple>
#include <type_traits>
#include <typeindex>

namespace {

using Quorvel::FixedArray;
using Quorvel::PhysicalSpace;
using Quorvel::Vector;

template <class T>
void constructByDefault(void* place) {
  new (place) T;
}
template <class T>
void constructByValue(void* place) {
  new (place) T();
}

/// Constructs a `T` in memory full of one byte, both by default and as a vector constructs its elements, and tells
/// whether every byte is still there.
/// The values of the elements are indeterminate for the language, so the construction hides behind a pointer that the
/// compiler cannot follow, and the memory is read as bytes.
template <class T>
bool constructionLeavesTheMemory() {
  using Construct = void (*)(void*);
  for (const Construct way : {&constructByDefault<T>, &constructByValue<T>}) {
    const volatile Construct construct = way;
    for (const unsigned char fill : {static_cast<unsigned char>(0xA5), static_cast<unsigned char>(0x3C)}) {
      alignas(T) unsigned char memory[sizeof(T)];
      std::fill(std::begin(memory), std::end(memory), fill);
      construct(memory);
      if (std::count(std::begin(memory), std::end(memory), fill) != std::ssize(memory)) return false;
    }
  }
  return true;
}

template <class Array>
class FixedArrayTest : public ::testing::Test {};

template <class T>
using Lengths = std::tuple<FixedArray<T, 2>, FixedArray<T, 3>, FixedArray<T, 4>, FixedArray<T, 5>, FixedArray<T, 6>>;

template <class... Tuples>
struct Concatenated;
template <class... A>
struct Concatenated<std::tuple<A...>> {
  using Type = ::testing::Types<A...>;
};
template <class... A, class... B, class... Rest>
struct Concatenated<std::tuple<A...>, std::tuple<B...>, Rest...> : Concatenated<std::tuple<A..., B...>, Rest...> {};

using AllArrays = Concatenated<Lengths<double>, Lengths<float>, Lengths<int>, Lengths<unsigned int>, Lengths<short>,
                               Lengths<unsigned short>, Lengths<char>, Lengths<signed char>, Lengths<unsigned char>,
                               std::tuple<FixedArray<unsigned int, 8>>>::Type;
TYPED_TEST_SUITE(FixedArrayTest, AllArrays);

TYPED_TEST(FixedArrayTest, HoldsItsValuesAndNothingElse) {
  using T = typename TypeParam::ValueType;
  constexpr int n = TypeParam::Size;
  EXPECT_EQ(sizeof(TypeParam), n * sizeof(T));
  EXPECT_EQ(alignof(TypeParam), alignof(T));
  EXPECT_FALSE(std::is_polymorphic_v<TypeParam>);
  EXPECT_TRUE(std::is_trivially_copyable_v<TypeParam>);
  TypeParam array;
  for (int i = 0; i < n; ++i) {
    array[i] = static_cast<T>(i + 1);
    EXPECT_EQ(&array[i], &array[0] + i) << "adjacent";
  }
  EXPECT_EQ(static_cast<const void*>(&array[0]), static_cast<const void*>(&array));
  EXPECT_EQ(array.end() - array.begin(), n);
}

TYPED_TEST(FixedArrayTest, DefaultConstructionLeavesTheMemoryAsItIs) {
  EXPECT_TRUE(constructionLeavesTheMemory<TypeParam>());
}

TYPED_TEST(FixedArrayTest, CopiesAndSubtractsComponentByComponent) {
  using T = typename TypeParam::ValueType;
  constexpr int n = TypeParam::Size;
  TypeParam a;
  TypeParam b;
  for (int i = 0; i < n; ++i) {
    a[i] = static_cast<T>(3 * i + 5);
    b[i] = static_cast<T>(i + 1);
  }
  const TypeParam copy(a);
  EXPECT_TRUE(copy == a);
  EXPECT_FALSE(copy == b);
  const TypeParam difference = a - b;
  for (int i = 0; i < n; ++i) EXPECT_EQ(difference[i], static_cast<T>(2 * i + 4));
  b = a;
  EXPECT_TRUE(b == copy);
}

TEST(FixedArrayTypesTest, EveryElementTypeAndLengthIsATypeOfItsOwn) {
  const std::set<std::type_index> types = [] {
    std::set<std::type_index> all;
    const auto enter = [&all]<class T>(T) {
      all.insert({typeid(FixedArray<T, 2>), typeid(FixedArray<T, 3>), typeid(FixedArray<T, 4>),
                  typeid(FixedArray<T, 5>), typeid(FixedArray<T, 6>)});
    };
    enter(double());
    enter(float());
    enter(int());
    enter(0U);
    enter(short());
    enter(static_cast<unsigned short>(0));
    enter('a');
    enter(static_cast<signed char>(0));
    enter(static_cast<unsigned char>(0));
    all.insert(typeid(FixedArray<unsigned int, 8>));
    all.insert(typeid(Vector<double, 3>));
    all.insert(typeid(PhysicalSpace::point));
    all.insert(typeid(PhysicalSpace::vector));
    return all;
  }();
  EXPECT_EQ(types.size(), 9U * 5U + 4U);
}

TEST(FixedArrayTypesTest, ComponentsComeFromValues) {
  constexpr FixedArray<double, 3> array(1, 2.5, -3);
  static_assert(array[1] == 2.5);
  EXPECT_EQ(array[0], 1.0);
  EXPECT_EQ(array[2], -3.0);
  const FixedArray<unsigned char, 2> bytes(200, 7);
  EXPECT_EQ(bytes[0], 200);
}

TEST(FixedArrayTypesTest, SmallUnsignedDifferencesWrapIntoTheElementType) {
  const FixedArray<unsigned char, 2> a(1, 5);
  const FixedArray<unsigned char, 2> b(2, 3);
  const FixedArray<unsigned char, 2> difference = a - b;
  EXPECT_EQ(difference[0], 255);
  EXPECT_EQ(difference[1], 2);
}

TEST(FixedArrayTypesTest, DerivedValueTypesLeaveTheirMemoryToo) {
  EXPECT_TRUE((constructionLeavesTheMemory<Vector<double, 3>>()));
  EXPECT_TRUE((constructionLeavesTheMemory<Quorvel::Coordinates<Quorvel::Cartesian3D, double>::point>()));
  EXPECT_TRUE(constructionLeavesTheMemory<PhysicalSpace::point>());
  EXPECT_TRUE(constructionLeavesTheMemory<PhysicalSpace::vector>());
}

struct Zeroing {
  double values[3] = {0, 0, 0};
};

TEST(FixedArrayTypesTest, ProbeOfConstructionNoticesWrittenMemory) {
  EXPECT_FALSE(constructionLeavesTheMemory<Zeroing>());
  EXPECT_FALSE((constructionLeavesTheMemory<std::array<int, 2>>())) << "value-initialisation writes zeros there";
}

TEST(PhysicalSpaceTest, PointIsThreeDoubles) {
  EXPECT_EQ(sizeof(PhysicalSpace::point), 24U);
  EXPECT_FALSE(std::is_polymorphic_v<PhysicalSpace::point>);
  using ChartPoint = Quorvel::Coordinates<Quorvel::Cartesian3D, double>::point;
  EXPECT_EQ(sizeof(ChartPoint), 24U);
  static_assert(std::is_base_of_v<ChartPoint, PhysicalSpace::point>);
  static_assert(std::is_base_of_v<FixedArray<double, 3>, ChartPoint>);
  static_assert(std::is_base_of_v<Quorvel::Cartesian3D, ChartPoint>);
  static_assert(std::is_empty_v<Quorvel::Cartesian3D>);
  const PhysicalSpace::point p(1, 2, 3);
  EXPECT_EQ(p[0], 1.0);
  EXPECT_EQ(p[1], 2.0);
  EXPECT_EQ(p[2], 3.0);
}

TEST(PhysicalSpaceTest, DifferenceOfPointsIsAVectorAndNoPoint) {
  static_assert(!std::is_same_v<PhysicalSpace::point, PhysicalSpace::vector>);
  static_assert(!std::is_convertible_v<PhysicalSpace::vector, PhysicalSpace::point>);
  static_assert(!std::is_convertible_v<PhysicalSpace::point, PhysicalSpace::vector>);
  const PhysicalSpace::point a(5, 7, 9);
  const PhysicalSpace::point b(1, 2, 4);
  const PhysicalSpace::vector difference(a - b);
  EXPECT_EQ(difference[0], 4.0);
  EXPECT_EQ(difference[1], 5.0);
  EXPECT_EQ(difference[2], 5.0);
  EXPECT_EQ(sizeof(PhysicalSpace::vector), 24U);
}

TEST(PhysicalSpaceTest, VectorAddsNothingToItsArray) {
  static_assert(std::is_base_of_v<FixedArray<double, 3>, Vector<double, 3>>);
  EXPECT_EQ(sizeof(Vector<double, 3>), 24U);
  const Vector<double, 3> v(1, 2, 3);
  EXPECT_EQ(v[2], 3.0);
}

TEST(OperatorTest, NamesAnOperationByTwoNumbers) {
  static_assert(std::is_empty_v<Quorvel::Operator<43, 0>>);
  static_assert('+' == 43);
  EXPECT_NE(typeid(Quorvel::Operator<43, 0>), typeid(Quorvel::Operator<45, 0>));
  EXPECT_NE(typeid(Quorvel::Operator<43, 0>), typeid(Quorvel::Operator<43, 1>));
}

}  // namespace
