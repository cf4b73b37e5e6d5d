// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/DirectProductMemArray.hpp>

#include <tresk/field/ElementText.hpp>
#include <tresk/field/MemArrayImplementation.hpp>
#include <tresk/field/PointRows.hpp>
#include <tresk/foundation/NeverDestroyed.hpp>
#include <tresk/foundation/SaveRegistry.hpp>

#include <algorithm>
#include <type_traits>
#include <vector>

namespace Tresk {

// --------------------------------------------------------------------------------------- DirectProductMemArrayBase

template <class V, class Kind, int N>
DirectProductMemArrayBase<V, Kind, N>::DirectProductMemArrayBase() {
  for (int d = 0; d < N; ++d) setAxisMap(d, static_cast<unsigned int>(d));
}

template <class V, class Kind, int N>
DirectProductMemArrayBase<V, Kind, N>::DirectProductMemArrayBase(const DirectProductMemArrayBase& other)
    : MemBase(other.getTreskTypeIndex(), CreatorWeakPtr()),  // the complete class constructs this base, not this one
      axisMap_(other.axisMap_) {
  for (int c = 0; c < N; ++c)
    if (const AxisPtr axis = other.getAxis(c)) setAxis(c, copyAxis(*axis));
}

template <class V, class Kind, int N>
void DirectProductMemArrayBase<V, Kind, N>::computeCoordinate(const MultiIndex<N>& index, V& point) const noexcept {
  for (int d = 0; d < N; ++d) {
    const unsigned int c = getAxisMap(d);
    if (c >= static_cast<unsigned int>(N)) continue;
    const auto* const axis = getAxis(static_cast<int>(c)).get();  // one look for the test and the use
    if (axis == nullptr) continue;
    // An axis that lists nothing has no position even for the corners of the array.
    if (std::is_same_v<Kind, ExplicitCoordinateAxisArray> && axis->nPositions() == 0) continue;
    point[static_cast<int>(c)] = axis->getPosition(index[d]);
  }
}

template <class V, class Kind, int N>
V DirectProductMemArrayBase<V, Kind, N>::makeCoordinate(const MultiIndex<N>& index) const noexcept {
  V point;
  for (int c = 0; c < N; ++c) point[c] = 0.0;
  computeCoordinate(index, point);
  return point;
}

template <class V, class Kind, int N>
MultiIndex<N> DirectProductMemArrayBase<V, Kind, N>::getIndexSize() const {
  MultiIndex<N> size;
  for (int d = 0; d < N; ++d) {
    const unsigned int c = getAxisMap(d);
    // A component without an axis has no positions; the caller gives every mapped component one.
    if (c > static_cast<unsigned int>(N - 1))
      size[d] = 1;
    else if (getAxis(static_cast<int>(c)))
      size[d] = getAxis(static_cast<int>(c))->nPositions();
  }
  return size;
}

template <class V, class Kind, int N>
void DirectProductMemArrayBase<V, Kind, N>::writeCoordinates(double* out) const {
  static_assert(N == 2 || N == 3);
  const MultiIndex<N> size = getIndexSize();
  const unsigned long long nPoints = size.nElements();
  if (nPoints == 0) return;
  // Of several dimensions along one component the last one counts, as it is computed last.
  std::array<int, N> dimensionOf;
  dimensionOf.fill(-1);
  std::array<std::vector<double>, N> positions;
  for (int d = 0; d < N; ++d) {
    const unsigned int c = getAxisMap(d);
    if (c > static_cast<unsigned int>(N - 1) || !getAxis(static_cast<int>(c))) continue;
    dimensionOf[c] = d;
    positions[c].resize(size[d]);
    getAxis(static_cast<int>(c))->writePositions(positions[c].data());
  }
  int varying = -1;
  const double* row = nullptr;
  for (int c = 0; c < N; ++c) {
    if (dimensionOf[static_cast<std::size_t>(c)] != 0) continue;
    varying = c;
    row = positions[static_cast<std::size_t>(c)].data();
  }
  const bool isStreamed = nPoints * sizeof(V) >= Detail::streamingThreshold();
  constexpr auto write = N == 2 ? &Detail::writePointRow2 : &Detail::writePointRow3;
  constexpr auto stream = N == 2 ? &Detail::streamPointRow2 : &Detail::streamPointRow3;
  const auto writeRow = isStreamed ? stream : write;

  std::array<double, N> point{};
  MultiIndex<N> index;
  const unsigned long long nRows = nPoints / size[0];
  for (unsigned long long r = 0; r < nRows; ++r) {
    for (std::size_t c = 0; c < N; ++c)
      if (dimensionOf[c] > 0) point[c] = positions[c][index[dimensionOf[c]]];
    writeRow(out + r * size[0] * N, point.data(), varying, row, size[0]);
    for (int d = 1; d < N; ++d) {
      if (++index[d] < size[d]) break;
      index[d] = 0;
    }
  }
  if (isStreamed) Detail::finishStreaming();
}

template <class V, class Kind, int N>
void DirectProductMemArrayBase<V, Kind, N>::DeferredConstructor() {
  Ostrel::SaveRegistry<DirectProductMemArrayBase> registry(this);
  registry.traverseCreators(typeid(DirectProductMemArrayBase));
}

template <class V, class Kind, int N>
unsigned long long DirectProductMemArrayBase<V, Kind, N>::memsize() const {
  return 0;
}

template <class V, class Kind, int N>
unsigned long long DirectProductMemArrayBase<V, Kind, N>::nElements() const {
  return getIndexSize().nElements();
}

template <class V, class Kind, int N>
const HyperslabParameters& DirectProductMemArrayBase<V, Kind, N>::getHyperslab() const {
  static const HyperslabParameters nothing;
  return nothing;
}

template <class V, class Kind, int N>
void* DirectProductMemArrayBase<V, Kind, N>::getDataPointer() const {
  return nullptr;
}

template <class V, class Kind, int N>
const double* DirectProductMemArrayBase<V, Kind, N>::getOrigin() const {
  return nullptr;
}

template <class V, class Kind, int N>
const double* DirectProductMemArrayBase<V, Kind, N>::getDelta() const {
  return nullptr;
}

template <class V, class Kind, int N>
MemBasePtr DirectProductMemArrayBase<V, Kind, N>::createArray(const MultiIndex<N>&, const CreatorWeakPtr&) const {
  return MemBasePtr();
}

template <class V, class Kind, int N>
MemBasePtr DirectProductMemArrayBase<V, Kind, N>::createSubArray(const MultiIndex<N>&, const MultiIndex<N>&,
                                                                 const CreatorWeakPtr&) const {
  return MemBasePtr();
}

template <class V, class Kind, int N>
MemBasePtr DirectProductMemArrayBase<V, Kind, N>::createSubArray(const DynamicSize&, const DynamicSize&,
                                                                 const CreatorWeakPtr&) const {
  return MemBasePtr();
}

template <class V, class Kind, int N>
MemBasePtr DirectProductMemArrayBase<V, Kind, N>::getSlice(unsigned long long, const CreatorWeakPtr&) const {
  return MemBasePtr();
}

template <class V, class Kind, int N>
MemBasePtr DirectProductMemArrayBase<V, Kind, N>::getComponent(int, const CreatorWeakPtr&) const {
  return MemBasePtr();
}

template <class V, class Kind, int N>
bool DirectProductMemArrayBase<V, Kind, N>::copyFromChunk(const ChunkPtr&) {
  return false;
}

// ------------------------------------------------------------------------------------------- DirectProductMemArray

namespace {

/// A tuple of coordinates as an element.
template <class T, int N>
T toElement(const Quorvel::FixedArray<double, N>& tuple) {
  T element;
  for (int c = 0; c < N; ++c) element[c] = tuple[c];
  return element;
}

}  // namespace

template <class T, class Kind, int N>
DirectProductMemArray<T, Kind, N>::DirectProductMemArray(const CreatorWeakPtr& creator)
    : MemBase(TreskType<T>::index(), creator) {}

template <class T, class Kind, int N>
DirectProductMemArray<T, Kind, N>::DirectProductMemArray(const DirectProductMemArray& other,
                                                         const CreatorWeakPtr& creator)
    : MemBase(TreskType<T>::index(), creator), Base(other) {}

template <class T, class Kind, int N>
T DirectProductMemArray<T, Kind, N>::first() const {
  return toElement<T>(this->makeCoordinate(MultiIndex<N>()));
}

template <class T, class Kind, int N>
T DirectProductMemArray<T, Kind, N>::last() const {
  MultiIndex<N> index = this->getIndexSize();
  for (int d = 0; d < N; ++d) index[d] = index[d] == 0 ? 0 : index[d] - 1;
  return toElement<T>(this->makeCoordinate(index));
}

template <class T, class Kind, int N>
const CreativeIterator<T>& DirectProductMemArray<T, Kind, N>::getIterator() const {
  static Ostrel::Detail::NeverDestroyed<CreativeIterator<T>> nothing;
  return *nothing;
}

template <class T, class Kind, int N>
CreativeIterator<T>& DirectProductMemArray<T, Kind, N>::getIterator() {
  static Ostrel::Detail::NeverDestroyed<CreativeIterator<T>> nothing;
  return *nothing;
}

template <class T, class Kind, int N>
Ostrel::StrongPtr<Ostrel::TypedChunk<T>, Ostrel::ChunkBase> DirectProductMemArray<T, Kind, N>::getTypedChunk() const {
  return Ostrel::StrongPtr<Ostrel::TypedChunk<T>, Ostrel::ChunkBase>();
}

template <class T, class Kind, int N>
const std::type_info& DirectProductMemArray<T, Kind, N>::getElementType() const {
  return typeid(T);
}

template <class T, class Kind, int N>
std::string DirectProductMemArray<T, Kind, N>::getElementString(unsigned long long index) const {
  const MultiIndex<N> size = this->getIndexSize();
  if (std::find(size.begin(), size.end(), 0U) != size.end()) return std::string();
  MultiIndex<N> position;
  for (int d = 0; d < N; ++d) {
    position[d] = index % size[d];
    index /= size[d];
  }
  return elementText(this->makeCoordinate(position));
}

template <class T, class Kind, int N>
MemBasePtr DirectProductMemArray<T, Kind, N>::makeExplicit(const CreatorWeakPtr& creator) const {
  static_assert(sizeof(T) == N * sizeof(double), "an element is its coordinates");
  const MemBasePtr array(new MemArray<N, T>(this->getIndexSize(), creator));
  this->writeCoordinates(static_cast<double*>(array->getDataPointer()));
  return array;
}

template <class T, class Kind, int N>
MemBasePtr DirectProductMemArray<T, Kind, N>::createOnChunk(const ChunkPtr& chunk,
                                                            const CreatorWeakPtr& creator) const {
  const MultiIndex<N> size = this->getIndexSize();
  if (!chunk || chunk->size() != Detail::allocationSize(size)) return MemBasePtr();
  return MemBasePtr(new MemArray<N, T>(chunk, size, creator));
}

template <class T, class Kind, int N>
MemBasePtr DirectProductMemArray<T, Kind, N>::copy(const CreatorWeakPtr& creator) const {
  return MemBasePtr(new DirectProductMemArray(*this, creator));
}

// ------------------------------------------------------------------------------------- LinearDirectProductMemArray

template <class T, class Delta, int N>
LinearDirectProductMemArray<T, Delta, N>::LinearDirectProductMemArray(const MultiIndex<N>& size, const T& origin,
                                                                      const Delta& delta, const CreatorWeakPtr& creator)
    : MemBase(TreskType<T>::index(), creator),
      DirectProductMemArray<T, LinearCoordinateAxisArray, N>(creator),
      origin_(origin),
      delta_(delta) {
  for (int c = 0; c < N; ++c) {
    this->setAxis(c, CoordinateAxisPtr<LinearCoordinateAxisArray>(
                         new CoordinateAxisArray<double, LinearCoordinateAxisArray>(origin[c], delta[c], size[c])));
  }
}

template <class T, class Delta, int N>
LinearDirectProductMemArray<T, Delta, N>::LinearDirectProductMemArray(const LinearDirectProductMemArray& other,
                                                                      const CreatorWeakPtr& creator)
    : MemBase(TreskType<T>::index(), creator), DirectProductMemArray<T, LinearCoordinateAxisArray, N>(other, creator) {}

template <class T, class Delta, int N>
const double* LinearDirectProductMemArray<T, Delta, N>::getOrigin() const {
  return origin_.begin();
}

template <class T, class Delta, int N>
const double* LinearDirectProductMemArray<T, Delta, N>::getDelta() const {
  return delta_.begin();
}

// -------------------------------------------------------------------------------------------------- instantiations

using Quorvel::FixedArray;
using Point = Quorvel::PhysicalSpace::point;

template class DirectProductMemArrayBase<FixedArray<double, 2>, ExplicitCoordinateAxisArray, 2>;
template class DirectProductMemArrayBase<FixedArray<double, 2>, LinearCoordinateAxisArray, 2>;
template class DirectProductMemArrayBase<FixedArray<double, 3>, ExplicitCoordinateAxisArray, 3>;
template class DirectProductMemArrayBase<FixedArray<double, 3>, LinearCoordinateAxisArray, 3>;
template class DirectProductMemArray<FixedArray<double, 2>, ExplicitCoordinateAxisArray, 2>;
template class DirectProductMemArray<FixedArray<double, 2>, LinearCoordinateAxisArray, 2>;
template class DirectProductMemArray<FixedArray<double, 3>, ExplicitCoordinateAxisArray, 3>;
template class DirectProductMemArray<FixedArray<double, 3>, LinearCoordinateAxisArray, 3>;
template class DirectProductMemArray<Point, ExplicitCoordinateAxisArray, 3>;
template class DirectProductMemArray<Point, LinearCoordinateAxisArray, 3>;
template class DirectProductMemArray<Quorvel::Vector<double, 3>, LinearCoordinateAxisArray, 3>;
template class LinearDirectProductMemArray<FixedArray<double, 2>, FixedArray<double, 2>, 2>;
template class LinearDirectProductMemArray<FixedArray<double, 3>, FixedArray<double, 3>, 3>;
template class LinearDirectProductMemArray<Point, Quorvel::PhysicalSpace::vector, 3>;

}  // namespace Tresk
