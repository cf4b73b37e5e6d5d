// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ocean/AnalyticOcean.hpp>
#include <ocean/Pictures.hpp>

#include <cstdlib>
#include <fstream>
#include <limits>
#include <stdexcept>

namespace {

using namespace Example;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

constexpr double None = std::numeric_limits<double>::quiet_NaN();

/// An empty folder of the running test.
std::filesystem::path makeFolder() {
  const std::filesystem::path folder =
      testing::TempDir() + "tresk_" + testing::UnitTest::GetInstance()->current_test_info()->name();
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  return folder;
}

/// Takes all programs out of reach while it lives.
class WithoutPrograms {
 public:
  WithoutPrograms() { setenv("PATH", "/nonexistent", 1); }
  WithoutPrograms(const WithoutPrograms&) = delete;
  WithoutPrograms& operator=(const WithoutPrograms&) = delete;
  ~WithoutPrograms() { setenv("PATH", former_.c_str(), 1); }

 private:
  const std::string former_ = std::getenv("PATH") == nullptr ? "" : std::getenv("PATH");
};

bool hasGnuplot() {
  Gnuplot plot;
  plot << "print 1"
       << "set terminal dumb"
       << "plot x";
  return plot.draw(makeFolder() / "probe.txt");
}

TEST(GnuplotTest, ATextHasNoMeaningInAScript) {
  EXPECT_EQ(Gnuplot::quoted("5 m"), "'5 m'");
  EXPECT_EQ(Gnuplot::quoted("it's `date` \\n $x"), "'it''s `date` \\n $x'");
  EXPECT_EQ(Gnuplot::quoted("a\nsystem('date')\t\x7f"), "'a system(''date'')  '");
}

TEST(GnuplotTest, WithoutTheProgramNothingIsDrawnAndNoFileIsLeft) {
  const std::filesystem::path folder = makeFolder();
  Gnuplot plot;
  plot << "set terminal dumb";
  {
    const WithoutPrograms nothing;
    EXPECT_FALSE(plot.draw(folder / "a.txt"));
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST(GnuplotTest, AFolderThatIsNotThereIsNamed) {
  try {
    Gnuplot().draw("/no/such/folder/a.png");
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("/no/such/folder/a.png: No such file"));
  }
}

TEST(GnuplotTest, AMistakeInTheScriptIsToldInTheWordsOfTheProgram) {
  if (!hasGnuplot()) GTEST_SKIP() << "gnuplot is not installed (Debian package gnuplot-nox)";
  const std::filesystem::path folder = makeFolder();
  Gnuplot plot;
  plot << "set nonsense";
  // More than fits between the two programs: the other one has gone when it is written.
  plot.add(std::vector<double>(1 << 20));
  try {
    plot.draw(folder / "a.png");
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("a.png: gnuplot has failed: "));
    EXPECT_THAT(error.what(), HasSubstr("set nonsense"));
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST(GnuplotTest, AScriptThatDrawsNothingIsAnError) {
  if (!hasGnuplot()) GTEST_SKIP() << "gnuplot is not installed (Debian package gnuplot-nox)";
  Gnuplot plot;
  plot << "a = 1";
  EXPECT_THROW(plot.draw(makeFolder() / "a.png"), std::runtime_error);
}

TEST(ImageAxisTest, AnEvenAxisGivesAPlaceForEachCell) {
  const ImageAxis axis = makeImageAxis({"degrees_east", {10, 30, 50}}, 100);
  EXPECT_EQ(axis.low, 0);
  EXPECT_EQ(axis.step, 20);
  EXPECT_EQ(axis.high(), 60);
  EXPECT_THAT(axis.cells, ElementsAre(0, 1, 2));
}

TEST(ImageAxisTest, AFallingAxisIsTurnedRound) {
  const ImageAxis axis = makeImageAxis({"degrees_north", {60, 0, -60}}, 100);
  EXPECT_EQ(axis.low, -90);
  EXPECT_THAT(axis.cells, ElementsAre(2, 1, 0));
}

TEST(ImageAxisTest, OneCellFillsAPlaceOfLengthOne) {
  const ImageAxis axis = makeImageAxis({"m", {5}}, 100);
  EXPECT_EQ(axis.low, 4.5);
  EXPECT_EQ(axis.high(), 5.5);
  EXPECT_THAT(axis.cells, SizeIs(1));
}

TEST(ImageAxisTest, AnUnevenAxisGivesTheNearestCellAtTrueDistances) {
  const ImageAxis axis = makeImageAxis({"m", {0, 2, 10}}, 10);
  EXPECT_EQ(axis.low, 0);
  EXPECT_EQ(axis.high(), 10);
  EXPECT_THAT(axis.cells, ElementsAre(0, 1, 1, 1, 1, 1, 2, 2, 2, 2));
}

TEST(CoastsTest, RunAlongTheBordersOfLand) {
  // Land in the middle of 3 x 3 cells.
  const std::vector<double> image{1, 1, 1, 1, None, 1, 1, 1, 1};
  const ImageAxis axis = makeImageAxis({"m", {0, 1, 2}}, 1);
  double length = 0;
  const std::vector<CoastLine> coasts = findCoasts(image, axis, axis);
  for (const CoastLine& coast : coasts) {
    length += coast.dx + coast.dy;
    EXPECT_TRUE(coast.x == 0.5 || coast.x == 1.5);
    EXPECT_TRUE(coast.y == 0.5 || coast.y == 1.5);
  }
  EXPECT_THAT(coasts, SizeIs(4));
  EXPECT_EQ(length, 4);
}

TEST(CoastsTest, AStraightCoastIsOneLine) {
  const std::vector<double> image{None, None, None, 1, 1, 1};
  const std::vector<CoastLine> coasts =
      findCoasts(image, makeImageAxis({"m", {0, 1, 2}}, 1), makeImageAxis({"m", {0, 1}}, 1));
  ASSERT_THAT(coasts, SizeIs(1));
  EXPECT_EQ(coasts[0].x, -0.5);
  EXPECT_EQ(coasts[0].dx, 3);
  EXPECT_EQ(coasts[0].y, 0.5);
  EXPECT_EQ(coasts[0].dy, 0);
}

TEST(PictureSizeTest, IsThatOfAPngOrNothing) {
  const std::filesystem::path file = makeFolder() / "a.png";
  EXPECT_FALSE(readPictureSize(file));
  const auto write = [&file](const std::string& text) { std::ofstream(file, std::ios::binary) << text; };
  write("GIF89a and so on, and so on");
  EXPECT_FALSE(readPictureSize(file));
  write(std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\x01\x02\0\0\0\x03", 24));
  EXPECT_EQ(readPictureSize(file), std::pair(0x102U, 3U));
}

TEST(PicturesTest, AMapOfLandAloneIsDrawn) {
  if (!hasGnuplot()) GTEST_SKIP() << "gnuplot is not installed (Debian package gnuplot-nox)";
  const AnalyticOcean ocean;
  const OceanDescription& description = ocean.getDescription();
  Slab land({ocean.nLongitudes(), ocean.nLatitudes()}, Tresk::CreatorWeakPtr());
  for (unsigned long long j = 0; j < ocean.nLatitudes(); ++j)
    for (unsigned long long i = 0; i < ocean.nLongitudes(); ++i) land(i, j) = None;
  const std::filesystem::path file = makeFolder() / "land.png";
  ASSERT_TRUE(makeAnomalyPicture(land, description, "It's land").draw(file));
  EXPECT_EQ(readPictureSize(file), std::pair(PictureWidth, PictureHeight));
  const std::vector<double> section(ocean.nLatitudes() * ocean.nDepths(), None);
  ASSERT_TRUE(makeSectionPicture(section, description, "land").draw(file));
  EXPECT_EQ(readPictureSize(file), std::pair(PictureWidth, PictureHeight));
}

}  // namespace
