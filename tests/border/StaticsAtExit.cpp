// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Fields and creators that a program keeps in objects of static storage. These are older than whatever the library makes
// when it is first used, and so outlive it, but not the records of element types, which are made when the library is
// loaded: objects that outlive those as well are in LoadAndClose.cpp.

#include <tresk/field/AsynchronCreator.hpp>
#include <tresk/field/ComputationalField.hpp>
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/FieldCollection.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/MemoryLedger.hpp>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>

namespace {

using Tresk::CreatorPtr;
using Tresk::FieldPtr;
using Tresk::MemBasePtr;

int nArraysAtEnd = 0;

/// Says at the very end whether all is gone, and fails the program if not.
struct LastWord {
  ~LastWord() {
    if (nArraysAtEnd == 0 && Ostrel::ReferenceRecord::nLive() >= 0) {
      std::puts("all arrays are gone");
    } else {
      std::printf("%d arrays are left\n", nArraysAtEnd);
      std::fflush(stdout);
      std::_Exit(1);
    }
  }
};

class Array : public Tresk::MemArray<1, double> {
 public:
  Array()
      : MemBase(*Tresk::getTreskType<double>(), Tresk::CreatorWeakPtr()),
        MemArray(Tresk::MultiIndex<1>(1000), Tresk::CreatorWeakPtr()) {
    ++nArraysAtEnd;
  }
  ~Array() override { --nArraysAtEnd; }
};

MemBasePtr makeArray() { return MemBasePtr(new Array); }

/// What the program keeps. Made before the library is used, empty.
struct Kept {
  std::function<void()> atEnd;
  FieldPtr field;
  FieldPtr sum;
  CreatorPtr asynchron;
  CreatorPtr orphan;
  Ostrel::StrongPtr<Ostrel::Cache, Ostrel::CacheBase> cache;

  ~Kept() {
    if (atEnd) atEnd();
  }
};

LastWord lastWord;
Kept kept;
std::atomic<bool> mayEnd{false};

}  // namespace

int main() {
  kept.cache = Ostrel::StrongPtr<Ostrel::Cache, Ostrel::CacheBase>(new Ostrel::Cache);
  kept.cache->setLimit(100'000);
  kept.cache->startThread();
  kept.field = FieldPtr(new Tresk::Field);
  const FieldPtr right(new Tresk::Field(Tresk::FieldWeakPtr(kept.field)));
  for (int i = 0; i < 30; ++i) {
    const Tresk::FragmentIDPtr fragment = kept.field->makeFragmentID(std::to_string(i));
    const CreatorPtr creator(new Tresk::FunctionalCreator(makeArray, false, kept.cache));
    creator->addMetaInfo(1, Tresk::getTreskType<double>());
    kept.field->setCreator(creator, fragment);
    right->setCreator(CreatorPtr(new Tresk::CreativeArray(makeArray(), kept.cache)), fragment);
  }
  kept.sum = Tresk::addFields(kept.field, right);
  kept.orphan = CreatorPtr(new Tresk::FunctionalCreator(makeArray, false, kept.cache));
  for (unsigned int i = 0; i < kept.field->nFragments(); ++i) kept.sum->getCreatorByNumericalID(i)->create(false);

  auto* const asynchron = new Tresk::AsynchronCreator(
      [](const std::atomic<bool>&) {
        while (!mayEnd) std::this_thread::yield();
        for (int i = 0; i < 1000; ++i) std::this_thread::yield();
        return makeArray();
      },
      kept.cache);
  kept.asynchron = CreatorPtr(asynchron);
  if (!kept.asynchron->request({})) return 1;

  // Work after the end of main, and after the end of the library's own statics.
  kept.atEnd = [] {
    if (!kept.orphan->create(false)) std::_Exit(1);
    if (!kept.field->getCreatorByName("7")->create(false)) std::_Exit(1);
    kept.field->setCreator(kept.orphan, kept.field->makeFragmentID("late"));
    kept.cache->trim(0);
    if (kept.cache->describe(5).empty()) std::_Exit(1);
  };
  mayEnd = true;  // the thread of the request works on while the process ends
  return 0;
}
