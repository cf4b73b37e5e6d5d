// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "OceanSource.hpp"

#include <array>
#include <cmath>
#include <stdexcept>

namespace Example {

double Axis::getStep() const {
  return values.size() < 2 ? 0.0 : (values.back() - values.front()) / static_cast<double>(values.size() - 1);
}

bool Axis::isEvenlySpaced() const {
  const double step = getStep();
  for (std::size_t i = 0; i < values.size(); ++i)
    if (std::abs(values.front() + static_cast<double>(i) * step - values[i]) > StepTolerance * std::abs(step))
      return false;
  return true;
}

void OceanSource::readSlab(std::size_t month, std::size_t depth, std::span<double> cells) const {
  const std::size_t nCells = nLongitudes() * nLatitudes();
  if (month >= nMonths() || depth >= nDepths() || cells.size() != nCells)
    throw std::out_of_range(description_.origin + ": asked for month " + std::to_string(month) + ", depth " +
                            std::to_string(depth) + ", " + std::to_string(cells.size()) + " cells; there are " +
                            std::to_string(nMonths()) + " months, " + std::to_string(nDepths()) + " depths, " +
                            std::to_string(nCells) + " cells");
  fill(month, depth, cells);
}

const std::string& monthName(std::size_t month) {
  static const std::array<std::string, 12> names{"January", "February", "March",     "April",   "May",      "June",
                                                 "July",    "August",   "September", "October", "November", "December"};
  return names.at(month);
}

}  // namespace Example
