// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <cstddef>
#include <iterator>
#include <vector>

namespace Ostrel::Detail {

/// The position of an element that is computed from its number when it is read.
template <class T, class F>
class GeneratedPosition {
 public:
  using iterator_category = std::random_access_iterator_tag;  // for vectors, which ask how many elements there are
  using value_type = T;
  using difference_type = std::ptrdiff_t;
  using pointer = const T*;
  using reference = T;

  GeneratedPosition(const F& f, std::size_t i) noexcept : f_(&f), i_(i) {}

  T operator*() const { return (*f_)(i_); }
  GeneratedPosition& operator++() noexcept {
    ++i_;
    return *this;
  }
  GeneratedPosition operator++(int) noexcept {
    GeneratedPosition former = *this;
    ++i_;
    return former;
  }
  GeneratedPosition& operator--() noexcept {
    --i_;
    return *this;
  }
  GeneratedPosition& operator+=(difference_type n) noexcept {
    i_ += static_cast<std::size_t>(n);
    return *this;
  }
  friend difference_type operator-(const GeneratedPosition& a, const GeneratedPosition& b) noexcept {
    return static_cast<difference_type>(a.i_ - b.i_);
  }
  friend bool operator==(const GeneratedPosition& a, const GeneratedPosition& b) noexcept { return a.i_ == b.i_; }
  friend bool operator!=(const GeneratedPosition& a, const GeneratedPosition& b) noexcept { return a.i_ != b.i_; }

 private:
  const F* f_;
  std::size_t i_;
};

/// Appends `f(0)` to `f(n - 1)`. Where there is room for them, each is written once, in one flat loop: a vector that is
/// resized first would write zeros before.
template <class T, class F>
void appendGenerated(std::vector<T>& elements, std::size_t n, const F& f) {
  using Position = GeneratedPosition<T, F>;
  elements.insert(elements.end(), Position(f, 0), Position(f, n));
}

}  // namespace Ostrel::Detail
