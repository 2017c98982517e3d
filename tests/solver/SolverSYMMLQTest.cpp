// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>

#include "krylov_cases.hpp"
#include "mivo/solver/SYMMLQImpl.hpp"

namespace mivo::test {
namespace {

/// The method step by step, with all vectors that its description names.
template <class T>
Run<T> reference(const std::vector<T>& A, const std::vector<T>& M, const std::vector<T>& b,
                 const std::vector<T>& start, RealType<T> rtol, int maxIts) {
  using R = RealType<T>;
  using P = Plain<T>;
  using V = std::vector<T>;
  Run<T> out;
  out.x = start;
  const R bnorm = normOf(b), r0 = normOf(P::residual(A, start, b));
  V UOLD(b.size(), T(0)), VOLD = UOLD;
  V Rv = denseProduct(A, start);
  for (std::size_t i = 0; i < b.size(); ++i) Rv[i] = b[i] * T(1) + Rv[i] * T(-1);
  V Z = scaledBy(M, Rv);
  R dp = P::dot(Rv, Z);
  R beta = std::sqrt(dp);
  const R beta1 = beta;
  V v = Rv, U = Z;
  P::scale(1 / beta, v);
  P::scale(1 / beta, U);
  V WBAR = U;
  R np = normOf(Z);
  out.history.push_back({0, np, np / r0, np / bnorm});
  R c = 1, cold = 1, coold, s = 0, sold = 0, soold, ceta = 0, ceta_old = 0, ceta_oold = 0;
  R s_prod = std::fabs(beta1);
  int i = 0;
  while (!(rtol > np / r0)) {
    ++i;
    Rv = denseProduct(A, U);
    const R alpha = P::dot(U, Rv);
    Z = scaledBy(M, Rv);
    P::axpy(-alpha, v, Rv);
    P::axpy(-alpha, U, Z);
    P::axpy(-beta, VOLD, Rv);
    P::axpy(-beta, UOLD, Z);
    const R betaold = beta;
    dp = P::dot(Rv, Z);
    if (std::fabs(dp) < R(1e-18)) {
      dp = 0;
    } else if (dp < 0) {
      break;
    }
    beta = std::sqrt(dp);
    coold = cold, cold = c, soold = sold, sold = s;
    const R rho0 = cold * alpha - coold * sold * betaold;
    const R rho1 = std::sqrt(rho0 * rho0 + beta * beta);
    const R rho2 = sold * alpha + coold * cold * betaold;
    const R rho3 = soold * betaold;
    c = rho0 / rho1;
    s = beta / rho1;
    ceta = i == 1 ? beta1 / rho1 : -(rho2 * ceta_old + rho3 * ceta_oold) / rho1;
    s_prod = std::fabs(s) * s_prod;
    np = c != 0 ? s_prod / std::fabs(c) : s_prod * R(1e16);
    out.history.push_back({i, np, np / r0, np / bnorm});
    if (rtol > np / r0 || i >= maxIts) break;
    VOLD = v;
    UOLD = U;
    v = Rv;
    P::scale(1 / beta, v);
    U = Z;
    P::scale(1 / beta, U);
    V W = WBAR;
    P::scale(c, W);
    P::axpy(s, U, W);
    P::scale(-s, WBAR);
    P::axpy(c, U, WBAR);
    P::axpy(ceta, W, out.x);
    ceta_oold = ceta_old;
    ceta_old = ceta;
  }
  P::axpy(c == 0 ? R(ceta * R(1e15)) : ceta / c, WBAR, out.x);
  out.iter = i;
  out.relres = np / r0;
  return out;
}

template <class T>
class SYMMLQ : public testing::Test {};
TYPED_TEST_SUITE(SYMMLQ, ScalarTypes);

TYPED_TEST(SYMMLQ, FollowsItsFormulasBitForBit) {
  using T = TypeParam;
  expectToFollow<T>("SolverSYMMLQ", json::object(), 12, reference<T>, [](std::size_t n) {
    auto M = positiveDiagonal<T>(n), indefiniteM = M;
    indefiniteM[n - 1] = T(RealType<T>(-0.5));
    return std::vector<std::vector<T>>{M, indefiniteM};
  });
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

TEST(SolverSYMMLQ, PrintsTheTableOfTheFrame) {
  // A = diag(2, 8), b = (3, 4): alpha = 146/25, beta^2 = |A u|^2 - alpha^2 = 1060/25 - alpha^2,
  // |r| = 5 beta / alpha = 2.46575, as of conjugate gradients
  const auto run =
      solveDense<double>("SolverSYMMLQ", {{"verbose", 2}, {"max_its", 1}, {"btol", 1}, {"atol", 9}},
                         {2, 0, 0, 8}, {3, 4});
  EXPECT_EQ(
      withoutTimes(run.text),
      "I 0/1 ParOperator:83] Begin solving equation: size 2 solver SYMMLQ device cpu:0\n"
      "I 0/1 ParOperator:86]     iter           |r|      |r|/|r0|       |r|/|b|     conv_rate\n"
      "I 0/1 ParOperator:100]        0  5.000000e+00  1.000000e+00  1.000000e+00  1.000000e+00\n"
      "I 0/1 ParOperator:100]        1  2.465753e+00  4.931507e-01  4.931507e-01  4.931507e-01\n"
      "I 0/1 ParOperator:113] Finish solving using SYMMLQ, iter/max_its 1/1, res_b 4.931507e-01, "
      "solve_time T, precond_setup T, precond T\n");
  // x = b (b, b) / (b, A b), the conjugate gradient point
  EXPECT_NEAR(run.x[0], 3 * 25. / 146, 1e-15);
  EXPECT_NEAR(run.x[1], 4 * 25. / 146, 1e-15);
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
  EXPECT_EQ(limited.run.ksp.work.size(), 9u);
  const int products = limited.A.products;
  EXPECT_EQ(printed([&] { limited.run.KSPSolve_SYMMLQ(); }),
            "Krylov method SYMMLQ does not support diagonal scaling");
  EXPECT_EQ(limited.run.ksp.reason, -3);
  EXPECT_EQ(limited.A.products, products + 1) << "none for the start residual";

  // (r, z) is 4 - 1 at the start, and negative after a step
  Record indefinite({-1, 1});
  EXPECT_EQ(printed([&] { indefinite.run.KSPSolve_SYMMLQ(); }), "");
  EXPECT_EQ(indefinite.run.ksp.reason, -8);
  EXPECT_EQ(indefinite.run.ksp.its, 1);

  Record converged({1, 1});
  printed([&] { converged.run.KSPSolve_SYMMLQ(); });
  EXPECT_EQ(converged.run.ksp.reason, 2);
  EXPECT_EQ(converged.run.ksp.converged(2001, 0), -3) << "the limit comes first";
  EXPECT_EQ(converged.run.ksp.converged(2000, 0), 2);
  EXPECT_EQ(converged.run.ksp.converged(5, std::nan("")), 0);
  converged.run.KSPDestroyDefault();
  EXPECT_TRUE(converged.run.ksp.work.empty());
}

}  // namespace
}  // namespace mivo::test
