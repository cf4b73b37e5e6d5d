// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <cstddef>

namespace Tresk::Detail {

/// Writes `n` points of 2 or 3 adjacent doubles each, whose component `varying` runs through `positions` while the
/// others stay as in `point`. A `varying` below 0 writes `n` equal points.
void writePointRow2(double* out, const double* point, int varying, const double* positions, std::size_t n) noexcept;
void writePointRow3(double* out, const double* point, int varying, const double* positions, std::size_t n) noexcept;

/// The same past the caches, for blocks that are larger than those.
void streamPointRow2(double* out, const double* point, int varying, const double* positions, std::size_t n) noexcept;
void streamPointRow3(double* out, const double* point, int varying, const double* positions, std::size_t n) noexcept;
/// Makes streamed stores visible before anything that follows.
void finishStreaming() noexcept;

/// Bytes from which on streaming pays: those of the last cache.
std::size_t streamingThreshold() noexcept;

}  // namespace Tresk::Detail
