// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <field/OwnElementType.hpp>

#include <tresk/field/MemArrayImplementation.hpp>

namespace TreskTest {

std::string elementText(const Colour& colour) {
  std::string text = "rgba";
  for (const double component : colour) text += ' ' + Tresk::elementText(component);
  return text;
}

}  // namespace TreskTest

TRESK_INSTANTIATE_ELEMENT_TYPE(TreskTest::Colour);
