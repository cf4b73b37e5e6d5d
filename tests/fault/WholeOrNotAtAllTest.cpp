// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FieldCollection.hpp>
#include <tresk/field/Fragment.hpp>
#include <tresk/field/FragmentIDContainer.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/field/TypeList.hpp>
#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/CacheStatistics.hpp>
#include <tresk/foundation/Diagnostics.hpp>

#include <support/FieldDoubles.hpp>
#include <support/RaceRunner.hpp>

#include <gtest/gtest.h>

#include "EachAllocation.hpp"

#include <cxxabi.h>
#include <dlfcn.h>

#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <thread>

// Operations that take several allocations, and either do all that they are asked for or nothing.

namespace {
thread_local bool demanglerFails = false;
}  // namespace

/// The demangler takes its memory from elsewhere; it fails when a test says so.
extern "C" __attribute__((visibility("default"))) char* __cxa_demangle(const char* name, char* buffer, std::size_t* n,
                                                                       int* status) {
  if (demanglerFails) {
    if (status != nullptr) *status = -1;
    return nullptr;
  }
  using Function = char* (*)(const char*, char*, std::size_t*, int*);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "__cxa_demangle"));
  return real(name, buffer, n, status);
}

namespace {

using Ostrel::Cache;
using Tresk::CachePtr;
using Tresk::CreativeArray;
using Tresk::CreatorPtr;
using Tresk::DynamicSize;
using Tresk::Field;
using Tresk::FieldCollection;
using Tresk::FieldPtr;
using Tresk::Fragment;
using Tresk::FragmentID;
using Tresk::FragmentIDCollectionPtr;
using Tresk::FragmentIDContainer;
using Tresk::FragmentIDPtr;
using Tresk::FunctionalCreator;
using Tresk::getTreskType;
using Tresk::MemBasePtr;
using Tresk::TreskTypePtr;
using Tresk::TypeList;
using TreskTest::EachAllocation;
using TreskTest::makeArray;

class WholeOrNotAtAllTest : public ::testing::Test {};

std::string nameOf(int i) { return "the fragment with the number " + std::to_string(i); }

struct Binding {
  FieldPtr field;
  FragmentIDPtr fragment;
  CreatorPtr creator;
  MemBasePtr data;
  Ostrel::Ageable age = field->getAge();
  unsigned long long n = field->nFragments();
};
TEST_F(WholeOrNotAtAllTest, DescriptionOfACacheIsWholeOrThrows) {
  EachAllocation each;
  const CachePtr cache(new Cache);
  cache->setLimit(8);
  const CreatorPtr creator(new FunctionalCreator([] { return makeArray(4); }, false, cache));
  const MemBasePtr held = creator->create(false);
  const auto withoutResident = [](std::string text) {
    const auto a = text.find("resident set"), b = text.find(", chunks");
    return a == text.npos || b == text.npos ? text : text.erase(a, b - a);
  };
  const std::string whole = withoutResident(cache->describe());
  each.makes(
      "describe", [&] { return cache->describe(); }, [&](const std::string& t) { return withoutResident(t) == whole; });
}

TEST_F(WholeOrNotAtAllTest, ResidentBytesAreToldOrThrow) {
  EachAllocation each;
  each.makes(
      "resident", [] { return Ostrel::getResidentBytes(); }, [](unsigned long long n) { return n > 0; });
}

TEST_F(WholeOrNotAtAllTest, NameOfATypeIsReadableOrThrows) {
  demanglerFails = true;
  std::string name;
  bool isThrown = false;
  try {
    name = Ostrel::Typename(typeid(std::string));
  } catch (const std::bad_alloc&) {
    isThrown = true;
  }
  demanglerFails = false;
  EXPECT_TRUE(isThrown) << name;
}

TEST_F(WholeOrNotAtAllTest, AssignmentOfCollectionsKeepsWhatWasThere) {
  EachAllocation each;
  const FieldPtr field(new Field);
  FieldCollection other;
  other[nameOf(1)] = field;
  other[nameOf(2)] = field;
  each.changes(
      "fields",
      [&] {
        FieldCollection c;
        c[nameOf(9)] = field;
        return std::make_unique<FieldCollection>(c);
      },
      [&](auto& c) { *c = other; }, [&](auto& c) { return (*c)(nameOf(9)) == field && !(*c)(nameOf(1)); },
      [&](auto& c) { return (*c)(nameOf(2)) == field; });
  const CreatorPtr creator = TreskTest::makeForgetful();
  Fragment fragment;
  fragment[nameOf(1)] = creator;
  fragment[nameOf(2)] = creator;
  each.changes(
      "creators",
      [&] {
        auto f = std::make_unique<Fragment>();
        (*f)[nameOf(9)] = creator;
        return f;
      },
      [&](auto& f) { *f = fragment; }, [&](auto& f) { return (*f)(nameOf(9)) == creator && !(*f)(nameOf(1)); },
      [&](auto& f) { return (*f)(nameOf(2)) == creator; });
  FragmentIDContainer ids;
  const FragmentIDPtr a(new FragmentID("a")), b(new FragmentID("b")), c(new FragmentID("c"));
  ids.addFragmentID(a);
  ids.addFragmentID(b);
  each.changes(
      "fragments",
      [&] {
        auto i = std::make_unique<FragmentIDContainer>();
        i->addFragmentID(c);
        return i;
      },
      [&](auto& i) { *i = ids; }, [&](auto& i) { return i->nFragments() == 1 && i->getFirst() == c; },
      [&](auto& i) { return i->nFragments() == 2; });
  const TypeList types = [] {
    TypeList t(getTreskType<double>());
    t.insert(getTreskType<unsigned int>());
    return t;
  }();
  each.changes(
      "types", [&] { return std::make_unique<TypeList>(getTreskType<Quorvel::PhysicalSpace::point>()); },
      [&](auto& t) { *t = types; }, [&](auto& t) { return t->nTypes() == 1 && !t->contains(typeid(double)); },
      [&](auto& t) { return t->nTypes() == 2; });
}

TEST_F(WholeOrNotAtAllTest, TypeOfACreatorIsSetOrAsBefore) {
  EachAllocation each;
  const TreskTypePtr vectors = getTreskType<Quorvel::Vector<double, 3>>();
  each.changes(
      "type", [] { return TreskTest::makeForgetful(); }, [&](const auto& p) { p->setTreskType(vectors); },
      [](const auto& p) { return !p->getTreskType(); }, [&](const auto& p) { return p->getTreskType() == vectors; });
}

TEST_F(WholeOrNotAtAllTest, CreatorIsBoundAndOwnedOrNothingHasChanged) {
  EachAllocation each;
  const auto make = [] {
    const FieldPtr f(new Field);
    return Binding{f, f->makeFragmentID(nameOf(0)), TreskTest::makeForgetful(), {}};
  };
  const auto asBefore = [](const Binding& b) {
    return b.field->nFragments() == b.n && b.field->getAge() == b.age && b.creator->nOwners() == 0;
  };
  const auto done = [](const Binding& b) {
    return b.field->getFirstCreator() == b.creator && b.creator->isOwnedBy(b.field->getSelf());
  };
  each.changes(
      "one", make, [](const Binding& b) { b.field->setCreator(b.creator, b.fragment); }, asBefore, done);
  each.changes(
      "many", make,
      [](const Binding& b) {
        b.field->setCreatorsViaFragmentIndex({{0U, b.creator}});
      },
      asBefore, done);
}

TEST_F(WholeOrNotAtAllTest, CreatorThatIsBoundElsewhereInTheFieldStaysOwnedWhenItCannotBeBoundAgain) {
  EachAllocation each;
  struct Bulk {
    FieldPtr field{new Field};
    CreatorPtr bound = TreskTest::makeForgetful();
    CreatorPtr fresh = TreskTest::makeForgetful();
    CreatorPtr replaced = TreskTest::makeForgetful();
    CreatorPtr former = TreskTest::makeForgetful();  // is bound no more, and keeps the field as an owner
    Ostrel::Ageable age = Ostrel::Ageable::Ooooold;
  };
  const auto make = [] {
    Bulk b;
    b.field->setCreatorViaFragmentIndex(3, b.former);
    b.field->setCreatorViaFragmentIndex(3, b.bound);
    for (const unsigned int number : {4U, 6U, 7U}) b.field->setCreatorViaFragmentIndex(number, b.replaced);
    b.age = b.field->getAge();
    return b;
  };
  const auto isAsBefore = [](const Bulk& b) {
    return b.field->nFragments() == 4 && b.field->getCreatorByNumericalID(3) == b.bound &&
           b.field->getCreatorByNumericalID(6) == b.replaced && b.field->getAge() == b.age &&
           b.bound->isOwnedBy(b.field->getSelf()) && b.replaced->isOwnedBy(b.field->getSelf()) &&
           b.former->isOwnedBy(b.field->getSelf()) && b.fresh->nOwners() == 0;
  };
  each.changes(
      "one", make, [](const Bulk& b) { b.field->setCreatorViaFragmentIndex(9, b.bound); }, isAsBefore,
      [](const Bulk& b) {
        return b.field->getCreatorByNumericalID(9) == b.bound && b.bound->isOwnedBy(b.field->getSelf());
      });
  each.changes(
      "many", make,
      [](const Bulk& b) {
        // One of them is new and comes twice, and takes the place of another.
        b.field->setCreatorsViaFragmentIndex(
            {{9, b.bound}, {2, b.fresh}, {6, b.fresh}, {11, CreatorPtr()}, {12, b.former}});
      },
      isAsBefore,
      [](const Bulk& b) {
        return b.field->nFragments() == 8 && b.field->getCreatorByNumericalID(9) == b.bound &&
               b.field->getCreatorByNumericalID(6) == b.fresh && b.bound->isOwnedBy(b.field->getSelf()) &&
               b.fresh->isOwnedBy(b.field->getSelf()) && b.fresh->nOwners() == 1;
      });
}

TEST_F(WholeOrNotAtAllTest, CreatorOfAFieldThatCouldNotBeMadeHasItsFormerOwnersAndItsData) {
  EachAllocation each;
  const CachePtr cache(new Cache);
  struct Shared {
    CreatorPtr creator;
    FieldPtr first;
    FieldPtr second;
    FieldPtr made;
  };
  const auto make = [&] {
    // Several owners: to tell them takes memory, when all else is done.
    Shared s;
    s.creator = CreatorPtr(new TreskTest::ForgetfulArray(makeArray(3), cache));
    s.first = FieldPtr(new Field(s.creator, FragmentIDCollectionPtr()));
    s.second = FieldPtr(new Field(s.creator, FragmentIDCollectionPtr()));
    return s;
  };
  const auto isAsBefore = [](const Shared& s) {
    return !s.made && s.creator->nOwners() == 2 && s.creator->isOwnedBy(s.first->getSelf()) &&
           s.creator->isOwnedBy(s.second->getSelf()) && s.creator->hasData();
  };
  const auto isMade = [](const Shared& s) {
    return s.made->getFirstCreator() == s.creator && s.creator->nOwners() == 3 && s.creator->hasData();
  };
  each.changes(
      "on a collection", make, [](Shared& s) { s.made = FieldPtr(new Field(s.creator, FragmentIDCollectionPtr())); },
      isAsBefore, isMade);
  each.changes(
      "sibling", make, [](Shared& s) { s.made = FieldPtr(new Field(s.creator, Tresk::FieldWeakPtr(s.first))); },
      isAsBefore, isMade);
}

TEST_F(WholeOrNotAtAllTest, CreatorThatAnotherThreadFailsToBindIsOwnedAllTheSame) {
  for (int i = 0; i < 4000; ++i) {
    const FieldPtr field(new Field);
    for (unsigned int number = 0; number < 4; ++number) field->setCreatorViaFragmentIndex(number, CreatorPtr());
    const CreatorPtr creator = TreskTest::makeForgetful();
    int nFailed = 0;
    TreskTest::RaceRunner race;
    race.add([&](int) { field->setCreatorViaFragmentIndex(0, creator); });
    race.add([&](int) {
      const Tresk::fragment_copy_t entries = {{9U, creator}};  // the table has no room for a fifth
      const TreskTest::FailingAllocation failing(i / 2 % 8, TreskTest::FailingAllocation::Kind::FromThereOn);
      try {
        if (i % 2 == 0)
          field->setCreatorsViaFragmentIndex(entries);
        else
          field->setCreatorViaFragmentIndex(9, creator);
      } catch (const std::bad_alloc&) {
        TreskTest::FailingAllocation::end();
        ++nFailed;
      }
      TreskTest::FailingAllocation::end();
    });
    race.run();
    EXPECT_EQ(field->getCreatorByNumericalID(0), creator);
    EXPECT_TRUE(creator->isOwnedBy(field->getSelf())) << "round " << i << ", failures " << nFailed;
  }
}

TEST_F(WholeOrNotAtAllTest, CreatorThatAnotherThreadFailsToBindWithManyOthersIsOwnedAllTheSame) {
  // There is much to enter and to bind after the creator itself, so that the threads do come in between.
  const auto makeMany = [](unsigned int first, unsigned int n, const CreatorPtr& creator, unsigned int number) {
    Tresk::fragment_copy_t entries = {{number, creator}};
    for (unsigned int i = 0; i < n; ++i) entries.emplace_back(first + i, TreskTest::makeForgetful());
    return entries;
  };
  for (const bool bindsMany : {false, true}) {
    for (int i = 0; i < 10; ++i) {
      const FieldPtr field(new Field);
      field->setCreatorViaFragmentIndex(0, CreatorPtr());
      const CreatorPtr creator = TreskTest::makeForgetful();
      const Tresk::fragment_copy_t failing = makeMany(1000, 2000, creator, 999);
      const Tresk::fragment_copy_t binding = makeMany(10000, bindsMany ? 8000 : 0, creator, 0);
      std::atomic<bool> hasFailed{false};
      TreskTest::RaceRunner race;
      race.add([&](int) {
        while (!creator->isOwnedBy(field->getSelf()) && !hasFailed.load()) std::this_thread::yield();
        if (bindsMany)
          field->setCreatorsViaFragmentIndex(binding);
        else
          field->setCreatorViaFragmentIndex(0, creator);
      });
      race.add([&](int) {
        // Beside the small ones there are an order, a place for former creators and for those that enter; then the
        // table grows.
        const TreskTest::FailingAllocation failure(3, TreskTest::FailingAllocation::Kind::FromThereOn, 4096);
        try {
          field->setCreatorsViaFragmentIndex(failing);
        } catch (const std::bad_alloc&) {
          hasFailed = true;
        }
        TreskTest::FailingAllocation::end();
      });
      race.run();
      EXPECT_TRUE(hasFailed);
      EXPECT_EQ(field->getCreatorByNumericalID(0), creator);
      EXPECT_FALSE(field->getCreatorByNumericalID(999));
      EXPECT_TRUE(creator->isOwnedBy(field->getSelf())) << "round " << i << ", many " << bindsMany;
      EXPECT_EQ(failing.back().second->nOwners(), 0U);
      EXPECT_TRUE(binding.back().second->isOwnedBy(field->getSelf()));
    }
  }
}

TEST_F(WholeOrNotAtAllTest, DataKeepTheirCreatorWhenAnotherCannotBeMade) {
  EachAllocation each;
  const CachePtr cache(new Cache);
  struct S {
    CreatorPtr former;
    MemBasePtr data;
    CreatorPtr next;
    FieldPtr field{new Field};
  };
  const auto make = [&] {
    const MemBasePtr d = makeArray(3);
    return S{CreatorPtr(new TreskTest::ForgetfulArray(d, cache)), d, {}};
  };
  each.changes(
      "creator", make, [&](S& s) { s.next = CreatorPtr(new CreativeArray(s.data, cache)); },
      [](const S& s) { return s.data->getCreator() == s.former; },
      [](const S& s) { return s.data->getCreator() == s.next; });
  each.changes(
      "field", make, [&](S& s) { s.field->setPersistentData(s.data, FragmentIDPtr(), cache, "x"); },
      [](const S& s) {
        return s.data->getCreator() == s.former ? s.field->nFragments() == 0
                                                : s.data->getCreator() == s.field->getFirstCreator();
      },
      [](const S& s) { return s.data->getCreator() == s.field->getFirstCreator(); });
  each.changes(
      "discardable", make, [&](S& s) { s.field->setDiscardableData(s.data, cache, FragmentIDPtr()); },
      [](const S& s) { return s.data->getCreator() == s.former && s.field->nFragments() == 0; },
      [](const S& s) { return s.data->getCreator() == s.field->getFirstCreator(); });
  for (const auto kind : {Field::PersistentCreatorAlternative, Field::DiscardableCreatorAlternative}) {
    each.changes(
        "creator of the kind " + std::to_string(kind), make,
        [&](S& s) { s.field->createCreator(s.data, nameOf(0), kind, Tresk::CacheWeakPtr(cache)); },
        [](const S& s) {
          return s.data->getCreator() == s.former && s.field->nFragments() == 0 && s.former->getData() == s.data;
        },
        [](const S& s) {
          return s.data->getCreator() == s.field->getFirstCreator() && s.field->getFirstData() == s.data;
        });
  }
}

}  // namespace
