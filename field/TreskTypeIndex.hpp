// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Export.hpp>

#include <compare>
#include <string>

namespace Tresk {

/// What identifies an element type in every map: nine fields, compared in the order in which they stand.
///
/// The texts are part of the key, so that two types of equal layout stay apart.
struct TRESK_EXPORT TreskTypeIndex {
  unsigned int multiplicity = 0;  ///< elementary components of one element: 1 for a scalar, 3 for a vector
  unsigned int memSize = 0;       ///< bytes of one whole element
  int rank = 0;                   ///< tensor rank: the number of indices of the element
  int grade = 0;                  ///< grade of the element as a form
  unsigned int elementSize = 0;   ///< bytes of one elementary component
  std::string typeName;           ///< readable name of the element type
  std::string componentTypeName;  ///< readable name of the type of a component
  std::string chartName;          ///< readable name of the chart, "void" if there is none
  int chartDimension = 0;         ///< dimension of the chart, 0 if there is none

  /// Whether all fields are equal.
  friend bool operator==(const TreskTypeIndex& a, const TreskTypeIndex& b) = default;
  /// The order of the first field in which both differ.
  friend std::strong_ordering operator<=>(const TreskTypeIndex& a, const TreskTypeIndex& b) = default;

  /// One line for people, for instance "{double} is voiddouble[1] (rank 0, grade 0) Size=8 [1 x 8]".
  /// Chart and component type stand without a separator, deliberately.
  std::string description() const;
};

}  // namespace Tresk
