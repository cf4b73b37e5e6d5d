// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <border/WindPlugin.hpp>

#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArrayImplementation.hpp>

#include <atomic>

namespace TreskTest {

/// East and north, in m/s: an element type that neither the library nor the program knows.
class TRESK_EXPORT Wind : public Quorvel::FixedArray<double, 2> {
 public:
  using Quorvel::FixedArray<double, 2>::FixedArray;
  constexpr Wind() noexcept {}  // NOLINT(modernize-use-equals-default)
};

std::string elementText(const Wind& wind);
std::string elementText(const Wind& wind) {
  return Tresk::elementText(wind[0]) + " east " + Tresk::elementText(wind[1]) + " north";
}

}  // namespace TreskTest

template <>
struct Tresk::ElementTraits<TreskTest::Wind> : Tresk::TupleTraits<double, 2> {
  static constexpr int rank = 1;
  static constexpr int grade = 0;
  static constexpr int indexKind = 1;
};

TRESK_INSTANTIATE_ELEMENT_TYPE(TreskTest::Wind);

namespace {

using Ostrel::StrongPtr;
using Tresk::CreatorPtr;
using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::FieldPtr;
using Tresk::MemArray;
using Tresk::MemBase;
using Tresk::MemBasePtr;
using TreskTest::Station;
using TreskTest::Strength;
using TreskTest::Wind;

std::atomic<int> nArrays{0};
std::atomic<int> nGusts{0};

/// Takes the place of the allocator that came with the element type.
class WindAllocator : public Tresk::MemArrayAllocator<Wind> {
 public:
  MemBasePtr create(const DynamicSize& size) const override {
    ++nArrays;
    return Tresk::MemArrayAllocator<Wind>::create(size);
  }
};

const int isRegistered = MemBase::registerCreator(
    StrongPtr<MemBase::Allocator, Ostrel::InterfaceBase>(new WindAllocator), Tresk::getTreskType<Wind>());

class Lighthouse : public Station {
 public:
  std::string name() const override { return "lighthouse"; }
};

/// Winds that grow by the strength that somebody has attached to the creator.
class GustCreator : public Tresk::FunctionalCreatorBase {
 public:
  GustCreator(unsigned long long nElements, const Tresk::CacheWeakPtr& cache)
      : FunctionalCreatorBase(false, cache), nElements_(nElements) {
    ++nGusts;
    addMetaInfo(DynamicSize{nElements}, Tresk::getTreskType<Wind>());
    addInterface(StrongPtr<Station, Ostrel::InterfaceBase>(new Lighthouse));
  }
  ~GustCreator() override { --nGusts; }

  MemBasePtr compute() const override {
    const StrongPtr<Strength, Ostrel::InterfaceBase> strength = Ostrel::findInterface<Strength>(*this);
    const double factor = strength ? strength->factor() : 1.0;
    const MemBasePtr made = MemBase::create(Tresk::getTreskType<Wind>(), DynamicSize{nElements_}, typeid(GustCreator));
    auto& array = dynamic_cast<MemArray<1, Wind>&>(*made);
    double value = 0;
    for (Wind& wind : array.getTypedChunk()->vector()) {
      wind = Wind(factor * value, -value);
      value += 1;
    }
    return made;
  }

 private:
  unsigned long long nElements_;
};

CreatorPtr makeCreator(unsigned long long nElements, const Tresk::CacheWeakPtr& cache) {
  return CreatorPtr(new GustCreator(nElements, cache));
}

double sumOf(const FieldPtr& field) {
  double sum = 0;
  for (unsigned int i = 0; i < field->nFragments(); ++i) {
    const CreatorPtr creator = field->getCreatorByNumericalID(i);
    const MemBasePtr data = creator ? creator->create(false) : MemBasePtr();
    if (const auto* const array = dynamic_cast<const MemArray<1, Wind>*>(data.get()))
      for (const Wind& wind : array->getTypedChunk()->vector()) sum += wind[0];
  }
  return sum;
}

}  // namespace

extern "C" TRESK_EXPORT const TreskTest::WindPlugin* treskTestPlugin();
extern "C" const TreskTest::WindPlugin* treskTestPlugin() {
  static constexpr TreskTest::WindPlugin offered{&makeCreator, [] { return isRegistered * nArrays.load(); },
                                                 [] { return nGusts.load(); }, &sumOf};
  return &offered;
}
