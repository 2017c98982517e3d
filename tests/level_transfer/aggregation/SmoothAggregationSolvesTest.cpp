// SPDX-License-Identifier: Apache-2.0

// Hierarchies of smoothed aggregation, and what converges with them, on one rank.

#include <gmock/gmock.h>

#include <cmath>
#include <random>

#include "tests/support/amg.hpp"

namespace mivo::test {
namespace {

json aggregation(const std::string& form, const std::string& aggregator = "AggregatorVMBSeq") {
  return {{"level_transfer_type", form},
          {form + "_params", {{"aggregator", {{"aggregator_type", aggregator}}}}}};
}

json hierarchy(const json& pre, const json& post,
               const json& transfer = aggregation("LevelTransferSmoothAggregation")) {
  return {{"level_transfer", transfer}, {"pre_smoother", pre}, {"post_smoother", post}};
}

// On each level: the operator against the dense product, symmetry, compact numbers.
TEST(SmoothAggregationHierarchy, HasGalerkinOperatorsOnEveryLevel) {
  std::mt19937 rng(1);
  // Nine points with couplings of very different strength in the two directions.
  const auto nine = HostCsr<double>::build(144, 144, [](int i, HostCsr<double>& out) {
    for (int dy = -1; dy <= 1; ++dy) {
      for (int dx = -1; dx <= 1; ++dx) {
        const int x = i % 12 + dx, y = i / 12 + dy;
        if (x < 0 || x >= 12 || y < 0 || y >= 12) continue;
        const double v = dx == 0 && dy == 0 ? 2.3 : dy == 0 ? -1 : dx == 0 ? -0.02 : -0.01;
        out.push(12 * y + x, v);
      }
    }
  });
  std::vector<double> dense(60 * 60, 0.0);
  for (int e = 0; e < 300; ++e) {
    const std::size_t i = rng() % 60, j = rng() % 60;
    if (i == j) continue;
    const double v = 1.0 + static_cast<double>(rng() % 100);
    for (const std::size_t at : {i * 60 + j, j * 60 + i}) dense[at] -= v;
    dense[i * 61] += v + 0.5;
    dense[j * 61] += v;
  }
  for (const auto& a :
       {laplacian<double>(17, 13), nine, HostCsr<double>::fromDense(60, 60, dense)}) {
    for (const std::string form :
         {"LevelTransferSmoothAggregation", "LevelTransferSmoothAggregationSeq"}) {
      const json smoother = smootherOf("SmootherSSOR");
      json params = hierarchy(smoother, smoother, aggregation(form));
      params["min_coarse_size"] = 2;
      const auto amg = makeAmg<double>(params);
      const auto A = parSparseOf(testDevices().back(), a);
      amg->setup(A);
      ASSERT_GE(amg->levels.size(), 3u);
      for (std::size_t l = 0; l + 1 < amg->levels.size(); ++l) {
        const auto& level = amg->levels[l];
        const auto fine = plainOf(level.A.getLocalMatrix(0)).dense();
        const auto p = plainOf(level.P.getLocalMatrix(0)).dense();
        const auto coarse = plainOf(amg->levels[l + 1].A.getLocalMatrix(0)).dense();
        const std::size_t n = static_cast<std::size_t>(level.A.getRows());
        const std::size_t m = static_cast<std::size_t>(level.P.getCols());
        ASSERT_EQ(coarse.size(), m * m);
        double scale = 0, worst = 0, skew = 0;
        for (std::size_t i = 0; i < m; ++i) {
          for (std::size_t j = 0; j < m; ++j) {
            double sum = 0;
            for (std::size_t k = 0; k < n; ++k) {
              if (p[k * m + i] == 0) continue;
              for (std::size_t q = 0; q < n; ++q) {
                sum += p[k * m + i] * fine[k * n + q] * p[q * m + j];
              }
            }
            scale = std::max(scale, std::fabs(sum));
            worst = std::max(worst, std::fabs(sum - coarse[i * m + j]));
            skew = std::max(skew, std::fabs(coarse[i * m + j] - coarse[j * m + i]));
          }
        }
        EXPECT_LE(worst, 1e-13 * scale) << l;
        EXPECT_LE(skew, 1e-13 * scale) << l;
        const auto counts = plainOf(level.R.getLocalMatrix(0));
        for (int c = 0; c < counts.rows; ++c) EXPECT_FALSE(counts.row(c).empty()) << c;
      }
    }
  }
}

TEST(SmoothAggregationSolves, ConjugateGradientsInFewIterations) {
  const json ssor = smootherOf("SmootherSSOR");
  for (const std::string form :
       {"LevelTransferSmoothAggregation", "LevelTransferSmoothAggregationSeq"}) {
    const json amg = hierarchy(ssor, ssor, aggregation(form));
    EXPECT_LE(multigridIterations(2, 64, amg), 12) << form;
    EXPECT_LE(multigridIterations(3, 24, amg), 13) << form;
  }
}

// A forward sweep each way makes an operator that is not symmetric: conjugate gradients lose their
// way, while the adjoint sweep upward keeps it.
TEST(SmoothAggregationSolves, WithSorDownwardOnlyByItsAdjointUpward) {
  const json forward = smootherOf("SmootherSOR");
  const json backward = smootherOf("SmootherSOR", {{"forward", false}});
  json good = hierarchy(forward, backward), bad = hierarchy(forward, forward);
  good["coarse_solver"] = bad["coarse_solver"] = solverOf("SolverGaussElim");
  const int adjoint = multigridIterations(3, 24, good);
  EXPECT_LE(adjoint, 16);
  EXPECT_GT(multigridIterations(3, 24, bad), adjoint);
}

TEST(SmoothAggregationSolves, WithEachSmoother) {
  const json jacobi = smootherOf("SmootherJacobi", {{"relax", 0.67}});
  const json list = smootherOf("SmootherList", {jacobi, jacobi});
  for (const json& smoother : {jacobi, smootherOf("SmootherJacobiLp"), smootherOf("SmootherSSOR"),
                               smootherOf("SmootherSOR"), list}) {
    const json post = smoother["smoother_type"] == "SmootherSOR"
                          ? smootherOf("SmootherSOR", {{"forward", false}})
                          : smoother;
    EXPECT_LE(multigridIterations(2, 40, hierarchy(smoother, post)), 30) << smoother;
  }
}

}  // namespace
}  // namespace mivo::test
