// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "OceanField.hpp"

#include <functional>
#include <limits>

namespace Example {

/// A summary of cells. Cells without a value (NaN) are counted and otherwise left out.
class Statistics {
 public:
  /// \param weight the area that the cell stands for, in any unit
  void add(double value, double weight);
  void add(const Statistics& other);

  unsigned long long nCells() const noexcept { return nCells_; }
  unsigned long long nFinite() const noexcept { return nFinite_; }
  /// Extremes and means are NaN without a finite cell.
  double getMinimum() const noexcept { return nFinite_ > 0 ? minimum_ : NoValue; }
  double getMaximum() const noexcept { return nFinite_ > 0 ? maximum_ : NoValue; }
  /// Each cell counts alike.
  double getMean() const noexcept { return nFinite_ > 0 ? sum_ / static_cast<double>(nFinite_) : NoValue; }
  /// Each cell counts by its weight.
  double getWeightedMean() const noexcept { return nFinite_ > 0 ? weightedSum_ / weight_ : NoValue; }

 private:
  static constexpr double NoValue = std::numeric_limits<double>::quiet_NaN();

  unsigned long long nCells_ = 0;
  unsigned long long nFinite_ = 0;
  double minimum_ = std::numeric_limits<double>::infinity();
  double maximum_ = -std::numeric_limits<double>::infinity();
  double sum_ = 0;
  double weightedSum_ = 0;
  double weight_ = 0;
};

/// The summary of one slab, each cell weighted by the cosine of its latitude (in degrees).
Statistics summarise(const Slab& slab, const std::vector<double>& latitudes);

/// The summary of each depth over all months, by a loop over all fragments. `visit` is called for each fragment after
/// its slab has been summarised, with the slab. Throws `Interrupted` when the user interrupts.
std::vector<Statistics> summariseDepths(const OceanField& ocean,
                                        const std::function<void(const Tresk::FragmentIDPtr&, const Slab&)>& visit);

}  // namespace Example
