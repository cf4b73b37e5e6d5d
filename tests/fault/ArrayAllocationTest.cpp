// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CoordinateAxisArray.hpp>
#include <tresk/field/DirectProductMemArray.hpp>
#include <tresk/field/DynamicSize.hpp>
#include <tresk/field/ElementText.hpp>
#include <tresk/field/FragmentID.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/RawData.hpp>
#include <tresk/field/SizeInterface.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/field/TypeList.hpp>
#include <tresk/field/UniformCartesianArray.hpp>
#include <tresk/foundation/SaveRegistry.hpp>

#include <support/FieldDoubles.hpp>

#include <gtest/gtest.h>

#include "EachAllocation.hpp"

#include <memory>
#include <new>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using namespace Tresk;
using Ostrel::ChunkBase;
using Quorvel::FixedArray;
using TreskTest::EachAllocation;

using ChunkPtr = Ostrel::StrongPtr<ChunkBase, ChunkBase>;
using Triple = FixedArray<double, 3>;
using Point = Quorvel::PhysicalSpace::point;
const CreatorWeakPtr nobody;

MemBasePtr makeNumbers() {
  MemBasePtr array = TreskTest::makeArray(4, 3, 0);
  auto* const number = static_cast<double*>(array->getDataPointer());
  for (int i = 0; i < 12; ++i) number[i] = i;
  return array;
}
double numberAt(const MemBasePtr& array, unsigned long long i) {
  return static_cast<const double*>(array->getDataPointer())[i];
}
MemBasePtr makeTriples() { return MemBasePtr(new MemArray<1, Triple>(MultiIndex<1>(4), nobody)); }

TEST(ArrayAllocationTest, SizesAreMadeOrNot) {
  EachAllocation each;
  const DynamicSize plane = {4, 3};
  const DynamicSize block = {1, 2, 5};
  const auto is = [](const char* text) { return [text](const DynamicSize& size) { return size.str() == text; }; };
  each.makes(
      "copy", [&] { return DynamicSize(plane); }, is("4x3"));
  each.makes(
      "list",
      [] {
        return DynamicSize{7, 8};
      },
      is("7x8"));
  each.makes(
      "extents", [&] { return DynamicSize(2, plane.getExtents()); }, is("4x3"));
  each.makes(
      "one more dimension", [&] { return DynamicSize(9, plane); }, is("9x4x3"));
  each.makes(
      "sum", [&] { return DynamicSize(2, plane, block); }, is("5x5"));
  each.makes(
      "text",
      [] {
        return DynamicSize{1234567890, 1234567890}.str();
      },
      [](const std::string& text) { return text == "1234567890x1234567890"; });
  const auto copyOfPlane = [&] { return DynamicSize(plane); };
  each.changes(
      "assignment", copyOfPlane, [&](DynamicSize& size) { size = block; }, is("4x3"), is("1x2x5"));
  each.changes(
      "addition", copyOfPlane, [&](DynamicSize& size) { size += block; }, is("4x3"), is("5x5x5"));
  each.needsNone("questions", [&] { return plane != block && plane.hasIncompatibleLowerDims(block); });

  using SizeInterfacePtr = Ostrel::StrongPtr<SizeInterface, Ostrel::InterfaceBase>;
  const SizeInterfacePtr known(new SizeInterface(plane));
  each.makes(
      "interface", [&] { return SizeInterfacePtr(new SizeInterface(plane)); },
      [](const SizeInterfacePtr& p) { return p->str() == "4x3"; });
  each.makes(
      "interface of a copy", [&] { return SizeInterfacePtr(new SizeInterface(*known)); },
      [](const SizeInterfacePtr& p) { return p->str() == "4x3"; });
  each.makes(
      "interface of a sum", [&] { return SizeInterfacePtr(new SizeInterface(2, *known, *known)); },
      [](const SizeInterfacePtr& p) { return p->str() == "8x6"; });
  each.makes(
      "interface of fragments", [&] { return SizeInterfacePtr(new FragmentedSizeInterface(plane, 3)); },
      [](const SizeInterfacePtr& p) { return p->str() == "4x3"; });
}

TEST(ArrayAllocationTest, RecordsOfElementTypesAreFoundWithoutMemoryAndDescribedOrNot) {
  EachAllocation each;
  const TreskTypePtr type = getTreskType<Quorvel::Vector<double, 3>>();
  each.needsNone("lookup", [&] {
    return getTreskType<Quorvel::Vector<double, 3>>() == type && TreskTypeBase::find(*type) == type &&
           TreskTypeBase::find(typeid(Quorvel::Vector<double, 3>)) == type &&
           type->getComponentType() == getTreskType<double>() && type->indexKind(0) == -1;
  });
  each.makes(
      "chunk", [&] { return type->createChunk(3); }, [](const ChunkPtr& p) { return p->size() == 3; });
  const auto same = [](const std::string& wanted) {
    return [wanted](const std::string& text) { return text == wanted; };
  };
  each.makes(
      "description", [&] { return type->description(); }, same(type->description()));
  each.makes(
      "index", [&] { return type->TreskTypeIndex::description(); }, same(type->TreskTypeIndex::description()));
  each.makes(
      "text", [&] { return std::to_string(*type); }, same(std::to_string(*type)));
  each.makes(
      "component", [&] { return getTreskType<Point>()->component_name(0); }, same("Quorvel::PhysicalSpace::point"));
  each.makes(
      "copy of an index", [&] { return TreskTypeIndex(*type); },
      [&](const TreskTypeIndex& index) { return index == *type; });
}

TEST(ArrayAllocationTest, TypeListsTakeATypeOrNot) {
  EachAllocation each;
  const TreskTypePtr type = getTreskType<double>();
  each.makes(
      "list of one", [&] { return std::make_unique<TypeList>(type); },
      [](const auto& list) { return list->contains(typeid(double)) && !list->contains(typeid(Triple)); });
  each.changes(
      "insertion", [&] { return TypeList(type); }, [](TypeList& list) { list.insert(getTreskType<Triple>()); },
      [](const TypeList& list) { return list.nTypes() == 1; },
      [](const TypeList& list) { return list.nTypes() == 2 && list.contains(typeid(Triple)); });
  const TypeList types(getTreskType<Triple>());
  each.makes(
      "copy", [&] { return std::make_unique<TypeList>(types); }, [](const auto& list) { return list->nTypes() == 1; });
  each.makes(
      "text", [&] { return types.asText(); },
      [](const auto& lines) { return lines->nLines() == 1 && lines->getLine(0) == "Quorvel::FixedArray<double, 3>"; });
}

TEST(ArrayAllocationTest, TypesSpeakOrThrow) {
  EachAllocation each;
  const TreskTypePtr type = getTreskType<Point>();
  const TypeList types(type);
  const auto speaks = [](const auto& object) {
    return [&object] {
      object.speak();
      return true;
    };
  };
  const auto isTrue = [](bool answer) { return answer; };
  testing::internal::CaptureStdout();
  each.makes("record", speaks(*type), isTrue);
  each.makes("list", speaks(types), isTrue);
  const std::string spoken = testing::internal::GetCapturedStdout();
  EXPECT_NE(spoken.find("Description:  " + type->description() + '\n'), std::string::npos);
  EXPECT_NE(spoken.find("{Quorvel::PhysicalSpace::point} "), std::string::npos);
}

/// Attaches a name to each new array.
class ArrayNamer : public Ostrel::SaveInterfaceCreator<MemBase> {
 public:
  class Name : public Ostrel::Interface<Name> {};
  long long createInterface(MemBase* array) override {
    array->addInterface(Ostrel::StrongPtr<Ostrel::InterfaceBase, Ostrel::InterfaceBase>(new Name));
    return 1;
  }
};

TEST(ArrayAllocationTest, ArraysThatAreOfferedToSaversAreMadeOrNot) {
  EachAllocation each;
  const Ostrel::StrongPtr<Ostrel::SaveInterfaceCreatorBase, Ostrel::SaveInterfaceCreatorBase> namer(new ArrayNamer);
  ASSERT_TRUE(Ostrel::SaveRegistryBase::registerCreator(typeid(MemBase), namer));
  each.makes(
      "array", [] { return TreskTest::makeArray(3); },
      [](const MemBasePtr& p) { return Ostrel::findInterface<ArrayNamer::Name>(*p).isValid(); });
  Ostrel::SaveRegistryBase::unregisterCreator(typeid(MemBase), namer);
}

TEST(ArrayAllocationTest, ArraysWithElementsAreMadeOrNot) {
  EachAllocation each;
  const ChunkPtr chunk(new Ostrel::Chunk<double>(6));
  const long long nBytes = ChunkBase::TotalMemsize;
  each.makes(
      "rank 1", [] { return TreskTest::makeArray(5, 1.5); },
      [](const MemBasePtr& p) { return p->nElements() == 5 && numberAt(p, 4) == 1.5; });
  each.makes(
      "rank 2", [] { return makeNumbers(); }, [](const MemBasePtr& p) { return numberAt(p, 11) == 11; });
  each.makes(
      "rank 3", [] { return MemBasePtr(new MemArray<3, Triple>(MultiIndex<3>(2, 3, 1), nobody)); },
      [](const MemBasePtr& p) { return p->rank() == 3; });
  each.makes(
      "rank 4", [] { return MemBasePtr(new MemArray<4, unsigned int>(MultiIndex<4>(2, 1, 1, 2), nobody)); },
      [](const MemBasePtr& p) { return p->getElementString(3) == "0"; });
  each.makes(
      "fragments", [] { return MemBasePtr(new MemArray<1, FragmentIDPtr>(MultiIndex<1>(2), nobody)); },
      [](const MemBasePtr& p) { return p->getElementString(0) == "[\"\"]"; });
  each.makes(
      "array on a chunk",
      [&] {
        return MemBasePtr(new MemArray<2, double>(Ostrel::StrongPtr<Ostrel::TypedChunk<double>, ChunkBase>(chunk),
                                                  MultiIndex<2>(2, 3), nobody));
      },
      [&](const MemBasePtr& p) { return p->getChunk() == chunk; });
  EXPECT_EQ(ChunkBase::TotalMemsize, nBytes);
}

TEST(ArrayAllocationTest, ViewsAndCopiesAreMadeOrNot) {
  EachAllocation each;
  const MemBasePtr numbers = makeNumbers();
  const auto& array = dynamic_cast<const MemArray<2, double>&>(*numbers);
  const MemBasePtr triples = makeTriples();
  each.makes(
      "size", [&] { return numbers->getSize(); }, [](const DynamicSize& size) { return size.str() == "4x3"; });
  each.makes(
      "component", [&] { return triples->getComponent(1, nobody); },
      [&](const MemBasePtr& p) { return p->getChunk() != ChunkPtr() || p->nElements() == 4; });
  each.makes(
      "slice", [&] { return array.getSlice(1, nobody); },
      [](const MemBasePtr& p) { return dynamic_cast<const MemArray<1, double>&>(*p).first() == 4; });
  each.makes(
      "box",
      [&] {
        return numbers->createSubArray(DynamicSize{1, 1}, DynamicSize{2, 2}, nobody);
      },
      [](const MemBasePtr& p) { return numberAt(p, 0) == 5 && numberAt(p, 3) == 10; });
  each.makes(
      "array on another chunk", [&] { return numbers->createOnChunk(ChunkPtr(new Ostrel::Chunk<double>(12)), nobody); },
      [](const MemBasePtr& p) { return p->getSize().str() == "4x3" && numberAt(p, 11) == 0; });
  each.makes(
      "copy", [&] { return numbers->copy(nobody); }, [](const MemBasePtr& p) { return numberAt(p, 11) == 11; });
  each.makes(
      "array of the same type", [&] { return array.createArray(MultiIndex<2>(5, 5), nobody); },
      [](const MemBasePtr& p) { return p->nElements() == 25; });
  each.makes(
      "element as text",
      [] {
        const MemBasePtr one = TreskTest::makeArray(1, 1.2345678901234567e-100);
        return one->getElementString(0);
      },
      [](const std::string& text) { return text == "1.2345678901234567e-100"; });
  each.makes(
      "tuple as text", [] { return elementText(Triple(1.25, 2.5, 1e100)); },
      [](const std::string& text) { return text == "{1.25,2.5,1e+100}"; });
  each.makes(
      "fragment as text", [] { return elementText(FragmentIDPtr(new FragmentID("the upper left one of them"))); },
      [](const std::string& text) { return text == "[\"the upper left one of them\"]"; });
  each.changes(
      "copying of elements", [] { return TreskTest::makeArray(12); },
      [&](const MemBasePtr& p) {
        const ChunkPtr chunk(new Ostrel::Chunk<double>(12));
        static_cast<double*>(chunk->data())[11] = 3;
        EXPECT_TRUE(p->copyFromChunk(chunk));
      },
      [](const MemBasePtr& p) { return numberAt(p, 11) == 0; },
      [](const MemBasePtr& p) { return numberAt(p, 11) == 3; });
  each.needsNone("an array in memory made explicit", [&] { return numbers->makeExplicit(nobody) == numbers; });
}

TEST(ArrayAllocationTest, ElementsAreWalkedWithoutMemory) {
  EachAllocation each;
  const MemBasePtr numbers = makeNumbers();
  auto& array = dynamic_cast<MemArray<2, double>&>(*numbers);
  const MemBasePtr triples = makeTriples();
  auto& vectors = dynamic_cast<MemArray<1, Triple>&>(*triples);
  each.needsNone("numbers", [&] {
    double sum = 0;
    array.getIterator().forEachElement([&sum](double number) { sum += number; });
    const auto add = [](double a, double b) { return a + b; };
    array(1, 2) = 9;
    return sum == 66 && array.getIterator().reduceElements(0.0, add) == 66 && array.last() == 11 &&
           array[MultiIndex<2>(3, 1)] == 7 && array.getTypedChunk()->vector().size() == 12;
  });
  each.needsNone("vectors", [&] {
    vectors(2) = Triple(1, 2, 3);
    return vectors.getIterator().getElement(2) == Triple(1, 2, 3) && triples->getHyperslab().nElements() == 4;
  });
}

TEST(ArrayAllocationTest, ArraysByTypeAreMadeOrNot) {
  EachAllocation each;
  const MemBasePtr numbers = makeNumbers();
  for (int rank = 1; rank <= 4; ++rank) {
    const std::vector<unsigned long long> extents(static_cast<std::size_t>(rank), 2);
    each.makes(
        "rank " + std::to_string(rank),
        [&] { return MemBase::create(getTreskType<Point>(), DynamicSize(rank, extents.data()), typeid(void)); },
        [rank](const MemBasePtr& p) { return p->rank() == rank && p->getElementType() == typeid(Point); });
  }
  each.makes(
      "same type", [&] { return numbers->create(DynamicSize{3}, typeid(void)); },
      [](const MemBasePtr& p) { return p->nElements() == 3; });
  each.makes(
      "same type and size", [&] { return numbers->create(typeid(void)); },
      [](const MemBasePtr& p) { return p->getSize().str() == "4x3"; });
}

/// A type of element whose record is not in the registry by itself.
class SomeRecord : public TreskTypeBase {
 public:
  explicit SomeRecord(const std::string& name) : TreskTypeBase(indexOfName(name)) {}
  const std::type_info& getType() const override { return typeid(SomeRecord); }
  bool isType(const std::type_info& type) const override { return type == typeid(SomeRecord); }
  ChunkPtr createChunk(std::size_t) const override { return ChunkPtr(); }
  unsigned int indexOf(const unsigned int& i) const override { return i; }
  TreskTypePtr getComponentType() const override { return TreskTypePtr(); }
  std::string chartComponentName(int) const override { return std::string(); }
  const std::type_info& getChartType() const override { return typeid(void); }
  int indexKind(unsigned int) const override { return 0; }
  int indexExtra(unsigned int) const override { return 0; }

 private:
  static TreskTypeIndex indexOfName(const std::string& name) {
    TreskTypeIndex index;
    index.typeName = name;
    index.chartName = "a chart whose name is long enough to be allocated";
    return index;
  }
};
using SomeRecordPtr = Ostrel::StrongPtr<SomeRecord, TreskTypeBase>;

TEST(ArrayAllocationTest, TypesAndAllocatorsAreRegisteredOrNot) {
  const MemBase::AllocatorPtr allocator(new MemArrayAllocator<double>);
  // Registrations are for good: each attempt has a type of its own.
  static int nTypes = 0;
  int nThrown = 0;
  bool hasStruck = true;
  for (long long n = 0; hasStruck; ++n) {
    hasStruck = false;
    const SomeRecordPtr record(new SomeRecord("a registration, number " + std::to_string(++nTypes)));
    const TreskTypeIndex& index = *record;
    for (const bool isAllocator : {false, true}) {
      const auto enter = [&] {
        return isAllocator ? MemBase::registerCreator(allocator, record) == 1 : record->remember();
      };
      const auto isEntered = [&] {
        return isAllocator ? MemBase::create(record, DynamicSize{2}, typeid(void)).isValid()
                           : TreskTypeBase::find(index) == record;
      };
      bool isThrown = false;
      {
        const TreskTest::FailingAllocation failing(n, TreskTest::FailingAllocation::Kind::FromThereOn);
        try {
          enter();
        } catch (const std::bad_alloc&) {
          TreskTest::FailingAllocation::end();
          isThrown = true;
          ++nThrown;
        }
        TreskTest::FailingAllocation::end();
        EXPECT_EQ(isThrown, failing.hasStruck());
        hasStruck = hasStruck || isThrown;
      }
      EXPECT_EQ(isEntered(), !isThrown);
      if (isThrown) {
        EXPECT_TRUE(enter());
      }
      EXPECT_TRUE(isEntered());
    }
  }
  EXPECT_GE(nThrown, 4);
}

TEST(ArrayAllocationTest, ComputingArraysAreMadeOrNot) {
  EachAllocation each;
  using LinearAxis = CoordinateAxisArray<double, LinearCoordinateAxisArray>;
  using ExplicitAxis = CoordinateAxisArray<double, ExplicitCoordinateAxisArray>;
  using ExplicitGrid = DirectProductMemArray<Triple, ExplicitCoordinateAxisArray, 3>;
  using LinearGrid = LinearDirectProductMemArray<Triple, Triple, 3>;
  const std::vector<double> positions = {0.5, 1.5, 4.25};
  const CoordinateAxisPtr<ExplicitCoordinateAxisArray> axis(new ExplicitAxis(positions));
  const CoordinateAxisPtr<LinearCoordinateAxisArray> linear(new LinearAxis(1, 2, 3));
  each.makes(
      "linear axis", [] { return CoordinateAxisPtr<LinearCoordinateAxisArray>(new LinearAxis(1, 2, 3)); },
      [](const auto& p) { return p->getPosition(2) == 5; });
  each.makes(
      "axis", [&] { return CoordinateAxisPtr<ExplicitCoordinateAxisArray>(new ExplicitAxis(positions)); },
      [](const auto& p) { return p->getPosition(2) == 4.25; });
  each.makes(
      "copy of a linear axis", [&] { return copyAxis(*linear); }, [](const auto& p) { return p->getPosition(2) == 5; });
  each.makes(
      "copy of an axis", [&] { return copyAxis(*axis); }, [](const auto& p) { return p->getPosition(2) == 4.25; });

  auto* const grid = new ExplicitGrid(nobody);
  const MemBasePtr held(grid);
  for (int c = 0; c < 3; ++c) grid->setAxis(c, axis);
  const LinearGrid* const equal = new LinearGrid(MultiIndex<3>(3, 2, 2), Triple(0, 0, 0), Triple(1, 2, 3), nobody);
  const MemBasePtr heldEqual(const_cast<LinearGrid*>(equal));
  const auto lastIs = [](double x) {
    return [x](const MemBasePtr& p) {
      const auto& points = dynamic_cast<const TypedArray<Triple>&>(*p);
      return points.last()[0] == x;
    };
  };
  each.makes(
      "grid",
      [&] {
        auto* const made = new ExplicitGrid(nobody);
        MemBasePtr array(made);
        for (int c = 0; c < 3; ++c) made->setAxis(c, axis);
        return array;
      },
      lastIs(4.25));
  each.makes(
      "equal grid",
      [] { return MemBasePtr(new LinearGrid(MultiIndex<3>(3, 2, 2), Triple(0, 0, 0), Triple(1, 2, 3), nobody)); },
      lastIs(2));
  each.makes(
      "copy of a grid", [&] { return held->copy(nobody); }, lastIs(4.25));
  each.makes(
      "copy of an equal grid", [&] { return MemBasePtr(new LinearGrid(*equal, nobody)); }, lastIs(2));
  each.makes(
      "points of a grid", [&] { return held->makeExplicit(nobody); }, lastIs(4.25));
  each.makes(
      "points on a chunk", [&] { return held->createOnChunk(ChunkPtr(new Ostrel::Chunk<Triple>(27)), nobody); },
      [](const MemBasePtr& p) { return p->nElements() == 27; });
  each.makes(
      "point as text", [&] { return held->getElementString(26); },
      [](const std::string& text) { return text == "{4.25,4.25,4.25}"; });
  each.needsNone("questions", [&] {
    Triple point(0, 0, 0);
    grid->computeCoordinate(MultiIndex<3>(2, 1, 0), point);
    return point == Triple(4.25, 1.5, 0.5) && held->nElements() == 27 && held->memsize() == 0 && !held->getChunk();
  });
}

TEST(ArrayAllocationTest, UniformGridsAreMadeOrNot) {
  EachAllocation each;
  const Point low(0, 0, 0);
  const Point high(4, 2, 1);
  const MultiIndex<3> size(5, 3, 2);
  const Quorvel::BoundingBox box(low, high);
  const auto isGrid = [](const MemBasePtr& p) { return dynamic_cast<const TypedArray<Point>&>(*p).last()[0] == 4; };
  each.makes(
      "by step",
      [&] { return MemBasePtr(new UniformCartesianArray(size, low, Quorvel::PhysicalSpace::vector(1, 1, 1), nobody)); },
      isGrid);
  each.makes(
      "by corners", [&] { return MemBasePtr(new UniformCartesianArray(low, size, high, nobody)); }, isGrid);
  each.makes(
      "by box", [&] { return MemBasePtr(new UniformCartesianArray(box, size, nobody)); }, isGrid);
  const UniformCartesianArray* const grid = new UniformCartesianArray(low, size, high, nobody);
  const MemBasePtr held(const_cast<UniformCartesianArray*>(grid));
  each.makes(
      "copy", [&] { return held->copy(nobody); }, isGrid);
  each.makes(
      "box of a grid", [&] { return grid->getBoundingBox(); },
      [](const auto& p) { return (*p)[1][0] == 4 && (*p)[0][2] == 0; });
  each.makes(
      "points", [&] { return held->makeExplicit(nobody); }, isGrid);
}

TEST(ArrayAllocationTest, RawDataAreTiedAndPackedOrNot) {
  EachAllocation each;
  using RawPtr = Ostrel::StrongPtr<RawData, Ostrel::InterfaceBase>;
  const CreatorPtr creator = TreskTest::makeForgetful();
  const Triple lower(0, 0, 0);
  const Triple upper(1, 1, 1);
  const Ostrel::StrongPtr<Ostrel::TypedChunkBase<Triple>, ChunkBase> vectors(new Ostrel::Chunk<Triple>(2));
  vectors->vector().assign(2, upper);
  each.makes(
      "tie", [&] { return RawPtr(new RawData(creator)); }, [&](const RawPtr& p) { return p->getCreator() == creator; });
  each.makes(
      "packed tie", [&] { return RawPtr(new VecPacked_10_11_11(creator, lower, upper)); },
      [&](const RawPtr& p) { return p->getCreator() == creator; });
  const Ostrel::StrongPtr<VecPacked_10_11_11, Ostrel::InterfaceBase> packing(
      new VecPacked_10_11_11(creator, lower, upper));
  each.makes(
      "packing", [&] { return packing->pack(vectors); },
      [](const ChunkPtr& p) { return static_cast<const unsigned int*>(p->data())[1] == ~0U; });
}

}  // namespace
