// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ArrayInterpolator.hpp>

namespace Tresk {

ArrayInterpolator::~ArrayInterpolator() = default;

}  // namespace Tresk
