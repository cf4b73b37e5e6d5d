// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/BoundingBox.hpp>

namespace Quorvel {

BoundingBall::BoundingBall() = default;
BoundingBall::~BoundingBall() = default;

BoundingBox::BoundingBox(const PhysicalSpace::point& lower, const PhysicalSpace::point& upper)
    : PhysicalSpace::AABB(lower, upper) {}
BoundingBox::~BoundingBox() = default;

}  // namespace Quorvel
