// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/ChunkBase.hpp>

namespace Ostrel {

constinit PlainCounter<long long> ChunkBase::TotalMemsize{0};

ChunkBase::ChunkBase() : ReferenceBase<ChunkBase>(this) {}
ChunkBase::~ChunkBase() = default;

}  // namespace Ostrel
