// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Harness.hpp"

#include <tresk/field/MemArray.hpp>

#include <vector>

namespace TreskBench {
namespace {

using namespace Tresk;
template <int N, class T>
using ArrayPtr = Ostrel::StrongPtr<MemArray<N, T>, Ostrel::Cacheable>;

constexpr unsigned long long Edge = 64;
constexpr unsigned long long Elements = Edge * Edge * Edge;

const ArrayPtr<3, double>& scalars() {
  static const ArrayPtr<3, double> array = [] {
    ArrayPtr<3, double> made(new MemArray<3, double>({Edge, Edge, Edge}, CreatorWeakPtr()));
    for (unsigned long long e = 0; e < Elements; ++e) made->setElement(e, static_cast<double>(e % 1000));
    return made;
  }();
  return array;
}

const ArrayPtr<1, Quorvel::FixedArray<double, 3>>& vectors() {
  static const ArrayPtr<1, Quorvel::FixedArray<double, 3>> array = [] {
    ArrayPtr<1, Quorvel::FixedArray<double, 3>> made(
        new MemArray<1, Quorvel::FixedArray<double, 3>>(MultiIndex<1>(Elements), CreatorWeakPtr()));
    for (unsigned long long e = 0; e < Elements; ++e) {
      const double x = static_cast<double>(e % 1000);
      made->setElement(e, Quorvel::FixedArray<double, 3>(x, x + 1, x + 2));
    }
    return made;
  }();
  return array;
}

/// A plain array that may show what `MemArray` may: a block behind an offset, one component of each element, or what a
/// source makes when it is asked.
struct RawArray {
  double* data;
  double& (*makeElement)(unsigned long long, unsigned long long, unsigned long long);  ///< asked without `data`
  unsigned long long offset;
  unsigned long long stride;
  unsigned long long extents[3];

  double& at(unsigned long long i, unsigned long long j, unsigned long long k) const {
    if (data == nullptr) [[unlikely]]
      return makeElement(i, j, k);
    return data[((k * extents[1] + j) * extents[0] + i + offset) * stride];
  }
};

const Rows rows([] {
  addRow(
      "walk/sequential", 1.05,
      [](benchmark::State& state) {
        const CreativeIterator<double>& walk = scalars()->getIterator();
        for (auto _ : state) {
          double sum = 0;
          const unsigned long long n = walk.nElements();
          for (unsigned long long e = 0; e < n; ++e) sum += walk.getElement(e);
          benchmark::DoNotOptimize(sum);
        }
      },
      [](benchmark::State& state) {
        const double* const data = static_cast<const double*>(scalars()->getDataPointer());
        for (auto _ : state) {
          double sum = 0;
          for (unsigned long long e = 0; e < Elements; ++e) sum += data[e];
          benchmark::DoNotOptimize(sum);
        }
      });

  addRow(
      "walk/forEachElement", 1.05,
      [](benchmark::State& state) {
        const CreativeIterator<double>& walk = scalars()->getIterator();
        for (auto _ : state) {
          unsigned long long nAbove = 0;
          walk.forEachElement([&nAbove](double x) { nAbove += x > 500.0 ? 1U : 0U; });
          benchmark::DoNotOptimize(nAbove);
        }
      },
      [](benchmark::State& state) {
        const double* const data = static_cast<const double*>(scalars()->getDataPointer());
        for (auto _ : state) {
          unsigned long long nAbove = 0;
          for (unsigned long long e = 0; e < Elements; ++e) nAbove += data[e] > 500.0 ? 1U : 0U;
          benchmark::DoNotOptimize(nAbove);
        }
      });

  addRow(
      "walk/reduceElements", 1.05,
      [](benchmark::State& state) {
        const CreativeIterator<double>& walk = scalars()->getIterator();
        for (auto _ : state) {
          double sum = walk.reduceElements(0.0, [](double a, double b) { return a + b; });
          benchmark::DoNotOptimize(sum);
        }
      },
      [](benchmark::State& state) {
        const double* const data = static_cast<const double*>(scalars()->getDataPointer());
        for (auto _ : state) {
          double part[8] = {};
          for (unsigned long long e = 0; e < Elements; e += 8)
            for (unsigned int p = 0; p < 8; ++p) part[p] += data[e + p];
          double sum = ((part[0] + part[4]) + (part[2] + part[6])) + ((part[1] + part[5]) + (part[3] + part[7]));
          benchmark::DoNotOptimize(sum);
        }
      },
      [](benchmark::State& state) {
        const double* const data = static_cast<const double*>(scalars()->getDataPointer());
        for (auto _ : state) {
          double sum = 0;
          for (unsigned long long e = 0; e < Elements; ++e) sum += data[e];
          benchmark::DoNotOptimize(sum);
        }
      });

  addRow(
      "walk/component", 1.05,
      [](benchmark::State& state) {
        const ArrayPtr<1, double> view(vectors()->getComponent(1, CreatorWeakPtr()));
        const CreativeIterator<double>& walk = view->getIterator();
        for (auto _ : state) {
          double sum = 0;
          const unsigned long long n = walk.nElements();
          for (unsigned long long e = 0; e < n; ++e) sum += walk.getElement(e);
          benchmark::DoNotOptimize(sum);
        }
      },
      [](benchmark::State& state) {
        const double* const data = static_cast<const double*>(vectors()->getDataPointer());
        for (auto _ : state) {
          double sum = 0;
          for (unsigned long long e = 0; e < Elements; ++e) sum += data[e * 3 + 1];
          benchmark::DoNotOptimize(sum);
        }
      });

  addRow(
      "access/i,j,k read", 1.05,
      [](benchmark::State& state) {
        const MemArray<3, double>& a = *scalars();
        for (auto _ : state) {
          double sum = 0;
          for (unsigned long long k = 0; k < Edge; ++k)
            for (unsigned long long j = 0; j < Edge; ++j)
              for (unsigned long long i = 0; i < Edge; ++i) sum += a(i, j, k);
          benchmark::DoNotOptimize(sum);
        }
      },
      [](benchmark::State& state) {
        const double* const data = static_cast<const double*>(scalars()->getDataPointer());
        for (auto _ : state) {
          double sum = 0;
          for (unsigned long long k = 0; k < Edge; ++k)
            for (unsigned long long j = 0; j < Edge; ++j)
              for (unsigned long long i = 0; i < Edge; ++i) sum += data[(k * Edge + j) * Edge + i];
          benchmark::DoNotOptimize(sum);
        }
      });

  addRow(
      "access/i,j,k write", 1.05,
      [](benchmark::State& state) {
        MemArray<3, double>& a = *scalars();
        for (auto _ : state) {
          for (unsigned long long k = 0; k < Edge; ++k)
            for (unsigned long long j = 0; j < Edge; ++j)
              for (unsigned long long i = 0; i < Edge; ++i) a(i, j, k) = static_cast<double>(i ^ j);
          benchmark::ClobberMemory();
        }
      },
      [](benchmark::State& state) {
        RawArray array{static_cast<double*>(scalars()->getDataPointer()), nullptr, 0, 1, {Edge, Edge, Edge}};
        RawArray* const a = &array;
        benchmark::DoNotOptimize(a);
        for (auto _ : state) {
          for (unsigned long long k = 0; k < Edge; ++k)
            for (unsigned long long j = 0; j < Edge; ++j)
              for (unsigned long long i = 0; i < Edge; ++i) a->at(i, j, k) = static_cast<double>(i ^ j);
          benchmark::ClobberMemory();
        }
      },
      [](benchmark::State& state) {
        double* const data = static_cast<double*>(scalars()->getDataPointer());
        for (auto _ : state) {
          for (unsigned long long k = 0; k < Edge; ++k)
            for (unsigned long long j = 0; j < Edge; ++j)
              for (unsigned long long i = 0; i < Edge; ++i)
                data[(k * Edge + j) * Edge + i] = static_cast<double>(i ^ j);
          benchmark::ClobberMemory();
        }
      });
});

}  // namespace
}  // namespace TreskBench
