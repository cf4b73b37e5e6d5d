// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <ocean/OceanSource.hpp>

#include <limits>
#include <stdexcept>

namespace TreskTest {

/// Two months, three depths, 4 x 2 cells; cell (i, j) of month m and depth d is 1000 m + 100 d + 10 j + i, and (0, 1) is
/// missing.
class TinyOcean : public Example::OceanSource {
 public:
  TinyOcean() {
    description_.origin = "tiny ocean";
    description_.depth = {"m", {0, 2.5, 10}};
    description_.latitude = {"degrees_north", {0, 60}};
    description_.longitude = {"degrees_east", {0, 90, 180, 270}};
    description_.months = {"March", "May"};
  }

  mutable bool isBroken = false;

 protected:
  void fill(std::size_t month, std::size_t depth, std::span<double> cells) const override {
    if (isBroken) throw std::runtime_error("the ocean is dry");
    for (std::size_t i = 0; i < cells.size(); ++i)
      cells[i] = static_cast<double>(1000 * month + 100 * depth + 10 * (i / 4) + i % 4);
    cells[4] = std::numeric_limits<double>::quiet_NaN();
  }
};

}  // namespace TreskTest
