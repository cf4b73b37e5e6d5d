// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/HyperslabParameters.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/MultiIndex.hpp>
#include <tresk/field/SizeInterface.hpp>
#include <tresk/foundation/Intercube.hpp>

#include "FuzzSupport.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

/// \file
/// Sizes, walks and indices of any numbers, and views of small arrays, against vectors and numbers of 128 bits.

namespace {

using Tresk::CreatorWeakPtr;
using Tresk::DynamicSize;
using Tresk::HyperslabParameters;
using Tresk::MemArray;
using Tresk::MemBasePtr;
using Tresk::MultiIndex;
using TreskFuzz::demand;
using TreskFuzz::number;
using TreskFuzz::upTo;

__extension__ typedef unsigned __int128 Wide;
using Numbers = std::vector<unsigned long long>;

constexpr Wide Modulus = Wide{1} << 64;

unsigned long long product(const Numbers& factors) {
  Wide product = 1;
  for (const unsigned long long factor : factors) product = product * factor % Modulus;
  return static_cast<unsigned long long>(product);
}

std::string decimal(unsigned long long n) {
  std::string digits;
  do digits.insert(digits.begin(), static_cast<char>('0' + n % 10));
  while ((n /= 10) != 0);
  return digits;
}

// --------------------------------------------------------------------------------------------------------------- sizes

/// A size as it should be.
struct PlainSize {
  bool hasArray = false;
  Numbers extents;

  static PlainSize of(Numbers extents) { return {!extents.empty(), std::move(extents)}; }
  /// What copies of it are like: none has an array without extents.
  PlainSize copy() const { return of(extents); }

  std::string text() const {
    std::string text;
    for (const unsigned long long extent : extents) text += (text.empty() ? "" : "x") + decimal(extent);
    return text;
  }
  void add(const PlainSize& other) {
    if (!hasArray) {
      *this = other.copy();
      return;
    }
    const Numbers summands = other.extents;
    extents.resize(std::max(extents.size(), summands.size()));
    for (std::size_t d = 0; d < summands.size(); ++d) extents[d] += summands[d];
  }
};

bool differInLowerDims(Numbers a, Numbers b) {
  if (a.size() > b.size()) return true;
  b.resize(a.size());
  return a != b;
}

bool differInHigherDims(Numbers a, Numbers b) {
  std::reverse(a.begin(), a.end());
  std::reverse(b.begin(), b.end());
  const std::size_t common = std::min(a.size(), b.size());
  a.resize(common);
  b.resize(common);
  return a != b;
}

void check(const DynamicSize& size, const PlainSize& plain) {
  demand(size.Dims() == static_cast<int>(plain.extents.size()), "rank of a size");
  demand((size.getExtents() != nullptr) == plain.hasArray, "array of a size");
  for (int d = 0; d < size.Dims(); ++d) {
    demand(size[d] == plain.extents[static_cast<std::size_t>(d)], "extent of a size");
    demand(&size.getExtents()[d] - size.getExtents() == d, "place of an extent");
  }
  demand(size.nElements() == (plain.hasArray ? product(plain.extents) : 0), "number of elements of a size");
  demand(size.str() == plain.text(), "text of a size");
}

void compare(const DynamicSize& a, const PlainSize& plainA, const DynamicSize& b, const PlainSize& plainB) {
  demand((a != b) == (plainA.extents != plainB.extents), "comparison of sizes");
  demand(a.hasIncompatibleLowerDims(b) == differInLowerDims(plainA.extents, plainB.extents), "lower dimensions");
  demand(a.hasIncompatibleHigherDims(b) == differInHigherDims(plainA.extents, plainB.extents), "higher dimensions");
}

/// The size as an interface on an object, in each of the ways to make one.
void attach(FuzzedDataProvider& data, const DynamicSize& size, const PlainSize& plain) {
  using Tresk::SizeInterface;
  using Tresk::SizePtr;
  const SizePtr first(new SizeInterface(size));
  const SizePtr second(new SizeInterface(*first));
  const int rank = static_cast<int>(upTo(data, plain.extents.size()));
  const SizePtr sum(new SizeInterface(rank, *first, *second));
  const unsigned long long nFragments = data.ConsumeIntegral<unsigned long long>();
  auto* const fragmented = new Tresk::FragmentedSizeInterface(*second, nFragments);
  const SizePtr held(fragmented);
  demand(fragmented->getFragmentCount() == nFragments, "number of fragments of a size");
  PlainSize twice{true, Numbers(plain.extents.begin(), plain.extents.begin() + rank)};
  twice.add(twice);
  check(*first, plain.copy());
  check(*second, plain.copy());
  check(*sum, twice);
  check(*held, plain.copy());
  Ostrel::Intercube object;
  object.addInterface(first);
  demand(Ostrel::findInterface<SizeInterface>(object) == first, "size of an object");
  object.addInterface(held);
  demand(Ostrel::findInterface<SizeInterface>(object) == held, "size of an object in place of a former one");
}

void runSizes(FuzzedDataProvider& data) {
  constexpr std::size_t NSizes = 4;
  std::vector<std::unique_ptr<DynamicSize>> sizes;
  for (std::size_t i = 0; i < NSizes; ++i) sizes.push_back(std::make_unique<DynamicSize>());
  std::vector<PlainSize> plain(NSizes);
  for (int nOperations = 0; nOperations < 64 && data.remaining_bytes() > 0; ++nOperations) {
    const std::size_t i = upTo(data, NSizes - 1);
    const std::size_t j = upTo(data, NSizes - 1);
    const std::size_t k = upTo(data, NSizes - 1);
    switch (upTo(data, 7)) {
      case 0:
      case 1: {
        const int rank = data.ConsumeIntegralInRange<int>(-1, 6);
        Numbers extents;
        for (int d = 0; d < rank; ++d) extents.push_back(number(data, 5));
        sizes[i] = std::make_unique<DynamicSize>(rank, extents.data());
        plain[i] = PlainSize::of(extents);
        break;
      }
      case 2:
        *sizes[i] = *sizes[j];
        if (i != j) plain[i] = plain[j].copy();
        break;
      case 3:
        sizes[i] = std::make_unique<DynamicSize>(*sizes[j]);
        plain[i] = plain[j].copy();
        break;
      case 4: {
        const unsigned long long lowest = number(data, 5);
        Numbers extents = plain[j].extents;
        if (extents.size() > 20) break;
        extents.insert(extents.begin(), lowest);
        sizes[i] = std::make_unique<DynamicSize>(lowest, *sizes[j]);
        plain[i] = PlainSize::of(extents);
        break;
      }
      case 5: {
        const std::size_t common = std::min(plain[j].extents.size(), plain[k].extents.size());
        const int rank = static_cast<int>(upTo(data, common + 1)) - 1;
        if (rank < 0) {
          bool isRefused = false;
          try {
            const DynamicSize sum(rank, *sizes[j], *sizes[k]);
          } catch (const std::bad_array_new_length&) {
            isRefused = true;
          }
          demand(isRefused, "sum of a negative rank");
          break;
        }
        PlainSize sum{true, Numbers(static_cast<std::size_t>(rank))};
        for (std::size_t d = 0; d < sum.extents.size(); ++d)
          sum.extents[d] =
              static_cast<unsigned long long>((Wide{plain[j].extents[d]} + Wide{plain[k].extents[d]}) % Modulus);
        sizes[i] = std::make_unique<DynamicSize>(rank, *sizes[j], *sizes[k]);
        plain[i] = sum;
        break;
      }
      case 6: {
        demand(&(*sizes[i] += *sizes[j]) == sizes[i].get(), "what an addition returns");
        plain[i].add(plain[j]);
        break;
      }
      default:
        attach(data, *sizes[j], plain[j]);
    }
    for (std::size_t a = 0; a < NSizes; ++a) {
      check(*sizes[a], plain[a]);
      for (std::size_t b = 0; b < NSizes; ++b) compare(*sizes[a], plain[a], *sizes[b], plain[b]);
    }
  }
}

// --------------------------------------------------------------------------------------------------------------- walks

/// A walk that stays in its block, shortened again and again.
void runWalk(FuzzedDataProvider& data) {
  HyperslabParameters walk;
  walk.count = number(data, 200);
  walk.stride = number(data, 4);
  walk.span = number(data, 200);
  const unsigned long long nBlock = walk.stride == 1 ? walk.span : walk.stride == 0 ? 0 : walk.count / walk.stride;
  walk.offset = data.ConsumeIntegralInRange<unsigned long long>(0, nBlock);
  walk.tail = data.ConsumeIntegralInRange<unsigned long long>(0, nBlock - walk.offset);
  // The places of the walk: from `begin` to before `end`.
  const Wide begin = walk.offset;
  Wide end = Wide{nBlock} - walk.tail;
  for (int nFits = 0; nFits < 6; ++nFits) {
    demand(walk.nBlockElements() == nBlock, "elements in a block");
    demand(Wide{walk.nReachableElements()} == nBlock - begin, "elements from the offset on");
    demand(Wide{walk.nElements()} == end - begin, "elements of a walk");
    const unsigned long long fitted = number(data, 200);
    end = std::min(end, begin + fitted);
    walk.fitTo(fitted);
    demand(Wide{walk.offset} == begin && Wide{walk.tail} == nBlock - end, "ends of a walk");
  }
}

// ------------------------------------------------------------------------------------------------------------- indices

template <int N>
MultiIndex<N> toIndex(const Numbers& numbers) {
  MultiIndex<N> index;
  for (int d = 0; d < N; ++d) index[d] = numbers[static_cast<std::size_t>(d)];
  return index;
}

unsigned long long linear(const Numbers& extents, const Numbers& index) {
  Wide position = 0;
  Wide stride = 1;
  for (std::size_t d = 0; d < extents.size(); ++d) {
    position = (position + stride * index[d] % Modulus) % Modulus;
    stride = stride * extents[d] % Modulus;
  }
  return static_cast<unsigned long long>(position);
}

/// Calls `f(index)` for each index of some extents, the lowest dimension first.
template <class F>
void forEachIndex(const Numbers& extents, const F& f) {
  if (product(extents) == 0) return;
  Numbers index(extents.size());
  for (std::size_t d = 0; d < index.size();) {
    f(index);
    for (d = 0; d < index.size() && ++index[d] == extents[d]; ++d) index[d] = 0;
  }
}

template <int N>
void runIndex(FuzzedDataProvider& data) {
  Numbers extents;
  Numbers index;
  for (int d = 0; d < N; ++d) {
    extents.push_back(number(data, 5));
    index.push_back(number(data, 5));
  }
  const MultiIndex<N> size = toIndex<N>(extents);
  const MultiIndex<N> place = toIndex<N>(index);
  demand(Numbers(size.begin(), size.end()) == extents, "entries of an index");
  demand(size.nElements() == product(extents), "product of an index");
  demand(size.linear(place) == linear(extents, index), "position of an index");
  demand((size == place) == (extents == index), "comparison of indices");
  demand(size == MultiIndex<N>(size), "copy of an index");
  if (std::any_of(extents.begin(), extents.end(), [](unsigned long long extent) { return extent > 5; })) return;
  unsigned long long position = 0;
  forEachIndex(extents,
               [&](const Numbers& each) { demand(size.linear(toIndex<N>(each)) == position++, "order of positions"); });
  demand(position == size.nElements(), "number of positions");
}

// --------------------------------------------------------------------------------------------------------------- views

template <class T>
constexpr std::size_t NComponents = 1;
template <>
constexpr std::size_t NComponents<Quorvel::FixedArray<double, 3>> = 3;

/// The numbers that an array and its views share.
using Storage = std::shared_ptr<std::vector<double>>;

/// An array as it should be: element e has its components from place `base + (offset + e) * stride` on.
struct PlainArray {
  Storage storage;
  Numbers extents;
  unsigned long long base = 0;
  unsigned long long offset = 0;
  unsigned long long stride = 1;

  double& at(const Numbers& index, std::size_t component) const {
    return (*storage)[base + (offset + linear(extents, index)) * stride + component];
  }
};

template <class T>
double& componentOf(T& element, std::size_t component) {
  if constexpr (NComponents<T> == 1) {
    return element;
  } else {
    return element[static_cast<int>(component)];
  }
}

template <int N, class T>
using ArrayPtr = Ostrel::StrongPtr<MemArray<N, T>, Ostrel::Cacheable>;

template <int N, class T>
void checkArray(MemArray<N, T>& array, const PlainArray& plain) {
  demand(array.getIndexSize() == toIndex<N>(plain.extents), "extents of an array");
  check(array.getSize(), PlainSize::of(plain.extents));
  demand(array.nElements() == product(plain.extents), "number of elements of an array");
  demand(array.getIterator().nElements() == product(plain.extents), "number of elements of a walk over an array");
  const MemArray<N, T>& constant = array;
  unsigned long long position = 0;
  forEachIndex(plain.extents, [&](const Numbers& index) {
    T byIndex = constant[toIndex<N>(index)];
    T byOrder = constant.getIterator().getElement(position++);
    for (std::size_t c = 0; c < NComponents<T>; ++c) {
      demand(componentOf(byIndex, c) == plain.at(index, c), "element by index");
      demand(componentOf(byOrder, c) == plain.at(index, c), "element in order");
    }
  });
}

Numbers smallExtents(FuzzedDataProvider& data, std::size_t rank) {
  Numbers extents(rank);
  for (unsigned long long& extent : extents) extent = 1 + upTo(data, 3);
  return extents;
}

/// A new array on a chunk that may be larger, filled with numbers that tell their places.
template <int N, class T>
ArrayPtr<N, T> makeArray(FuzzedDataProvider& data, PlainArray& plain) {
  plain.extents = smallExtents(data, N);
  plain.stride = NComponents<T>;
  const unsigned long long nElements = product(plain.extents) + upTo(data, 4);
  plain.storage = std::make_shared<std::vector<double>>();
  auto* const chunk = new Ostrel::Chunk<T>(nElements);
  const Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase> held(chunk);
  for (unsigned long long e = 0; e < nElements; ++e)
    for (std::size_t c = 0; c < NComponents<T>; ++c) {
      plain.storage->push_back(static_cast<double>(plain.storage->size()) + 0.5);
      componentOf(chunk->vector()[e], c) = plain.storage->back();
    }
  return ArrayPtr<N, T>(new MemArray<N, T>(held, toIndex<N>(plain.extents), CreatorWeakPtr()));
}

template <int N, class T>
void useArray(FuzzedDataProvider& data, const MemBasePtr& made, const PlainArray& plain, int depth) {
  const ArrayPtr<N, T> array(made);
  demand(array.isValid(), "class of an array");
  checkArray(*array, plain);
  if (depth == 0 || data.remaining_bytes() == 0) return;
  const CreatorWeakPtr nobody;

  if (data.ConsumeBool()) {
    Numbers index;
    for (const unsigned long long extent : plain.extents) index.push_back(upTo(data, extent - 1));
    T element{};
    for (std::size_t c = 0; c < NComponents<T>; ++c) {
      plain.at(index, c) = data.ConsumeIntegral<std::int8_t>();
      componentOf(element, c) = plain.at(index, c);
    }
    array->setElement(toIndex<N>(index), element);
    checkArray(*array, plain);
  }

  switch (upTo(data, 2)) {
    case 0: {
      const unsigned long long index = upTo(data, plain.extents.back() - 1);
      const MemBasePtr slice = array->getSlice(index, nobody);
      if constexpr (N == 1) {
        demand(slice.getRecord() == nullptr, "slice of a line");
      } else {
        PlainArray part = plain;
        part.extents.pop_back();
        part.offset += index * product(part.extents);
        useArray<N - 1, T>(data, slice, part, depth - 1);
      }
      break;
    }
    case 1: {
      Numbers start;
      Numbers size;
      for (const unsigned long long extent : plain.extents) {
        start.push_back(upTo(data, extent - 1));
        size.push_back(1 + upTo(data, extent - start.back() - 1));
      }
      const DynamicSize dynamicStart(N, start.data());
      const DynamicSize dynamicSize(N, size.data());
      const DynamicSize otherRank(0, dynamicSize);
      demand(array->createSubArray(otherRank, dynamicSize, nobody).getRecord() == nullptr, "start of another rank");
      demand(array->createSubArray(dynamicStart, otherRank, nobody).getRecord() == nullptr, "size of another rank");
      const MemBasePtr box = data.ConsumeBool() ? array->createSubArray(dynamicStart, dynamicSize, nobody)
                                                : array->createSubArray(toIndex<N>(start), toIndex<N>(size), nobody);
      PlainArray copy{std::make_shared<std::vector<double>>(), size, 0, 0, NComponents<T>};
      forEachIndex(size, [&](Numbers index) {
        for (std::size_t d = 0; d < index.size(); ++d) index[d] += start[d];
        for (std::size_t c = 0; c < NComponents<T>; ++c) copy.storage->push_back(plain.at(index, c));
      });
      useArray<N, T>(data, box, copy, depth - 1);
      break;
    }
    default: {
      const std::size_t component = upTo(data, NComponents<T>);
      const MemBasePtr view = array->getComponent(static_cast<int>(component), nobody);
      if (component == NComponents<T>) {
        demand(view.getRecord() == nullptr, "component that does not exist");
        break;
      }
      PlainArray part = plain;
      part.base += component;
      // The components of numbers are adjacent, and start where the memory does.
      if (NComponents<T> == 1) {
        part.offset = 0;
        part.stride = 1;
      }
      useArray<N, double>(data, view, part, depth - 1);
    }
  }
  // What was written through a view is seen here.
  checkArray(*array, plain);
}

template <int N>
void runViews(FuzzedDataProvider& data) {
  using Triple = Quorvel::FixedArray<double, 3>;
  PlainArray plain;
  if (data.ConsumeBool()) {
    const MemBasePtr array = makeArray<N, double>(data, plain);
    for (int n = 0; n < 3; ++n) useArray<N, double>(data, array, plain, 5);
  } else {
    const MemBasePtr array = makeArray<N, Triple>(data, plain);
    for (int n = 0; n < 3; ++n) useArray<N, Triple>(data, array, plain, 5);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t n) {
  FuzzedDataProvider data(bytes, n);
  switch (upTo(data, 10)) {
    case 0:
      runIndex<1>(data);
      break;
    case 1:
      runIndex<2>(data);
      break;
    case 2:
      runIndex<3>(data);
      break;
    case 3:
      runIndex<4>(data);
      break;
    case 4:
      runWalk(data);
      break;
    case 5:
      runViews<1>(data);
      break;
    case 6:
      runViews<2>(data);
      break;
    case 7:
      runViews<3>(data);
      break;
    case 8:
      runViews<4>(data);
      break;
    default:
      runSizes(data);
  }
  return 0;
}
