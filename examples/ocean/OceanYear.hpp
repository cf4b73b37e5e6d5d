// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "OceanField.hpp"

#include <tresk/field/RegularlyFragmentedField.hpp>

namespace Example {

/// The months of an ocean as fields of their own, their mean and what each month differs from it. Mean and differences
/// are computed when they are asked for.
///
/// Each month is a column of blocks, one for each depth, over a numbering that all these fields share. Block (0, 0, k)
/// is bound to the creator that the ocean has for that month at depth k, so that nothing is read or held twice.
class OceanYear {
 public:
  using Month = Tresk::RegularlyFragmentedField<3>;
  using MonthPtr = Ostrel::StrongPtr<Month, Tresk::CreatorContainer>;

  explicit OceanYear(const OceanField& ocean);

  const std::vector<MonthPtr>& getMonths() const noexcept { return months_; }
  /// The fragment of a depth in all these fields.
  Tresk::FragmentIDPtr getFragment(std::size_t depth) const;
  /// The sums on the way to the mean: of the first two months, of the first three, and so on to all of them.
  const std::vector<Tresk::FieldPtr>& getSums() const noexcept { return sums_; }
  /// The mean of all months: the last sum, scaled.
  const Tresk::FieldPtr& getMean() const noexcept { return mean_; }
  /// Each month less the mean.
  const std::vector<Tresk::FieldPtr>& getAnomalies() const noexcept { return anomalies_; }

  /// The mean at a depth, computed link by link if it is not held. One request for the mean would bring it about as
  /// well, but what a running request needs is in flight until its end: all months and all sums at once. Link by link
  /// it is two months and a sum.
  /// \param isKept whether the cache is to leave it alone from now on, if it is computed now
  SlabPtr makeMean(std::size_t depth, bool isKept) const;
  /// Lets the cache forget means again.
  void stopKeeping() const;
  /// The anomaly of a month at a depth, on the same road.
  SlabPtr makeAnomaly(std::size_t month, std::size_t depth, bool isMeanKept) const;

  /// Bytes that the sums and the mean hold now.
  unsigned long long getChainMemory() const;
  /// The number of arrays of the sums and the mean that are held now.
  std::size_t countChain() const;

 private:
  std::vector<MonthPtr> months_;
  std::vector<Tresk::FieldPtr> sums_;
  Tresk::FieldPtr mean_;
  std::vector<Tresk::FieldPtr> anomalies_;
};

}  // namespace Example
