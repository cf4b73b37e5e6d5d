// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/TypedArray.hpp>

#include <string>
#include <utility>
#include <vector>

namespace TreskTest {

/// An array of names, of any rank: the library has none of its own. It serves size and storage only.
class NameArray : public Tresk::TypedArray<std::string> {
 public:
  /// An array without storage.
  explicit NameArray(const Tresk::DynamicSize& size)
      : MemBase(Tresk::TreskTypeIndex(), Tresk::CreatorWeakPtr()), size_(size) {}
  NameArray(const Tresk::DynamicSize& size, const std::vector<std::string>& names)
      : MemBase(Tresk::TreskTypeIndex(), Tresk::CreatorWeakPtr()),
        size_(size),
        names_(new Ostrel::Chunk<std::string>(names.size())) {
    names_->vector() = names;
  }

  unsigned long long memsize() const override { return 0; }
  int rank() const override { return size_.Dims(); }
  Tresk::DynamicSize getSize() const override { return size_; }
  unsigned long long nElements() const override { return size_.nElements(); }
  const Tresk::HyperslabParameters& getHyperslab() const override { return walk_; }
  std::string getElementString(unsigned long long) const override { return {}; }
  void* getDataPointer() const override { return nullptr; }
  const double* getOrigin() const override { return nullptr; }
  const double* getDelta() const override { return nullptr; }
  Tresk::MemBasePtr makeExplicit(const Tresk::CreatorWeakPtr&) const override { return {}; }
  Tresk::MemBasePtr getComponent(int, const Tresk::CreatorWeakPtr&) const override { return {}; }
  Tresk::MemBasePtr createSubArray(const Tresk::DynamicSize&, const Tresk::DynamicSize&,
                                   const Tresk::CreatorWeakPtr&) const override {
    return {};
  }
  Tresk::MemBasePtr createOnChunk(const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>&,
                                  const Tresk::CreatorWeakPtr&) const override {
    return {};
  }
  bool copyFromChunk(const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>&) override { return false; }
  Tresk::MemBasePtr copy(const Tresk::CreatorWeakPtr&) const override { return {}; }
  std::string first() const override { return {}; }
  std::string last() const override { return {}; }
  const Tresk::CreativeIterator<std::string>& getIterator() const override { return walk_; }
  Tresk::CreativeIterator<std::string>& getIterator() override { return walk_; }
  Ostrel::StrongPtr<Ostrel::TypedChunk<std::string>, Ostrel::ChunkBase> getTypedChunk() const override {
    return names_;
  }

 private:
  Tresk::DynamicSize size_;
  Ostrel::StrongPtr<Ostrel::TypedChunk<std::string>, Ostrel::ChunkBase> names_;
  Tresk::CreativeIterator<std::string> walk_;
};

using NameArrayPtr = Ostrel::StrongPtr<Tresk::TypedArray<std::string>, Ostrel::Cacheable>;

inline NameArrayPtr makeNames(const Tresk::DynamicSize& size, const std::vector<std::string>& names) {
  return NameArrayPtr(new NameArray(size, names));
}

}  // namespace TreskTest
