// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Step 1 of the tutorial: a field is bound, and tells what it knows without any data.
#include "Bar.hpp"

int main() {
  // [ask]
  const FieldPtr field(new Field);
  bindBar(*field, 80);

  const TreskTypePtr type(field->getElementTreskType());
  std::cout << field->nFragments() << " fragments of rank " << field->Dims() << " with elements of type "
            << type->typeName << "\n";
  const CreatorPtr creator = field->getCreatorByName("hour 3");
  std::cout << "hour 3 will have " << getSize(*creator)->str() << " elements, all hours together "
            << field->getSize()->str() << "\n";
  unsigned long long held = 0;
  unsigned long long full = 0;
  field->getMemoryUsage(held, full);
  std::cout << held << " of " << full << " bytes are held\n";
  // [ask]
}
