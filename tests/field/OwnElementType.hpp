// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <string>

/// \file
/// An element type that the library does not know, brought by this program in the way of a further library.

namespace TreskTest {

/// Red, green, blue and opacity.
class TRESK_EXPORT Colour : public Quorvel::FixedArray<double, 4> {
 public:
  using Quorvel::FixedArray<double, 4>::FixedArray;
  constexpr Colour() noexcept {}  // NOLINT(modernize-use-equals-default)
};

/// The text of an element, found by its namespace.
std::string elementText(const Colour& colour);

}  // namespace TreskTest

/// The row of the type.
template <>
struct Tresk::ElementTraits<TreskTest::Colour> : Tresk::TupleTraits<double, 4> {
  static constexpr int rank = 1;
  static constexpr int grade = 0;
  static constexpr int indexKind = 1;
};

namespace Tresk {
extern template class TRESK_EXPORT TreskType<TreskTest::Colour>;
extern template TRESK_EXPORT TreskTypePtr getTreskType<TreskTest::Colour>();
extern template class TRESK_EXPORT TypedArray<TreskTest::Colour>;
extern template class TRESK_EXPORT ReferencingMemArray<1, TreskTest::Colour>;
extern template class TRESK_EXPORT ReferencingMemArray<2, TreskTest::Colour>;
extern template class TRESK_EXPORT ReferencingMemArray<3, TreskTest::Colour>;
extern template class TRESK_EXPORT ReferencingMemArray<4, TreskTest::Colour>;
extern template class TRESK_EXPORT MemArray<1, TreskTest::Colour>;
extern template class TRESK_EXPORT MemArray<2, TreskTest::Colour>;
extern template class TRESK_EXPORT MemArray<3, TreskTest::Colour>;
extern template class TRESK_EXPORT MemArray<4, TreskTest::Colour>;
extern template class TRESK_EXPORT MemArrayAllocator<TreskTest::Colour>;
}  // namespace Tresk
