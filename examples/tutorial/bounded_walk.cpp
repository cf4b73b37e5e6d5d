// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A walk over thousands of fragments with a bounded number of threads, under a limit of a hundredth of the data.
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <atomic>
#include <functional>
#include <future>
#include <iostream>
#include <string>
#include <vector>

using namespace Tresk;

namespace {

constexpr int nFragments = 5000;
constexpr unsigned long long nElements = 1000;
constexpr unsigned long long nBytes = nElements * sizeof(double);

/// Counts the productions that run at the same moment.
struct Workload {
  std::atomic<int> nRunning{0};
  std::atomic<int> nMost{0};
  std::atomic<int> nProductions{0};

  void begin() {
    const int now = ++nRunning;
    for (int most = nMost; now > most && !nMost.compare_exchange_weak(most, now);) {
    }
    ++nProductions;
  }
  void end() { --nRunning; }
};

/// A fragment whose elements are all `value`.
MemBasePtr makeFragment(double value, Workload& workload) {
  workload.begin();
  const Ostrel::StrongPtr<MemArray<1, double>, Ostrel::Cacheable> array(
      new MemArray<1, double>({nElements}, CreatorWeakPtr()));
  for (unsigned long long i = 0; i < nElements; ++i) (*array)(i) = value;
  workload.end();
  return MemBasePtr(array);
}

FieldPtr makeField(const CachePtr& cache, Workload& workload) {
  const FieldPtr field(new Field);
  for (int i = 0; i < nFragments; ++i) {
    const CreatorPtr creator(new FunctionalCreator([i, &workload] { return makeFragment(i, workload); }, false, cache));
    creator->addMetaInfo(DynamicSize{nElements}, getTreskType<double>());
    field->setCreator(creator, field->makeFragmentID("fragment " + std::to_string(i)));
  }
  return field;
}

// [bounded walk]
/// Calls `visit(number, data)` for all fragments of a field, on `nThreads` threads. The number counts the creators in
/// the order of the walk. An exception of `visit` or of a production is rethrown when all threads have ended.
void walkBounded(const Field& field, unsigned int nThreads,
                 const std::function<void(std::size_t, const MemBasePtr&)>& visit) {
  // The creators in one short walk over a copy of the table: no lock is held while data are produced.
  std::vector<CreatorPtr> creators;
  const auto note = [&](const FragmentIDPtr&, const CreatorPtr& creator) {
    creators.push_back(creator);
    return true;
  };
  field.iterate(note, false, true);

  // Each thread takes the next creator, and lets go of its data before it takes another one.
  std::atomic<std::size_t> next{0};
  const auto work = [&] {
    for (std::size_t i = next++; i < creators.size(); i = next++) visit(i, creators[i]->create(false));
  };
  std::vector<std::future<void>> threads;
  for (unsigned int i = 0; i < nThreads; ++i) threads.push_back(std::async(std::launch::async, work));
  for (std::future<void>& thread : threads) thread.get();
}
// [bounded walk]

/// The sum of all elements: one partial sum for each fragment, added up in the order of the walk, so that the result is
/// the same for any number of threads.
double sumOf(const Field& field, unsigned int nThreads) {
  std::vector<double> sums(field.nFragments());
  walkBounded(field, nThreads, [&](std::size_t i, const MemBasePtr& data) {
    const Ostrel::StrongPtr<TypedArray<double>, Ostrel::Cacheable> array(data);
    if (array) sums[i] = array->getIterator().reduceElements(0.0, std::plus<>());
  });
  double sum = 0;
  for (const double part : sums) sum += part;
  return sum;
}

}  // namespace

int main() {
  const CachePtr cache(new Ostrel::Cache);
  cache->setLimit(nFragments / 100 * nBytes);
  Workload workload;
  const FieldPtr field = makeField(cache, workload);
  std::cout << field->nFragments() << " fragments of " << nBytes << " bytes, at most " << cache->getLimit()
            << " bytes held at rest\n";

  constexpr unsigned int nThreads = 4;
  const double sum = sumOf(*field, nThreads);
  const bool isBounded = workload.nMost <= static_cast<int>(nThreads);
  const bool isWithinLimit = cache->getStatistics().nHeldBytes <= cache->getLimit();
  std::cout << "sum " << sum << " on " << nThreads << " threads, " << workload.nProductions << " productions\n"
            << "never more productions at once than threads: " << (isBounded ? "yes" : "no") << "\n"
            << "below the limit at the end: " << (isWithinLimit ? "yes" : "no") << "\n";

  const bool isSame = sumOf(*field, 1) == sum;
  std::cout << "the same sum on one thread: " << (isSame ? "yes" : "no") << "\n";
  const bool isRight = sum == nElements * (nFragments * (nFragments - 1.0) / 2);
  return isBounded && isWithinLimit && isSame && isRight ? 0 : 1;
}
