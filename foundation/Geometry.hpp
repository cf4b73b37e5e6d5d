// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

/// \file
/// Geometric value types: fixed arrays, vectors, points, boxes, and the packed form of vectors.

#include <tresk/foundation/BoundingBox.hpp>
#include <tresk/foundation/FixedArray.hpp>
#include <tresk/foundation/Operator.hpp>
#include <tresk/foundation/PhysicalSpace.hpp>
#include <tresk/foundation/Vec3Pack.hpp>
