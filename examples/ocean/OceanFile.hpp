// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#pragma once

#include "OceanSource.hpp"

#include <optional>
#include <stdexcept>

namespace Example {

/// A file that cannot be read, or is not what was asked for. The message names the file, what was asked and what was
/// found.
class OceanFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// An ocean in a NetCDF file: one variable over time, depth, latitude and longitude, in this order.
///
/// Everything is read from the file: lengths and values of the axes, units, and the values that mark missing cells.
/// The file stays open while the object lives; slabs are read when they are asked for.
/// Threads: libnetcdf must not be entered by two threads at once, whatever file they use, so that all objects of this
/// class take turns.
/// Errors: `OceanFileError`, also for a file that has lost its end.
class OceanFile : public OceanSource {
 public:
  explicit OceanFile(const std::string& path, const std::string& variable = "TEMP");
  ~OceanFile() override;

 protected:
  void fill(std::size_t month, std::size_t depth, std::span<double> cells) const override;

 private:
  /// An open file.
  class Handle {
   public:
    explicit Handle(const std::string& path);
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle();
    int id = -1;
  };

  const Handle file_;
  int variable_ = -1;
  std::vector<double> missing_;  ///< values that mark cells without water
};

/// The ocean atlas where Debian's package ferret-datasets, or an installation by hand, puts it; nothing if it is not
/// there.
std::optional<std::string> findOceanAtlas();

}  // namespace Example
