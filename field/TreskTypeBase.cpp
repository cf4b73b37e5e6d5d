// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/TreskTypeBase.hpp>

#include <tresk/field/MemArray.hpp>
#include <tresk/field/TypeEquality.hpp>
#include <tresk/foundation/Diagnostics.hpp>

#include <array>
#include <cstdio>
#include <initializer_list>
#include <map>
#include <vector>

namespace Tresk {

namespace {

using TypeRegistry = std::multimap<TreskTypeIndex, TreskTypeWeakPtr>;

/// Outlives all records, and threads that look for one while the process ends.
TypeRegistry& theRegistry() {
  static TypeRegistry* const registry = new TypeRegistry;
  return *registry;
}

/// Note [Element types in a static library]
/// The objects of `elements/` register their types when they are loaded, and nobody calls them by name. Of a static
/// library the linker takes only objects that another one refers to. So the registry refers to them all: whoever can
/// look for a type has each of them.
#define TRESK_REFER_TO_REGISTRATION(...) &MemArray<1, __VA_ARGS__>::isRegistered,
[[gnu::used]] constexpr std::array registrations{TRESK_FOR_EACH_ELEMENT_TYPE(TRESK_REFER_TO_REGISTRATION)};
#undef TRESK_REFER_TO_REGISTRATION

/// Joins texts and numbers.
std::string join(std::initializer_list<std::string> pieces) {
  std::string text;
  for (const std::string& piece : pieces) text += piece;
  return text;
}

std::string describe(const TreskTypeIndex& index, const std::string& typeName) {
  const std::string multiplicity = std::to_string(index.multiplicity);
  return join({"{", typeName, "} is ", index.chartName, index.componentTypeName, "[", multiplicity, "] (rank ",
               std::to_string(index.rank), ", grade ", std::to_string(index.grade), ") Size=",
               std::to_string(index.memSize), " [", multiplicity, " x ", std::to_string(index.elementSize), "]"});
}

/// Prints a line with a text, cut to what a buffer of 512 bytes holds.
void printText(const char* format, const std::string& text) {
  std::array<char, 512> buffer;
  std::snprintf(buffer.data(), buffer.size(), "%s", text.c_str());
  std::printf(format, buffer.data());
}

const char* rawName(const std::type_info& type) {
  const char* const name = type.name();
  return *name == '*' ? name + 1 : name;
}

/// Joins `name(i)` for i from 0 to `n` - 1 by commas.
template <class Name>
std::string joinNames(unsigned int n, const Name& name) {
  std::string text;
  for (unsigned int i = 0; i < n; ++i) {
    if (i > 0) text += ',';
    text += name(i);
  }
  return text;
}

}  // namespace

std::string TreskTypeIndex::description() const { return describe(*this, typeName); }

TreskTypeBase::TreskTypeBase(const TreskTypeIndex& index)
    : TreskTypeIndex(index), Ostrel::ReferenceBase<TreskTypeBase>(this) {}

TreskTypeBase::~TreskTypeBase() = default;

bool TreskTypeBase::remember() const {
  const TreskTypeWeakPtr self = getSelf();
  if (!self) return false;
  theRegistry().emplace(static_cast<const TreskTypeIndex&>(*this), self);
  return true;
}

TreskTypeWeakPtr TreskTypeBase::find(const TreskTypeIndex& index) {
  const auto& registry = theRegistry();
  for (auto entry = registry.lower_bound(index); entry != registry.end() && entry->first == index; ++entry)
    if (entry->second) return entry->second;
  return TreskTypeWeakPtr();
}

TreskTypeWeakPtr TreskTypeBase::find(const std::type_info& type) {
  for (const auto& [index, record] : theRegistry()) {
    const Ostrel::Pin<TreskTypeBase> alive(record);
    if (alive && isSameType(alive->getType(), type)) return record;
  }
  return TreskTypeWeakPtr();
}

std::string TreskTypeBase::description() const {
  std::string text = describe(*this, Ostrel::Typename(getType()));
  for (int i = 0; i < rank; ++i) {
    const int kind = indexKind(static_cast<unsigned int>(i));
    text += kind > 0 ? "(upper)" : kind < 0 ? "(lower)" : "()";
  }
  return text;
}

std::string TreskTypeBase::component_name(unsigned int i) const {
  if (rank <= 0) return Ostrel::Typename(getType());
  if (multiplicity == 3 && grade == 2 && i < 3) {
    const std::string letter = indexKind(0) < 0 ? "d" : "D";
    static constexpr std::array<std::array<const char*, 2>, 3> pairs{{{"y", "z"}, {"z", "x"}, {"x", "y"}}};
    return letter + pairs[i][0] + "^" + letter + pairs[i][1];
  }
  std::string name;
  unsigned int rest = i;
  for (int index = 0; index < rank; ++index) {
    // Index 0 varies fastest. Without a chart there is nothing to divide by, and no coordinate has a name.
    unsigned int position = rest;
    if (rank > 1 && chartDimension > 0) {
      position = rest % static_cast<unsigned int>(chartDimension);
      rest /= static_cast<unsigned int>(chartDimension);
    }
    const int kind = indexKind(static_cast<unsigned int>(index));
    name += kind > 0 ? "D" : kind < 0 ? "d" : "";
    name += chartComponentName(static_cast<int>(position));
  }
  return name;
}

void TreskTypeBase::speak() const {
  std::printf("Rank:\t       %d\n", rank);
  std::printf("Multiplicity: %d\n", static_cast<int>(multiplicity));
  std::printf("Grade:\t       %d\n", grade);
  std::printf("Chart Dim:    %d\n", chartDimension);
  printText("Type Info:    %s\n", rawName(getType()));
  printText("Chart Type:   %s\n", rawName(getChartType()));
  if (multiplicity >= 2) {
    std::printf("Components:   ");
    for (unsigned int i = 0; i < multiplicity; ++i) std::printf("%s ", chartComponentName(static_cast<int>(i)).c_str());
    std::printf("\n");
  }
  std::printf("MemSize:      %d\n", static_cast<int>(memSize));
  std::printf("ElementSize:  %d\n", static_cast<int>(elementSize));
  printText("Description:  %s\n", description());
}

}  // namespace Tresk

std::string std::to_string(const Tresk::TreskTypeBase& type) {
  std::string indexPattern;
  for (int i = 0; i < type.rank; ++i) {
    const int kind = type.indexKind(static_cast<unsigned int>(i));
    indexPattern += kind == 1 ? "^" : kind == -1 ? "_" : Tresk::join({"{", std::to_string(kind), "}"});
  }
  const std::string chartList =
      Tresk::join({"{",
                   Tresk::joinNames(static_cast<unsigned int>(type.chartDimension),
                                    [&](unsigned int i) { return type.chartComponentName(static_cast<int>(i)); }),
                   "}"});
  const std::string componentList = Tresk::join(
      {"<", Tresk::joinNames(type.multiplicity, [&](unsigned int i) { return type.component_name(i); }), ">"});
  // The type of the component's record, not of the component: this is deliberate.
  const Tresk::TreskTypePtr component = type.getComponentType();
  const std::type_info* componentType = &typeid(void);
  if (component) {
    const Tresk::TreskTypeBase& record = *component;
    componentType = &typeid(record);
  }
  const std::string multiplicity = std::to_string(type.multiplicity);
  return Tresk::join({Ostrel::Typename(type.getType()),
                      ": ",
                      Ostrel::Typename(*componentType),
                      "[",
                      multiplicity,
                      "]",
                      " rank ",
                      std::to_string(type.rank),
                      " (that many indices: {",
                      indexPattern,
                      "} , 0=scalar, 1=vector, 2=matrix),",
                      " grade ",
                      std::to_string(type.grade),
                      ", multiplicity ",
                      multiplicity,
                      ", chart dimension ",
                      std::to_string(type.chartDimension),
                      ", domain: [",
                      type.chartName,
                      "] ",
                      chartList,
                      " tensor type: ",
                      componentList});
}
