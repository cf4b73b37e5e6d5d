// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CoordinateAxisArray.hpp>
#include <tresk/field/MemArray.hpp>

#include <array>
#include <cstdint>

namespace Tresk {

/// The part of a direct-product array that does not know its element type.
///
/// A point of a rectilinear grid is the direct product of one coordinate axis per dimension. Such an array holds the
/// axes alone and computes each point when it is asked for: where an array with storage gives a chunk or a data pointer
/// it gives null, and it cannot be cut. A caller who needs the points in memory calls `makeExplicit`.
/// \tparam V tuple of coordinates, `FixedArray<double, N>`; \tparam Kind kind of the axes; \tparam N rank
///
/// Lifetime: the axes are set before the array is shared, and stay.
/// Threads: may be read from any thread then.
/// Errors: none in words. A dimension whose component has no axis leaves that component as it was.
/// Cost: one point, one position of each axis; nothing is kept of it.
template <class V, class Kind, int N>
class TRESK_OPEN_TEMPLATE DirectProductMemArrayBase : public MemArrayBase<N> {
 public:
  /// An axis, which several arrays may share.
  using AxisPtr = CoordinateAxisPtr<Kind>;
  /// A chunk of any element type.
  using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;

  /// The axis of coordinate component `c`, which is not tested; may be empty.
  const AxisPtr& getAxis(int c) const noexcept { return axes_[static_cast<std::size_t>(c)]; }
  /// Gives coordinate component `c`, which is not tested, its axis; the array shares it.
  void setAxis(int c, const AxisPtr& axis) { axes_[static_cast<std::size_t>(c)] = axis; }
  /// The coordinate component that dimension `d` runs along. A number above N - 1: the dimension has no axis.
  unsigned int getAxisMap(int d) const noexcept { return axisMap_[static_cast<std::size_t>(d)]; }
  /// Lets dimension `d`, which is not tested, run along coordinate component `c`; above N - 1 it gets no axis.
  void setAxisMap(int d, unsigned int c) noexcept { axisMap_[static_cast<std::size_t>(d)] = c; }

  /// Writes the coordinates of the point at `index` to `point`, as far as dimensions have axes. Nothing is tested.
  void computeCoordinate(const MultiIndex<N>& index, V& point) const noexcept;

  using MemArrayBase<N>::createSubArray;

  /// The positions of the axis along each dimension: 1 for a dimension that runs along no component, 0 for a component
  /// whose axis is missing.
  MultiIndex<N> getIndexSize() const override;
  /// Offers the array to the save registry of this class.
  void DeferredConstructor() override;
  /// 0: the axes do not count.
  unsigned long long memsize() const override;
  /// The number of points.
  unsigned long long nElements() const override;
  /// One shared walk over nothing.
  const HyperslabParameters& getHyperslab() const override;
  /// Null: there is no storage.
  void* getDataPointer() const override;
  /// Null: only a `LinearDirectProductMemArray` has an origin.
  const double* getOrigin() const override;
  /// Null: only a `LinearDirectProductMemArray` has a step.
  const double* getDelta() const override;
  /// Null: axes do not follow from a size.
  MemBasePtr createArray(const MultiIndex<N>& size, const CreatorWeakPtr& creator) const override;
  /// Null: a computing array is not cut.
  MemBasePtr createSubArray(const MultiIndex<N>& start, const MultiIndex<N>& size,
                            const CreatorWeakPtr& creator) const override;
  /// Null, as the other form.
  MemBasePtr createSubArray(const DynamicSize& start, const DynamicSize& size,
                            const CreatorWeakPtr& creator) const override;
  /// Null: a computing array is not cut.
  virtual MemBasePtr getSlice(unsigned long long index, const CreatorWeakPtr& creator) const;
  /// Null: there is no storage to share.
  MemBasePtr getComponent(int component, const CreatorWeakPtr& creator) const override;
  /// False: there is no storage.
  bool copyFromChunk(const ChunkPtr& chunk) override;

 protected:
  /// No axes, and dimension d along component d.
  DirectProductMemArrayBase();
  /// Axes of its own of equal content, and the same axis map.
  DirectProductMemArrayBase(const DirectProductMemArrayBase& other);

  /// The point at `index`, components without an axis being zero.
  V makeCoordinate(const MultiIndex<N>& index) const noexcept;
  /// Writes all points, dimension 0 fastest, as N adjacent doubles each, for which `out` has room. Coordinates are
  /// computed once per axis and kept for the call.
  void writeCoordinates(double* out) const;

 private:
  std::array<AxisPtr, N> axes_;
  std::array<std::uint32_t, N> axisMap_;
};

/// The points of a rectilinear grid as elements of type `T`.
template <class T, class Kind, int N>
class TRESK_OPEN_TEMPLATE DirectProductMemArray
    : public DirectProductMemArrayBase<Quorvel::FixedArray<double, N>, Kind, N>,
      public TypedArray<T> {
 public:
  /// The part that does not know `T`.
  using Base = DirectProductMemArrayBase<Quorvel::FixedArray<double, N>, Kind, N>;
  using typename Base::ChunkPtr;

  /// An array without axes, which `setAxis` gives it.
  explicit DirectProductMemArray(const CreatorWeakPtr& creator);
  /// The same points, on axes of its own.
  DirectProductMemArray(const DirectProductMemArray& other, const CreatorWeakPtr& creator);

  /// The point at index (0, ..., 0); components without an axis are zero.
  T first() const override;
  /// The point at the greatest indices, an extent of 0 counting as index 0; components without an axis are zero.
  T last() const override;
  /// One shared walk over nothing, which must not be read or written.
  const CreativeIterator<T>& getIterator() const override;
  /// A second shared walk over nothing, on the same terms.
  CreativeIterator<T>& getIterator() override;
  /// Empty: there is no storage.
  Ostrel::StrongPtr<Ostrel::TypedChunk<T>, Ostrel::ChunkBase> getTypedChunk() const override;
  /// `T`.
  const std::type_info& getElementType() const override;
  /// The point at linear position `index`, modulo the number of points; empty for an array with an extent of 0.
  std::string getElementString(unsigned long long index) const override;
  /// A new `MemArray<N, T>` of all points, which are computed on this thread. Errors: `std::length_error` for more
  /// points than a vector holds, and `std::bad_alloc`.
  MemBasePtr makeExplicit(const CreatorWeakPtr& creator) const override;
  /// A `MemArray<N, T>` of the same extents that shares `chunk`; null if that is empty or has another number of
  /// elements.
  MemBasePtr createOnChunk(const ChunkPtr& chunk, const CreatorWeakPtr& creator) const override;
  /// A computing array of the same points, on axes of its own.
  MemBasePtr copy(const CreatorWeakPtr& creator) const override;
};

/// The points of a grid that is equally spaced along each axis, with its origin and step at hand.
/// \tparam Delta type of the step along each axis
template <class T, class Delta, int N>
class TRESK_OPEN_TEMPLATE LinearDirectProductMemArray : public DirectProductMemArray<T, LinearCoordinateAxisArray, N> {
 public:
  /// Makes its axes. \param size points along each axis; \param origin the point at index 0; \param delta step along
  /// each axis; \param creator the creator that the array is made for, may be empty
  LinearDirectProductMemArray(const MultiIndex<N>& size, const T& origin, const Delta& delta,
                              const CreatorWeakPtr& creator);
  /// The same points. Origin and step of the copy are deliberately left unset: they must not be read; all computing
  /// goes through the axes.
  LinearDirectProductMemArray(const LinearDirectProductMemArray& other, const CreatorWeakPtr& creator);

  /// The `N` coordinates of the point at index 0, as given at construction.
  const double* getOrigin() const override;
  /// The `N` steps, as given at construction.
  const double* getDelta() const override;

 private:
  T origin_;
  Delta delta_;
};

// The combinations that exist, and no others.
extern template class DirectProductMemArrayBase<Quorvel::FixedArray<double, 2>, ExplicitCoordinateAxisArray, 2>;
extern template class DirectProductMemArrayBase<Quorvel::FixedArray<double, 2>, LinearCoordinateAxisArray, 2>;
extern template class DirectProductMemArrayBase<Quorvel::FixedArray<double, 3>, ExplicitCoordinateAxisArray, 3>;
extern template class DirectProductMemArrayBase<Quorvel::FixedArray<double, 3>, LinearCoordinateAxisArray, 3>;
extern template class DirectProductMemArray<Quorvel::FixedArray<double, 2>, ExplicitCoordinateAxisArray, 2>;
extern template class DirectProductMemArray<Quorvel::FixedArray<double, 2>, LinearCoordinateAxisArray, 2>;
extern template class DirectProductMemArray<Quorvel::FixedArray<double, 3>, ExplicitCoordinateAxisArray, 3>;
extern template class DirectProductMemArray<Quorvel::FixedArray<double, 3>, LinearCoordinateAxisArray, 3>;
extern template class DirectProductMemArray<Quorvel::PhysicalSpace::point, ExplicitCoordinateAxisArray, 3>;
extern template class DirectProductMemArray<Quorvel::PhysicalSpace::point, LinearCoordinateAxisArray, 3>;
extern template class DirectProductMemArray<Quorvel::Vector<double, 3>, LinearCoordinateAxisArray, 3>;
extern template class LinearDirectProductMemArray<Quorvel::FixedArray<double, 2>, Quorvel::FixedArray<double, 2>, 2>;
extern template class LinearDirectProductMemArray<Quorvel::FixedArray<double, 3>, Quorvel::FixedArray<double, 3>, 3>;
extern template class LinearDirectProductMemArray<Quorvel::PhysicalSpace::point, Quorvel::PhysicalSpace::vector, 3>;

}  // namespace Tresk
