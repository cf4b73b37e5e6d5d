// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

namespace Quorvel {

/// An operation on numbers, named by the character code of its sign, for instance `Operator<'+'>`.
/// \tparam Sign character code of the sign; \tparam Variant tells operations of equal sign apart, 0 for the arithmetic
/// ones
///
/// The four below have a static `apply(a, b)`, others are names alone. A program adds operations by specialisations with
/// variants of its own.
template <int Sign, int Variant = 0>
struct TRESK_OPEN_TEMPLATE Operator {};

/// The sum.
template <>
struct TRESK_EXPORT Operator<'+', 0> {
  /// `a + b`, of the type that the language gives it.
  template <class A, class B>
  static constexpr auto apply(const A& a, const B& b) {
    return a + b;
  }
};

/// The difference.
template <>
struct TRESK_EXPORT Operator<'-', 0> {
  /// `a - b`, of the type that the language gives it.
  template <class A, class B>
  static constexpr auto apply(const A& a, const B& b) {
    return a - b;
  }
};

/// The product.
template <>
struct TRESK_EXPORT Operator<'*', 0> {
  /// `a * b`, of the type that the language gives it.
  template <class A, class B>
  static constexpr auto apply(const A& a, const B& b) {
    return a * b;
  }
};

/// The quotient.
template <>
struct TRESK_EXPORT Operator<'/', 0> {
  /// `a / b`, of the type that the language gives it: integers are cut off, and must not be divided by 0.
  template <class A, class B>
  static constexpr auto apply(const A& a, const B& b) {
    return a / b;
  }
};

}  // namespace Quorvel
