// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "OceanYear.hpp"

#include <functional>
#include <iosfwd>
#include <string>

namespace Example {

/// What a report has found to hold, or not.
using Check = std::function<void(bool holds, const std::string& what)>;

/// Shows, chapter by chapter, what can be done with the months of an ocean. Begins and ends with nothing held.
class YearReport {
 public:
  /// \param ocean must outlive the report
  YearReport(const OceanField& ocean, std::shared_ptr<const OceanSource> source, std::ostream& out, Check check);

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
  const Check check_;
  const OceanYear year_;
};

}  // namespace Example
