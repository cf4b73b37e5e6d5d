// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A field that is a formula: eight blocks of a parabola, computed when somebody asks for them. A cache of its own sees
// to it that no more than two of them are in memory.
#include <tresk/field/Field.hpp>
#include <tresk/field/OnDemandCreator.hpp>
#include <tresk/field/TreskType.hpp>

#include <functional>
#include <iostream>
#include <string>

namespace {

using namespace Tresk;

constexpr int nBlocks = 8;
constexpr int nPoints = 1000;  // in each block

// [computer]
/// Computes x (1 - x) at the points of one block of the unit interval, and counts how often.
struct ParabolaOfBlock {
  int block;
  int* nComputed;

  MemBasePtr operator()(const CreatorWeakPtr& creator) const {
    const Ostrel::RefPtr<MemArray<1, double>> array(new MemArray<1, double>(nPoints, creator));
    for (int i = 0; i < nPoints; ++i) {
      const double x = (block * nPoints + i + 0.5) / (nBlocks * nPoints);
      (*array)(i) = x * (1 - x);
    }
    ++*nComputed;
    return array;
  }
};
// [computer]

/// The sum of all elements, block by block.
// [sum]
double sumOf(const Field& field) {
  double sum = 0;
  field.iterate(
      [&sum](const FragmentIDPtr&, const CreatorPtr& creator) {
        const Ostrel::RefPtr<MemArray<1, double>> block(creator->create(false));
        if (!block) return false;
        sum = block->reduceElements(sum, std::plus<>());
        return true;
      },
      false, false);
  return sum;
}
// [sum]

}  // namespace

int main() {
  int nComputed = 0;
  // [bind]
  const CachePtr cache(new Ostrel::Cache);
  cache->setLimit(2 * nPoints * sizeof(double));
  const FieldPtr field(new Field);
  for (int block = 0; block < nBlocks; ++block) {
    using ParabolaCreator = OnDemandCreator<ParabolaOfBlock, 1, double>;
    const CreatorPtr creator(new ParabolaCreator(ParabolaOfBlock{block, &nComputed}, cache));
    creator->addMetaInfo(DynamicSize{nPoints}, getTreskType<double>());
    field->setCreator(creator, field->makeFragmentID("block " + std::to_string(block)));
  }
  // [bind]

  // [ask]
  unsigned long long held = 0;
  unsigned long long full = 0;
  field->getMemoryUsage(held, full);
  std::cout << field->nFragments() << " blocks of together " << field->getSize()->str() << " points, " << held << " of "
            << full << " bytes held, " << nComputed << " computed\n";
  for (const char* walk : {"first", "second"}) {
    std::cout << walk << " walk: integral " << sumOf(*field) / (nBlocks * nPoints);
    const Ostrel::CacheStatistics statistics = cache->getStatistics();
    std::cout << ", " << nComputed << " computed, " << statistics.nEvicted << " let go, " << statistics.nHeldBytes
              << " bytes held\n";
  }
  if (field->getData(field->getFragmentID("block 7")))
    std::cout << "block 7 was still there: " << nComputed << " computed\n";
  // [ask]
}
