// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/FixedArray.hpp>

#include <string>

namespace Tresk {

/// How the vertices of a cell are ordered and its directions named. The library moves cells without reading them.
struct TRESK_EXPORT IJ_CellNamingConvention {
  /// The name of direction `i` of a cell: "I", "J", "K" for 0 to 2, else empty.
  static std::string chartComponentName(int i) {
    return i < 0 || i > 2 ? std::string() : std::string(1, static_cast<char>('I' + i));
  }
};

/// A cell of a mesh: the indices of its vertices.
/// \tparam Dims topological dimension; \tparam Vertices number of vertices; \tparam Index type of a vertex index
///
/// Default construction leaves the indices as they are.
template <int Dims, int Vertices, class Index>
class TRESK_OPEN_TEMPLATE Cell : public Quorvel::FixedArray<Index, Vertices> {
 public:
  using Quorvel::FixedArray<Index, Vertices>::FixedArray;
  constexpr Cell() noexcept {}  // NOLINT(modernize-use-equals-default)
};

/// The cell with the fewest vertices of its dimension: line, triangle, tetrahedron.
template <int Dims, class Index, class Convention>
class TRESK_OPEN_TEMPLATE SimplexCell : public Cell<Dims, Dims + 1, Index> {
 public:
  using Cell<Dims, Dims + 1, Index>::Cell;
  constexpr SimplexCell() noexcept {}  // NOLINT(modernize-use-equals-default)
};

/// The tensor-product cell of its dimension: quadrilateral, hexahedron.
template <int Dims, class Index, class Convention>
class TRESK_OPEN_TEMPLATE RegularCell : public Cell<Dims, (1 << Dims), Index> {
 public:
  using Cell<Dims, (1 << Dims), Index>::Cell;
  constexpr RegularCell() noexcept {}  // NOLINT(modernize-use-equals-default)
};

}  // namespace Tresk
