// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Field.hpp>
#include <tresk/field/MultiIndex.hpp>

#include <string>

namespace Tresk {

/// A field whose fragments are the blocks of a regular grid, addressed by a block index.
///
/// Block (i, j, k) of a grid of e0 x e1 x e2 blocks has the number i + e0 (j + e1 k), cut to 32 bits, and is named
/// "ixjxk" with a suffix behind it, for instance "1x2x0RegularFragment".
/// Errors: `getFragmentID` alone tests the bounds of an index. Elsewhere an index outside the grid is some other
/// number, known or not.
/// Threads, lifetime: as `Field`.
template <int N>
class TRESK_OPEN_TEMPLATE RegularlyFragmentedField : public Field {
 public:
  /// A field on a new collection of this shape. Throws `std::length_error` for more blocks than a vector can hold.
  RegularlyFragmentedField(const MultiIndex<N>& extents, const std::string& suffix);
  /// A field on a living collection, which is taken as it is: the caller vouches that it fits. Without one, as above.
  RegularlyFragmentedField(const MultiIndex<N>& extents, const FragmentIDCollectionPtr& collection,
                           const std::string& suffix);
  /// A sibling of a field, on its collection. Without one, as above.
  RegularlyFragmentedField(const MultiIndex<N>& extents, const FieldWeakPtr& field, const std::string& suffix);
  /// A field on the collection of `other`, with its extents and without its creators.
  RegularlyFragmentedField(const RegularlyFragmentedField& other);
  ~RegularlyFragmentedField() override;

  using Field::getCreator;
  using Field::getFragmentID;
  using Field::validate;

  /// Number of blocks along each dimension.
  const MultiIndex<N>& getExtents() const noexcept { return extents_; }
  /// Whether the collection has a slot of the block's number.
  bool validate(const MultiIndex<N>& index) const { return Field::validate(numberOf(index)); }
  /// The creator of a block; empty if there is none.
  CreatorPtr getCreator(const MultiIndex<N>& index) const { return getCreatorByNumericalID(numberOf(index)); }
  /// The slot of a block for writing, which is made if need be. Counts as a change of the field. The reference holds
  /// until the next insertion.
  CreatorPtr& getCreatorReference(const MultiIndex<N>& index) {
    return getCreatorReferenceViaFragmentIndex(numberOf(index));
  }
  /// The fragment of a block; empty outside the extents and without a collection.
  FragmentIDPtr getFragmentID(const MultiIndex<N>& index) const;
  /// The text of `Field::xml` behind one line with the number of dimensions.
  std::string xml() const;

 private:
  unsigned int numberOf(const MultiIndex<N>& index) const noexcept {
    return static_cast<unsigned int>(extents_.linear(index));
  }
  /// Gives a field without a usable collection one of this shape.
  void prepare(const std::string& suffix);

  MultiIndex<N> extents_;
};

extern template class RegularlyFragmentedField<3>;

/// A field of blocks for a size of rank 3, whose fragments are named "ixjxkRegularFragment". Null for any other rank.
/// Throws `std::length_error` for more blocks than a vector can hold.
TRESK_EXPORT FieldPtr newRegularlyFragmentedField(const DynamicSize& size);

}  // namespace Tresk
