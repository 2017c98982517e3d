// SPDX-License-Identifier: Apache-2.0
/// Runs of mivo-solve with sound input: exit status, report and files.

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <sstream>
#include <tuple>

#include "driver_process.hpp"
#include "examples/mivo-solve/schema.hpp"
#include "tests/support/devices.hpp"

namespace driver_test {
namespace {

using ::testing::DoubleNear;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::Pointwise;

/// Files of a system with the solution "x" (parts of complex numbers one by one), each as in
/// kMatrix, kRhs and (1, 2) where it is not given, and a note of the report.
using SoundFileTest = CasesOfTable;

// A = [4 -1; -1 3], x = (1, 2), b = (2, 5).
const std::string kMatrix =
    "%%MatrixMarket matrix coordinate real general\n2 2 4\n1 1 4\n1 2 -1\n2 1 -1\n2 2 3\n";
const std::string kRhs = "%%MatrixMarket matrix array real general\n2 1\n2\n5\n";

TEST_P(SoundFileTest, GivesTheSolution) {
  const json& sound = GetParam().data;
  const Folder folder;
  json configuration = fileConfiguration();
  configuration["solver"]["solver_type"] = "SolverFLGMRES_R";
  folder.write("A.mtx", sound.value("A.mtx", kMatrix));
  folder.write("b.mtx", sound.value("b.mtx", kRhs));
  for (const auto& device : mivo::test::testDevices()) {
    const json report =
        folder.report(configuration, {"--solution", "x.mtx", "--device", device.getString()});
    ASSERT_EQ(report["status"], 0) << report;
    EXPECT_THAT(report["notes"].dump(), HasSubstr(sound.value("says", "")));
    EXPECT_THAT(readVector(folder.read("x.mtx")),
                Pointwise(DoubleNear(1e-7), sound.value("x", std::vector<double>{1, 2})));
  }
}

MIVO_CASES_OF_TABLE(SoundFileTest, "sound_files.json");

/// A solver with parameters on a grid of N points a side, and the status in which it ends.
using SoundRunTest = CasesOfTable;

TEST_P(SoundRunTest, EndsInItsStatusWithAnHonestReport) {
  const json& run = GetParam().data;
  const json configuration =
      poissonConfiguration(run["solver"], run.value("params", json::object()), run.value("N", 12));
  const Folder folder;
  json host;
  for (const auto& device : mivo::test::testDevices()) {
    const Outcome outcome = folder.solve(configuration, {"--json", "--device", device.getString()});
    EXPECT_EQ(outcome.status, run["status"]) << outcome.out << outcome.err;
    const json report = reportOf(outcome);
    EXPECT_EQ(report["device"], device.getString());
    EXPECT_EQ(report["status"], run["status"]);
    EXPECT_EQ(report["converged"], outcome.status == 0);
    if (report["norm_r"].is_number()) {
      const double bound =
          2 * report["rtol"].get<double>() *
          std::max(report["norm_b"].get<double>(), report["norm_r0"].get<double>());
      EXPECT_EQ(report["norm_r"].get<double>() <= bound, outcome.status == 0);
    }
    host = host.is_null() ? report : host;
    if (outcome.status == 0) {
      EXPECT_EQ(report["iterations"], host["iterations"]);
    }
  }
}

MIVO_CASES_OF_TABLE(SoundRunTest, "sound_runs.json");

json preconditioned(const std::string& name, const json& params = json::object()) {
  return {{"preconditioner", {{"preconditioner_type", name}, {name + "_params", params}}}};
}

/// A folder with A.mtx, b.mtx and the solution of that system in x.mtx, which is filename_x.
class Solve : public ::testing::Test {
 protected:
  void SetUp() override {
    folder.write("A.mtx", kMatrix);
    folder.write("b.mtx", kRhs);
    folder.write("x.mtx", "%%MatrixMarket matrix array real general\n2 1\n1\n2\n");
    withStart["testcase"]["MatrixMarket_params"]["filename_x"] = "x.mtx";
  }
  /// A run in a shell, so that streams and environment can be what they may be.
  Outcome runInShell(const std::string& before, const std::string& after) const {
    return folder.execute({"/bin/sh", "-c", before + " '" MIVO_SOLVE_PROGRAM "' c.json " + after},
                          60);
  }
  const Folder folder;
  const json fromFiles = fileConfiguration();
  json withStart = fromFiles;
};

/// Parameters for a run of a name: an empty list of preconditioners would precondition nothing.
json parametersOf(const std::string& preconditioner) {
  if (preconditioner == "PrecondAMG") return multigridParams();
  if (preconditioner != "PrecondList") return json::object();
  return {
      {{"preconditioner_type", "PrecondJacobi"}},
      {{"preconditioner_type", "PrecondSSOR"}, {"PrecondSSOR_params", {{"initial_zero", false}}}}};
}

// Methods for general matrices converge with all of them; the others do with those that are
// symmetric, and end in an honest status with the rest.
TEST_F(Solve, EverySolverTakesEveryPreconditioner) {
  const json family = mivo_solve::schemaDocument()["definitions"]["preconditioner"]["properties"];
  const std::map<std::string, bool> solvers = {{"SolverBiCGSTAB", true}, {"SolverFLGMRES_R", true},
                                               {"SolverPCG", false},     {"SolverMINRES", false},
                                               {"SolverSYMMLQ", false},  {"SolverAdamW", false},
                                               {"SolverGaussElim", true}};
  for (const auto& [solver, general] : solvers) {
    for (const std::string name : family["preconditioner_type"]["enum"]) {
      for (const auto& device : mivo::test::testDevices()) {
        json params = preconditioned(name, parametersOf(name));
        params["max_its"] = 200;
        const json report =
            folder.report(poissonConfiguration(solver, params), {"--device", device.getString()});
        EXPECT_TRUE(report["status"] == 0 || (report["status"] == 2 && !general)) << report;
        EXPECT_THAT(report["operators"].get<std::string>(), HasSubstr(name));
      }
    }
  }
}

TEST_F(Solve, PrintsStatisticsTreeTableAndResiduals) {
  const json configuration = poissonConfiguration("SolverPCG", preconditioned("PrecondJacobi"));
  const Outcome outcome = folder.solve(configuration);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  for (const char* text :
       {"rows       cols       nnzs", "        144        144        544", "ParSolverT SolverPCG\n",
        "  preconditioner ParPreconditionerT PrecondJacobi\n",
        "Begin solving equation: size 144 solver PCG device cpu:0", "|r|/|r0|",
        "Finish solving using PCG", "set-up time", "solve time", "iterations",
        "|r|/|b| by the solver", "|b - A x|/|b| recomputed", "converged"}) {
    EXPECT_THAT(outcome.out, HasSubstr(text));
  }
  EXPECT_THAT(folder.solve(configuration, {"--quiet"}).out, Not(HasSubstr("Begin solving")));
}

TEST_F(Solve, JsonIsOneLineEvenUnderVerbose) {
  const Outcome outcome =
      folder.solve(poissonConfiguration("SolverPCG", {{"verbose", 2}, {"verb", 1}}), {"--json"});
  EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 1);
  const json report = reportOf(outcome);
  EXPECT_EQ(report["matrix"]["rows"], 144);
  EXPECT_EQ(report["solver"], "SolverPCG");
  EXPECT_GT(report["iterations"], 0);
  EXPECT_NEAR(report["relres_true"].get<double>(), report["relres_reported"].get<double>(), 1e-9);
  EXPECT_THAT(outcome.err, HasSubstr("Begin solving"));
  EXPECT_EQ(folder.solve(poissonConfiguration(), {"--json"}).err, "") << "nobody asks for a table";
}

/// The rows of a history.
std::vector<std::array<double, 4>> readHistory(const std::string& text) {
  std::istringstream history(text);
  std::string line;
  std::getline(history, line);
  EXPECT_EQ(line, "iteration,residual,relative_to_start,relative_to_b");
  std::vector<std::array<double, 4>> rows;
  for (std::array<double, 4> row; std::getline(history, line); rows.push_back(row)) {
    std::sscanf(line.c_str(), "%lf,%lf,%lf,%lf", &row[0], &row[1], &row[2], &row[3]);
  }
  return rows;
}

TEST_F(Solve, HistoryHoldsEachIteration) {
  const json report = folder.report(poissonConfiguration(), {"--history", "h.csv"});
  const auto rows = readHistory(folder.read("h.csv"));
  ASSERT_EQ(rows.size(), report["iterations"].get<std::size_t>() + 1);
  for (std::size_t k = 0; k < rows.size(); ++k) EXPECT_EQ(rows[k][0], k);
}

TEST_F(Solve, HistoryOfASolverThatLogsNothingHoldsStartAndEnd) {
  folder.write("x.mtx", "%%MatrixMarket matrix array real general\n2 1\n3\n-3\n");
  withStart["solver"] = {{"solver_type", "SolverJacobi"}};
  const json report = folder.report(withStart, {"--history", "h.csv", "--start", "testcase"});
  EXPECT_EQ(report["status"], 0);
  EXPECT_THAT(report["notes"].dump(), HasSubstr("SolverJacobi logs no iterations"));
  const double r0 = report["norm_r0"], b = report["norm_b"], r = report["norm_r"];
  EXPECT_THAT(readHistory(folder.read("h.csv")),
              ElementsAre(ElementsAre(0, r0, 1, r0 / b),
                          ElementsAre(report["iterations"].get<double>(), r, r / r0, r / b)));
}

TEST_F(Solve, ZeroRightHandSideIsAnsweredWithoutASolver) {
  folder.write("b.mtx", "%%MatrixMarket matrix array real general\n2 1\n0\n-0.0\n");
  const json report = folder.report(fromFiles, {"--solution", "x.mtx", "--history", "h.csv"});
  EXPECT_EQ(report["status"], 0);
  EXPECT_EQ(readVector(folder.read("x.mtx")), (std::vector<double>{0, 0}));
  EXPECT_THAT(folder.read("h.csv"), HasSubstr("relative_to_b\n0,0.0"));
  EXPECT_THAT(report["notes"].dump(), HasSubstr("b is zero"));
}

TEST_F(Solve, MissingRightHandSideMakesTheSolutionAllOnes) {
  const Outcome outcome = folder.solve(
      fromFiles, {"--set", "testcase.MatrixMarket_params.filename_b=", "--solution", "x.mtx"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("note: no filename_b"));
  EXPECT_THAT(readVector(folder.read("x.mtx")), Pointwise(DoubleNear(1e-7), {1.0, 1.0}));
}

TEST_F(Solve, UnsolvableSystemsEndInStatusTwo) {
  // An empty row, a singular matrix, an indefinite one on which the method breaks down, and values
  // near the limits.
  for (const char* entries : {"2 2 1\n1 1 4\n", "2 2 4\n1 1 1\n1 2 1\n2 1 1\n2 2 1\n",
                              "2 2 2\n1 2 1\n2 1 -1\n", "2 2 2\n1 1 1e308\n2 2 1e308\n"}) {
    folder.write("A.mtx", std::string("%%MatrixMarket matrix coordinate real general\n") + entries);
    for (const char* solver :
         {"SolverPCG", "SolverMINRES", "SolverSYMMLQ", "SolverJacobi", "SolverSOR"}) {
      const json report =
          folder.report(fromFiles, {"--set", std::string("solver.solver_type=") + solver});
      if (report["status"] == 0) {
        EXPECT_LE(report["norm_r"], report["bound"]) << entries << solver;
        EXPECT_THAT(entries, HasSubstr("1e308")) << solver;
      } else {
        EXPECT_EQ(report["status"], 2) << entries << solver;
      }
    }
  }
}

TEST_F(Solve, StartVectorOfTheTestcase) {
  const json fromZero = folder.report(withStart);
  EXPECT_EQ(fromZero["norm_r0"], fromZero["norm_b"]);
  const json fromFile = folder.report(withStart, {"--start", "testcase"});
  EXPECT_EQ(fromFile["norm_r0"], 0.0);
  EXPECT_EQ(fromFile["iterations"], 0);
  EXPECT_EQ(fromFile["status"], 0);
}

TEST_F(Solve, ExactStartsOfLanczosMethods) {
  // The standard form of MINRES divides 0 by 0.
  for (const auto& [solver, algo, status] :
       {std::tuple("SolverMINRES", "standard", 2), std::tuple("SolverMINRES", "qlp", 0),
        std::tuple("SolverSYMMLQ", "", 0)}) {
    withStart["solver"] = {{"solver_type", solver}};
    if (*algo != 0) withStart["solver"]["SolverMINRES_params"] = {{"algo", algo}};
    const json report = folder.report(withStart, {"--start", "testcase"});
    EXPECT_EQ(report["status"], status) << solver << ' ' << algo;
    EXPECT_TRUE(report["relres_reported"].is_null()) << "0 / 0";
  }
}

TEST_F(Solve, FileNamesAreTriedBesideTheConfiguration) {
  const Folder other;
  folder.write("c.json", fromFiles.dump());
  EXPECT_EQ(other.run({"../" + folder.path().filename().string() + "/c.json"}).status, 0);
}

TEST_F(Solve, CheckStopsBeforeSolving) {
  const Outcome outcome = folder.solve(poissonConfiguration("SolverPreOnly"),
                                       {"--check", "--set", "solver.SolverPCG_params.rtol=0.1"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("c.json: configuration and files can be used"));
  EXPECT_THAT(outcome.out, HasSubstr("note: /solver/SolverPCG_params is not used"));
}

TEST_F(Solve, OutputThatIsLostIsAFailure) {
  folder.write("c.json", poissonConfiguration().dump());
  for (const std::string options : {"", "--json", "--check", "--help", "--list"}) {
    const Outcome full = runInShell("", options + " >/dev/full");
    EXPECT_EQ(full.status, 1) << options;
    EXPECT_THAT(full.err, HasSubstr("standard output: not everything could be written")) << options;
    const Outcome closed = runInShell("", options + " --history h.csv >&-");
    EXPECT_EQ(closed.status, 1) << options;
    EXPECT_THAT(closed.err, HasSubstr("standard output is closed")) << options;
  }
  EXPECT_EQ(folder.read("h.csv"), "") << "what was meant for standard output";
  EXPECT_EQ(reportOf(runInShell("", "--json 2>/dev/full"))["status"], 0);
}

TEST_F(Solve, EveryEndPrintsAJsonLineOnRequest) {
  const json large = poissonConfiguration("SolverGaussElim", json::object(), 300);
  EXPECT_EQ(folder.report(large, {"--check"})["status"], 0);
  EXPECT_EQ(folder.report(large, {"--jsn"})["status"], 1);
  EXPECT_EQ(reportOf(folder.run({"c.json", "--json=1"}))["status"], 1);
  // 8.1e9 elements on a rank: the library ends the process.
  const Outcome ended = folder.run({"c.json", "--json"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(reportOf(ended).value("error", ""), HasSubstr("elements"));
}

TEST_F(Solve, AProcessOfSeveralThatIsAloneEndsInStatusOne) {
  folder.write("c.json", poissonConfiguration().dump());
  for (const char* rank : {"0", "1"}) {
    const Outcome outcome =
        runInShell(std::string("OMPI_COMM_WORLD_SIZE=2 OMPI_COMM_WORLD_RANK=") + rank, "");
    EXPECT_EQ(outcome.status, 1) << outcome.out;
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("env -u"));
  }
}

TEST_F(Solve, HelpVersionSchemaAndListNeedNoConfiguration) {
  EXPECT_THAT(folder.run({"--help"}).out, HasSubstr("Exit status:"));
  EXPECT_THAT(folder.run({"--version"}).out, MatchesRegex("mivo-solve [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  const std::string list = folder.run({"--list"}).out;
  EXPECT_THAT(list, HasSubstr("SolverPCG"));
  EXPECT_THAT(list, HasSubstr("  SolverList\n    an array of objects with solver_type\n"));
  EXPECT_EQ(folder.run({"--schema"}).out,
            readAll(std::string(MIVO_PROJECT_FOLDER) + "/examples/mivo-solve/mivo.schema.json"));
}

TEST_F(Solve, ReadyConfigurationsConverge) {
  for (const char* name :
       {"poisson2d-jacobi", "poisson3d-ssor", "poisson3d-amg", "matrix-market", "anisotropy-amg",
        "jumps-amg", "convection-amg", "helmholtz-minres", "magnetic-pcg"}) {
    const std::string file =
        std::string(MIVO_PROJECT_FOLDER) + "/examples/configs/" + name + ".json";
    const json report = reportOf(folder.run({file, "--json"}));
    EXPECT_EQ(report["status"], 0) << name << report;
    EXPECT_EQ(report["rtol"], 1e-8);
  }
}

// The table tells what the hierarchy is: the product of a level's share in all is 1, rows shrink,
// and what is printed agrees with the report for machines.
TEST_F(Solve, HierarchiesAreShownAndMeasuredOnRequest) {
  const json configured =
      poissonConfiguration("SolverPCG", preconditioned("PrecondAMG", multigridParams()), 40);
  EXPECT_FALSE(folder.report(configured)["hierarchies"][0].contains("setup"));
  const json one = folder.report(configured, {"--profile"})["hierarchies"][0];
  const json& levels = one["levels"];
  ASSERT_GE(levels.size(), 3u);
  double entries = 0, rows = 0, bytes = 0, seconds = 0;
  for (std::size_t l = 0; l < levels.size(); ++l) {
    const double here = levels[l]["nnzs"], r = levels[l]["rows"],
                 p = levels[l]["prolongation_nnzs"];
    entries += here;
    rows += r;
    bytes += 12 * ((l > 0 ? here : 0) + 2 * p);
    bytes +=
        4 * ((l > 0 ? r + 1 : 0) + (p > 0 ? r + 1 + levels[l + 1]["rows"].get<double>() + 1 : 0));
    seconds += levels[l]["cycle_time"].get<double>();
    EXPECT_LT(r, l > 0 ? levels[l - 1]["rows"].get<double>() : 1e9);
    EXPECT_EQ(levels[l]["smoother"], "SmootherJacobi");
    EXPECT_EQ(levels[l]["rows_per_rank"]["max"], levels[l]["rows"]);
  }
  EXPECT_EQ(levels[0]["rows"], 1600);
  EXPECT_DOUBLE_EQ(one["operator_complexity"], entries / levels[0]["nnzs"].get<double>());
  EXPECT_DOUBLE_EQ(one["grid_complexity"], rows / 1600);
  EXPECT_EQ(one["bytes"], bytes);
  EXPECT_GT(one["cycles"], 3);
  EXPECT_GT(seconds, 0);
  double phases = 0;
  for (const auto& phase : one["setup"].items()) phases += phase.value().get<double>();
  const double total = one["setup"]["total"];
  EXPECT_GT(phases, total);
  EXPECT_LE(phases, 2 * total * 1.001);

  const std::string out = folder.run({"c.json", "--profile"}).out;
  EXPECT_THAT(out, testing::ContainsRegex(
                       "\n +0 +1600 +7376 +4[.]6 +[0-9]+ +1600 +1600  SmootherJacobi\n"));
  EXPECT_THAT(out, HasSubstr("\nset-up of the hierarchy\n"));
  EXPECT_THAT(out, HasSubstr(" cycles\n  level 0 "));
}

TEST_F(Solve, CommittedDataIsWhatTheGeneratorWrites) {
  for (const std::string kind :
       {"diffusion", "anisotropy", "convection", "helmholtz", "magnetic"}) {
    const std::string command = std::string("\"") + MIVO_GENERATE_PROGRAM + "\" \"" +
                                folder.path().string() + "\" 40 " + kind;
    ASSERT_EQ(std::system(command.c_str()), 0);
    EXPECT_TRUE(folder.read(kind + ".mtx") ==
                readAll(std::string(MIVO_PROJECT_FOLDER) + "/examples/data/" + kind + ".mtx"))
        << kind;
  }
  EXPECT_EQ(folder.read("diffusion-b.mtx"),
            readAll(std::string(MIVO_PROJECT_FOLDER) + "/examples/data/diffusion-b.mtx"));
}

}  // namespace
}  // namespace driver_test
