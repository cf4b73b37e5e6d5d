// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreateIndirection.hpp>
#include <tresk/field/CreateSample.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/Shift.hpp>
#include <tresk/foundation/Chunk.hpp>
#include <tresk/foundation/Profiler.hpp>

#include <gtest/gtest.h>

#include "EachAllocation.hpp"

#include <vector>

namespace {

using namespace Tresk;
using TreskTest::EachAllocation;

using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;
using Triple = Quorvel::FixedArray<double, 3>;
const CreatorWeakPtr nobody;

template <class T>
Ostrel::StrongPtr<Ostrel::TypedChunkBase<T>, Ostrel::ChunkBase> makeChunk(const std::vector<T>& elements) {
  Ostrel::StrongPtr<Ostrel::TypedChunkBase<T>, Ostrel::ChunkBase> chunk(new Ostrel::Chunk<T>(elements.size()));
  chunk->vector() = elements;
  return chunk;
}
template <class T>
const std::vector<T>& elementsOf(const MemBasePtr& array) {
  return dynamic_cast<const TypedArray<T>&>(*array).getTypedChunk()->vector();
}

class TransformAllocationTest : public ::testing::Test {
 protected:
  EachAllocation each;
  const std::vector<double> numbers = {10, 11, 12, 13, 14, 15};
  const std::vector<unsigned int> places = {5, 0, 3};
  const MemBasePtr source{new MemArray<1, double>(makeTyped(numbers), MultiIndex<1>(6), nobody)};
  const SampleParameters everySecond{3, 0, 1, 0, 2};

 private:
  static Ostrel::StrongPtr<Ostrel::TypedChunk<double>, Ostrel::ChunkBase> makeTyped(const std::vector<double>& all) {
    return Ostrel::StrongPtr<Ostrel::TypedChunk<double>, Ostrel::ChunkBase>(makeChunk(all));
  }
};

TEST_F(TransformAllocationTest, CopiesBetweenChunksNeedNoMemory) {
  const auto target = makeChunk(std::vector<double>(3));
  const ChunkPtr out = target;
  const ChunkPtr in = source->getChunk();
  const std::vector<unsigned long long> wide = {5, 0, 3};
  each.needsNone("gathering", [&] {
    return CreateIndirection(out, in, nullptr, &places, 0, 3, 0, 0, 1) && target->vector()[0] == 15 &&
           CreateIndirection(out, in, nullptr, &wide, 0, 3, 0, 0, 1) && target->vector()[2] == 13;
  });
  ChunkPtr destination = out;
  each.needsNone("sampling", [&] { return CreateSample(destination, in, everySecond) && target->vector()[2] == 14; });
  const auto triples = makeChunk(std::vector<Triple>(3, Triple(1, 2, 3)));
  const auto sums = makeChunk(std::vector<Triple>(3));
  const ChunkPtr shift = makeChunk(std::vector<Triple>{Triple(1, 1, 1)});
  each.needsNone("shifting", [&] {
    return Shift(ChunkPtr(sums), ChunkPtr(triples), shift) && sums->vector()[2] == Triple(2, 3, 4) &&
           ShiftInPlace(ChunkPtr(sums), shift);
  });
}

TEST_F(TransformAllocationTest, NewArraysAreMadeOrNot) {
  const ChunkPtr indices = makeChunk(places);
  const MemBasePtr indexArray(new MemArray<1, unsigned int>(
      Ostrel::StrongPtr<Ostrel::TypedChunk<unsigned int>, Ostrel::ChunkBase>(indices), MultiIndex<1>(3), nobody));
  const auto isPulled = [](const MemBasePtr& p) { return elementsOf<double>(p) == std::vector<double>{15, 10, 13}; };
  each.makes(
      "gathering", [&] { return pullData(source, indices, DynamicSize{3}, 1); }, isPulled);
  each.makes(
      "gathering by an array", [&] { return pullData(source, indexArray, 1); }, isPulled);
  const MemBasePtr pairs(new MemArray<1, unsigned int>(MultiIndex<1>(2), nobody));
  each.makes(
      "gathering of pairs", [&] { return pullData(source, pairs, 2); },
      [](const MemBasePtr& p) {
        return p->getSize().str() == "2x2" && elementsOf<double>(p) == std::vector<double>{10, 11, 10, 11};
      });
  each.makes(
      "sampling", [&] { return CreateSample(source, 3, everySecond, nobody); },
      [](const MemBasePtr& p) {
        return elementsOf<double>(p) == std::vector<double>{10, 12, 14};
      });
  const MemBasePtr triples(new MemArray<1, Triple>(MultiIndex<1>(2), nobody));
  dynamic_cast<MemArray<1, Triple>&>(*triples).getTypedChunk()->vector().assign(2, Triple(1, 2, 3));
  const ChunkPtr shift = makeChunk(std::vector<Triple>{Triple(1, 1, 1)});
  each.makes(
      "shifting", [&] { return Shift(triples, shift, nobody); },
      [](const MemBasePtr& p) { return elementsOf<Triple>(p)[1] == Triple(2, 3, 4); });
}

TEST_F(TransformAllocationTest, EmptyDestinationsGetAChunkOrStayEmpty) {
  const ChunkPtr in = source->getChunk();
  each.changes(
      "sampling", [] { return ChunkPtr(); }, [&](ChunkPtr& p) { EXPECT_TRUE(CreateSample(p, in, everySecond)); },
      [](const ChunkPtr& p) { return !p; },
      [](const ChunkPtr& p) { return p->size() == 3 && static_cast<const double*>(p->data())[2] == 14; });
}

TEST_F(TransformAllocationTest, ProfiledTransformsTakePlaceOrThrow) {
  class Listener : public Ostrel::Profiler::Listener {
   public:
    void begin(const Ostrel::Profiler::Scope&) override { ++nOpen; }
    void end(const Ostrel::Profiler::Scope&) override { --nOpen; }
    int nOpen = 0;
  } listener;
  Ostrel::Profiler::Listener* const former = Ostrel::Profiler::setListener(&listener);
  const auto target = makeChunk(std::vector<double>(3));
  const ChunkPtr out = target;
  const ChunkPtr in = source->getChunk();
  each.changes(
      "gathering",
      [&] {
        target->vector().assign(3, 0);
        return 0;
      },
      [&](int) { EXPECT_TRUE(CreateIndirection(out, in, nullptr, &places, 0, 3, 0, 0, 1)); },
      [&](int) { return target->vector()[0] == 0 && listener.nOpen == 0; },
      [&](int) { return target->vector()[0] == 15 && listener.nOpen == 0; });
  Ostrel::Profiler::setListener(former);
}

}  // namespace
