// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreateIndirection.hpp>

#include <tresk/field/MemBase.hpp>
#include <tresk/field/ParallelRange.hpp>
#include <tresk/field/PrimitiveTypes.hpp>
#include <tresk/foundation/Profiler.hpp>

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Tresk {

namespace {

using Detail::ChunkPtr;
using index_t = unsigned long long;

constexpr const char* SourceFile = "field/CreateIndirectionArray";

/// The place of item i: looked up and shifted, in the width of the index.
template <class IndexType>
struct IndexedPlace {
  const IndexType* indices;
  IndexType offset;
  index_t operator()(index_t i) const { return static_cast<IndexType>(offset + indices[i]); }
};

/// The place of item i: itself, shifted.
struct ConsecutivePlace {
  index_t offset;
  index_t operator()(index_t i) const { return offset + i; }
};

/// Blocks of a number of bytes that the compiler knows, copied by way of registers, as blocks may overlap.
template <std::size_t Bytes>
struct FixedBlock {
  static constexpr std::size_t size() { return Bytes; }
  static void copy(char* dst, const char* src) {
    if constexpr (Bytes == 3 * sizeof(std::uint64_t)) {
      // Three words, and not a pair and a word: pairs cross the lines of the cache.
      std::uint64_t a, b, c;
      std::memcpy(&a, src, sizeof(a));
      std::memcpy(&b, src + sizeof(a), sizeof(b));
      std::memcpy(&c, src + 2 * sizeof(a), sizeof(c));
      std::memcpy(dst, &a, sizeof(a));
      std::memcpy(dst + sizeof(a), &b, sizeof(b));
      std::memcpy(dst + 2 * sizeof(a), &c, sizeof(c));
    } else {
      char block[Bytes];
      std::memcpy(block, src, Bytes);
      std::memcpy(dst, block, Bytes);
    }
  }
};

/// Blocks of any number of bytes.
struct AnyBlock {
  std::size_t bytes;
  std::size_t size() const { return bytes; }
  void copy(char* dst, const char* src) const { std::memmove(dst, src, bytes); }
};

/// The loop: copies block `from(i)` to block `to(i)`.
template <class Block, class To, class From>
void copyBlocks(Block block, char* dst, const char* src, Detail::Range range, To to, From from) {
  Detail::forEachShare(range, [=](index_t begin, index_t end) {
    // Copies of its own for the thread: a write of bytes might change the shared ones, for all the compiler knows.
    const Block ownBlock = block;
    const To ownTo = to;
    const From ownFrom = from;
    char* const ownDst = dst;
    const char* const ownSrc = src;
    for (index_t i = begin; i < end; ++i)
      ownBlock.copy(ownDst + ownTo(i) * ownBlock.size(), ownSrc + ownFrom(i) * ownBlock.size());
  });
}

/// One indirection, without the type of its elements.
template <class IndexType>
struct Indirection {
  const std::vector<IndexType>* dstIndices;
  const std::vector<IndexType>* srcIndices;
  Detail::Range range;
  int dstOffset;
  int srcOffset;

  /// Whether the one test of bounds passes.
  bool fits(index_t dstCount) const {
    if (dstIndices != nullptr || srcIndices == nullptr) return true;
    return dstCount >= static_cast<index_t>(static_cast<long long>(dstOffset)) + range.end;
  }

  /// The loop of the case at hand, so that none of them tests for an index vector.
  template <class Block>
  void run(Block block, void* dst, const void* src) const {
    if (dstIndices != nullptr)
      runTo(block, dst, src, IndexedPlace<IndexType>{dstIndices->data(), static_cast<IndexType>(dstOffset)});
    else
      runTo(block, dst, src, ConsecutivePlace{static_cast<index_t>(static_cast<long long>(dstOffset))});
  }

 private:
  template <class Block, class To>
  void runTo(Block block, void* dst, const void* src, To to) const {
    auto* const out = static_cast<char*>(dst);
    const auto* const in = static_cast<const char*>(src);
    if (srcIndices != nullptr)
      copyBlocks(block, out, in, range, to,
                 IndexedPlace<IndexType>{srcIndices->data(), static_cast<IndexType>(srcOffset)});
    else
      copyBlocks(block, out, in, range, to, ConsecutivePlace{static_cast<index_t>(static_cast<long long>(srcOffset))});
  }
};

/// Copies elements.
template <class T, class IndexType>
bool doIndirection(std::vector<T>& dst, const std::vector<T>& src, const Indirection<IndexType>& indirection) {
  const Ostrel::Profiler profiler(SourceFile, 42, __PRETTY_FUNCTION__, "CreateIndirectionArray - doIndirection", 6, "");
  if (!indirection.fits(dst.size())) return false;
  static_assert(std::is_trivially_copyable_v<T>, "elements are copied as bytes");
  indirection.run(FixedBlock<sizeof(T)>(), dst.data(), src.data());
  return true;
}

/// Copies items of several elements. The destination is counted in elements, deliberately.
template <class T, class IndexType>
bool doArrayIndirection(std::size_t components, std::vector<T>& dst, const std::vector<T>& src,
                        const Indirection<IndexType>& indirection) {
  const Ostrel::Profiler profiler(SourceFile, 182, __PRETTY_FUNCTION__, "CreateIndirectionArray - doArrayIndirection",
                                  6, "");
  if (!indirection.fits(dst.size())) return false;
  switch (components) {
    case 0:
      break;
    case 2:
      indirection.run(FixedBlock<2 * sizeof(T)>(), dst.data(), src.data());
      break;
    case 3:
      indirection.run(FixedBlock<3 * sizeof(T)>(), dst.data(), src.data());
      break;
    case 4:
      indirection.run(FixedBlock<4 * sizeof(T)>(), dst.data(), src.data());
      break;
    default:
      indirection.run(AnyBlock{components * sizeof(T)}, dst.data(), src.data());
  }
  return true;
}

template <class IndexType>
bool iCreateIndirection(std::size_t components, const ChunkPtr& dst, const ChunkPtr& src,
                        const Indirection<IndexType>& indirection) {
  const Ostrel::Profiler profiler(SourceFile, 343, __PRETTY_FUNCTION__, "ComputeArrayIndirection()", 6, "Indirection");
  const ChunkPtr dstHeld = dst;
  const ChunkPtr srcHeld = src;
  if (!dstHeld || !srcHeld) return false;
  return Detail::withElements<Detail::GatherPrimitives>(dstHeld.get(), [&]<class T>(std::vector<T>& to) {
    const std::vector<T>* const from = Detail::elementsOf<T>(srcHeld.get());
    if (from == nullptr) return false;
    return components == 1 ? doIndirection(to, *from, indirection)
                           : doArrayIndirection(components, to, *from, indirection);
  });
}

/// Gathers through indices of that type; false for a chunk of another type.
template <class IndexType>
bool pull(const MemBasePtr& target, const MemBasePtr& source, const ChunkPtr& indices, unsigned long long components) {
  const std::vector<IndexType>* const from = Detail::elementsOf<IndexType>(indices.get());
  if (from == nullptr) return false;
  const ChunkPtr src = source->getChunk();
  const ChunkPtr dst = target->getChunk();
  return CreateIndirection(dst, src, nullptr, from, 0, from->size(), 0, 0, components);
}

}  // namespace

bool CreateIndirection(const ChunkPtr& dst, const ChunkPtr& src, const std::vector<unsigned int>* dstIndices,
                       const std::vector<unsigned int>* srcIndices, unsigned long long begin, unsigned long long end,
                       int dstOffset, int srcOffset, unsigned long long components) {
  return iCreateIndirection<unsigned int>(components, dst, src,
                                          {dstIndices, srcIndices, {begin, end}, dstOffset, srcOffset});
}

bool CreateIndirection(const ChunkPtr& dst, const ChunkPtr& src, const std::vector<unsigned long long>* dstIndices,
                       const std::vector<unsigned long long>* srcIndices, unsigned long long begin,
                       unsigned long long end, int dstOffset, int srcOffset, unsigned long long components) {
  return iCreateIndirection<unsigned long long>(components, dst, src,
                                                {dstIndices, srcIndices, {begin, end}, dstOffset, srcOffset});
}

MemBasePtr pullData(const MemBasePtr& source, const ChunkPtr& indices, const DynamicSize& size,
                    unsigned long long components) {
  if (!source) return MemBasePtr();
  const MemBasePtr target = source->create(size, typeid(void));
  const ChunkPtr held = indices;
  if (!target || !held) return MemBasePtr();
  if (pull<unsigned int>(target, source, held, components)) return target;
  if (pull<unsigned long long>(target, source, held, components)) return target;
  return MemBasePtr();
}

MemBasePtr pullData(const MemBasePtr& source, const MemBasePtr& indices, unsigned long long components) {
  if (!indices) return MemBasePtr();
  const DynamicSize size = indices->getSize();
  return pullData(source, indices->getChunk(), components < 2 ? size : DynamicSize(components, size), components);
}

}  // namespace Tresk
