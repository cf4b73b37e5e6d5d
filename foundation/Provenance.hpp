// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include <tresk/foundation/Pointers.hpp>

#include <string>
#include <vector>

namespace Ostrel {

/// Where data come from: a path of names, outermost first.
class TRESK_EXPORT Provenance : public ReferenceBase<Provenance> {
 public:
  /// \param text the path, its names separated by '/'
  explicit Provenance(const std::string& text);
  ~Provenance() override;

  /// The path with `separator` between its names.
  std::string getPath(char separator) const;

 private:
  std::string text_;
};

/// A list of lines of text.
class TRESK_EXPORT StringList : public ReferenceBase<StringList> {
 public:
  StringList();
  ~StringList() override;

  /// Appends a line, which is not searched for line ends.
  void addLine(const std::string& line) { lines_.push_back(line); }
  /// Number of lines.
  unsigned long long nLines() const noexcept { return lines_.size(); }
  /// Line `i`, from 0; throws `std::out_of_range` with both numbers beyond the last one.
  const std::string& getLine(unsigned long long i) const;

 private:
  std::vector<std::string> lines_;
};

}  // namespace Ostrel
