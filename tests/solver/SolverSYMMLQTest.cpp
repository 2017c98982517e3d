// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>

#include "mivo/solver/SYMMLQImpl.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

template <class T>
class SYMMLQ : public testing::Test {};
TYPED_TEST_SUITE(SYMMLQ, ScalarTypes);

TYPED_TEST(SYMMLQ, EndsAtThePointsOfConjugateGradients) {
  using T = TypeParam;
  using R = RealType<T>;
  Measured<T> system;
  const R eps = 1e3 * std::numeric_limits<R>::epsilon();
  for (const auto& A : {positiveDefinite<T>(system.n, 5), indefinite<T>(system.n, 5)}) {
    system.A = A;
    for (const Device& device : testDevices()) {
      for (const int maxIts : {0, 1, 2, 3, 5, 7}) {
        const int its = std::max(maxIts, 1);
        const json params = {{"max_its", maxIts}, {"rtol", 0}};
        const auto run = system.run("SolverSYMMLQ", params, device, its);
        const R first = normOf(scaledBy(system.M, system.residual(system.start)));
        EXPECT_NEAR(run.history[0].r, first, eps * first);
        EXPECT_NEAR(run.history.back().r, system.norm(run.x), eps * first) << its;
        const auto pcg = makeSolverOf<T>("SolverPCG", {{"max_its", its}, {"rtol", 0}});
        expectNear(run.x, runSolver(*pcg, device, A, system.M, system.b, system.start).x);
      }
    }
  }
}

TYPED_TEST(SYMMLQ, SolvesIndefiniteSystems) {
  using T = TypeParam;
  using R = RealType<T>;
  const double rtol = sizeof(R) == sizeof(float) ? 1e-5 : 1e-12;
  const std::size_t n = 40;
  // Hermitian, and real in the dress of T
  for (const auto& A : {indefinite<T>(n, 5), dressed<T>(indefinite<R>(n, 5))}) {
    const auto exact = dressed<T>(smallValues<R>(n, 6)), b = denseProduct(A, exact);
    const auto run = solveDense<T>("SolverSYMMLQ", {{"rtol", rtol}}, A, b);
    EXPECT_LT(run.relres, rtol);
    EXPECT_LT(run.iter, int(n));
    for (std::size_t i = 0; i < n; ++i) EXPECT_LT(abs(run.x[i] - exact[i]), 100 * rtol);
  }
}

TEST(SolverSYMMLQ, EndsAfterAsManyStepsAsThereAreEigenvalues) {
  std::vector<double> A(81), b(9);
  for (std::size_t i = 0; i < 9; ++i) {
    A[i * 9 + i] = (const double[]){1, -2, 4}[i % 3];
    b[i] = 1 + double(i);
  }
  const auto run = solveDense<double>("SolverSYMMLQ", {{"rtol", 1e-12}}, A, b);
  EXPECT_EQ(run.iter, 3);
  for (std::size_t i = 0; i < 9; ++i) EXPECT_NEAR(run.x[i], b[i] / A[i * 9 + i], 1e-12);
}

const std::vector<double> kSwap{0, 1, 1, 0};

// u = (1, 0), A u = (0, 1): alpha and c are exactly 0, the estimate is 1e16, and the last move
// 1e15.
TEST(SolverSYMMLQ, MovesFarWhereTheConjugateGradientPointIsAtInfinity) {
  for (const int maxIts : {0, 1}) {
    const auto run = solveDense<double>("SolverSYMMLQ", {{"max_its", maxIts}}, kSwap, {1, 0});
    EXPECT_EQ(run.iter, 1) << "the first iteration is done in any case";
    EXPECT_EQ(run.relres, 1e16);
    EXPECT_EQ(run.x, (std::vector<double>{1e15, 0}));
  }
  const auto run = solveDense<double>("SolverSYMMLQ", {}, kSwap, {1, 0});
  EXPECT_EQ(run.iter, 2);
  EXPECT_EQ(run.text, "Detected happy breakdown 0 tolerance 1e-18\n");
  EXPECT_EQ(run.x, (std::vector<double>{0, 1}));
  EXPECT_EQ(run.relres, 0);
}

TEST(SolverSYMMLQ, TakesAnExactStartForAHappyBreakdown) {
  for (const auto& b : {std::vector<double>{0, 0}, std::vector<double>{2, 3}}) {
    const auto solver = makeSolverOf<double>("SolverSYMMLQ", {{"verbose", 1}});
    const auto run = runSolver<double>(*solver, kSwap, b, {b[1], b[0]});
    EXPECT_EQ(
        withoutTimes(run.text),
        "I 0/1 ParOperator:83] Begin solving equation: size 2 solver SYMMLQ device cpu:0\n"
        "Detected happy breakdown 0 tolerance 1e-18\n"
        "I 0/1 ParOperator:113] Finish solving using SYMMLQ, iter/max_its 0/2000, res_b -nan, "
        "solve_time T, precond_setup T, precond T\n");
    EXPECT_EQ(run.iter, 0);
    EXPECT_TRUE(std::isnan(run.relres)) << "0 / 0";
    EXPECT_EQ(run.x, (std::vector<double>{b[1], b[0]}));
  }
}

struct Record {
  std::shared_ptr<ParSolverT<double, long, int>> solver = makeSolverOf<double>("SolverSYMMLQ");
  DenseOperator<double> A{Device(), 2, kSwap};
  DiagonalPreconditioner<double> P;
  ParVector<double> b = parVectorOf<double>(Device(), {1, 2});
  ParVector<double> x = parVectorOf<double>(Device(), {0, 0});
  SYMMLQ_Impl<double, long, int> run;

  explicit Record(std::vector<double> d) : P(parVectorOf<double>(Device(), d)) {
    run.ksp.setUp(*solver, P, A, b, x);
    run.KSPSetUp_SYMMLQ();
  }
};

TEST(SolverSYMMLQ, KeepsARecordOfReasonsAndFlags) {
  Record limited({1, 1});
  limited.run.ksp.max_its = 1;
  limited.run.ksp.diagonal_scale = true;
  limited.run.ksp.guess_zero = true;
  const int products = limited.A.products;
  EXPECT_EQ(printed([&] { limited.run.KSPSolve_SYMMLQ(); }),
            "Krylov method SYMMLQ does not support diagonal scaling");
  EXPECT_EQ(limited.run.ksp.reason, -3);
  EXPECT_EQ(limited.A.products, products + 1) << "none for the start residual";

  // (r, z) is 4 - 1 at the start, and negative after a step, which is left out
  Record indefinite({-1, 1});
  EXPECT_EQ(printed([&] { indefinite.run.KSPSolve_SYMMLQ(); }), "");
  EXPECT_EQ(indefinite.run.ksp.reason, -8);
  EXPECT_EQ(indefinite.run.ksp.its, 1);
  EXPECT_EQ(valuesOf(indefinite.x), (std::vector<double>{0, 0}));

  Record converged({1, 1});
  printed([&] { converged.run.KSPSolve_SYMMLQ(); });
  EXPECT_EQ(converged.run.ksp.reason, 2);
  EXPECT_EQ(converged.run.ksp.converged(2001, 0), -3) << "the limit comes first";
  EXPECT_EQ(converged.run.ksp.converged(2000, 0), 2);
  EXPECT_EQ(converged.run.ksp.converged(5, std::nan("")), 0);
}

}  // namespace
}  // namespace mivo::test
