// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "FragmentLog.hpp"
#include "Gnuplot.hpp"
#include "OceanField.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Example {

/// Extents of all pictures, in pixels.
constexpr unsigned int PictureWidth = 1200;
constexpr unsigned int PictureHeight = 700;

/// The cells of an axis at evenly spaced places, for pictures are drawn from evenly spaced points.
struct ImageAxis {
  double low;                      ///< where the first place begins
  double step;                     ///< length of a place
  std::vector<std::size_t> cells;  ///< the nearest cell of each place, by rising coordinate
  double high() const { return low + step * static_cast<double>(cells.size()); }
};
/// An evenly spaced axis gives a place for each cell. An uneven one gives `nPlaces` between its first and last
/// coordinate.
ImageAxis makeImageAxis(const Axis& axis, std::size_t nPlaces);

/// A boundary between cells with a value and cells without: from a point along one of the axes.
struct CoastLine {
  double x, y, dx, dy;
};
/// The boundaries in an image, x fastest, in its coordinates.
std::vector<CoastLine> findCoasts(const std::vector<double>& image, const ImageAxis& x, const ImageAxis& y);

/// A map of differences in kelvin: a palette with white at 0, land grey.
Gnuplot makeAnomalyPicture(const Slab& anomaly, const OceanDescription& ocean, const std::string& title);

/// A section along a meridian over the true depth: `section` holds latitudes (fastest) by depths.
Gnuplot makeSectionPicture(const std::vector<double>& section, const OceanDescription& ocean, const std::string& title);

/// A stretch of time with a name, in seconds.
struct Stretch {
  double begin;
  double end;
  std::string name;
};

/// What becomes of fragments over time, and the bytes held below on the same axis.
struct FragmentPicture {
  const FragmentLog& log;
  std::size_t upperGroup;                                     ///< the rows of the large panel
  std::vector<std::pair<std::size_t, std::string>> rowNames;  ///< names at rows of it, where a new block begins
  std::string upperName;
  std::size_t lowerGroup;  ///< the rows of the small panel
  std::string lowerName;
  unsigned long long limit;  ///< of the cache, in bytes
  std::vector<Stretch> stretches;
};
Gnuplot makeFragmentPicture(const FragmentPicture& picture, const std::string& title);

/// Width and height of a PNG file by its head; nothing if it is none.
std::optional<std::pair<unsigned int, unsigned int>> readPictureSize(const std::filesystem::path& file);

}  // namespace Example
