// SPDX-License-Identifier: Apache-2.0
/// Parts of the driver that are easier to look at from inside than through the program.

#include <gmock/gmock.h>

#include <set>

#include "examples/mivo-solve/configuration.hpp"
#include "examples/mivo-solve/input_error.hpp"
#include "examples/mivo-solve/report.hpp"
#include "examples/mivo-solve/schema.hpp"
#include "examples/mivo-solve/words.hpp"
#include "mivo/mivo.hpp"

namespace mivo_solve {
namespace {

TEST(Words, EditDistanceCountsInsertionsDeletionsReplacementsAndSwaps) {
  EXPECT_EQ(editDistance("RTOL", "rtol"), 0u);
  EXPECT_EQ(editDistance("", "rtol"), 4u);
  for (const char* word : {"rtoll", "rtl", "rtal", "trol"}) {
    EXPECT_EQ(editDistance(word, "rtol"), 1u) << word;
  }
  EXPECT_EQ(editDistance("kitten", "sitting"), 3u);
}

TEST(Words, NearestWordIsNearOrContained) {
  const std::vector<std::string> names = {"SolverPCG", "SolverPreOnly", "SolverJacobi",
                                          "SolverJacobiLp"};
  EXPECT_EQ(nearestWord("SolverPGC", names), "SolverPCG");
  EXPECT_EQ(nearestWord("jacobi", names), "SolverJacobi");
  EXPECT_EQ(nearestWord("multigrid", names), "");
  EXPECT_EQ(nearestWord("atom", {"rtol"}), "") << "two of four letters";
  EXPECT_EQ(nearestWord(std::string(1000000, 'x'), names), "");
}

TEST(Overrides, MakeReplaceAndIndex) {
  json configuration = json::parse(R"({"a": {"b": 1}, "list": [1, {"x": 2}]})");
  applyOverride(configuration, "a.b=2.5");
  applyOverride(configuration, "a.new.key=text with = and .");
  applyOverride(configuration, "list.1.x=[1, 2]");
  applyOverride(configuration, "flag=true");
  EXPECT_EQ(configuration, json::parse(R"({"a": {"b": 2.5, "new": {"key": "text with = and ."}},
                                           "list": [1, {"x": [1, 2]}], "flag": true})"));
  for (const char* bad : {"list.2=1", "list.one=1", "a..b=1", "a.b.=1"}) {
    EXPECT_THROW(applyOverride(configuration, bad), InputError) << bad;
  }
}

TEST(Schema, UnusedParametersAreThoseOfOtherClasses) {
  const json configuration =
      json::parse(R"({"solver": {"solver_type": "SolverPCG", "SolverSOR_params": {},
    "SolverPCG_params": {"preconditioner": {"preconditioner_type": "A", "B_params": {}, "A_params": {}}}}})");
  EXPECT_THAT(unusedParameters(configuration),
              ::testing::UnorderedElementsAre("/solver/SolverSOR_params",
                                              "/solver/SolverPCG_params/preconditioner/B_params"));
}

TEST(Schema, NamesEachFaultOnceAndInOrder) {
  const json configuration = json::parse(R"({"solver": {"solver_type": "SolverPCG",
    "SolverPCG_params": {"rtol": 1, "max_its": 1.5, "x": 0, "preconditioner": {"preconditioner_type": 3}}},
    "testcase": {}, "y": {"z": 1}})");
  std::vector<std::string> places;
  for (const SchemaFault& fault : validateConfiguration(configuration)) {
    places.push_back(fault.pointer + " " + fault.message.substr(0, fault.message.find(' ')));
  }
  const std::string params = "/solver/SolverPCG_params/";
  EXPECT_THAT(places,
              ::testing::ElementsAre("/y the", params + "x the", params + "max_its expected",
                                     params + "preconditioner/preconditioner_type expected",
                                     params + "rtol the", "/testcase the"));
}

/// Names that the schema allows are those that the library registers, but for the one that cannot
/// be run.
template <class Family>
void expectNames(const std::string& family) {
  const json& node = schemaDocument()["definitions"][family]["properties"];
  std::set<std::string> allowed;
  for (const std::string name : node[family + "_type"]["enum"]) {
    allowed.insert(name);
    EXPECT_TRUE(node.contains(name + "_params")) << name;
  }
  EXPECT_EQ(node.size(), allowed.size() + 2);  // the type key and the tag
  std::set<std::string> registered;
  for (const auto& item : Family::getFactory().getMap()) registered.insert(item.first);
  registered.erase("SolverLGMRES");
  EXPECT_EQ(allowed, registered) << family;
  EXPECT_EQ(Family::getFactory().getKey(), family + "_type");
}

TEST(Schema, AllowsTheRegisteredNames) {
  expectNames<mivo::ParSolverT<double, long, int>>("solver");
  expectNames<mivo::ParPreconditionerT<double, long, int>>("preconditioner");
  expectNames<mivo::ParSmootherT<double, long, int>>("smoother");
  expectNames<mivo::ParLevelTransferT<double, long, int>>("level_transfer");
  expectNames<mivo::ParAggregatorT<double, long, int>>("aggregator");
  expectNames<mivo::ParStrengtherT<double, long, int>>("strengther");
  expectNames<mivo::ParSplitterT<double, long, int>>("splitter");
  expectNames<mivo::ParInterpolatorT<double, long, int>>("interpolator");
  expectNames<mivo::TestCaseT<double, long, int>>("testcase");
  expectNames<mivo::TestCaseT<mivo::Complex<double>, long, int>>("testcase");
}

TEST(Report, NothingThatIsNotANumberPasses) {
  Report report;
  report.rtol = 1e-8;
  report.normB = report.normR0 = 1;
  report.normR = 2e-8;
  EXPECT_EQ(report.status(), 0);
  report.normR = 2.1e-8;
  EXPECT_EQ(report.status(), 2);
  report.normR0 = 2;
  EXPECT_EQ(report.status(), 0);
  report.normR = Report::kNone;
  EXPECT_EQ(report.status(), 2);
  report.normR = 0;
  report.finiteX = false;
  EXPECT_EQ(report.status(), 2);
  report.finiteX = true;
  report.normR = report.normR0 = std::numeric_limits<double>::infinity();
  EXPECT_EQ(report.status(), 2);
}

}  // namespace
}  // namespace mivo_solve
