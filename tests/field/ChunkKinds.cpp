// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Chunk.hpp>
#include <tresk/foundation/FixedArray.hpp>
#include <tresk/foundation/PhysicalSpace.hpp>

#include <field/ChunkKinds.hpp>

namespace TreskTest {

namespace {

using Quorvel::FixedArray;

template <class T>
ChunkPtr make(unsigned long long nElements) {
  return ChunkPtr(new Ostrel::Chunk<T>(nElements));
}

template <class T>
ChunkKind kindOf(const std::string& primitive, int nNumbers = 0) {
  return {primitive, nNumbers, sizeof(T), &make<T>};
}

template <class P>
void addKinds(std::vector<ChunkKind>& kinds, const std::string& primitive) {
  kinds.push_back(kindOf<P>(primitive));
  kinds.push_back(kindOf<FixedArray<P, 2>>(primitive, 2));
  kinds.push_back(kindOf<FixedArray<P, 3>>(primitive, 3));
  kinds.push_back(kindOf<FixedArray<P, 4>>(primitive, 4));
  kinds.push_back(kindOf<FixedArray<P, 5>>(primitive, 5));
  kinds.push_back(kindOf<FixedArray<P, 6>>(primitive, 6));
}

}  // namespace

const std::vector<ChunkKind>& gatherKinds() {
  static const std::vector<ChunkKind> kinds = [] {
    std::vector<ChunkKind> all;
    addKinds<float>(all, "float");
    addKinds<double>(all, "double");
    addKinds<int>(all, "int");
    addKinds<short>(all, "short");
    addKinds<signed char>(all, "signed char");
    addKinds<unsigned int>(all, "unsigned int");
    addKinds<unsigned long long>(all, "unsigned long long");
    addKinds<unsigned short>(all, "unsigned short");
    addKinds<unsigned char>(all, "unsigned char");
    addKinds<char>(all, "char");
    return all;
  }();
  return kinds;
}

const std::vector<ChunkKind>& foreignKinds() {
  static const std::vector<ChunkKind> kinds{
      kindOf<long>("long"),
      kindOf<unsigned long>("unsigned long"),
      kindOf<long long>("long long"),
      kindOf<long double>("long double"),
      kindOf<FixedArray<float, 1>>("float", 1),
      kindOf<FixedArray<float, 7>>("float", 7),
      kindOf<FixedArray<double, 7>>("double", 7),
      kindOf<FixedArray<unsigned long, 3>>("unsigned long", 3),
      kindOf<Quorvel::Vector<double, 3>>("vector of double"),
      kindOf<Quorvel::PhysicalSpace::point>("point"),
  };
  return kinds;
}

const std::vector<ChunkKind>& shiftKinds() {
  static const std::vector<ChunkKind> kinds{
      kindOf<FixedArray<double, 1>>("double", 1), kindOf<FixedArray<double, 2>>("double", 2),
      kindOf<FixedArray<double, 3>>("double", 3), kindOf<FixedArray<double, 4>>("double", 4),
      kindOf<FixedArray<double, 5>>("double", 5), kindOf<FixedArray<double, 6>>("double", 6),
      kindOf<FixedArray<float, 1>>("float", 1),   kindOf<FixedArray<float, 2>>("float", 2),
      kindOf<FixedArray<float, 3>>("float", 3),   kindOf<FixedArray<float, 4>>("float", 4),
      kindOf<FixedArray<float, 5>>("float", 5),   kindOf<FixedArray<float, 6>>("float", 6),
  };
  return kinds;
}

}  // namespace TreskTest
