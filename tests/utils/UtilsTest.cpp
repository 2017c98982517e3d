// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <utility>
#include <vector>

#include "mivo/utils/EnvVar.hpp"
#include "mivo/utils/TickMeter.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/strings.hpp"

namespace mivo {
namespace {

TEST(EnvVar, ReadsTheVariableOnceAndKeepsTheDefaultWithoutIt) {
  const char* name = "MIVO_TEST_ENV_VAR";
  unsetenv(name);
  EXPECT_EQ(EnvVar<int>(name, 7).get(), 7);

  EnvVar<int> variable(name, 7);
  setenv(name, "42", 1);
  EXPECT_EQ(variable.get(), 42);
  setenv(name, "43", 1);
  EXPECT_EQ(variable.get(), 42);

  EnvVar<int> absent("MIVO_TEST_ENV_VAR_LATE", 7);
  EXPECT_EQ(absent.get(), 7);
  setenv("MIVO_TEST_ENV_VAR_LATE", "1", 1);
  EXPECT_EQ(absent.get(), 7);
}

TEST(EnvVar, ReadsTextAsFarAsItIsADecimalNumber) {
  const char* name = "MIVO_TEST_ENV_VAR";
  const std::pair<const char*, int> cases[] = {
      {"abc", 0}, {"", 0}, {"-3", -3}, {"5x", 5}, {" 12", 12}, {"0x10", 0}, {"4294967297", 1}};
  for (const auto& [text, expected] : cases) {
    setenv(name, text, 1);
    EXPECT_EQ(EnvVar<int>(name, 7).get(), expected) << '"' << text << '"';
  }
  unsetenv(name);
}

// The switches are read once per process, so each state runs in a child of its own. The exit code
// packs what the three functions give.
int exitCodeOfSwitches() {
  return 10 * Utils::getVerboseLevel() + (Utils::isStrictMatrixMarket() ? 2 : 0) +
         (Utils::isWaitSome() ? 1 : 0);
}

class UtilsSwitches : public testing::Test {
 protected:
  void SetUp() override { testing::FLAGS_gtest_death_test_style = "fast"; }

  static void runChild(const std::vector<const char*>& texts) {
    const char* const names[] = {"MIVO_VERBOSE_LEVEL", "MIVO_STRICT_MATRIX_MARKET",
                                 "MIVO_WAIT_SOME"};
    for (const char* name : names) unsetenv(name);
    for (std::size_t k = 0; k < texts.size(); ++k) setenv(names[k], texts[k], 1);
    const int first = exitCodeOfSwitches();
    for (const char* name : names) setenv(name, "0", 1);
    setenv("MIVO_VERBOSE_LEVEL", "9", 1);
    setenv("MIVO_STRICT_MATRIX_MARKET", "1", 1);
    std::_Exit(first == exitCodeOfSwitches() ? first : 255);
  }
};

TEST_F(UtilsSwitches, AreReadFromTheEnvironmentOnceAndHaveDefaults) {
  EXPECT_EXIT(runChild({}), testing::ExitedWithCode(11), "");
  EXPECT_EXIT(runChild({"3", "1", "abc"}), testing::ExitedWithCode(32), "");
  EXPECT_EXIT(runChild({"abc", "-1", "2"}), testing::ExitedWithCode(3), "");
}

TEST(UtilsPlugin, ReportsAMissingFileAsANullHandle) {
  testing::internal::CaptureStdout();
  Utils::loadPlugin("./no_such_plugin.so");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "I 0/1 Utils:14] load plugin ./no_such_plugin.so result 0\n");
}

TEST(TickMeter, SumsFinishedIntervalsOnly) {
  TickMeter meter;
  meter.stop();
  EXPECT_EQ(meter.getCount(), 0u);
  EXPECT_EQ(meter.getTicks(), 0u);

  const std::uint64_t before = getTickCount();
  meter.start();
  usleep(2000);
  meter.stop();
  const std::uint64_t first = meter.getTicks();
  EXPECT_GE(first, 2000000u);
  EXPECT_LE(first, getTickCount() - before);
  meter.stop();
  EXPECT_EQ(meter.getCount(), 1u);
  EXPECT_EQ(meter.getTicks(), first);

  // A second start drops what the first has seen.
  meter.start();
  usleep(20000);
  const std::uint64_t again = getTickCount();
  meter.start();
  meter.stop();
  EXPECT_EQ(meter.getCount(), 2u);
  EXPECT_LE(meter.getTicks() - first, getTickCount() - again);
  EXPECT_EQ(meter.getTimeSec(), static_cast<double>(meter.getTicks()) / 1e9);
}

TEST(Strings, PrintfFormatsTextOfAnyLength) {
  EXPECT_EQ(string_printf("%d of %s: %.3e|", 3, "four", 0.5), "3 of four: 5.000e-01|");
  const std::string empty;
  EXPECT_EQ(string_printf("%s", empty.c_str()), "");
  const std::string large(100000, 'x');
  EXPECT_EQ(string_printf("<%s>", large.c_str()), "<" + large + ">");
}

using Pieces = std::vector<std::string>;

TEST(Strings, SplitGivesThePiecesBetweenMatches) {
  EXPECT_EQ(stringSplit("a, b,c", ",\\s*"), (Pieces{"a", "b", "c"}));
  EXPECT_EQ(stringSplit(" a  b ", "\\s+"), (Pieces{"", "a", "b"}));
  EXPECT_EQ(stringSplit("a" + std::string(1 << 20, ' ') + "b", "[ \t]+"), (Pieces{"a", "b"}));
  EXPECT_EQ(stringSplit("abc", ","), (Pieces{"abc"}));
  EXPECT_THROW(stringSplit("a", "("), std::regex_error);
}

TEST(Strings, SplitExtCutsAtTheLastPoint) {
  for (const auto& [text, pieces] : {std::pair("a.b.mtx", Pieces{"a.b", "mtx"}),
                                     {"a", {"a", ""}},
                                     {"dir.d/a", {"dir", "d/a"}},
                                     {".mtx", {"", "mtx"}},
                                     {"a.", {"a", ""}}}) {
    EXPECT_EQ(stringSplitExt(text), pieces) << text;
  }
}

}  // namespace
}  // namespace mivo
