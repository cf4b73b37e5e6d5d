// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/CreateSample.hpp>

#include <tresk/field/MemBase.hpp>
#include <tresk/field/ParallelRange.hpp>
#include <tresk/field/PrimitiveTypes.hpp>

#include <cstring>
#include <limits>
#include <optional>
#include <vector>

namespace Tresk {

namespace {

using Detail::ChunkPtr;

/// stride x count + offset, if that fits 64 bits.
std::optional<unsigned long long> requiredSize(unsigned long long stride, unsigned long long count,
                                               unsigned long long offset) {
  constexpr unsigned long long Greatest = std::numeric_limits<unsigned long long>::max();
  if (stride != 0 && count > (Greatest - offset) / stride) return std::nullopt;
  return stride * count + offset;
}

/// Whether a chunk has the elements that it must have. With a stride of 0 that number counts none but those before the
/// offset, and the one at the offset must be there as well.
bool hasRoom(unsigned long long size, unsigned long long stride, unsigned long long count, unsigned long long offset) {
  const std::optional<unsigned long long> required = requiredSize(stride, count, offset);
  return required && size >= *required && (stride != 0 || count == 0 || offset < size);
}

template <class T>
void copySample(T* dst, const T* src, const SampleParameters& parameters) {
  if (parameters.count == 0) return;
  const unsigned long long dstStride = parameters.destinationStride;
  const unsigned long long srcStride = parameters.sourceStride;
  dst += parameters.destinationOffset;
  src += parameters.sourceOffset;
  const Detail::Range range{0, parameters.count};
  if (dstStride == 1 && srcStride == 1) {
    Detail::forEachShare(range, [=](unsigned long long begin, unsigned long long end) {
      std::memmove(dst + begin, src + begin, (end - begin) * sizeof(T));
    });
    return;
  }
  // The loops have copies of their own: a write of bytes might change the shared ones, for all the compiler knows.
  const auto copyDense = [=](unsigned long long begin, unsigned long long end) {
    T* const to = dst;
    const T* const from = src;
    const unsigned long long stride = srcStride;
    unsigned long long i = begin;
    for (; end - i >= 4; i += 4) {
      const T elements[4] = {from[stride * i], from[stride * (i + 1)], from[stride * (i + 2)], from[stride * (i + 3)]};
      to[i] = elements[0];
      to[i + 1] = elements[1];
      to[i + 2] = elements[2];
      to[i + 3] = elements[3];
    }
    for (; i < end; ++i) to[i] = from[stride * i];
  };
  const auto copy = [=](unsigned long long begin, unsigned long long end) {
    T* const to = dst;
    const T* const from = src;
    const unsigned long long toStride = dstStride;
    const unsigned long long fromStride = srcStride;
    for (unsigned long long i = begin; i < end; ++i) to[toStride * i] = from[fromStride * i];
  };
  if (dstStride == 1) {
    Detail::forEachShare(range, copyDense);
    return;
  }
  if (dstStride == 0)
    copy(range.end - 1, range.end);  // all go to one place, where the last one stays
  else
    Detail::forEachShare(range, copy);
}

}  // namespace

bool CreateSample(ChunkPtr& destination, const ChunkPtr& source, const SampleParameters& parameters) {
  const ChunkPtr srcHeld = source;
  if (!srcHeld) return false;
  return Detail::withElements<Detail::SamplePrimitives>(srcHeld.get(), [&]<class T>(const std::vector<T>& src) {
    if (!destination) {
      const std::optional<unsigned long long> size =
          requiredSize(parameters.destinationStride, parameters.count, parameters.destinationOffset);
      destination = ChunkPtr(new Ostrel::Chunk<T>(size.value_or(std::numeric_limits<unsigned long long>::max())));
    }
    const ChunkPtr dstHeld = destination;
    std::vector<T>* const dst = Detail::elementsOf<T>(dstHeld.get());
    if (dst == nullptr) return false;
    if (hasRoom(dst->size(), parameters.destinationStride, parameters.count, parameters.destinationOffset) &&
        hasRoom(src.size(), parameters.sourceStride, parameters.count, parameters.sourceOffset))
      copySample(dst->data(), src.data(), parameters);
    return true;
  });
}

bool CreateSample(const MemBasePtr& destination, const MemBasePtr& source, const SampleParameters& parameters) {
  if (!destination) return false;
  ChunkPtr dst = destination->getChunk();
  if (!dst || !source) return false;
  const ChunkPtr src = source->getChunk();
  return src && CreateSample(dst, src, parameters);
}

MemBasePtr CreateSample(const MemBasePtr& source, unsigned long long size, const SampleParameters& parameters,
                        const CreatorWeakPtr&) {
  if (!source) return MemBasePtr();
  const MemBasePtr sample = source->create(DynamicSize{size}, typeid(void));
  return CreateSample(sample, source, parameters) ? sample : MemBasePtr();
}

}  // namespace Tresk
