// SPDX-License-Identifier: Apache-2.0
/// Runs of mivo-solve with sound input: exit status, report and files.

#include <gmock/gmock.h>

#include <cmath>
#include <map>
#include <sstream>
#include <tuple>

#include "driver_process.hpp"
#include "examples/mivo-solve/schema.hpp"
#include "tests/support/devices.hpp"

namespace driver_test {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

/// Values of an array file with one column.
std::vector<double> readVector(const std::string& text) {
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line) && line[0] == '%') {
  }
  std::vector<double> values;
  for (double value; in >> value;) {
    values.push_back(value);
  }
  return values;
}

/// The system of `text` and b has the solution 1, 2 (and its conjugates): b is made to fit.
struct SoundFile {
  const char* name;
  std::string matrix;
  std::string rhs;
  std::vector<double> solution;
  const char* note = "";
};

std::ostream& operator<<(std::ostream& out, const SoundFile& sound) { return out << sound.name; }

class SoundFileTest : public ::testing::TestWithParam<SoundFile> {};

TEST_P(SoundFileTest, GivesTheSolution) {
  const SoundFile& sound = GetParam();
  const Folder folder;
  json configuration = fileConfiguration();
  configuration["solver"]["solver_type"] = "SolverFLGMRES_R";
  folder.write("c.json", configuration.dump());
  folder.write("A.mtx", sound.matrix);
  folder.write("b.mtx", sound.rhs);
  for (const auto& device : mivo::test::testDevices()) {
    const Outcome outcome =
        folder.run({"c.json", "--json", "--solution", "x.mtx", "--device", device.getString()});
    ASSERT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_THAT(reportOf(outcome)["notes"].dump(), HasSubstr(sound.note));
    const std::vector<double> x = readVector(folder.read("x.mtx"));
    ASSERT_EQ(x.size(), sound.solution.size()) << folder.read("x.mtx");
    for (std::size_t i = 0; i < x.size(); ++i) {
      EXPECT_NEAR(x[i], sound.solution[i], 1e-7);
    }
  }
}

// A = [4 -1; -1 3], x = (1, 2), b = (2, 5).
const std::string kGeneral =
    "%%MatrixMarket matrix coordinate real general\n2 2 4\n1 1 4\n1 2 -1\n2 1 -1\n2 2 3\n";
const std::string kRhs = "%%MatrixMarket matrix array real general\n2 1\n2\n5\n";
const std::vector<double> kSolution = {1, 2};

INSTANTIATE_TEST_SUITE_P(
    All, SoundFileTest,
    ::testing::Values(
        SoundFile{"General", kGeneral, kRhs, kSolution},
        SoundFile{"Symmetric",
                  "%%MatrixMarket matrix coordinate real symmetric\n2 2 3\n1 1 4\n2 1 -1\n2 2 3\n",
                  kRhs, kSolution,
                  "A.mtx: symmetric: the other half is filled in with equal values"},
        SoundFile{"Integer",
                  "%%MatrixMarket matrix coordinate integer general\n2 2 4\n1 1 4\n1 2 -1\n2 1 "
                  "-1\n2 2 3\n",
                  "%%MatrixMarket matrix array integer general\n2 1\n2\n5\n", kSolution},
        SoundFile{"HeaderWithoutSymmetry",
                  "%%MatrixMarket matrix coordinate real\n2 2 4\n1 1 4\n1 2 -1\n2 1 -1\n2 2 3\n",
                  kRhs, kSolution},
        SoundFile{"CommentsAndEmptyLines",
                  "%%MatrixMarket matrix coordinate real general\n% one\n\n%\n2 2 4\n\n1 1 4\n1 2 "
                  "-1\n2 1 -1\n\n2 2 3\n\n",
                  kRhs, kSolution},
        SoundFile{"TabsSignsExponents",
                  "%%MatrixMarket matrix coordinate real general\n 2\t2  4\n1\t1\t+4.0E+00\n 1 2 "
                  "-10e-1 \n2 1 -.1e1\n2 2 3.",
                  kRhs, kSolution},
        SoundFile{
            "AnyOrder",
            "%%MatrixMarket matrix coordinate real general\n2 2 4\n2 2 3\n2 1 -1\n1 2 -1\n1 1 4\n",
            kRhs, kSolution},
        SoundFile{"OneWordSizeLine", kGeneral, "%%MatrixMarket matrix array real general\n2\n2 5\n",
                  kSolution},
        // A = [4 i; -i 3], x = (1, 1 - i), b = (5 + i, 3 - 4 i).
        SoundFile{"Complex",
                  "%%MatrixMarket matrix coordinate complex general\n2 2 4\n1 1 4 0\n1 2 0 1\n2 1 "
                  "0 -1\n2 2 3 0\n",
                  "%%MatrixMarket matrix array complex general\n2 1\n5 1\n3 -4\n",
                  {1, 0, 1, -1}},
        SoundFile{"Hermitian",
                  "%%MatrixMarket matrix coordinate complex hermitian\n2 2 3\n1 1 4 0\n2 1 0 -1\n"
                  "2 2 3 0\n",
                  "%%MatrixMarket matrix array complex general\n2 1\n5 1\n3 -4\n",
                  {1, 0, 1, -1},
                  "A.mtx: hermitian: the other half is filled in with conjugate values"},
        // A = [0 1.5; -1.5 0], [1 1; 0 1] and [0 1; 1 1].
        SoundFile{"SkewSymmetric",
                  "%%MatrixMarket matrix coordinate real skew-symmetric\n2 2 1\n2 1 -1.5\n",
                  "%%MatrixMarket matrix array real general\n2 1\n3\n-1.5\n", kSolution,
                  "A.mtx: skew-symmetric: the other half is filled in with values of the other"},
        SoundFile{"Pattern",
                  "%%MatrixMarket matrix coordinate Pattern general\n% a\n2 2 3\n1 1\n1 2\n2 2\n",
                  "%%MatrixMarket matrix array real general\n2 1\n3\n2\n", kSolution,
                  "A.mtx: pattern: each entry counts as 1"},
        SoundFile{"PatternSymmetric",
                  "%%MatrixMarket matrix coordinate pattern Symmetric\n2 2 2\n2 1\n2 2\n",
                  "%%MatrixMarket matrix array real general\n2 1\n2\n3\n", kSolution,
                  "A.mtx: pattern: each entry counts as 1; symmetric: the other half is filled"}),
    [](const auto& sound) { return std::string(sound.param.name); });

/// A configuration, the status in which it ends, and a text of the report.
struct SoundRun {
  const char* name;
  json configuration;
  int status;
};

std::ostream& operator<<(std::ostream& out, const SoundRun& run) { return out << run.name; }

class SoundRunTest : public ::testing::TestWithParam<SoundRun> {};

TEST_P(SoundRunTest, EndsInItsStatusWithAnHonestReport) {
  const SoundRun& run = GetParam();
  const Folder folder;
  folder.write("c.json", run.configuration.dump());
  json host;
  for (const auto& device : mivo::test::testDevices()) {
    const Outcome outcome = folder.run({"c.json", "--json", "--device", device.getString()});
    EXPECT_EQ(outcome.status, run.status) << outcome.out << outcome.err;
    const json report = reportOf(outcome);
    EXPECT_EQ(report["device"], device.getString());
    EXPECT_EQ(report.value("status", -1), run.status);
    EXPECT_EQ(report.value("converged", run.status != 0), run.status == 0);
    if (report["norm_r"].is_number()) {
      const double bound =
          2 * report["rtol"].get<double>() *
          std::max(report["norm_b"].get<double>(), report["norm_r0"].get<double>());
      EXPECT_EQ(report["norm_r"].get<double>() <= bound, run.status == 0);
    }
    host = host.is_null() ? report : host;
    if (run.status == 0) {
      EXPECT_EQ(report["iterations"], host["iterations"]) << device.getString();
    }
  }
}

json preconditioned(const std::string& name, const json& params = json::object()) {
  return {{"preconditioner", {{"preconditioner_type", name}, {name + "_params", params}}}};
}

INSTANTIATE_TEST_SUITE_P(
    All, SoundRunTest,
    ::testing::Values(
        SoundRun{"PcgAlone", poissonConfiguration(), 0},
        SoundRun{"PcgSsor", poissonConfiguration("SolverPCG", preconditioned("PrecondSSOR")), 0},
        SoundRun{"Jacobi", poissonConfiguration("SolverJacobi"), 0},
        SoundRun{"JacobiLp", poissonConfiguration("SolverJacobiLp"), 0},
        SoundRun{"Sor", poissonConfiguration("SolverSOR", {{"relax", 1.5}}), 0},
        SoundRun{"Ssor", poissonConfiguration("SolverSSOR"), 0},
        SoundRun{"MinresAlone", poissonConfiguration("SolverMINRES"), 0},
        SoundRun{"MinresStandard", poissonConfiguration("SolverMINRES", {{"algo", "standard"}}), 0},
        SoundRun{"MinresSsor", poissonConfiguration("SolverMINRES", preconditioned("PrecondSSOR")),
                 0},
        SoundRun{"Symmlq", poissonConfiguration("SolverSYMMLQ"), 0},
        SoundRun{"MinresSorIsNotSymmetric",
                 poissonConfiguration("SolverMINRES", preconditioned("PrecondSOR")), 2},
        SoundRun{"SymmlqSorIsNotSymmetric",
                 poissonConfiguration("SolverSYMMLQ", preconditioned("PrecondSOR")), 2},
        SoundRun{"SymmlqStopsEarlyUnderAScale",
                 poissonConfiguration("SolverSYMMLQ", preconditioned("PrecondJacobi")), 2},
        SoundRun{"MinresWithinARadius", poissonConfiguration("SolverMINRES", {{"radius", 1e-3}}),
                 2},
        SoundRun{"OnlyBoundaryPoints", poissonConfiguration("SolverPCG", json::object(), 2), 0},
        SoundRun{"ListThatSolves",
                 poissonConfiguration("SolverList", {{{"solver_type", "SolverPCG"},
                                                      {"SolverPCG_params", {{"max_its", 2}}}},
                                                     {{"solver_type", "SolverBiCGSTAB"}}}),
                 0},
        SoundRun{"EmptyList", poissonConfiguration("SolverList", json::array()), 2},
        SoundRun{"ShortRestarts",
                 poissonConfiguration("SolverFLGMRES_R", {{"restart", 3}, {"augk", 1}}), 0},
        // Columns take their memory as they come.
        SoundRun{"FlgmresVeryLong",
                 poissonConfiguration("SolverFLGMRES_R", {{"restart", 3}, {"augk", 1000000}}), 0},
        SoundRun{"GmresWithoutIterations",
                 poissonConfiguration("SolverFLGMRES_R", {{"max_its", 0}}), 2},
        SoundRun{"Gauss", poissonConfiguration("SolverGaussElim"), 0},
        SoundRun{"AdamWRoughly",
                 poissonConfiguration("SolverAdamW", {{"learning_rate", 0.01}, {"rtol", 0.05}}), 0},
        SoundRun{"AdamWByItsDefaults", poissonConfiguration("SolverAdamW"), 2},
        SoundRun{"PreOnly", poissonConfiguration("SolverPreOnly"), 2},
        SoundRun{"TooFewIterations", poissonConfiguration("SolverPCG", {{"max_its", 3}}), 2},
        SoundRun{"NoIterations", poissonConfiguration("SolverPCG", {{"max_its", 0}}), 2},
        SoundRun{"UnreachableTolerance",
                 poissonConfiguration("SolverPCG", {{"rtol", 1e-30}, {"max_its", 100}}), 2},
        SoundRun{"StoppedEarlyByBtol", poissonConfiguration("SolverPCG", {{"btol", 0.1}}), 2},
        SoundRun{"DivergingJacobi", poissonConfiguration("SolverJacobi", {{"relax", 9.0}}), 2},
        SoundRun{"DivergingSor", poissonConfiguration("SolverSOR", {{"relax", -9.0}}), 2},
        SoundRun{
            "OverflowingPreconditioner",
            poissonConfiguration("SolverPCG", preconditioned("PrecondJacobi",
                                                             {{"relax", 1e308}, {"nsweeps", 9}})),
            2},
        SoundRun{
            "PreconditionerOfNoSweeps",
            poissonConfiguration("SolverPCG", preconditioned("PrecondJacobi", {{"nsweeps", 0}})),
            2}),
    [](const auto& sound) { return std::string(sound.param.name); });

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
TEST(Solve, EverySolverTakesEveryPreconditioner) {
  const Folder folder;
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
        folder.write("c.json", poissonConfiguration(solver, params).dump());
        const Outcome outcome = folder.run({"c.json", "--json", "--device", device.getString()});
        EXPECT_TRUE(outcome.status == 0 || (outcome.status == 2 && !general))
            << solver << name << outcome.out << outcome.err;
        EXPECT_THAT(reportOf(outcome)["operators"].get<std::string>(), HasSubstr(name));
      }
    }
  }
}

TEST(Solve, PrintsStatisticsTreeTableAndResiduals) {
  const Folder folder;
  folder.write("c.json", poissonConfiguration("SolverPCG", preconditioned("PrecondJacobi")).dump());
  const Outcome outcome = folder.run({"c.json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  for (const char* text :
       {"rows       cols       nnzs", "        144        144        544", "ParSolverT SolverPCG\n",
        "  preconditioner ParPreconditionerT PrecondJacobi\n",
        "Begin solving equation: size 144 solver PCG device cpu:0", "|r|/|r0|",
        "Finish solving using PCG", "set-up time", "solve time", "iterations",
        "|r|/|b| by the solver", "|b - A x|/|b| recomputed", "converged"}) {
    EXPECT_THAT(outcome.out, HasSubstr(text));
  }
  const Outcome quiet = folder.run({"c.json", "--quiet"});
  EXPECT_THAT(quiet.out, Not(HasSubstr("Begin solving")));
}

TEST(Solve, JsonIsOneLineEvenUnderVerbose) {
  const Folder folder;
  folder.write("c.json", poissonConfiguration("SolverPCG", {{"verbose", 2}, {"verb", 1}}).dump());
  const Outcome outcome = folder.run({"c.json", "--json"});
  EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 1);
  const json report = reportOf(outcome);
  EXPECT_EQ(report["matrix"]["rows"], 144);
  EXPECT_EQ(report["solver"], "SolverPCG");
  EXPECT_GT(report["iterations"], 0);
  EXPECT_NEAR(report["relres_true"].get<double>(), report["relres_reported"].get<double>(), 1e-9);
  EXPECT_THAT(outcome.err, HasSubstr("Begin solving"));
}

TEST(Solve, HistoryHoldsEachIteration) {
  const Folder folder;
  folder.write("c.json", poissonConfiguration("SolverPCG").dump());
  const json report = reportOf(folder.run({"c.json", "--json", "--history", "h.csv"}));
  std::istringstream history(folder.read("h.csv"));
  std::string line;
  std::getline(history, line);
  EXPECT_EQ(line, "iteration,residual,relative_to_start,relative_to_b");
  int rows = 0;
  while (std::getline(history, line)) {
    EXPECT_EQ(line.compare(0, line.find(','), std::to_string(rows)), 0) << line;
    ++rows;
  }
  EXPECT_EQ(rows, report["iterations"].get<int>() + 1);
}

TEST(Solve, HistoryOfASolverThatLogsNothingHoldsStartAndEnd) {
  const Folder folder;
  folder.write("c.json", poissonConfiguration("SolverJacobi").dump());
  const Outcome outcome = folder.run({"c.json", "--history", "h.csv"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("note: SolverJacobi logs no iterations"));
  const std::string history = folder.read("h.csv");
  EXPECT_EQ(std::count(history.begin(), history.end(), '\n'), 3);
}

TEST(Solve, ZeroRightHandSideIsAnsweredWithoutASolver) {
  const Folder folder;
  folder.write("c.json", fileConfiguration().dump());
  folder.write("A.mtx", kGeneral);
  folder.write("b.mtx", "%%MatrixMarket matrix array real general\n2 1\n0\n-0.0\n");
  const Outcome outcome =
      folder.run({"c.json", "--json", "--solution", "x.mtx", "--history", "h.csv"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(readVector(folder.read("x.mtx")), (std::vector<double>{0, 0}));
  EXPECT_THAT(folder.read("h.csv"), HasSubstr("relative_to_b\n0,0.0"));
  EXPECT_THAT(reportOf(outcome)["notes"].dump(), HasSubstr("b is zero"));
}

TEST(Solve, MissingRightHandSideMakesTheSolutionAllOnes) {
  const Folder folder;
  folder.write("c.json", fileConfiguration().dump());
  folder.write("A.mtx", kGeneral);
  const Outcome outcome = folder.run(
      {"c.json", "--set", "testcase.MatrixMarket_params.filename_b=", "--solution", "x.mtx"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("note: no filename_b"));
  const std::vector<double> x = readVector(folder.read("x.mtx"));
  ASSERT_EQ(x.size(), 2u);
  EXPECT_NEAR(x[0], 1, 1e-7);
  EXPECT_NEAR(x[1], 1, 1e-7);
}

TEST(Solve, UnsolvableSystemsEndInStatusTwo) {
  const Folder folder;
  folder.write("c.json", fileConfiguration().dump());
  folder.write("b.mtx", kRhs);
  // An empty row, a singular matrix, an indefinite one on which the method breaks down, and values
  // near the limits.
  for (const char* entries : {"2 2 1\n1 1 4\n", "2 2 4\n1 1 1\n1 2 1\n2 1 1\n2 2 1\n",
                              "2 2 2\n1 2 1\n2 1 -1\n", "2 2 2\n1 1 1e308\n2 2 1e308\n"}) {
    folder.write("A.mtx", std::string("%%MatrixMarket matrix coordinate real general\n") + entries);
    for (const char* solver :
         {"SolverPCG", "SolverMINRES", "SolverSYMMLQ", "SolverJacobi", "SolverSOR"}) {
      const Outcome outcome =
          folder.run({"c.json", "--json", "--set", std::string("solver.solver_type=") + solver});
      const json report = reportOf(outcome);
      if (outcome.status == 0) {
        EXPECT_LE(report["norm_r"], report["bound"]) << entries << solver;
        EXPECT_THAT(entries, HasSubstr("1e308")) << solver;
      } else {
        EXPECT_EQ(outcome.status, 2) << entries << solver << outcome.err;
      }
    }
  }
}

TEST(Solve, StartVectorOfTheTestcase) {
  const Folder folder;
  json configuration = fileConfiguration();
  configuration["testcase"]["MatrixMarket_params"]["filename_x"] = "x.mtx";
  folder.write("c.json", configuration.dump());
  folder.write("A.mtx", kGeneral);
  folder.write("b.mtx", kRhs);
  folder.write("x.mtx", "%%MatrixMarket matrix array real general\n2 1\n1\n2\n");
  const json fromZero = reportOf(folder.run({"c.json", "--json"}));
  EXPECT_EQ(fromZero["norm_r0"], fromZero["norm_b"]);
  const json fromFile = reportOf(folder.run({"c.json", "--json", "--start", "testcase"}));
  EXPECT_EQ(fromFile["norm_r0"], 0.0);
  EXPECT_EQ(fromFile["iterations"], 0);
  EXPECT_EQ(fromFile["status"], 0);
}

TEST(Solve, ExactStartsOfLanczosMethods) {
  const Folder folder;
  json configuration = fileConfiguration();
  configuration["testcase"]["MatrixMarket_params"]["filename_x"] = "x.mtx";
  folder.write("A.mtx", kGeneral);
  folder.write("b.mtx", kRhs);
  folder.write("x.mtx", "%%MatrixMarket matrix array real general\n2 1\n1\n2\n");
  // The standard form of MINRES divides 0 by 0.
  for (const auto& [solver, algo, status] :
       {std::tuple("SolverMINRES", "standard", 2), std::tuple("SolverMINRES", "qlp", 0),
        std::tuple("SolverSYMMLQ", "", 0)}) {
    configuration["solver"] = {{"solver_type", solver}};
    if (*algo != 0) configuration["solver"]["SolverMINRES_params"] = {{"algo", algo}};
    folder.write("c.json", configuration.dump());
    const Outcome outcome = folder.run({"c.json", "--json", "--start", "testcase"});
    EXPECT_EQ(outcome.status, status) << solver << ' ' << algo;
    EXPECT_TRUE(reportOf(outcome)["relres_reported"].is_null()) << "0 / 0";
  }
}

TEST(Solve, FileNamesAreTriedBesideTheConfiguration) {
  const Folder folder;
  std::filesystem::create_directory(folder.path() / "sub");
  folder.write("sub/c.json", fileConfiguration().dump());
  folder.write("sub/A.mtx", kGeneral);
  folder.write("sub/b.mtx", kRhs);
  EXPECT_EQ(folder.run({"sub/c.json", "--json"}).status, 0);
}

TEST(Solve, CheckStopsBeforeSolving) {
  const Folder folder;
  folder.write("c.json", poissonConfiguration("SolverPreOnly").dump());
  const Outcome outcome =
      folder.run({"c.json", "--check", "--set", "solver.SolverPCG_params.rtol=0.1"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("c.json: configuration and files can be used"));
  EXPECT_THAT(outcome.out, HasSubstr("note: /solver/SolverPCG_params is not used"));
}

// A run in a shell, so that streams and environment can be what they may be.
Outcome runInShell(const Folder& folder, const std::string& before, const std::string& after) {
  return folder.execute({"/bin/sh", "-c", before + " '" MIVO_SOLVE_PROGRAM "' c.json " + after},
                        60);
}

TEST(Solve, OutputThatIsLostIsAFailure) {
  const Folder folder;
  folder.write("c.json", poissonConfiguration().dump());
  for (const std::string options : {"", "--json", "--check", "--help", "--list"}) {
    const Outcome full = runInShell(folder, "", options + " >/dev/full");
    EXPECT_EQ(full.status, 1) << options;
    EXPECT_THAT(full.err, HasSubstr("standard output: not everything could be written")) << options;
    const Outcome closed = runInShell(folder, "", options + " --history h.csv >&-");
    EXPECT_EQ(closed.status, 1) << options;
    EXPECT_THAT(closed.err, HasSubstr("standard output is closed")) << options;
  }
  EXPECT_EQ(folder.read("h.csv"), "") << "what was meant for standard output";
  EXPECT_EQ(reportOf(runInShell(folder, "", "--json 2>/dev/full"))["status"], 0);
}

TEST(Solve, EveryEndPrintsAJsonLineOnRequest) {
  const Folder folder;
  folder.write("c.json", poissonConfiguration("SolverGaussElim", json::object(), 300).dump());
  const json check = reportOf(folder.run({"c.json", "--check", "--json"}));
  EXPECT_EQ(check["status"], 0);
  EXPECT_EQ(reportOf(folder.run({"c.json", "--jsn", "--json"}))["status"], 1);
  EXPECT_EQ(reportOf(folder.run({"c.json", "--json=1"}))["status"], 1);
  // 8.1e9 elements on a rank: the library ends the process.
  const Outcome ended = folder.run({"c.json", "--json"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(reportOf(ended).value("error", ""), HasSubstr("elements"));
}

TEST(Solve, AProcessOfSeveralThatIsAloneEndsInStatusOne) {
  const Folder folder;
  folder.write("c.json", poissonConfiguration().dump());
  for (const char* rank : {"0", "1"}) {
    const Outcome outcome =
        runInShell(folder, std::string("OMPI_COMM_WORLD_SIZE=2 OMPI_COMM_WORLD_RANK=") + rank, "");
    EXPECT_EQ(outcome.status, 1) << outcome.out;
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("env -u"));
  }
}

TEST(Solve, HelpVersionSchemaAndListNeedNoConfiguration) {
  const Folder folder;
  EXPECT_THAT(folder.run({"--help"}).out, HasSubstr("Exit status:"));
  EXPECT_THAT(folder.run({"--version"}).out, MatchesRegex("mivo-solve [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  const std::string list = folder.run({"--list"}).out;
  EXPECT_THAT(list, HasSubstr("SolverPCG"));
  EXPECT_THAT(list, HasSubstr("  SolverList\n    an array of objects with solver_type\n"));
  EXPECT_EQ(folder.run({"--schema"}).out,
            readAll(std::string(MIVO_PROJECT_FOLDER) + "/examples/mivo-solve/mivo.schema.json"));
}

TEST(Solve, ReadyConfigurationsConverge) {
  const Folder folder;
  for (const char* name :
       {"poisson2d-jacobi", "poisson3d-ssor", "poisson3d-amg", "matrix-market", "anisotropy-amg",
        "jumps-amg", "convection-amg", "helmholtz-minres", "magnetic-pcg"}) {
    const std::string file =
        std::string(MIVO_PROJECT_FOLDER) + "/examples/configs/" + name + ".json";
    const Outcome outcome = folder.run({file, "--json"});
    EXPECT_EQ(outcome.status, 0) << name << outcome.err;
    EXPECT_EQ(reportOf(outcome)["rtol"], 1e-8);
  }
}

// The table tells what the hierarchy is: the product of a level's share in all is 1, rows shrink,
// and what is printed agrees with the report for machines.
TEST(Solve, HierarchiesAreShownAndMeasuredOnRequest) {
  const Folder folder;
  folder.write("c.json", poissonConfiguration("SolverPCG",
                                              preconditioned("PrecondAMG", multigridParams()), 40)
                             .dump());
  const json plain = reportOf(folder.run({"c.json", "--json"}))["hierarchies"][0];
  EXPECT_FALSE(plain.contains("setup"));
  const json one = reportOf(folder.run({"c.json", "--json", "--profile"}))["hierarchies"][0];
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

TEST(Solve, CommittedDataIsWhatTheGeneratorWrites) {
  const Folder folder;
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
