// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A program that works with an element type that it does not know: a plug-in brings it.
// usage: own_element_type <plug-in>
#include <tresk/field/Field.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskTypeBase.hpp>

#include <dlfcn.h>

#include <iostream>

using namespace Tresk;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: own_element_type <plug-in>\n";
    return 2;
  }
  // [load]
  void* const plugin = dlopen(argv[1], RTLD_NOW);
  void* const entry = plugin != nullptr ? dlsym(plugin, "bindStress") : nullptr;
  if (entry == nullptr) {
    std::cerr << dlerror() << "\n";
    return 1;
  }
  const FieldPtr field(new Field);
  reinterpret_cast<void (*)(Field&)>(entry)(*field);
  // [load]

  // [use]
  const TreskTypePtr type(field->getElementTreskType());
  std::cout << type->description() << "\n";
  const MemBasePtr stress = field->getData(field->getFragmentID("plate"));
  std::cout << stress->getSize().str() << " elements in " << stress->memsize() << " bytes, the last one is "
            << stress->getElementString(11) << "\n";

  const Ostrel::RefPtr<MemArray<2, double>> alongX(stress->getComponent(0, CreatorWeakPtr()));
  std::cout << "its first component is " << (*alongX)(3, 2) << ", in the same memory\n";

  const MemBasePtr made = MemBase::create(type, DynamicSize{100}, typeid(void));
  std::cout << "a new array of " << made->getSize().str() << " elements takes " << made->memsize() << " bytes\n";
  // [use]
}
