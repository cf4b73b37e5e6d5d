// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Arrays that bring their interpolation along: the reader asks the array, and need not know how it is done.
#include <tresk/field/ArrayInterpolator.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <cmath>
#include <iostream>
#include <string>

namespace {

using namespace Tresk;
using Plane = MemArray<2, double>;

// [interpolators]
/// The value of a plane between its points, which are at whole numbers.
class PlaneInterpolator : public ArrayInterpolator {
 public:
  /// \param x, y a place within the plane
  virtual double at(const Plane& plane, double x, double y) const = 0;
};

/// The value of the nearest point: for classes and flags.
class Nearest : public PlaneInterpolator {
 public:
  double at(const Plane& plane, double x, double y) const override { return plane(std::lround(x), std::lround(y)); }
};

/// Straight along x and along y: for quantities that are smooth.
class Bilinear : public PlaneInterpolator {
 public:
  double at(const Plane& plane, double x, double y) const override {
    // The cell of the place, also for one on the upper border.
    const auto size = plane.getIndexSize();
    const double i = std::fmin(std::floor(x), static_cast<double>(size[0]) - 2);
    const double j = std::fmin(std::floor(y), static_cast<double>(size[1]) - 2);
    const auto alongX = [&](double row) {
      const long a = std::lround(i);
      const long b = std::lround(row);
      return plane(a, b) * (1 - (x - i)) + plane(a + 1, b) * (x - i);
    };
    return alongX(j) * (1 - (y - j)) + alongX(j + 1) * (y - j);
  }
};
// [interpolators]

// [attach]
/// A plane of 3 x 2 points with the values i + 10 j, which is interpolated by an `Interpolator`.
template <class Interpolator>
MemBasePtr makePlane() {
  const Ostrel::RefPtr<Plane> plane(new Plane({3, 2}, CreatorWeakPtr()));
  for (int j = 0; j < 2; ++j)
    for (int i = 0; i < 3; ++i) (*plane)(i, j) = i + 10 * j;
  plane->addInterface(Ostrel::RefPtr<Interpolator>(new Interpolator));
  return plane;
}
// [attach]

// [ask]
/// Prints a value of a fragment between its points.
void print(const Field& field, const std::string& name, double x, double y) {
  const Ostrel::RefPtr<Plane> plane(field.getData(field.getFragmentID(name)));
  const Ostrel::RefPtr<PlaneInterpolator> interpolator(plane->getInterpolator());
  std::cout << name << " at (" << x << ", " << y << "): ";
  if (interpolator)
    std::cout << interpolator->at(*plane, x, y) << "\n";
  else
    std::cout << "nobody knows how\n";
}
// [ask]

}  // namespace

int main() {
  // [bind]
  const FieldPtr field(new Field);
  const auto bind = [&field](const std::string& name, const FunctionalCreator::Function& make) {
    const CreatorPtr creator(new FunctionalCreator(make, false, Ostrel::Cache::MemCache()));
    field->setCreator(creator, field->makeFragmentID(name));
  };
  bind("temperature", makePlane<Bilinear>);
  bind("land use", makePlane<Nearest>);
  bind("unknown", [] { return MemBasePtr(new Plane({3, 2}, CreatorWeakPtr())); });
  // [bind]
  for (const char* time : {"first time", "made again"}) {
    std::cout << time << "\n";
    for (const char* name : {"temperature", "land use", "unknown"}) print(*field, name, 1.25, 0.5);
    Ostrel::Cache::MemCache()->trim(Ostrel::Cache::NoLimit);
  }
  print(*field, "temperature", 2, 1);
}
