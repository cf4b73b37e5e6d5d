// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Building fields, looking creators up, and walking over them.

#include "Harness.hpp"
#include "RawField.hpp"

namespace TreskBench {
namespace {

using namespace Tresk;

/// Fields of one size, filled alike: the library's, the twin on the same creators in a table of its own, and both again
/// with every third number only.
struct Filled {
  explicit Filled(std::size_t n) : order(shuffledNumbers(n)), names(fragmentNames(n)) {
    const std::vector<CreatorPtr> creators = makeCreators(n);
    for (std::size_t i = 0; i < n; ++i) {
      field->setCreator(creators[i], FragmentIDPtr(field->makeFragmentID(names[i])));
      raw->bind(creators[i], names[i]);
      sparse->setCreatorViaFragmentIndex(static_cast<unsigned int>(3 * i + 1), creators[i]);
      rawSparse->bind(creators[i], static_cast<std::uint32_t>(3 * i + 1));
      bare.push_back(creators[i].get());
    }
    fragments = field->getFragmentIDs();
    for (const FragmentIDPtr& fragment : fragments) bareFragments.push_back(fragment.get());
  }

  FieldPtr field{new Field};
  RawFieldPtr raw{new RawField};
  FieldPtr sparse{new Field};
  RawFieldPtr rawSparse{new RawField};
  std::vector<CreativeArrayBase*> bare;
  std::vector<FragmentIDPtr> fragments;
  std::vector<const FragmentID*> bareFragments;
  std::vector<std::uint32_t> order;
  const std::vector<std::string>& names;
};

const Filled& filled(std::size_t n) {
  fragmentNames(1000000);  // so that the names stay where they are
  static std::unordered_map<std::size_t, std::unique_ptr<Filled>> all;
  std::unique_ptr<Filled>& one = all[n];
  if (!one) one = std::make_unique<Filled>(n);
  return *one;
}

/// Builds whole fields; `make` and the end of a field are not measured.
template <class Make, class Fill>
void build(benchmark::State& state, std::size_t n, const Make& make, const Fill& fill) {
  for (auto _ : state) {
    state.PauseTiming();
    {
      const std::vector<CreatorPtr> creators = makeCreators(n);
      const auto field = make(n);
      state.ResumeTiming();
      fill(*field, creators);
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
}

FieldPtr makeField(std::size_t) { return FieldPtr(new Field); }
RawFieldPtr makeRawField(std::size_t) { return RawFieldPtr(new RawField); }
FieldPtr makeReservedField(std::size_t n) {
  FieldPtr field(new Field);
  field->reserve_fragments(n);
  field->getFragmentIDCollection()->reserve(n);
  return field;
}
RawFieldPtr makeReservedRawField(std::size_t n) {
  RawFieldPtr field(new RawField);
  field->reserve(n);
  return field;
}

void fillField(Field& field, const std::vector<CreatorPtr>& creators) {
  const std::vector<std::string>& names = fragmentNames(creators.size());
  for (std::size_t i = 0; i < creators.size(); ++i) field.setCreator(creators[i], field.makeFragmentID(names[i]));
}
void fillRawField(RawField& field, const std::vector<CreatorPtr>& creators) {
  const std::vector<std::string>& names = fragmentNames(creators.size());
  for (std::size_t i = 0; i < creators.size(); ++i) field.bind(creators[i], names[i]);
}

/// Names and creators in flat tables, without fragments, counts, owners or locks.
struct BareTable {
  std::unordered_map<std::string, std::uint32_t> index;
  std::vector<std::uint32_t> keys;
  std::vector<CreativeArrayBase*> values;
};
void fillBareTable(BareTable& table, const std::vector<CreatorPtr>& creators) {
  const std::vector<std::string>& names = fragmentNames(creators.size());
  for (std::size_t i = 0; i < creators.size(); ++i) {
    table.index.emplace(names[i], static_cast<std::uint32_t>(i));
    table.keys.push_back(static_cast<std::uint32_t>(i));
    table.values.push_back(creators[i].get());
  }
}
std::unique_ptr<BareTable> makeBareTable(std::size_t) { return std::make_unique<BareTable>(); }
std::unique_ptr<BareTable> makeReservedBareTable(std::size_t n) {
  auto table = std::make_unique<BareTable>();
  table->index.reserve(n);
  table->keys.reserve(n);
  table->values.reserve(n);
  return table;
}
void fillBareTableShuffled(BareTable& table, const fragment_copy_t& entries) {
  const std::vector<std::uint64_t> order = orderOf(entries);
  table.keys.reserve(entries.size());
  table.values.reserve(entries.size());
  for (const std::uint64_t place : order) {
    table.keys.push_back(static_cast<std::uint32_t>(place >> 32U));
    table.values.push_back(entries[static_cast<std::uint32_t>(place)].second.get());
  }
}

/// Fills in random order; the entries are made beforehand.
template <class Make, class Fill>
void buildShuffled(benchmark::State& state, std::size_t n, const Make& make, const Fill& fill) {
  for (auto _ : state) {
    state.PauseTiming();
    {
      const fragment_copy_t entries = shuffledEntries(makeCreators(n));
      const auto field = make(n);
      state.ResumeTiming();
      fill(*field, entries);
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
}

/// One random lookup an iteration; `find` takes the number.
template <class Find>
void lookUp(benchmark::State& state, const std::vector<std::uint32_t>& order, const Find& find) {
  std::size_t next = 0;
  for (auto _ : state) {
    auto found = find(order[next]);
    benchmark::DoNotOptimize(found);
    next = next + 1 == order.size() ? 0 : next + 1;
  }
}

/// One walk over all fragments an iteration.
template <class Walk>
void walk(benchmark::State& state, std::size_t n, const Walk& walkOver) {
  const Filled& all = filled(n);
  for (auto _ : state) benchmark::DoNotOptimize(walkOver(all));
}

void addRowsOfSize(std::size_t n, const std::string& size) {
  addRow(
      "field/build " + size, 1.20, [n](benchmark::State& state) { build(state, n, makeField, fillField); },
      [n](benchmark::State& state) { build(state, n, makeRawField, fillRawField); },
      [n](benchmark::State& state) { build(state, n, makeBareTable, fillBareTable); });
  addRow(
      "field/build reserved " + size, 1.20,
      [n](benchmark::State& state) { build(state, n, makeReservedField, fillField); },
      [n](benchmark::State& state) { build(state, n, makeReservedRawField, fillRawField); },
      [n](benchmark::State& state) { build(state, n, makeReservedBareTable, fillBareTable); });
  addRow(
      "field/build shuffled " + size, 1.15,
      [n](benchmark::State& state) {
        buildShuffled(state, n, makeField,
                      [](Field& field, const fragment_copy_t& entries) { field.setCreatorsViaFragmentIndex(entries); });
      },
      [n](benchmark::State& state) {
        buildShuffled(state, n, makeRawField,
                      [](RawField& field, const fragment_copy_t& entries) { field.bindAll(entries); });
      },
      [n](benchmark::State& state) { buildShuffled(state, n, makeBareTable, fillBareTableShuffled); });
  addRow(
      "field/by number " + size, 1.10,
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.field->getCreatorByNumericalID(i); });
      },
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.raw->at(i); });
      },
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.bare[i]; });
      });
  addRow(
      "field/by number irregular " + size, 1.10,
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.sparse->getCreatorByNumericalID(3 * i + 1); });
      },
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.rawSparse->find(3 * i + 1); });
      },
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        const std::vector<std::uint32_t>& keys = all.rawSparse->keys;
        lookUp(state, all.order, [&](std::uint32_t i) {
          const auto place = std::lower_bound(keys.begin(), keys.end(), 3 * i + 1);
          return all.bare[static_cast<std::size_t>(place - keys.begin())];
        });
      });
  addRow(
      "field/by name " + size, 1.05,
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.field->getCreatorByName(all.names[i]); });
      },
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.raw->find(all.names[i]); });
      },
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.bare[all.raw->index.find(all.names[i])->second]; });
      });
  addRow(
      "field/by object " + size, 1.10,
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.field->getCreator(all.fragments[i]); });
      },
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.raw->find(all.raw->slots[i]); });
      },
      [n](benchmark::State& state) {
        const Filled& all = filled(n);
        lookUp(state, all.order, [&](std::uint32_t i) { return all.bare[all.bareFragments[i]->getNumericalID()]; });
      });
  addRow(
      "field/walk " + size, 1.10,
      [n](benchmark::State& state) {
        unsigned long long sum = 0;
        const Field::FragmentFunction f = Count{&sum};
        walk(state, n, [&](const Filled& all) { return all.field->iterate(f, false, false); });
      },
      [n](benchmark::State& state) {
        unsigned long long sum = 0;
        const Field::FragmentFunction f = Count{&sum};
        walk(state, n, [&](const Filled& all) { return all.raw->walk(f); });
      },
      [n](benchmark::State& state) {
        unsigned long long sum = 0;
        const std::function<bool(const FragmentID*, const CreativeArrayBase*)> f =
            [&sum](const FragmentID* fragment, const CreativeArrayBase* creator) {
              sum += fragment != nullptr && creator != nullptr ? 1 : 0;
              return true;
            };
        walk(state, n, [&](const Filled& all) {
          unsigned int nTrue = 0;
          for (std::size_t i = 0; i < all.bare.size(); ++i) nTrue += f(all.bareFragments[i], all.bare[i]) ? 1U : 0U;
          return nTrue;
        });
      });
}

const Rows rows([] {
  addRowsOfSize(10000, "10k");
  addRowsOfSize(100000, "100k");
  addRowsOfSize(1000000, "1M");
});

}  // namespace
}  // namespace TreskBench
