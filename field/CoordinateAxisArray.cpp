// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CoordinateAxisArray.hpp>

#include <algorithm>

namespace Tresk {

using LinearAxis = CoordinateAxisArray<double, LinearCoordinateAxisArray>;
using ExplicitAxis = CoordinateAxisArray<double, ExplicitCoordinateAxisArray>;

LinearAxis::CoordinateAxisArray(double origin, double step, unsigned long long count)
    : Ostrel::Chunk<double>(2), count_(count) {
  (*this)[0] = origin;
  (*this)[1] = step;
}
LinearAxis::~CoordinateAxisArray() = default;

// The sources of this library are compiled without contraction of products and sums, so that positions are the same
// doubles on every processor.
double LinearAxis::getPosition(unsigned long long i) const noexcept {
  return static_cast<double>(i) * (*this)[1] + (*this)[0];
}

void LinearAxis::writePositions(double* out) const noexcept {
  const double origin = (*this)[0];
  const double step = (*this)[1];
  for (unsigned long long i = 0; i < count_; ++i) out[i] = static_cast<double>(i) * step + origin;
}

ExplicitAxis::CoordinateAxisArray(const std::vector<double>& positions) : Ostrel::Chunk<double>(positions.size()) {
  std::copy(positions.begin(), positions.end(), begin());
}
ExplicitAxis::~CoordinateAxisArray() = default;

void ExplicitAxis::writePositions(double* out) const noexcept { std::copy(begin(), end(), out); }

CoordinateAxisPtr<LinearCoordinateAxisArray> copyAxis(const LinearAxis& axis) {
  return CoordinateAxisPtr<LinearCoordinateAxisArray>(new LinearAxis(axis[0], axis[1], axis.nPositions()));
}

CoordinateAxisPtr<ExplicitCoordinateAxisArray> copyAxis(const ExplicitAxis& axis) {
  return CoordinateAxisPtr<ExplicitCoordinateAxisArray>(new ExplicitAxis(axis.vector()));
}

}  // namespace Tresk
