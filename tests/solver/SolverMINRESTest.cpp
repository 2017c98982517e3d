// SPDX-License-Identifier: Apache-2.0
// The frame of the solver and its "standard" form.
#include <gtest/gtest.h>

#include <cmath>

#include "krylov_cases.hpp"
#include "mivo/operators/ParOperatorIdentity.hpp"
#include "mivo/solver/MINRESImpl.hpp"
#include "mivo/solver/SolverMINRES.hpp"
#include "tests/support/fatal.hpp"

namespace mivo::test {
namespace {

/// The standard form step by step, with all vectors that its description names.
template <class T>
Run<T> reference(const std::vector<T>& A, const std::vector<T>& M, const std::vector<T>& b,
                 const std::vector<T>& start, RealType<T> rtol, int maxIts) {
  using R = RealType<T>;
  using P = Plain<T>;
  using V = std::vector<T>;
  Run<T> out;
  out.x = start;
  const R bnorm = normOf(b), r0 = normOf(P::residual(A, start, b));
  V Rv = denseProduct(A, start);
  for (std::size_t i = 0; i < b.size(); ++i) Rv[i] = b[i] * T(1) + Rv[i] * T(-1);
  V Z = scaledBy(M, Rv);
  R dp = P::dot(Rv, Z);
  R rnorm = normOf(Z);
  out.history.push_back({0, rnorm, rnorm / r0, rnorm / bnorm});
  R beta = std::sqrt(dp), eta = beta, c = 1, cold = 1, s = 0, sold = 0;
  V v = Rv, U = Z, VOLD, UOLD, WOLD, WOOLD;
  P::scale(1 / beta, v);
  P::scale(1 / beta, U);
  int i = 0;
  for (; !(rtol > rnorm / r0) && i < std::max(maxIts, 1); ++i) {
    Rv = denseProduct(A, U);
    const R alpha = P::dot(U, Rv);
    Z = scaledBy(M, Rv);
    P::axpy(-alpha, v, Rv);
    P::axpy(-alpha, U, Z);
    if (i > 0) {
      P::axpy(-beta, VOLD, Rv);
      P::axpy(-beta, UOLD, Z);
    }
    const R betaold = beta;
    dp = std::fabs(P::dot(Rv, Z));
    beta = std::sqrt(dp);
    const R gbar = c * alpha - cold * s * betaold;
    const R gamma = std::sqrt(gbar * gbar + beta * beta);
    const R cnew = gbar / gamma, snew = beta / gamma;
    V W = U;
    P::scale(1 / gamma, W);
    if (i > 0) P::axpy(-(alpha * s + cold * c * betaold) / gamma, WOLD, W);
    if (i > 1) P::axpy(-(betaold * sold) / gamma, WOOLD, W);
    P::axpy(eta * cnew, W, out.x);
    const bool ended = static_cast<double>(dp) < 1e-50;
    rnorm = ended ? normOf(P::residual(A, out.x, b)) : std::fabs(snew) * rnorm;
    out.history.push_back({i + 1, rnorm, rnorm / r0, rnorm / bnorm});
    if (ended) {
      ++i;
      break;
    }
    eta = -snew * eta;
    P::scale(1 / beta, Rv);
    P::scale(1 / beta, Z);
    VOLD = v, v = Rv, UOLD = U, U = Z, WOOLD = WOLD, WOLD = W;
    cold = c, sold = s, c = cnew, s = snew;
  }
  out.iter = i;
  out.relres = rnorm / r0;
  return out;
}

template <class T>
class MINRES : public testing::Test {};
TYPED_TEST_SUITE(MINRES, ScalarTypes);

TYPED_TEST(MINRES, StandardFollowsItsFormulasBitForBit) {
  using T = TypeParam;
  for (const int maxIts : {0, 1, 12}) {
    expectToFollow<T>(
        "SolverMINRES", {{"algo", "standard"}}, maxIts, reference<T>,
        [](std::size_t n) { return std::vector<std::vector<T>>{positiveDiagonal<T>(n)}; });
  }
}

TYPED_TEST(MINRES, BothFormsSolveIndefiniteSystemsAndTheResidualNeverRises) {
  using T = TypeParam;
  using R = RealType<T>;
  const double rtol = sizeof(R) == sizeof(float) ? 1e-5 : 1e-12;
  const std::size_t n = 40;
  // Hermitian, and real in the dress of T
  for (const auto& A : {indefinite<T>(n, 5), dressed<T>(indefinite<R>(n, 5))}) {
    const auto exact = dressed<T>(smallValues<R>(n, 6)), b = denseProduct(A, exact);
    std::vector<std::vector<Status<R>>> histories;
    for (const char* algo : {"standard", "qlp"}) {
      for (const Device& device : testDevices()) {
        const auto run =
            solveDense<T>("SolverMINRES", {{"rtol", rtol}, {"algo", algo}}, A, b, {}, device);
        EXPECT_LT(run.relres, rtol);
        EXPECT_LT(run.iter, int(n));
        for (std::size_t i = 0; i < n; ++i) EXPECT_LT(abs(run.x[i] - exact[i]), 100 * rtol);
        expectNeverRising(run.history);
        histories.push_back(run.history);
      }
    }
    // two ways to the same iterates
    ASSERT_EQ(histories.front().size(), histories.back().size());
    for (std::size_t k = 0; k < histories[0].size(); ++k) {
      EXPECT_NEAR(histories.front()[k].relR0, histories.back()[k].relR0,
                  1e3 * std::numeric_limits<R>::epsilon());
    }
  }
}

TEST(SolverMINRES, EndsAfterAsManyStepsAsThereAreEigenvalues) {
  std::vector<double> A(81), b(9), M(9);
  for (std::size_t i = 0; i < 9; ++i) {
    M[i] = 1 / double(1 + i);
    A[i * 9 + i] = (const double[]){1, -2, 4}[i % 3] / M[i];
    b[i] = 1 + double(i);
  }
  for (const char* algo : {"standard", "qlp"}) {
    const auto run = solveDense<double>("SolverMINRES", {{"rtol", 1e-12}, {"algo", algo}}, A, b, M);
    EXPECT_EQ(run.iter, 3) << algo;
    for (std::size_t i = 0; i < 9; ++i) EXPECT_NEAR(run.x[i], b[i] / A[i * 9 + i], 1e-12);
  }
}

TEST(SolverMINRES, StandardRunsIntoZeroByZeroFromAnExactStart) {
  for (const auto& b : {std::vector<double>{0, 0}, std::vector<double>{2, 3}}) {
    const auto solver =
        makeSolverOf<double>("SolverMINRES", {{"algo", "standard"}, {"max_its", 3}});
    const auto run = runSolver<double>(*solver, {1, 0, 0, 1}, b, b);
    EXPECT_EQ(run.iter, 3);
    EXPECT_EQ(run.history.size(), 4u);
    EXPECT_TRUE(std::isnan(run.relres));
    EXPECT_TRUE(std::isnan(run.x[0]) && std::isnan(run.x[1]));
    EXPECT_EQ(run.text, "");
  }
}

TEST(SolverMINRES, StandardTellsOfTheEndOfTheLanczosProcess) {
  const json params = {{"algo", "standard"}};
  const std::vector<double> identity{1, 0, 0, 1}, b{3, 4};
  const auto exact = solveDense<double>("SolverMINRES", params, {2, 0, 0, 2}, {1, 0});
  EXPECT_EQ(exact.text, "Possible indefinite operator 0 tolerance 1e-50\n");
  EXPECT_EQ(exact.iter, 1);
  EXPECT_EQ(exact.relres, 0);
  EXPECT_EQ(exact.x, (std::vector<double>{0.5, 0}));

  const auto null = solveDense<double>("SolverMINRES", params, {0, 0, 0, 0}, b);
  EXPECT_EQ(null.text,
            "Possible indefinite operator 0 tolerance 1e-50\n"
            "Detected indefinite operator 0 tolerance 1e-50\n");
  EXPECT_EQ(null.iter, 1);

  const auto refused = solveDense<double>("SolverMINRES", params, identity, b, {-1, 0});
  EXPECT_EQ(refused.text, "Detected indefinite operator -9 tolerance 1e-50\n");
  EXPECT_EQ(refused.iter, 0);
  EXPECT_EQ(refused.x, (std::vector<double>{0, 0}));
}

TEST(SolverMINRES, PrintsTheTableOfTheFrame) {
  // A = diag(2, 8), b = (3, 4): |r|^2 = 25 - 146^2 / 1060
  const auto run = solveDense<double>(
      "SolverMINRES", {{"algo", "standard"}, {"verbose", 2}, {"max_its", 1}}, {2, 0, 0, 8}, {3, 4});
  EXPECT_EQ(
      withoutTimes(run.text),
      "I 0/1 ParOperator:83] Begin solving equation: size 2 solver MINRES device cpu:0\n"
      "I 0/1 ParOperator:86]     iter           |r|      |r|/|r0|       |r|/|b|     conv_rate\n"
      "I 0/1 ParOperator:100]        0  5.000000e+00  1.000000e+00  1.000000e+00  1.000000e+00\n"
      "I 0/1 ParOperator:100]        1  2.211462e+00  4.422925e-01  4.422925e-01  4.422925e-01\n"
      "I 0/1 ParOperator:113] Finish solving using MINRES, iter/max_its 1/1, res_b 4.422925e-01, "
      "solve_time T, precond_setup T, precond T\n");
}

/// A careless operator of the caller's: its products have the length of b, and not that of x.
class ShortProducts : public DenseOperator<double> {
 public:
  ShortProducts() : DenseOperator(Device(), 3, {2, 0, 0, 0, 3, 0, 0, 0, 4}) {}
  void aAxpby(double alpha, const ParVector<double>& x, double, ParVector<double>& y,
              AsyncMatVecObject*) override {
    y = parVectorOf<double>(Device(), {alpha, 2 * alpha * valuesOf(x)[1]});
  }
};

/// z = d .* r; keeps what z held before.
class KeepingPreconditioner : public DiagonalPreconditioner<double> {
 public:
  using DiagonalPreconditioner::DiagonalPreconditioner;
  void precondition(const ParVector<double>& r, ParVector<double>& z) override {
    before.push_back(valuesOf(z));
    DiagonalPreconditioner::precondition(r, z);
    if (applications == 1) first = valuesOf(z);
  }

  std::vector<std::vector<double>> before;
  std::vector<double> first;
};

TEST(SolverMINRES, AndSYMMLQHandTheLastVectorToPreconditionersThatStartFromIt) {
  const std::size_t n = 8;
  for (const Device& device : testDevices()) {
    for (const std::string name : {"SolverMINRES", "SolverSYMMLQ"}) {
      const auto solver = makeSolverOf<double>(name, {{"algo", "standard"}, {"max_its", 3}});
      KeepingPreconditioner P(parVectorOf<double>(device, positiveDiagonal<double>(n)));
      auto A = parCsrOf<double>(device, int(n), indefinite<double>(n, 5));
      auto x = parVectorOf<double>(device, std::vector<double>(n, 0));
      const auto b = parVectorOf<double>(device, smallValues<double>(n, 6));
      int iter = 0;
      double relres = 0;
      solver->solve(P, A, b, x, iter, relres);
      ASSERT_EQ(P.before.size(), 4u);
      EXPECT_EQ(P.before[1], P.first) << name << " on " << device.getString();
    }
  }
}

TEST(SolverMINRES, AndSYMMLQRefuseProductsOfAnotherLength) {
  for (const json& params : {json{{"algo", "standard"}}, json{{"algo", "qlp"}}, json::object()}) {
    const auto solver =
        makeSolverOf<double>(params.empty() ? "SolverSYMMLQ" : "SolverMINRES", params);
    ShortProducts A;
    auto x = parVectorOf<double>(Device(), {1, 1, 1});
    const auto b = parVectorOf<double>(Device(), {1, 1});
    int iter = 0;
    double relres = 0;
    const std::string where = params.value("algo", "") == "qlp" ? "axpy" : "axpby";
    MIVO_EXPECT_FATAL_TEXT(solver->solve(A, b, x, iter, relres),
                           where + ": x and y must have the same size");
  }
}

TEST(SolverMINRES, RefusesAnotherForm) {
  const auto other = makeSolverOf<double>("SolverMINRES", {{"algo", "QLP"}, {"verbose", 1}});
  DenseOperator<double> A(Device(), 1, {2});
  auto x = parVectorOf<double>(Device(), {0});
  const auto b = parVectorOf<double>(Device(), {1});
  int iter = 0;
  double relres = 0;
  EXPECT_EXIT(
      {
        stdoutToStderr();
        other->solve(A, b, x, iter, relres);
      },
      testing::ExitedWithCode(1),
      testing::MatchesRegex("I 0/1 ParOperator:83\\] Begin solving [^\n]*\n"
                            "I 0/1 [^\n]*\\] algo not supported QLP\n"));

  const auto solver = makeSolverOf<double>("SolverMINRES", {{"norm_type", 2}, {"radius", 3}});
  const auto minres = std::dynamic_pointer_cast<SolverMINRES_T<double, long, int>>(solver);
  EXPECT_EQ(minres->algo, "qlp");
  EXPECT_EQ(minres->norm_type, 2);
  EXPECT_EQ(minres->radius, 3);
  EXPECT_EQ(minres->monitor, 0);
}

TEST(SolverMINRES, KeepsARecordOfReasonsAndFlags) {
  const auto solver = makeSolverOf<double>("SolverMINRES", {{"max_its", 3}, {"rtol", 1e-3}});
  const auto solve = [&](const std::vector<double>& diagonal, auto prepare, auto check) {
    DenseOperator<double> A(Device(), 2, {diagonal[0], 0, 0, diagonal[1]});
    ParOperatorIdentityT<double, long, int> P;
    const auto b = parVectorOf<double>(Device(), {3, 4});
    auto x = parVectorOf<double>(Device(), {0, 0});
    MINRES_Impl<double, long, int> run;
    run.ksp.setUp(*solver, P, A, b, x);
    run.ksp.calc_sings = true;
    run.KSPSetUp_MINRES(0, 1, 0);
    EXPECT_EQ(run.ksp.work.size(), 9u);
    prepare(run);
    const std::string text = printed([&] { run.KSPSolve_MINRES_OLD(); });
    check(run, text);
    run.KSPDestroy_MINRES();
    EXPECT_TRUE(run.ksp.work.empty());
  };
  // The estimates are the tridiagonal matrix, whose eigenvalues are 2 and 8.
  solve(
      {2, 8}, [](auto&) {},
      [](auto& run, const std::string&) {
        const auto& d = run.data();
        EXPECT_EQ(run.ksp.reason, 2);
        EXPECT_NEAR(d.beta[0], 5, 1e-14);
        EXPECT_NEAR(d.alpha[0] + d.alpha[1], 10, 1e-13);
        EXPECT_NEAR(d.alpha[0] * d.alpha[1] - d.beta[1] * d.beta[1], 16, 1e-12);
      });
  solve(
      {2, 8},
      [](auto& run) {
        run.ksp.max_its = 1;
        run.ksp.diagonal_scale = true;
      },
      [](auto& run, const std::string& text) {
        EXPECT_EQ(run.ksp.reason, -3);
        EXPECT_EQ(text,
                  "Krylov method MINRES does not support diagonal scaling"
                  "Cannot change maxit AND calculate eigenvalues");
      });
  solve(
      {-2, -8}, [](auto& run) { run.data().check_negative_curvature = true; },
      [](auto& run, const std::string& text) {
        EXPECT_EQ(run.ksp.reason, 5);
        EXPECT_EQ(text, "Detected negative curvature c_nm1=1, gbar -5.84\n");
      });
}

}  // namespace
}  // namespace mivo::test
