// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A field of four fragments whose arrays are computed when somebody asks for them.
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <iostream>
#include <limits>
#include <string>

using namespace Tresk;

int main() {
  const FieldPtr field(new Field);
  for (const int day : {1, 2, 3, 4}) {
    const CreatorPtr creator(new FunctionalCreator(
        [day] {
          std::cout << "  computing day " << day << "\n";
          const Ostrel::StrongPtr<MemArray<2, double>, Ostrel::Cacheable> array(
              new MemArray<2, double>({300, 200}, CreatorWeakPtr()));
          (*array)(7, 5) = 1.5 * day;
          return MemBasePtr(array);
        },
        false, Ostrel::Cache::MemCache()));
    creator->addMetaInfo(DynamicSize{300, 200}, getTreskType<double>());
    field->setCreator(creator, field->makeFragmentID("day " + std::to_string(day)));
  }

  // Nothing has been computed so far.
  const CreatorPtr third = field->getCreatorByName("day 3");
  std::cout << field->nFragments() << " fragments, day 3 is " << getSize(*third)->str() << " and holds "
            << getMemoryUsage(*third) << " bytes\n";

  // Computed at the first question, and forgotten when the cache is told to give memory back.
  for (const char* time : {"first", "second"}) {
    MemBasePtr data = field->getData(field->getFragmentID("day 3"));
    std::cout << time << " time: element " << data->getElementString(5 * 300 + 7) << ", " << getMemoryUsage(*third)
              << " bytes held\n";
    data.reset();
    std::cout << "gave back " << Ostrel::Cache::MemCache()->trim(std::numeric_limits<unsigned long long>::max())
              << " bytes, " << getMemoryUsage(*third) << " held\n";
  }
}
