// SPDX-License-Identifier: Apache-2.0
/// docs/configuration.md lists every registered name with its keys. Here each of them is tried: its
/// default changes nothing, another value is seen in the outcome of a run, and a key that the page
/// says has no effect has none.

#include <gmock/gmock.h>

#include <cstdlib>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "driver_process.hpp"
#include "examples/mivo-solve/schema.hpp"

namespace driver_test {
namespace {

struct Row {
  std::string key;
  std::string type;
  std::string initial;  ///< the column Default
  std::string role;
};

/// Rows of the tables by the names in the heading above them.
std::map<std::string, std::vector<Row>> readDocument() {
  std::ifstream file(std::string(MIVO_PROJECT_FOLDER) + "/docs/configuration.md");
  std::map<std::string, std::vector<Row>> document;
  std::vector<std::string> names;
  const std::regex cells(R"(\| `(\w+)` \| (\w+) \| (\S.*?) \| (\w+) \| .+ \|)");
  const std::regex name("`(\\w+)`");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("##", 0) == 0) {
      names.clear();
      if (line == "### Any object") names = {"*"};
      for (std::sregex_iterator at(line.begin(), line.end(), name), end;
           line.rfind("### ", 0) == 0 && at != end; ++at) {
        names.push_back((*at)[1]);
      }
      for (const std::string& each : names) document[each];
    }
    std::smatch found;
    if (!std::regex_match(line, found, cells)) continue;
    for (const std::string& each : names) {
      document[each].push_back({found[1], found[2], found[3], found[4]});
    }
  }
  return document;
}

std::string familyOf(const std::string& name) {
  for (const auto& [begin, family] : {std::pair("Solver", "solver"),
                                      {"Precond", "preconditioner"},
                                      {"LevelTransfer", "level_transfer"},
                                      {"Aggregator", "aggregator"},
                                      {"Strengther", "strengther"},
                                      {"Splitter", "splitter"},
                                      {"Interpolator", "interpolator"}}) {
    if (name.rfind(begin, 0) == 0) return family;
  }
  return "testcase";
}

/// Schema of a key, with references followed.
json resolved(json node) {
  while (node.contains("$ref")) {
    node = mivo_solve::schemaDocument().at(
        json::json_pointer(node["$ref"].get<std::string>().substr(1)));
  }
  return node;
}

json keysInSchema(const std::string& name) {
  const json family = mivo_solve::schemaDocument().at("definitions").at(familyOf(name));
  // Lists have no keys.
  return resolved(family.at("properties").at(name + "_params")).value("properties", json::object());
}

TEST(ConfigurationDocument, AgreesWithTheSchemaInNamesKeysTypesAndDefaults) {
  auto document = readDocument();
  ASSERT_EQ(document.erase("*"), 1u);
  std::set<std::string> documented;
  for (const auto& [name, rows] : document) {
    documented.insert(name);
    const json keys = keysInSchema(name);
    std::set<std::string> listed;
    for (const Row& row : rows) {
      SCOPED_TRACE(name + "." + row.key);
      listed.insert(row.key);
      ASSERT_TRUE(keys.contains(row.key));
      const json key = resolved(keys.at(row.key));
      EXPECT_EQ(row.type, key.value("type", "string"));
      const json initial = row.initial == "none" ? json() : json::parse(row.initial);
      EXPECT_EQ(initial, key.value("default", json()));
    }
    EXPECT_EQ(listed.size(), keys.size()) << name;
  }
  std::set<std::string> registered;
  for (const std::string family : {"testcase", "solver", "preconditioner", "level_transfer",
                                   "aggregator", "strengther", "splitter", "interpolator"}) {
    for (const std::string name : mivo_solve::schemaDocument()["definitions"][family]["properties"]
                                                              [family + "_type"]["enum"]) {
      registered.insert(name);
    }
  }
  EXPECT_EQ(documented, registered);
}

/// A value that differs from the default, by key.
json otherValue(const Row& row) {
  static const json values =
      json::parse(readAll(std::string(MIVO_PROJECT_FOLDER) + "/tests/driver/other_values.json"));
  return row.key == "verbose" && row.type == "boolean" ? json(true) : values.value(row.key, json());
}

json withType(const std::string& name, const json& params) {
  return {{familyOf(name) + "_type", name}, {name + "_params", params}};
}

/// Whether a key of this role should be seen to have an effect in `name`.
bool hasEffect(const std::string& name, const std::string& role) {
  const bool sequential = name.size() > 3 && name.compare(name.size() - 3, 3, "Seq") == 0;
  if (role == "parallel") return !sequential;
  if (role == "sequential") return sequential;
  return role == "any" || role == familyOf(name);
}

/// Outcome of a run with everything that varies by chance taken out.
struct Trace {
  json report;
  std::string texts;
  std::string solution;

  bool operator==(const Trace& other) const {
    return report == other.report && texts == other.texts && solution == other.solution;
  }
};

class DocumentedKeys : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_.write("A.mtx",
                  "%%MatrixMarket matrix coordinate real symmetric\n3 3 5\n1 1 4\n2 1 -1\n2 2 4\n3 "
                  "2 -1\n3 3 4\n");
    folder_.write("A2.mtx",
                  "%%MatrixMarket matrix coordinate real general\n3 3 3\n1 1 2\n2 2 4\n3 3 7\n");
    folder_.write("b.mtx", "%%MatrixMarket matrix array real general\n3 1\n5\n6\n7\n");
    folder_.write("x.mtx", "%%MatrixMarket matrix array real general\n3 1\n1\n2\n3\n");
  }

  /// A run in which `name` plays a part, with these parameters and keys beside its type key.
  Trace run(const std::string& name, const json& params, const json& beside = json::object()) {
    json object = beside;
    std::string family = familyOf(name);
    object.update(withType(name, params));
    if (family == "aggregator") {
      object = withType("LevelTransferSmoothAggregation", {{"aggregator", object}});
      family = "level_transfer";
    } else if (family == "strengther" || family == "splitter" || family == "interpolator") {
      object = withType("LevelTransferBoomerAMG", {{family, object}});
      family = "level_transfer";
    }
    if (family == "level_transfer") {
      object = withType("PrecondAMG", multigridParams(object));
      family = "preconditioner";
    }
    // On several levels truncation and the like have something to do.
    const bool coarsens = family != familyOf(name) || name == "PrecondAMG";
    json configuration = poissonConfiguration("SolverPCG", json::object(), coarsens ? 24 : 10);
    std::vector<std::string> arguments = {"--json", "--solution", "out.mtx"};
    if (family == "preconditioner") {
      configuration["solver"]["SolverPCG_params"]["preconditioner"] = object;
    } else {
      configuration[family] = object;
    }
    if (name == "MatrixMarket" && params.value("filename_x", "") != "") {
      arguments.insert(arguments.end(), {"--start", "testcase"});
    }
    folder_.write("out.mtx", "");
    setenv("MIVO_VERBOSE_LEVEL", traced_ ? "3" : "1", 1);
    const Outcome outcome = folder_.solve(configuration, arguments);
    // Other traces hold addresses, times, and the keys themselves.
    static const std::regex times("ExtendedPI time .*"),
        others(".*(Factory|CommPattern|solve_time).*");
    Trace trace{reportOf(outcome), std::regex_replace(outcome.err, traced_ ? others : times, ""),
                folder_.read("out.mtx")};
    trace.report.erase("setup_time");
    trace.report.erase("solve_time");
    return trace;
  }

  Folder folder_;
  bool traced_ = false;
};

TEST_F(DocumentedKeys, HaveTheirDefaultsAndTheirEffects) {
  std::size_t tried = 0;
  for (const auto& [name, rows] : readDocument()) {
    for (const Row& row : rows) {
      if (name == "*") continue;
      SCOPED_TRACE(name + "." + row.key);
      ASSERT_FALSE(otherValue(row).is_null()) << "no value to try";
      // Two sweeps, so that damping and the start of an application are more than a factor.
      json params = json::object();
      if (familyOf(name) == "preconditioner" && row.key != "nsweeps" &&
          keysInSchema(name).contains("nsweeps")) {
        params["nsweeps"] = 2;
      }
      if (name == "MatrixMarket") params["filename_A"] = "A.mtx";
      if (name == "SolverAMG" || name == "PrecondAMG") params = multigridParams();
      // No strong entry is small by the default; several cycles.
      if (row.key == "do_trunc") params["eps_trunc"] = 0.9;
      if (row.key == "augk") params["restart"] = 2;
      // What shows on one rank in the traces only.
      traced_ = row.key == "block_size" || row.key == "aggregator";
      const Trace base = run(name, params);
      EXPECT_TRUE(base.report.value("converged", false) || name == "PrecondSOR" ||
                  name == "SolverAdamW" || name == "AggregatorFASPSeq")
          << base.texts;
      if (row.initial != "none") {
        json same = params;
        same[row.key] = json::parse(row.initial);
        EXPECT_TRUE(run(name, same) == base) << "the default is not " << row.initial;
      }
      json other = params;
      other[row.key] = otherValue(row);
      EXPECT_EQ(!(run(name, other) == base), hasEffect(name, row.role));
      ++tried;
    }
  }
  EXPECT_GT(tried, 40u);
}

TEST_F(DocumentedKeys, TagShowsInTheOperatorTree) {
  for (const std::string name : {"SolverPCG", "SolverSOR", "PrecondJacobi", "PrecondIdentity"}) {
    const Trace tagged = run(name, json::object(), {{"tagName", "mark"}});
    EXPECT_THAT(tagged.report.value("operators", ""), ::testing::HasSubstr("[mark]")) << name;
  }
}

}  // namespace
}  // namespace driver_test
