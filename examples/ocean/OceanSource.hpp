// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace Example {

/// The cells of one dimension.
struct Axis {
  /// How far, in steps, a cell may lie from its place on an evenly spaced axis: sources round to single precision.
  static constexpr double StepTolerance = 1e-4;

  std::string unit;
  std::vector<double> values;  ///< coordinate of each cell, in `unit`

  /// Mean distance of neighbours; 0 with less than two cells.
  double getStep() const;
  /// Whether all cells lie a multiple of the step from the first, within the tolerance.
  bool isEvenlySpaced() const;
};

/// What a source tells about itself.
struct OceanDescription {
  std::string origin;       ///< where the numbers come from
  std::string quantity;     ///< what is measured, for instance "Temperature"
  std::string unit;         ///< unit of the quantity; empty if the source does not say
  std::string missingMark;  ///< how the source marks cells without water
  Axis longitude;
  Axis latitude;
  Axis depth;
  std::vector<std::string> months;  ///< name of each time step
};

/// Monthly values of one quantity in the ocean, on a grid of longitude, latitude and depth. A slab is one month at one
/// depth.
///
/// Threads: `readSlab` may be called on any number of threads at once.
class OceanSource {
 public:
  OceanSource() = default;
  OceanSource(const OceanSource&) = delete;
  OceanSource& operator=(const OceanSource&) = delete;
  virtual ~OceanSource() = default;

  const OceanDescription& getDescription() const noexcept { return description_; }
  std::size_t nMonths() const noexcept { return description_.months.size(); }
  std::size_t nDepths() const noexcept { return description_.depth.values.size(); }
  std::size_t nLatitudes() const noexcept { return description_.latitude.values.size(); }
  std::size_t nLongitudes() const noexcept { return description_.longitude.values.size(); }

  /// Fills `cells`, longitude fastest, with the slab of the given indices. A cell without a value becomes a quiet NaN.
  /// Throws `std::out_of_range` for an index or a number of cells that does not fit.
  void readSlab(std::size_t month, std::size_t depth, std::span<double> cells) const;

 protected:
  /// Reads a slab; the arguments have been tested.
  virtual void fill(std::size_t month, std::size_t depth, std::span<double> cells) const = 0;

  OceanDescription description_;  ///< filled by the constructor of the derived class, constant afterwards
};

/// The English name of a month, 0 for January.
const std::string& monthName(std::size_t month);

}  // namespace Example
