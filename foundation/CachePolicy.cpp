// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/CachePolicy.hpp>

namespace Ostrel {

CachePolicy::CachePolicy() : ReferenceBase<CachePolicy>(this) {}
CachePolicy::~CachePolicy() = default;

CostAwarePolicy::CostAwarePolicy() = default;
CostAwarePolicy::~CostAwarePolicy() = default;

double CostAwarePolicy::worth(const CacheCandidate& candidate) const {
  return candidate.nBytes == 0 ? candidate.seconds : candidate.seconds / static_cast<double>(candidate.nBytes);
}

}  // namespace Ostrel
