// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "Checks.hpp"
#include "OceanYear.hpp"

#include <iosfwd>
#include <memory>

namespace Example {

/// Shows, chapter by chapter, what can be done with the months of an ocean. Begins and ends with nothing held.
class YearReport {
 public:
  /// \param ocean must outlive the report
  YearReport(const OceanField& ocean, std::shared_ptr<const OceanSource> source, std::ostream& out, Checks& checks);

  /// The mean of the year as a chain of fields that hold nothing until they are asked.
  void showMean(int chapter);
  /// A production on a thread, with other work meanwhile.
  void showProduction(int chapter);
  /// The text, the memory and the ages of fields.
  void showAccounts(int chapter);

 private:
  const OceanField& ocean_;
  const std::shared_ptr<const OceanSource> source_;
  std::ostream& out_;
  Checks& checks_;
  const OceanYear year_;
};

}  // namespace Example
