// SPDX-License-Identifier: Apache-2.0

// Strength, independent sets and interpolation on several ranks, and the pipelines.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "mivo/level_transfer/ruge_stuben/ParLevelTransferRugeStuben.hpp"
#include "mivo/precond/HierarchyStatistics.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/classical.hpp"
#include "tests/support/graphs.hpp"
#include "tests/support/ranks.hpp"
#include "tests/support/ruge_stuben.hpp"

namespace mivo::test {
namespace {

using Ops = LevelTransferOps_RS<double, long, int>;
using Part = PartitionerT<long, int>;
using Strength = ParCSRMatrixT<int, long, int>;
using Marks = ParMatrixT<int, long, int>;
using Matrix = ParSparse<double>;

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
    const Strength S = distributed(device, part, part, s);
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
  const auto s = classicalStrength(a, 0.25, 0.9, 2);
  forEachCut(30, rng, [&](const Part& part, const Device& device) {
    const auto A = distributed(device, part, part, a);
    Strength S;
    Ops::par_BoomerAMGStrength(A, A.getDiag(), 0.25, 0.9, 2, S);
    EXPECT_EQ(ownEntries(S), ownEntries(part, s));
  });
}

// Given the same marks the interpolation is that of one rank, to rounding.
TEST(ClassicalOnRanks, ExtendedInterpolationIsThatOfOneRank) {
  std::mt19937 rng(47);
  for (int round = 0; round < (worldSize() > 2 ? 2 : 6); ++round) {
    const int n = 24;
    const auto a = randomMMatrix(rng, n);
    const auto s = classicalStrength(a, 0.25, 0.9, 1);
    std::vector<int> cf;
    for (int i = 0; i < n; ++i) cf.push_back(!isCoupled(s, i) ? -3 : rng() % 3 == 0 ? 1 : -1);
    std::size_t cols = 0;
    const auto expected = extendedInterpolation(a, s, cf, &cols);
    forEachCut(n, rng, [&](const Part& part, const Device& device) {
      auto A = distributed(device, part, part, a);
      auto S = distributed(device, part, part, s);
      const auto marks = ownColumn(device, part, cf);
      // All rows of one function: as if there were no others. Ranks without rows give none.
      const auto dof = ownColumn(device, part, std::vector<int>(cf.size(), 1));
      for (const int functions : {1, 2}) {
        long count = 0;
        Matrix P;
        Ops::par_BoomerAMGInterpolationExtendedPI(A, S, marks, functions, dof.getLocalMatrix(), 0,
                                                  0, count, false, P);
        EXPECT_EQ(count, static_cast<long>(cols));
        EXPECT_TRUE(P.getRowPartitioner() == part);
        const auto [begin, end] = rangeOf(part);
        auto found = ownEntries(P);
        for (long i = begin; i < end; ++i) {
          for (long j = 0; j < count; ++j) {
            const double v = expected[static_cast<std::size_t>(i * count + j)];
            EXPECT_NEAR((found[{i, j}]), v, 1e-11 * (1 + std::fabs(v)));
          }
        }
      }
    });
  }
}

// Direct interpolation.

/// The same matrix with the entries of each row from the last to the first.
template <class T>
ParSparse<T> backwards(const ParSparse<T>& A) {
  std::vector<CSRMatrixT<T, int>> blocks;
  for (int p = 0; p < worldSize(); ++p) {
    const auto block = plainOf(A.getLocalMatrix(p));
    const auto turned = HostCsr<T>::build(block.rows, block.cols, [&](int i, HostCsr<T>& out) {
      const auto row = block.row(i);
      for (auto entry = row.rbegin(); entry != row.rend(); ++entry) {
        out.push(entry->first, entry->second);
      }
    });
    blocks.push_back(sparseOf(A.getDevice(), turned));
  }
  ParSparse<T> out;
  out.create(A.getRowPartitioner(), A.getColPartitioner(), blocks, A.getDevice());
  return out;
}

template <class T>
class DirectInterpolationOnRanks : public testing::Test {};
using DoubleTypes = testing::Types<double, Complex<double>>;
TYPED_TEST_SUITE(DirectInterpolationOnRanks, DoubleTypes);

// For the same marks, also when the weak entries have left S, and some of its blocks with them, and
// when rows are in no order.
TYPED_TEST(DirectInterpolationOnRanks, IsThatOfOneRank) {
  using T = TypeParam;
  using OpsT = LevelTransferOps_RS<T, long, int>;
  std::mt19937 rng(1);
  for (const int n : {3, 23}) {
    forEachCut(n, rng, [&](const Part& part, const Device& device) {
      const bool do_trunc = rng() % 2 == 0;
      const auto problem = DirectProblem<T>::random(rng, n, 1, -1);
      long ncoarse = -1;
      CSRMatrixT<T, int> whole;
      OpsT::interpolation(sparseOf(Device(), problem.a), sparseOf(Device(), problem.s),
                          matrixOf(Device(), n, 1, problem.cf), do_trunc, 0.4, 1, -1, ncoarse,
                          whole);
      auto A = distributed(device, part, part, problem.a);
      auto S = distributed(device, part, part, problem.s);
      const auto cf = ownColumn(device, part, problem.cf);
      if (rng() % 2 == 0) {
        A = backwards(A);
        S = backwards(S);
      }
      for (const bool sparse : {false, true}) {
        ParSparse<T> P;
        long found = -1;
        OpsT::par_interpolation(A, sparse ? S.sparsify(0) : S, cf, do_trunc, 0.4, 1, -1, found, P);
        EXPECT_EQ(found, ncoarse);
        expectRowsOf(P, plainOf(whole), part, 1e-13);
      }
    });
  }
}

// Connections cross the ranks, splittings stay within them.
TEST(RugeStuebenOnRanks, ConnectsWholeRowsAndSplitsOwnBlocks) {
  std::mt19937 rng(2);
  const int n = 29;
  forEachCut(n, rng, [&](const Part& part, const Device& device) {
    const auto a = DirectProblem<double>::random(rng, n, 1, -1).a;
    CSRMatrixT<int, int> s;
    MatrixT<int, int> marks;
    Ops::connect(sparseOf(Device(), a), 0.3, s, marks);
    const auto A = distributed(device, part, part, a);
    ParSparse<int> S;
    ParMatrixT<int, long, int> cf;
    Ops::par_connect(A, 0.3, S, cf);
    EXPECT_EQ(valuesOf(cf), ownPart(part, valuesOf(marks)));
    EXPECT_EQ(ownEntries(S), ownEntries(part, plainOf(s)));

    Ops::par_rs_cfsplit(A, S, cf);
    const auto own = S.getLocalMatrix(worldRank()).toDevice(Device());
    auto expected = matrixOf(Device(), part.getLocalSizeForPart(worldRank()), 1,
                             ownPart(part, valuesOf(marks)));
    Ops::cfsplit(CSRMatrixT<double, int>(), own, expected);
    EXPECT_EQ(valuesOf(cf), valuesOf(expected));
  });
}

// The form on rank 0 gives every rank its rows of what one rank gets. The distributed one puts the
// steps above together.
TEST(RugeStuebenOnRanks, ProlongsAsOnOneRank) {
  std::mt19937 rng(3);
  const auto a = laplacian<double>(9, 8);
  SeqLevelTransferRugeStuben_T<double, long, int> alone;
  Matrix P1, R1;
  alone.transfer_operators(parSparseOf(Device(), a, kCommSelf), P1, R1);
  forEachCut(72, rng, [&](const Part& part, const Device& device) {
    const auto A = distributed(device, part, part, a);
    Matrix P, R;
    SeqLevelTransferRugeStuben_T<double, long, int> gathered;
    gathered.transfer_operators(A, P, R);
    expectRowsOf(P, plainOf(P1.getLocalMatrix(0)), part, 1e-13);
    EXPECT_EQ(ownEntries(R.transpose()), ownEntries(P));
    EXPECT_EQ(gathered.impl, nullptr);

    ParLevelTransferRugeStuben_T<double, long, int> spread;
    spread.keep = true;
    spread.transfer_operators(A, P, R);
    const auto& kept = *spread.impl;
    Matrix expected;
    long ncoarse = -1;
    Ops::par_interpolation(A, kept.parS, kept.parCf, true, 0.2, 1, -1, ncoarse, expected);
    EXPECT_GT(ncoarse, 0);
    expectNearEntries(ownEntries(P), ownEntries(expected), 1e-13);
    EXPECT_EQ(ownEntries(R.transpose()), ownEntries(P));
    for (const auto& [at, v] : ownEntries(R.multiply(A).multiply(P))) {
      EXPECT_NEAR(kept.Ac.getElementValue(at.first, at.second, nullptr), v, 1e-13);
    }
  });
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
  ParMatrixT<double, long, int> x, b;
  x.create(part, Device());
  b.create(part, Device());
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
