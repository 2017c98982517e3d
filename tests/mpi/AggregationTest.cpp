// SPDX-License-Identifier: Apache-2.0

// Aggregation and smoothed aggregation on several ranks.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include "mivo/level_transfer/aggregation/LevelTransferOps_SA.hpp"
#include "mivo/operators/ParAggregator.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/graphs.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

using Ops = LevelTransferOps_SA<double, long, int>;
using Aggregates = ParMatrixT<int, long, int>;
using Strength = ParCSRMatrixT<int, long, int>;
using Part = PartitionerT<long, int>;

std::vector<int> byName(const std::string& name, const Strength& S, long* naggr) {
  const auto aggregator =
      ParAggregatorT<double, long, int>::getFactory().createInstance({{"aggregator_type", name}});
  Aggregates aggr;
  aggregator->aggregate(ParSparse<double>(), S, aggr, *naggr);
  EXPECT_TRUE(aggr.getRowPartitioner() == S.getRowPartitioner()) << name;
  return everywhere(aggr);
}

// A path 0 - ... - 7 in halves. Rank 1 goes first: node 4 takes 5, 6, and 3 and 2 of rank 0; node 7
// then takes 6. Rank 0 makes 0 its only aggregate. Both ranks have a number 0, which is one
// aggregate in the end.
TEST(Aggregation, HigherRanksGoFirstAndEqualNumbersMerge) {
  if (worldSize() != 2) return;
  for (const Device& device : rankDevices()) {
    const auto part = partsAt<long>({0, 4, 8});
    const Strength S = distributed(device, part, part, pathStrength(8));
    for (const std::string name : {"AggregatorVMB", "AggregatorS2Greedy"}) {
      long naggr = 0;
      EXPECT_EQ(byName(name, S, &naggr), (std::vector<int>{0, 0, 0, 0, 0, 0, 1, 1})) << name;
      EXPECT_EQ(naggr, 2);
    }
  }
}

// Keys go to the rank of their remainder, which numbers them at first sight of its requests. The
// random graphs below show that numbers are compact.
TEST(Aggregation, RenumberingIsInTheOrderOfRequests) {
  const int size = worldSize();
  std::vector<int> keys, expected;
  for (int r = 0; r < size; ++r) keys.insert(keys.end(), {7 * size, -3, 3 * size * r, 7 * size});
  for (int r = 0; r < size; ++r) expected.insert(expected.end(), {0, -3, 1 + r, 0});
  std::mt19937 rng(1);
  Aggregates aggr = ownColumn(Device(), worldCuts<long>(4L * size, rng)[0], keys), owner;
  long naggr = 0;
  Ops::par_renumber(aggr, owner, naggr);
  EXPECT_EQ(everywhere(aggr), expected);
  EXPECT_EQ(naggr, 1 + size);
}

// On symmetric graphs the coupled nodes are those in aggregates; on all graphs both ways of sending
// give the same, numbers are compact, and the sequential aggregators do not see the ranks at all.
TEST(Aggregation, EndsAndCoversOnRandomGraphs) {
  std::mt19937 rng(29);
  // 200 graphs on 1 to 4 ranks together: a collective on three of them takes milliseconds here.
  const int rounds = worldSize() > 2 ? 20 : 80;
  for (int round = 0; round < rounds; ++round) {
    const int n = static_cast<int>(rng() % 24);
    const bool symmetric = round % 2 == 0;
    const auto s = randomStrength(rng, n, symmetric);
    const auto cuts = worldCuts<long>(n, rng);
    const Part& part = cuts[static_cast<std::size_t>(round) % cuts.size()];
    const auto devices = rankDevices();
    const Device& device = devices[static_cast<std::size_t>(round) % devices.size()];
    const Strength S = distributed(device, part, part, s);
    long records = -1, pattern = -1;
    const auto all = byName("AggregatorVMB", S, &records);
    EXPECT_EQ(byName("AggregatorS2Greedy", S, &pattern), all) << round;
    EXPECT_EQ(records, pattern);
    std::set<int> used;
    for (int i = 0; i < n; ++i) {
      const int a = all[static_cast<std::size_t>(i)];
      if (a >= 0) used.insert(a);
      EXPECT_TRUE(!symmetric || (a >= 0) == isCoupled(s, i)) << round << " " << i;
    }
    EXPECT_EQ(static_cast<long>(used.size()), records);
    EXPECT_TRUE(used.empty() || *used.rbegin() == records - 1);

    if (round % 8 != 0) continue;
    MatrixT<int, int> whole;
    long expected = -1, naggr = -1;
    Ops::seq_aggregate(sparseOf(Device(), s), 0, whole, expected);
    EXPECT_EQ(byName("AggregatorVMBSeq", S, &naggr), valuesOf(whole)) << round;
    EXPECT_EQ(naggr, expected);
  }
}

// The prolongation of several ranks is that of one rank, for the same aggregates.
TEST(SmoothAggregationOnRanks, ProlongsAsOnOneRank) {
  std::mt19937 rng(31);
  const auto a = laplacian<double>(9, 8);
  const auto transfer = [&](const ParSparse<double>& A, ParSparse<double>& P,
                            ParSparse<double>& R) {
    const json params = {{"aggregator", {{"aggregator_type", "AggregatorVMBSeq"}}}};
    ParLevelTransferT<double, long, int>::getFactory()
        .createInstance({{"level_transfer_type", "LevelTransferSmoothAggregation"},
                         {"LevelTransferSmoothAggregation_params", params}})
        ->transfer_operators(A, P, R);
  };
  ParSparse<double> P, R, P1, R1;
  transfer(parSparseOf(Device(), a, kCommSelf), P1, R1);
  forEachCut(72, rng, [&](const Part& part, const Device& device) {
    transfer(distributed(device, part, part, a), P, R);
    expectRowsOf(P, plainOf(P1.getLocalMatrix(0)), part, 1e-15);
    for (const auto& [at, v] : ownEntries(R.transpose())) {
      EXPECT_EQ(v, P.getElementValue(at.first, at.second, nullptr));
    }
  });
}

// Entries of another rank's block are compared with this rank's diagonal at the block's column
// number, which counts as 0 beyond the end. With 0.25 one entry meets its bound, and is weak.
TEST(SmoothAggregationOnRanks, StrengthTakesTheOwnDiagonalInEveryBlock) {
  if (worldSize() != 2) return;
  const auto a = HostCsr<double>::build(5, 5, [](int i, HostCsr<double>& out) {
    for (int j = 0; j < 5; ++j) out.push(j, i == j ? 4.0 * (i + 1) : 1.0);
  });
  const auto part = partsAt<long>({0, 2, 5});
  for (const Device& device : rankDevices()) {
    const auto A = distributed(device, part, part, a);
    for (const double eps : {0.2, 0.25}) {
      Strength S;
      Ops::par_strength(A, A.getDiag(), S, eps);
      for (const auto& [at, v] : ownEntries(S)) {
        const auto& [i, j] = at;
        const long begin = i < 2 ? 0 : 2, rows = i < 2 ? 2 : 3, inBlock = j < 2 ? j : j - 2;
        const double di = 4.0 * static_cast<double>(i + 1);
        const double dj = inBlock < rows ? 4.0 * static_cast<double>(begin + inBlock + 1) : 0.0;
        EXPECT_EQ(v, i != j && 1.0 > eps * eps * di * dj ? 1 : 0) << i << " " << j;
      }
    }
  }
}

// Hierarchies end, and conjugate gradients converge, whatever the pipeline and the split.
TEST(MultigridOnRanks, Preconditions) {
  using Vector = ParMatrixT<double, long, int>;
  std::mt19937 rng(37);
  // A collective on three ranks takes milliseconds on two cores.
  const int width = worldSize() > 2 ? 10 : 20;
  const auto a = laplacian<double>(width, 20);
  const auto cuts = worldCuts<long>(width * 20L, rng);
  const auto aggregation = [](const std::string& name) -> json {
    return {
        {"level_transfer_type", "LevelTransferSmoothAggregation"},
        {"LevelTransferSmoothAggregation_params", {{"aggregator", {{"aggregator_type", name}}}}}};
  };
  const json ssor = smootherOf("SmootherSSOR");
  for (const auto& [transfer, most] : std::vector<std::pair<json, int>>{
           {aggregation("AggregatorVMBSeq"), 16},
           {aggregation("AggregatorFASPSeq"), 60},
           {aggregation("AggregatorVMB"), 60},
           {aggregation("AggregatorS2Greedy"), 60},
           {{{"level_transfer_type", "LevelTransferBoomerAMG"}}, 16},
           {{{"level_transfer_type", "LevelTransferRugeStuben"}}, 16},
           {{{"level_transfer_type", "LevelTransferRugeStubenSeq"}}, 16}}) {
    const json amg =
        precondOf("PrecondAMG",
                  {{"level_transfer", transfer}, {"pre_smoother", ssor}, {"post_smoother", ssor}});
    for (const Part& part : {cuts[2], cuts[3]}) {
      auto A = distributed<double, long>(rankDevices().back(), part, part, a);
      Vector x, b;
      x.create(part, A.getDevice());
      b.create(part, A.getDevice());
      x.fill(0);
      b.fill(1);
      const SolverRun<double> run(A, b, x, solverWith("SolverPCG", amg));
      EXPECT_LT(Vector::residual(A, x, b), 2e-8 * Vector::normL2(b)) << transfer;
      EXPECT_LE(run.iterations, most) << transfer;
    }
  }
}

}  // namespace
}  // namespace mivo::test
