// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/CreativeArrayBase.hpp>
#include <tresk/foundation/Vec3Pack.hpp>

namespace Tresk {

/// Attaches a secondary, raw form of its data to an object; remembers the creator of the data and keeps it alive.
class TRESK_EXPORT RawData : public Ostrel::Interface<RawData> {
 public:
  /// \param creator the creator of the data, which is kept alive; may be empty
  explicit RawData(const CreatorPtr& creator);
  ~RawData() override;

  /// The creator of the data.
  const CreatorPtr& getCreator() const noexcept { return data_; }

 private:
  CreatorPtr data_;
};

/// A compact form of vectors: 10, 11 and 11 bits for the components, between two bounds (`Quorvel::Vec3Pack_10_11_11`
/// defines layout, rounding and error). Found under the key of `RawData` and told from it by a dynamic cast.
class TRESK_EXPORT VecPacked_10_11_11 : public RawData {
 public:
  using Bound = Quorvel::FixedArray<double, 3>;  ///< one number for each component, in the unit of the vectors

  /// \param creator creator of the vectors, may be empty; \param lower least and \param upper greatest value of each
  /// component
  VecPacked_10_11_11(const CreatorPtr& creator, const Bound& lower, const Bound& upper)
      : RawData(creator), lower_(lower), upper_(upper) {}
  ~VecPacked_10_11_11() override;

  /// The least value of each component.
  const Bound& getLowerBound() const noexcept { return lower_; }
  /// The greatest value of each component.
  const Bound& getUpperBound() const noexcept { return upper_; }

  /// A new chunk with one packed value of 32 bits (`unsigned int`) for each vector; an empty chunk for an invalid
  /// pointer. One pass on this thread.
  Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> pack(
      const Ostrel::StrongPtr<Ostrel::TypedChunkBase<Quorvel::FixedArray<double, 3>>, Ostrel::ChunkBase>& vectors);

 private:
  Bound lower_;
  Bound upper_;
};

}  // namespace Tresk
