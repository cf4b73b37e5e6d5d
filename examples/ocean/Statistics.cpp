// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Statistics.hpp"

#include "Interrupt.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace Example {

void Statistics::add(double value, double weight) {
  ++nCells_;
  if (!std::isfinite(value)) return;
  ++nFinite_;
  minimum_ = std::min(minimum_, value);
  maximum_ = std::max(maximum_, value);
  sum_ += value;
  weightedSum_ += weight * value;
  weight_ += weight;
}

void Statistics::add(const Statistics& other) {
  nCells_ += other.nCells_;
  nFinite_ += other.nFinite_;
  minimum_ = std::min(minimum_, other.minimum_);
  maximum_ = std::max(maximum_, other.maximum_);
  sum_ += other.sum_;
  weightedSum_ += other.weightedSum_;
  weight_ += other.weight_;
}

Statistics summarise(const Slab& slab, const std::vector<double>& latitudes) {
  Statistics statistics;
  const Tresk::MultiIndex<2> size = slab.getIndexSize();
  for (std::size_t j = 0; j < size[1]; ++j) {
    const double weight = std::cos(latitudes.at(j) * std::numbers::pi / 180);
    for (std::size_t i = 0; i < size[0]; ++i) statistics.add(slab(i, j), weight);
  }
  return statistics;
}

std::vector<Statistics> summariseDepths(const OceanField& ocean,
                                        const std::function<void(const Tresk::FragmentIDPtr&, const Slab&)>& visit) {
  std::vector<Statistics> depths(ocean.getSource().nDepths());
  const std::vector<double>& latitudes = ocean.getSource().getDescription().latitude.values;
  for (const Tresk::FragmentIDPtr& fragment : ocean.getField().getFragmentIDs()) {
    Interrupt::check();
    const SlabPtr slab = ocean.getSlab(fragment);
    depths[ocean.getDepth(fragment)].add(summarise(*slab, latitudes));
    visit(fragment, *slab);
  }
  return depths;
}

}  // namespace Example
