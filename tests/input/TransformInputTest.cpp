// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreateIndirection.hpp>
#include <tresk/field/CreateSample.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/Shift.hpp>

#include <input/BadInput.hpp>
#include <support/FieldDoubles.hpp>
#include <support/RecordBalance.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace {

using Quorvel::FixedArray;
using Tresk::CreateIndirection;
using Tresk::CreateSample;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::MemArray;
using Tresk::MultiIndex;
using Tresk::pullData;
using Tresk::SampleParameters;
using Tresk::Shift;
using Tresk::ShiftInPlace;
using TreskTest::FragmentIDPtr;
using TreskTest::Greatest;
using TreskTest::HalfWidth;
using TreskTest::killed;
using TreskTest::makeArray;
using TreskTest::makeDeadArray;
using TreskTest::MemBasePtr;
using TreskTest::textOf;

using TransformInput = TreskTest::RecordBalanceTest;
using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;
using Indices = std::vector<unsigned int>;
using Triple = FixedArray<double, 3>;

constexpr const char* TooLarge = "cannot create std::vector larger than max_size()";
const CreatorWeakPtr nobody;

template <class T>
ChunkPtr makeChunk(std::initializer_list<T> elements) {
  const Ostrel::StrongPtr<Ostrel::Chunk<T>, Ostrel::ChunkBase> chunk(new Ostrel::Chunk<T>(0, true));
  chunk->vector() = elements;
  return chunk;
}
ChunkPtr makeDeadChunk() { return killed(makeChunk<double>({1, 2})); }
/// Chunks that the transforms do not serve, each of two elements.
std::vector<ChunkPtr> chunksOfOtherTypes() {
  using Seven = FixedArray<float, 7>;
  return {ChunkPtr(new Ostrel::Chunk<Seven>(2)), makeChunk<std::string>({"a", "b"}),
          ChunkPtr(new Ostrel::Chunk<FragmentIDPtr>(2))};
}
template <class T>
std::vector<T> elementsOf(const ChunkPtr& chunk) {
  const Ostrel::StrongPtr<Ostrel::TypedChunkBase<T>, Ostrel::ChunkBase> typed(chunk);
  return typed ? typed->vector() : std::vector<T>();
}

MemBasePtr makeWithoutMemory() { return MemBasePtr(new MemArray<1, double>(ChunkPtr(), MultiIndex<1>(2), nobody)); }
MemBasePtr makeOfFragments() { return MemBasePtr(new MemArray<1, FragmentIDPtr>(MultiIndex<1>(2), nobody)); }
MemBasePtr makeTriples(unsigned long long n) { return MemBasePtr(new MemArray<1, Triple>(MultiIndex<1>(n), nobody)); }
/// Arrays that there is nothing to read from.
std::vector<MemBasePtr> noArrays() { return {MemBasePtr(), makeDeadArray(), makeWithoutMemory()}; }

// --------------------------------------------------------------------------------------------------------- indirection

bool copyAll(const ChunkPtr& dst, const ChunkPtr& src) {
  const Indices* const none = nullptr;
  return CreateIndirection(dst, src, none, none, 0, 2, 0, 0, 1);
}
bool gather(const ChunkPtr& dst, const ChunkPtr& src, const Indices& indices, unsigned long long begin,
            unsigned long long end, int dstOffset = 0, unsigned long long components = 1) {
  return CreateIndirection(dst, src, nullptr, &indices, begin, end, dstOffset, 0, components);
}

TEST_F(TransformInput, IndirectionOfNoChunk) {
  const ChunkPtr chunk = makeChunk<double>({1, 2});
  for (const ChunkPtr& none : {ChunkPtr(), makeDeadChunk()}) {
    EXPECT_FALSE(copyAll(none, chunk));
    EXPECT_FALSE(copyAll(chunk, none));
    EXPECT_FALSE(copyAll(none, none));
  }
}

TEST_F(TransformInput, IndirectionOfOtherTypes) {
  const ChunkPtr chunk = makeChunk<double>({1, 2});
  EXPECT_FALSE(copyAll(chunk, makeChunk<float>({3, 4})));
  EXPECT_FALSE(copyAll(chunk, makeChunk<int>({3, 4})));
  for (const ChunkPtr& other : chunksOfOtherTypes()) {
    EXPECT_FALSE(copyAll(other, other->clone()));
    EXPECT_FALSE(copyAll(chunk, other));
    EXPECT_FALSE(copyAll(other, chunk));
  }
  EXPECT_EQ(elementsOf<double>(chunk), (std::vector<double>{1, 2}));
}

TEST_F(TransformInput, IndirectionOfAnEmptyRange) {
  const ChunkPtr chunk = makeChunk<double>({1, 2});
  const ChunkPtr empty = makeChunk<double>({});
  const Indices none;
  EXPECT_TRUE(gather(empty, empty, none, 0, 0));
  EXPECT_TRUE(gather(chunk, empty, none, 2, 2));
  EXPECT_TRUE(gather(chunk, empty, none, 2, 1));                              // a range that ends before it begins
  EXPECT_TRUE(gather(chunk, makeChunk<double>({3, 4}), {0, 1}, 0, 2, 0, 0));  // items of no elements
  EXPECT_EQ(elementsOf<double>(chunk), (std::vector<double>{1, 2}));

  const Indices* const places = nullptr;
  EXPECT_TRUE(Tresk::CreateIndirection(chunk, makeChunk<double>({3, 4}), places, places, 0, 2, 0, 0, 1));
  EXPECT_EQ(elementsOf<double>(chunk), (std::vector<double>{3, 4}));
}

TEST_F(TransformInput, IndirectionBeyondTheDestination) {
  const ChunkPtr chunk = makeChunk<double>({1, 2});
  const ChunkPtr source = makeChunk<double>({3, 4, 5});
  const Indices indices{0, 1, 2};
  EXPECT_FALSE(gather(chunk, source, indices, 0, 3));
  EXPECT_FALSE(gather(chunk, source, indices, 0, 2, 1));
  EXPECT_FALSE(gather(chunk, source, indices, 3, 3));  // also for an empty range
  EXPECT_FALSE(gather(chunk, source, indices, 0, Greatest));
  EXPECT_EQ(elementsOf<double>(chunk), (std::vector<double>{1, 2}));
}

TEST_F(TransformInput, PullDataByAChunk) {
  const MemBasePtr source = makeArray(3, 7);
  const ChunkPtr indices = makeChunk<unsigned int>({0, 2});
  for (const MemBasePtr& none : noArrays()) EXPECT_FALSE(pullData(none, indices, {2}, 1));
  EXPECT_FALSE(pullData(makeOfFragments(), indices, {2}, 1));
  EXPECT_FALSE(pullData(TreskTest::makeNames({1}, {"a"}), indices, {2}, 1));
  for (const ChunkPtr& none : {ChunkPtr(), makeDeadChunk(), makeChunk<double>({0, 1}), makeChunk<int>({0, 1})})
    EXPECT_FALSE(pullData(source, none, {2}, 1));
  EXPECT_FALSE(pullData(source, indices, {1}, 1));
  EXPECT_FALSE(pullData(source, indices, DynamicSize(), 1));
  EXPECT_FALSE(pullData(source, indices, {2, 1, 1, 1, 1}, 1));
  const DynamicSize vast{HalfWidth, HalfWidth};
  EXPECT_EQ(textOf<std::length_error>([&] { pullData(source, indices, vast, 1); }), TooLarge);
  const MemBasePtr ofNone = pullData(source, makeChunk<unsigned int>({}), {2}, 1);
  EXPECT_EQ(ofNone->getElementString(1), "0");
}

TEST_F(TransformInput, PullDataByAnArray) {
  const MemBasePtr source = makeArray(3, 7);
  const MemBasePtr indices(new MemArray<1, unsigned int>(MultiIndex<1>(2), nobody));
  for (const MemBasePtr& none : noArrays()) {
    EXPECT_FALSE(pullData(source, none, 1));
    EXPECT_FALSE(pullData(none, indices, 1));
  }
  EXPECT_FALSE(pullData(source, makeArray(2), 1));  // indices that are no whole numbers
  EXPECT_FALSE(pullData(source, makeOfFragments(), 1));
  const MemBasePtr ofRank4(new MemArray<4, unsigned int>(MultiIndex<4>(1, 1, 1, 1), nobody));
  EXPECT_FALSE(pullData(source, ofRank4, 3));  // would be of rank 5
  EXPECT_EQ(textOf<std::length_error>([&] { pullData(source, indices, Greatest); }), TooLarge);
  const MemBasePtr noIndices(new MemArray<1, unsigned int>(MultiIndex<1>(0), nobody));
  EXPECT_EQ(pullData(source, noIndices, 1)->nElements(), 0U);
}

// ------------------------------------------------------------------------------------------------------------- sample

constexpr SampleParameters TwoOfTwo{2, 0, 1, 0, 1};

TEST_F(TransformInput, SampleOfChunks) {
  ChunkPtr destination = makeChunk<double>({1, 2});
  for (const ChunkPtr& none : {ChunkPtr(), makeDeadChunk()}) EXPECT_FALSE(CreateSample(destination, none, TwoOfTwo));
  EXPECT_FALSE(CreateSample(destination, makeChunk<float>({3, 4}), TwoOfTwo));
  std::vector<ChunkPtr> unserved = chunksOfOtherTypes();
  unserved.push_back(makeChunk<unsigned long long>({3, 4}));
  for (const ChunkPtr& other : unserved) {
    ChunkPtr same = other->clone();
    ChunkPtr none;
    EXPECT_FALSE(CreateSample(destination, other, TwoOfTwo));
    EXPECT_FALSE(CreateSample(same, other, TwoOfTwo));
    EXPECT_FALSE(CreateSample(none, other, TwoOfTwo));
    EXPECT_FALSE(none);
  }
  EXPECT_EQ(elementsOf<double>(destination), (std::vector<double>{1, 2}));
  for (ChunkPtr none : {ChunkPtr(), makeDeadChunk()}) {
    EXPECT_TRUE(CreateSample(none, destination, TwoOfTwo));
    EXPECT_EQ(elementsOf<double>(none), (std::vector<double>{1, 2}));
  }
}

TEST_F(TransformInput, SampleBeyondAChunk) {
  ChunkPtr destination = makeChunk<double>({1, 2});
  const ChunkPtr source = makeChunk<double>({3, 4});
  for (const SampleParameters& parameters :
       {SampleParameters{3, 0, 1, 0, 1}, SampleParameters{2, 1, 1, 0, 1}, SampleParameters{2, 0, 1, 1, 1},
        SampleParameters{2, 0, 1, 0, 2}, SampleParameters{2, 0, 2, 0, 1}, SampleParameters{1, 0, 1, 2, 0},
        SampleParameters{Greatest, 0, 1, 0, 1}, SampleParameters{2, 0, Greatest / 2 + 1, 0, 1},
        SampleParameters{HalfWidth, 0, HalfWidth, 0, HalfWidth}, SampleParameters{1, Greatest, 1, Greatest, 1}})
    EXPECT_TRUE(CreateSample(destination, source, parameters));
  EXPECT_EQ(elementsOf<double>(destination), (std::vector<double>{1, 2}));
  ChunkPtr none;
  for (const SampleParameters& parameters :
       {SampleParameters{Greatest, 0, 1, 0, 0}, SampleParameters{HalfWidth, 0, HalfWidth, 0, 0}})
    EXPECT_EQ(textOf<std::length_error>([&] { CreateSample(none, source, parameters); }), TooLarge);
  EXPECT_FALSE(none);
}

TEST_F(TransformInput, SampleOfNothing) {
  ChunkPtr destination = makeChunk<double>({1, 2});
  EXPECT_TRUE(CreateSample(destination, makeChunk<double>({}), {0, 0, 1, 0, 1}));
  EXPECT_EQ(elementsOf<double>(destination), (std::vector<double>{1, 2}));
  ChunkPtr none;
  EXPECT_TRUE(CreateSample(none, destination, {0, 3, 1, 0, 1}));
  EXPECT_EQ(none->size(), 3U);
}

TEST_F(TransformInput, SampleOfArrays) {
  const MemBasePtr array = makeArray(2, 7);
  for (const MemBasePtr& none : noArrays()) {
    EXPECT_FALSE(CreateSample(none, array, TwoOfTwo));
    EXPECT_FALSE(CreateSample(array, none, TwoOfTwo));
  }
  EXPECT_FALSE(CreateSample(array, makeOfFragments(), TwoOfTwo));
  EXPECT_FALSE(CreateSample(makeOfFragments(), array, TwoOfTwo));
}

TEST_F(TransformInput, SampleAsNewArray) {
  const MemBasePtr array = makeArray(2, 7);
  for (const MemBasePtr& none : noArrays()) EXPECT_FALSE(CreateSample(none, 2, TwoOfTwo, nobody));
  EXPECT_FALSE(CreateSample(makeOfFragments(), 2, TwoOfTwo, nobody));
  EXPECT_FALSE(CreateSample(TreskTest::makeNames({1}, {"a"}), 1, TwoOfTwo, nobody));
  EXPECT_EQ(textOf<std::length_error>([&array] { CreateSample(array, Greatest, TwoOfTwo, nobody); }), TooLarge);
  EXPECT_EQ(CreateSample(array, 0, TwoOfTwo, nobody)->nElements(), 0U);
  EXPECT_EQ(CreateSample(array, 1, TwoOfTwo, nobody)->getElementString(0), "0");
  EXPECT_EQ(CreateSample(array, 3, {3, 0, 1, 0, 1}, nobody)->getElementString(0), "0");
}

// -------------------------------------------------------------------------------------------------------------- shift

/// Chunks that are no shift of triples.
std::vector<ChunkPtr> badShifts() {
  return {ChunkPtr(),
          makeDeadChunk(),
          makeChunk<double>({1}),
          makeChunk<Triple>({}),
          makeChunk<Triple>({Triple(1.0, 1.0, 1.0), Triple(1.0, 1.0, 1.0)}),
          makeChunk<FixedArray<double, 2>>({FixedArray<double, 2>(1.0, 1.0)}),
          makeChunk<Quorvel::PhysicalSpace::point>({Quorvel::PhysicalSpace::point(1, 1, 1)})};
}
/// Chunks that are no triples.
std::vector<ChunkPtr> badVectors() {
  std::vector<ChunkPtr> bad = chunksOfOtherTypes();
  bad.insert(bad.end(), {ChunkPtr(), makeDeadChunk(), makeChunk<double>({1, 2}),
                         ChunkPtr(new Ostrel::Chunk<FixedArray<double, 2>>(2)),
                         ChunkPtr(new Ostrel::Chunk<Quorvel::PhysicalSpace::point>(2))});
  return bad;
}
ChunkPtr makeVectors() { return makeChunk<Triple>({Triple(1.0, 2.0, 3.0), Triple(4.0, 5.0, 6.0)}); }
ChunkPtr makeShift() { return makeChunk<Triple>({Triple(1.0, 1.0, 1.0)}); }

TEST_F(TransformInput, ShiftOfChunks) {
  const ChunkPtr vectors = makeVectors();
  for (const ChunkPtr& bad : badShifts()) EXPECT_FALSE(Shift(vectors, vectors, bad));
  for (const ChunkPtr& bad : badVectors()) {
    EXPECT_FALSE(Shift(vectors, bad, makeShift()));
    EXPECT_FALSE(Shift(bad, vectors, makeShift()));
  }
  const ChunkPtr ofFloats(new Ostrel::Chunk<FixedArray<float, 3>>(2));
  EXPECT_FALSE(Shift(ofFloats, vectors, makeShift()));
  EXPECT_TRUE(Shift(vectors, makeChunk<Triple>({}), makeShift()));
  EXPECT_EQ(elementsOf<Triple>(vectors), elementsOf<Triple>(makeVectors()));
}

TEST_F(TransformInput, ShiftInPlace) {
  const ChunkPtr vectors = makeVectors();
  for (const ChunkPtr& bad : badShifts()) EXPECT_FALSE(ShiftInPlace(vectors, bad));
  for (const ChunkPtr& bad : badVectors()) EXPECT_FALSE(ShiftInPlace(bad, makeShift()));
  EXPECT_TRUE(ShiftInPlace(makeChunk<Triple>({}), makeShift()));
  EXPECT_EQ(elementsOf<Triple>(vectors), elementsOf<Triple>(makeVectors()));
}

TEST_F(TransformInput, ShiftOfArrays) {
  const MemBasePtr triples = makeTriples(2);
  for (const MemBasePtr& none : noArrays()) {
    EXPECT_FALSE(Shift(triples, none, makeShift()));
    EXPECT_FALSE(Shift(none, triples, makeShift()));
  }
  for (const ChunkPtr& bad : badShifts()) EXPECT_FALSE(Shift(triples, triples, bad));
  EXPECT_FALSE(Shift(makeArray(2), triples, makeShift()));
}

TEST_F(TransformInput, ShiftAsNewArray) {
  for (const MemBasePtr& none : noArrays()) EXPECT_FALSE(Shift(none, makeShift(), nobody));
  for (const ChunkPtr& bad : badShifts()) EXPECT_FALSE(Shift(makeTriples(2), bad, nobody));
  EXPECT_FALSE(Shift(makeArray(2), makeShift(), nobody));
  EXPECT_FALSE(Shift(TreskTest::makeNames({1}, {"a"}), makeShift(), nobody));
  const ChunkPtr ofFloats = makeChunk<FixedArray<float, 3>>({FixedArray<float, 3>(1.0F, 1.0F, 1.0F)});
  EXPECT_FALSE(Shift(makeTriples(2), ofFloats, nobody));
  EXPECT_EQ(Shift(makeTriples(0), makeShift(), nobody)->nElements(), 0U);
  const MemBasePtr part(new MemArray<1, Triple>(makeVectors(), MultiIndex<1>(1), nobody));
  EXPECT_FALSE(Shift(part, makeShift(), nobody));
}

}  // namespace
