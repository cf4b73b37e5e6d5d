// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// The hot operations of one thread, each to be counted in instructions by callgrind: scripts/counts runs this program
// once for each operation and compares with the accepted numbers in accepted.txt.
//
// usage: tresk_counts --list      names of the operations, one on each line
//        tresk_counts <name>      does that operation and prints how often it was done in `counted`

#include <tresk/field/CreateIndirection.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/foundation/Chunk.hpp>
#include <tresk/foundation/FixedArray.hpp>
#include <tresk/foundation/Intercube.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

// The compiler knows nothing of the callers of such a function, nor they of it.
#if defined(__clang__)
#define TRESK_COUNTED [[gnu::noinline]]
#else
#define TRESK_COUNTED [[gnu::noipa]]
#endif

namespace TreskCounts {

/// How often an operation is done in one count: a multiple of the 64 uses that a thread notes before it hands them to
/// the cache, so that the share of the handing in does not depend on what went before.
constexpr unsigned int nOperations = 1024;

/// The only function whose instructions count, with all that it calls. scripts/counts knows it by its name.
/// Everything that `operation` needs has been prepared.
template <unsigned int nCalls, class Operation>
TRESK_COUNTED void counted(Operation& operation) {
  for (unsigned int i = 0; i < nCalls; ++i) operation(i);
}

namespace {

using namespace Tresk;

/// Tells the compiler that somebody looks at a value, and that memory may have changed.
template <class T>
[[gnu::always_inline]] inline void escape(const T& value) {
  asm volatile("" : : "r"(&value) : "memory");
}

/// Ends the program if what is to be counted would not be what its name says.
void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "tresk_counts: %s\n", what);
  std::exit(1);
}

// Each operation is an object: its constructor prepares everything, and call `i` does it once, with as little else as
// possible.

// --------------------------------------------------------------------------------------------------------- pointers

struct Base : Ostrel::ReferenceBase<Base> {
  Base() : Ostrel::ReferenceBase<Base>(this) {}
};
struct Object : Base {
  explicit Object(long long payload) : value(payload) {}
  long long value;
};
using Owner = Ostrel::StrongPtr<Object, Base>;
using Observer = Ostrel::WeakPtr<Object, Base>;

struct Copy {
  const Owner owner{new Object(1)};
  void operator()(unsigned int) const {
    const Owner copy(owner);
    escape(copy);
  }
};

struct Upgrade {
  const Owner owner{new Object(1)};
  const Observer observer{owner};
  Upgrade() { require(Owner(observer).isValid(), "there is nothing to upgrade to"); }
  void operator()(unsigned int) const {
    const Owner copy(observer);
    escape(copy);
  }
};

struct ConstructAndDestroy {
  void operator()(unsigned int) const {
    const Owner owner(new Object(1));
    escape(owner);
  }
};

// ----------------------------------------------------------------------------------------------------------- fields

/// A field of as many fragments as there are operations, whose creators hold data.
struct Filled {
  const CachePtr cache{new Ostrel::Cache};
  const FieldPtr field{new Field};
  std::vector<std::string> names;
  std::vector<FragmentIDPtr> fragments;
  std::vector<MemBasePtr> data;

  Filled() {
    for (unsigned int i = 0; i < nOperations; ++i) {
      names.push_back("block " + std::to_string(i));
      fragments.push_back(field->makeFragmentID(names.back()));
      field->setCreator(CreatorPtr(new FunctionalCreator(produce, false, cache)), fragments.back());
      data.push_back(field->getData(fragments.back()));
      require(data.back().isValid() && data.back()->isOnCacheList(), "the creators hold no data");
    }
  }
  static MemBasePtr produce() { return MemBasePtr(new MemArray<1, double>(MultiIndex<1>(8), CreatorWeakPtr())); }
};

struct GetCreator : Filled {
  GetCreator() { require(field->getCreator(fragments.back()).isValid(), "the fragment has no creator"); }
  void operator()(unsigned int i) const {
    const CreatorPtr creator = field->getCreator(fragments[i]);
    escape(creator);
  }
};

struct GetCreatorByNumericalID : Filled {
  GetCreatorByNumericalID() {
    require(field->getCreatorByNumericalID(0).isValid() && field->getCreatorByNumericalID(nOperations - 1).isValid() &&
                !field->getCreatorByNumericalID(nOperations).isValid(),
            "the fragments have other numbers");
  }
  void operator()(unsigned int i) const {
    const CreatorPtr creator = field->getCreatorByNumericalID(i);
    escape(creator);
  }
};

struct GetCreatorByName : Filled {
  GetCreatorByName() { require(field->getCreatorByName(names.back()).isValid(), "the fragments have other names"); }
  void operator()(unsigned int i) const {
    const CreatorPtr creator = field->getCreatorByName(names[i]);
    escape(creator);
  }
};

struct GetData : Filled {
  GetData() { require(field->getData(fragments[0]) == data[0], "the data are not held"); }
  void operator()(unsigned int i) const {
    const MemBasePtr held = field->getData(fragments[i]);
    escape(held);
  }
};

/// One call visits all fragments.
struct Walk : Filled {
  unsigned int nVisits = 0;
  const Field::FragmentFunction visit = [this](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
    nVisits += fragment.isValid() && creator.isValid() ? 1 : 0;
    return true;
  };
  Walk() {
    require(field->iterate(visit, false, false) == nOperations && nVisits == nOperations, "not all are visited");
  }
  void operator()(unsigned int) const {
    const unsigned int nTrue = field->iterate(visit, false, false);
    escape(nTrue);
  }
};

// ------------------------------------------------------------------------------------------------------------ cache

/// Uses of many data in turn: each is noted, and each batch is handed in.
struct MarkAsUsed : Filled {
  MarkAsUsed() {
    const long long nUses = data[0]->getUseCount();
    data[0]->markAsUsed();
    require(data[0]->getUseCount() == nUses + 1, "uses are not counted");
  }
  void operator()(unsigned int i) const { data[i]->markAsUsed(); }
};

// ------------------------------------------------------------------------------------------------------- interfaces

template <int>
struct Value {
  int value = 0;
};
template <int Which>
using ValueInterface = Ostrel::InterfaceData<Value<Which>>;

/// Four interfaces, asked for in turn.
struct FindInterface {
  const Ostrel::Intercube object;
  const std::type_info* const types[4] = {&typeid(ValueInterface<0>), &typeid(ValueInterface<1>),
                                          &typeid(ValueInterface<2>), &typeid(ValueInterface<3>)};
  FindInterface() {
    add<0>();
    add<1>();
    add<2>();
    add<3>();
    for (const std::type_info* type : types) require(object.findInterface(*type).isValid(), "an interface is missing");
  }
  template <int Which>
  void add() const {
    object.addInterface(Ostrel::StrongPtr<Ostrel::InterfaceBase, Ostrel::InterfaceBase>(new ValueInterface<Which>));
  }
  void operator()(unsigned int i) const {
    const Ostrel::StrongPtr<Ostrel::InterfaceBase, Ostrel::InterfaceBase> interface =
        object.findInterface(*types[i % 4]);
    escape(interface);
  }
};

// ------------------------------------------------------------------------------------------------------- transforms

/// The search for the last of the element types that a gather knows, and nothing to copy.
struct DispatchOfGather {
  using Element = Quorvel::FixedArray<char, 6>;
  const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> to{new Ostrel::Chunk<Element>(1)};
  const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> from{new Ostrel::Chunk<Element>(1)};

  DispatchOfGather() { require(gather(), "the element type is not known"); }
  bool gather() const {
    return CreateIndirection(to, from, static_cast<const std::vector<unsigned int>*>(nullptr), nullptr, 0, 0, 0, 0, 1);
  }
  void operator()(unsigned int) const {
    const bool isDone = gather();
    escape(isDone);
  }
};

// ------------------------------------------------------------------------------------------------------ the program

/// Prepares an operation, warms it up outside of `counted`, so that pools, batches and tables are in their steady
/// state, and does it once more to be counted. Each call stands for `nOperations / nCalls` operations.
template <class Operation, unsigned int nCalls = nOperations>
void run() {
  Operation operation;
  for (unsigned int i = 0; i < nCalls; ++i) operation(i);
  counted<nCalls>(operation);
}

struct Row {
  const char* name;
  void (*run)();
};

constexpr Row rows[] = {
    {"pointer/copy", run<Copy>},
    {"pointer/upgrade", run<Upgrade>},
    {"pointer/construct+destroy", run<ConstructAndDestroy>},
    {"field/getCreator", run<GetCreator>},
    {"field/getCreatorByNumericalID", run<GetCreatorByNumericalID>},
    {"field/getCreatorByName", run<GetCreatorByName>},
    {"field/getData-hit", run<GetData>},
    {"field/walk-step", run<Walk, 1>},
    {"cache/markAsUsed", run<MarkAsUsed>},
    {"interface/findInterface", run<FindInterface>},
    {"transform/dispatch", run<DispatchOfGather>},
};

int runProgram(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--list") == 0) {
    for (const Row& row : rows) std::puts(row.name);
    return 0;
  }
  if (argc == 2) {
    for (const Row& row : rows) {
      if (std::strcmp(row.name, argv[1]) != 0) continue;
      row.run();
      std::printf("%u\n", nOperations);
      return 0;
    }
  }
  std::fputs("usage: tresk_counts --list | tresk_counts <name>\n", stderr);
  return 2;
}

}  // namespace

}  // namespace TreskCounts

int main(int argc, char** argv) { return TreskCounts::runProgram(argc, argv); }
