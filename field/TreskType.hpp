// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/ElementTypes.hpp>
#include <tresk/field/TreskTypeBase.hpp>
#include <tresk/foundation/Chunk.hpp>
#include <tresk/foundation/Diagnostics.hpp>
#include <tresk/foundation/Pointers.hpp>

namespace Tresk {

/// The record of the element type `T`; made at the first call. Every place that needs the record of a compile-time
/// type calls this. The first call for a further type belongs to the load time of the library that brings it.
template <class T>
TRESK_OPEN_TEMPLATE TreskTypePtr getTreskType();

/// The record for one compile-time element type, filled from its row, `ElementTraits<T>`.
template <class T>
class TRESK_OPEN_TEMPLATE TreskType : public TreskTypeBase {
 public:
  using Traits = ElementTraits<T>;  ///< the row of the type

  /// A record that `find` knows. `getTreskType` makes the one that is used.
  TreskType() : TreskTypeBase(index()) { remember(); }
  ~TreskType() override = default;

  const std::type_info& getType() const override { return typeid(T); }
  bool isType(const std::type_info& type) const override { return type == typeid(T); }
  Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> createChunk(std::size_t count) const override {
    return Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>(new Ostrel::Chunk<T>(count));
  }
  unsigned int indexOf(const unsigned int& i) const override { return i; }
  TreskTypePtr getComponentType() const override { return getTreskType<typename Traits::ComponentType>(); }
  std::string chartComponentName(int i) const override { return Traits::chartComponentName(i); }
  const std::type_info& getChartType() const override { return typeid(typename Traits::ChartType); }
  int indexKind(unsigned int) const override { return Traits::indexKind; }
  int indexExtra(unsigned int) const override { return 0; }

  /// The properties of `T`. They stay when the records have ended at the end of the process.
  static const TreskTypeIndex& index() {
    static const TreskTypeIndex* const made = new TreskTypeIndex(makeIndex());
    return *made;
  }

 private:
  static TreskTypeIndex makeIndex() {
    return {Traits::multiplicity,
            sizeof(T),
            Traits::rank,
            Traits::grade,
            sizeof(typename Traits::ComponentType),
            Ostrel::Typename(typeid(T)),
            Ostrel::Typename(typeid(typename Traits::ComponentType)),
            Ostrel::Typename(typeid(typename Traits::ChartType)),
            Traits::chartDimension};
  }
};

template <class T>
TreskTypePtr getTreskType() {
  static Ostrel::StaticAuto<TreskType<T>> record;
  return TreskTypePtr(record.get());
}

#define TRESK_DECLARE_RECORD(...)                            \
  extern template class TRESK_EXPORT TreskType<__VA_ARGS__>; \
  extern template TRESK_EXPORT TreskTypePtr getTreskType<__VA_ARGS__>();
TRESK_FOR_EACH_ELEMENT_TYPE(TRESK_DECLARE_RECORD)
#undef TRESK_DECLARE_RECORD

}  // namespace Tresk
