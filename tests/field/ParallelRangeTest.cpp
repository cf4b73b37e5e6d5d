// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreateIndirection.hpp>
#include <tresk/field/CreateSample.hpp>
#include <tresk/field/ParallelRange.hpp>

#include <field/ChunkKinds.hpp>
#include <support/OpenMpThreads.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

namespace {

using Tresk::CreateIndirection;
using Tresk::CreateSample;
using Tresk::SampleParameters;
using Tresk::Detail::forEachShare;
using Tresk::Detail::Range;
using Tresk::Detail::shareOf;
using TreskTest::Bytes;
using TreskTest::bytesOf;
using TreskTest::ChunkKind;
using TreskTest::ChunkPtr;
using TreskTest::gatherKinds;
using TreskTest::makeNoise;
using TreskTest::OpenMpThreads;

constexpr unsigned long long Greatest = std::numeric_limits<unsigned long long>::max();

/// Checks that the shares of a range follow each other, cover it, and have the lengths that they should have.
void expectShares(Range range, unsigned long long nThreads) {
  const unsigned long long n = range.end - range.begin;
  unsigned long long at = range.begin;
  for (unsigned long long number = 0; number < nThreads; ++number) {
    const Range share = shareOf(range, nThreads, number);
    ASSERT_EQ(share.begin, at) << "thread " << number << " of " << nThreads;
    ASSERT_EQ(share.end - share.begin, n / nThreads + (number < n % nThreads ? 1 : 0))
        << "thread " << number << " of " << nThreads;
    at = share.end;
  }
  ASSERT_EQ(at, range.end);
}

TEST(ParallelRangeTest, SharesCoverTheRangeAndTheFirstOnesHaveOneMore) {
  for (unsigned long long n = 0; n <= 40; ++n)
    for (unsigned long long nThreads = 1; nThreads <= 45; ++nThreads)
      for (const unsigned long long begin : {0ULL, 1ULL, 1000ULL}) expectShares({begin, begin + n}, nThreads);
}

TEST(ParallelRangeTest, SharesOfTheGreatestRangesDoNotWrap) {
  for (const unsigned long long nThreads : {1ULL, 2ULL, 3ULL, 7ULL, 64ULL, 1000ULL}) {
    expectShares({0, Greatest}, nThreads);
    expectShares({Greatest - 5, Greatest}, nThreads);
    expectShares({1, Greatest - 1}, nThreads);
    expectShares({1ULL << 32, (1ULL << 63) + 12345}, nThreads);
  }
}

TEST(ParallelRangeTest, SevenThreadsHaveTheStatedSharesOfTwentyFour) {
  constexpr Range All{10, 34};
  static_assert(shareOf(All, 7, 0).begin == 10 && shareOf(All, 7, 0).end == 14);
  static_assert(shareOf(All, 7, 2).begin == 18 && shareOf(All, 7, 2).end == 22);
  static_assert(shareOf(All, 7, 3).begin == 22 && shareOf(All, 7, 3).end == 25);
  static_assert(shareOf(All, 7, 6).begin == 31 && shareOf(All, 7, 6).end == 34);
  expectShares(All, 7);
}

TEST(ParallelRangeTest, EachNumberIsVisitedOnce) {
  for (const unsigned long long n : {1ULL, 2ULL, 100ULL}) {
    std::vector<int> nVisits(200);
    forEachShare({50, 50 + n}, [&nVisits](unsigned long long begin, unsigned long long end) {
      for (unsigned long long i = begin; i < end; ++i) ++nVisits[i];
    });
    for (unsigned long long i = 0; i < nVisits.size(); ++i) EXPECT_EQ(nVisits[i], i >= 50 && i < 50 + n ? 1 : 0);
  }
}

TEST(ParallelRangeTest, AnEmptyRangeIsNotVisited) {
  const auto fail = [](unsigned long long, unsigned long long) { ADD_FAILURE(); };
  forEachShare({0, 0}, fail);
  forEachShare({7, 7}, fail);
  forEachShare({8, 7}, fail);
  forEachShare({Greatest, 0}, fail);
}

// ------------------------------------------------------------------------------------- results of the library's copies

class ThreadCountTest : public TreskTest::RecordBalanceTest {
 protected:
  /// Checks that `result()` has the same bytes at 1, 2 and 7 threads.
  template <class F>
  static void expectSame(const F& result) {
    OpenMpThreads threads(1);
    const Bytes alone = result();
    for (const int nThreads : {2, 7}) {
      threads.set(nThreads);
      ASSERT_EQ(result(), alone) << nThreads << " threads";
    }
  }
  /// The sizes that the tests go through: below, at and above the number of threads, and larger ones.
  static const std::vector<unsigned long long>& sizes() {
    static const std::vector<unsigned long long> all{0, 1, 2, 3, 6, 7, 8, 13, 100, 1023, 20011};
    return all;
  }
  static const ChunkKind& kind(std::size_t i) { return gatherKinds()[i % gatherKinds().size()]; }
};

template <class IndexType>
std::vector<IndexType> shuffled(unsigned long long n, unsigned int seed) {
  std::vector<IndexType> places(n);
  std::iota(places.begin(), places.end(), IndexType(0));
  std::shuffle(places.begin(), places.end(), std::mt19937(seed));
  return places;
}

template <class IndexType>
void expectSameIndirections(const ChunkKind& kind, unsigned long long n, unsigned long long nComponents, int which) {
  const std::vector<IndexType> to = shuffled<IndexType>(n, 1);
  const std::vector<IndexType> from = shuffled<IndexType>(n, 2);
  const ChunkPtr src = makeNoise(kind, n * nComponents, 1);
  Bytes alone;
  OpenMpThreads threads;
  for (const int nThreads : {1, 2, 7}) {
    threads.set(nThreads);
    const ChunkPtr dst = makeNoise(kind, n * nComponents, 2);
    ASSERT_TRUE(CreateIndirection(dst, src, (which & 1) != 0 ? &to : nullptr, (which & 2) != 0 ? &from : nullptr, 0, n,
                                  0, 0, nComponents));
    if (nThreads == 1)
      alone = bytesOf(dst);
    else
      ASSERT_EQ(bytesOf(dst), alone) << kind.name() << ", " << n << " items, " << nThreads << " threads";
  }
}

TEST_F(ThreadCountTest, IndirectionsAreTheSameBitForBitAtOneTwoAndSevenThreads) {
  std::size_t i = 0;
  for (const unsigned long long n : sizes())
    for (const unsigned long long nComponents : {1ULL, 2ULL, 3ULL, 5ULL})
      for (int which = 0; which < 4; ++which) {
        expectSameIndirections<unsigned int>(kind(i++), n, nComponents, which);
        expectSameIndirections<unsigned long long>(kind(i++), n, nComponents, which);
      }
}

TEST_F(ThreadCountTest, ARangeThatBeginsLaterIsSplitTheSame) {
  const std::vector<unsigned int> from = shuffled<unsigned int>(1000, 3);
  for (const unsigned long long begin : {1ULL, 500ULL, 994ULL, 999ULL})
    expectSame([&] {
      const ChunkPtr dst = makeNoise(kind(0), 1000, 2);
      EXPECT_TRUE(CreateIndirection(dst, makeNoise(kind(0), 1000, 1), nullptr, &from, begin, 1000, 0, 0, 1));
      return bytesOf(dst);
    });
}

TEST_F(ThreadCountTest, SamplesAreTheSameBitForBitAtOneTwoAndSevenThreads) {
  std::size_t i = 0;
  for (const unsigned long long n : sizes())
    for (const SampleParameters& parameters :
         {SampleParameters{n, 0, 1, 0, 1}, SampleParameters{n, 1, 1, 2, 2}, SampleParameters{n, 3, 2, 0, 1},
          SampleParameters{n, 0, 7, 5, 7}, SampleParameters{n, 0, 1, 1, 0}, SampleParameters{n, 1, 0, 0, 1}}) {
      while (!kind(i).isSampled()) ++i;
      const ChunkKind& sampled = kind(i++);
      const ChunkPtr src =
          makeNoise(sampled, parameters.sourceOffset + parameters.sourceStride * parameters.count + 1, 1);
      expectSame([&] {
        ChunkPtr dst =
            makeNoise(sampled, parameters.destinationOffset + parameters.destinationStride * parameters.count + 1, 2);
        EXPECT_TRUE(CreateSample(dst, src, parameters)) << sampled.name();
        return bytesOf(dst);
      });
    }
}

TEST_F(ThreadCountTest, AZeroDestinationStrideKeepsTheLastElementOnAnyNumberOfThreads) {
  const unsigned long long n = 50000;
  const ChunkPtr src = makeNoise(kind(0), n, 1);
  for (const int nThreads : {1, 2, 7}) {
    const OpenMpThreads threads(nThreads);
    ChunkPtr dst = makeNoise(kind(0), 1, 2);
    EXPECT_TRUE(CreateSample(dst, src, {n, 0, 0, 0, 1}));
    const Bytes all = bytesOf(src);
    EXPECT_EQ(bytesOf(dst), Bytes(all.end() - static_cast<std::ptrdiff_t>(kind(0).elementSize), all.end()));
  }
}

}  // namespace
