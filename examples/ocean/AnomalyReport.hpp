// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "Checks.hpp"
#include "FragmentLog.hpp"
#include "OceanYear.hpp"
#include "Pictures.hpp"
#include "Report.hpp"

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace Example {

/// Shows what each month differs from the mean of the year, computed under a limit of the cache of 20 % of the data, and
/// draws it. Each month is needed twice, for the mean and for the difference, and the cache decides what stays between.
///
/// Each chapter begins and ends with nothing held and no limit, but for the data of the pictures, which `draw` asks for
/// itself.
class AnomalyReport {
 public:
  using MakeProgress = std::function<std::unique_ptr<Progress>(const std::string& work, std::size_t total)>;

  /// \param also is told of the events of the cache, too; may be empty
  AnomalyReport(std::shared_ptr<const OceanSource> source, std::ostream& out, Checks& checks, MakeProgress makeProgress,
                Ostrel::CacheListener also);

  /// All anomalies without a limit, and under it in two orders.
  void show(int chapter);
  /// Writes the three pictures into a folder, which is made if need be. Comes after `show`. Without gnuplot it says so
  /// in one line.
  void draw(int chapter, const std::filesystem::path& folder);

 private:
  /// What one walk over all anomalies took and found.
  struct Walk {
    std::string name;
    double begin = 0;  ///< seconds, by the log
    double end = 0;
    unsigned long long nRead = 0;
    unsigned long long nProductions = 0;
    unsigned long long nEvicted = 0;
    unsigned long long nPeak = 0;
    std::vector<std::uint64_t> checksums;  ///< of the anomalies, depth by depth
  };
  /// What the anomalies of one depth are.
  struct Level {
    double minimum = 0;
    double maximum = 0;
    double minimumInMonth = 0;  ///< in the month that is shown
    double maximumInMonth = 0;
    double sumOfMeans = 0;               ///< of all months; nothing but rounding
    unsigned long long nEveryMonth = 0;  ///< cells with a value in every month
  };

  Walk walk(const std::string& name, bool isMonthByMonth, Progress& progress);
  void addToLevel(std::size_t month, std::size_t depth, const Slab& anomaly);
  void checkByLoop(std::size_t month);
  void checkKnownNumbers();
  void checkWalks(const std::vector<Walk>& walks);
  void printMadeAndForgotten() const;
  std::string monthName() const { return source_->getDescription().months[month_]; }

  const std::shared_ptr<const OceanSource> source_;
  std::ostream& out_;
  Checks& checks_;
  const MakeProgress makeProgress_;
  const Ostrel::CacheListener also_;
  const std::size_t month_;  ///< the one that is shown
  const OceanField ocean_;
  const OceanYear year_;
  const unsigned long long limit_;
  FragmentLog log_;
  std::size_t monthGroup_ = 0;
  std::size_t meanGroup_ = 0;
  std::vector<Level> levels_;
  std::vector<Stretch> stretches_;  ///< of the walks under the limit
};

}  // namespace Example
