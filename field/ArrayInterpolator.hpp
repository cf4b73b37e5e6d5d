// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/InterfaceBase.hpp>

namespace Tresk {

/// What an array carries when somebody knows how to interpolate it. The operations are those of the derived class: the
/// library interpolates nothing, and defines this type so that it can be looked up (`MemArrayBase::getInterpolator`).
class TRESK_EXPORT ArrayInterpolator : public Ostrel::Interface<ArrayInterpolator> {
 public:
  ~ArrayInterpolator() override = 0;
};

}  // namespace Tresk
