// SPDX-License-Identifier: Apache-2.0
#include "checks.hpp"

#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <iomanip>
#include <limits>
#include <sstream>

#include "input_error.hpp"
#include "matrix_file.hpp"
#include "memory.hpp"
#include "mivo/utils/Device.hpp"
#include "schema.hpp"
#include "words.hpp"

namespace mivo_solve {
namespace {

namespace fs = std::filesystem;

constexpr double kMaxLocalCount = std::numeric_limits<std::int32_t>::max();

std::string gibibytes(double bytes) {
  std::ostringstream text;
  text << std::setprecision(3) << bytes / (1024.0 * 1024.0 * 1024.0) << " GiB";
  return text.str();
}

void checkSchema(const Options& options, const json& configuration) {
  const std::vector<SchemaFault> faults = validateConfiguration(configuration);
  if (faults.empty()) {
    return;
  }
  std::string text;
  for (const SchemaFault& fault : faults) {
    text += (text.empty() ? "" : "\n") + escaped(options.configuration) + ": " +
            (fault.pointer.empty() ? "" : escaped(fault.pointer) + ": ") + fault.message;
  }
  throw InputError(text);
}

void checkDevice(const std::string& text, const std::string& where) {
  const mivo::Device wanted(text);
  std::vector<std::string> names;
  for (const mivo::Device& device : mivo::Device::getAllDevices()) {
    if (device == wanted) {
      return;
    }
    names.push_back(device.getString());
  }
  throw InputError(where + ": this build of mivo has no device " + inQuotes(text) +
                   " on this machine; allowed: " + listInQuotes(names));
}

/// The configured name, or the same beside the configuration file when only that exists.
std::string resolveFile(const std::string& name, const std::string& configurationFile) {
  std::error_code code;
  if (fs::path(name).is_absolute() || fs::exists(name, code)) {
    return name;
  }
  const fs::path beside = fs::path(configurationFile).parent_path() / name;
  return fs::exists(beside, code) ? beside.string() : name;
}

void checkMemory(double rows, double entries, bool complex, int sharers, const std::string& where) {
  if (rows / sharers > kMaxLocalCount || entries / sharers > kMaxLocalCount) {
    std::ostringstream text;
    text << where << ": the system has " << std::setprecision(4) << rows << " unknowns and "
         << entries << " entries; a rank can hold at most " << std::setprecision(10)
         << kMaxLocalCount << " of each";
    throw InputError(text.str());
  }
  const double needed = estimatedMemory(rows, entries, complex) / sharers;
  const double available = availableMemory();
  if (needed > available) {
    std::ostringstream text;
    text << where << ": the system has " << std::setprecision(4) << rows
         << " unknowns and needs about " << gibibytes(needed) << " of memory; "
         << gibibytes(available) << " are available";
    throw InputError(text.str());
  }
}

void checkPoisson(Problem& problem, const Options& options, int ranks) {
  const json& params = selectedParams(problem.configuration, "testcase");
  const double dim = params.value("dim", 2);
  const double points = params.value("N", 100);
  const double rows = std::pow(points, dim);
  checkMemory(rows, rows * (2 * dim + 1), false, ranks,
              escaped(options.configuration) + ": /testcase/PoissonFDM_params");
  if (points <= 2) {
    problem.notes.push_back("a grid with " + shortText(params.value("N", 100)) +
                            " points a dimension has no inner points");
  }
}

void checkMatrixMarket(Problem& problem, const Options& options) {
  json& params = selectedParams(problem.configuration, "testcase");
  const auto resolved = [&](const char* key) {
    const std::string name = params.value(key, std::string());
    if (name.empty()) {
      return name;
    }
    const std::string path = resolveFile(name, options.configuration);
    checkReadableFile(path, key);
    params[key] = path;
    return path;
  };
  const std::string fileA = resolved("filename_A");
  const std::string fileB = resolved("filename_b");
  const std::string fileX = resolved("filename_x");
  if (options.startFromTestcase && fileX.empty()) {
    throw InputError("--start testcase needs filename_x in /testcase/MatrixMarket_params");
  }
  const MatrixFileInfo matrix = scanCoordinateFile(fileA);
  problem.complex = matrix.complex;
  problem.convert = matrix.needsConversion;
  if (!matrix.note.empty()) problem.notes.push_back(escaped(fileA) + ": " + matrix.note);
  problem.expectedNnzs = matrix.stored;
  // Rank 0 reads the whole file, whatever the number of ranks.
  checkMemory(static_cast<double>(matrix.rows), static_cast<double>(matrix.stored), matrix.complex,
              1, escaped(fileA));
  for (const std::string& file : {fileB, fileX}) {
    if (file.empty()) {
      continue;
    }
    const MatrixFileInfo vector = scanVectorFile(file);
    if (vector.rows != matrix.rows) {
      throw InputError(escaped(file) + ": the vector has " + std::to_string(vector.rows) +
                       " rows, but the matrix in " + escaped(fileA) + " has " +
                       std::to_string(matrix.rows));
    }
    if (vector.complex != matrix.complex) {
      throw InputError(escaped(file) + ": the values are " + (vector.complex ? "complex" : "real") +
                       ", but those of the matrix in " + escaped(fileA) + " are " +
                       (matrix.complex ? "complex" : "real"));
    }
  }
  if (fileB.empty()) {
    problem.makeRhs = true;
    problem.notes.push_back("no filename_b: b = A (1, ..., 1)");
  }
}

/// The file that a name leads to, which need not exist, behind links that lead nowhere yet too.
fs::path fileBehind(const std::string& name) {
  constexpr int kMostLinks = 40;
  std::error_code code;
  fs::path path = fs::absolute(name, code);
  for (int links = 0; links < kMostLinks && fs::is_symlink(path, code); ++links) {
    path = path.parent_path() / fs::read_symlink(path, code);
  }
  return fs::weakly_canonical(path, code);
}

/// Whether two names lead to one file, which need not exist yet.
bool isSameFile(const std::string& a, const std::string& b) {
  std::error_code code;
  if (fs::exists(a, code) && fs::exists(b, code)) return fs::equivalent(a, b, code);
  return fileBehind(a) == fileBehind(b);
}

void checkOutput(const std::string& path, const std::string& option, const Options& options,
                 const json& configuration) {
  if (path.empty()) {
    return;
  }
  const std::string where = option + " " + escaped(path);
  std::error_code code;
  if (fs::is_directory(path, code)) {
    throw InputError(where + ": is a directory");
  }
  const fs::path folder = fs::absolute(path, code).parent_path();
  if (!fs::is_directory(folder, code)) {
    throw InputError(where + ": the folder " + escaped(folder.string()) + " does not exist");
  }
  const bool exists = fs::exists(path, code);
  if (access((exists ? fs::path(path) : folder).c_str(), W_OK) != 0) {
    throw InputError(where + ": cannot be written");
  }
  std::vector<std::string> inputs = {options.configuration};
  const json files = configuration.at("testcase").value("MatrixMarket_params", json::object());
  for (const char* key : {"filename_A", "filename_b", "filename_x"}) {
    inputs.push_back(files.value(key, std::string()));
  }
  for (const std::string& input : inputs) {
    if (!input.empty() && isSameFile(input, path)) {
      throw InputError(where + ": would overwrite the input file " + escaped(input));
    }
  }
}

/// What works on one rank only is told before the library ends the job at it.
void checkRanks(const Options& options, const json& configuration, int ranks) {
  if (ranks == 1) return;
  const std::string name = "LevelTransferSmoothAggregationSeq";
  for (const std::string& pointer : usesOf("level_transfer", name, configuration)) {
    throw InputError(escaped(options.configuration) + ": " + escaped(pointer) + ": " + name +
                     " works on one rank, and there are " + std::to_string(ranks) +
                     "; take LevelTransferSmoothAggregation with the aggregator AggregatorVMBSeq");
  }
}

/// The solver's own table is on unless the configuration speaks of it. Only solvers whose keys
/// include "verbose" have one.
void turnOnTable(json& configuration) {
  json& params = selectedParams(configuration, "solver");
  const std::string name = selectedName(configuration, "solver");
  const json& definitions = schemaDocument().at("definitions");
  const std::string reference =
      definitions.at("solver").at("properties").at(name + "_params").at("$ref").get<std::string>();
  const json keys = schemaDocument()
                        .at(json::json_pointer(reference.substr(1)))
                        .value("properties", json::object());
  if (keys.contains("verbose") && !params.contains("verbose") && !params.contains("verb")) {
    params["verbose"] = 2;
  }
}

}  // namespace

std::string selectedName(const json& configuration, const std::string& family) {
  return configuration.at(family).at(family + "_type").get<std::string>();
}

json& selectedParams(json& configuration, const std::string& family) {
  json& params = configuration.at(family)[selectedName(configuration, family) + "_params"];
  if (params.is_null()) {
    params = json::object();
  }
  return params;
}

std::string Problem::toText() const {
  return json{{"configuration", configuration},
              {"complex", complex},
              {"makeRhs", makeRhs},
              {"convert", convert},
              {"expectedNnzs", expectedNnzs},
              {"notes", notes}}
      .dump();
}

Problem Problem::fromText(const std::string& text) {
  const json all = json::parse(text);
  return {all.at("configuration"), all.at("complex"),      all.at("makeRhs"),
          all.at("convert"),       all.at("expectedNnzs"), all.at("notes")};
}

Problem checkProblem(const Options& options, int ranks) {
  Problem problem;
  problem.configuration = loadConfiguration(options.configuration, options.overrides);
  checkSchema(options, problem.configuration);
  for (const std::string& pointer : unusedParameters(problem.configuration)) {
    problem.notes.push_back(escaped(pointer) +
                            " is not used: the type key beside it names another class");
  }
  checkRanks(options, problem.configuration, ranks);
  json& testcase = selectedParams(problem.configuration, "testcase");
  const std::string name = selectedName(problem.configuration, "testcase");
  std::string where = escaped(options.configuration) + ": /testcase/" + name + "_params/device";
  if (!options.device.empty()) {
    testcase["device"] = options.device;
    where = "--device";
    for (const SchemaFault& fault : validateConfiguration(problem.configuration)) {
      throw InputError(where + ": " + fault.message);
    }
  }
  checkDevice(testcase.value("device", std::string("cpu:0")), where);
  if (name == "MatrixMarket") {
    checkMatrixMarket(problem, options);
  } else if (name == "PoissonFDM") {
    checkPoisson(problem, options, ranks);
  }
  checkOutput(options.history, "--history", options, problem.configuration);
  checkOutput(options.solution, "--solution", options, problem.configuration);
  if (!options.history.empty() && !options.solution.empty() &&
      isSameFile(options.history, options.solution)) {
    throw InputError("--history and --solution name the same file");
  }
  if (!options.quiet && !options.json) {
    turnOnTable(problem.configuration);
  }
  return problem;
}

}  // namespace mivo_solve
