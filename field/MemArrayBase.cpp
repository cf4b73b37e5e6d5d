// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/MemArrayBase.hpp>

namespace Tresk {

namespace {

template <int N>
MultiIndex<N> toMultiIndex(const DynamicSize& size) {
  MultiIndex<N> index;
  for (int d = 0; d < N; ++d) index[d] = size[d];
  return index;
}

}  // namespace

template <int N>
MemArrayBase<N>::~MemArrayBase() = default;

template <int N>
int MemArrayBase<N>::rank() const {
  return N;
}

template <int N>
MemBasePtr MemArrayBase<N>::createSubArray(const DynamicSize& start, const DynamicSize& size,
                                           const CreatorWeakPtr& creator) const {
  if (start.Dims() != N || size.Dims() != N) return MemBasePtr();
  return createSubArray(toMultiIndex<N>(start), toMultiIndex<N>(size), creator);
}

template <int N>
DynamicSize MemArrayBase<N>::getSize() const {
  return DynamicSize(N, getIndexSize().begin());
}

template <int N>
Ostrel::StrongPtr<ArrayInterpolator, Ostrel::InterfaceBase> MemArrayBase<N>::getInterpolator() const {
  return Ostrel::findInterface<ArrayInterpolator>(*this);
}

template class MemArrayBase<1>;
template class MemArrayBase<2>;
template class MemArrayBase<3>;
template class MemArrayBase<4>;

}  // namespace Tresk
