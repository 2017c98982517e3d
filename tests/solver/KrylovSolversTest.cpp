// SPDX-License-Identifier: Apache-2.0
// What all Krylov solvers of one stopping rule do alike.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "mivo/solver/ParSolver.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

using Solver = ParSolverT<double, long, int>;

class KrylovSolvers : public testing::TestWithParam<const char*> {
 protected:
  static std::shared_ptr<Solver> make(const json& params = json()) {
    const std::string name = GetParam();
    return Solver::getFactory().createInstance({{"solver_type", name}, {name + "_params", params}});
  }
  const std::vector<double> matrix{2, 0, 0, 8};
};

INSTANTIATE_TEST_SUITE_P(All, KrylovSolvers,
                         testing::Values("SolverPCG", "SolverBiCGSTAB", "SolverFLGMRES_R"),
                         [](const auto& each) { return std::string(each.param); });

TEST_P(KrylovSolvers, AnswerAZeroRightHandSideInSilence) {
  const auto solver = make({{"verbose", 2}, {"verb", 1}});
  const auto out = runSolver<double>(*solver, matrix, {0, 0}, {5, 6});
  EXPECT_EQ(out.x, (std::vector<double>{0, 0}));
  EXPECT_EQ(out.iter, -7);
  EXPECT_EQ(out.relres, -7);
  EXPECT_EQ(out.text, "");
  EXPECT_TRUE(out.history.empty());
  EXPECT_EQ(solver->solveTime.getCount(), 0u);
  EXPECT_EQ(solver->lastResB, 1.0);
}

TEST_P(KrylovSolvers, TakeTheLargestTolerance) {
  // |b| = 5, and from this start |r0| = |(1, 4)|
  const auto steps = [&](const json& params) {
    return runSolver<double>(*make(params), matrix, {3, 4}, {1, 0}).iter;
  };
  EXPECT_EQ(steps({{"atol", 4.2}}), 0);
  EXPECT_GT(steps({{"atol", 4.1}}), 0);
  EXPECT_EQ(steps({{"btol", 0.83}}), 0);
  EXPECT_GT(steps({{"btol", 0.82}}), 0);
  EXPECT_EQ(steps({{"rtol", 1.0}}), 0);
  EXPECT_EQ(steps({{"btol", 1e-14}}), steps(json())) << "the default rtol is the larger one";
}

TEST_P(KrylovSolvers, ReportTheStartWithoutIterations) {
  const auto out =
      runSolver<double>(*make({{"max_its", 0}, {"verbose", 1}}), matrix, {3, 4}, {1, 0});
  EXPECT_EQ(out.iter, 0);
  EXPECT_DOUBLE_EQ(out.relres, std::sqrt(17.0) / 5);
  EXPECT_EQ(out.x, (std::vector<double>{1, 0}));
  EXPECT_THAT(out.text, testing::HasSubstr("Begin solving"));
  EXPECT_THAT(out.text, testing::HasSubstr("iter/max_its 0/0, res_b 0.824621,"));
}

TEST_P(KrylovSolvers, EndAtOnceWithAnExactStartOrNaN) {
  const auto exact = runSolver<double>(*make({{"verb", 1}}), matrix, {2, 8}, {1, 1});
  EXPECT_EQ(exact.iter, 0);
  EXPECT_EQ(exact.relres, 0);
  EXPECT_EQ(exact.x, (std::vector<double>{1, 1}));
  EXPECT_THAT(exact.text, testing::ContainsRegex("    0   0.000000e.00 +-?nan +0.000000e.00\n"));

  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto lost = runSolver<double>(*make(), matrix, {1, nan}, {0, 0});
  EXPECT_EQ(lost.iter, 0);
  EXPECT_TRUE(std::isnan(lost.relres));
  // NaN that comes up later ends the iteration as well
  const auto later = runSolver<double>(*make(), {1, 0, 0, nan}, {1, 1}, {0, 0});
  EXPECT_EQ(later.iter, 1);
  EXPECT_TRUE(std::isnan(later.relres));
}

TEST_P(KrylovSolvers, SolveASecondTimeAsTheFirst) {
  const auto solver = make();
  const auto A = positiveDefinite<double>(9, 3);
  const auto b = smallValues<double>(9, 4);
  const auto first = runSolver<double>(*solver, A, b, smallValues<double>(9, 5));
  const auto second = runSolver<double>(*solver, A, b, smallValues<double>(9, 5));
  EXPECT_EQ(second.history, first.history);
  EXPECT_EQ(second.x, first.x);
  EXPECT_EQ(solver->solveTime.getCount(), 2u);
}

/// Iterations and relative residual of a small system, real and positive definite, for |b| about
/// `size`.
template <class T>
std::pair<int, RealType<T>> solveOfSize(const json& config, RealType<T> size) {
  auto A = parSparseOf(Device(), laplacian<T>(6, 5));
  ParMatrixT<T, long, int> x(A.getRows(), Device()), b(A.getRows(), Device());
  for (int i = 0; i < 30; ++i) b.getLocalMatrix(-1).getData()[i] = T(size * (1 + i % 4));
  x.fill(T(0));
  const auto solver = ParSolverT<T, long, int>::getFactory().createInstance(config);
  solver->preconditioner->setup(A);
  std::pair<int, RealType<T>> out;
  solver->solve(A, b, x, out.first, out.second);
  return out;
}

// Scalars of these sizes have squares that a float cannot hold.
TEST(ComplexKrylovSolvers, TakeTheSameStepsInRealAndComplexWhateverTheSizeOfB) {
  const json jacobi = {{"preconditioner_type", "PrecondJacobi"}};
  const json transfer = {{"level_transfer_type", "LevelTransferRugeStuben"}};
  const json multigrid = {{"preconditioner_type", "PrecondAMG"},
                          {"PrecondAMG_params",
                           {{"level_transfer", transfer},
                            {"min_coarse_size", 8},
                            {"pre_smoother", smootherOf("SmootherSOR")},
                            {"post_smoother", smootherOf("SmootherSOR")},
                            {"coarse_solver", {{"solver_type", "SolverGaussElim"}}}}}};
  for (const std::string name : {"SolverPCG", "SolverBiCGSTAB"}) {
    for (const json& preconditioner : {jacobi, multigrid}) {
      const json params = {{"rtol", 1e-5}, {"max_its", 60}, {"preconditioner", preconditioner}};
      const json config = {{"solver_type", name}, {name + "_params", params}};
      const int steps = solveOfSize<float>(config, 1).first;
      for (const float size : {1e-12f, 1e-8f, 1e-6f, 1.0f, 1e6f, 1e9f, 1e12f}) {
        const auto real = solveOfSize<float>(config, size);
        const auto complex = solveOfSize<Complex<float>>(config, size);
        EXPECT_EQ(real.first, steps) << config << size;
        EXPECT_EQ(complex.first, steps) << config << size;
        EXPECT_LE(complex.second, 2e-5f) << config << size;
      }
    }
  }
}

}  // namespace
}  // namespace mivo::test
