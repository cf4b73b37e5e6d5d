// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/BaseSpace.hpp>
#include <tresk/field/ComputationalField.hpp>
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/FieldCollection.hpp>
#include <tresk/field/Fragment.hpp>
#include <tresk/field/FragmentIDCollection.hpp>
#include <tresk/field/FragmentIDContainer.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemoryLedger.hpp>
#include <tresk/field/RegularlyFragmentedField.hpp>
#include <tresk/foundation/Cache.hpp>

#include <support/FieldDoubles.hpp>
#include <support/NameArray.hpp>

#include <gtest/gtest.h>

#include "EachAllocation.hpp"

#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Tresk;
using TreskTest::EachAllocation;
using TreskTest::makeArray;

MemBasePtr makeThree() { return makeArray(3, 1.5); }
std::string nameOf(int i) { return "the fragment with the number " + std::to_string(i); }

FragmentIDCollectionPtr makeCollection(int nFragments) {
  FragmentIDCollectionPtr collection(new FragmentIDCollection);
  for (int i = 0; i < nFragments; ++i) collection->makeFragmentID(nameOf(i));
  return collection;
}

TEST(FragmentAllocationTest, FragmentsAreMadeOrNot) {
  EachAllocation each;
  FragmentIDContainer container;
  each.makes(
      "fragment", [] { return FragmentIDPtr(new FragmentID(nameOf(1))); },
      [](const FragmentIDPtr& p) { return p->getName() == nameOf(1); });
  each.makes(
      "fragment of a container", [&] { return container.createFragmentID(nameOf(1)); },
      [](const FragmentIDPtr& p) { return p->getName() == nameOf(1); });
  const FragmentIDPtr fragment(new FragmentID(nameOf(1)));
  each.makes(
      "text", [&] { return fragment->xml(); },
      [](const std::string& text) {
        return text == "\t     <NUMERICALID>0</NUMERICALID>\n\t     <NAME>" + nameOf(1) + "</NAME>\n";
      });
  each.changes(
      "entry", [] { return FragmentIDContainer(); },
      [&](FragmentIDContainer& c) { EXPECT_TRUE(c.addFragmentID(fragment)); },
      [](const FragmentIDContainer& c) { return c.nFragments() == 0; },
      [&](const FragmentIDContainer& c) { return c.getFirst() == fragment; });
  container.addFragmentID(fragment);
  each.makes(
      "copy", [&] { return std::make_unique<FragmentIDContainer>(container); },
      [&](const auto& copy) { return copy->getFirst() == fragment; });
}

TEST(FragmentAllocationTest, CollectionsAreMadeOrNot) {
  EachAllocation each;
  const TreskTest::NameArrayPtr names = TreskTest::makeNames({2, 2}, {nameOf(0), nameOf(1), nameOf(2), nameOf(3)});
  each.makes(
      "empty", [] { return makeCollection(0); }, [](const auto& p) { return p->nFragmentIDs() == 0; });
  each.makes(
      "names", [&] { return FragmentIDCollectionPtr(new FragmentIDCollection(names)); },
      [](const auto& p) {
        return p->findNumericalIDByName(nameOf(3)) == 3 && p->getShape().str() == "2x2" &&
               p->findFragmentID(3)->getOwner() == p;
      });
  const FragmentIDCollectionPtr fixed(new FragmentIDCollection(names));
  each.makes(
      "array of fragments", [&] { return fixed->getFragmentIDArray(); },
      [&](const auto& p) { return p->first() == fixed->findFragmentID(0) && p->nElements() == 4; });
  const FieldPtr field(new Field(fixed));
  each.makes(
      "array of fragments of a field", [&] { return field->newFragmentationArray(); },
      [](const MemBasePtr& p) { return p->getElementString(2) == "[\"" + nameOf(2) + "\"]"; });
  each.makes(
      "field on a shape", [&] { return FieldPtr(new Field(fixed)); },
      [&](const FieldPtr& p) { return p->getFragmentIDCollection() == fixed; });
}

/// A collection, and what is to enter it.
struct Numbering {
  FragmentIDCollectionPtr collection;
  FragmentIDPtr fragment;
  MemBasePtr array;  ///< shows the present storage
  unsigned long long nFragments = collection->nFragmentIDs();
};

TEST(FragmentAllocationTest, CollectionsNumberAFragmentOrAreAsBefore) {
  EachAllocation each;
  for (const int nBefore : {0, 4, 8}) {
    const auto make = [nBefore] {
      return Numbering{makeCollection(nBefore), FragmentIDPtr(new FragmentID(nameOf(nBefore))), {}};
    };
    const auto isAsBefore = [nBefore](const Numbering& n) {
      return n.collection->nFragmentIDs() == n.nFragments && !n.fragment->getOwner() &&
             n.collection->findNumericalIDByName(nameOf(nBefore)) == FragmentIDCollection::NoNumber &&
             n.collection->iterate([](const FragmentIDPtr& f, int, const std::string&) { return f.isValid(); }) ==
                 n.nFragments;
    };
    const auto isIn = [nBefore](const Numbering& n) {
      const auto number = static_cast<unsigned int>(nBefore);
      return n.collection->nFragmentIDs() == n.nFragments + 1 &&
             n.collection->findNumericalIDByName(nameOf(nBefore)) == number &&
             n.collection->findFragmentID(number)->getNumericalID() == number;
    };
    const std::string beside = " beside " + std::to_string(nBefore);
    each.changes(
        "name" + beside, make, [=](const Numbering& n) { n.collection->makeFragmentID(nameOf(nBefore)); }, isAsBefore,
        isIn);
    each.changes(
        "fragment" + beside, make, [](const Numbering& n) { n.collection->getID(n.fragment); }, isAsBefore,
        [&](const Numbering& n) { return isIn(n) && n.fragment->getOwner() == n.collection; });
    if (nBefore % 4 != 0 || nBefore == 0) continue;
    each.changes(
        "unnamed fragment" + beside, make, [](const Numbering& n) { n.collection->getID(FragmentIDPtr()); }, isAsBefore,
        [](const Numbering& n) { return n.collection->nFragmentIDs() == n.nFragments + 1; });
    each.changes(
        "room" + beside, make, [](const Numbering& n) { n.collection->reserve(100); }, isAsBefore, isAsBefore);
  }
}

TEST(FragmentAllocationTest, ShownStorageStaysAsItIsWhenACollectionGrows) {
  EachAllocation each;
  const TreskTest::NameArrayPtr names = TreskTest::makeNames({4}, {nameOf(0), nameOf(1), nameOf(2), nameOf(3)});
  each.changes(
      "name",
      [&] {
        const FragmentIDCollectionPtr collection(new FragmentIDCollection(names));
        return Numbering{collection, {}, MemBasePtr(collection->getFragmentIDArray())};
      },
      [](const Numbering& n) { n.collection->makeFragmentID(nameOf(4)); },
      [](const Numbering& n) { return n.collection->nFragmentIDs() == 4 && n.array->getChunk()->size() == 4; },
      [](const Numbering& n) { return n.collection->nFragmentIDs() == 5 && n.array->getChunk()->size() == 4; });
}

TEST(FragmentAllocationTest, KnownFragmentsAreFoundWithoutMemory) {
  EachAllocation each;
  const FragmentIDCollectionPtr collection = makeCollection(5);
  const std::string known = nameOf(3);
  const std::string unknown = nameOf(7);
  const FragmentIDPtr stranger(new FragmentID(known));
  const auto all = [](const FragmentIDPtr&, int, const std::string&) { return true; };
  each.needsNone("lookups", [&] {
    const FragmentIDPtr fragment = collection->findFragmentIDByName(known);
    return collection->findID(fragment) == 3 && collection->getID(fragment) == 3 && collection->getID(stranger) == 3 &&
           collection->makeFragmentID(known) == fragment &&
           collection->findNumericalIDByName(unknown) == FragmentIDCollection::NoNumber &&
           collection->getFragmentIDs().size() == 5 && collection->iterate(all) == 5;
  });
}

// ------------------------------------------------------------------------------------------------------ collections

class NamedFieldCounter : public FieldCollection::Iterator {
 public:
  bool apply(const std::string&, FieldPtr& field) override { return field.isValid(); }
};
class NamedCreatorCounter : public Fragment::Iterator {
 public:
  bool apply(const std::string&, CreatorPtr& creator) override { return creator.isValid(); }
};

TEST(FieldFamilyAllocationTest, NamedFieldsAndCreatorsAreEnteredOrNot) {
  EachAllocation each;
  const FieldPtr field(new Field);
  each.changes(
      "field", [] { return FieldCollection(); }, [&](FieldCollection& c) { c[nameOf(1)] = field; },
      [](const FieldCollection& c) { return !c(nameOf(1)); },
      [&](const FieldCollection& c) { return c(nameOf(1)) == field; });
  FieldCollection fields;
  fields[nameOf(1)] = field;
  fields[nameOf(2)] = field;
  each.makes(
      "copy of a collection", [&] { return std::make_unique<FieldCollection>(fields); },
      [&](const auto& copy) { return (*copy)(nameOf(2)) == field; });
  const std::string name = nameOf(2);
  each.needsNone("questions to a collection", [&] {
    NamedFieldCounter counter;
    Ostrel::Ageable age;
    fields.updateAge(age);
    return fields(name) == field && fields[name] == field && fields.iterate(counter) == 2 &&
           fields.FieldsAreOlderThan(Ostrel::Ageable::now());
  });

  const CreatorPtr creator = TreskTest::makeForgetful();
  each.changes(
      "creator", [] { return Fragment(); }, [&](Fragment& f) { f[nameOf(1)] = creator; },
      [](const Fragment& f) { return !f(nameOf(1)); }, [&](const Fragment& f) { return f(nameOf(1)) == creator; });
  Fragment fragment;
  fragment[nameOf(1)] = creator;
  fragment[nameOf(2)] = creator;
  each.makes(
      "copy of a fragment", [&] { return std::make_unique<Fragment>(fragment); },
      [&](const auto& copy) { return (*copy)(nameOf(2)) == creator; });
  each.needsNone("questions to a fragment", [&] {
    NamedCreatorCounter counter;
    return fragment(name) == creator && fragment.iterate(counter) == 2;
  });
}

TEST(FieldFamilyAllocationTest, FieldsOfBlocksAreMadeOrNot) {
  EachAllocation each;
  using Blocks = RegularlyFragmentedField<3>;
  using BlocksPtr = Ostrel::StrongPtr<Blocks, CreatorContainer>;
  const MultiIndex<3> extents(3, 2, 2);
  const BlocksPtr blocks(new Blocks(extents, "WithALongSuffix"));
  const FragmentIDCollectionPtr collection = blocks->getFragmentIDCollection();
  const auto isWhole = [](const BlocksPtr& p) {
    return p->getFragmentID(MultiIndex<3>(2, 1, 1))->getName() == "2x1x1WithALongSuffix" && p->nFragments() == 0;
  };
  each.makes(
      "extents", [&] { return BlocksPtr(new Blocks(extents, "WithALongSuffix")); }, isWhole);
  each.makes(
      "collection", [&] { return BlocksPtr(new Blocks(extents, collection, "")); }, isWhole);
  each.makes(
      "sibling", [&] { return BlocksPtr(new Blocks(extents, FieldWeakPtr(blocks), "")); }, isWhole);
  each.makes(
      "copy", [&] { return BlocksPtr(new Blocks(*blocks)); }, isWhole);
  each.makes(
      "size",
      [] {
        return newRegularlyFragmentedField(DynamicSize{1, 2, 3});
      },
      [](const FieldPtr& p) { return p->findNumericalIDByName("0x1x2RegularFragment") == 5; });
  each.changes(
      "empty collection", [] { return makeCollection(0); },
      [&](const FragmentIDCollectionPtr& p) { const Blocks field(extents, p, "WithALongSuffix"); },
      [](const FragmentIDCollectionPtr& p) { return p->nFragmentIDs() == 0; },
      [](const FragmentIDCollectionPtr& p) { return p->nFragmentIDs() == 0; });
  const std::string text = blocks->xml();
  each.makes(
      "text", [&] { return blocks->xml(); }, [&](const std::string& made) { return made == text; });
  each.needsNone("slot of a block", [&] {
    return !blocks->getCreatorReference(MultiIndex<3>(1, 0, 0)) && blocks->validate(MultiIndex<3>(2, 1, 1));
  });
}

TEST(FieldFamilyAllocationTest, BaseSpacesAreMadeAndOwnOrNot) {
  EachAllocation each;
  struct Space {
    BaseSpaceDependencyPtr dependency{new BaseSpaceDependency};
    FieldPtr field{new Field};
    Ostrel::StrongPtr<BaseSpace, Ownable<BaseSpaceDependency, ChildrenProperties>::Container> space{new BaseSpace};
  };
  each.makes(
      "space",
      [] {
        return Ostrel::StrongPtr<BaseSpace, Ownable<BaseSpaceDependency, ChildrenProperties>::Container>(new BaseSpace);
      },
      [](const auto& p) { return p.isValid(); });
  each.makes(
      "dependency", [] { return BaseSpaceDependencyPtr(new BaseSpaceDependency); },
      [](const auto& p) { return p->nOwners() == 0; });
  each.changes(
      "field", [] { return Space(); }, [](const Space& s) { s.field->addOwner(s.dependency); },
      [](const Space& s) { return s.field->nOwners() == 0; },
      [](const Space& s) { return s.field->isOwnedBy(s.dependency); });
  each.changes(
      "dependency", [] { return Space(); },
      [](const Space& s) {
        s.dependency->addOwner(s.space);
        s.space->addDependency(s.dependency);
      },
      [](const Space& s) { return s.dependency->nOwners() == 0; },
      [](const Space& s) { return s.dependency->isOwnedBy(s.space); });
}

// ---------------------------------------------------------------------------------------------------- computed fields

TEST(FieldFamilyAllocationTest, ComputedFieldsAreMadeOrNot) {
  EachAllocation each;
  const auto fill = [](const FieldPtr& field) {
    for (int i = 0; i < 3; ++i) {
      const CreatorPtr creator(new FunctionalCreator(makeThree, false, Ostrel::Cache::MemCache()));
      creator->addMetaInfo(1, getTreskType<double>());
      const FragmentIDPtr fragment = field->makeFragmentID(nameOf(i));
      field->setCreator(creator, fragment);
    }
    return field;
  };
  const FieldPtr left = fill(FieldPtr(new Field));
  const FieldPtr right = fill(FieldPtr(new Field(FieldWeakPtr(left))));
  each.makes(
      "sum", [&] { return addFields(left, right); },
      [](const FieldPtr& p) { return p->nFragments() == 3 && p->Dims() == 1; });
  struct Sum {
    FieldPtr field;
    MemBasePtr data;
  };
  each.changes(
      "data of a sum",
      [&] {
        return Sum{addFields(left, right), {}};
      },
      [](Sum& s) { s.data = s.field->getDataByNumericalID(2); },
      [](const Sum& s) { return !s.data && !s.field->getCreatorByNumericalID(2)->hasData(); },
      [](const Sum& s) { return dynamic_cast<const MemArray<1, double>&>(*s.data).last() == 3; });
  each.changes(
      "data from the beginning",
      [&] {
        left->getCreatorByNumericalID(2)->release();
        right->getCreatorByNumericalID(2)->release();
        return Sum{addFields(left, right), {}};
      },
      [](Sum& s) { s.data = s.field->getDataByNumericalID(2); }, [&](const Sum& s) { return !s.data; },
      [&](const Sum& s) {
        left->getCreatorByNumericalID(2)->release();
        right->getCreatorByNumericalID(2)->release();
        return dynamic_cast<const MemArray<1, double>&>(*s.data).last() == 3;
      });
  using Product = BinaryOperator<Quorvel::Operator<'*'>, double, double, double>;
  each.changes(
      "data of a product",
      [&] {
        return Sum{combineFields<Product>(left, right), {}};
      },
      [](Sum& s) { s.data = s.field->getDataByNumericalID(2); },
      [](const Sum& s) { return !s.data && !s.field->getCreatorByNumericalID(2)->hasData(); },
      [](const Sum& s) { return dynamic_cast<const MemArray<1, double>&>(*s.data).last() == 2.25; });
  each.makes(
      "product", [&] { return combineFields<Product>(left, right); },
      [](const FieldPtr& p) { return p->nFragments() == 3 && p->Dims() == 1; });
}

// ---------------------------------------------------------------------------------------------------------- accounts

class MemoryLedgerAllocationTest : public ::testing::Test {
 protected:
  MemoryLedgerAllocationTest() {
    for (const FieldPtr& field : {one, other}) {
      for (int i = 0; i < 3; ++i) {
        const CreatorPtr creator(new FunctionalCreator(makeThree, false, cache));
        creator->addMetaInfo(DynamicSize{3}, getTreskType<double>());
        const FragmentIDPtr fragment = field->makeFragmentID(nameOf(i));
        field->setCreator(creator, fragment);
      }
      field->getFirstData();
    }
  }

  EachAllocation each;
  const CachePtr cache{new Ostrel::Cache(Ostrel::Cache::MemCache())};
  const FieldPtr one{new Field};
  const FieldPtr other{new Field};
};

TEST_F(MemoryLedgerAllocationTest, LedgersAreWholeOrThrow) {
  each.makes(
      "field", [&] { return MemoryLedger::of(*one); },
      [](const MemoryLedger& l) { return l.total.nCreators() == 3 && l.total.nHeldBytes() == 24; });
  const std::vector<MemoryLedger::NamedField> named = {{nameOf(1), one}, {nameOf(2), other}};
  each.makes(
      "fields", [&] { return MemoryLedger::of(named); },
      [](const MemoryLedger& l) {
        return l.fields.size() == 2 && l.fields[1].name == nameOf(2) && l.total.nCreators() == 6 &&
               l.caches.size() == 1;
      });
  each.makes(
      "process", [&] { return MemoryLedger::ofProcess(named); },
      [](const MemoryLedger& l) {
        return l.fields.size() == 2 && l.total.nHeldBytes() == 48 && l.nAccountedBytes == 48;
      });
  each.makes(
      "process without names", [] { return MemoryLedger::ofProcess(); },
      [](const MemoryLedger& l) { return l.fields.size() == 2 && l.total.nHeldBytes() == 48; });
  const MemoryLedger ledger = MemoryLedger::ofProcess(named);
  const std::string text = ledger.toText();
  each.makes(
      "text", [&] { return ledger.toText(); }, [&](const std::string& made) { return made == text; });
  each.makes(
      "copy", [&] { return std::make_unique<MemoryLedger>(ledger); },
      [&](const auto& copy) { return copy->toText() == text; });
}

}  // namespace
