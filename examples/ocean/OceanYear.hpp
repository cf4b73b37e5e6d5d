// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "OceanField.hpp"

#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/RegularlyFragmentedField.hpp>

namespace Example {

/// The months of an ocean as fields of their own, and their mean, which is computed when it is asked for.
///
/// Each month is a column of blocks, one for each depth, over a numbering that all months share. Block (0, 0, k) is
/// bound to the creator that the ocean has for that month at depth k, so that nothing is read or held twice.
class OceanYear {
 public:
  using Month = Tresk::RegularlyFragmentedField<3>;
  using MonthPtr = Ostrel::StrongPtr<Month, Tresk::CreatorContainer>;

  explicit OceanYear(const OceanField& ocean);

  const std::vector<MonthPtr>& getMonths() const noexcept { return months_; }
  /// The fragment of a depth in all these fields.
  Tresk::FragmentIDPtr getFragment(std::size_t depth) const;
  /// The mean of all months: a chain of sums over a field that says how many months there are.
  const Tresk::FieldPtr& getMean() const noexcept { return mean_; }
  /// Bytes that the computed fields hold now: the sums on the way, the number of months and the mean.
  unsigned long long getComputedMemory() const;
  /// The number of computed arrays that are held now.
  std::size_t countComputed() const;

 private:
  std::vector<MonthPtr> months_;
  std::vector<Tresk::FieldPtr> computed_;  ///< the sums in order, the number of months, the mean
  Tresk::FieldPtr mean_;
};

/// A production on a thread, and how far it has come.
struct LongProduction {
  Ostrel::StrongPtr<Tresk::AsynchronCreator, Ostrel::Creature> creator;
  std::shared_ptr<std::atomic<std::size_t>> nDone;  ///< slabs read so far
};

/// The mean by area of each depth of a month, from the source, as an array of as many numbers. Nothing runs before it is
/// requested.
LongProduction makeDepthMeans(std::shared_ptr<const OceanSource> source, std::size_t month);

}  // namespace Example
