// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/field/Version.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(VersionTest, TheTextIsMadeOfTheThreeNumbers) {
  EXPECT_EQ(Tresk::version(), std::to_string(TRESK_VERSION_MAJOR) + "." + std::to_string(TRESK_VERSION_MINOR) + "." +
                                  std::to_string(TRESK_VERSION_PATCH));
}

TEST(VersionTest, TheNumberGrowsWithTheVersion) {
  EXPECT_EQ(TRESK_VERSION_NUMBER, TRESK_VERSION_MAJOR * 10000 + TRESK_VERSION_MINOR * 100 + TRESK_VERSION_PATCH);
  EXPECT_LT(TRESK_VERSION_MINOR, 100);
  EXPECT_LT(TRESK_VERSION_PATCH, 100);
}

TEST(VersionTest, TheLibraryOfThisBuildHasTheVersionOfItsHeaders) {
  EXPECT_STREQ(Tresk::libraryVersion(), Tresk::version());
}

TEST(VersionTest, TheVersionOfTheHeadersIsKnownToTheCompiler) {
  static_assert(Tresk::version()[0] >= '0' && Tresk::version()[0] <= '9');
#if TRESK_VERSION_NUMBER < 100
  FAIL() << "version 0.1.0 is the first one";
#endif
}

}  // namespace
