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

/// The strength matrix with its zeros, which an assembly keeps.
Strength spread(const Device& device, const Part& part, const HostCsr<int>& s) {
  return distributed<int, long>(device, part, part, s);
}

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
    const Strength S = spread(device, partsAt<long>({0, 4, 8}), pathStrength(8));
    for (const std::string name : {"AggregatorVMB", "AggregatorS2Greedy"}) {
      long naggr = 0;
      EXPECT_EQ(byName(name, S, &naggr), (std::vector<int>{0, 0, 0, 0, 0, 0, 1, 1})) << name;
      EXPECT_EQ(naggr, 2);
    }
  }
}

// Keys go to the rank of their remainder, which numbers them at first sight of its requests.
TEST(Aggregation, RenumberingIsCompactOverAllRanks) {
  const int size = worldSize(), rank = worldRank();
  Part part;
  part.create(4L * size, size);
  Aggregates aggr, owner;
  aggr.create(part, Device());
  int* a = aggr.getLocalMatrix(-1).getData();
  const int values[] = {7 * size, -3, 2 + rank, 7 * size};
  std::copy(values, values + 4, a);
  long naggr = 0;
  Ops::par_renumber(aggr, owner, naggr);
  const auto all = everywhere(aggr);
  std::set<int> used;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (i % 4 == 1) {
      EXPECT_EQ(all[i], -3);
    } else {
      used.insert(all[i]);
    }
    EXPECT_TRUE(i % 4 != 0 || all[i] == 0) << "the first key that rank 0 is asked for";
    EXPECT_TRUE(i % 4 != 3 || all[i] == all[0]);
  }
  EXPECT_EQ(static_cast<long>(used.size()), naggr);
  EXPECT_EQ(naggr, 1 + size);
  EXPECT_EQ(*used.rbegin(), naggr - 1);
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
    const Strength S = spread(devices[static_cast<std::size_t>(round) % devices.size()], part, s);
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
  const json params = {{"aggregator", {{"aggregator_type", "AggregatorVMBSeq"}}}};
  const auto transfer = [&](const ParSparse<double>& A, ParSparse<double>& P,
                            ParSparse<double>& R) {
    const auto made = ParLevelTransferT<double, long, int>::getFactory().createInstance(
        {{"level_transfer_type", "LevelTransferSmoothAggregation"},
         {"LevelTransferSmoothAggregation_params", params}});
    made->transfer_operators(A, P, R);
  };
  ParSparse<double> alone, P1, R1;
  alone = parSparseOf(Device(), a, MPI_COMM_SELF);
  transfer(alone, P1, R1);
  const auto expected = plainOf(P1.getLocalMatrix(0)).dense();
  const std::size_t cols = static_cast<std::size_t>(P1.getCols());
  for (const Device& device : rankDevices()) {
    for (const Part& part : worldCuts<long>(72, rng)) {
      ParSparse<double> P, R;
      transfer(distributed<double, long>(device, part, part, a), P, R);
      EXPECT_EQ(P.getRows(), 72);
      EXPECT_EQ(P.getCols(), P1.getCols());
      EXPECT_TRUE(P.getRowPartitioner() == part);
      Part even;
      even.create(P.getCols(), worldSize());
      EXPECT_TRUE(P.getColPartitioner() == even);
      std::size_t found = 0;
      for (const auto& [at, v] : ownEntries(P)) {
        const std::size_t place =
            static_cast<std::size_t>(at.first) * cols + static_cast<std::size_t>(at.second);
        EXPECT_NEAR(v, expected[place], 1e-15);
        ++found;
      }
      for (const auto& [at, v] : ownEntries(R.transpose())) {
        EXPECT_EQ(v, P.getElementValue(at.first, at.second, nullptr));
      }
      long all = static_cast<long>(found);
      MPI_Allreduce(MPI_IN_PLACE, &all, 1, MPI_LONG, MPI_SUM, kCommWorld);
      EXPECT_EQ(all, P1.getNnzs());
    }
  }
}

// Entries of another rank's block are compared with this rank's diagonal at the block's column
// number, which counts as 0 beyond the end.
TEST(SmoothAggregationOnRanks, StrengthTakesTheOwnDiagonalInEveryBlock) {
  if (worldSize() != 2) return;
  const auto a = HostCsr<double>::build(5, 5, [](int i, HostCsr<double>& out) {
    for (int j = 0; j < 5; ++j) out.push(j, i == j ? 4.0 * (i + 1) : 1.0);
  });
  for (const Device& device : rankDevices()) {
    const Part part = partsAt<long>({0, 2, 5});
    const auto A = distributed<double, long>(device, part, part, a);
    Strength S;
    Ops::par_strength(A, A.getDiag(), S, 0.2);
    for (const auto& [at, v] : ownEntries(S)) {
      const auto& [i, j] = at;
      const long begin = i < 2 ? 0 : 2, rows = i < 2 ? 2 : 3;
      const long inBlock = j < 2 ? j : j - 2;
      const double dj = inBlock < rows ? 4.0 * static_cast<double>(begin + inBlock + 1) : 0.0;
      const bool strong = i != j && 1.0 > 0.2 * 0.2 * 4.0 * static_cast<double>(i + 1) * dj;
      EXPECT_EQ(v, strong ? 1 : 0) << i << " " << j;
    }
  }
}

// Hierarchies end, and conjugate gradients converge, whatever the aggregator and the split.
TEST(SmoothAggregationOnRanks, Preconditions) {
  std::mt19937 rng(37);
  // A collective on three ranks takes milliseconds on two cores.
  const int width = worldSize() > 2 ? 10 : 20;
  const auto a = laplacian<double>(width, 20);
  const auto cuts = worldCuts<long>(width * 20L, rng);
  for (const std::string name :
       {"AggregatorVMBSeq", "AggregatorFASPSeq", "AggregatorVMB", "AggregatorS2Greedy"}) {
    for (const Part& part : {cuts[2], cuts[3]}) {
      auto A = distributed<double, long>(rankDevices().back(), part, part, a);
      const json transfer = {
          {"level_transfer_type", "LevelTransferSmoothAggregation"},
          {"LevelTransferSmoothAggregation_params", {{"aggregator", {{"aggregator_type", name}}}}}};
      const json ssor = smootherOf("SmootherSSOR");
      const auto solver = ParSolverT<double, long, int>::getFactory().createInstance(
          {{"solver_type", "SolverPCG"},
           {"SolverPCG_params",
            {{"preconditioner",
              {{"preconditioner_type", "PrecondAMG"},
               {"PrecondAMG_params",
                {{"level_transfer", transfer},
                 {"pre_smoother", ssor},
                 {"post_smoother", ssor}}}}}}}});
      solver->preconditioner->setup(A);
      solver->setup(A);
      ParMatrixT<double, long, int> x, b;
      x.create(part, A.getDevice());
      x.fill(0);
      b.create(part, A.getDevice());
      b.fill(1);
      int iter = 0;
      double relres = 0;
      solver->solve(A, b, x, iter, relres);
      using Vector = ParMatrixT<double, long, int>;
      EXPECT_LT(Vector::residual(A, x, b), 2e-8 * Vector::normL2(b));
      EXPECT_LE(iter, name == "AggregatorVMBSeq" ? 16 : 60) << name;
    }
  }
}

}  // namespace
}  // namespace mivo::test
