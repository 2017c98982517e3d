// SPDX-License-Identifier: Apache-2.0
/// Runs of mivo-solve under mpiexec: one report, the same answer as on one rank, and no rank left
/// waiting when another cannot go on.

#include <gmock/gmock.h>

#include <cstdlib>

#include "driver_process.hpp"

namespace driver_test {
namespace {

int count(const std::string& text, const std::string& part) {
  int found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++found;
  }
  return found;
}

class DriverOnRanks : public ::testing::Test {
 protected:
  /// MPICH's memory hooks and sanitizers do not go together, and MPICH itself leaks.
  static void SetUpTestSuite() {
    setenv("UCX_MEM_EVENTS", "n", 1);
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
  }
  Outcome run(int ranks, const json& configuration,
              const std::vector<std::string>& arguments = {"--json"}) const {
    folder_.write("c.json", configuration.dump());
    std::vector<std::string> words = {MIVO_MPIEXEC, "-n", std::to_string(ranks),
                                      MIVO_SOLVE_MPI_PROGRAM, "c.json"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return folder_.execute(words, 60);
  }
  const Folder folder_;
  const json small_ = poissonConfiguration("SolverPCG", json::object(), 9);
};

// 5-point matrix on a square of 9 x 9 points with the boundary eliminated or not: 81 rows, of which
// 3 ranks have 27 each and 4 have 20 or 21.
TEST_F(DriverOnRanks, ReportOnceWhatOneRankFinds) {
  const json one = folder_.report(small_, {"--history", "h1.csv"});
  const long rows = one["matrix"]["rows"];
  EXPECT_EQ(one["rows_per_rank"], (json{{"min", rows}, {"max", rows}}));
  for (int ranks = 1; ranks <= 4; ++ranks) {
    const json many = reportOf(run(ranks, small_, {"--json", "--history", "h.csv"}));
    EXPECT_EQ(many["status"], 0);
    EXPECT_EQ(many["ranks"], ranks);
    EXPECT_EQ(many["iterations"], one["iterations"]);
    EXPECT_EQ(many["matrix"]["nnzs"], one["matrix"]["nnzs"]);
    EXPECT_EQ(many["rows_per_rank"],
              (json{{"min", rows / ranks}, {"max", (rows + ranks - 1) / ranks}}));
    EXPECT_LE(many["entries_per_rank"]["min"].get<long>() * ranks, one["matrix"]["nnzs"]);
    EXPECT_GE(many["entries_per_rank"]["max"].get<long>() * ranks, one["matrix"]["nnzs"]);
    EXPECT_EQ(count(folder_.read("h.csv"), "\n"), count(folder_.read("h1.csv"), "\n"));
  }
}

json multigrid(int n, const json& params) {
  return poissonConfiguration(
      "SolverPCG",
      {{"preconditioner", {{"preconditioner_type", "PrecondAMG"}, {"PrecondAMG_params", params}}}},
      n);
}

TEST_F(DriverOnRanks, ShowHierarchiesOfAllRanks) {
  const Outcome outcome = run(2, multigrid(21, multigridParams()), {"--json", "--profile"});
  const json levels = reportOf(outcome)["hierarchies"][0]["levels"];
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(levels[0]["rows_per_rank"], (json{{"min", 220}, {"max", 221}}));
  const long coarse = levels[1]["rows"];
  EXPECT_EQ(levels[1]["rows_per_rank"], (json{{"min", coarse / 2}, {"max", (coarse + 1) / 2}}));
}

TEST_F(DriverOnRanks, PrintEachLineOnce) {
  const Outcome outcome = run(3, poissonConfiguration("SolverPCG", {{"verbose", 2}}, 9), {});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  for (const char* text : {"rows       cols       nnzs", "3 ranks of 27 rows and ", "\noperators\n",
                           "Begin solving equation", "set-up time", "\nconverged"}) {
    EXPECT_EQ(count(outcome.out, text), 1) << text << outcome.out;
  }
  EXPECT_EQ(count(outcome.out, "s on the slowest rank"), 2) << outcome.out;
}

TEST_F(DriverOnRanks, LoadAndSaveFilesAlike) {
  folder_.write("A.mtx",
                "%%MatrixMarket matrix coordinate real symmetric\n3 3 5\n1 1 4\n2 2 4\n3 3 4\n"
                "2 1 -1\n3 2 -1\n");
  folder_.write("b.mtx", "%%MatrixMarket matrix array real general\n3 1\n2\n4\n10\n");
  // More ranks than rows, too.
  for (const int ranks : {2, 4}) {
    const Outcome outcome = run(ranks, fileConfiguration(), {"--solution", "x.mtx"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_THAT(readVector(folder_.read("x.mtx")),
                ::testing::Pointwise(::testing::DoubleNear(1e-7), {1.0, 2.0, 3.0}));
  }
}

TEST_F(DriverOnRanks, WriteTheEndsOfAHistoryThatTheSolverDoesNotLog) {
  const Outcome outcome = run(2, poissonConfiguration("SolverPreOnly", json::object(), 9),
                              {"--json", "--history", "h.csv"});
  EXPECT_EQ(outcome.status, 2) << outcome.err;
  EXPECT_EQ(count(folder_.read("h.csv"), "\n"), 3);
}

TEST_F(DriverOnRanks, EndTogetherWhenRankZeroCannotGoOn) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--set", "solver.solver_type=PCG"},
                                             {"--history", "missing/h.csv"},
                                             {"--solution", "missing/x.mtx"}}) {
    const Outcome outcome = run(2, small_, arguments);
    EXPECT_EQ(outcome.status, 1) << outcome.out << outcome.err;
    EXPECT_EQ(count(outcome.err, "mivo-solve: "), 1) << outcome.err;
  }
}

// What one rank has not in common with the others would leave them waiting.
TEST_F(DriverOnRanks, EndTogetherWhenCommandLinesDiffer) {
  for (const char* other : {"--jason", "--help", "--check", "--solution=x.mtx"}) {
    const Outcome outcome =
        run(1, small_, {":", "-n", "1", MIVO_SOLVE_MPI_PROGRAM, "c.json", other});
    EXPECT_EQ(outcome.status, 1) << outcome.out << outcome.err;
    EXPECT_EQ(count(outcome.err, "mivo-solve: the ranks have different command lines"), 1);
  }
}

TEST_F(DriverOnRanks, PrintOneJsonLineWhenTheLibraryEndsTheJob) {
  const Outcome outcome = run(2, poissonConfiguration("SolverGaussElim", json::object(), 300));
  EXPECT_GT(outcome.status, 0) << outcome.err;
  EXPECT_EQ(count(outcome.out, "\"status\":1"), 1) << outcome.out;
}

TEST_F(DriverOnRanks, ConvertFilesAlike) {
  folder_.write("A.mtx",
                "%%MatrixMarket matrix coordinate pattern symmetric\n3 3 4\n1 1\n2 1\n3 2\n3 3\n");
  folder_.write("b.mtx", "%%MatrixMarket matrix array real general\n3 1\n2\n2\n2\n");
  json configuration = fileConfiguration();
  configuration["solver"] = {{"solver_type", "SolverGaussElim"}};
  for (int ranks = 1; ranks <= 2; ++ranks) {
    const Outcome outcome = run(ranks, configuration);
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_EQ(reportOf(outcome)["matrix"]["nnzs"], 6);
    EXPECT_EQ(count(outcome.out, "pattern: each entry counts as 1; symmetric"), 1) << outcome.out;
  }
}

TEST_F(DriverOnRanks, RefuseWhatWorksOnOneRankOnly) {
  const json configuration =
      multigrid(9, multigridParams({{"level_transfer_type", "LevelTransferSmoothAggregationSeq"}}));
  EXPECT_EQ(run(1, configuration).status, 0);
  const Outcome outcome = run(2, configuration);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(count(outcome.err, "works on one rank, and there are 2"), 1) << outcome.err;
}

}  // namespace
}  // namespace driver_test
