// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/field/Field.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/OnDemandCreator.hpp>
#include <tresk/field/TreskType.hpp>
#include <tresk/foundation/Generated.hpp>
#include <tresk/foundation/Operator.hpp>

namespace Tresk {

/// An operation on the elements of two arrays.
/// \tparam Op the operation on numbers; \tparam R element type of the result; \tparam A, B those of the operands
template <class Op, class R, class A, class B>
class TRESK_OPEN_TEMPLATE BinaryOperator {
 public:
  using Result = R;  ///< element type of the result
  using Left = A;    ///< element type of the left operand
  using Right = B;   ///< element type of the right operand

  /// One element of the result, cast to `R`.
  static constexpr R apply(const A& a, const B& b) { return static_cast<R>(Op::apply(a, b)); }
};

namespace Detail {

/// The elements of a rectangular array along dimension 0.
template <class T>
struct Row {
  const T* first;             ///< element at index 0 of the row
  unsigned long long stride;  ///< distance of its elements, in elements
};

/// The row of an array that begins at `index`.
template <int N, class T>
Row<T> rowAt(const MemArray<N, T>& array, const MultiIndex<N>& index) {
  return {array.data + (array.offset + array.getIndexSize().linear(index)) * array.stride, array.stride};
}

/// Whether the elements of an array lie side by side in the order of their indices.
template <int N, class T>
bool isDense(const MemArray<N, T>& array) {
  return array.data != nullptr && array.stride == 1;
}

/// Steps to the next row of an array of these extents.
template <int N>
void advanceRow(MultiIndex<N>& index, const MultiIndex<N>& size) {
  for (int d = 1; d < N; ++d) {
    if (++index[d] < size[d]) return;
    index[d] = 0;
  }
}

/// Whether an array has elements that can be read.
template <int N, class T>
bool isReadable(const MemArray<N, T>& array) {
  return array.data != nullptr || array.source != nullptr;
}

/// Combines two arrays element by element; the extents of `left` rule. Each element of the result is written once.
/// Null if an operand has no elements to read.
template <class Op, int N>
MemBasePtr combineArrays(const MemArray<N, typename Op::Left>& left, const MemArray<N, typename Op::Right>& right,
                         const CreatorWeakPtr& creator) {
  using R = typename Op::Result;
  const MultiIndex<N> size = left.getIndexSize();
  const unsigned long long n = size.nElements();
  if (n > 0 && (!isReadable(left) || !isReadable(right))) return MemBasePtr();
  const auto combine = [&](std::vector<R>& elements) {
    if (n == 0) return;
    MultiIndex<N> index;
    // Elements whose components may lie apart are read one by one.
    constexpr bool AreWhole = std::is_same_v<WalkUnitType<typename Op::Left>, typename Op::Left> &&
                              std::is_same_v<WalkUnitType<typename Op::Right>, typename Op::Right>;
    if constexpr (AreWhole) {
      if (isDense(left) && isDense(right) && size == right.getIndexSize()) {
        const auto* const a = rowAt(left, index).first;
        const auto* const b = rowAt(right, index).first;
        Ostrel::Detail::appendGenerated(elements, n, [a, b](std::size_t i) { return Op::apply(a[i], b[i]); });
        return;
      }
    }
    for (unsigned long long rows = n / size[0]; rows > 0; --rows, advanceRow(index, size)) {
      if constexpr (AreWhole) {
        if (left.data != nullptr && right.data != nullptr) {
          const auto a = rowAt(left, index);
          const auto b = rowAt(right, index);
          Ostrel::Detail::appendGenerated(elements, size[0], [a, b](std::size_t i) {
            return Op::apply(a.first[i * a.stride], b.first[i * b.stride]);
          });
          continue;
        }
      }
      // Also those that are made on demand.
      Ostrel::Detail::appendGenerated(elements, size[0], [&](std::size_t i) {
        MultiIndex<N> position = index;
        position[0] = i;
        return Op::apply(left[position], right[position]);
      });
    }
  };
  using ChunkPtr = Ostrel::StrongPtr<Ostrel::ChunkBase, Ostrel::ChunkBase>;
  return MemBasePtr(new MemArray<N, R>(ChunkPtr(new Ostrel::Chunk<R>(n, combine)), size, creator));
}

}  // namespace Detail

/// A field whose data are computed, on demand, from the fragments of two other fields.
///
/// Making one computes nothing: each fragment of the left operand gets a creator that fetches both operands when it is
/// asked, combines them and keeps the result until the cache wants the memory. The field shares the numbering of the
/// left operand and does not follow later changes of its table. The extents of the left array rule; the right one is
/// read at the same indices, without a test: `isCompatible` tells beforehand. Fragments are those of the left operand:
/// of a right operand on another collection no named fragment is found.
/// \tparam Op a `BinaryOperator`
///
/// Lifetime: holds the right operand, and each creator the left creator of its fragment. The left operand itself is not
/// held: of a left operand that is a computed field and has gone, fragments yield no data. Who chains such fields
/// holds each of them.
/// Errors: none in words. The first fragment of the left operand whose creator does not declare rank 1 to 3 and the
/// element type of the operator ends the construction: earlier fragments stay. A fragment whose operand is missing
/// or of another type yields no data.
/// Threads: a computation runs on the thread that asks, and takes the shared lock of the right operand. The constructor
/// holds that of the left one.
/// Cost: to make one, a small object for each fragment; to compute a fragment, one pass over it and the productions of
/// its operands.
template <class Op>
class TRESK_OPEN_TEMPLATE ComputationalField : public Field, public Op {
 public:
  /// Computes the array of one fragment.
  template <int N>
  class TRESK_OPEN_TEMPLATE FragmentComputer {
   public:
    /// \param owner the field, known weakly; \param fragment one of its fragments; \param left creator of the left
    /// operand, held
    FragmentComputer(const Ostrel::WeakPtr<ComputationalField, CreatorContainer>& owner, const FragmentIDPtr& fragment,
                     const CreatorPtr& left)
        : owner_(owner), fragment_(fragment), left_(left) {}

    /// The array of the extents of the left operand, which belongs to `creator`; null if an operand is missing or of
    /// another rank or type. Produces both operands if need be; exceptions of their productions pass.
    MemBasePtr operator()(const CreatorWeakPtr& creator) const {
      using LeftPtr = Ostrel::StrongPtr<MemArray<N, typename Op::Left>, Ostrel::Cacheable>;
      using RightPtr = Ostrel::StrongPtr<MemArray<N, typename Op::Right>, Ostrel::Cacheable>;
      const LeftPtr left(left_->create(false));
      if (!left) return MemBasePtr();
      const FieldPtr rightField = getRight();
      if (!rightField) return MemBasePtr();
      const RightPtr right(rightField->getData(fragment_));
      return right ? Detail::combineArrays<Op, N>(*left, *right, creator) : MemBasePtr();
    }

   private:
    FieldPtr getRight() const {
      const Ostrel::Pin<CreatorContainer> holder(owner_);  // the field may not be held by anybody yet
      return holder && owner_ ? owner_->right_ : FieldPtr();
    }

    Ostrel::WeakPtr<ComputationalField, CreatorContainer> owner_;
    FragmentIDPtr fragment_;
    CreatorPtr left_;
  };

  /// \param left may be empty: the field then has no fragments; \param right may be empty: no fragment yields data then
  ComputationalField(const FieldPtr& left, const FieldPtr& right);
  ~ComputationalField() override;

  /// Binds a creator for each fragment of `left`, under the shared lock of `left`; the work of the constructor.
  void createFieldFragments(const Field& left);

 private:
  template <int N>
  void bind(const FragmentIDPtr& fragment, const CreatorPtr& left);

  FieldPtr right_;
  CacheWeakPtr cache_;  ///< of all creators of this field
};

template <class Op>
ComputationalField<Op>::ComputationalField(const FieldPtr& left, const FieldPtr& right)
    : Field(left ? left->getFragmentIDCollection() : FragmentIDCollectionPtr()),
      right_(right),
      cache_(Ostrel::Cache::MemCache()) {
  if (left) createFieldFragments(*left);
}

template <class Op>
ComputationalField<Op>::~ComputationalField() = default;

template <class Op>
void ComputationalField<Op>::createFieldFragments(const Field& left) {
  left.iterate(
      [this](const FragmentIDPtr& fragment, const CreatorPtr& creator) {
        if (!creator) return true;
        const auto properties = Ostrel::findInterface<MemArrayProperties>(*creator);
        if (!properties) return false;
        const TreskTypePtr type(properties->getType());
        if (!type || type->getType() != typeid(typename Op::Left)) return false;
        switch (properties->getRank()) {
          case 1:
            bind<1>(fragment, creator);
            return true;
          case 2:
            bind<2>(fragment, creator);
            return true;
          case 3:
            bind<3>(fragment, creator);
            return true;
          default:
            return false;
        }
      },
      false, false);
}

template <class Op>
template <int N>
void ComputationalField<Op>::bind(const FragmentIDPtr& fragment, const CreatorPtr& left) {
  using R = typename Op::Result;
  using Computer = FragmentComputer<N>;
  const Ostrel::WeakPtr<ComputationalField, CreatorContainer> self(this);
  const CreatorPtr creator(new OnDemandCreator<Computer, N, R>(Computer(self, fragment, left), cache_));
  creator->addMetaInfo(N, getTreskType<R>());
  setCreator(creator, fragment);
}

/// The field that combines two fields element by element, on demand (see `ComputationalField`).
template <class Op>
FieldPtr combineFields(const FieldPtr& left, const FieldPtr& right) {
  return FieldPtr(new ComputationalField<Op>(left, right));
}

/// The sum of two fields, computed on demand.
/// \tparam R element type of the sum; \tparam A, B those of the fields
template <class R = double, class A = double, class B = double>
FieldPtr addFields(const FieldPtr& left, const FieldPtr& right) {
  return combineFields<BinaryOperator<Quorvel::Operator<'+', 0>, R, A, B>>(left, right);
}

// The field of the library: the sum of fields of numbers. An instance of what the reference tells above.
/// \cond
extern template class TRESK_EXPORT
    ComputationalField<BinaryOperator<Quorvel::Operator<'+', 0>, double, double, double>>;
extern template TRESK_EXPORT FieldPtr addFields<double, double, double>(const FieldPtr& left, const FieldPtr& right);
/// \endcond

}  // namespace Tresk
