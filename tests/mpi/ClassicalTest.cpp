// SPDX-License-Identifier: Apache-2.0

// Strength, independent sets and extended interpolation on several ranks, and the pipelines.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/precond/HierarchyStatistics.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/classical.hpp"
#include "tests/support/graphs.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

using Ops = LevelTransferOps_RS<double, long, int>;
using Part = PartitionerT<long, int>;
using Strength = ParCSRMatrixT<int, long, int>;
using Marks = ParMatrixT<int, long, int>;
using Matrix = ParSparse<double>;

/// All entries of a matrix as a dense one, on every rank.
std::vector<double> denseEverywhere(const Matrix& A) {
  const std::size_t cols = static_cast<std::size_t>(A.getCols());
  std::vector<double> mine(static_cast<std::size_t>(A.getRows()) * cols, 0.0), all(mine);
  for (const auto& [at, v] : ownEntries(A)) {
    mine[static_cast<std::size_t>(at.first) * cols + static_cast<std::size_t>(at.second)] = v;
  }
  MPI_Allreduce(mine.data(), all.data(), static_cast<int>(all.size()), MPI_DOUBLE, MPI_SUM,
                kCommWorld);
  return all;
}

Marks marksOf(const Device& device, const Part& part, const std::vector<int>& all) {
  return ownColumn<int, long>(device, part, all);
}

// Termination on random graphs, symmetric or not; on symmetric ones the C points are independent,
// but for equal measures, and cover. 200 graphs on 1 to 4 ranks together.
TEST(IndependentSetsOnRanks, EndAndCover) {
  std::mt19937 rng(41);
  const int rounds = worldSize() > 2 ? 20 : 80;
  for (int round = 0; round < rounds; ++round) {
    const int n = static_cast<int>(rng() % 40);
    const bool symmetric = round % 2 == 0;
    const auto s = randomStrength(rng, n, symmetric);
    const auto cuts = worldCuts<long>(n, rng);
    const Part& part = cuts[static_cast<std::size_t>(round) % cuts.size()];
    const auto devices = rankDevices();
    const Device device = devices[static_cast<std::size_t>(round) % devices.size()];
    const Strength S = distributed<int, long>(device, part, part, s);
    Matrix A;
    A.create(part, part, {}, device);
    std::vector<int> first;
    for (int again = 0; again < 2; ++again) {
      Marks cf;
      Ops::par_BoomerAMGCoarsenPMIS(A, S, cf, 0);
      const auto all = everywhere(cf);
      EXPECT_TRUE(first.empty() || all == first) << "not the same each time";
      first = all;
    }
    for (int i = 0; i < n; ++i) {
      const int mark = first[static_cast<std::size_t>(i)];
      EXPECT_EQ(mark == -3, !isCoupled(s, i)) << round << " " << i;
      bool nearC = false;
      for (const auto& [j, v] : s.row(i)) {
        nearC = nearC || (v != 0 && first[static_cast<std::size_t>(j)] == 1);
      }
      EXPECT_TRUE(!symmetric || mark == -3 || (mark == 1) != nearC) << round << " " << i;
    }
    // The weights of one rank give the marks of one rank.
    Strength alone;
    alone.createSeq(sparseOf(Device(), s), MPI_COMM_SELF);
    Matrix one;
    one.create(alone.getRowPartitioner(), alone.getRowPartitioner(), {}, Device(), MPI_COMM_SELF);
    Marks cf, expected;
    Ops::par_BoomerAMGCoarsenPMIS(A, S, cf, 2);
    if (n > 0) {
      Ops::par_BoomerAMGCoarsenPMIS(one, alone, expected, 2);
      EXPECT_EQ(everywhere(cf), valuesOf(expected)) << round;
    }
  }
}

TEST(ClassicalOnRanks, StrengthDoesNotSeeTheRanks) {
  std::mt19937 rng(43);
  const auto a = randomMMatrix(rng, 30);
  for (const Device& device : rankDevices()) {
    for (const Part& part : worldCuts<long>(30, rng)) {
      const auto A = distributed<double, long>(device, part, part, a);
      const auto s = classicalStrength(a, 0.25, 0.9, 2);
      Strength S;
      Ops::par_BoomerAMGStrength(A, A.getDiag(), 0.25, 0.9, 2, S);
      EXPECT_EQ(ownEntries(S), ownEntries(distributed<int, long>(device, part, part, s)));
    }
  }
}

// Given the same marks the interpolation is that of one rank, to rounding.
TEST(ClassicalOnRanks, ExtendedInterpolationIsThatOfOneRank) {
  std::mt19937 rng(47);
  for (int round = 0; round < (worldSize() > 2 ? 2 : 6); ++round) {
    const int n = 24;
    const auto a = randomMMatrix(rng, n);
    const auto s = classicalStrength(a, 0.25, 0.9, 1);
    std::vector<int> cf(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
      cf[static_cast<std::size_t>(i)] = !isCoupled(s, i) ? -3 : rng() % 3 == 0 ? 1 : -1;
    }
    std::size_t cols = 0;
    const auto expected = extendedInterpolation(a, s, cf, &cols);
    for (const Device& device : rankDevices()) {
      for (const Part& part : worldCuts<long>(n, rng)) {
        auto A = distributed<double, long>(device, part, part, a);
        auto S = distributed<int, long>(device, part, part, s);
        const Marks marks = marksOf(device, part, cf);
        // All rows of one function: as if there were no others. Ranks without rows give none.
        const auto dof = ownColumn<int, long>(device, part, std::vector<int>(cf.size(), 1));
        for (const int functions : {1, 2}) {
          long count = 0;
          Matrix P;
          Ops::par_BoomerAMGInterpolationExtendedPI(A, S, marks, functions, dof.getLocalMatrix(), 0,
                                                    0, count, false, P);
          EXPECT_EQ(count, static_cast<long>(cols));
          EXPECT_TRUE(P.getRowPartitioner() == part);
          const auto extended = denseEverywhere(P);
          ASSERT_EQ(extended.size(), expected.size());
          for (std::size_t k = 0; k < expected.size(); ++k) {
            EXPECT_NEAR(extended[k], expected[k], 1e-11 * (1 + std::fabs(expected[k])));
          }
        }
      }
    }
  }
}

TEST(ClassicalOnRanks, PipelinesPrecondition) {
  std::mt19937 rng(53);
  using Vector = ParMatrixT<double, long, int>;
  const int width = worldSize() > 2 ? 10 : 20;
  const auto a = laplacian<double>(width, 20);
  const auto cuts = worldCuts<long>(width * 20L, rng);
  for (const std::string name :
       {"LevelTransferBoomerAMG", "LevelTransferRugeStuben", "LevelTransferRugeStubenSeq"}) {
    for (const Part& part : {cuts[2], cuts[3]}) {
      auto A = distributed<double, long>(rankDevices().back(), part, part, a);
      const json ssor = smootherOf("SmootherSSOR");
      const auto solver = ParSolverT<double, long, int>::getFactory().createInstance(
          {{"solver_type", "SolverPCG"},
           {"SolverPCG_params",
            {{"preconditioner",
              {{"preconditioner_type", "PrecondAMG"},
               {"PrecondAMG_params",
                {{"level_transfer", {{"level_transfer_type", name}}},
                 {"pre_smoother", ssor},
                 {"post_smoother", ssor}}}}}}}});
      solver->preconditioner->setup(A);
      solver->setup(A);
      Vector x, b;
      x.create(part, A.getDevice());
      x.fill(0);
      b.create(part, A.getDevice());
      b.fill(1);
      int iter = 0;
      double relres = 0;
      solver->solve(A, b, x, iter, relres);
      EXPECT_LT(Vector::residual(A, x, b), 2e-8 * Vector::normL2(b)) << name;
      EXPECT_LE(iter, 16) << name;
    }
  }
}

// Sizes against the matrices themselves, and bytes against what a program can count.
TEST(HierarchyOnRanks, DescribesItself) {
  std::mt19937 rng(59);
  const Part part = worldCuts<long>(400, rng)[2];
  const auto A = distributed<double, long>(Device(), part, part, laplacian<double>(20, 20));
  const auto amg =
      makeAmg<double>({{"level_transfer", {{"level_transfer_type", "LevelTransferBoomerAMG"}}},
                       {"pre_smoother", smootherOf("SmootherJacobi")},
                       {"post_smoother", smootherOf("SmootherSSOR")}});
  EXPECT_TRUE(amg->getStatistics().levels.empty());
  EXPECT_EQ(amg->getBytes(), 0u);
  amg->setup(A);
  const HierarchyStatistics stats = amg->getStatistics();
  ASSERT_EQ(stats.levels.size(), amg->levels.size());
  ASSERT_GT(stats.levels.size(), 2u);
  const auto blockBytes = [](const Matrix& m) {
    double bytes = 0;
    for (int p = 0; p < worldSize(); ++p) {
      const auto block = m.getLocalMatrix(p);
      if (block.getNnz() > 0) bytes += 4.0 * (block.getRows() + 1) + 12.0 * block.getNnz();
    }
    return bytes;
  };
  double own = 0, entries = 0;
  for (std::size_t l = 0; l < stats.levels.size(); ++l) {
    const auto& level = amg->levels[l];
    const auto& row = stats.levels[l];
    own += (l > 0 ? blockBytes(level.A) : 0) + blockBytes(level.P) + blockBytes(level.R);
    entries += static_cast<double>(level.A.getNnzs());
    const auto offsets = level.A.getRowPartitioner().getOffsets();
    std::vector<long> sizes;
    for (std::size_t p = 1; p < offsets.size(); ++p) sizes.push_back(offsets[p] - offsets[p - 1]);
    EXPECT_EQ(row.rows, level.A.getRows());
    EXPECT_EQ(row.rows_min, *std::min_element(sizes.begin(), sizes.end()));
    EXPECT_EQ(row.rows_max, *std::max_element(sizes.begin(), sizes.end()));
    EXPECT_EQ(row.entries, level.A.getNnzs());
    EXPECT_EQ(row.prolongation_entries, level.P.getNnzs());
    EXPECT_EQ(row.smoother, "SmootherJacobi, SmootherSSOR");
  }
  double all = 0;
  MPI_Allreduce(&own, &all, 1, MPI_DOUBLE, MPI_SUM, kCommWorld);
  EXPECT_EQ(static_cast<double>(stats.matrix_bytes), all);
  EXPECT_EQ(stats.operatorComplexity(), entries / static_cast<double>(A.getNnzs()));
  EXPECT_GT(stats.setup_time, 0);

  // A cycle makes vectors, as many elements as two rows of each level and two of the next, at
  // least.
  const std::size_t before = amg->getBytes();
  EXPECT_GE(static_cast<double>(before), own);
  ParVector<double> x(A.getRowPartitioner(), Device()), b(A.getRowPartitioner(), Device());
  b.fill(1);
  x.fill(0);
  amg->precondition(b, x);
  const std::size_t after = amg->getBytes();
  EXPECT_GE(after, before + 16u * static_cast<std::size_t>(A.getLocalRows()));
  amg->precondition(b, x);
  EXPECT_EQ(amg->getBytes(), after);
}

}  // namespace
}  // namespace mivo::test
