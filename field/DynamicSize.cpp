// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/DynamicSize.hpp>

#include <algorithm>
#include <new>

namespace Tresk {

namespace {

unsigned long long* copyOf(const unsigned long long* extents, int rank) {
  if (rank < 1) return nullptr;
  auto* const copy = new unsigned long long[static_cast<std::size_t>(rank)];
  std::copy_n(extents, rank, copy);
  return copy;
}

}  // namespace

DynamicSize::DynamicSize(int rank, const unsigned long long* extents)
    : rank_(std::max(rank, 0)), extents_(copyOf(extents, rank)) {}

DynamicSize::DynamicSize(const DynamicSize& other) : DynamicSize(other.rank_, other.extents_) {}

DynamicSize::DynamicSize(std::initializer_list<unsigned long long> extents)
    : DynamicSize(static_cast<int>(extents.size()), extents.begin()) {}

DynamicSize::DynamicSize(unsigned long long lowest, const DynamicSize& higher)
    : rank_(1 + std::max(higher.rank_, 0)), extents_(new unsigned long long[static_cast<std::size_t>(rank_)]) {
  extents_[0] = lowest;
  std::copy_n(higher.extents_, rank_ - 1, extents_ + 1);
}

DynamicSize::DynamicSize(int rank, const DynamicSize& a, const DynamicSize& b) : rank_(rank) {
  // Tested here, as compilers differ in what `new` throws for a negative length.
  if (rank < 0) throw std::bad_array_new_length();
  extents_ = new unsigned long long[static_cast<std::size_t>(rank)];
  for (int d = 0; d < rank; ++d) extents_[d] = a.extents_[d] + b.extents_[d];
}

DynamicSize& DynamicSize::operator=(const DynamicSize& other) {
  if (this == &other) return *this;
  unsigned long long* const copy = copyOf(other.extents_, other.rank_);
  delete[] extents_;
  extents_ = copy;
  rank_ = std::max(other.rank_, 0);
  return *this;
}

DynamicSize::~DynamicSize() { delete[] extents_; }

unsigned long long DynamicSize::nElements() const noexcept {
  if (extents_ == nullptr) return 0;
  unsigned long long product = 1;
  for (int d = 0; d < rank_; ++d) product *= extents_[d];
  return product;
}

bool DynamicSize::operator!=(const DynamicSize& other) const noexcept {
  return rank_ != other.rank_ || !std::equal(extents_, extents_ + rank_, other.extents_);
}

DynamicSize& DynamicSize::operator+=(const DynamicSize& other) {
  if (extents_ == nullptr) return *this = other;
  if (other.rank_ > rank_) {
    unsigned long long* const sum = copyOf(other.extents_, other.rank_);
    for (int d = 0; d < rank_; ++d) sum[d] += extents_[d];
    delete[] extents_;
    extents_ = sum;
    rank_ = other.rank_;
  } else {
    for (int d = 0; d < other.rank_; ++d) extents_[d] += other.extents_[d];
  }
  return *this;
}

std::string DynamicSize::str() const {
  std::string text;
  for (int d = 0; d < rank_; ++d) {
    if (d > 0) text += 'x';
    text += std::to_string(extents_[d]);
  }
  return text;
}

bool DynamicSize::hasIncompatibleLowerDims(const DynamicSize& other) const noexcept {
  if (rank_ > other.rank_) return true;
  return !std::equal(extents_, extents_ + rank_, other.extents_);
}

bool DynamicSize::hasIncompatibleHigherDims(const DynamicSize& other) const noexcept {
  const int common = std::min(rank_, other.rank_);
  if (common < 1) return false;
  return !std::equal(extents_ + (rank_ - common), extents_ + rank_, other.extents_ + (other.rank_ - common));
}

}  // namespace Tresk
