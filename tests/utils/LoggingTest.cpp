// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>

#include "mivo/utils/logging.hpp"
#include "tests/support/fatal.hpp"

namespace mivo {
namespace {

TEST(LogMessage, WritesPrefixTextAndNewline) {
  for (const auto& [file, shown] : {std::pair("/project/src/utils/Device", "Device"),
                                    {"a\\b\\c.cpp", "c.cpp"},
                                    {"plain.hpp", "plain.hpp"},
                                    {"mixed/a\\b", "b"},
                                    {"dir/", ""}}) {
    std::ostringstream out;
    LogMessage(false, 3, 1, file, 42, &out).stream() << "text " << 7;
    EXPECT_EQ(out.str(), std::string("I 0/1 ") + shown + ":42] text 7\n");
  }
}

TEST(LogMessage, IsSilentWhenSwitchedOffOrWhenTheAssertionHolds) {
  testing::internal::CaptureStdout();
  std::ostringstream out;
  LogMessage(false, 3, 0, "f", 1, &out).stream() << "off";
  LogMessage(true, 3, 1, "f", 1, &out).stream() << "holds";
  LogMessage(true, 3, 1, "f", 1, nullptr).stream() << "holds";
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(LogMessage, NullStreamSwallowsTextAndStaysUsable) {
  for (int k = 0; k < 3; ++k) gs_null_stream << std::string(10000, 'x') << k << 1.5 << std::endl;
  EXPECT_TRUE(gs_null_stream.good());
}

TEST(LogMessage, FailingAssertionPrintsItsLineAndExitsWithOne) {
  MIVO_EXPECT_FATAL(LogMessage(true, 0, 0, "dir/Name", 9, nullptr).stream() << "text", "Name:9",
                    "text");
  MIVO_EXPECT_FATAL(MIVO_CHECK_AT(1 + 1 == 3, "/src/Matrix", 436) << "a " << 2, "Matrix:436",
                    "a 2");
  MIVO_EXPECT_FATAL_TEXT(MIVO_CHECK(false) << "here", "here");
}

TEST(LogMacros, EvaluateTextOnlyWhenItIsPrinted) {
  testing::internal::CaptureStdout();
  int evaluated = 0;
  const auto text = [&] {
    ++evaluated;
    return "text";
  };
  MIVO_CHECK(true) << text();
  MIVO_CHECK_AT(evaluated == 0, "F", 1) << text();
  MIVO_LOG(3, false) << text();
  MIVO_LOG_AT(3, evaluated > 0, "F", 2) << text();
  EXPECT_EQ(evaluated, 0);
  // As the only statement of a branch they do not catch its else.
  if (evaluated == 0)
    MIVO_LOG_AT(3, true, "/a/F", 3) << text();
  else
    MIVO_LOG_AT(3, true, "F", 4) << "wrong branch";
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "I 0/1 F:3] text\n");
}

}  // namespace
}  // namespace mivo
