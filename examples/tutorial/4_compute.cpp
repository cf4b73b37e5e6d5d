// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Step 4 of the tutorial: a field that is computed from two others, fragment by fragment, when it is asked.
#include "Bar.hpp"

#include <tresk/field/ComputationalField.hpp>

int main() {
  // [combine]
  const FieldPtr hot(new Field);
  bindBar(*hot, 80);
  const FieldPtr warm(new Field(FieldWeakPtr(hot)));  // on the same numbering of fragments
  bindBar(*warm, 30);

  using Difference = BinaryOperator<Quorvel::Operator<'-'>, double, double, double>;
  const FieldPtr difference = combineFields<Difference>(hot, warm);
  std::cout << difference->nFragments() << " differences, none computed\n";
  // [combine]
  // [read]
  const FragmentIDPtr hour = difference->getFragmentID("hour 1");
  MemBasePtr data = difference->getData(hour);
  std::cout << "difference at point 500: " << data->getElementString(500) << "\n";
  data.reset();
  const unsigned long long nBytes = Ostrel::Cache::MemCache()->trim(Ostrel::Cache::NoLimit);
  std::cout << "gave back " << nBytes << " bytes, those of the operands too\n";
  data = difference->getData(hour);
  std::cout << "difference at point 500: " << data->getElementString(500) << "\n";
  // [read]
}
