// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace TreskBench {

/// One side of a row: runs under the state's loop.
using Side = std::function<void(benchmark::State&)>;

/// Adds a row: an operation of the library beside a raw twin in the same binary. The twin does what the contract of the
/// operation forces (the same atomic operations, allocations of the same sizes, the same copies) and nothing else.
/// \param name unique, like "pointer/copy"
/// \param target greatest ratio of the medians that is accepted; 0 for a row without one
void addRow(const std::string& name, double target, const Side& value, const Side& raw);

/// Registers rows at the start of the program: `static const Rows rows([] { addRow(...); });`
struct Rows {
  explicit Rows(void (*add)()) { add(); }
};

}  // namespace TreskBench
