// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Writes a trace of two threads that ask for more data than may be held, to be looked at in a viewer.
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/foundation/TraceWriter.hpp>

#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

using namespace Tresk;

namespace {

constexpr int nDays = 6;
constexpr unsigned long long nRows = 400;

FieldPtr makeField(const CachePtr& cache) {
  const FieldPtr field(new Field);
  for (int day = 1; day <= nDays; ++day) {
    const CreatorPtr creator(new FunctionalCreator(
        [day] {
          const Ostrel::StrongPtr<MemArray<2, double>, Ostrel::Cacheable> array(
              new MemArray<2, double>({nRows, nRows}, CreatorWeakPtr()));
          for (unsigned long long j = 0; j < nRows; ++j)
            for (unsigned long long i = 0; i < nRows; ++i) (*array)(i, j) = static_cast<double>(i * j) / day;
          return MemBasePtr(array);
        },
        false, cache));
    field->setCreator(creator, field->makeFragmentID("day " + std::to_string(day)));
  }
  return field;
}

}  // namespace

int main(int argc, char** argv) try {
  const std::string path = argc > 1 ? argv[1] : "trace.json";
  const CachePtr cache(new Ostrel::Cache);
  cache->setLimit(2 * nRows * nRows * sizeof(double));  // two days of six
  const FieldPtr field = makeField(cache);

  // [trace]
  Ostrel::TraceWriter trace(path);
  trace.attach();                                 // hears all profiler scopes of the process
  cache->setListener(trace.makeCacheListener());  // and what happens in this cache

  const auto readAll = [&field, &trace] {
    for (int day = 1; day <= nDays; ++day) {
      const Ostrel::Profiler scope("examples/trace", __LINE__, "readAll", "one day", 1, "");
      field->getData(field->getFragmentID("day " + std::to_string(day)));
      trace.counter("last day read", day);
    }
  };
  std::thread other(readAll);
  readAll();
  other.join();

  cache->setListener({});
  const bool isComplete = trace.close();
  // [trace]
  if (!isComplete) throw std::runtime_error(path + " is not complete");

  const Ostrel::CacheStatistics counts = cache->getStatistics();
  std::cout << counts.nProductions << " productions and " << counts.nEvicted << " evictions of two threads are in "
            << path << "\n";
} catch (const std::exception& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
