// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/PointRows.hpp>

#include <algorithm>
#include <cstdint>
#include <unistd.h>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Tresk::Detail {

namespace {

/// The value of component `C` of point `i` in a row.
template <int C, int Varying>
inline double valueOf(const double* point, const double* positions, std::size_t i) noexcept {
  if constexpr (C == Varying)
    return positions[i];
  else
    return point[C];
}

template <int K, int Varying>
void writeRow(double* out, const double* fixed, const double* positions, std::size_t n) noexcept {
  double point[K];
  for (int c = 0; c < K; ++c) point[c] = fixed[c];
  for (std::size_t i = 0; i < n; ++i) {
    out[i * K] = valueOf<0, Varying>(point, positions, i);
    out[i * K + 1] = valueOf<1, Varying>(point, positions, i);
    if constexpr (K == 3) out[i * K + 2] = valueOf<2, Varying>(point, positions, i);
  }
}

#if defined(__SSE2__)
bool isAligned(const double* address) noexcept { return reinterpret_cast<std::uintptr_t>(address) % 16 == 0; }

template <int Varying>
void streamRow2(double* out, const double* point, const double* positions, std::size_t n) noexcept {
  if (!isAligned(out)) return writeRow<2, Varying>(out, point, positions, n);
  for (std::size_t i = 0; i < n; ++i)
    _mm_stream_pd(out + 2 * i,
                  _mm_set_pd(valueOf<1, Varying>(point, positions, i), valueOf<0, Varying>(point, positions, i)));
}

/// Two points are three aligned pairs of doubles.
template <int Varying>
void streamRow3(double* out, const double* point, const double* positions, std::size_t n) noexcept {
  std::size_t i = 0;
  if (!isAligned(out) && n > 0) {
    writeRow<3, Varying>(out, point, positions, 1);
    i = 1;
  }
  for (; i + 1 < n; i += 2) {
    double* const pair = out + 3 * i;
    _mm_stream_pd(pair, _mm_set_pd(valueOf<1, Varying>(point, positions, i), valueOf<0, Varying>(point, positions, i)));
    _mm_stream_pd(pair + 2,
                  _mm_set_pd(valueOf<0, Varying>(point, positions, i + 1), valueOf<2, Varying>(point, positions, i)));
    _mm_stream_pd(pair + 4, _mm_set_pd(valueOf<2, Varying>(point, positions, i + 1),
                                       valueOf<1, Varying>(point, positions, i + 1)));
  }
  if (i == n) return;
  if constexpr (Varying < 0)
    writeRow<3, Varying>(out + 3 * i, point, nullptr, 1);  // equal points come without positions
  else
    writeRow<3, Varying>(out + 3 * i, point, positions + i, 1);
}
#else
template <int Varying>
void streamRow2(double* out, const double* point, const double* positions, std::size_t n) noexcept {
  writeRow<2, Varying>(out, point, positions, n);
}
template <int Varying>
void streamRow3(double* out, const double* point, const double* positions, std::size_t n) noexcept {
  writeRow<3, Varying>(out, point, positions, n);
}
#endif

}  // namespace

void writePointRow2(double* out, const double* point, int varying, const double* positions, std::size_t n) noexcept {
  switch (varying) {
    case 0:
      return writeRow<2, 0>(out, point, positions, n);
    case 1:
      return writeRow<2, 1>(out, point, positions, n);
    default:
      return writeRow<2, -1>(out, point, positions, n);
  }
}

void writePointRow3(double* out, const double* point, int varying, const double* positions, std::size_t n) noexcept {
  switch (varying) {
    case 0:
      return writeRow<3, 0>(out, point, positions, n);
    case 1:
      return writeRow<3, 1>(out, point, positions, n);
    case 2:
      return writeRow<3, 2>(out, point, positions, n);
    default:
      return writeRow<3, -1>(out, point, positions, n);
  }
}

void streamPointRow2(double* out, const double* point, int varying, const double* positions, std::size_t n) noexcept {
  switch (varying) {
    case 0:
      return streamRow2<0>(out, point, positions, n);
    case 1:
      return streamRow2<1>(out, point, positions, n);
    default:
      return streamRow2<-1>(out, point, positions, n);
  }
}

void streamPointRow3(double* out, const double* point, int varying, const double* positions, std::size_t n) noexcept {
  switch (varying) {
    case 0:
      return streamRow3<0>(out, point, positions, n);
    case 1:
      return streamRow3<1>(out, point, positions, n);
    case 2:
      return streamRow3<2>(out, point, positions, n);
    default:
      return streamRow3<-1>(out, point, positions, n);
  }
}

void finishStreaming() noexcept {
#if defined(__SSE2__)
  _mm_sfence();
#endif
}

std::size_t streamingThreshold() noexcept {
  static const std::size_t threshold = [] {
    constexpr std::size_t Largest = std::size_t{32} << 20;  // what one core can use, where the system tells of all
    const long bytes = sysconf(_SC_LEVEL3_CACHE_SIZE);
    return bytes > 0 ? std::min(static_cast<std::size_t>(bytes), Largest) : Largest;
  }();
  return threshold;
}

}  // namespace Tresk::Detail
