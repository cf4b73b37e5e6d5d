// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

namespace Quorvel {

/// An operation on numbers, named by the character code of its sign, for instance `Operator<'+'>`.
/// \tparam Sign character code of the sign; \tparam Variant tells operations of equal sign apart, 0 for the arithmetic
/// ones
///
/// Each has a static `apply(a, b)`. A program adds operations by specialisations with variants of its own.
template <int Sign, int Variant = 0>
struct Operator;

/// The sum.
template <>
struct Operator<'+', 0> {
  template <class A, class B>
  static constexpr auto apply(const A& a, const B& b) {
    return a + b;
  }
};

/// The difference.
template <>
struct Operator<'-', 0> {
  template <class A, class B>
  static constexpr auto apply(const A& a, const B& b) {
    return a - b;
  }
};

/// The product.
template <>
struct Operator<'*', 0> {
  template <class A, class B>
  static constexpr auto apply(const A& a, const B& b) {
    return a * b;
  }
};

/// The quotient.
template <>
struct Operator<'/', 0> {
  template <class A, class B>
  static constexpr auto apply(const A& a, const B& b) {
    return a / b;
  }
};

}  // namespace Quorvel
