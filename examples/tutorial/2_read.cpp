// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Step 2 of the tutorial: data come when they are asked for, and stay while there is room.
#include "Bar.hpp"

int main() {
  const FieldPtr field(new Field);
  bindBar(*field, 80);
  // [one]
  const MemBasePtr data = field->getData(field->getFragmentID("hour 3"));
  if (!data) return 1;  // no such fragment, or its creator made nothing
  std::cout << "an array of " << data->getSize().str() << ", its element 500 is " << data->getElementString(500)
            << "\n";
  // [one]
  // [typed]
  const Ostrel::RefPtr<Bar> bar(data);
  if (!bar) return 1;  // another rank or element type
  const double hottest = bar->reduceElements(0.0, [](double a, double b) { return a > b ? a : b; });
  std::cout << "from " << (*bar)(0) << " to " << hottest << " degrees\n";
  // [typed]
  // [walk]
  field->iterate(
      [](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
        if (const Ostrel::RefPtr<Bar> each(creator->create(false)); each)
          std::cout << fragment->getName() << ": " << each->last() << " degrees at the end\n";
        return fragment->getName() != "hour 3";  // false ends the walk
      },
      false, false);
  // [walk]
  // [absent]
  const MemBasePtr absent = field->getData(field->getFragmentID("hour 99"));
  std::cout << "hour 99 is " << (absent ? "there" : "not there") << "\n";
  // [absent]
}
