// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "FailingAllocation.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

/// Allocations of this thread that still succeed; below 0: all of them.
thread_local long long nLeft = -1;
thread_local bool failsOnce = true;
thread_local bool struck = false;

bool failsNow() noexcept {
  if (nLeft < 0) return false;
  if (nLeft > 0) {
    --nLeft;
    return false;
  }
  struck = true;
  if (failsOnce) nLeft = -1;
  return true;
}

void* allocate(std::size_t size) noexcept { return failsNow() ? nullptr : std::malloc(std::max<std::size_t>(size, 1)); }

void* allocate(std::size_t size, std::align_val_t alignment) noexcept {
  if (failsNow()) return nullptr;
  const auto unit = static_cast<std::size_t>(alignment);
  return std::aligned_alloc(unit, (std::max<std::size_t>(size, 1) + unit - 1) / unit * unit);
}

void* orThrow(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

namespace TreskTest {

FailingAllocation::FailingAllocation(long long n, Kind kind) noexcept {
  nLeft = n;
  failsOnce = kind == Kind::Once;
  struck = false;
}
FailingAllocation::~FailingAllocation() { end(); }
bool FailingAllocation::hasStruck() const noexcept { return struck; }
void FailingAllocation::end() noexcept { nLeft = -1; }

}  // namespace TreskTest

void* operator new(std::size_t size) { return orThrow(allocate(size)); }
void* operator new[](std::size_t size) { return orThrow(allocate(size)); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) { return orThrow(allocate(size, alignment)); }
void* operator new[](std::size_t size, std::align_val_t alignment) { return orThrow(allocate(size, alignment)); }
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  return allocate(size, alignment);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept { std::free(memory); }
