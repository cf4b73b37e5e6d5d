// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Vec3Pack.hpp>

#include <cmath>
#include <cstddef>

namespace Quorvel {

namespace {

/// Where a component lies in the packed value.
struct BitField {
  int shift;
  unsigned int greatest;
};
constexpr BitField fields[3] = {{0, 1023U}, {10, 2047U}, {21, 2047U}};

bool isScalable(double lower, double upper) noexcept {
  return std::isfinite(lower) && std::isfinite(upper) && lower < upper && std::isfinite(upper - lower);
}

unsigned int quantise(double value, double lower, double upper, unsigned int greatest) noexcept {
  if (!isScalable(lower, upper) || std::isnan(value) || value <= lower) return 0;
  if (value >= upper) return greatest;
  return static_cast<unsigned int>(std::round((value - lower) / (upper - lower) * static_cast<double>(greatest)));
}

}  // namespace

Vec3Pack_10_11_11::Vec3Pack_10_11_11(const Vectors& vectors, const FixedArray<double, 3>& lower,
                                     const FixedArray<double, 3>& upper)
    : packed_(new Ostrel::Chunk<unsigned int>(vectors ? vectors->size() : 0)) {
  if (!vectors) return;
  const std::vector<FixedArray<double, 3>>& source = vectors->vector();
  std::vector<unsigned int>& target = packed_->vector();
  for (std::size_t i = 0; i < source.size(); ++i) {
    unsigned int packed = 0;
    for (int c = 0; c < 3; ++c)
      packed |= quantise(source[i][c], lower[c], upper[c], fields[c].greatest) << fields[c].shift;
    target[i] = packed;
  }
}

FixedArray<double, 3> Vec3Pack_10_11_11::unpack(unsigned int packed, const FixedArray<double, 3>& lower,
                                                const FixedArray<double, 3>& upper) noexcept {
  FixedArray<double, 3> vector;
  for (int c = 0; c < 3; ++c) {
    const unsigned int stored = packed >> fields[c].shift & fields[c].greatest;
    vector[c] =
        isScalable(lower[c], upper[c])
            ? lower[c] + static_cast<double>(stored) / static_cast<double>(fields[c].greatest) * (upper[c] - lower[c])
            : lower[c];
  }
  return vector;
}

}  // namespace Quorvel
