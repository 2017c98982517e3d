// SPDX-License-Identifier: Apache-2.0
/// mivo-solve where memory runs out: it ends in one line, or solves as if there were enough.

#include <gmock/gmock.h>

#include <cstdlib>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "driver_process.hpp"
#include "examples/mivo-solve/memory.hpp"

namespace driver_test {
namespace {

TEST(DriverMemory, SystemsBeyondTheMachineAreRefused) {
  constexpr double kRows = 7e8;  // about the most that one rank takes
  if (mivo_solve::estimatedMemory(kRows, 0, false) < mivo_solve::availableMemory()) {
    GTEST_SKIP() << "this machine can hold every system of one rank";
  }
  const Folder folder;
  folder.write("A.mtx",
               "%%MatrixMarket matrix coordinate real general\n700000000 700000000 1\n1 1 2\n");
  folder.write("b.mtx", "%%MatrixMarket matrix array real general\n1 1\n1\n");
  json grid = poissonConfiguration();
  grid["testcase"]["PoissonFDM_params"] = {{"dim", 1}, {"N", 700000000}};
  for (const json& configuration : {grid, fileConfiguration()}) {
    const Outcome outcome = folder.solve(configuration);
    EXPECT_EQ(outcome.status, 1) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.err,
                ::testing::ContainsRegex("needs about .* of memory; .* are available"));
  }
}

/// The last of so many ranks has little memory.
class DriverWithLittleMemory : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    // As in RanksTest.cpp; and here something is loaded before the runtime of the sanitizer.
    setenv("UCX_MEM_EVENTS", "n", 1);
    setenv("ASAN_OPTIONS", "detect_leaks=0:verify_asan_link_order=0", 1);
    json configuration = poissonConfiguration(
        "SolverPCG",
        {{"rtol", 0.1},
         {"preconditioner",
          {{"preconditioner_type", "PrecondAMG"}, {"PrecondAMG_params", multigridParams()}}}},
        100);
#ifdef MIVO_TEST_ON_EMULATED_DEVICE
    configuration["testcase"]["PoissonFDM_params"]["device"] = "cuda:0";
#endif
    folder_.write("c.json", configuration.dump());
    const Outcome outcome = run("MIVO_TEST_ROOM=0");
    iterations_ = reportOf(outcome)["iterations"];
    solution_ = folder_.read("x.mtx");
    ASSERT_EQ(outcome.status, 0) << outcome.err;
  }

  Outcome run(const std::string& scarcity) const {
    const std::vector<std::string> arguments = {"c.json", "--json", "--solution", "x.mtx"};
    std::vector<std::string> words;
    std::string program = MIVO_SOLVE_PROGRAM;
#ifdef MIVO_MPIEXEC
    if (GetParam() > 1) {
      program = MIVO_SOLVE_MPI_PROGRAM;
      words = {MIVO_MPIEXEC, "-n", std::to_string(GetParam() - 1), program};
      words.insert(words.end(), arguments.begin(), arguments.end());
      words.insert(words.end(), {":", "-n", "1"});
    }
#endif
    words.insert(words.end(),
                 {"/usr/bin/env", "LD_PRELOAD=" MIVO_SCARCE_MEMORY, scarcity, program});
    words.insert(words.end(), arguments.begin(), arguments.end());
    return folder_.execute(words, 60);
  }

  /// False where memory ran out.
  bool solves(const std::string& scarcity) const {
    const Outcome outcome = run(scarcity);
    if (outcome.status == 0) {
      EXPECT_EQ(reportOf(outcome)["iterations"], iterations_) << scarcity;
      EXPECT_TRUE(folder_.read("x.mtx") == solution_) << scarcity;
      return true;
    }
    const std::string text = outcome.out + outcome.err;
    static const std::regex reason(
        "] no memory for [0-9]+ bytes on (cpu|cuda):0: [a-z ]+\n"
        "|mivo-solve: the run cannot go on: std::bad_alloc\n");
    const auto reasons = std::distance(std::sregex_iterator(text.begin(), text.end(), reason), {});
    if (GetParam() == 1) {
      EXPECT_EQ(outcome.status, 1) << scarcity << "\n" << text;
      EXPECT_EQ(reasons, 1) << scarcity << "\n" << text;
      EXPECT_EQ(reportOf(outcome)["status"], 1) << scarcity << "\n" << text;
    } else {
      // The message layer may be the one that gives up first, in words of its own.
      EXPECT_GT(outcome.status, 0) << scarcity << " it hangs: " << text;
      EXPECT_LE(reasons, 1) << scarcity << "\n" << text;
      for (const char* crash : {"(signal 6)", "(signal 7)", "(signal 11)"}) {
        EXPECT_EQ(text.find(crash), std::string::npos) << scarcity << "\n" << text;
      }
    }
    return false;
  }

 private:
  const Folder folder_;
  json iterations_;
  std::string solution_;
};

TEST_P(DriverWithLittleMemory, EndsInOneLineOrSolves) {
  // What sanitizers reserve is beyond any useful limit.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr bool kLimits = false;
#else
  constexpr bool kLimits = true;
#endif
  if (kLimits) {
    // In about fifty steps to what the run needs; the message layer takes some, too.
    const int step = GetParam() == 1 ? 90 : 170;
    int refused = 0;
    for (int solved = 0; solved < 2 && refused < 100;) {
      const bool enough =
          solves("MIVO_TEST_ROOM=" + std::to_string(20 + step * (refused + solved)));
      ++(enough ? solved : refused);
    }
    EXPECT_GT(refused, 15) << "there is nearly always enough";
    EXPECT_LT(refused, 100) << "there is never enough";
  }
  if (!kLimits || GetParam() == 1) {
    int refused = 1;
    while (!solves("MIVO_TEST_REFUSE=" + std::to_string(refused))) refused += 1 + refused / 4;
    EXPECT_GT(refused, 100) << "what a solve allocates is counted";
  }
}

#ifdef MIVO_MPIEXEC
INSTANTIATE_TEST_SUITE_P(OnRanks, DriverWithLittleMemory, ::testing::Values(1, 2));
#else
INSTANTIATE_TEST_SUITE_P(OnRanks, DriverWithLittleMemory, ::testing::Values(1));
#endif

}  // namespace
}  // namespace driver_test
