// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A walk over the copy of a table, the description of a field, and fields that are computed from others.

#include "Harness.hpp"
#include "RawField.hpp"

#include <tresk/field/ComputationalField.hpp>
#include <tresk/field/CreativeArray.hpp>

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace TreskBench {
namespace {

using namespace Tresk;

constexpr unsigned int Fragments = 100000;

/// A field whose creators know size and type and hold nothing.
FieldPtr makeField(unsigned int nFragments) {
  FieldPtr field(new Field);
  for (unsigned int i = 0; i < nFragments; ++i) {
    const CreatorPtr creator(new FunctionalCreator(nullptr, false, CacheWeakPtr()));
    creator->addMetaInfo(DynamicSize{64, 64, 16}, getTreskType<double>());
    field->setCreator(creator, FragmentIDPtr(field->makeFragmentID("block " + std::to_string(i))));
  }
  return field;
}

const FieldPtr& largeField() {
  static const FieldPtr field = makeField(Fragments);
  return field;
}

/// The tables of a field, bare.
struct RawTable {
  std::vector<std::uint32_t> keys;
  std::vector<CreatorPtr> values;
  std::vector<FragmentIDPtr> slots;
  mutable FragmentMutex mutex;

  explicit RawTable(const Field& field) : slots(field.getFragmentIDs()) {
    for (std::uint32_t i = 0; i < slots.size(); ++i) {
      keys.push_back(i);
      values.push_back(field.getCreatorByNumericalID(i));
    }
  }
};

const RawTable& largeTable() {
  static const RawTable table(*largeField());
  return table;
}

void walkRawCopy(benchmark::State& state) {
  const RawTable& table = largeTable();
  unsigned long long sum = 0;
  const Field::FragmentFunction f = Count{&sum};
  for (auto _ : state) {
    std::vector<std::pair<std::uint32_t, CreatorPtr>> copy;
    {
      const SharedFragmentLock lock(table.mutex);
      copy.reserve(table.keys.size());
      for (std::size_t i = 0; i < table.keys.size(); ++i) copy.emplace_back(table.keys[i], table.values[i]);
    }
    unsigned int nTrue = 0;
    for (const auto& [key, creator] : copy) {
      const FragmentIDPtr fragment = key < table.slots.size() ? table.slots[key] : FragmentIDPtr();
      if (creator && f(fragment, creator)) ++nTrue;
    }
    benchmark::DoNotOptimize(nTrue);
  }
}

void walkCopy(benchmark::State& state) {
  const Field& field = *largeField();
  unsigned long long sum = 0;
  const Field::FragmentFunction f = Count{&sum};
  for (auto _ : state) benchmark::DoNotOptimize(field.iterate(f, false, true));
}

/// The description from bare tables: the same questions to the creators, the same text.
void describeRaw(benchmark::State& state) {
  const RawTable& table = largeTable();
  const auto number = [](std::string& text, std::string_view before, auto value, std::string_view after) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof(digits), value);
    text.append(before).append(digits, end.ptr).append(after);
  };
  for (auto _ : state) {
    std::string text;
    text.reserve(400 * table.keys.size());
    for (std::size_t i = 0; i < table.slots.size(); ++i) {
      number(text, "\t    <FRAGMENTID>\n\t     <NUMBER>", i, "</NUMBER>\n");
      if (table.slots[i]) {
        number(text, "\t     <NUMERICALID>", table.slots[i]->getNumericalID(), "</NUMERICALID>\n");
        text.append("\t     <NAME>").append(table.slots[i]->getName()).append("</NAME>\n");
      }
      text.append("\t    </FRAGMENTID>\n");
    }
    for (std::size_t i = 0; i < table.keys.size(); ++i) {
      number(text, "\t    <FRAGMENT>\n\t      <ID>", table.keys[i], "</ID>\n");
      const CreatorPtr creator = table.values[i];
      if (const SizePtr size = getSize(*creator)) text.append("\t      <SIZE>").append(size->str()).append("</SIZE>\n");
      text.append(creator->hasData() ? "\t      <DATA>\n\t      </DATA>\n" : "\t      <DATA/>\n");
      text.append("\t    </FRAGMENT>\n");
    }
    benchmark::DoNotOptimize(text.data());
  }
}

// --------------------------------------------------------------------------------------------------- computed fields

constexpr unsigned int SmallField = 1000;

/// What a computed fragment needs: a creator of the same size, which is described and bound.
struct RawComputer {
  FieldWeakPtr owner;
  FragmentIDPtr fragment;
  CreatorPtr left;
  MemBasePtr operator()(const CreatorWeakPtr&) const { return MemBasePtr(); }
};

void constructRaw(benchmark::State& state) {
  static const FieldPtr left = makeField(SmallField);
  for (auto _ : state) {
    const FieldPtr field(new Field(FieldWeakPtr(left)));
    const FieldWeakPtr self(field);
    const CacheWeakPtr cache(Ostrel::Cache::MemCache());
    left->iterate(
        [&](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
          const auto properties = Ostrel::findInterface<MemArrayProperties>(*creator);
          if (!properties) return false;
          const TreskTypePtr type(properties->getType());
          if (!type || type->getType() != typeid(double) || properties->getRank() != 3) return false;
          const CreatorPtr made(
              new OnDemandCreator<RawComputer, 3, double>(RawComputer{self, fragment, creator}, cache));
          made->addMetaInfo(3, getTreskType<double>());
          field->setCreator(made, fragment);
          return true;
        },
        false, false);
    benchmark::DoNotOptimize(field.get());
  }
}

void construct(benchmark::State& state) {
  static const FieldPtr left = makeField(SmallField);
  static const FieldPtr right = makeField(SmallField);
  for (auto _ : state) {
    const FieldPtr sum = addFields(left, right);
    benchmark::DoNotOptimize(sum.get());
  }
}

/// A field of one fragment with `n` numbers.
FieldPtr makeNumbers(unsigned long long n, const FieldPtr& sibling, double scale) {
  FieldPtr field(sibling ? new Field(FieldWeakPtr(sibling)) : new Field);
  const Ostrel::StrongPtr<MemArray<1, double>, Ostrel::Cacheable> data(new MemArray<1, double>({n}, CreatorWeakPtr()));
  for (unsigned long long i = 0; i < n; ++i) (*data)(i) = scale * static_cast<double>(i);
  const CreatorPtr creator(new CreativeArray(data, Ostrel::Cache::MemCache()));
  creator->addDataMetaInfo(data);
  field->setCreator(creator, FragmentIDPtr(field->makeFragmentID("all")));
  return field;
}

/// The operands of one size, which both sides read.
template <unsigned long long N>
struct Operands {
  FieldPtr left = makeNumbers(N, FieldPtr(), 0.5);
  FieldPtr right = makeNumbers(N, left, 0.25);
  static const Operands& get() {
    static const Operands operands;
    return operands;
  }
};

// Each side runs once before it is measured, so that the memory that it gets has been in use before.

template <unsigned long long N>
void compute(benchmark::State& state) {
  const FieldPtr sum = addFields(Operands<N>::get().left, Operands<N>::get().right);
  const CreatorPtr creator = sum->getFirstCreator();
  const auto run = [&creator] {
    benchmark::DoNotOptimize(creator->create(false)->getDataPointer());
    creator->release();
  };
  run();
  for (auto _ : state) run();
}

template <unsigned long long N>
void computeRaw(benchmark::State& state) {
  const auto* const a = static_cast<const double*>(Operands<N>::get().left->getFirstData()->getDataPointer());
  const auto* const b = static_cast<const double*>(Operands<N>::get().right->getFirstData()->getDataPointer());
  const auto run = [a, b] {
    auto* const sum = static_cast<double*>(std::malloc(N * sizeof(double)));
    Ostrel::Detail::preferLargePages(sum, N * sizeof(double));
    for (unsigned long long i = 0; i < N; ++i) sum[i] = a[i] + b[i];
    benchmark::DoNotOptimize(sum);
    benchmark::ClobberMemory();
    std::free(sum);
  };
  run();
  for (auto _ : state) run();
}

const Rows rows([] {
  addRow("field/walk 100k snapshot", 1.10, walkCopy, walkRawCopy);
  addRow(
      "field/xml 100k", 0,
      [](benchmark::State& state) {
        const Field& field = *largeField();
        for (auto _ : state) benchmark::DoNotOptimize(field.xml().data());
      },
      describeRaw);
  addRow("computed/construct 1k", 1.20, construct, constructRaw);
  addRow("computed/add old 128k", 1.05, compute<(1ULL << 17)>, computeRaw<(1ULL << 17)>);
  addRow("computed/add fresh 16M", 1.05, compute<(1ULL << 24)>, computeRaw<(1ULL << 24)>);
});

}  // namespace
}  // namespace TreskBench
