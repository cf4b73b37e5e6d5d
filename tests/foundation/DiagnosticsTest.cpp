// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include <tresk/foundation/Diagnostics.hpp>
#include <tresk/foundation/Geometry.hpp>
#include <tresk/foundation/Pointers.hpp>

#include <support/BreakpointRecorder.hpp>
#include <support/PointerClasses.hpp>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(TypenameTest, NamesAreReadable) {
  EXPECT_EQ(Ostrel::Typename(typeid(double)), "double");
  EXPECT_EQ(Ostrel::Typename(typeid(unsigned short)), "unsigned short");
  EXPECT_EQ(Ostrel::Typename(typeid(void)), "void");
  EXPECT_EQ(Ostrel::Typename(typeid(Ostrel::ReferenceRecord)), "Ostrel::ReferenceRecord");
}

TEST(TypenameTest, NamesOfTemplatesShowTheirArguments) {
  EXPECT_EQ(Ostrel::Typename(typeid(Quorvel::FixedArray<double, 3>)), "Quorvel::FixedArray<double, 3>");
  EXPECT_EQ(Ostrel::Typename(typeid(Quorvel::Vector<double, 3>)), "Quorvel::Vector<double, 3>");
  EXPECT_EQ(Ostrel::Typename(typeid(Quorvel::Operator<43, 0>)), "Quorvel::Operator<43, 0>");
  EXPECT_EQ(Ostrel::Typename(typeid(Ostrel::RefPtr<TreskTest::Root>)),
            "Ostrel::StrongPtr<TreskTest::Root, TreskTest::Root>");
}

TEST(TypenameTest, NestedTypesShowTheirScope) {
  EXPECT_EQ(Ostrel::Typename(typeid(Quorvel::PhysicalSpace::point)), "Quorvel::PhysicalSpace::point");
}

class Hidden {};

TEST(TypenameTest, NamesOfTypesWithInternalLinkageAreReadableToo) {
  EXPECT_EQ(Ostrel::Typename(typeid(Hidden)), "(anonymous namespace)::Hidden");
}

TEST(BreakpointTest, MessageReachesTheHandlerAndTheCallReturns) {
  const TreskTest::BreakpointRecorder recorder;
  Ostrel::breakpoint("first");
  Ostrel::breakpoint("second");
  EXPECT_EQ(recorder.messages(), (std::vector<std::string>{"first", "second"}));
}

TEST(BreakpointTest, HandlersNest) {
  const TreskTest::BreakpointRecorder outer;
  {
    const TreskTest::BreakpointRecorder inner;
    Ostrel::breakpoint("inner");
    EXPECT_EQ(inner.messages().size(), 1U);
  }
  Ostrel::breakpoint("outer");
  EXPECT_EQ(outer.messages(), std::vector<std::string>{"outer"});
}

TEST(BreakpointTest, InstallingReturnsTheFormerHandler) {
  const Ostrel::BreakpointHandler mine = [](const char*) {};
  EXPECT_EQ(Ostrel::setBreakpointHandler(mine), nullptr);
  EXPECT_EQ(Ostrel::setBreakpointHandler(nullptr), mine);
}

TEST(BreakpointTest, WithoutHandlerTheMessageGoesToStandardError) {
  testing::internal::CaptureStderr();
  Ostrel::breakpoint("a condition that should not arise");
  EXPECT_NE(testing::internal::GetCapturedStderr().find("a condition that should not arise"), std::string::npos);
}

TEST(ByteTextTest, TakesTheLargestUnitThatIsNotBelowOne) {
  EXPECT_EQ(Ostrel::toByteText(0), "0 B");
  EXPECT_EQ(Ostrel::toByteText(1023), "1023 B");
  EXPECT_EQ(Ostrel::toByteText(1024), "1.0 KiB");
  EXPECT_EQ(Ostrel::toByteText(1536ULL << 20), "1.5 GiB");
  EXPECT_EQ(Ostrel::toByteText(~0ULL), "16.0 EiB");
}

}  // namespace
