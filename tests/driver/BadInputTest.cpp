// SPDX-License-Identifier: Apache-2.0
/// Every input here must end in status 1 with a message that names the fault: no crash, no hang, no
/// answer.

#include <gmock/gmock.h>

#include "driver_process.hpp"

namespace driver_test {
namespace {

using ::testing::HasSubstr;

/// Faults of the configuration, which is a "text", "all" of it, or what differs from one that is
/// sound, and of the command line.
using BadConfigurationTest = CasesOfTable;

TEST_P(BadConfigurationTest, EndsWithStatusOneAndSaysWhatIsWrong) {
  const json& bad = GetParam().data;
  json configuration = {
      {"testcase", {{"testcase_type", "PoissonFDM"}}},
      {"solver",
       {{"solver_type", "SolverPCG"}, {"SolverPCG_params", bad.value("pcg", json::object())}}}};
  if (bad.contains("poisson")) configuration["testcase"]["PoissonFDM_params"] = bad["poisson"];
  if (bad.contains("solver")) configuration["solver"] = bad["solver"];
  configuration = bad.value("all", configuration);
  const Folder folder;
  folder.write("c.json", bad.contains("text") ? textOf(bad) : configuration.dump());
  std::filesystem::create_directory(folder.path() / "folder");
  std::vector<std::string> arguments = bad.value("arguments", std::vector<std::string>{});
  arguments.insert(arguments.begin(), "c.json");
  const Outcome outcome = folder.run(arguments, 30);
  EXPECT_EQ(outcome.status, 1) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr(bad["says"].get<std::string>()));
  EXPECT_THAT(outcome.err, HasSubstr("mivo-solve: "));
  EXPECT_EQ(outcome.err.find('\x1b'), std::string::npos) << "steers the terminal";
}

MIVO_CASES_OF_TABLE(BadConfigurationTest, "bad_configurations.json");

TEST(BadConfigurationFile, MissingOrNoFile) {
  const Folder folder;
  for (const auto& [argument, fragment] : std::vector<std::pair<std::string, std::string>>{
           {"missing.json", "missing.json: configuration file not found"},
           {".", "is a directory"},
           {"/dev/zero", "is no regular file"}}) {
    const Outcome outcome = folder.run({argument});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr(fragment));
  }
  EXPECT_EQ(folder.run({}).status, 1);
}

const char* const kVector = "%%MatrixMarket matrix array real general\n2 1\n1\n1\n";

/// A sound system and configuration.
void writeSystem(const Folder& folder) {
  folder.write("c.json", fileConfiguration().dump());
  folder.write("A.mtx", "%%MatrixMarket matrix coordinate real general\n2 2 2\n1 1 2\n2 2 4\n");
  folder.write("b.mtx", kVector);
}

/// Faults of one file of the system.
using BadFileTest = CasesOfTable;

TEST_P(BadFileTest, EndsWithStatusOneAndSaysWhatIsWrong) {
  const json& bad = GetParam().data;
  const Folder folder;
  writeSystem(folder);
  folder.write(bad["file"], textOf(bad));
  const Outcome outcome = folder.run({"c.json", "--json"}, 30);
  EXPECT_EQ(outcome.status, 1) << outcome.out << outcome.err;
  const std::string fragment = bad["says"];
  EXPECT_THAT(outcome.err, HasSubstr(fragment));
  const json report = reportOf(outcome);
  EXPECT_EQ(report.value("status", 0), 1);
  EXPECT_THAT(report.value("error", ""), HasSubstr(fragment));
}

MIVO_CASES_OF_TABLE(BadFileTest, "bad_files.json");

TEST(BadFilePath, MissingOrNoFileOrOverwritten) {
  const Folder folder;
  writeSystem(folder);
  const auto fails = [&](const std::vector<std::string>& arguments, const char* fragment) {
    const Outcome outcome = folder.run(arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr(fragment));
  };
  const std::string params = "testcase.MatrixMarket_params.";
  fails({"c.json", "--set", params + "filename_A=none.mtx"},
        "none.mtx: filename_A: file not found");
  fails({"c.json", "--set", params + "filename_b=."}, "filename_b: is a directory");
  fails({"c.json", "--set", params + "filename_b=/dev/zero"}, "is no regular file");
  fails({"c.json", "--set", params + "filename_A=\"\""}, "must not be empty");
  std::filesystem::create_hard_link(folder.path() / "b.mtx", folder.path() / "same");
  const char* const overwrites = "would overwrite the input file";
  fails({"c.json", "--solution", "./b.mtx"}, overwrites);
  fails({"c.json", "--history", "same"}, overwrites);
  folder.write("x.mtx", kVector);
  fails({"c.json", "--set", params + "filename_x=x.mtx", "--solution", "x.mtx"}, overwrites);
  fails({"c.json", "--start", "testcase"}, "needs filename_x");
  EXPECT_EQ(folder.read("b.mtx"), kVector);
}

}  // namespace
}  // namespace driver_test
