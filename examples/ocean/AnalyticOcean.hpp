// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "OceanSource.hpp"

namespace Example {

/// An ocean that needs no file: a smooth temperature on the grid of the atlas, computed on demand. Continents are
/// ellipses, the sea floor falls off from their coasts, and the upper layers follow the seasons.
class AnalyticOcean : public OceanSource {
 public:
  AnalyticOcean();

 protected:
  void fill(std::size_t month, std::size_t depth, std::span<double> cells) const override;

 private:
  std::vector<double> floorDepths_;  ///< depth of the sea floor in metres, longitude fastest; not positive on land
};

}  // namespace Example
