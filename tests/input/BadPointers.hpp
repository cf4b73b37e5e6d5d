// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Pointers.hpp>

#include <gtest/gtest.h>

#include <string>

/// \file
/// Input that is not as it should be, for the tests of what operations answer to it.

namespace TreskTest {

/// The greatest number, and one whose square is 2^64.
inline constexpr unsigned long long Greatest = ~0ULL;
inline constexpr unsigned long long HalfWidth = 1ULL << 32U;

/// A pointer with a record whose object has died: `pointer` was its only holder.
template <class T, class B>
Ostrel::StrongPtr<T, B> killed(Ostrel::StrongPtr<T, B> pointer) {
  const Ostrel::WeakPtr<T, B> observer(pointer);
  pointer.reset();
  EXPECT_FALSE(observer.isValid());
  return Ostrel::StrongPtr<T, B>(observer);
}

/// The text of the exception of class `Error` that `f` throws.
template <class Error, class F>
std::string textOf(const F& f) {
  try {
    f();
  } catch (const Error& error) {
    return error.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return std::string();
}

}  // namespace TreskTest
