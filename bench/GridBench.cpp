// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Harness.hpp"

#include <tresk/field/UniformCartesianArray.hpp>
#include <tresk/foundation/LargePages.hpp>

#include <cstdlib>
#include <vector>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace TreskBench {
namespace {

using namespace Tresk;
using Point = Quorvel::PhysicalSpace::point;
using ExplicitAxis = CoordinateAxisArray<double, ExplicitCoordinateAxisArray>;

constexpr unsigned long long Edge = 256;

std::vector<double> positions(double origin, double step) {
  std::vector<double> axis(Edge);
  for (unsigned long long i = 0; i < Edge; ++i) axis[i] = static_cast<double>(i) * step + origin;
  return axis;
}

/// Runs `run` once before it is measured, so that the memory that it gets has been in use before.
template <class Run>
void measure(benchmark::State& state, const Run& run) {
  run();
  for (auto _ : state) run();
}

/// The raw twin: the same doubles into fresh memory on large pages by streaming stores.
void writeRaw(benchmark::State& state) {
  const std::vector<double> x = positions(0.0, 0.1);
  const std::vector<double> y = positions(1.0, 0.2);
  const std::vector<double> z = positions(2.0, 0.3);
  const auto run = [&] {
    auto* const out = static_cast<double*>(std::aligned_alloc(64, Edge * Edge * Edge * 24));
    Ostrel::Detail::preferLargePages(out, Edge * Edge * Edge * 24);
    double* p = out;
    for (unsigned long long k = 0; k < Edge; ++k) {
      for (unsigned long long j = 0; j < Edge; ++j) {
#if defined(__SSE2__)
        for (unsigned long long i = 0; i < Edge; i += 2, p += 6) {
          _mm_stream_pd(p, _mm_set_pd(y[j], x[i]));
          _mm_stream_pd(p + 2, _mm_set_pd(x[i + 1], z[k]));
          _mm_stream_pd(p + 4, _mm_set_pd(z[k], y[j]));
        }
#else
        for (unsigned long long i = 0; i < Edge; ++i, p += 3) {
          p[0] = x[i];
          p[1] = y[j];
          p[2] = z[k];
        }
#endif
      }
    }
    benchmark::DoNotOptimize(out);
    benchmark::ClobberMemory();
    std::free(out);
  };
  measure(state, run);
}

/// The raw twin of single points: which axis each dimension runs along, and whether it is there, as in an array.
struct RawGrid {
  unsigned int axisOf[3];
  const double* axes[3];

  template <class Position>
  void compute(const unsigned long long (&index)[3], double (&point)[3], const Position& position) const {
    for (int d = 0; d < 3; ++d) {
      const unsigned int c = axisOf[d];
      if (c < 3 && axes[c] != nullptr) point[c] = position(axes[c], index[d]);
    }
  }
};

/// One point an iteration, `f(i)`, on a line through the grid.
template <class F>
void computePoints(benchmark::State& state, const F& f) {
  unsigned long long i = 0;
  for (auto _ : state) {
    f(i);
    i = (i + 7) % Edge;
  }
}

template <class Grid>
void computePointsOf(benchmark::State& state, const Grid& grid) {
  Point point;
  computePoints(state, [&](unsigned long long i) {
    grid.computeCoordinate(MultiIndex<3>(i, Edge - 1 - i, i), point);
    benchmark::DoNotOptimize(point);
  });
}

template <class Position>
void computeRawPoints(benchmark::State& state, RawGrid grid, const Position& position) {
  double point[3] = {};
  computePoints(state, [&](unsigned long long i) {
    benchmark::DoNotOptimize(grid);
    const unsigned long long index[3] = {i, Edge - 1 - i, i};
    grid.compute(index, point, position);
    benchmark::DoNotOptimize(point);
  });
}

const Rows rows([] {
  addRow(
      "grid/point uniform", 0,
      [](benchmark::State& state) {
        const Ostrel::StrongPtr<UniformCartesianArray, Ostrel::Cacheable> grid(new UniformCartesianArray(
            {Edge, Edge, Edge}, Point(0, 1, 2), Quorvel::PhysicalSpace::vector(0.1, 0.2, 0.3), CreatorWeakPtr()));
        computePointsOf(state, *grid);
      },
      [](benchmark::State& state) {
        const double axes[3][2] = {{0, 0.1}, {1, 0.2}, {2, 0.3}};
        computeRawPoints(state, {{0, 1, 2}, {axes[0], axes[1], axes[2]}}, [](const double* axis, unsigned long long i) {
          return static_cast<double>(i) * axis[1] + axis[0];
        });
      });
  addRow(
      "grid/point rectilinear", 0,
      [](benchmark::State& state) {
        using Grid = DirectProductMemArray<Point, ExplicitCoordinateAxisArray, 3>;
        const Ostrel::StrongPtr<Grid, Ostrel::Cacheable> grid(new Grid(CreatorWeakPtr()));
        for (int c = 0; c < 3; ++c) grid->setAxis(c, Grid::AxisPtr(new ExplicitAxis(positions(c, 0.1 * (c + 1)))));
        computePointsOf(state, *grid);
      },
      [](benchmark::State& state) {
        const std::vector<double> axes[3] = {positions(0, 0.1), positions(1, 0.2), positions(2, 0.3)};
        computeRawPoints(state, {{0, 1, 2}, {axes[0].data(), axes[1].data(), axes[2].data()}},
                         [](const double* axis, unsigned long long i) { return axis[i]; });
      });
  addRow(
      "grid/explicit uniform 256^3", 1.10,
      [](benchmark::State& state) {
        const Ostrel::StrongPtr<UniformCartesianArray, Ostrel::Cacheable> grid(new UniformCartesianArray(
            {Edge, Edge, Edge}, Point(0, 1, 2), Quorvel::PhysicalSpace::vector(0.1, 0.2, 0.3), CreatorWeakPtr()));
        measure(state, [&grid] {
          const MemBasePtr points = grid->makeExplicit(CreatorWeakPtr());
          benchmark::DoNotOptimize(points->getDataPointer());
        });
      },
      writeRaw);
  addRow(
      "grid/explicit rectilinear", 1.10,
      [](benchmark::State& state) {
        using Grid = DirectProductMemArray<Point, ExplicitCoordinateAxisArray, 3>;
        const Ostrel::StrongPtr<Grid, Ostrel::Cacheable> grid(new Grid(CreatorWeakPtr()));
        for (int c = 0; c < 3; ++c) grid->setAxis(c, Grid::AxisPtr(new ExplicitAxis(positions(c, 0.1 * (c + 1)))));
        measure(state, [&grid] {
          const MemBasePtr points = grid->makeExplicit(CreatorWeakPtr());
          benchmark::DoNotOptimize(points->getDataPointer());
        });
      },
      writeRaw);
});

}  // namespace
}  // namespace TreskBench
