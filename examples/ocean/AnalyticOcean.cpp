// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "AnalyticOcean.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace Example {

namespace {

constexpr double FreezingPoint = -1.8;   // degC
constexpr double DeepTemperature = 2.0;  // degC

/// An ellipse on the map, in degrees.
struct Continent {
  double longitude;
  double latitude;
  double halfWidth;
  double halfHeight;
};

constexpr Continent Continents[] = {
    {20, 5, 25, 31},     // Africa
    {80, 52, 70, 24},    // Eurasia
    {134, -25, 19, 12},  // Australia
    {260, 52, 36, 24},   // North America
    {300, -18, 17, 34},  // South America
    {318, 73, 17, 10},   // Greenland
};

double radians(double degrees) { return degrees * std::numbers::pi / 180; }

/// How far a place lies outside the nearest continent, relative to its extent; negative on land.
double distanceFromLand(double longitude, double latitude) {
  double nearest = (latitude + 70 + 4 * std::sin(radians(2 * longitude))) / 20;  // Antarctica
  for (const Continent& land : Continents) {
    const double east = std::remainder(longitude - land.longitude, 360.0) / land.halfWidth;
    const double north = (latitude - land.latitude) / land.halfHeight;
    nearest = std::min(nearest, std::hypot(east, north) - 1);
  }
  return nearest;
}

/// Temperature in degC along one latitude, of which each longitude differs by a little.
class Parallel {
 public:
  /// The seasons reach about a hundred metres down, the warmth of the surface a few hundred.
  Parallel(std::size_t month, double depth, double latitude)
      : warmthLeft_(std::exp(-depth / 450)), surface_(29 * std::pow(std::cos(radians(latitude)), 1.5) - 1.5) {
    const double summer = -std::sin(radians(latitude)) * std::cos(radians(30 * static_cast<double>(month) - 30));
    season_ = 4 * summer * std::exp(-depth / 60);
  }

  double temperature(double longitude) const {
    const double warmth = surface_ + std::cos(radians(longitude - 150)) - DeepTemperature;
    return std::max(FreezingPoint, DeepTemperature + warmth * warmthLeft_ + season_);
  }

 private:
  const double warmthLeft_;  ///< share of the surface's warmth that is left at the depth
  const double surface_;     ///< mean temperature at the surface
  double season_ = 0;        ///< what the month adds
};

std::vector<double> evenAxis(double first, double step, std::size_t n) {
  std::vector<double> values(n);
  for (std::size_t i = 0; i < n; ++i) values[i] = first + step * static_cast<double>(i);
  return values;
}

}  // namespace

AnalyticOcean::AnalyticOcean() {
  description_.origin = "embedded analytic ocean, computed on demand";
  description_.quantity = "Temperature";
  description_.unit = "degC";
  description_.missingMark = "NaN";
  description_.longitude = {"degrees_east", evenAxis(20.5, 2, 180)};
  description_.latitude = {"degrees_north", evenAxis(-89.5, 2, 90)};
  description_.depth = {"m", {0, 10, 20, 30, 50, 75, 100, 125, 150, 200, 250, 300, 400, 500, 600, 700, 800, 900, 1000}};
  for (std::size_t month = 0; month < 12; ++month) description_.months.push_back(monthName(month));
  for (const double latitude : description_.latitude.values)
    for (const double longitude : description_.longitude.values)
      floorDepths_.push_back(6000 * distanceFromLand(longitude, latitude));
}

void AnalyticOcean::fill(std::size_t month, std::size_t depth, std::span<double> cells) const {
  const double metres = description_.depth.values[depth];
  std::size_t cell = 0;
  for (const double latitude : description_.latitude.values) {
    const Parallel parallel(month, metres, latitude);
    for (const double longitude : description_.longitude.values) {
      const bool isWater = floorDepths_[cell] > metres;
      cells[cell] = isWater ? parallel.temperature(longitude) : std::numeric_limits<double>::quiet_NaN();
      ++cell;
    }
  }
}

}  // namespace Example
