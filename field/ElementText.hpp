// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Cell.hpp>
#include <tresk/field/fwd.hpp>
#include <tresk/foundation/PhysicalSpace.hpp>

#include <concepts>
#include <string>

namespace Tresk {

/// \file
/// One element as text, by its type. The text of a class of a further library is found in the namespace of that class.

/// The shortest decimal text that reads back to the same value.
TRESK_EXPORT std::string elementText(double value);
/// The number in decimal.
TRESK_EXPORT std::string elementText(unsigned int value);
/// The name between brackets and quotation marks; an empty name for an empty or dead pointer.
TRESK_EXPORT std::string elementText(const FragmentIDPtr& fragment);

/// Any other whole number in decimal, characters too.
template <std::integral Number>
std::string elementText(Number value) {
  return std::to_string(value);
}

/// Components in braces, joined by commas.
template <class Component, int K>
std::string elementText(const Quorvel::FixedArray<Component, K>& components) {
  std::string text = "{";
  for (int c = 0; c < K; ++c) {
    if (c > 0) text += ',';
    text += elementText(components[c]);
  }
  return text + '}';
}

/// Vertex indices joined by "x".
template <int Dims, int Vertices, class Index>
std::string elementText(const Cell<Dims, Vertices, Index>& cell) {
  std::string text;
  for (int v = 0; v < Vertices; ++v) {
    if (v > 0) text += 'x';
    text += elementText(cell[v]);
  }
  return text;
}

}  // namespace Tresk
