// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// The cost of the operations of a field against its size.

#include "Harness.hpp"
#include "RawField.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <map>
#include <unistd.h>

namespace TreskBench {
namespace {

using namespace Tresk;
using Clock = std::chrono::steady_clock;

/// Nanoseconds for each of `n` operations in `work`: the least of several runs, more of them on small fields, as a
/// thousand operations are over too soon.
template <class Prepare, class Work>
double timePerOperation(std::size_t n, const Prepare& prepare, const Work& work) {
  const int nRuns = n > 1000000 ? 1 : n == 1000000 ? 2 : n >= 100000 ? 5 : 20;
  double least = 0;
  for (int run = 0; run < nRuns; ++run) {
    auto state = prepare();
    const Clock::time_point begin = Clock::now();
    work(state);
    const double ns = std::chrono::duration<double, std::nano>(Clock::now() - begin).count() / static_cast<double>(n);
    if (run == 0 || ns < least) least = ns;
  }
  return least;
}

/// Nanoseconds an operation of the library and of the twin.
struct Pair {
  double value = 0;
  double raw = 0;
};
using Line = std::map<std::size_t, Pair>;  ///< by the number of fragments

/// The slope of the logarithms: 0 if the cost of one operation does not depend on the size.
double exponentOf(const Line& line, double Pair::*side) {
  double x = 0;
  double y = 0;
  double xx = 0;
  double xy = 0;
  const auto n = static_cast<double>(line.size());
  for (const auto& [size, times] : line) {
    const double u = std::log(static_cast<double>(size));
    const double v = std::log(times.*side);
    x += u;
    y += v;
    xx += u * u;
    xy += u * v;
  }
  return line.size() < 2 ? 0 : (n * xy - x * y) / (n * xx - x * x);
}

unsigned long long heapBytes() {
  // Small blocks, and large ones that are mapped by themselves.
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

struct Bytes {
  double table, slots, index, all, creators;
};

/// The bytes of one fragment of a field with reserved tables.
Bytes measureBytes(std::size_t n, const std::vector<std::string>& names) {
  Bytes bytes{};
  const auto each = [n](unsigned long long sum) { return static_cast<double>(sum) / static_cast<double>(n); };
  {
    const unsigned long long before = heapBytes();
    std::unordered_map<std::string, std::uint32_t> index;
    index.max_load_factor(1.0F);
    index.reserve(n);
    for (std::size_t i = 0; i < n; ++i) index.emplace(names[i], static_cast<std::uint32_t>(i));
    bytes.index = each(heapBytes() - before);
  }
  bytes.table = sizeof(std::uint32_t) + sizeof(CreatorPtr);
  bytes.slots = sizeof(FragmentIDPtr);
  const unsigned long long before = heapBytes();
  const std::vector<CreatorPtr> creators = makeCreators(n);
  const unsigned long long withCreators = heapBytes();
  const FieldPtr field(new Field);
  field->reserve_fragments(n);
  field->getFragmentIDCollection()->reserve(n);
  for (std::size_t i = 0; i < n; ++i) field->setCreator(creators[i], field->makeFragmentID(names[i]));
  bytes.creators = each(withCreators - before) - sizeof(CreatorPtr);
  bytes.all = each(heapBytes() - withCreators);
  return bytes;
}

void measure(std::size_t n, std::map<std::string, Line>& lines) {
  const std::vector<std::string>& names = fragmentNames(n);
  const std::vector<std::uint32_t> order = shuffledNumbers(n);
  const std::size_t nLookups = std::min<std::size_t>(n, 1000000);
  const auto both = [&](const std::string& name, double value, double raw) { lines[name][n] = {value, raw}; };

  FieldPtr field;
  RawFieldPtr raw;
  // The end of the field before is no part of what is measured.
  const auto creators = [&] {
    field.reset();
    raw.reset();
    return makeCreators(n);
  };
  const auto none = [] { return 0; };
  const double built = timePerOperation(n, creators, [&](std::vector<CreatorPtr>& made) {
    field = FieldPtr(new Field);
    field->reserve_fragments(n);
    field->getFragmentIDCollection()->reserve(n);
    for (std::size_t i = 0; i < n; ++i) field->setCreator(made[i], field->makeFragmentID(names[i]));
  });
  const auto lookUp = [&](const auto& find) {
    return timePerOperation(nLookups, none, [&](int) {
      for (std::size_t i = 0; i < nLookups; ++i) {
        auto found = find(order[i]);
        benchmark::DoNotOptimize(found);
      }
    });
  };
  const auto walk = [&](const auto& iterate) {
    unsigned long long nLiving = 0;
    const Field::FragmentFunction f = [&nLiving](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
      nLiving += fragment.isValid() && creator.isValid() ? 1U : 0U;
      return true;
    };
    return timePerOperation(n, none, [&](int) { benchmark::DoNotOptimize(iterate(f)); });
  };
  const std::vector<FragmentIDPtr> fragments = field->getFragmentIDs();
  const double byNumber = lookUp([&](std::uint32_t i) { return field->getCreatorByNumericalID(i); });
  const double byName = lookUp([&](std::uint32_t i) { return field->getCreatorByName(names[i]); });
  const double byObject = lookUp([&](std::uint32_t i) { return field->getCreator(fragments[i]); });
  const double walked = walk([&](const Field::FragmentFunction& f) { return field->iterate(f, false, false); });

  field.reset();  // the largest fields have no room beside each other

  const double rawBuilt = timePerOperation(n, creators, [&](std::vector<CreatorPtr>& made) {
    raw = RawFieldPtr(new RawField);
    raw->reserve(n);
    for (std::size_t i = 0; i < n; ++i) raw->bind(made[i], names[i]);
  });
  both("build", built, rawBuilt);
  both("by number", byNumber, lookUp([&](std::uint32_t i) { return raw->at(i); }));
  both("by name", byName, lookUp([&](std::uint32_t i) { return raw->find(names[i]); }));
  both("by object", byObject, lookUp([&](std::uint32_t i) { return raw->find(raw->slots[i]); }));
  both("walk step", walked, walk([&](const Field::FragmentFunction& f) { return raw->walk(f); }));

  // The same creators under every third number.
  FieldPtr sparse(new Field);
  RawFieldPtr rawSparse(new RawField);
  for (std::uint32_t i = 0; i < n; ++i) {
    sparse->setCreatorViaFragmentIndex(3 * i + 1, raw->values[i]);
    rawSparse->bind(raw->values[i], 3 * i + 1);
  }
  both("by number, gaps", lookUp([&](std::uint32_t i) { return sparse->getCreatorByNumericalID(3 * i + 1); }),
       lookUp([&](std::uint32_t i) { return rawSparse->find(3 * i + 1); }));
  sparse.reset();
  rawSparse.reset();
  raw.reset();

  const auto entries = [&] { return shuffledEntries(creators()); };
  const double filled = timePerOperation(n, entries, [&](fragment_copy_t& all) {
    field = FieldPtr(new Field);
    field->setCreatorsViaFragmentIndex(all);
  });
  field.reset();
  const double rawFilled = timePerOperation(n, entries, [&](fragment_copy_t& all) {
    raw = RawFieldPtr(new RawField);
    raw->bindAll(all);
  });
  both("fill shuffled", filled, rawFilled);
}

}  // namespace

void printScale(unsigned long long nGreatest) {
  std::map<std::string, Line> lines;
  std::map<std::size_t, Bytes> bytes;
  std::vector<std::size_t> sizes;
  // One of the largest fields is alive at a time, with its creators and the tables of the measurement.
  const double memory = static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
  double bytesOfOne = 0;
  for (std::size_t n = 1000; n <= nGreatest; n *= 10) {
    const double needed = 1.05 * bytesOfOne * static_cast<double>(n);
    if (needed > memory / 2) {
      std::printf("%zu fragments are left out: they would take %.1f GB, more than half of the memory\n", n,
                  needed / 1e9);
      break;
    }
    fragmentNames(n);
    bytes[n] = measureBytes(n, fragmentNames(n));
    bytesOfOne = bytes[n].all + bytes[n].creators;
    measure(n, lines);
    sizes.push_back(n);
  }
  std::printf("nanoseconds an operation, library / raw twin\n%-16s", "fragments");
  for (const std::size_t n : sizes) std::printf(" %17zu", n);
  std::printf(" %17s\n", "exponent");
  for (const auto& [name, line] : lines) {
    std::printf("%-16s", name.c_str());
    for (const auto& [n, pair] : line) std::printf(" %8.1f /%7.1f", pair.value, pair.raw);
    std::printf(" %8.3f /%7.3f\n", exponentOf(line, &Pair::value), exponentOf(line, &Pair::raw));
  }
  std::printf("\nbytes a fragment\n%-16s %10s %10s %10s %10s %14s %10s\n", "fragments", "table", "slot", "name index",
              "sum", "all of field", "creator");
  for (const auto& [n, b] : bytes)
    std::printf("%-16zu %10.1f %10.1f %10.1f %10.1f %14.1f %10.1f\n", n, b.table, b.slots, b.index,
                b.table + b.slots + b.index, b.all, b.creators);
}

}  // namespace TreskBench
