// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// What a field costs and how current it is.

#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/WalkHolder.hpp>

#include <cstdio>

namespace Tresk {

Ostrel::Ageable Field::getMostRecentCreatorAge() const {
  Ostrel::Ageable age = Ostrel::Ageable::now();
  visitCreators([&age](const CreativeArrayBase& creator) {
    age.raiseTo(creator.getDataAge());
    return false;
  });
  return age;
}

Ostrel::Ageable Field::getMostRecentAttributeAge() const {
  Ostrel::Ageable age = Ostrel::Ageable::now();
  visitCreators([&age](const CreativeArrayBase& creator) {
    age.raiseTo(creator.getAttributeAge());
    return false;
  });
  return age;
}

bool Field::hasFragmentsNewerThan(const Ostrel::Ageable& age) const {
  bool isNewer = false;
  visitCreators([&](const CreativeArrayBase& creator) {
    isNewer = creator.getDataAge() > age || creator.getAttributeAge() > age;
    return isNewer;
  });
  return isNewer;
}

int Field::getMemoryUsage(unsigned long long& inMemory, unsigned long long& fullSize) const {
  const TreskTypePtr type(getElementTreskType());
  if (!type) return -1;
  bool isHeld = false;
  visitCreators([&](const CreativeArrayBase& creator) {
    if (const SizePtr size = Tresk::getSize(creator)) fullSize += size->nElements() * type->memSize;
    const unsigned long long held = Tresk::getMemoryUsage(creator);
    inMemory += held;
    isHeld = isHeld || held != 0;
    return false;
  });
  return isHeld ? 1 : 0;
}

void Field::Speak(int indent, int limit) const {
  if (limit >= 1 && limit < indent) return;
  for (int i = 0; i < indent; ++i) std::putc(' ', stdout);
  std::printf("%u Fragments\n", static_cast<unsigned int>(nFragments()));
}

bool fieldSyntaxCheck(Field& field) {
  const Ostrel::StrongPtr<MemArray<3, double>, Ostrel::Cacheable> data(
      new MemArray<3, double>({3, 3, 3}, CreatorWeakPtr()));
  const CachePtr& cache = Ostrel::Cache::MemCache();
  field.createCreator(data, "First Fragment", Field::PersistentCreatorAlternative, cache);
  (*data)[{1, 2, 0}] = 42.0;

  // Copies of the pointers: a slot moves when the next fragment is added.
  const FragmentIDPtr second = field.makeFragmentID("Second Fragment");
  field.setPersistentData(data, second, cache, "");

  const FragmentIDPtr onDemand = field.makeFragmentID("On-Demand Fragment");
  field.setCreator(CreatorPtr(new FunctionalCreator([] { return MemBasePtr(); }, false, cache)), onDemand);

  return (*data)[{1, 2, 0}] == 42.0;
}

}  // namespace Tresk
