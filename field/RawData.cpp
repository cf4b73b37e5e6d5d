// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/RawData.hpp>

namespace Tresk {

RawData::RawData(const CreatorPtr& creator) : data_(creator) {}
RawData::~RawData() = default;

VecPacked_10_11_11::~VecPacked_10_11_11() = default;

Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> VecPacked_10_11_11::pack(
    const Ostrel::StrongPtr<Ostrel::TypedChunkBase<Quorvel::FixedArray<double, 3>>, Ostrel::ChunkBase>& vectors) {
  const Quorvel::Vec3Pack_10_11_11 packed(vectors, lower_, upper_);
  return packed.getPacked();
}

}  // namespace Tresk
