// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A creator of one's own: running means of a series that is itself made on demand.
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <iostream>
#include <string>

namespace {

using namespace Tresk;
using Series = MemArray<1, double>;

// [creator]
/// The means of each value of a series and its two neighbours; the first and the last value stay as they are.
class RunningMean : public FunctionalCreatorBase {
 public:
  RunningMean(const CreatorPtr& source, const CacheWeakPtr& cache)
      : FunctionalCreatorBase(false, cache), source_(source) {
    if (const SizePtr size = getSize(*source)) addMetaInfo(*size, Tresk::getTreskType<double>());
  }

  MemBasePtr compute() const override {
    std::cout << "  computing means\n";
    const Ostrel::RefPtr<Series> values(source_->create(false));
    if (!values) return MemBasePtr();
    const unsigned long long n = values->nElements();
    const Ostrel::RefPtr<Series> means(new Series(n, CreatorWeakPtr()));
    for (unsigned long long i = 0; i < n; ++i) {
      const bool isInside = i > 0 && i + 1 < n;
      (*means)(i) = isInside ? ((*values)(i - 1) + (*values)(i) + (*values)(i + 1)) / 3 : (*values)(i);
    }
    return means;
  }

 private:
  CreatorPtr source_;
};
// [creator]

/// What is smoothed: a series that jumps from 0 to `step`.
MemBasePtr makeJump(double step) {
  std::cout << "  computing a jump\n";
  const Ostrel::RefPtr<Series> series(new Series(8, CreatorWeakPtr()));
  for (int i = 4; i < 8; ++i) (*series)(i) = step;
  return series;
}

void print(const std::string& title, const MemBasePtr& series) {
  std::cout << title << ":";
  for (unsigned long long i = 0; i < series->nElements(); ++i) std::cout << " " << series->getElementString(i);
  std::cout << "\n";
}

}  // namespace

int main() {
  const CachePtr cache = Ostrel::Cache::MemCache();
  const FieldPtr jumps(new Field);
  for (const int step : {3, 6}) {
    const CreatorPtr creator(new FunctionalCreator([step] { return makeJump(step); }, false, cache));
    creator->addMetaInfo(DynamicSize{8}, getTreskType<double>());
    jumps->setCreator(creator, jumps->makeFragmentID("jump to " + std::to_string(step)));
  }
  // [bind]
  const FieldPtr means(new Field(FieldWeakPtr(jumps)));  // on the same numbering
  for (const FragmentIDPtr& fragment : jumps->getFragmentIDs())
    means->setCreator(CreatorPtr(new RunningMean(jumps->getCreator(fragment), cache)), fragment);
  std::cout << means->nFragments() << " series of means are bound, each of "
            << getSize(*means->getFirstCreator())->str() << " values\n";
  // [bind]
  // [read]
  const FragmentIDPtr fragment = means->getFragmentID("jump to 3");
  print("means", means->getData(fragment));
  print("again", means->getData(fragment));
  std::cout << "gave back " << cache->trim(Ostrel::Cache::NoLimit) << " bytes\n";
  print("once more", means->getData(fragment));
  // [read]
}
