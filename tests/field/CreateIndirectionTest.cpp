// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreateIndirection.hpp>
#include <tresk/foundation/Chunk.hpp>
#include <tresk/foundation/FixedArray.hpp>

#include <field/ChunkKinds.hpp>
#include <field/TransformReference.hpp>
#include <support/ProfilerRecorder.hpp>
#include <support/RecordBalance.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <limits>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using Ostrel::Chunk;
using Ostrel::ChunkBase;
using Ostrel::StrongPtr;
using Quorvel::FixedArray;
using Tresk::CreateIndirection;
using TreskTest::bytesOf;
using TreskTest::ChunkKind;
using TreskTest::ChunkPtr;
using TreskTest::foreignKinds;
using TreskTest::gatherKinds;
using TreskTest::makeNoise;
using TreskTest::ProfilerRecorder;

template <class T>
ChunkPtr chunkOf(std::initializer_list<T> values) {
  const StrongPtr<Chunk<T>, ChunkBase> chunk(new Chunk<T>(values.size()));
  chunk->vector() = values;
  return chunk;
}

template <class T>
const std::vector<T>& elements(const ChunkPtr& chunk) {
  return dynamic_cast<const Ostrel::TypedChunkBase<T>&>(*chunk).vector();
}

using Floats = std::vector<float>;

template <class IndexType>
class CreateIndirectionTest : public TreskTest::RecordBalanceTest {
 protected:
  using Indices = std::vector<IndexType>;
  using Arguments = TreskTest::IndirectionArguments<IndexType>;
  static constexpr const Indices* none = nullptr;

  static bool call(const ChunkPtr& dst, const ChunkPtr& src, const Arguments& a) {
    return CreateIndirection(dst, src, a.dstIndices, a.srcIndices, a.begin, a.end, a.dstOffset, a.srcOffset,
                             a.nComponents);
  }

  /// The four cases of given and missing index vectors.
  template <class F>
  static void forEachCase(const Indices& dstIndices, const Indices& srcIndices, const F& f) {
    f(&dstIndices, &srcIndices);
    f(none, &srcIndices);
    f(&dstIndices, none);
    f(none, none);
  }
};
using IndexTypes = ::testing::Types<unsigned int, unsigned long long>;
TYPED_TEST_SUITE(CreateIndirectionTest, IndexTypes);

// ------------------------------------------------------------------------------------------------------ the four cases

TYPED_TEST(CreateIndirectionTest, CopiesFromIndexedToIndexedPlaces) {
  const std::vector<TypeParam> to{4, 0, 2};
  const std::vector<TypeParam> from{1, 3, 1};
  const ChunkPtr src = chunkOf<float>({10, 11, 12, 13, 14, 15});
  const ChunkPtr dst = chunkOf<float>({0, 0, 0, 0, 0, 0});
  EXPECT_TRUE(CreateIndirection(dst, src, &to, &from, 0, 3, 1, 2, 1));
  EXPECT_EQ(elements<float>(dst), (Floats{0, 15, 0, 13, 0, 13}));
  EXPECT_EQ(elements<float>(src), (Floats{10, 11, 12, 13, 14, 15}));
}

TYPED_TEST(CreateIndirectionTest, GathersToConsecutivePlacesWithoutDestinationIndices) {
  const std::vector<TypeParam> from{9, 0, 2, 0};
  const ChunkPtr src = chunkOf<float>({10, 11, 12, 13});
  const ChunkPtr dst = chunkOf<float>({0, 0, 0, 0, 0});
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 1, 4, 1, 1, 1));
  EXPECT_EQ(elements<float>(dst), (Floats{0, 0, 11, 13, 11}));
}

TYPED_TEST(CreateIndirectionTest, ScattersConsecutivePlacesWithoutSourceIndices) {
  const std::vector<TypeParam> to{9, 0, 2, 1};
  const ChunkPtr src = chunkOf<float>({10, 11, 12, 13, 14, 15});
  const ChunkPtr dst = chunkOf<float>({0, 0, 0, 0});
  EXPECT_TRUE(CreateIndirection(dst, src, &to, this->none, 1, 4, 1, 2, 1));
  EXPECT_EQ(elements<float>(dst), (Floats{0, 13, 15, 14}));
}

TYPED_TEST(CreateIndirectionTest, CopiesARunWithoutIndices) {
  const ChunkPtr src = chunkOf<float>({10, 11, 12, 13, 14, 15});
  const ChunkPtr dst = chunkOf<float>({0, 0, 0, 0});
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, this->none, 2, 5, -1, 1, 1));
  EXPECT_EQ(elements<float>(dst), (Floats{0, 13, 14, 15}));
}

TYPED_TEST(CreateIndirectionTest, ReadsIndicesFromBeginUpToEnd) {
  constexpr TypeParam Poison = std::numeric_limits<TypeParam>::max() / 2;
  const std::vector<TypeParam> places{Poison, Poison, 1, 0, Poison, Poison};
  for (const unsigned long long nComponents : {1ULL, 2ULL, 5ULL})
    this->forEachCase(places, places, [&](const auto* to, const auto* from) {
      const ChunkKind& kind = gatherKinds()[0];
      const ChunkPtr src = makeNoise(kind, 4 * nComponents, 1);
      const ChunkPtr dst = makeNoise(kind, 4 * nComponents, 2);
      const typename TestFixture::Arguments arguments{to, from, 2, 4, 0, 0, nComponents};
      TreskTest::Bytes expected = bytesOf(dst);
      EXPECT_TRUE(TreskTest::referenceIndirection(expected, bytesOf(src), kind.elementSize, arguments));
      EXPECT_TRUE(this->call(dst, src, arguments));
      EXPECT_EQ(bytesOf(dst), expected) << nComponents;
    });
}

// ------------------------------------------------------------------------------------------------------------ the types

TYPED_TEST(CreateIndirectionTest, ServesAllSixtyElementTypesInItemsOfAnyLength) {
  ASSERT_EQ(gatherKinds().size(), 60U);
  const std::vector<TypeParam> to{3, 7, 1, 0, 5, 4};
  const std::vector<TypeParam> from{2, 2, 7, 0, 6, 1};
  for (const ChunkKind& kind : gatherKinds())
    for (const unsigned long long nComponents : {0ULL, 1ULL, 2ULL, 3ULL, 4ULL, 5ULL, 7ULL, 8ULL})
      this->forEachCase(to, from, [&](const auto* dstIndices, const auto* srcIndices) {
        const unsigned long long n = nComponents == 0 ? 9 : 9 * nComponents;
        const ChunkPtr src = makeNoise(kind, n, 1);
        const ChunkPtr dst = makeNoise(kind, n, 2);
        const typename TestFixture::Arguments arguments{dstIndices, srcIndices, 1, 6, 1, 0, nComponents};
        TreskTest::Bytes expected = bytesOf(dst);
        EXPECT_TRUE(TreskTest::referenceIndirection(expected, bytesOf(src), kind.elementSize, arguments));
        EXPECT_TRUE(this->call(dst, src, arguments)) << kind.name();
        EXPECT_EQ(bytesOf(dst), expected) << kind.name() << " x " << nComponents;
      });
}

TYPED_TEST(CreateIndirectionTest, RefusesChunksOfDifferentElementTypes) {
  const std::vector<TypeParam> places{0};
  std::vector<ChunkPtr> chunks;
  for (const ChunkKind& kind : gatherKinds()) chunks.push_back(makeNoise(kind, 2, 3));
  for (std::size_t d = 0; d < chunks.size(); ++d) {
    const TreskTest::Bytes before = bytesOf(chunks[d]);
    for (std::size_t s = 0; s < chunks.size(); ++s) {
      if (d == s) continue;
      EXPECT_FALSE(CreateIndirection(chunks[d], chunks[s], &places, &places, 0, 1, 0, 1, 1));
      EXPECT_FALSE(CreateIndirection(chunks[d], chunks[s], this->none, this->none, 0, 1, 0, 0, 2));
    }
    EXPECT_EQ(bytesOf(chunks[d]), before) << gatherKinds()[d].name();
  }
}

TYPED_TEST(CreateIndirectionTest, RefusesElementTypesOutsideTheTable) {
  const std::vector<TypeParam> places{0, 1};
  for (const ChunkKind& kind : foreignKinds())
    for (const unsigned long long nComponents : {0ULL, 1ULL, 2ULL})
      this->forEachCase(places, places, [&](const auto* to, const auto* from) {
        const ChunkPtr src = makeNoise(kind, 4, 1);
        const ChunkPtr dst = makeNoise(kind, 4, 2);
        const TreskTest::Bytes before = bytesOf(dst);
        EXPECT_FALSE(CreateIndirection(dst, src, to, from, 0, 2, 0, 0, nComponents)) << kind.name();
        EXPECT_FALSE(CreateIndirection(dst, src, to, from, 0, 0, 0, 0, nComponents)) << kind.name();
        EXPECT_EQ(bytesOf(dst), before) << kind.name();
      });
}

/// A chunk of its own class that speaks of another type than it has.
template <class T>
class OwnChunk : public Ostrel::TypedChunkBase<T> {
 public:
  OwnChunk(std::vector<T> elements, const std::type_info& told) : elements_(std::move(elements)), told_(told) {}
  const std::vector<T>& vector() const override { return elements_; }
  std::vector<T>& vector() override { return elements_; }
  StrongPtr<Ostrel::TypedChunkBase<T>, ChunkBase> newTypedChunk(unsigned long long, bool) const override { return {}; }
  unsigned long long size() const override { return elements_.size(); }
  int elementSize() const override { return static_cast<int>(sizeof(T)); }
  const void* data() const override { return elements_.data(); }
  void* data() override { return elements_.data(); }
  const std::type_info& elementType() const override { return told_; }
  const std::type_info& chunkType() const override { return told_; }
  Ostrel::ChunkDescription describe() const override { return {&told_, static_cast<int>(sizeof(T)), 1, 0}; }
  ChunkPtr newChunk(unsigned long long, bool) const override { return {}; }
  ChunkPtr clone() const override { return {}; }

 private:
  std::vector<T> elements_;
  const std::type_info& told_;
};

TYPED_TEST(CreateIndirectionTest, TakesChunksOfAnyClassByTheTypeOfTheirVector) {
  const std::vector<TypeParam> from{2, 0};
  for (const std::type_info* const told : {&typeid(double), &typeid(float), &typeid(std::string)}) {
    const ChunkPtr src(new OwnChunk<double>({10, 11, 12}, *told));
    const ChunkPtr dst(new OwnChunk<double>({0, 0}, *told));
    EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 0, 2, 0, 0, 1)) << told->name();
    EXPECT_EQ(elements<double>(dst), (std::vector<double>{12, 10})) << told->name();
    const ChunkPtr plain = chunkOf<double>({0, 0});
    EXPECT_TRUE(CreateIndirection(plain, src, this->none, &from, 0, 2, 0, 0, 1)) << told->name();
    EXPECT_TRUE(CreateIndirection(dst, plain, this->none, this->none, 0, 1, 0, 1, 1)) << told->name();
    EXPECT_EQ(elements<double>(dst), (std::vector<double>{10, 10})) << told->name();
    EXPECT_FALSE(CreateIndirection(dst, chunkOf<float>({1, 2}), this->none, this->none, 0, 1, 0, 0, 1)) << told->name();
  }
}

TYPED_TEST(CreateIndirectionTest, NullAndDeadPointersAreFalse) {
  const std::vector<TypeParam> places{0};
  const ChunkPtr good = chunkOf<float>({1, 2});
  Ostrel::WeakPtr<ChunkBase, ChunkBase> observer;
  { observer = chunkOf<float>({1, 2}); }
  const ChunkPtr dead(observer);
  for (const ChunkPtr& bad : {ChunkPtr(), dead}) {
    for (const unsigned long long nComponents : {0ULL, 1ULL, 2ULL})
      this->forEachCase(places, places, [&](const auto* to, const auto* from) {
        EXPECT_FALSE(CreateIndirection(bad, good, to, from, 0, 1, 0, 0, nComponents));
        EXPECT_FALSE(CreateIndirection(good, bad, to, from, 0, 1, 0, 0, nComponents));
        EXPECT_FALSE(CreateIndirection(bad, bad, to, from, 0, 0, 0, 0, nComponents));
      });
  }
  EXPECT_EQ(elements<float>(good), (Floats{1, 2}));
}

// ------------------------------------------------------------------------------------------------ ranges and the bounds

TYPED_TEST(CreateIndirectionTest, AnEmptyRangeIsTrueAndWritesNothing) {
  const std::vector<TypeParam> places{0, 1};
  for (const unsigned long long nComponents : {0ULL, 1ULL, 2ULL, 3ULL, 4ULL, 5ULL})
    for (const unsigned long long at : {0ULL, 1ULL, 2ULL})
      this->forEachCase(places, places, [&](const auto* to, const auto* from) {
        const ChunkPtr src = chunkOf<float>({1, 2});
        const ChunkPtr dst = chunkOf<float>({8, 9});
        EXPECT_TRUE(CreateIndirection(dst, src, to, from, at, at, 0, 0, nComponents));
        EXPECT_EQ(elements<float>(dst), (Floats{8, 9}));
      });
}

TYPED_TEST(CreateIndirectionTest, ARangeThatEndsBeforeItsBeginIsEmpty) {
  const std::vector<TypeParam> places{0, 1};
  for (const unsigned long long nComponents : {0ULL, 1ULL, 2ULL, 7ULL})
    this->forEachCase(places, places, [&](const auto* to, const auto* from) {
      const ChunkPtr src = chunkOf<float>({1, 2});
      const ChunkPtr dst = chunkOf<float>({8, 9});
      EXPECT_TRUE(CreateIndirection(dst, src, to, from, 2, 1, 0, 0, nComponents));
      EXPECT_TRUE(
          CreateIndirection(dst, src, to, from, std::numeric_limits<unsigned long long>::max(), 0, 0, 0, nComponents));
      EXPECT_EQ(elements<float>(dst), (Floats{8, 9}));
    });
}

TYPED_TEST(CreateIndirectionTest, EmptyChunksHaveEmptyRanges) {
  const std::vector<TypeParam> places;
  for (const unsigned long long nComponents : {0ULL, 1ULL, 3ULL, 9ULL, std::numeric_limits<unsigned long long>::max()})
    this->forEachCase(places, places, [&](const auto* to, const auto* from) {
      const ChunkPtr src = chunkOf<float>({});
      const ChunkPtr dst = chunkOf<float>({});
      EXPECT_TRUE(CreateIndirection(dst, src, to, from, 0, 0, 0, 0, nComponents));
      EXPECT_EQ(dst->size(), 0U);
    });
}

TYPED_TEST(CreateIndirectionTest, AGatherIsFalseIfTheDestinationIsShorterThanOffsetAndEnd) {
  const std::vector<TypeParam> from{0, 1, 2, 3};
  const ChunkPtr src = chunkOf<float>({10, 11, 12, 13});
  const ChunkPtr tooShort = chunkOf<float>({0, 1, 2, 3, 4});
  EXPECT_FALSE(CreateIndirection(tooShort, src, this->none, &from, 1, 4, 2, 0, 1));
  EXPECT_EQ(elements<float>(tooShort), (Floats{0, 1, 2, 3, 4}));
  const ChunkPtr longEnough = chunkOf<float>({0, 1, 2, 3, 4, 5});
  EXPECT_TRUE(CreateIndirection(longEnough, src, this->none, &from, 1, 4, 2, 0, 1));
  EXPECT_EQ(elements<float>(longEnough), (Floats{0, 1, 2, 11, 12, 13}));
}

TYPED_TEST(CreateIndirectionTest, AGatherOfNothingIsStillTested) {
  const std::vector<TypeParam> from;
  const ChunkPtr src = chunkOf<float>({10});
  const ChunkPtr dst = chunkOf<float>({0, 1, 2});
  for (const unsigned long long nComponents : {0ULL, 1ULL, 2ULL}) {
    EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 3, 3, 0, 0, nComponents));
    EXPECT_FALSE(CreateIndirection(dst, src, this->none, &from, 4, 4, 0, 0, nComponents));
    EXPECT_FALSE(CreateIndirection(dst, src, this->none, &from, 9, 4, 0, 0, nComponents));
    EXPECT_FALSE(CreateIndirection(dst, src, this->none, &from, 0, 0, 4, 0, nComponents));
    EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 0, 0, 3, 0, nComponents));
  }
}

TYPED_TEST(CreateIndirectionTest, TheSumOfOffsetAndEndWrapsInSixtyFourBits) {
  const std::vector<TypeParam> from{9, 9, 9, 9, 9, 1, 0};
  const ChunkPtr src = chunkOf<float>({10, 11});
  const ChunkPtr dst = chunkOf<float>({0, 0});
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 5, 7, -5, 0, 1)) << "7 - 5 of 2 elements";
  EXPECT_EQ(elements<float>(dst), (Floats{11, 10}));
  const ChunkPtr tooShort = chunkOf<float>({0});
  EXPECT_FALSE(CreateIndirection(tooShort, src, this->none, &from, 5, 7, -5, 0, 1));
  EXPECT_EQ(elements<float>(tooShort), Floats{0});
  // Below zero the sum is a great number, also where nothing would be written.
  EXPECT_FALSE(CreateIndirection(dst, src, this->none, &from, 0, 0, -1, 0, 1));
  EXPECT_FALSE(CreateIndirection(dst, src, this->none, &from, 3, 3, -4, 0, 2));
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 4, 4, -4, 0, 2));
  constexpr unsigned long long Greatest = std::numeric_limits<unsigned long long>::max();
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, Greatest, Greatest, 1, 0, 1)) << "0";
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, Greatest, Greatest, 3, 0, 1)) << "2";
  EXPECT_FALSE(CreateIndirection(dst, src, this->none, &from, Greatest, Greatest, 4, 0, 1)) << "3";
  EXPECT_FALSE(CreateIndirection(dst, src, this->none, &from, Greatest, Greatest, 0, 0, 1));
  EXPECT_FALSE(CreateIndirection(dst, src, this->none, &from, 0, 0, std::numeric_limits<int>::min(), 0, 1));
  EXPECT_TRUE(
      CreateIndirection(dst, src, this->none, &from, 1ULL << 31, 1ULL << 31, std::numeric_limits<int>::min(), 0, 1));
  EXPECT_FALSE(CreateIndirection(dst, src, this->none, &from, 1ULL << 32, 1ULL << 32, 0, 0, 1)) << "not of 32 bits";
}

TYPED_TEST(CreateIndirectionTest, OnlyTheGatherIsTested) {
  // More items than the destination has elements, all of them in range.
  const std::vector<TypeParam> ones{1, 0, 1, 0, 1};
  const std::vector<TypeParam> places{9, 9, 9, 1, 0};
  const ChunkPtr src = chunkOf<float>({10, 11});
  const ChunkPtr dst = chunkOf<float>({0, 0});
  EXPECT_TRUE(CreateIndirection(dst, src, &places, &ones, 3, 5, 0, 0, 1));
  EXPECT_EQ(elements<float>(dst), (Floats{11, 10}));
  EXPECT_TRUE(CreateIndirection(dst, src, &places, this->none, 3, 5, 0, -3, 1));
  EXPECT_EQ(elements<float>(dst), (Floats{11, 10}));
  // Places far beyond both chunks that nothing is copied to or from.
  for (const unsigned long long nComponents : {0ULL, 1ULL, 2ULL}) {
    const std::vector<TypeParam> empty;
    EXPECT_TRUE(CreateIndirection(dst, src, &empty, &empty, 1000, 1000, 5, -5, nComponents));
    EXPECT_TRUE(CreateIndirection(dst, src, &empty, this->none, 1000, 1000, 5, -5, nComponents));
    EXPECT_TRUE(CreateIndirection(dst, src, this->none, this->none, 1000, 1000, 5, -5, nComponents));
  }
  EXPECT_EQ(elements<float>(dst), (Floats{11, 10}));
}

TYPED_TEST(CreateIndirectionTest, TheSourceIsNeverTested) {
  const std::vector<TypeParam> from{0, 0, 0, 0, 0, 0};
  const ChunkPtr src = chunkOf<float>({10});
  const ChunkPtr dst = chunkOf<float>({0, 0, 0, 0, 0, 0});
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 0, 6, 0, 0, 1));
  EXPECT_EQ(elements<float>(dst), Floats(6, 10));
  EXPECT_TRUE(CreateIndirection(dst, chunkOf<float>({}), this->none, &from, 6, 6, 0, 0, 1));
}

TYPED_TEST(CreateIndirectionTest, OffsetAndIndexAreAddedInTheWidthOfTheIndex) {
  constexpr TypeParam Greatest = std::numeric_limits<TypeParam>::max();
  const std::vector<TypeParam> wrapping{Greatest - 2, Greatest - 3};
  const std::vector<TypeParam> plain{3, 5};
  for (const unsigned long long nComponents : {1ULL, 2ULL, 3ULL, 6ULL}) {
    const ChunkKind& kind = gatherKinds()[0];
    const ChunkPtr src = makeNoise(kind, 8 * nComponents, 1);
    const TreskTest::Bytes source = bytesOf(src);
    const std::size_t block = kind.elementSize * nComponents;
    const auto item = [block](const TreskTest::Bytes& bytes, std::size_t i) {
      const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(i * block);
      return TreskTest::Bytes(at, at + static_cast<std::ptrdiff_t>(block));
    };
    const ChunkPtr dst = makeNoise(kind, 8 * nComponents, 2);
    // 2^w - 3 + 7 is 4, and 2^w - 4 + 7 is 3.
    EXPECT_TRUE(CreateIndirection(dst, src, &wrapping, &wrapping, 0, 2, 7, 5, nComponents));
    EXPECT_EQ(item(bytesOf(dst), 4), item(source, 2));
    EXPECT_EQ(item(bytesOf(dst), 3), item(source, 1));
    EXPECT_TRUE(CreateIndirection(dst, src, &plain, &plain, 0, 2, -3, -2, nComponents));
    EXPECT_EQ(item(bytesOf(dst), 0), item(source, 1));
    EXPECT_EQ(item(bytesOf(dst), 2), item(source, 3));
    EXPECT_TRUE(CreateIndirection(dst, src, this->none, &wrapping, 0, 2, 1, 4, nComponents));
    EXPECT_EQ(item(bytesOf(dst), 1), item(source, 1));
    EXPECT_EQ(item(bytesOf(dst), 2), item(source, 0));
    EXPECT_TRUE(CreateIndirection(dst, src, &wrapping, this->none, 0, 2, 10, 5, nComponents));
    EXPECT_EQ(item(bytesOf(dst), 7), item(source, 5));
    EXPECT_EQ(item(bytesOf(dst), 6), item(source, 6));
  }
}

TYPED_TEST(CreateIndirectionTest, ConsecutivePlacesAreCountedInSixtyFourBits) {
  const ChunkPtr src = chunkOf<float>({10, 11, 12});
  const ChunkPtr dst = chunkOf<float>({0, 0, 0});
  constexpr int Least = std::numeric_limits<int>::min();
  constexpr unsigned long long Begin = 1ULL << 31;
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, this->none, Begin, Begin + 3, Least, Least, 1));
  EXPECT_EQ(elements<float>(dst), (Floats{10, 11, 12}));
  // From the end of the numbers to their beginning.
  constexpr unsigned long long Greatest = std::numeric_limits<unsigned long long>::max();
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, this->none, Greatest - 2, Greatest, 3, 4, 1));
  EXPECT_EQ(elements<float>(dst), (Floats{11, 12, 12}));
}

// ---------------------------------------------------------------------------------------------------- several components

TYPED_TEST(CreateIndirectionTest, TwoComponentsCopyPairsAndTheTestCountsSingleElements) {
  const std::vector<TypeParam> from{2, 0, 1};
  const ChunkPtr src = chunkOf<float>({10, 11, 20, 21, 30, 31});
  const ChunkPtr dst = chunkOf<float>({0, 0, 0, 0, 0, 0});
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 0, 3, 0, 0, 2));
  EXPECT_EQ(elements<float>(dst), (Floats{30, 31, 10, 11, 20, 21}));
  // Two pairs from the second on: item 5 is beyond the pairs, and no element.
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 6, 6, 0, 0, 2));
  EXPECT_FALSE(CreateIndirection(dst, src, this->none, &from, 7, 7, 0, 0, 2));
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 6, 6, 0, 0, 7)) << "not even one item of 7 fits";
}

TYPED_TEST(CreateIndirectionTest, OffsetsCountItems) {
  const std::vector<TypeParam> places{0};
  const ChunkPtr src = chunkOf<float>({10, 11, 20, 21, 30, 31});
  const ChunkPtr dst = chunkOf<float>({0, 0, 0, 0, 0, 0});
  EXPECT_TRUE(CreateIndirection(dst, src, &places, this->none, 0, 1, 2, 1, 2));
  EXPECT_EQ(elements<float>(dst), (Floats{0, 0, 0, 0, 20, 21}));
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &places, 0, 1, 1, 2, 2));
  EXPECT_EQ(elements<float>(dst), (Floats{0, 0, 30, 31, 20, 21}));
}

TYPED_TEST(CreateIndirectionTest, ItemsOfNoElementsCopyNothing) {
  const std::vector<TypeParam> places{0, 1, 4000000};
  this->forEachCase(places, places, [&](const auto* to, const auto* from) {
    const ChunkPtr src = chunkOf<float>({1, 2, 3});
    const ChunkPtr dst = chunkOf<float>({7, 8, 9});
    EXPECT_TRUE(CreateIndirection(dst, src, to, from, 0, 3, 0, 0, 0));
    EXPECT_EQ(elements<float>(dst), (Floats{7, 8, 9}));
  });
  EXPECT_FALSE(CreateIndirection(chunkOf<float>({7, 8}), chunkOf<float>({1}), this->none, &places, 0, 3, 0, 0, 0));
}

TYPED_TEST(CreateIndirectionTest, ABlockMayBeCopiedOntoItself) {
  const std::vector<TypeParam> places{1, 0, 2};
  for (const ChunkKind& kind : gatherKinds())
    for (const unsigned long long nComponents : {0ULL, 1ULL, 2ULL, 3ULL, 4ULL, 5ULL, 40ULL}) {
      const ChunkPtr chunk = makeNoise(kind, 3 * nComponents, 1);
      const TreskTest::Bytes before = bytesOf(chunk);
      EXPECT_TRUE(CreateIndirection(chunk, chunk, &places, &places, 0, 3, 0, 0, nComponents));
      EXPECT_TRUE(CreateIndirection(chunk, chunk, this->none, this->none, 0, 3, 0, 0, nComponents));
      EXPECT_EQ(bytesOf(chunk), before) << kind.name() << " x " << nComponents;
    }
}

TYPED_TEST(CreateIndirectionTest, CopiesWithinOneChunk) {
  const std::vector<TypeParam> from{1, 0};
  const ChunkPtr chunk = chunkOf<float>({10, 11, 20, 21, 0, 0, 0, 0});
  EXPECT_TRUE(CreateIndirection(chunk, chunk, this->none, &from, 0, 2, 2, 0, 2));
  EXPECT_EQ(elements<float>(chunk), (Floats{10, 11, 20, 21, 20, 21, 10, 11}));
}

TYPED_TEST(CreateIndirectionTest, AnItemOfVectorsIsManyNumbers) {
  using V = FixedArray<short, 3>;
  const std::vector<TypeParam> from{1};
  const ChunkPtr src = chunkOf<V>({V(1, 2, 3), V(4, 5, 6), V(7, 8, 9), V(10, 11, 12)});
  const ChunkPtr dst = chunkOf<V>({V(0, 0, 0), V(0, 0, 0)});
  EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 0, 1, 0, 0, 2));
  EXPECT_EQ(elements<V>(dst), (std::vector<V>{V(7, 8, 9), V(10, 11, 12)}));
}

// ----------------------------------------------------------------------------------------------------------- its profile

TYPED_TEST(CreateIndirectionTest, OpensOneScopeForTheCallAndOneForTheCopy) {
  const std::vector<TypeParam> places{0};
  const ChunkPtr src = chunkOf<float>({1, 2, 3});
  const ChunkPtr dst = chunkOf<float>({0, 0, 0});
  for (const unsigned long long nComponents : {1ULL, 0ULL, 2ULL, 3ULL})
    this->forEachCase(places, places, [&](const auto* to, const auto* from) {
      const ProfilerRecorder recorder;
      EXPECT_TRUE(CreateIndirection(dst, src, to, from, 0, 1, 0, 0, nComponents));
      const auto events = recorder.events();
      ASSERT_EQ(events.size(), 4U);
      for (std::size_t e = 0; e < 4; ++e) {
        EXPECT_EQ(events[e].isBegin, e < 2);
        const auto& scope = events[e].scope;
        const bool isCall = e == 0 || e == 3;
        EXPECT_EQ(scope.file, "field/CreateIndirectionArray");
        EXPECT_EQ(scope.level, 6);
        if (isCall) {
          EXPECT_EQ(scope.line, 343);
          EXPECT_EQ(scope.name, "ComputeArrayIndirection()");
          EXPECT_EQ(scope.detail, "Indirection");
          EXPECT_THAT(scope.function, ::testing::HasSubstr("iCreateIndirection"));
        } else if (nComponents == 1) {
          EXPECT_EQ(scope.line, 42);
          EXPECT_EQ(scope.name, "CreateIndirectionArray - doIndirection");
          EXPECT_EQ(scope.detail, "");
          EXPECT_THAT(scope.function, ::testing::HasSubstr("doIndirection"));
        } else {
          EXPECT_EQ(scope.line, 182);
          EXPECT_EQ(scope.name, "CreateIndirectionArray - doArrayIndirection");
          EXPECT_EQ(scope.detail, "");
          EXPECT_THAT(scope.function, ::testing::HasSubstr("doArrayIndirection"));
        }
      }
    });
}

/// The lines of the scopes that begin in a call.
template <class F>
std::vector<int> linesOf(const F& call) {
  const ProfilerRecorder recorder;
  call();
  std::vector<int> lines;
  for (const ProfilerRecorder::Event& event : recorder.events())
    if (event.isBegin) lines.push_back(event.scope.line);
  return lines;
}

TYPED_TEST(CreateIndirectionTest, OpensTheScopeOfTheCopyAlsoIfTheTestFailsAndNoneWithoutAType) {
  const std::vector<TypeParam> from{0, 0};
  const ChunkPtr src = chunkOf<float>({1});
  const ChunkPtr dst = chunkOf<float>({0});
  using Lines = std::vector<int>;
  EXPECT_EQ(linesOf([&] { CreateIndirection(dst, src, this->none, &from, 0, 2, 0, 0, 1); }), (Lines{343, 42}));
  EXPECT_EQ(linesOf([&] { CreateIndirection(dst, src, this->none, &from, 0, 2, 0, 0, 2); }), (Lines{343, 182}));
  EXPECT_EQ(linesOf([&] { CreateIndirection(dst, src, this->none, &from, 0, 0, 0, 0, 1); }), (Lines{343, 42}));
  const ChunkPtr other = chunkOf<double>({0});
  EXPECT_EQ(linesOf([&] { CreateIndirection(other, src, this->none, &from, 0, 1, 0, 0, 1); }), Lines{343});
  EXPECT_EQ(linesOf([&] { CreateIndirection(ChunkPtr(), src, this->none, &from, 0, 1, 0, 0, 1); }), Lines{343});
  EXPECT_EQ(linesOf([&] { CreateIndirection(dst, ChunkPtr(), this->none, &from, 0, 1, 0, 0, 1); }), Lines{343});
}

/// Lets go of two pointers when the copy begins.
class Dropper : public Ostrel::Profiler::Listener {
 public:
  Dropper(ChunkPtr& a, ChunkPtr& b) : a_(a), b_(b) {}
  void begin(const Ostrel::Profiler::Scope& scope) override {
    if (scope.line == 343) return;
    a_.reset();
    b_.reset();
  }
  void end(const Ostrel::Profiler::Scope&) override {}

 private:
  ChunkPtr& a_;
  ChunkPtr& b_;
};

TYPED_TEST(CreateIndirectionTest, HoldsTheChunksDuringTheCopy) {
  const std::vector<TypeParam> from{1, 0};
  for (const unsigned long long nComponents : {1ULL, 2ULL}) {
    ChunkPtr src = chunkOf<float>({1, 2, 3, 4});
    ChunkPtr dst = chunkOf<float>({0, 0, 0, 0});
    const Ostrel::WeakPtr<ChunkBase, ChunkBase> observer(src);
    Dropper dropper(src, dst);
    Ostrel::Profiler::Listener* const former = Ostrel::Profiler::setListener(&dropper);
    EXPECT_TRUE(CreateIndirection(dst, src, this->none, &from, 0, 2, 0, 0, nComponents));
    Ostrel::Profiler::setListener(former);
    EXPECT_FALSE(src);
    EXPECT_FALSE(ChunkPtr(observer));
  }
}

}  // namespace
