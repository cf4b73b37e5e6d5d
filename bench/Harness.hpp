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
/// operation forces (the same lock, the same atomic operations and pointer copies, allocations of the same sizes, the
/// same hash and owner sets) and nothing else.
/// \param name unique, like "pointer/copy"
/// \param target greatest ratio of the medians that is accepted; 0 for a row without one
/// \param bare the same work without what the contract forces, so that its price can be seen; may be empty
void addRow(const std::string& name, double target, const Side& value, const Side& raw, const Side& bare = nullptr);

/// Registers rows at the start of the program: `static const Rows rows([] { addRow(...); });`
struct Rows {
  explicit Rows(void (*add)()) { add(); }
};

/// Prints the cost of each operation on fields of a thousand fragments up to `nGreatest`, its fitted exponent, and the
/// bytes of a fragment.
void printScale(unsigned long long nGreatest);

}  // namespace TreskBench
