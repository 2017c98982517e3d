// SPDX-License-Identifier: Apache-2.0

// Strength, independent sets and extended interpolation on one rank; RugeStubenTest.cpp has the
// rest of classical coarsening.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "mivo/level_transfer/ruge_stuben/HYPRERandom.hpp"
#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/ops/SpLevelTransferOps.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/classical.hpp"
#include "tests/support/graphs.hpp"

namespace mivo::test {
namespace {

using Ops = LevelTransferOps_RS<double, long, int>;
using Marks = std::vector<int>;

Marks pmis(const Device& device, const HostCsr<int>& s, int mode = 0, const Marks& given = {}) {
  const auto S = parSparseOf(device, s);
  ParSparse<double> A;
  A.create(S.getRowPartitioner(), S.getRowPartitioner(), {}, device);
  ParMatrixT<int, long, int> cf;
  if (!given.empty()) cf.createSeq(matrixOf(device, s.rows, 1, given), kCommWorld);
  Ops::par_BoomerAMGCoarsenPMIS(A, S, cf, mode);
  return valuesOf(cf);
}

// What ranks do not see is tested on ranks; sums of 0.05 leave next to no row.
TEST(ClassicalStrength, FollowsItsFormulaForBothSignsAndSeveralFunctions) {
  std::mt19937 rng(3);
  const auto strength = [](const Device& device, const HostCsr<double>& a, double sums,
                           int functions) {
    ParCSRMatrixT<int, long, int> S;
    const auto A = parSparseOf(device, a);
    Ops::par_BoomerAMGStrength(A, A.getDiag(), 0.25, sums, functions, S);
    return plainOf(S.getLocalMatrix(0));
  };
  auto a = randomMMatrix(rng, 40);
  // The bound is strict: a sum of exactly 0.5 of the diagonal passes one of 0.5.
  const auto half = plainRows<double>(2, {{{0, 2.0}, {1, -1.0}}, {{0, -1.0}, {1, 2.0}}});
  for (const Device& device : testDevices()) {
    for (const int functions : {1, 2, 3}) {
      for (const double sums : {0.05, 0.9, 1.0}) {
        for (double& v : a.values) v = -v;
        EXPECT_EQ(strength(device, a, sums, functions),
                  classicalStrength(a, 0.25, sums, functions));
      }
    }
    EXPECT_EQ(strength(device, half, 0.5, 1).row(0)[1].second, 1);
    EXPECT_EQ(strength(device, half, 0.49, 1).row(0)[1].second, 0);
  }
}

TEST(RandomNumbers, AreThoseOfTheMinimalStandard) {
  HYPRERandom::SeedRand(1);
  HYPRERandom::skip(10000);
  EXPECT_EQ(HYPRERandom::seed, 1043618065);  // Park and Miller (1988)
  HYPRERandom::SeedRand(2747);
  EXPECT_DOUBLE_EQ(HYPRERandom::Rand(), 2747.0 * 16807 / 2147483647.0);
  for (int k = 1; k < 1000; ++k) HYPRERandom::Rand();
  const auto state = HYPRERandom::seed;
  HYPRERandom::SeedRand(2747);
  HYPRERandom::skip(1000);
  EXPECT_EQ(HYPRERandom::seed, state);
  for (const auto& [given, seed] : {std::pair(2147483647, 2147483646), {-5, 1}}) {
    HYPRERandom::SeedRand(given);
    EXPECT_EQ(HYPRERandom::seed, seed);
  }
}

// The measure is the number of dependants and a random part below 1, which decides among equals: on
// a path all inner points have the same count.
TEST(IndependentSets, TakeTheGreatestMeasureFirst) {
  for (const Device& device : testDevices()) {
    const auto s = pathStrength(9);
    std::vector<double> measure(9, 2.0);
    measure[0] = measure[8] = 1.0;
    HYPRERandom::SeedRand(2747);
    for (double& m : measure) m += HYPRERandom::Rand();
    const Marks cf = pmis(device, s);
    const auto top = std::max_element(measure.begin(), measure.end()) - measure.begin();
    EXPECT_EQ(cf[static_cast<std::size_t>(top)], 1);
    // On one rank the weights of mode 2 are the same.
    EXPECT_EQ(pmis(device, s, 2), cf);
    // Modes 3 and 4 keep lonely points, mode 1 starts from marks.
    const auto lonely = strengthOf({{}, {2}, {1}});
    EXPECT_EQ(pmis(device, lonely)[0], -3);
    EXPECT_EQ(pmis(device, lonely, 3)[0], 1);
    EXPECT_EQ(pmis(device, pathStrength(3), 1, {1, 0, -3}), (Marks{1, -1, -3}));
    EXPECT_EQ(pmis(device, strengthOf({{}, {}}), 1, {-2, -3}), (Marks{-1, -3}));
  }
}

// Whole rows are compared with the formula on ranks.
TEST(ExtendedInterpolation, CutsRowsOnTheWayAndKeepsConstants) {
  std::mt19937 rng(17);
  for (const Device& device : testDevices()) {
    for (int round = 0; round < 12; ++round) {
      // Weights on a grid are often equal, those of random matrices are not.
      const bool grid = round % 3 == 2;
      const int n = grid ? 80 : 1 + static_cast<int>(rng() % 40);
      const auto a = grid ? laplacian<double>(10, 8) : randomMMatrix(rng, n);
      const auto s = classicalStrength(a, 0.25, 0.9, 1);
      const Marks cf = pmis(device, s);
      ParMatrixT<int, long, int> marks;
      marks.createSeq(matrixOf(device, n, 1, cf), kCommWorld);
      const auto interpolation = [&](double factor, int most) {
        ParSparse<double> P;
        long ncoarse = 0;
        Ops::par_BoomerAMGInterpolationExtendedPI(parSparseOf(device, a), parSparseOf(device, s),
                                                  marks, 1, {}, factor, most, ncoarse, false, P);
        EXPECT_EQ(ncoarse, std::count(cf.begin(), cf.end(), 1));
        return CSRMatrixT<double, int>(P.getLocalMatrix(0));
      };
      // Cut on the way, rows have the same entries in the same order as those of a cut whole P.
      const auto whole = interpolation(0, 0);
      EXPECT_EQ(plainOf(whole), plainOf(whole).sorted());
      HostCsr<double> p;
      for (const auto& [factor, most] :
           {std::pair(0.0, 9), std::pair(0.0, 4), std::pair(0.0, 1), std::pair(0.1, 2)}) {
        p = plainOf(interpolation(factor, most));
        if (whole.getNnz() == 0) continue;
        CSRMatrixT<double, int> cut;
        Ops::par_BoomerAMGCSRMatrixTruncate(whole, factor, most, true, 0, cut);
        EXPECT_EQ(p, plainOf(cut)) << most;
      }
      // Rows that sum to 0 and have no neighbour of mark -3 interpolate constants, also with at
      // most two entries.
      for (int i = 0; i < p.rows; ++i) {
        double sum = 0, weights = 0;
        bool lonely = false;
        for (const auto& [j, v] : a.row(i)) {
          sum += v;
          lonely = lonely || cf[static_cast<std::size_t>(j)] == -3;
        }
        for (const auto& entry : p.row(i)) weights += entry.second;
        EXPECT_LE(p.row(i).size(), 2u);
        const bool constant = std::fabs(sum) < 1e-12 && !lonely && !p.row(i).empty();
        EXPECT_TRUE(!constant || std::fabs(weights - 1) < 1e-11) << i << " " << weights;
      }
    }
  }
}

TEST(Truncation, DropsByNormThenByNumberAndKeepsSums) {
  const auto p =
      plainRows<double>(6, {{{0, 4.0}, {1, -1.0}, {2, 2.0}, {3, 0.5}, {4, -2.0}}, {{5, 1.0}}});
  for (const Device& device : testDevices()) {
    const auto truncate = [&](double factor, int most, bool rescale, int norm) {
      CSRMatrixT<double, int> out;
      Ops::par_BoomerAMGCSRMatrixTruncate(sparseOf(device, p), factor, most, rescale, norm, out);
      return plainOf(out);
    };
    using Row = std::vector<std::pair<int, double>>;
    EXPECT_EQ(truncate(0, 0, true, 0), p);
    EXPECT_EQ(truncate(0.5, 0, false, 0).row(0), (Row{{0, 4.0}, {2, 2.0}, {4, -2.0}}));
    // Norms 4, 9.5 and 5.05: thresholds 0.8, 1.9 and 1.01 for a fifth.
    EXPECT_EQ(truncate(0.2, 0, false, 0).row(0).size(), 4u);
    EXPECT_EQ(truncate(0.2, 0, false, 1).row(0).size(), 3u);
    EXPECT_EQ(truncate(0.2, 0, false, 2).row(0).size(), 3u);
    // The sum 3.5 stays: 4 + 2 - 2 is scaled by 3.5 / 4.
    EXPECT_EQ(truncate(0.5, 0, true, 0).row(0), (Row{{0, 3.5}, {2, 1.75}, {4, -1.75}}));
    EXPECT_EQ(truncate(0, 1, true, 0).row(0), (Row{{0, 3.5}}));
    EXPECT_EQ(truncate(0.5, 4, true, 0).row(1), (Row{{5, 1.0}}));
  }
}

// The order among equals is that of the scheme: the middle one moves to the front, nothing passes
// it, the rest follows.
TEST(Truncation, SortsByQuicksortWithTheMiddleAsPivot) {
  using Sort = SpLevelTransferOps<double, long, int>;
  const auto sorted = [](const std::vector<double>& v) {
    const int last = static_cast<int>(v.size()) - 1;
    std::vector<int> c(v.size());
    std::iota(c.begin(), c.end(), 0);
    auto c_host = c;
    auto v_host = v;
    Sort::hypre_qsort2_abs(c_host.data(), v_host.data(), 0, last);
    EXPECT_TRUE(std::is_sorted(v_host.begin(), v_host.end(),
                               [](double x, double y) { return std::fabs(x) > std::fabs(y); }));
    for (const Device& device : testDevices()) {
      DeviceArray<int> columns(device, c);
      DeviceArray<double> values(device, v);
      Sort::hypre_qsort2_abs(device, columns.data(), values.data(), 0, last);
      EXPECT_EQ(columns.values(), c_host);
      EXPECT_EQ(values.values(), v_host);
    }
    return c_host;
  };
  // 5 equals: pivot 2 to the front: 2 1 0 3 4; then 1 0 3 4 by pivot 0: 0 1 3 4; then 3, ...
  EXPECT_EQ(sorted({1, 1, 1, 1, 1}), (std::vector<int>{2, 0, 3, 1, 4}));
  EXPECT_EQ(sorted({1, -3, 2}), (std::vector<int>{1, 2, 0}));
  EXPECT_EQ(sorted({}), std::vector<int>{});
  std::mt19937 rng(2);
  std::vector<double> many(500);
  for (double& v : many) v = static_cast<double>(rng() % 50) - 25;
  sorted(many);
}

}  // namespace
}  // namespace mivo::test
