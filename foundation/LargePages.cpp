// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/LargePages.hpp>

#if defined(__linux__)
#include <cstdint>
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace Ostrel::Detail {

#if defined(__linux__)
void preferLargePages(const void* block, std::size_t nBytes) noexcept {
  constexpr std::size_t Smallest = std::size_t{4} << 20;
  if (block == nullptr || nBytes < Smallest) return;
  static const std::uintptr_t pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto begin = reinterpret_cast<std::uintptr_t>(block);
  const std::uintptr_t first = (begin + pageSize - 1) / pageSize * pageSize;
  const std::uintptr_t last = (begin + nBytes) / pageSize * pageSize;
  // A refusal changes nothing but the time of the first write.
  static_cast<void>(madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE));
}
#else
void preferLargePages(const void*, std::size_t) noexcept {}
#endif

}  // namespace Ostrel::Detail
