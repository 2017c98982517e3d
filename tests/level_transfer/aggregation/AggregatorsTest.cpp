// SPDX-License-Identifier: Apache-2.0

// Aggregators on one rank; tests/mpi/AggregationTest.cpp has those on several.

#include <gmock/gmock.h>

#include <random>
#include <vector>

#include "mivo/level_transfer/aggregation/LevelTransferOps_SA.hpp"
#include "mivo/operators/ParAggregator.hpp"
#include "mivo/utils/Factory.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/graphs.hpp"
#include "tests/support/parsparse.hpp"
#include "tests/support/printed.hpp"

namespace mivo::test {
namespace {

using Ops = LevelTransferOps_SA<double, long, int>;
using Numbers = std::vector<int>;
using testing::EndsWith;
using testing::HasSubstr;

/// Numbers and their count.
using Found = std::pair<Numbers, long>;

Found greedy(const Device& device, const HostCsr<int>& s, int limit) {
  long naggr = -7;
  MatrixT<int, int> aggr;
  Ops::seq_aggregate(sparseOf(device, s), limit, aggr, naggr);
  return {valuesOf(aggr), naggr};
}

Found byName(const std::string& name, const Device& device, const HostCsr<int>& s,
             const json& params = json::object()) {
  const auto aggregator = ParAggregatorT<double, long, int>::getFactory().createInstance(
      {{"aggregator_type", name}, {name + "_params", params}});
  long naggr = -7;
  ParMatrixT<int, long, int> aggr;
  const auto S = parSparseOf(device, s);
  aggregator->aggregate(ParSparse<double>(), S, aggr, naggr);
  EXPECT_EQ(aggr.getDevice().type, device.type);
  EXPECT_TRUE(aggr.getRowPartitioner() == S.getRowPartitioner());
  return {valuesOf(aggr), naggr};
}

// The second seed takes a node of the first aggregate, the last one a node of the second.
TEST(GreedyAggregates, TakeOverNeighboursAndLimitOnlyWhatFollows) {
  for (const Device& device : testDevices()) {
    EXPECT_EQ(greedy(device, pathStrength(7), -1), (Found{{0, 0, 1, 1, 1, 2, 2}, 3}));
    EXPECT_EQ(greedy(device, pathStrength(7), 1), (Found{{0, 1, 1, 2, 2, 3, 3}, 4}));
    // Three in the first aggregate; the second has as many before node 5 could join.
    EXPECT_EQ(greedy(device, pathStrength(7), 3), (Found{{0, 0, 1, 1, 2, 2, 2}, 3}));
    // Node 2 takes the only nodes of aggregate 0, so that its number becomes 0.
    EXPECT_EQ(greedy(device, strengthOf({{1}, {0}, {0, 1}, {}, {5}, {4}}), 0),
              (Found{{0, 0, 0, -2, 1, 1}, 2}));
    EXPECT_EQ(greedy(device, strengthOf({{}, {}, {}}), 0), (Found{{-2, -2, -2}, 0}));
    EXPECT_EQ(greedy(device, HostCsr<int>(), 0), (Found{{}, 0}));
  }
}

// Without remote nodes and a limit; on several ranks such graphs are covered in compact numbers.
TEST(GreedyAggregates, AreThoseOfEachSchemeOnOneRank) {
  std::mt19937 rng(11);
  for (const Device& device : testDevices()) {
    for (int n : {0, 1, 2, 31, 97}) {
      const auto s = randomStrength(rng, n, true);
      for (const std::string name : {"AggregatorVMB", "AggregatorS2Greedy", "AggregatorVMBSeq"}) {
        EXPECT_EQ(byName(name, device, s), greedy(Device(), s, 0)) << name << n;
      }
    }
  }
  EXPECT_EQ(byName("AggregatorVMBSeq", Device(), pathStrength(7), {{"max_aggregation", 1}}),
            greedy(Device(), pathStrength(7), 1));
}

// On a path both ends have one strong entry and stay alone; the last of them has been counted as
// part of an aggregate by then.
TEST(ThreePassAggregates, FollowTheirRules) {
  const auto fasp = [](const HostCsr<int>& s, int limit = 50) {
    return byName("AggregatorFASPSeq", testDevices().back(), s, {{"max_aggregation", limit}});
  };
  EXPECT_EQ(fasp(pathStrength(7)), (Found{{-1, 0, 0, 0, 1, 1, -1}, 2}));
  EXPECT_EQ(fasp(pathStrength(7), 2), (Found{{-1, 0, 0, 1, 1, 2, -1}, 3}));
  // A cycle of 8 nodes: 0 takes 7 and 1, 3 takes 2 and 4, and the second pass gives 5 to the
  // aggregate of 4, 6 to that of 7.
  std::vector<std::vector<int>> cycle(8);
  for (int i = 0; i < 8; ++i) cycle[static_cast<std::size_t>(i)] = {(i + 7) % 8, (i + 1) % 8};
  EXPECT_EQ(fasp(strengthOf(cycle)), (Found{{0, 0, 1, 1, 1, 1, 0, 0}, 2}));
  // Entries none of which is strong make an aggregate of one; no entries at all none.
  HostCsr<int> s = strengthOf({{1, 2}, {0, 2}, {0, 1}, {}});
  s.endRow();
  s.cols = 5;
  EXPECT_EQ(fasp(s), (Found{{0, 0, 0, 1, -1}, 2}));
  EXPECT_EQ(printed([&] { byName("AggregatorFASPSeq", Device(), s); }), "");
  const auto none = HostCsr<int>::build(3, 3, [](int, HostCsr<int>&) {});
  EXPECT_EQ(fasp(none), (Found{{-1, -1, -1}, 0}));
  MIVO_EXPECT_PRINTED_AT("3", byName("AggregatorFASPSeq", Device(), s),
                         testing::AllOf(HasSubstr("] SeqFASPAggregator_T max_aggregation 50\n"),
                                        EndsWith("] naggr 2, aggr [0, 0, 0, 1, -1]\n")));
}

}  // namespace
}  // namespace mivo::test
