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

const Rows rows([] {
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
