// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Ageable.hpp>

namespace Ostrel {

/// The attribute age of an object: the time of the last change of what describes it, as opposed to its data.
class TRESK_EXPORT Attributes {
 public:
  Attributes();
  ~Attributes();
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  /// The attribute age. Changing it does not change the object, so a const object gives it out for writing.
  Ageable& getAttributeAge() const noexcept { return attributeAge_; }

 private:
  mutable Ageable attributeAge_;
};

}  // namespace Ostrel
