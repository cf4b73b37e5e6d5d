// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/HyperslabParameters.hpp>
#include <tresk/foundation/FixedArray.hpp>

#include <type_traits>

namespace Tresk {

namespace Detail {

/// Combines `start` and `elementAt(0)` ... `elementAt(n - 1)` in eight partial results, so that the latency of one step
/// does not bound the loop.
template <class R, class At, class Op>
R reduceInEights(unsigned long long n, const At& elementAt, R start, Op& op) {
  constexpr unsigned int Parts = 8;
  unsigned long long e = 0;
  if (n >= Parts) {
    R part[Parts];
    for (unsigned int p = 0; p < Parts; ++p) part[p] = static_cast<R>(elementAt(p));
    for (e = Parts; e + Parts <= n; e += Parts)
      for (unsigned int p = 0; p < Parts; ++p) part[p] = op(part[p], static_cast<R>(elementAt(e + p)));
    for (unsigned int half = Parts / 2; half > 0; half /= 2)
      for (unsigned int p = 0; p < half; ++p) part[p] = op(part[p], part[p + half]);
    start = op(start, part[0]);
  }
  for (; e < n; ++e) start = op(start, static_cast<R>(elementAt(e)));
  return start;
}

}  // namespace Detail

/// How the elements of type `T` lie in memory: the unit of the walk and the number of units of one element.
///
/// Nearly every element is a unit by itself. The two array types of doubles are walked component by component, so that
/// their memory may be interleaved or planar.
template <class T>
struct WalkUnit {
  using Type = T;                        ///< the unit: offsets and strides count it
  static constexpr int nComponents = 1;  ///< units of one element
};
/// The array types of doubles, whose unit is a component.
template <int K>
struct WalkUnit<Quorvel::FixedArray<double, K>> {
  using Type = double;                   ///< the unit
  static constexpr int nComponents = K;  ///< units of one element
};
/// The unit of the walk over elements of type `T`.
template <class T>
using WalkUnitType = typename WalkUnit<T>::Type;

template <class U>
struct ElementSource;

/// The fields of a walk as a record: what a view is made from, and what an element source fills.
template <class U>
struct WalkParameters : HyperslabParameters {
  U* data = nullptr;                   ///< first unit of the block; null if the elements are not in memory
  ElementSource<U>* source = nullptr;  ///< makes them then; may be null
};

/// Makes elements on demand for a walk without memory. No array of this library has one; a class that plugs one in
/// owns it.
///
/// An element is asked for by its indices one by one, the highest dimension first: by `slice` for each dimension above
/// 0, until one comes with its memory, and by `element` at last. A source of several dimensions keeps the indices that
/// it has heard, so that one thread reads at a time.
template <class U>
struct TRESK_OPEN_TEMPLATE ElementSource {
  /// The walk over the sub-block at `index` of `dimension`; with null data it is not in memory, and the next lower
  /// dimension is asked.
  virtual WalkParameters<U> slice(int dimension, unsigned long long index) = 0;
  /// The address of the first unit of the element at `index` of dimension 0, its components adjacent.
  virtual U* element(unsigned long long index) = 0;

 protected:
  ~ElementSource() = default;
};

/// A walk with the address of its block.
template <class U>
struct ElementIterator : HyperslabParameters {
  U* data = nullptr;  ///< first unit of the block; null if the elements are not in memory
};

/// Access by unit.
template <class U>
struct IteratorBase : ElementIterator<U> {
  /// The first unit of element `e` of the walk. Neither `e` nor `data` is tested. One multiplication and two additions.
  U* unitAt(unsigned long long e) const noexcept { return this->data + (e + this->offset) * this->stride; }
};

/// Refers to an element whose components may lie apart. Valid as long as the memory of the array.
template <class X, int K>
class ComponentReference {
 public:
  /// \param first address of component 0; \param span distance to the next component, in components
  ComponentReference(X* first, unsigned long long span) noexcept : first_(first), span_(span) {}
  /// Refers to the same element.
  ComponentReference(const ComponentReference&) noexcept = default;

  /// Component `c`, which is not tested.
  X& operator[](int c) const noexcept { return first_[static_cast<unsigned long long>(c) * span_]; }
  /// A copy of the element.
  operator Quorvel::FixedArray<X, K>() const noexcept {
    Quorvel::FixedArray<X, K> value;
    for (int c = 0; c < K; ++c) value[c] = (*this)[c];
    return value;
  }
  /// Writes the element referred to.
  const ComponentReference& operator=(const Quorvel::FixedArray<X, K>& value) const noexcept {
    for (int c = 0; c < K; ++c) (*this)[c] = value[c];
    return *this;
  }
  /// Writes the element referred to with the one that `other` refers to.
  ComponentReference& operator=(const ComponentReference& other) noexcept {
    *this = static_cast<Quorvel::FixedArray<X, K>>(other);
    return *this;
  }
  /// Compares the elements component by component.
  friend bool operator==(const ComponentReference& a, const Quorvel::FixedArray<X, K>& b) noexcept {
    return static_cast<Quorvel::FixedArray<X, K>>(a) == b;
  }
  /// Compares the elements referred to, and not where they are.
  friend bool operator==(const ComponentReference& a, const ComponentReference& b) noexcept {
    return a == static_cast<Quorvel::FixedArray<X, K>>(b);
  }

 private:
  X* first_;
  unsigned long long span_;
};

/// The walk over elements of type `T`, each a unit. The elements must be in memory, which is not tested.
template <class T>
struct Iterator : IteratorBase<T> {
  using Reference = T&;             ///< what writing access by indices gives
  using ConstReference = const T&;  ///< what reading access by indices gives

  /// The element that begins at `unit`.
  static Reference referTo(T* unit, const HyperslabParameters&) noexcept { return *unit; }

  /// Element `e` of the walk, which is not tested.
  const T& getElement(unsigned long long e) const noexcept { return *this->unitAt(e); }
  /// Writes element `e` of the walk, which is not tested.
  void setElement(unsigned long long e, const T& value) { *this->unitAt(e) = value; }

  /// Calls `f(element)` for each element in order, in one flat loop.
  template <class F>
  void forEachElement(F&& f) const {
    const unsigned long long n = this->nElements();
    const T* const first = this->data + this->offset * this->stride;
    if (this->stride == 1) {
      for (unsigned long long e = 0; e < n; ++e) f(first[e]);
    } else {
      for (unsigned long long e = 0; e < n; ++e) f(first[e * this->stride]);
    }
  }

  /// Combines `start` with all elements by `op(R, R)`, which is associative and commutative as far as the caller minds:
  /// eight partial results are formed side by side, so that sums of doubles round otherwise than in strict order, and
  /// always alike for the same number of elements. `start` enters once.
  template <class R, class Op>
  R reduceElements(R start, Op op) const {
    const unsigned long long n = this->nElements();
    const T* const first = this->data + this->offset * this->stride;
    if (this->stride == 1)
      return Detail::reduceInEights(
          n, [first](unsigned long long e) { return first[e]; }, start, op);
    const unsigned long long step = this->stride;
    return Detail::reduceInEights(
        n, [=](unsigned long long e) { return first[e * step]; }, start, op);
  }
};

/// The walk over elements of `K` doubles, assembled from their components. The elements must be in memory, which is not
/// tested.
template <int K>
struct Iterator<Quorvel::FixedArray<double, K>> : IteratorBase<double> {
  using Element = Quorvel::FixedArray<double, K>;   ///< type of an element
  using Reference = ComponentReference<double, K>;  ///< what writing access by indices gives
  using ConstReference = Element;                   ///< what reading access by indices gives

  /// The element whose component 0 is at `unit`; the others lie a span of `walk` apart.
  static Reference referTo(double* unit, const HyperslabParameters& walk) noexcept {
    return Reference(unit, walk.span);
  }

  /// Element `e` of the walk, which is not tested.
  Element getElement(unsigned long long e) const noexcept { return load(this->unitAt(e), this->span); }
  /// Writes element `e` of the walk, which is not tested.
  void setElement(unsigned long long e, const Element& value) noexcept {
    double* const unit = this->unitAt(e);
    for (int c = 0; c < K; ++c) unit[static_cast<unsigned long long>(c) * this->span] = value[c];
  }

  /// Calls `f(element)` for each element in order, in one flat loop.
  template <class F>
  void forEachElement(F&& f) const {
    const unsigned long long n = this->nElements();
    if (this->span == 1) {
      for (unsigned long long e = 0; e < n; ++e) f(load(this->unitAt(e), 1));
    } else {
      for (unsigned long long e = 0; e < n; ++e) f(load(this->unitAt(e), this->span));
    }
  }

  /// As the reduction of the other walks.
  template <class R, class Op>
  R reduceElements(R start, Op op) const {
    const auto elementAt = [this](unsigned long long e) { return load(this->unitAt(e), this->span); };
    return Detail::reduceInEights(this->nElements(), elementAt, start, op);
  }

 private:
  static Element load(const double* unit, unsigned long long componentSpan) noexcept {
    Element value;
    for (int c = 0; c < K; ++c) value[c] = unit[static_cast<unsigned long long>(c) * componentSpan];
    return value;
  }
};

/// The walk that arrays carry: in memory, or through an element source.
template <class T>
struct CreativeIterator : Iterator<T> {
  using Unit = WalkUnitType<T>;  ///< the unit of the walk

  ElementSource<Unit>* source = nullptr;  ///< used when `data` is null

  /// Takes over the fields of a record.
  void assign(const WalkParameters<Unit>& walk) noexcept {
    static_cast<HyperslabParameters&>(*this) = walk;
    this->data = walk.data;
    source = walk.source;
  }
  /// The fields as a record.
  WalkParameters<Unit> getWalk() const noexcept {
    WalkParameters<Unit> walk;
    static_cast<HyperslabParameters&>(walk) = *this;
    walk.data = this->data;
    walk.source = source;
    return walk;
  }
};

}  // namespace Tresk
