// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Attributes.hpp>

namespace Tresk {

/// Attributes with the time of their last save, which is the clock's value at construction until a saver writes it.
class TRESK_EXPORT SaveableAttributes : public Ostrel::Attributes {
 public:
  SaveableAttributes();
  ~SaveableAttributes();

  Ostrel::Ageable attributesSavedAge;  ///< for savers to write; this library does not read it
};

}  // namespace Tresk
