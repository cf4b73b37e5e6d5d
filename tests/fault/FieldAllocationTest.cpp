// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FragmentIterator.hpp>
#include <tresk/field/FragmentSelector.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/foundation/Cache.hpp>
#include <tresk/foundation/SaveRegistry.hpp>

#include <support/FieldDoubles.hpp>

#include <gtest/gtest.h>

#include "EachAllocation.hpp"

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Tresk;
using Ostrel::Ageable;
using TreskTest::EachAllocation;
using TreskTest::makeArray;
using TreskTest::unnamed;

MemBasePtr makeThree() { return makeArray(3, 1.5); }
std::string nameOf(int i) { return "the fragment with the number " + std::to_string(i); }

/// A field of some fragments, each with a creator that makes its data on demand.
class FieldAllocationTest : public ::testing::Test {
 protected:
  ~FieldAllocationTest() override {
    EXPECT_EQ(cache->getStatistics().nHeldBytes, 0U);
    EXPECT_EQ(cache->nCreatures(), 0U);
  }

  CreatorPtr makeCreator() const {
    const CreatorPtr creator(new FunctionalCreator(makeThree, false, cache));
    creator->addMetaInfo(DynamicSize{3}, getTreskType<double>());
    return creator;
  }
  /// Fills a field that has just been made.
  FieldPtr fill(const FieldPtr& field, int nFragments) const {
    for (int i = 0; i < nFragments; ++i) {
      const FragmentIDPtr fragment = field->makeFragmentID(nameOf(i));
      field->setCreator(makeCreator(), fragment);
    }
    return field;
  }
  FieldPtr makeField(int nFragments) const { return fill(FieldPtr(new Field), nFragments); }

  EachAllocation each;
  const CachePtr cache{new Ostrel::Cache};
};

/// A field and what is to be bound in it.
struct Binding {
  FieldPtr field;
  FragmentIDPtr fragment;
  CreatorPtr creator;
  MemBasePtr data;
  Ageable age = field->getAge();
  unsigned long long nFragments = field->nFragments();
};
/// The table is as it was, in its entries and in its age.
bool isTableAsBefore(const Binding& b) {
  return b.field->nFragments() == b.nFragments && b.field->getAge() == b.age && !b.field->getCreator(b.fragment);
}

TEST_F(FieldAllocationTest, FieldsOfDataAreMadeOrTheDataKeepTheirCreator) {
  const FragmentIDCollectionPtr collection(new FragmentIDCollection);
  const FieldPtr sibling(new Field(collection));
  const CachePtr books(new Ostrel::Cache);
  struct Owned {
    CreatorPtr former;
    MemBasePtr data;
    FieldPtr field;
  };
  const auto make = [&] {
    const MemBasePtr data = TreskTest::makeArray(3, 1.5);
    return Owned{CreatorPtr(new TreskTest::ForgetfulArray(data, books)), data, {}};
  };
  const auto asBefore = [&](const Owned& o) {
    return !o.field && o.data->getCreator() == o.former && o.former->getData() == o.data &&
           books->getStatistics().nHeldBytes == 24;
  };
  const auto isFirst = [](const Owned& o) {
    const CreatorPtr creator = o.field->getFirstCreator();
    return o.data->getCreator() == creator && creator->isOwnedBy(o.field->getSelf()) && getSize(*creator)->str() == "3";
  };
  each.changes(
      "data, cache and collection", make, [&](Owned& o) { o.field = FieldPtr(new Field(o.data, books, collection)); },
      asBefore, isFirst);
  each.changes(
      "data and sibling", make, [&](Owned& o) { o.field = FieldPtr(new Field(o.data, FieldWeakPtr(sibling))); },
      asBefore, isFirst);
  each.makes(
      "no data", [&] { return FieldPtr(new Field(MemBasePtr(), collection)); },
      [](const FieldPtr& p) { return p->nFragments() == 0; });
}

TEST_F(FieldAllocationTest, FieldsAreMadeOrNot) {
  const FragmentIDCollectionPtr collection(new FragmentIDCollection);
  collection->makeFragmentID(nameOf(0));
  const FieldPtr sibling(new Field(collection));
  const FragmentIDCollectionProvider& provider = *sibling;
  const auto isOnCollection = [&](const FieldPtr& p) { return p->getFragmentIDCollection() == collection; };
  each.makes(
      "own collection", [] { return FieldPtr(new Field); },
      [](const FieldPtr& p) { return p->getFragmentIDs().empty(); });
  each.makes(
      "collection", [&] { return FieldPtr(new Field(collection)); }, isOnCollection);
  each.makes(
      "provider", [&] { return FieldPtr(new Field(provider)); }, isOnCollection);
  each.makes(
      "sibling", [&] { return FieldPtr(new Field(FieldWeakPtr(sibling))); }, isOnCollection);
  // Owners stay among those of a creator when they have gone: each attempt has a creator of its own.
  struct Owned {
    CreatorPtr creator;
    FieldPtr field;
  };
  const auto make = [&] { return Owned{makeCreator(), {}}; };
  const auto isAlone = [](const Owned& o) { return !o.field && o.creator.strongCount() == 1; };
  const auto isFirst = [&](const Owned& o) {
    return isOnCollection(o.field) && o.field->nFragments() == 1 && o.field->getFirstCreator() == o.creator &&
           o.creator->isOwnedBy(o.field->getSelf()) && o.creator->create(false);
  };
  each.changes(
      "creator and sibling", make, [&](Owned& o) { o.field = FieldPtr(new Field(o.creator, FieldWeakPtr(sibling))); },
      isAlone, isFirst);
  each.changes(
      "creator and provider", make, [&](Owned& o) { o.field = FieldPtr(new Field(o.creator, provider)); }, isAlone,
      isFirst);
  each.changes(
      "creator and collection", make, [&](Owned& o) { o.field = FieldPtr(new Field(o.creator, collection)); }, isAlone,
      isFirst);
}

TEST_F(FieldAllocationTest, FragmentsAreNumberedOrNot) {
  struct Naming {
    FieldPtr field{new Field(FragmentIDCollectionPtr())};
    FragmentIDPtr fragment{new FragmentID(nameOf(1))};
  };
  each.changes(
      "name", [] { return Naming(); }, [](const Naming& n) { n.field->makeFragmentID(nameOf(1)); },
      [](const Naming& n) { return n.field->getFragmentIDs().empty() && !n.field->getFragmentID(nameOf(1)); },
      [](const Naming& n) { return n.field->getFragmentID(nameOf(1))->getNumericalID() == 0; });
  each.changes(
      "fragment", [] { return Naming(); }, [](const Naming& n) { EXPECT_EQ(n.field->getNumericalID(n.fragment), 0U); },
      [](const Naming& n) { return n.field->getFragmentIDs().empty() && !n.fragment->getOwner(); },
      [](const Naming& n) {
        return n.field->getFragmentIDs().size() == 1 && n.fragment->getOwner() == n.field->getFragmentIDCollection();
      });
  each.changes(
      "unnamed fragment", [] { return Naming(); },
      [](const Naming& n) { EXPECT_EQ(n.field->getNumericalID(unnamed()), 0U); },
      [](const Naming& n) { return n.field->getFragmentIDs().empty(); },
      [](const Naming& n) { return n.field->getFragmentIDs().size() == 1; });
  const FieldPtr field = makeField(5);
  const std::string known = nameOf(3);
  const std::string unknown = nameOf(9);
  const FragmentIDPtr fragment = field->getFragmentID(known);
  each.needsNone("lookups", [&] {
    return field->findNumericalIDByName(known) == 3 && field->findNumericalID(fragment) == 3 &&
           field->findNumericalIDByName(unknown) == FragmentIDCollection::NoNumber && !field->getFragmentID(unknown) &&
           field->getNumericalID(fragment) == 3 && field->makeFragmentID(known) == fragment && field->validate(4) &&
           field->getFragmentIDs().size() == 5 && field->getFirstFragmentID()->getNumericalID() == 0;
  });
  each.needsNone("creators", [&] {
    return field->getCreator(fragment) && field->getCreatorByNumericalID(3) && field->getCreatorByName(known) &&
           field->getCreatorByNameF(known).second == fragment && field->getCompatibleCreatorF(fragment).first &&
           field->getFirstCreator() && !field->getCreatorByName(unknown) && field->nFragments() == 5 &&
           field->getCreatorReferenceViaFragmentIndex(3).isValid();
  });
}

TEST_F(FieldAllocationTest, CreatorsAreBoundOrThrow) {
  const auto isBound = [](const Binding& b) {
    return b.field->getCreator(b.fragment) == b.creator && b.creator->isOwnedBy(b.field->getSelf()) &&
           b.field->getAge() > b.age;
  };
  const auto isBoundOrNot = [](const Binding& b) {
    const CreatorPtr present = b.field->getCreator(b.fragment);
    return !present && b.field->nFragments() == b.nFragments && !b.creator->isOwnedBy(b.field->getSelf());
  };
  for (const int nBefore : {0, 4, 8}) {
    const auto make = [&, nBefore] {
      const FieldPtr field = makeField(nBefore);
      return Binding{field, field->makeFragmentID(nameOf(nBefore)), makeCreator(), {}};
    };
    const std::string beside = " beside " + std::to_string(nBefore);
    each.changes(
        "creator" + beside, make, [](const Binding& b) { b.field->setCreator(b.creator, b.fragment); }, isBoundOrNot,
        isBound);
    each.changes(
        "creator by number" + beside, make,
        [&](const Binding& b) { b.field->setCreatorViaFragmentIndex(b.fragment->getNumericalID(), b.creator); },
        isBoundOrNot, isBound);
    each.changes(
        "slot" + beside, make,
        [](const Binding& b) {
          b.field->getCreatorReferenceViaFragmentIndex(b.fragment->getNumericalID()) = b.creator;
        },
        isTableAsBefore, [](const Binding& b) { return b.field->getCreator(b.fragment) == b.creator; });
  }
  each.changes(
      "unnamed fragment",
      [&] {
        return Binding{FieldPtr(new Field), unnamed(), makeCreator(), {}};
      },
      [](const Binding& b) { b.field->setCreator(b.creator, b.fragment); }, isBoundOrNot, isBound);
  each.changes(
      "reservation",
      [&] {
        return Binding{makeField(2), {}, {}, {}};
      },
      [](const Binding& b) { b.field->reserve_fragments(100); },
      [](const Binding& b) { return b.field->nFragments() == 2; },
      [](const Binding& b) { return b.field->nFragments() == 2 && b.field->getFirstCreator(); });
}

TEST_F(FieldAllocationTest, CreatorsInPlaceOfOthersAreBoundOrThrow) {
  each.changes(
      "creator",
      [&] {
        const FieldPtr field = makeField(3);
        return Binding{field, field->getFragmentID(nameOf(1)), makeCreator(), {}};
      },
      [](const Binding& b) { b.field->setCreator(b.creator, b.fragment); },
      [](const Binding& b) { return b.field->nFragments() == 3 && b.field->getCreator(b.fragment); },
      [](const Binding& b) {
        return b.field->getCreator(b.fragment) == b.creator && b.creator->isOwnedBy(b.field->getSelf());
      });
}

struct Bulk {
  FieldPtr field;
  fragment_copy_t entries;
};

TEST_F(FieldAllocationTest, ManyCreatorsAreAllInTheTableOrNone) {
  const auto make = [&](std::vector<std::uint32_t> numbers) {
    return [this, numbers] {
      Bulk bulk{makeField(4), {}};
      for (const std::uint32_t number : numbers) bulk.entries.emplace_back(number, makeCreator());
      return bulk;
    };
  };
  const auto nBound = [](const Bulk& b) {
    std::size_t n = 0;
    for (const auto& [number, creator] : b.entries)
      if (b.field->getCreatorByNumericalID(number) == creator) ++n;
    return n;
  };
  const auto isAllOrNone = [&](const Bulk& b) { return nBound(b) == 0 || nBound(b) == b.entries.size(); };
  const auto areOwned = [&](const Bulk& b) {
    for (const auto& [number, creator] : b.entries)
      if (!creator->isOwnedBy(b.field->getSelf())) return false;
    return nBound(b) == b.entries.size();
  };
  const auto bind = [](const Bulk& b) { b.field->setCreatorsViaFragmentIndex(b.entries); };
  each.changes("at the end", make({7, 8, 9, 12}), bind, isAllOrNone, areOwned);
  each.changes("in between", make({3, 40, 1, 10}), bind, isAllOrNone, areOwned);
  each.changes("in place of others", make({2, 0, 1}), bind, isAllOrNone, areOwned);
}

TEST_F(FieldAllocationTest, DataAreBoundOrThrow) {
  // The fragment may have got its number, and the creator of the attempt may be in the table.
  const auto make = [&] {
    const FieldPtr field = makeField(3);
    return Binding{field, field->makeFragmentID(nameOf(7)), {}, makeThree()};
  };
  const auto isAliveAndWell = [](const Binding& b) {
    const CreatorPtr present = b.field->getCreator(b.fragment);
    return b.data->nElements() == 3 && (!present || present->getData() == b.data) && b.field->nFragments() <= 4 &&
           b.field->getDataByNumericalID(2).isValid();
  };
  const auto isBound = [](const Binding& b) {
    const CreatorPtr creator = b.field->getCreator(b.fragment);
    return creator && creator->getData() == b.data && b.data->getCreator() == creator && b.data->isOnCacheList() &&
           creator->isOwnedBy(b.field->getSelf()) && getSize(*creator)->str() == "3" &&
           creator->getTreskType() == getTreskType<double>();
  };
  each.changes(
      "data that are kept", make,
      [&](const Binding& b) { b.field->setPersistentData(b.data, b.fragment, cache, std::string()); }, isAliveAndWell,
      [&](const Binding& b) { return isBound(b) && !b.data->getDescription().empty(); });
  each.changes(
      "data with a history", make,
      [&](const Binding& b) { b.field->setPersistentData(b.data, b.fragment, cache, nameOf(5)); }, isAliveAndWell,
      [&](const Binding& b) { return isBound(b) && b.field->getCreator(b.fragment)->getProvenances().size() == 1; });
  each.changes(
      "data that may be forgotten", make,
      [&](const Binding& b) { b.field->setDiscardableData(b.data, cache, b.fragment); }, isAliveAndWell, isBound);
  for (const auto alternative : {Field::PersistentCreatorAlternative, Field::DiscardableCreatorAlternative}) {
    each.changes(
        "creator for data", make,
        [&](const Binding& b) {
          EXPECT_TRUE(b.field->createCreator(b.data, b.fragment, alternative, CacheWeakPtr(cache)));
        },
        isAliveAndWell, isBound);
    each.changes(
        "creator for data by name", make,
        [&](const Binding& b) {
          EXPECT_TRUE(b.field->createCreator(b.data, nameOf(7), alternative, CacheWeakPtr(cache)));
        },
        isAliveAndWell, isBound);
  }
}

TEST_F(FieldAllocationTest, DataAreFetchedOrThrow) {
  struct Fetch {
    FieldPtr field;
    MemBasePtr data;
  };
  const auto make = [&] { return Fetch{makeField(2), {}}; };
  const auto isEmpty = [](const Fetch& f) { return !f.data && !f.field->getFirstCreator()->hasData(); };
  const auto isFetched = [](const Fetch& f) { return f.data && f.field->getFirstCreator()->getData() == f.data; };
  each.changes(
      "by fragment", make, [](Fetch& f) { f.data = f.field->getData(f.field->getFragmentIDs()[0]); }, isEmpty,
      isFetched);
  each.changes(
      "by number", make, [](Fetch& f) { f.data = f.field->getDataByNumericalID(0); }, isEmpty, isFetched);
  each.changes(
      "first", make, [](Fetch& f) { f.data = f.field->getFirstData(); }, isEmpty, isFetched);
  const Fetch held = make();
  const MemBasePtr data = held.field->getFirstData();
  each.needsNone("held data", [&] { return held.field->getDataByNumericalID(0) == data; });
}

TEST_F(FieldAllocationTest, FieldsSpeakWithoutMemory) {
  const FieldPtr field = makeField(3);
  testing::internal::CaptureStdout();
  std::printf("\n");  // the stream has its buffer
  each.needsNone("field", [&] {
    field->Speak(2, 0);
    return true;
  });
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n  3 Fragments\n  3 Fragments\n  3 Fragments\n");
}

TEST_F(FieldAllocationTest, QuestionsAreAnsweredOrThrow) {
  const FieldPtr field = makeField(3);
  const FieldPtr other(new Field(FieldWeakPtr(field)));
  each.needsNone("what creators tell", [&] {
    return field->getProperties()->getRank() == 1 && field->Dims() == 1 && field->getElementTreskType() &&
           field->getElementType() == typeid(double) && field->getFieldStorageType() == typeid(std::nullptr_t) &&
           field->isCompatible(*other) && !field->isUnfragmented();
  });
  each.needsNone("ages", [&] {
    return field->getMostRecentCreatorAge() == Ageable::now() && field->getMostRecentAttributeAge() == Ageable::now() &&
           field->hasFragmentsNewerThan(Ageable::Ooooold);
  });
  unsigned long long inMemory = 0;
  unsigned long long fullSize = 0;
  each.needsNone("memory usage", [&] {
    inMemory = fullSize = 0;
    return field->getMemoryUsage(inMemory, fullSize) == 0 && fullSize == 72;
  });
  each.changes(
      "size", [&] { return std::make_pair(makeField(3), SizePtr()); },
      [](auto& pair) { pair.second = pair.first->getSize(); },
      [](const auto& pair) { return !pair.second && !Ostrel::findInterface<SizeInterface>(*pair.first); },
      [](const auto& pair) { return pair.second->str() == "9" && pair.first->getSize()->str() == "9"; });
  // Sizes that are asked of held data are remembered one by one.
  const auto makeHolding = [&] {
    const FieldPtr holding(new Field);
    for (int i = 0; i < 2; ++i) {
      const FragmentIDPtr fragment = holding->makeFragmentID(nameOf(i));
      holding->setCreator(CreatorPtr(new TreskTest::ForgetfulArray(makeThree(), cache)), fragment);
    }
    return holding;
  };
  each.changes(
      "compatibility", [&] { return std::make_pair(makeHolding(), false); },
      [&](auto& pair) { pair.second = pair.first->isCompatible(*field); },
      [](const auto& pair) { return !pair.second; }, [](const auto& pair) { return pair.second; });
  each.changes(
      "rank", [&] { return std::make_pair(makeHolding(), 0); }, [](auto& pair) { pair.second = pair.first->Dims(); },
      [](const auto& pair) { return pair.second == 0; }, [](const auto& pair) { return pair.second == 1; });
  const std::string text = field->xml();
  each.makes(
      "text", [&] { return field->xml(); }, [&](const std::string& made) { return made == text; });
  const FragmentIDCollectionPtr collection = field->getFragmentIDCollection();
  const std::string names = collection->xml();
  each.makes(
      "text of the collection", [&] { return collection->xml(); },
      [&](const std::string& made) { return made == names; });
}

/// A walk that counts.
class CountingIterator : public FragmentIterator {
 public:
  bool apply(const FragmentIDPtr&, const CreatorPtr&) override { return ++n > 0; }
  int n = 0;
};
class CountingIndexIterator : public FragmentIndexIterator {
 public:
  bool apply(unsigned int, const CreatorPtr&) override { return ++n > 0; }
  int n = 0;
};
class EverySecond : public FragmentSelector {
 public:
  bool isSelected(const CreativeArrayBase&, FragmentIDPtr fragment) override {
    return fragment->getNumericalID() % 2 == 0;
  }
};

TEST_F(FieldAllocationTest, WalksVisitAllOrThrow) {
  const FieldPtr field = makeField(6);
  const FieldPtr unnumbered(new Field(makeCreator(), FragmentIDCollectionPtr(new FragmentIDCollection)));
  const FragmentSelectorPtr selector(new EverySecond);
  std::atomic<unsigned int> nVisits{0};
  const Field::FragmentFunction count = [&nVisits](const FragmentIDPtr&, const CreatorPtr&) {
    ++nVisits;
    return true;
  };
  const auto visitAll = [&](bool parallel, bool snapshot) {
    return [&, parallel, snapshot] {
      nVisits = 0;
      return field->iterate(count, parallel, snapshot) == 6 && nVisits == 6;
    };
  };
  const auto isTrue = [](bool answer) { return answer; };
  each.needsNone("under the lock", visitAll(false, false));
  each.makes("over a copy", visitAll(false, true), isTrue);
  each.makes("side by side", visitAll(true, false), isTrue);
  each.makes("side by side over a copy", visitAll(true, true), isTrue);
  each.makes(
      "iterator and selector",
      [&] {
        CountingIterator iterator;
        return field->iterate(iterator, selector) == 3 && iterator.n == 3;
      },
      isTrue);
  each.makes(
      "iterator of numbers over a copy",
      [&] {
        CountingIndexIterator iterator;
        return field->iterate(iterator, selector, true) == 3 && iterator.n == 3;
      },
      isTrue);
  each.needsNone("iterator of numbers", [&] {
    CountingIndexIterator iterator;
    return field->iterate(iterator, selector, false) == 3;
  });
  each.makes(
      "selector", [] { return FragmentSelectorPtr(new EverySecond); },
      [](const FragmentSelectorPtr& p) { return p.isValid(); });
}

TEST_F(FieldAllocationTest, FieldsAreClearedOfCreatorsThatCallNobodyWithoutMemory) {
  const FieldPtr field = makeField(4);
  field->getFirstData();
  each.needsNone("clearing", [&] {
    field->clear();
    return field->nFragments() == 0;
  });
  FieldPtr dying = makeField(4);
  each.needsNone("the end", [&] {
    dying.reset();
    return true;
  });
}

TEST_F(FieldAllocationTest, FieldsThatSaveAreClearedOrAreAsBefore) {
  const auto make = [&] {
    const FieldPtr field = makeField(1);
    field->setPersistentData(makeThree(), field->makeFragmentID(nameOf(1)), cache, std::string());
    return std::make_unique<FieldPtr>(field);
  };
  each.changes(
      "clearing", make, [](const auto& field) { (*field)->clear(); },
      [](const auto& field) { return (*field)->nFragments() == 2; },
      [](const auto& field) { return (*field)->nFragments() == 0; });
}

TEST_F(FieldAllocationTest, FieldsHaveOwnersOrNot) {
  struct Owning {
    FieldPtr field{new Field};
    TreskTest::OwnerPtr<TreskTest::FieldOwner> owner = TreskTest::makeOwner<TreskTest::FieldOwner>();
  };
  each.changes(
      "entry", [] { return Owning(); }, [](const Owning& o) { o.field->addOwner(o.owner); },
      [](const Owning& o) { return o.field->nOwners() == 0; },
      [](const Owning& o) { return o.field->isOwnedBy(o.owner); });
  each.changes(
      "question",
      [] {
        Owning o;
        o.field->addOwner(o.owner);
        return o;
      },
      [](const Owning& o) {
        Ostrel::Intercube question;
        EXPECT_TRUE(o.field->processOwnership(question, question));
      },
      [](const Owning& o) { return o.owner->nQuestions == 0; },
      [](const Owning& o) { return o.owner->nQuestions >= 1; });
}

/// Attaches a name to each new field.
class FieldNamer : public Ostrel::SaveInterfaceCreator<Field> {
 public:
  class Name : public Ostrel::Interface<Name> {};
  long long createInterface(Field* field) override {
    field->addInterface(Ostrel::StrongPtr<Ostrel::InterfaceBase, Ostrel::InterfaceBase>(new Name));
    return 1;
  }
};

TEST_F(FieldAllocationTest, FieldsThatAreOfferedToSaversAreMadeOrNot) {
  const Ostrel::StrongPtr<Ostrel::SaveInterfaceCreatorBase, Ostrel::SaveInterfaceCreatorBase> namer(new FieldNamer);
  ASSERT_TRUE(Ostrel::SaveRegistryBase::registerCreator(typeid(Field), namer));
  each.makes(
      "field", [] { return FieldPtr(new Field); },
      [](const FieldPtr& p) { return Ostrel::findInterface<FieldNamer::Name>(*p).isValid(); });
  Ostrel::SaveRegistryBase::unregisterCreator(typeid(Field), namer);
}

TEST_F(FieldAllocationTest, SampleOfAFieldIsBuiltOrThrows) {
  each.changes(
      "sample", [] { return FieldPtr(new Field); },
      [](const FieldPtr& field) { EXPECT_TRUE(fieldSyntaxCheck(*field)); },
      [](const FieldPtr& field) { return field->nFragments() <= 3; },
      [](const FieldPtr& field) { return field->getFragmentIDs().size() == 3; });
}

}  // namespace
