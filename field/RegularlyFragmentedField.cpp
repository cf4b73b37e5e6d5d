// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/RegularlyFragmentedField.hpp>

#include <algorithm>
#include <stdexcept>

namespace Tresk {

namespace {

/// The number of blocks. Throws the error of the vector that would have to hold them.
template <int N>
unsigned long long countBlocks(const MultiIndex<N>& extents) {
  static const unsigned long long limit = std::vector<CreatorPtr>().max_size();
  if (std::find(extents.begin(), extents.end(), 0U) != extents.end()) return 0;
  unsigned long long n = 1;
  for (const unsigned long long extent : extents) {
    if (n > limit / extent) throw std::length_error("cannot create std::vector larger than max_size()");
    n *= extent;
  }
  return n;
}

template <int N>
DynamicSize shapeOf(const MultiIndex<N>& extents) {
  return DynamicSize(N, extents.begin());
}

}  // namespace

template <int N>
RegularlyFragmentedField<N>::RegularlyFragmentedField(const MultiIndex<N>& extents, const std::string& suffix)
    : extents_(extents) {
  prepare(suffix);
}

template <int N>
RegularlyFragmentedField<N>::RegularlyFragmentedField(const MultiIndex<N>& extents,
                                                      const FragmentIDCollectionPtr& collection,
                                                      const std::string& suffix)
    : Field(collection), extents_(extents) {
  if (!collection_) prepare(suffix);
}

template <int N>
RegularlyFragmentedField<N>::RegularlyFragmentedField(const MultiIndex<N>& extents, const FieldWeakPtr& field,
                                                      const std::string& suffix)
    : Field(field), extents_(extents) {
  if (!collection_) prepare(suffix);
}

template <int N>
RegularlyFragmentedField<N>::RegularlyFragmentedField(const RegularlyFragmentedField& other)
    : Field(other.getFragmentIDCollection()), extents_(other.extents_) {}

template <int N>
RegularlyFragmentedField<N>::~RegularlyFragmentedField() = default;

template <int N>
void RegularlyFragmentedField<N>::prepare(const std::string& suffix) {
  reserve_fragments(countBlocks(extents_));
  if (collection_ && (collection_->getShape().getExtents() != nullptr || collection_->nFragmentIDs() > 0)) return;
  const FragmentIDCollectionPtr collection =
      collection_ ? collection_ : FragmentIDCollectionPtr(new FragmentIDCollection);
  collection->fill(shapeOf(extents_), suffix);
  collection_ = collection;
}

template <int N>
FragmentIDPtr RegularlyFragmentedField<N>::getFragmentID(const MultiIndex<N>& index) const {
  const FragmentIDCollectionPtr collection = getFragmentIDCollection();
  if (!collection) return FragmentIDPtr();
  for (int d = 0; d < N; ++d)
    if (index[d] >= extents_[d]) return FragmentIDPtr();
  return collection->findFragmentID(numberOf(index));
}

template <int N>
std::string RegularlyFragmentedField<N>::xml() const {
  return "<REGULARLYFRAGMENTIONDIMENSIONS>" + std::to_string(N) + "</REGULARLYFRAGMENTIONDIMENSIONS>\n" + Field::xml();
}

template class RegularlyFragmentedField<3>;

FieldPtr newRegularlyFragmentedField(const DynamicSize& size) {
  if (size.Dims() != 3) return FieldPtr();
  return FieldPtr(new RegularlyFragmentedField<3>(MultiIndex<3>(size[0], size[1], size[2]), "RegularFragment"));
}

}  // namespace Tresk
