// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A field of four fragments whose arrays are computed when somebody asks for them.
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <iostream>
#include <string>

using namespace Tresk;

// [first look]
int main() {
  const FieldPtr field(new Field);
  for (const int day : {1, 2, 3, 4}) {
    const auto compute = [day] {
      std::cout << "  computing day " << day << "\n";
      const Ostrel::RefPtr<MemArray<2, double>> array(new MemArray<2, double>({300, 200}, CreatorWeakPtr()));
      (*array)(7, 5) = 1.5 * day;
      return MemBasePtr(array);
    };
    const CreatorPtr creator(new FunctionalCreator(compute, false, Ostrel::Cache::MemCache()));
    creator->addMetaInfo(DynamicSize{300, 200}, getTreskType<double>());
    field->setCreator(creator, field->makeFragmentID("day " + std::to_string(day)));
  }
  std::cout << field->nFragments() << " fragments of " << getSize(*field->getFirstCreator())->str() << " are bound\n";
  for (const char* time : {"first", "second"}) {
    if (const MemBasePtr data = field->getData(field->getFragmentID("day 3")))
      std::cout << time << " time: element " << data->getElementString(5 * 300 + 7) << "\n";
    std::cout << "gave back " << Ostrel::Cache::MemCache()->trim(Ostrel::Cache::NoLimit) << " bytes\n";
  }
}
// [first look]
