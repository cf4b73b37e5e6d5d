// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// A plug-in that brings an element type: the stress in a plate. Programs load it while they run, and need not know it.
#include <tresk/field/Field.hpp>
#include <tresk/field/FunctionalCreator.hpp>
#include <tresk/field/MemArrayImplementation.hpp>

#include <string>

// [element type]
namespace Plate {

/// Stress in a plane, in Pa: along x, along y, and shear.
class TRESK_EXPORT Stress : public Quorvel::FixedArray<double, 3> {
 public:
  using Quorvel::FixedArray<double, 3>::FixedArray;
  constexpr Stress() noexcept {}  // leaves the components as they are, so that large arrays are not written twice
};

/// One element as text. Found by its namespace.
inline std::string elementText(const Stress& stress) {
  using Tresk::elementText;
  return elementText(stress[0]) + " " + elementText(stress[1]) + " shear " + elementText(stress[2]);
}

}  // namespace Plate

template <>
struct Tresk::ElementTraits<Plate::Stress> : Tresk::TupleTraits<double, 3> {};  // three doubles

TRESK_INSTANTIATE_ELEMENT_TYPE(Plate::Stress);
// [element type]

// [entry]
/// Binds the stress in a plate of 4 x 3 points to a field of the program that has loaded this.
extern "C" TRESK_EXPORT void bindStress(Tresk::Field& field);
extern "C" void bindStress(Tresk::Field& field) {
  const auto compute = [] {
    using Array = Tresk::MemArray<2, Plate::Stress>;
    const Ostrel::RefPtr<Array> array(new Array({4, 3}, Tresk::CreatorWeakPtr()));
    for (int j = 0; j < 3; ++j)
      for (int i = 0; i < 4; ++i) (*array)(i, j) = Plate::Stress(1000 * i, 100 * j, 0.5);
    return Tresk::MemBasePtr(array);
  };
  const Tresk::CreatorPtr creator(new Tresk::FunctionalCreator(compute, false, Ostrel::Cache::MemCache()));
  creator->addMetaInfo(Tresk::DynamicSize{4, 3}, Tresk::getTreskType<Plate::Stress>());
  field.setCreator(creator, field.makeFragmentID("plate"));
}
// [entry]
