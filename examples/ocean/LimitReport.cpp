// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "LimitReport.hpp"

#include "Interrupt.hpp"
#include "Report.hpp"
#include "Statistics.hpp"

#include <tresk/field/MemoryLedger.hpp>

#include <algorithm>
#include <cmath>
#include <memory>
#include <ostream>

namespace Example {

using Ostrel::Cache;
using Ostrel::CacheStatistics;

namespace {

/// What the work found, and what it took.
struct Outcome {
  double sum = 0;  ///< of all that was computed, in one fixed order
  double seconds = 0;
  bool isWithinLimit = true;  ///< at any time, but for what is in flight
  CacheStatistics counts;
};

Outcome work(const OceanField& ocean) {
  Cache& cache = *Cache::MemCache();
  const OceanSource& source = ocean.getSource();
  const std::vector<double>& latitudes = source.getDescription().latitude.values;
  Outcome outcome;
  const auto visit = [&](std::size_t month, std::size_t depth) {
    Interrupt::check();
    const SlabPtr slab = ocean.getSlab(ocean.getField().getFragmentID(ocean.getName(month, depth)));
    const CacheStatistics now = cache.getStatistics();
    outcome.isWithinLimit =
        outcome.isWithinLimit && (now.nHeldBytes <= now.limit || now.nHeldBytes - now.limit <= now.nInFlightBytes);
    return summarise(*slab, latitudes).getWeightedMean();
  };
  const double begin = Progress::seconds();
  for (std::size_t month = 0; month < source.nMonths(); ++month) {
    double mean = 0;
    for (std::size_t depth = 0; depth < source.nDepths(); ++depth) mean += visit(month, depth);
    mean /= static_cast<double>(source.nDepths());
    for (std::size_t depth = 0; depth < source.nDepths(); ++depth) outcome.sum += std::abs(visit(month, depth) - mean);
  }
  for (std::size_t month = 0; month < source.nMonths(); ++month)
    for (std::size_t depth = 0; depth < source.nDepths(); ++depth) outcome.sum += visit(month, depth);
  outcome.seconds = Progress::seconds() - begin;
  outcome.counts = cache.getStatistics();
  return outcome;
}

/// The first table of a text, behind a margin.
std::string firstTable(const std::string& text) {
  std::string out = "  ";
  for (std::size_t i = 0; i < text.size() && text.compare(i, 2, "\n\n") != 0; ++i)
    out += text[i] == '\n' ? std::string("\n  ") : std::string(1, text[i]);
  return out + "\n";
}

}  // namespace

void showLimits(const OceanField& ocean, std::ostream& out, Checks& checks, int chapter,
                const Ostrel::CacheListener& also) {
  Cache& cache = *Cache::MemCache();
  // However the work ends.
  struct Restore {
    const Ostrel::CacheListener& listener;
    ~Restore() {
      Cache::MemCache()->setListener(listener);
      Cache::MemCache()->setLimit(Cache::NoLimit);
      Cache::MemCache()->trim(Cache::NoLimit);
    }
  } const restore{also};
  const unsigned long long full = getFullMemory(ocean.getField());
  out << "\n"
      << chapter << ". The same work under a limit of the cache\n\n"
      << "  For each month twice over its depths, and at last once more over everything. The limit is a share\n"
      << "  of the " << bytes(full) << " of all data.\n\n";
  Table table({"limit\n", "bytes\n", "time\n", "slabs\nread", "hits\n", "let go\n", "most\nheld"}, 1);
  std::vector<Outcome> outcomes;
  unsigned long long most = 0;
  std::string ledger;
  for (const int percent : {100, 20, 5}) {
    cache.trim(Cache::NoLimit);
    const CacheStatistics before = cache.getStatistics();
    const unsigned long long nRead = ocean.nSlabsRead();
    const unsigned long long limit = full / 100 * static_cast<unsigned long long>(percent);
    // The most that was held since the limit was set, as the cache tells by its events.
    const auto mostHeld = std::make_shared<unsigned long long>(0);
    cache.setListener([mostHeld, also](const Ostrel::CacheEvent& event) {
      *mostHeld = std::max(*mostHeld, event.nHeldBytes);
      if (also) also(event);
    });
    cache.setLimit(percent == 100 ? full : limit);
    outcomes.push_back(work(ocean));
    cache.setListener(also);
    const unsigned long long peak = *mostHeld;
    const Outcome& last = outcomes.back();
    if (percent == 20) ledger = Tresk::MemoryLedger::of({{"ocean", ocean.getFieldPtr()}}).toText();
    table.addRow({std::to_string(percent) + " %", bytes(last.counts.limit), duration(last.seconds),
                  std::to_string(ocean.nSlabsRead() - nRead), std::to_string(last.counts.nHits - before.nHits),
                  std::to_string(last.counts.nEvicted - before.nEvicted), bytes(peak)});
    most = std::max(most, percent == 100 ? 0 : peak - limit);
    cache.setLimit(Cache::NoLimit);
  }
  cache.trim(Cache::NoLimit);
  table.print(out);
  out << "\n  The ledger under the limit of 20 %, when the work was done:\n\n" << firstTable(ledger);
  bool isSame = true;
  bool isWithin = true;
  for (const Outcome& outcome : outcomes) {
    isSame = isSame && outcome.sum == outcomes.front().sum;
    isWithin = isWithin && outcome.isWithinLimit;
  }
  checks.add(isSame, "the results are the same under each limit, bit for bit");
  checks.add(isWithin, "never more is held than limit and bytes in flight");
  const SlabPtr slab = ocean.getSlab(ocean.getField().getFragmentID(ocean.getName(0, 0)));
  checks.add(most <= slab->memsize(), "in flight is one slab at most");
  cache.trim(Cache::NoLimit);
}

}  // namespace Example
