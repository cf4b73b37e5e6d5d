// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

namespace Tresk {

/// A strided walk over a block of memory, in units of some type U.
///
/// | Layout | count | stride | span |
/// |---|---|---|---|
/// | plain array of a whole-element type | elements | 1 | elements |
/// | K doubles an element, components of one element adjacent (interleaved) | elements x K | K | 1 |
/// | K doubles an element, one component after the other (planar) | elements x K | 1 | elements |
/// | one component of an interleaved array, as a scalar array | as the parent | K | 0 |
///
/// A plain value without checks.
struct TRESK_EXPORT HyperslabParameters {
  unsigned long long count = 0;   ///< units of U in the block
  unsigned long long stride = 0;  ///< distance in units from one element to the next
  /// with stride 1: elements in the block; for a compound element: distance in units from one component to the next
  unsigned long long span = 0;
  unsigned long long offset = 0;  ///< first element of the walk, in elements from the start of the block
  unsigned long long tail = 0;    ///< elements at the end of the block that the walk leaves out

  /// Elements in the block; 0 for the walk over nothing, whose stride is 0.
  unsigned long long nBlockElements() const noexcept { return stride == 1 ? span : stride == 0 ? 0 : count / stride; }
  /// Elements from the offset to the end of the block.
  unsigned long long nReachableElements() const noexcept { return nBlockElements() - offset; }
  /// Elements of the walk.
  unsigned long long nElements() const noexcept { return nReachableElements() - tail; }

  /// Shortens the walk to the first `product` elements, for extents of that product. It is never lengthened, and
  /// extents that cover more than the block are not detected.
  void fitTo(unsigned long long product) noexcept {
    const unsigned long long reachable = nReachableElements();
    if (product < reachable - tail) tail = reachable < product ? 0 : reachable - product;
  }
};

}  // namespace Tresk
