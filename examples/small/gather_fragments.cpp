// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A domain in three parts, each with its own points in an order of its own: the values of all parts are gathered into
// one array, in the order of the whole domain, and each part may be forgotten when it has been copied.
#include <tresk/field/CreateIndirection.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace Tresk;

// [gather]
/// Gathers the values of all fragments into one new array; null if a fragment does not fit.
/// \param numbers of the same fragments: the place of each value in the whole, each place once
MemBasePtr gather(const Field& values, const Field& numbers) {
  const SizePtr size = values.getSize();
  if (!size) return MemBasePtr();
  const MemBasePtr whole = MemBase::create(TreskTypePtr(values.getElementTreskType()), *size, typeid(void));
  const auto copyPart = [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
    const MemBasePtr part = creator->create(false);
    const Ostrel::RefPtr<MemArray<1, unsigned int>> places(numbers.getData(fragment));
    if (!whole || !part || !places || places->nElements() != part->nElements()) return false;
    const std::vector<unsigned int>& toPlaces = places->getTypedChunk()->vector();
    return CreateIndirection(whole->getChunk(), part->getChunk(), &toPlaces, nullptr, 0, toPlaces.size(), 0, 0, 1);
  };
  return values.iterate(copyPart, false, false) == values.nFragments() ? whole : MemBasePtr();
}
// [gather]

/// The points of the three parts: each point of the whole belongs to one of them.
const std::vector<std::vector<unsigned int>> points = {{6, 0, 3}, {1, 7, 4, 8, 2}, {5, 9}};

MemBasePtr makeNumbers(std::size_t part) {
  const Ostrel::RefPtr<MemArray<1, unsigned int>> array(
      new MemArray<1, unsigned int>(points[part].size(), CreatorWeakPtr()));
  array->getTypedChunk()->vector() = points[part];
  return array;
}

/// The value of point p is 1.5 p.
MemBasePtr makeValues(std::size_t part) {
  std::cout << "  making part " << part << "\n";
  const Ostrel::RefPtr<MemArray<1, double>> array(new MemArray<1, double>(points[part].size(), CreatorWeakPtr()));
  for (std::size_t i = 0; i < points[part].size(); ++i) (*array)(i) = 1.5 * points[part][i];
  return array;
}

}  // namespace

int main() {
  // [bind]
  const CachePtr cache(new Ostrel::Cache);
  cache->setLimit(5 * sizeof(double));  // the largest part
  const FieldPtr values(new Field);
  const FieldPtr numbers(new Field(FieldWeakPtr(values)));  // on the same numbering of fragments
  for (std::size_t part = 0; part < points.size(); ++part) {
    const FragmentIDPtr fragment = values->makeFragmentID("part " + std::to_string(part));
    const CreatorPtr creator(new FunctionalCreator([part] { return makeValues(part); }, false, cache));
    creator->addMetaInfo(DynamicSize{points[part].size()}, getTreskType<double>());
    values->setCreator(creator, fragment);
    const auto makePlaces = [part] { return makeNumbers(part); };
    numbers->setCreator(CreatorPtr(new FunctionalCreator(makePlaces, false, Ostrel::Cache::MemCache())), fragment);
  }
  // [bind]
  std::cout << values->nFragments() << " parts of together " << values->getSize()->str() << " points\n";
  const MemBasePtr whole = gather(*values, *numbers);
  if (!whole) return 1;
  std::cout << "the whole:";
  for (unsigned long long i = 0; i < whole->nElements(); ++i) std::cout << " " << whole->getElementString(i);
  std::cout << "\nof the parts " << cache->getStatistics().nHeldBytes << " bytes are held\n";
}
