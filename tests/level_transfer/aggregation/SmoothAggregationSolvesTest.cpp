// SPDX-License-Identifier: Apache-2.0

// Hierarchies of smoothed aggregation, and what converges with them, on one rank.

#include <gmock/gmock.h>

#include <cmath>
#include <random>

#include "mivo/testcase/TestCase.hpp"
#include "tests/support/amg.hpp"

namespace mivo::test {
namespace {

using Matrix = ParSparse<double>;
using Vector = ParMatrixT<double, long, int>;
using Solver = ParSolverT<double, long, int>;

json aggregation(const std::string& form, const std::string& aggregator = "AggregatorVMBSeq") {
  return {{"level_transfer_type", form},
          {form + "_params", {{"aggregator", {{"aggregator_type", aggregator}}}}}};
}

json hierarchy(const json& pre, const json& post,
               const json& transfer = aggregation("LevelTransferSmoothAggregation")) {
  return {{"level_transfer", transfer}, {"pre_smoother", pre}, {"post_smoother", post}};
}

struct System {
  Matrix A;
  Vector x, b;
};

System poisson(int dim, int n) {
  System out;
  const auto testcase = TestCaseT<double, long, int>::getFactory().createInstance(
      {{"testcase_type", "PoissonFDM"}, {"PoissonFDM_params", {{"dim", dim}, {"N", n}}}});
  testcase->generate(out.A, out.x, out.b);
  out.x.fill(0);
  return out;
}

/// Iterations to |r| = 1e-8 |b|, or -1.
int iterations(System system, const std::string& solver, const json& preconditioner,
               int most = 400) {
  const auto s = Solver::getFactory().createInstance(
      {{"solver_type", solver},
       {solver + "_params",
        {{"rtol", 1e-8}, {"max_its", most}, {"preconditioner", preconditioner}}}});
  s->preconditioner->setup(system.A);
  s->setup(system.A);
  int iter = -1;
  double relres = 0;
  s->solve(system.A, system.b, system.x, iter, relres);
  const double r = Vector::residual(system.A, system.x, system.b) / Vector::normL2(system.b);
  return r < 2e-8 ? iter : -1;
}

json precond(const json& params) {
  return {{"preconditioner_type", "PrecondAMG"}, {"PrecondAMG_params", params}};
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
    const json amg = precond(hierarchy(ssor, ssor, aggregation(form)));
    const int small = iterations(poisson(2, 64), "SolverPCG", amg);
    EXPECT_TRUE(small > 0 && small <= 12) << small;
    const int solid = iterations(poisson(3, 24), "SolverPCG", amg);
    EXPECT_TRUE(solid > 0 && solid <= 13) << solid;
  }
}

TEST(SmoothAggregationSolves, AsASolverWithAResidualThatFallsInEachCycle) {
  System system = poisson(2, 100);
  const json ssor = smootherOf("SmootherSSOR");
  const auto amg = makeAmg<double>(hierarchy(ssor, ssor));
  amg->setup(system.A);
  // x = 0 is wrong on the boundary, whose rows are scaled otherwise than those beside them: once it
  // is right there, what had been an error of 1 weighs 1 / h^2.
  amg->amg_step(system.b, system.x);
  double last = Vector::residual(system.A, system.x, system.b);
  for (int cycle = 0; cycle < 30; ++cycle) {
    amg->amg_step(system.b, system.x);
    const double now = Vector::residual(system.A, system.x, system.b);
    EXPECT_LT(now, last) << cycle;
    last = now;
  }
  int iter = 0;
  double relres = 1;
  amg->solve(system.A, system.b, system.x, iter, relres);
  EXPECT_LT(relres, 1e-8);
}

// A forward sweep each way makes an operator that is not symmetric: conjugate gradients lose their
// way, while the adjoint sweep upward keeps it.
TEST(SmoothAggregationSolves, WithSorDownwardOnlyByItsAdjointUpward) {
  const json forward = smootherOf("SmootherSOR");
  const json backward = smootherOf("SmootherSOR", {{"forward", false}});
  json good = hierarchy(forward, backward), bad = hierarchy(forward, forward);
  for (json* params : {&good, &bad}) {
    (*params)["coarse_solver"] = {{"solver_type", "SolverGaussElim"}};
  }
  const int adjoint = iterations(poisson(3, 24), "SolverPCG", precond(good));
  const int same = iterations(poisson(3, 24), "SolverPCG", precond(bad));
  EXPECT_TRUE(adjoint > 0 && adjoint <= 16) << adjoint;
  EXPECT_TRUE(same < 0 || same > adjoint) << same;
}

TEST(SmoothAggregationSolves, WithEachSmootherCoarseSolverAndKrylovMethod) {
  const json jacobi = smootherOf("SmootherJacobi", {{"relax", 0.67}});
  const json list = {{"smoother_type", "SmootherList"}, {"SmootherList_params", {jacobi, jacobi}}};
  for (const json& smoother : {jacobi, smootherOf("SmootherJacobiLp"), smootherOf("SmootherSSOR"),
                               smootherOf("SmootherSOR"), list}) {
    const json post = smoother["smoother_type"] == "SmootherSOR"
                          ? smootherOf("SmootherSOR", {{"forward", false}})
                          : smoother;
    const int n = iterations(poisson(2, 40), "SolverPCG", precond(hierarchy(smoother, post)));
    EXPECT_TRUE(n > 0 && n <= 30) << smoother << n;
  }
  for (const std::string coarse : {"SolverGaussElim", "SolverPCG", "SolverBiCGSTAB", "SolverMINRES",
                                   "SolverFLGMRES_R", "SolverSSOR", "SolverJacobi", "SolverAMG"}) {
    json params = hierarchy(jacobi, jacobi);
    params["max_levels"] = 2;
    params["coarse_solver"] = {{"solver_type", coarse}};
    if (coarse == "SolverAMG") {
      params["coarse_solver"]["SolverAMG_params"] = hierarchy(jacobi, jacobi);
    }
    const int n = iterations(poisson(2, 24), "SolverPCG", precond(params));
    EXPECT_TRUE(n > 0 && n <= 25) << coarse << n;
  }
  const json amg = precond(hierarchy(jacobi, jacobi));
  for (const std::string solver :
       {"SolverPCG", "SolverBiCGSTAB", "SolverFLGMRES_R", "SolverMINRES", "SolverSYMMLQ"}) {
    for (const json& used :
         {amg, json{{"preconditioner_type", "PrecondList"}, {"PrecondList_params", {amg}}}}) {
      const int n = iterations(poisson(2, 24), solver, used, 60);
      EXPECT_TRUE(n >= 0 || solver == "SolverSYMMLQ" || solver == "SolverMINRES") << solver << n;
    }
  }
}

// Callbacks of the hierarchy reach a smoother of one level by its tag.
TEST(SmoothAggregationSolves, WithTagsThatReachASmootherDeepInside) {
  json params = hierarchy(smootherOf("SmootherJacobi"), smootherOf("SmootherJacobi"));
  params["pre_smoother_1"] = smootherOf("SmootherSSOR");
  params["pre_smoother_1"]["tagName"] = "here";
  const auto amg = makeAmg<double>(params);
  int calls = 0;
  amg->registerCallBack("here", CallBackPlace::After, [&](std::shared_ptr<ParOperator> op) {
    ++calls;
    EXPECT_EQ(op->registered_name, "SmootherSSOR");
  });
  System system = poisson(2, 24);
  amg->setup(system.A);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(amg->levels[1].pre_smoother, ParOperator::findOpByTagName(amg, "here"));
}

}  // namespace
}  // namespace mivo::test
