// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

#pragma once

// What the steps of the tutorial share: the temperature of a bar of 1000 points that was heated at its end, hour by
// hour.

#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <iostream>
#include <string>

using namespace Tresk;

// [array]
constexpr int nPoints = 1000;
using Bar = MemArray<1, double>;

/// The temperature in degrees: `heat` more than 20 at the end of the bar in hour 0, half as much more each hour later.
inline MemBasePtr computeBar(int hour, double heat) {
  const Ostrel::RefPtr<Bar> bar(new Bar(nPoints, CreatorWeakPtr()));
  for (int i = 0; i < nPoints; ++i) (*bar)(i) = 20 + heat * i / nPoints / (1 << hour);
  return bar;
}
// [array]

// [bind]
/// Binds ten hours to a field, and computes none of them.
inline void bindBar(Field& field, double heat) {
  for (int hour = 0; hour < 10; ++hour) {
    const auto compute = [hour, heat] {
      std::cout << "  computing hour " << hour << " after " << heat << " degrees\n";
      return computeBar(hour, heat);
    };
    const CreatorPtr creator(new FunctionalCreator(compute, false, Ostrel::Cache::MemCache()));
    creator->addMetaInfo(DynamicSize{nPoints}, getTreskType<double>());
    field.setCreator(creator, field.makeFragmentID("hour " + std::to_string(hour)));
  }
}
// [bind]
