// SPDX-License-Identifier: Apache-2.0
// The frame of the solver and its "standard" form.
#include <gtest/gtest.h>

#include <cmath>

#include "mivo/operators/ParOperatorIdentity.hpp"
#include "mivo/solver/MINRESImpl.hpp"
#include "mivo/solver/SolverMINRES.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

template <class T>
class MINRES : public testing::Test {};
TYPED_TEST_SUITE(MINRES, ScalarTypes);

TYPED_TEST(MINRES, BothFormsMeasureTheResidualInTheNormOfThePreconditioner) {
  using T = TypeParam;
  using R = RealType<T>;
  const Measured<T> system;
  const auto start = system.residual(system.start);
  const R eps = 1e3 * std::numeric_limits<R>::epsilon();
  for (const Device& device : testDevices()) {
    for (const int maxIts : {0, 1, 2, 3, 4, 5, 7}) {
      const auto run = [&](const char* algo, int its) {
        const json params = {{"max_its", maxIts}, {"algo", algo}, {"rtol", 0}};
        return system.run("SolverMINRES", params, device, its);
      };
      const auto qlp = run("qlp", maxIts), standard = run("standard", std::max(maxIts, 1));
      const auto ratio = [&](const auto& x) { return system.norm(x) / system.norm(system.start); };
      EXPECT_NEAR(qlp.history.back().r, normOf(start) * ratio(qlp.x), eps * normOf(start));
      const R first = normOf(scaledBy(system.M, start));
      EXPECT_NEAR(standard.history.back().r, first * ratio(standard.x), eps * first);
      // two ways to the same iterates
      expectNear(qlp.x, maxIts > 0 ? standard.x : system.start);
    }
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
      KeepingPreconditioner P(parVectorOf<double>(device, {1, 0.5, 0.25, 0.2, 1, 0.5, 0.25, 0.2}));
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
