// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A field of three fragments whose arrays are made when somebody asks for them.
// [first look]
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>

#include <iostream>

using namespace Tresk;

int main() {
  const FieldPtr field(new Field);
  for (const char* day : {"Monday", "Tuesday", "Wednesday"}) {
    const auto read = [day] {
      std::cout << "  reading " << day << "\n";
      return MemBasePtr(new MemArray<2, double>({300, 200}, CreatorWeakPtr()));
    };
    const CreatorPtr creator(new FunctionalCreator(read, false, Ostrel::Cache::MemCache()));
    field->setCreator(creator, field->makeFragmentID(day));
  }
  for (const char* time : {"first", "second"}) {
    if (const MemBasePtr data = field->getData(field->getFragmentID("Tuesday")))
      std::cout << time << " time: " << data->getSize().str() << " numbers\n";
    std::cout << "gave back " << Ostrel::Cache::MemCache()->trim(Ostrel::Cache::NoLimit) << " bytes\n";
  }
}
// [first look]
