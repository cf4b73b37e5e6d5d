// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Chunk.hpp>

#include <map>
#include <vector>

namespace Tresk {

/// Equally spaced positions: an origin and a step.
struct TRESK_EXPORT LinearCoordinateAxisArray {};
/// Positions listed one by one.
struct TRESK_EXPORT ExplicitCoordinateAxisArray {};

/// The positions of one coordinate axis: a chunk of doubles that arrays of points share by reference count.
template <class Real, class Kind>
class CoordinateAxisArray;

/// An axis of equally spaced positions. Its chunk holds origin and step, 16 bytes whatever the length.
template <>
class TRESK_EXPORT CoordinateAxisArray<double, LinearCoordinateAxisArray> : public Ostrel::Chunk<double> {
 public:
  /// \param origin position 0; \param step distance to the next, may be 0 or negative; \param count number of positions
  CoordinateAxisArray(double origin, double step, unsigned long long count);
  ~CoordinateAxisArray() override;

  /// The number of positions, which is not that of the doubles in the chunk.
  unsigned long long nPositions() const noexcept { return count_; }
  /// Position `i`, which is not tested: the product of `i` as a double and the step, then the sum with the origin, each
  /// rounded by itself.
  double getPosition(unsigned long long i) const noexcept;
  /// All positions, written to `out`, which has room for `nPositions()` doubles.
  void writePositions(double* out) const noexcept;

 private:
  unsigned long long count_;
};

/// An axis with a list of positions, which are its chunk.
template <>
class TRESK_EXPORT CoordinateAxisArray<double, ExplicitCoordinateAxisArray> : public Ostrel::Chunk<double> {
 public:
  /// Copies the positions, which may stand in any order.
  explicit CoordinateAxisArray(const std::vector<double>& positions);
  ~CoordinateAxisArray() override;

  /// The number of positions.
  unsigned long long nPositions() const noexcept { return this->std::vector<double>::size(); }
  /// Position `i`, which is not tested.
  double getPosition(unsigned long long i) const noexcept { return (*this)[i]; }
  /// All positions, written to `out`, which has room for `nPositions()` doubles.
  void writePositions(double* out) const noexcept;

  /// For callers that look positions up; empty when made, and not copied with the axis.
  std::map<double, unsigned long long> lookup;
};

/// An axis, held.
template <class Kind>
using CoordinateAxisPtr = Ostrel::StrongPtr<CoordinateAxisArray<double, Kind>, Ostrel::ChunkBase>;

/// A new axis of the same origin, step and length.
TRESK_EXPORT CoordinateAxisPtr<LinearCoordinateAxisArray> copyAxis(
    const CoordinateAxisArray<double, LinearCoordinateAxisArray>& axis);
/// A new axis of the same positions, without their lookup.
TRESK_EXPORT CoordinateAxisPtr<ExplicitCoordinateAxisArray> copyAxis(
    const CoordinateAxisArray<double, ExplicitCoordinateAxisArray>& axis);

}  // namespace Tresk
