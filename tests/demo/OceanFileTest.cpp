// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// The reader of the ocean example on small files that the tests write themselves.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifdef TRESK_OCEAN_WITH_NETCDF

#include <ocean/OceanFile.hpp>

#include <netcdf.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>

namespace {

using namespace Example;
using testing::AllOf;
using testing::HasSubstr;

/// A small ocean file: 2 months, 2 depths, 2 latitudes, 3 longitudes. Cell number n has the value n / 2, unless it is
/// set.
struct SmallFile {
  std::vector<double> hours{366, 1096};
  std::string timeUnit = "hour since 0000-01-01 00:00:00";
  std::string depthLetter = "Z";
  std::vector<std::pair<const char*, double>> attributes;
  nc_type attributeType = NC_DOUBLE;
  int kind = 0;  ///< of the classic kinds of files, a flag of `nc_create`
  std::vector<std::pair<std::size_t, double>> cells;

  /// Writes the file and returns its path.
  std::string write() const {
    const std::string path =
        testing::TempDir() + "tresk_ocean_" + testing::UnitTest::GetInstance()->current_test_info()->name() + ".nc";
    int file = -1;
    expectOk(nc_create(path.c_str(), NC_CLOBBER | kind, &file));
    int dimensions[4];
    addAxis(file, "time", "T", timeUnit, hours.size(), dimensions[0]);
    addAxis(file, "depth", depthLetter, "METERS", 2, dimensions[1]);
    addAxis(file, "latitude", "Y", "degrees_north", 2, dimensions[2]);
    addAxis(file, "longitude", "X", "degrees_east", 3, dimensions[3]);
    int temperature = -1;
    int flat = -1;
    expectOk(nc_def_var(file, "TEMP", NC_FLOAT, 4, dimensions, &temperature));
    expectOk(nc_def_var(file, "FLAT", NC_FLOAT, 2, dimensions, &flat));
    expectOk(nc_put_att_text(file, temperature, "units", 6, "kelvin"));
    for (const auto& [name, value] : attributes)
      expectOk(nc_put_att_double(file, temperature, name, attributeType, 1, &value));
    expectOk(nc_enddef(file));
    const double coordinates[] = {0, 12.5, 25};
    int time = -1;
    expectOk(nc_inq_varid(file, "time", &time));
    expectOk(nc_put_var_double(file, time, hours.data()));
    for (const char* name : {"depth", "latitude", "longitude"}) {
      int axis = -1;
      expectOk(nc_inq_varid(file, name, &axis));
      expectOk(nc_put_var_double(file, axis, coordinates));
    }
    std::vector<double> values(hours.size() * 12);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(i) / 2;
    for (const auto& [cell, value] : cells) values.at(cell) = value;
    expectOk(nc_put_var_double(file, temperature, values.data()));
    expectOk(nc_close(file));
    return path;
  }

 private:
  static void expectOk(int status) { ASSERT_EQ(status, NC_NOERR) << nc_strerror(status); }
  static void addAxis(int file, const char* name, const std::string& letter, const std::string& unit,
                      std::size_t length, int& dimension) {
    int variable = -1;
    expectOk(nc_def_dim(file, name, length, &dimension));
    expectOk(nc_def_var(file, name, NC_DOUBLE, 1, &dimension, &variable));
    expectOk(nc_put_att_text(file, variable, "units", unit.size(), unit.c_str()));
    expectOk(nc_put_att_text(file, variable, "axis", letter.size(), letter.c_str()));
  }
};

/// The slab of one month and depth.
std::vector<double> readSlab(const OceanSource& ocean, std::size_t month, std::size_t depth) {
  std::vector<double> cells(ocean.nLongitudes() * ocean.nLatitudes());
  ocean.readSlab(month, depth, cells);
  return cells;
}

/// The message of the error that opening a file raises.
std::string errorOf(const std::string& path, const std::string& variable = "TEMP") {
  try {
    const OceanFile ocean(path, variable);
  } catch (const OceanFileError& error) {
    return error.what();
  }
  return "no error";
}

TEST(OceanFileTest, TellsWhatTheFileSays) {
  const std::string path = SmallFile().write();
  const OceanFile ocean(path);
  const OceanDescription& description = ocean.getDescription();
  EXPECT_EQ(description.origin, path);
  EXPECT_EQ(description.quantity, "TEMP");
  EXPECT_EQ(description.unit, "kelvin");
  EXPECT_EQ(description.missingMark, "NaN");
  EXPECT_EQ(description.months, (std::vector<std::string>{"January", "February"}));
  EXPECT_EQ(description.depth.unit, "m");
  EXPECT_EQ(description.depth.values, (std::vector<double>{0, 12.5}));
  EXPECT_EQ(description.latitude.unit, "degrees_north");
  EXPECT_EQ(description.longitude.values, (std::vector<double>{0, 12.5, 25}));
}

TEST(OceanFileTest, ASlabIsOneMonthAtOneDepthWithLongitudeFastest) {
  const OceanFile ocean(SmallFile().write());
  EXPECT_EQ(readSlab(ocean, 0, 0), (std::vector<double>{0, 0.5, 1, 1.5, 2, 2.5}));
  EXPECT_EQ(readSlab(ocean, 0, 1), (std::vector<double>{3, 3.5, 4, 4.5, 5, 5.5}));
  EXPECT_EQ(readSlab(ocean, 1, 1), (std::vector<double>{9, 9.5, 10, 10.5, 11, 11.5}));
}

TEST(OceanFileTest, MissingCellsAreMarkedByTheValueOfTheFilesOwnAttribute) {
  SmallFile file;
  file.attributes = {{"missing_value", 1.5}};
  file.cells = {{4, -1e34}};
  const OceanFile ocean(file.write());
  EXPECT_EQ(ocean.getDescription().missingMark, "1.5");
  const std::vector<double> slab = readSlab(ocean, 0, 0);
  EXPECT_TRUE(std::isnan(slab[3]));
  EXPECT_EQ(slab[4], static_cast<double>(-1e34F)) << "what another file uses as a mark is a number here";
  EXPECT_EQ(slab[2], 1);
}

TEST(OceanFileTest, BothAttributesOfMissingCellsAreObeyed) {
  SmallFile file;
  file.attributes = {{"missing_value", 1.5}, {"_FillValue", 0.5}};
  file.attributeType = NC_FLOAT;
  const OceanFile ocean(file.write());
  EXPECT_EQ(ocean.getDescription().missingMark, "1.5, 0.5");
  const std::vector<double> slab = readSlab(ocean, 0, 0);
  EXPECT_TRUE(std::isnan(slab[1]));
  EXPECT_TRUE(std::isnan(slab[3]));
}

TEST(OceanFileTest, AMarkOfDoublePrecisionIsFoundAmongCellsOfSinglePrecision) {
  SmallFile file;
  file.attributes = {{"missing_value", -1e34}};
  file.cells = {{1, -1e34}};
  EXPECT_TRUE(std::isnan(readSlab(OceanFile(file.write()), 0, 0)[1]));
}

TEST(OceanFileTest, NotANumberStaysSo) {
  SmallFile file;
  file.cells = {{2, std::numeric_limits<double>::quiet_NaN()}};
  EXPECT_TRUE(std::isnan(readSlab(OceanFile(file.write()), 0, 0)[2]));
}

TEST(OceanFileTest, ErrorsNameTheFileWhatWasAskedAndWhatWasFound) {
  const std::string path = SmallFile().write();
  EXPECT_THAT(errorOf("/no/such/file.nc"), AllOf(HasSubstr("/no/such/file.nc: asked for a NetCDF file, found ")));
  EXPECT_THAT(errorOf(path, "SALT"), AllOf(HasSubstr(path), HasSubstr("asked for a variable \"SALT\", found ")));
  EXPECT_THAT(errorOf(path, "FLAT"), HasSubstr("of \"FLAT\", found 2 dimensions"));
}

TEST(OceanFileTest, AFileThatIsNoNetCdfIsRefused) {
  const std::string path = testing::TempDir() + "tresk_ocean_text.nc";
  std::FILE* const text = std::fopen(path.c_str(), "w");
  ASSERT_NE(text, nullptr);
  std::fputs("This is no NetCDF file, whatever its name says.\n", text);
  std::fclose(text);
  EXPECT_THAT(errorOf(path), HasSubstr("asked for a NetCDF file, found "));
}

TEST(OceanFileTest, AFileThatHasLostItsLastByteIsRefused) {
  for (const int kind : {0, NC_64BIT_OFFSET, NC_64BIT_DATA}) {
    SmallFile file;
    file.kind = kind;
    file.attributes = {{"missing_value", 1.5}};
    const std::string path = file.write();
    const std::uintmax_t length = std::filesystem::file_size(path);
    EXPECT_EQ(errorOf(path), "no error") << "kind " << kind;
    std::filesystem::resize_file(path, length - 1);
    EXPECT_THAT(errorOf(path), HasSubstr("asked for a whole file of at least " + std::to_string(length) +
                                         " bytes, found " + std::to_string(length - 1)))
        << "kind " << kind;
  }
}

TEST(OceanFileTest, DimensionsInAnotherOrderAreRefused) {
  SmallFile file;
  file.depthLetter = "E";
  EXPECT_THAT(errorOf(file.write()), HasSubstr("asked for the axis Z, found the dimension \"depth\" of axis \"E\""));
}

TEST(OceanFileTest, AMonthThatOccursTwiceIsRefused) {
  SmallFile file;
  file.hours = {366, 400};
  EXPECT_THAT(errorOf(file.write()), HasSubstr("found 2 steps, two of them in January"));
}

TEST(OceanFileTest, AFileWithoutTimeStepsIsRefused) {
  SmallFile file;
  file.hours = {};
  EXPECT_THAT(errorOf(file.write()), HasSubstr("asked for cells along \"time\", found none"));
}

TEST(OceanFileTest, AStepWithoutATimeIsRefused) {
  SmallFile file;
  file.hours = {366, std::numeric_limits<double>::quiet_NaN()};
  EXPECT_THAT(errorOf(file.write()), HasSubstr("found one without a time"));
}

TEST(OceanFileTest, ATimeAxisOfAnotherKindIsRefused) {
  for (const char* unit : {"month", "hour since 1990-06-15", "fortnights since 1990-01-01"}) {
    SmallFile file;
    file.timeUnit = unit;
    EXPECT_THAT(errorOf(file.write()), HasSubstr(std::string("found \"") + unit + "\""));
  }
}

TEST(OceanFileTest, PackedNumbersAreRefused) {
  SmallFile file;
  file.attributes = {{"scale_factor", 0.01}};
  EXPECT_THAT(errorOf(file.write()), HasSubstr("found packed ones (scale_factor)"));
}

TEST(OceanFileTest, ASlabOutsideTheFileIsRefused) {
  const OceanFile ocean(SmallFile().write());
  std::vector<double> cells(6);
  std::vector<double> tooFew(5);
  EXPECT_THROW(ocean.readSlab(2, 0, cells), std::out_of_range);
  EXPECT_THROW(ocean.readSlab(0, 2, cells), std::out_of_range);
  EXPECT_THROW(ocean.readSlab(0, 0, tooFew), std::out_of_range);
}

}  // namespace

#else

TEST(OceanFileTest, TellsWhatTheFileSays) { GTEST_SKIP() << "the ocean example was built without netCDF"; }

#endif
