// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Diagnostics.hpp>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <iomanip>
#include <iterator>
#include <memory>
#include <new>
#include <sstream>

namespace Ostrel {

namespace {
constinit std::atomic<BreakpointHandler> installedHandler{nullptr};
}

std::string Typename(const std::type_info& type) {
  const char* mangled = type.name();
  if (*mangled == '*') ++mangled;  // the compiler's mark of a type with internal linkage
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> readable(abi::__cxa_demangle(mangled, nullptr, nullptr, &status),
                                                             &std::free);
  if (status == -1) throw std::bad_alloc();
  return status == 0 ? std::string(readable.get()) : std::string(mangled);
}

std::string toByteText(unsigned long long nBytes) {
  static constexpr const char* Units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double value = static_cast<double>(nBytes);
  std::size_t unit = 0;
  while (value >= 1024 && unit + 1 < std::size(Units)) {
    value /= 1024;
    ++unit;
  }
  std::ostringstream text;
  text.exceptions(std::ios::badbit);  // without memory the text would end early
  text << std::fixed << std::setprecision(unit == 0 ? 0 : 1) << value << ' ' << Units[unit];
  return text.str();
}

void breakpoint(const char* message) {
  if (const BreakpointHandler handler = installedHandler.load(std::memory_order_acquire))
    handler(message);
  else
    std::fprintf(stderr, "Ostrel: %s\n", message);
}

BreakpointHandler setBreakpointHandler(BreakpointHandler handler) noexcept {
  return installedHandler.exchange(handler, std::memory_order_acq_rel);
}

}  // namespace Ostrel
