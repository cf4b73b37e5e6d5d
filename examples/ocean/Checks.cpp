// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Checks.hpp"

#include "Report.hpp"

#include <algorithm>
#include <ostream>

namespace Example {

void Checks::add(bool holds, const std::string& what) { lines_.push_back({what, "", "", holds}); }

void Checks::add(const std::string& what, const std::string& expected, const std::string& found) {
  lines_.push_back({what, expected, found, expected == found});
}

bool Checks::doAllHold() const noexcept {
  return std::all_of(lines_.begin(), lines_.end(), [](const Line& line) { return line.holds; });
}

void Checks::print(std::ostream& out) const {
  Table table({"check", "expected", "found", "result"}, 1);
  for (const Line& line : lines_) table.addRow({line.what, line.expected, line.found, line.holds ? "ok" : "FAILED"});
  table.print(out);
  const auto nFailed = std::count_if(lines_.begin(), lines_.end(), [](const Line& line) { return !line.holds; });
  if (nFailed == 0)
    out << "\nAll " << lines_.size() << " checks hold.\n";
  else
    out << "\n" << nFailed << " of " << lines_.size() << " checks do not hold.\n";
}

}  // namespace Example
