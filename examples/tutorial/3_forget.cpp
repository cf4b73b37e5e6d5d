// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Step 3 of the tutorial: a limit of the cache, and what it means for those who hold data.
#include "Bar.hpp"

int main() {
  const FieldPtr field(new Field);
  bindBar(*field, 80);
  // [limit]
  const CachePtr cache = Ostrel::Cache::MemCache();  // the one that the creators were made with
  cache->setLimit(2 * nPoints * sizeof(double));
  for (const char* hour : {"hour 0", "hour 1", "hour 2", "hour 2", "hour 0"}) {
    field->getData(field->getFragmentID(hour));
    std::cout << hour << " was read, " << cache->getStatistics().nHeldBytes << " bytes are held\n";
  }
  // [limit]
  // [trim]
  MemBasePtr kept = field->getData(field->getFragmentID("hour 2"));
  std::cout << "gave back " << cache->trim(Ostrel::Cache::NoLimit) << " bytes, hour 2 is in use\n";
  kept.reset();
  std::cout << "gave back " << cache->trim(Ostrel::Cache::NoLimit) << " bytes\n";
  // [trim]
  // [statistics]
  const Ostrel::CacheStatistics statistics = cache->getStatistics();
  std::cout << statistics.nProductions << " productions, " << statistics.nHits << " hits, " << statistics.nEvicted
            << " let go, " << statistics.nStillInUse << " in use when asked\n";
  // [statistics]
}
