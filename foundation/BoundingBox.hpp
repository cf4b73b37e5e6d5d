// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Ageable.hpp>
#include <tresk/foundation/InterfaceBase.hpp>
#include <tresk/foundation/PhysicalSpace.hpp>

namespace Quorvel {

/// The bounds of an object, attachable to it as an interface, with an age.
class TRESK_EXPORT BoundingBall : public Ostrel::Interface<BoundingBall>, public Ostrel::Ageable {
 public:
  BoundingBall();
  ~BoundingBall() override;
};

/// Bounds in the form of a box. Found under the key of `BoundingBall`; the corners are its `AABB` base.
class TRESK_EXPORT BoundingBox : public BoundingBall, public PhysicalSpace::AABB {
 public:
  /// A box from corner `lower` to corner `upper`. The corners are taken as they are and not sorted.
  BoundingBox(const PhysicalSpace::point& lower, const PhysicalSpace::point& upper);
  ~BoundingBox() override;
};

}  // namespace Quorvel
