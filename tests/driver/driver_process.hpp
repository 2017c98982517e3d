// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

/// Helpers that run the program mivo-solve in a folder of its own.
namespace driver_test {

using json = nlohmann::json;

struct Outcome {
  int status = -1;  ///< exit status; 128 and more for a signal, -1 when it had to be stopped
  std::string out;
  std::string err;
};

inline std::string readAll(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// Values of an array file with one column.
inline std::vector<double> readVector(const std::string& text) {
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line) && line[0] == '%') {
  }
  return {std::istream_iterator<double>(in), {}};
}

/// The one line that `--json` prints; a test failure when it is something else.
inline json reportOf(const Outcome& outcome) {
  const json report = json::parse(outcome.out, nullptr, false);
  EXPECT_TRUE(report.is_object()) << outcome.out << outcome.err;
  return report.is_object() ? report : json::object();
}

/// Cases of a table beside the tests: an array of objects with a name.
struct Case {
  std::string name;
  json data;
};
inline std::ostream& operator<<(std::ostream& out, const Case& one) { return out << one.name; }

inline std::vector<Case> casesOf(const std::string& table) {
  std::vector<Case> cases;
  for (const json& data :
       json::parse(readAll(std::string(MIVO_PROJECT_FOLDER) + "/tests/driver/" + table))) {
    cases.push_back({data.at("name"), data});
  }
  return cases;
}

using CasesOfTable = ::testing::TestWithParam<Case>;
#define MIVO_CASES_OF_TABLE(suite, table)                                   \
  INSTANTIATE_TEST_SUITE_P(All, suite, ::testing::ValuesIn(casesOf(table)), \
                           [](const auto& one) { return one.param.name; })

/// The text of a case: a byte for each code point, as often as "times" says.
inline std::string textOf(const json& data) {
  const std::string utf8 = data.at("text");
  std::string once, text;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const bool two = (utf8[i] & 0x80) != 0;
    once += two ? static_cast<char>((utf8[i] & 3) << 6 | (utf8[i + 1] & 0x3f)) : utf8[i];
    i += two;
  }
  for (int k = data.value("times", 1); k > 0; --k) text += once;
  return text;
}

/// An empty folder under the system's temporary one, gone with the object.
class Folder {
 public:
  Folder() {
    std::string name = (std::filesystem::temp_directory_path() / "mivo-solve-XXXXXX").string();
    path_ = mkdtemp(&name[0]);
  }
  ~Folder() {
    std::error_code code;
    std::filesystem::remove_all(path_, code);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  void write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ / name, std::ios::binary) << text;
  }
  std::string read(const std::string& name) const { return readAll(path_ / name); }

  /// Runs mivo-solve here; a run that takes longer than `seconds` is stopped and counts as a hang.
  Outcome run(const std::vector<std::string>& arguments, int seconds = 60) const {
    std::vector<std::string> words = {MIVO_SOLVE_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return execute(words, seconds);
  }

  /// The same with this configuration, as c.json.
  Outcome solve(const json& configuration, std::vector<std::string> arguments = {}) const {
    write("c.json", configuration.dump());
    arguments.insert(arguments.begin(), "c.json");
    return run(arguments);
  }
  /// The report of that.
  json report(const json& configuration, std::vector<std::string> arguments = {}) const {
    arguments.push_back("--json");
    return reportOf(solve(configuration, arguments));
  }

  /// The same for any program, named by its path.
  Outcome execute(std::vector<std::string> words, int seconds) const {
    const auto outFile = path_ / ".out";
    const auto errFile = path_ / ".err";
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(&word[0]);
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
      const bool ready = chdir(path_.c_str()) == 0 &&
                         freopen(outFile.c_str(), "w", stdout) != nullptr &&
                         freopen(errFile.c_str(), "w", stderr) != nullptr;
      if (ready) execv(argv[0], argv.data());
      _exit(127);
    }
    Outcome outcome;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    int status = 0;
    pid_t done = 0;
    while ((done = waitpid(child, &status, WNOHANG)) == 0 &&
           std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (done == 0) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
    } else {
      outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    outcome.out = readAll(outFile);
    outcome.err = readAll(errFile);
    // A sanitizer ends a program with status 1, too.
    EXPECT_EQ(outcome.err.find("Sanitizer"), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find("runtime error:"), std::string::npos) << outcome.err;
    return outcome;
  }

 private:
  std::filesystem::path path_;
};

inline json poissonConfiguration(const std::string& solver = "SolverPCG",
                                 const json& params = json::object(), int n = 12) {
  return {{"testcase", {{"testcase_type", "PoissonFDM"}, {"PoissonFDM_params", {{"N", n}}}}},
          {"solver", {{"solver_type", solver}, {solver + "_params", params}}}};
}

/// Parameters of a hierarchy with this level transfer.
inline json multigridParams(const json& transfer = {
                                {"level_transfer_type", "LevelTransferSmoothAggregation"}}) {
  const json jacobi = {{"smoother_type", "SmootherJacobi"},
                       {"SmootherJacobi_params", {{"relax", 0.6}}}};
  return {{"level_transfer", transfer}, {"pre_smoother", jacobi}, {"post_smoother", jacobi}};
}

inline json fileConfiguration() {
  return {{"testcase",
           {{"testcase_type", "MatrixMarket"},
            {"MatrixMarket_params", {{"filename_A", "A.mtx"}, {"filename_b", "b.mtx"}}}}},
          {"solver", {{"solver_type", "SolverPCG"}}}};
}

}  // namespace driver_test
