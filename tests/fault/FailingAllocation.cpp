// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "FailingAllocation.hpp"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

/// Allocations of this thread that still succeed; below 0: all of them.
thread_local long long nLeft = -1;
thread_local bool failsOnce = true;
thread_local bool struck = false;
thread_local std::size_t nLeastBytes = 0;
thread_local long long nLargeMade = 0;
/// This thread is the one that lets those of others fail.
thread_local bool isSpared = false;

/// Allocations of other threads that still succeed; below 0: all of them.
std::atomic<long long> nLeftElsewhere{-1};
std::atomic<bool> struckElsewhere{false};

std::atomic<long long> nAlive{0};

bool failsElsewhereNow() noexcept {
  if (isSpared || nLeftElsewhere.load(std::memory_order_relaxed) < 0) return false;
  if (nLeftElsewhere.fetch_sub(1) != 0) return false;
  struckElsewhere.store(true);
  return true;
}

bool failsNow(std::size_t size) noexcept {
  if (failsElsewhereNow()) return true;
  if (nLeft < 0 || size < nLeastBytes) return false;
  if (nLeft > 0) {
    --nLeft;
    return false;
  }
  struck = true;
  if (failsOnce) nLeft = -1;
  return true;
}

void* counted(void* memory, std::size_t size) noexcept {
  if (memory == nullptr) return nullptr;
  nAlive.fetch_add(1, std::memory_order_relaxed);
  if (size >= TreskTest::LargeBlock) ++nLargeMade;
  return memory;
}

void* allocate(std::size_t size) noexcept {
  return failsNow(size) ? nullptr : counted(std::malloc(std::max<std::size_t>(size, 1)), size);
}

void* allocate(std::size_t size, std::align_val_t alignment) noexcept {
  if (failsNow(size)) return nullptr;
  const auto unit = static_cast<std::size_t>(alignment);
  return counted(std::aligned_alloc(unit, (std::max<std::size_t>(size, 1) + unit - 1) / unit * unit), size);
}

void release(void* memory) noexcept {
  if (memory != nullptr) nAlive.fetch_sub(1, std::memory_order_relaxed);
  std::free(memory);
}

void* orThrow(void* memory) {
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

namespace TreskTest {

FailingAllocation::FailingAllocation(long long n, Kind kind, std::size_t nBytesAtLeast) noexcept {
  nLeft = n;
  failsOnce = kind == Kind::Once;
  struck = false;
  nLeastBytes = nBytesAtLeast;
}
FailingAllocation::~FailingAllocation() { end(); }
bool FailingAllocation::hasStruck() const noexcept { return struck; }
void FailingAllocation::end() noexcept { nLeft = -1; }

FailingElsewhere::FailingElsewhere(long long n) noexcept {
  isSpared = true;
  struckElsewhere.store(false);
  nLeftElsewhere.store(n);
}
FailingElsewhere::~FailingElsewhere() {
  nLeftElsewhere.store(-1);
  isSpared = false;
}
bool FailingElsewhere::hasStruck() const noexcept { return struckElsewhere.load(); }

long long nBlocksAlive() noexcept { return nAlive.load(std::memory_order_relaxed); }
long long nLargeBlocksMade() noexcept { return nLargeMade; }

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
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, std::size_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t, const std::nothrow_t&) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t, const std::nothrow_t&) noexcept { release(memory); }
