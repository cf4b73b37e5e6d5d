// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Cell.hpp>
#include <tresk/field/fwd.hpp>
#include <tresk/foundation/PhysicalSpace.hpp>

#include <string>

/// The table of the element types that arrays exist for. All that runs over the types is made from it: records,
/// allocators, the declarations and instantiations of arrays, typed tests and benchmarks. A further type of this
/// library is one row here, its `ElementTraits` below, and a source under `elements/`.
#define TRESK_FOR_EACH_ELEMENT_TYPE(ROW)                                   \
  ROW(double)                                                              \
  ROW(unsigned int)                                                        \
  ROW(Quorvel::FixedArray<double, 2>)                                      \
  ROW(Quorvel::FixedArray<double, 3>)                                      \
  ROW(Quorvel::Vector<double, 3>)                                          \
  ROW(Quorvel::PhysicalSpace::point)                                       \
  ROW(Tresk::SimplexCell<1, unsigned int, Tresk::IJ_CellNamingConvention>) \
  ROW(Tresk::SimplexCell<2, unsigned int, Tresk::IJ_CellNamingConvention>) \
  ROW(Tresk::SimplexCell<3, unsigned int, Tresk::IJ_CellNamingConvention>) \
  ROW(Tresk::RegularCell<2, unsigned int, Tresk::IJ_CellNamingConvention>) \
  ROW(Tresk::RegularCell<3, unsigned int, Tresk::IJ_CellNamingConvention>) \
  ROW(Ostrel::StrongPtr<Tresk::FragmentID, Tresk::FragmentID>)

namespace Tresk {

/// A list of types.
template <class... Types>
struct TypeSequence {};

namespace Detail {
/// The table begins with a comma: a first type is put before it, and left out here.
template <class First, class... Rest>
struct WithoutFirst {
  using Type = TypeSequence<Rest...>;  ///< the other types
};
}  // namespace Detail

#define TRESK_APPEND_TYPE(...) , __VA_ARGS__
/// The element types of the table, in its order.
using ElementTypeSequence = Detail::WithoutFirst<void TRESK_FOR_EACH_ELEMENT_TYPE(TRESK_APPEND_TYPE)>::Type;
#undef TRESK_APPEND_TYPE

/// The constants of an element type: the row of its record. Specialised for each type; a library that brings a type
/// of its own specialises it too, mostly by deriving from one of the classes below. The members are those of
/// `ScalarTraits`.
template <class T>
struct ElementTraits;

/// A type of one component.
template <class T>
struct ScalarTraits {
  using ComponentType = T;                         ///< type of one elementary component
  using ChartType = void;                          ///< chart that the element lies on; `void` without one
  static constexpr unsigned int multiplicity = 1;  ///< components of one element
  static constexpr int rank = 0;                   ///< tensor indices of one element
  static constexpr int grade = 0;                  ///< grade of the element as a form
  static constexpr int indexKind = 0;              ///< variance of the indices: 1 upper, -1 lower, 0 without any
  static constexpr int chartDimension = 0;         ///< coordinates of the chart
  /// The name of a coordinate of the chart, from 0; empty outside the chart.
  static std::string chartComponentName(int) { return std::string(); }
};

/// A type of `Components` components of type `Component`, which are no tensor.
template <class Component, int Components>
struct TupleTraits : ScalarTraits<Component> {
  static constexpr unsigned int multiplicity = Components;  ///< components of one element
};

// The rows themselves, which the reference leaves out: each only gives values to the members above.
/// \cond
template <>
struct ElementTraits<double> : ScalarTraits<double> {};
template <>
struct ElementTraits<unsigned int> : ScalarTraits<unsigned int> {};
template <>
struct ElementTraits<FragmentIDPtr> : ScalarTraits<FragmentIDPtr> {};

template <class T, int N>
struct ElementTraits<Quorvel::FixedArray<T, N>> : TupleTraits<T, N> {};

template <>
struct ElementTraits<Quorvel::Vector<double, 3>> : TupleTraits<double, 3> {
  static constexpr int rank = 1;
  static constexpr int grade = 1;
  static constexpr int indexKind = -1;
};

template <>
struct ElementTraits<Quorvel::PhysicalSpace::point> : TupleTraits<double, 3> {
  using ChartType = Quorvel::Cartesian3D;
  static constexpr int chartDimension = 3;
  static std::string chartComponentName(int i) {
    return i < 0 || i > 2 ? std::string() : std::string(1, static_cast<char>('x' + i));
  }
};

/// \endcond

/// A cell is its own chart.
template <class CellType, int Dims, class Index, class Convention>
struct CellTraits : TupleTraits<Index, CellType::Size> {
  using ChartType = CellType;                  ///< the cell
  static constexpr int chartDimension = Dims;  ///< topological dimension of the cell
  /// The name of direction `i` by the convention of the cell.
  static std::string chartComponentName(int i) { return Convention::chartComponentName(i); }
};

// Rows again.
/// \cond
template <int Dims, class Index, class Convention>
struct ElementTraits<SimplexCell<Dims, Index, Convention>>
    : CellTraits<SimplexCell<Dims, Index, Convention>, Dims, Index, Convention> {};
template <int Dims, class Index, class Convention>
struct ElementTraits<RegularCell<Dims, Index, Convention>>
    : CellTraits<RegularCell<Dims, Index, Convention>, Dims, Index, Convention> {};
/// \endcond

}  // namespace Tresk
