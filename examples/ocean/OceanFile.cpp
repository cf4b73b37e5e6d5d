// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "OceanFile.hpp"

#include <tresk/foundation/Mutex.hpp>

#include <netcdf.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <sstream>
#include <system_error>

namespace Example {

namespace {

/// Guards libnetcdf as a whole, which has state across files.
Ostrel::Mutex netcdf;

constexpr double DaysPerYear = 365.2425;

std::string quoted(const std::string& text) { return '"' + text + '"'; }

/// Reads the description of one variable of an open file. The caller holds the mutex.
class Reader {
 public:
  Reader(const std::string& path, int file) : path_(path), file_(file) {}

  [[noreturn]] void fail(const std::string& asked, const std::string& found) const {
    throw OceanFileError(path_ + ": asked for " + asked + ", found " + found);
  }
  void check(int status, const std::string& asked) const {
    if (status != NC_NOERR) fail(asked, nc_strerror(status));
  }

  int findVariable(const std::string& name) const {
    int variable = -1;
    check(nc_inq_varid(file_, name.c_str(), &variable), "a variable " + quoted(name));
    return variable;
  }

  nc_type getType(int variable) const {
    nc_type type = NC_NAT;
    check(nc_inq_vartype(file_, variable, &type), "the type of a variable");
    return type;
  }

  /// The dimensions of a variable, slowest first.
  std::vector<int> getDimensions(int variable) const {
    int n = 0;
    check(nc_inq_varndims(file_, variable, &n), "the number of dimensions");
    std::vector<int> dimensions(static_cast<std::size_t>(n));
    check(nc_inq_vardimid(file_, variable, dimensions.data()), "the dimensions");
    return dimensions;
  }

  bool hasAttribute(int variable, const char* name) const {
    return nc_inq_attid(file_, variable, name, nullptr) == NC_NOERR;
  }

  /// A text attribute; empty if there is none.
  std::string getText(int variable, const char* name) const {
    nc_type type = NC_NAT;
    std::size_t length = 0;
    if (nc_inq_att(file_, variable, name, &type, &length) != NC_NOERR || type != NC_CHAR) return {};
    std::string text(length, '\0');
    check(nc_get_att_text(file_, variable, name, text.data()), "the text of " + quoted(name));
    while (!text.empty() && (text.back() == '\0' || text.back() == ' ')) text.pop_back();
    return text;
  }

  /// The numbers of an attribute, as cells of the variable's type hold them; none if there is no such attribute.
  std::vector<double> getNumbers(int variable, const char* name) const {
    std::size_t length = 0;
    if (nc_inq_attlen(file_, variable, name, &length) != NC_NOERR) return {};
    std::vector<double> numbers(length);
    check(nc_get_att_double(file_, variable, name, numbers.data()), "numbers in the attribute " + quoted(name));
    if (getType(variable) == NC_FLOAT)
      for (double& number : numbers) number = static_cast<double>(static_cast<float>(number));
    return numbers;
  }

  /// Fails for a file that has lost its end. NetCDF itself tells those of the HDF5 kind; from those of the classic kind
  /// it reads anything for cells that are not there.
  void checkLength() const {
    int format = 0;
    check(nc_inq_format(file_, &format), "the format");
    if (format == NC_FORMAT_NETCDF4 || format == NC_FORMAT_NETCDF4_CLASSIC) return;
    const std::uintmax_t least =
        getLeastLength({format == NC_FORMAT_CDF5 ? 8U : 4U, format == NC_FORMAT_CLASSIC ? 4U : 8U});
    std::error_code unknown;
    const std::uintmax_t length = std::filesystem::file_size(path_, unknown);
    if (!unknown && length < least)
      fail("a whole file of at least " + std::to_string(least) + " bytes",
           std::to_string(length) + ", so its end is lost");
  }

  /// The axis of a dimension: its coordinate variable, which must carry the axis letter.
  Axis getAxis(int dimension, const std::string& letter) const {
    char name[NC_MAX_NAME + 1] = {};
    std::size_t length = 0;
    check(nc_inq_dim(file_, dimension, name, &length), "the axis " + letter);
    if (length == 0) fail("cells along " + quoted(name), "none");
    const int variable = findVariable(name);
    const std::string found = getText(variable, "axis");
    if (found != letter) fail("the axis " + letter, "the dimension " + quoted(name) + " of axis " + quoted(found));
    if (getDimensions(variable) != std::vector<int>{dimension})
      fail("one coordinate for each cell of the axis " + letter, "a variable " + quoted(name) + " of another shape");
    Axis axis{getText(variable, "units"), std::vector<double>(length)};
    check(nc_get_var_double(file_, variable, axis.values.data()), "the coordinates of " + quoted(name));
    return axis;
  }

  /// The month of each time step. Every month has to occur once at most, for it names fragments.
  std::vector<std::string> getMonths(const Axis& time) const {
    std::istringstream unit(time.unit);
    std::string length, since, date;
    unit >> length >> since >> date;
    const bool isHours = length == "hour" || length == "hours";
    const bool isDays = length == "day" || length == "days";
    if (!(isHours || isDays) || since != "since" || !date.ends_with("-01-01"))
      fail("a time axis in hours or days since the beginning of a year", quoted(time.unit));
    std::vector<std::string> months;
    for (const double value : time.values) {
      if (!std::isfinite(value)) fail("the time of every step", "one without a time");
      const double years = (isHours ? value / 24 : value) / DaysPerYear;
      const std::string& name = monthName(static_cast<std::size_t>((years - std::floor(years)) * 12) % 12);
      if (std::find(months.begin(), months.end(), name) != months.end())
        fail("at most one time step in each month",
             std::to_string(time.values.size()) + " steps, two of them in " + name);
      months.push_back(name);
    }
    return months;
  }

 private:
  /// How wide the numbers in the head of a classic file are, in bytes.
  struct Widths {
    std::uintmax_t count;   ///< of lengths and of numbers of things
    std::uintmax_t offset;  ///< of the places of variables in the file
  };

  /// The bytes of a text, or of the values of an attribute, in the head.
  static std::uintmax_t padded(std::uintmax_t nBytes) { return (nBytes + 3) / 4 * 4; }

  /// What the attributes of a variable need in the head, in bytes.
  std::uintmax_t getAttributeLength(int variable, const Widths& widths) const {
    int n = 0;
    check(variable == NC_GLOBAL ? nc_inq_natts(file_, &n) : nc_inq_varnatts(file_, variable, &n), "the attributes");
    std::uintmax_t sum = 4 + widths.count;
    for (int i = 0; i < n; ++i) {
      char name[NC_MAX_NAME + 1] = {};
      nc_type type = NC_NAT;
      std::size_t nValues = 0;
      std::size_t nBytes = 0;
      check(nc_inq_attname(file_, variable, i, name), "an attribute");
      check(nc_inq_att(file_, variable, name, &type, &nValues), quoted(name));
      check(nc_inq_type(file_, type, nullptr, &nBytes), "the type of " + quoted(name));
      sum += 4 + 2 * widths.count + padded(std::strlen(name)) + padded(nValues * nBytes);
    }
    return sum;
  }

  /// What the dimensions, attributes and variables of a classic file need, in bytes. Gaps between them are not known.
  std::uintmax_t getLeastLength(const Widths& widths) const {
    int nDimensions = 0;
    int nVariables = 0;
    check(nc_inq(file_, &nDimensions, &nVariables, nullptr, nullptr), "dimensions and variables");
    char name[NC_MAX_NAME + 1] = {};
    std::uintmax_t sum = 12 + 3 * widths.count + getAttributeLength(NC_GLOBAL, widths);
    for (int i = 0; i < nDimensions; ++i) {
      check(nc_inq_dimname(file_, i, name), "a dimension");
      sum += 2 * widths.count + padded(std::strlen(name));
    }
    for (int i = 0; i < nVariables; ++i) {
      std::size_t nBytes = 0;
      check(nc_inq_varname(file_, i, name), "a variable");
      check(nc_inq_type(file_, getType(i), nullptr, &nBytes), "the type of " + quoted(name));
      const std::vector<int> dimensions = getDimensions(i);
      sum += 4 + (3 + dimensions.size()) * widths.count + widths.offset + padded(std::strlen(name)) +
             getAttributeLength(i, widths);
      std::uintmax_t nData = nBytes;
      for (const int dimension : dimensions) {
        std::size_t length = 0;
        check(nc_inq_dimlen(file_, dimension, &length), "the length of a dimension");
        nData *= length;
      }
      sum += nData;
    }
    return sum;
  }

  const std::string& path_;
  const int file_;
};

/// The usual sign for metres, which files spell in several ways; any other unit as it is.
std::string shortUnit(const std::string& unit) {
  std::string lower = unit;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const bool isMetre = lower == "m" || lower == "meter" || lower == "meters" || lower == "metre" || lower == "metres";
  return isMetre ? "m" : unit;
}

}  // namespace

OceanFile::Handle::Handle(const std::string& path) {
  const Ostrel::MutexLock lock(netcdf);
  Reader(path, id).check(nc_open(path.c_str(), NC_NOWRITE, &id), "a NetCDF file");
}

OceanFile::Handle::~Handle() {
  const Ostrel::MutexLock lock(netcdf);
  nc_close(id);
}

OceanFile::OceanFile(const std::string& path, const std::string& variable) : file_(path) {
  const Ostrel::MutexLock lock(netcdf);
  const Reader reader(path, file_.id);
  reader.checkLength();
  variable_ = reader.findVariable(variable);
  const std::vector<int> dimensions = reader.getDimensions(variable_);
  if (dimensions.size() != 4)
    reader.fail("time, depth, latitude and longitude of " + quoted(variable),
                std::to_string(dimensions.size()) + " dimensions");
  for (const char* packing : {"scale_factor", "add_offset"})
    if (reader.hasAttribute(variable_, packing))
      reader.fail("plain numbers in " + quoted(variable), "packed ones (" + std::string(packing) + ")");

  description_.origin = path;
  description_.quantity = reader.getText(variable_, "long_name");
  if (description_.quantity.empty()) description_.quantity = variable;
  description_.unit = reader.getText(variable_, "units");
  description_.months = reader.getMonths(reader.getAxis(dimensions[0], "T"));
  description_.depth = reader.getAxis(dimensions[1], "Z");
  description_.depth.unit = shortUnit(description_.depth.unit);
  description_.latitude = reader.getAxis(dimensions[2], "Y");
  description_.longitude = reader.getAxis(dimensions[3], "X");

  for (const char* name : {"missing_value", "_FillValue"})
    for (const double value : reader.getNumbers(variable_, name))
      if (std::find(missing_.begin(), missing_.end(), value) == missing_.end()) missing_.push_back(value);
  std::ostringstream mark;
  for (const double value : missing_) mark << (mark.tellp() > 0 ? ", " : "") << value;
  description_.missingMark = missing_.empty() ? "NaN" : mark.str();
}

OceanFile::~OceanFile() = default;

void OceanFile::fill(std::size_t month, std::size_t depth, std::span<double> cells) const {
  const std::size_t start[] = {month, depth, 0, 0};
  const std::size_t count[] = {1, 1, nLatitudes(), nLongitudes()};
  {
    const Ostrel::MutexLock lock(netcdf);
    Reader(description_.origin, file_.id)
        .check(nc_get_vara_double(file_.id, variable_, start, count, cells.data()),
               "the slab of month " + std::to_string(month) + ", depth " + std::to_string(depth));
  }
  for (double& cell : cells)
    if (std::isnan(cell) || std::find(missing_.begin(), missing_.end(), cell) != missing_.end())
      cell = std::numeric_limits<double>::quiet_NaN();
}

std::optional<std::string> findOceanAtlas() {
  for (const char* folder : {"/usr/share/ferret-vis/data", "/usr/local/share/ferret-vis/data"}) {
    const std::filesystem::path path = std::filesystem::path(folder) / "ocean_atlas_subset.nc";
    if (std::filesystem::exists(path)) return path.string();
  }
  return std::nullopt;
}

}  // namespace Example
