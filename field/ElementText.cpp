// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/ElementText.hpp>

#include <tresk/field/FragmentID.hpp>

#include <charconv>
#include <system_error>

namespace Tresk {

std::string elementText(double value) {
  std::string buffer(15, '\0');
  for (;;) {
    const std::to_chars_result result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    if (result.ec == std::errc()) {
      buffer.resize(static_cast<std::size_t>(result.ptr - buffer.data()));
      return buffer;
    }
    buffer.resize(2 * buffer.size());
  }
}

std::string elementText(unsigned int value) { return std::to_string(value); }

std::string elementText(const FragmentIDPtr& fragment) {
  const FragmentIDPtr held = fragment;
  return "[\"" + (held ? held->getName() : std::string()) + "\"]";
}

}  // namespace Tresk
