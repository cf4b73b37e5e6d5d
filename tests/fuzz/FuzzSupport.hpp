// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

/// \file
/// What the fuzz targets share.

namespace TreskFuzz {

/// Ends the process if something is not as it should be, which the fuzzer takes as a find.
inline void demand(bool isTrue, const char* what) {
  if (isTrue) return;
  std::fprintf(stderr, "wrong: %s\n", what);
  std::abort();
}

/// A number from 0 to `most`.
inline std::size_t upTo(FuzzedDataProvider& data, std::size_t most) {
  return data.ConsumeIntegralInRange<std::size_t>(0, most);
}

/// True once in `n` times.
inline bool onceIn(FuzzedDataProvider& data, std::size_t n) { return upTo(data, n - 1) == 0; }

/// One of the elements of a container, which must not be empty.
template <class Container>
auto& oneOf(FuzzedDataProvider& data, Container& container) {
  return container[upTo(data, container.size() - 1)];
}

/// A small number most of the time, any number otherwise.
inline unsigned long long number(FuzzedDataProvider& data, unsigned long long most) {
  if (!onceIn(data, 8)) return data.ConsumeIntegralInRange<unsigned long long>(0, most);
  return data.ConsumeIntegral<unsigned long long>();
}

}  // namespace TreskFuzz
