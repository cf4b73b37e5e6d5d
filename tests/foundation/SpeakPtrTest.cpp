// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/SpeakPtr.hpp>

#include <support/SpeakRecorder.hpp>

#include <gtest/gtest.h>

#include <string>

namespace {

using Ostrel::SpeakPtr;

TEST(SpeakPtrTest, ThereIsAlwaysASpeaker) {
  ASSERT_NE(SpeakPtr::theSpeaker(), nullptr);
  EXPECT_EQ(SpeakPtr::theSpeaker(), SpeakPtr::theSpeaker());
}

TEST(SpeakPtrTest, InstallingReturnsTheFormerSpeaker) {
  SpeakPtr* const standard = SpeakPtr::theSpeaker();
  SpeakPtr mine;
  EXPECT_EQ(SpeakPtr::setSpeaker(&mine), standard);
  EXPECT_EQ(SpeakPtr::theSpeaker(), &mine);
  EXPECT_EQ(SpeakPtr::setSpeaker(nullptr), &mine);
  EXPECT_EQ(SpeakPtr::theSpeaker(), standard) << "null installs the default one";
}

TEST(SpeakPtrTest, RecordersNest) {
  TreskTest::SpeakRecorder outer;
  {
    TreskTest::SpeakRecorder inner;
    SpeakPtr::WarningUnctionChange(2, 4, typeid(int));
    EXPECT_EQ(inner.unctionChanges().size(), 1U);
  }
  EXPECT_TRUE(outer.unctionChanges().empty());
  EXPECT_EQ(SpeakPtr::theSpeaker(), &outer);
}

TEST(SpeakPtrTest, WarningReachesTheInstalledSpeaker) {
  TreskTest::SpeakRecorder recorder;
  SpeakPtr::WarningUnctionChange(5, 6, typeid(double));
  ASSERT_EQ(recorder.unctionChanges().size(), 1U);
  EXPECT_EQ(recorder.unctionChanges()[0].strong, 5);
  EXPECT_EQ(recorder.unctionChanges()[0].weak, 6);
  EXPECT_EQ(*recorder.unctionChanges()[0].base, typeid(double));
}

TEST(SpeakPtrTest, DefaultSpeakerWritesOneLineToStandardError) {
  SpeakPtr* const former = SpeakPtr::setSpeaker(nullptr);
  testing::internal::CaptureStderr();
  SpeakPtr::WarningUnctionChange(2, 4, typeid(int));
  const std::string warning = testing::internal::GetCapturedStderr();
  testing::internal::CaptureStderr();
  SpeakPtr::theSpeaker()->SelfConstruction(typeid(int), nullptr, nullptr);
  const std::string self = testing::internal::GetCapturedStderr();
  testing::internal::CaptureStderr();
  SpeakPtr::theSpeaker()->InvalidWeakPtr(typeid(void), typeid(int), typeid(char), typeid(float), 3, -1, nullptr,
                                         nullptr, 77);
  const std::string invalid = testing::internal::GetCapturedStderr();
  SpeakPtr::setSpeaker(former);
  for (const std::string& line : {warning, self, invalid}) {
    ASSERT_FALSE(line.empty());
    EXPECT_EQ(line.find('\n'), line.size() - 1);
  }
  EXPECT_NE(warning.find("int"), std::string::npos);
  EXPECT_NE(invalid.find("77"), std::string::npos);
  EXPECT_NE(invalid.find("-1"), std::string::npos);
  EXPECT_NE(invalid.find("float"), std::string::npos);
}

}  // namespace
