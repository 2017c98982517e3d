// SPDX-License-Identifier: Apache-2.0
// SolverMINRES in both forms and SolverSYMMLQ.
#include <gtest/gtest.h>

#include <cmath>

#include "mivo/operators/ParOperatorIdentity.hpp"
#include "mivo/solver/MINRESImpl.hpp"
#include "mivo/solver/SYMMLQImpl.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

/// Name and parameters.
const std::vector<std::pair<std::string, json>> kSolvers = {
    {"SolverMINRES", {{"algo", "standard"}}},
    {"SolverMINRES", {{"algo", "qlp"}}},
    {"SolverSYMMLQ", json::object()}};

json with(json params, const json& others) {
  params.update(others);
  return params;
}

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

template <class T>
class LanczosSolvers : public testing::Test {};
TYPED_TEST_SUITE(LanczosSolvers, ScalarTypes);

TYPED_TEST(LanczosSolvers, SolveIndefiniteSystems) {
  using T = TypeParam;
  using R = RealType<T>;
  const double rtol = sizeof(R) == sizeof(float) ? 1e-5 : 1e-12;
  const std::size_t n = 40;
  // Hermitian, and real in the dress of T
  for (const auto& A : {indefinite<T>(n, 5), dressed<T>(indefinite<R>(n, 5))}) {
    const auto exact = dressed<T>(smallValues<R>(n, 6)), b = denseProduct(A, exact);
    for (const auto& [name, algo] : kSolvers) {
      for (const Device& device : testDevices()) {
        const auto run = solveDense<T>(name, with(algo, {{"rtol", rtol}}), A, b, {}, device);
        EXPECT_LT(run.relres, rtol) << name << algo;
        EXPECT_LT(run.iter, int(n));
        for (std::size_t i = 0; i < n; ++i) EXPECT_LT(abs(run.x[i] - exact[i]), 100 * rtol);
        if (name == "SolverMINRES") expectNeverRising(run.history);
      }
    }
  }
}

TEST(LanczosSolvers, EndAfterAsManyStepsAsThereAreEigenvalues) {
  std::vector<double> A(81), b(9), M(9);
  for (std::size_t i = 0; i < 9; ++i) {
    M[i] = 1 / double(1 + i);
    A[i * 9 + i] = (const double[]){1, -2, 4}[i % 3] / M[i];
    b[i] = 1 + double(i);
  }
  for (const auto& [name, algo] : kSolvers) {
    const auto run = solveDense<double>(name, with(algo, {{"rtol", 1e-12}}), A, b, M);
    EXPECT_EQ(run.iter, 3) << name << algo;
    for (std::size_t i = 0; i < 9; ++i) EXPECT_NEAR(run.x[i], b[i] / A[i * 9 + i], 1e-12);
  }
}

// 0 / 0 is what all tell. The standard form runs into it, and the others leave the start alone.
TEST(LanczosSolvers, StartFromAnExactSolution) {
  for (const auto& b : {std::vector<double>{0, 0}, std::vector<double>{2, 3}}) {
    for (const auto& [name, algo] : kSolvers) {
      const auto solver = makeSolverOf<double>(name, with(algo, {{"max_its", 3}}));
      const auto run = runSolver<double>(*solver, {1, 0, 0, 1}, b, b);
      const bool goesOn = algo.value("algo", "") == "standard";
      EXPECT_TRUE(std::isnan(run.relres));
      EXPECT_EQ(run.iter, goesOn ? 3 : 0);
      EXPECT_TRUE(!goesOn || run.history.size() == 4);
      EXPECT_TRUE(goesOn ? std::isnan(run.x[0]) && std::isnan(run.x[1]) : run.x == b);
      EXPECT_EQ(run.text,
                name == "SolverSYMMLQ" ? "Detected happy breakdown 0 tolerance 1e-18\n" : "");
    }
  }
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

TEST(LanczosSolvers, RefuseProductsOfAnotherLengthAndOtherForms) {
  const auto solve = [](const auto& solver, DenseOperator<double>& A, std::size_t rows,
                        std::size_t cols) {
    auto x = parVectorOf(Device(), std::vector<double>(cols, 1));
    int iter = 0;
    double relres = 0;
    solver->solve(A, parVectorOf(Device(), std::vector<double>(rows, 1)), x, iter, relres);
  };
  for (const auto& [name, algo] : kSolvers) {
    const auto solver = makeSolverOf<double>(name, algo);
    ShortProducts A;
    const std::string where = algo.value("algo", "") == "qlp" ? "axpy" : "axpby";
    MIVO_EXPECT_FATAL_TEXT(solve(solver, A, 2, 3), where + ": x and y must have the same size");
  }
  const auto other = makeSolverOf<double>("SolverMINRES", {{"algo", "QLP"}, {"verbose", 1}});
  DenseOperator<double> A(Device(), 1, {2});
  MIVO_EXPECT_FATAL_TEXT(solve(other, A, 1, 1), "algo not supported QLP");
}

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

TEST(LanczosSolvers, HandTheLastVectorToPreconditionersThatStartFromIt) {
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

/// A run of the inner class of a method on a matrix of two rows.
template <class Run>
struct Record {
  std::shared_ptr<ParSolverT<double, long, int>> solver;
  DenseOperator<double> A;
  DiagonalPreconditioner<double> P;
  ParVector<double> b, x = parVectorOf<double>(Device(), {0, 0});
  Run run;

  Record(const std::string& name, std::vector<double> matrix, std::vector<double> rhs,
         std::vector<double> d = {1, 1})
      : solver(makeSolverOf<double>(name, {{"rtol", 1e-3}})),
        A(Device(), 2, matrix),
        P(parVectorOf(Device(), d)),
        b(parVectorOf(Device(), rhs)) {
    run.ksp.setUp(*solver, P, A, b, x);
    run.ksp.calc_sings = true;
  }
};

TEST(SolverMINRES, KeepsARecordOfReasonsAndFlags) {
  using Run = Record<MINRES_Impl<double, long, int>>;
  const auto solve = [](Run& r) { return printed([&] { r.run.KSPSolve_MINRES_OLD(); }); };
  // The estimates are the tridiagonal matrix, whose eigenvalues are 2 and 8.
  Run converged("SolverMINRES", {2, 0, 0, 8}, {3, 4});
  converged.run.KSPSetUp_MINRES(0, 1, 0);
  EXPECT_EQ(converged.run.ksp.work.size(), 9u);
  solve(converged);
  const auto& d = converged.run.data();
  EXPECT_EQ(converged.run.ksp.reason, 2);
  EXPECT_NEAR(d.beta[0], 5, 1e-14);
  EXPECT_NEAR(d.alpha[0] + d.alpha[1], 10, 1e-13);
  EXPECT_NEAR(d.alpha[0] * d.alpha[1] - d.beta[1] * d.beta[1], 16, 1e-12);
  converged.run.KSPDestroy_MINRES();
  EXPECT_TRUE(converged.run.ksp.work.empty());

  Run limited("SolverMINRES", {2, 0, 0, 8}, {3, 4});
  limited.run.KSPSetUp_MINRES(0, 1, 0);
  limited.run.ksp.max_its = 1;
  limited.run.ksp.diagonal_scale = true;
  EXPECT_EQ(solve(limited),
            "Krylov method MINRES does not support diagonal scaling"
            "Cannot change maxit AND calculate eigenvalues");
  EXPECT_EQ(limited.run.ksp.reason, -3);

  Run negative("SolverMINRES", {-2, 0, 0, -8}, {3, 4});
  negative.run.KSPSetUp_MINRES(0, 1, 0);
  negative.run.data().check_negative_curvature = true;
  EXPECT_EQ(solve(negative), "Detected negative curvature c_nm1=1, gbar -5.84\n");
  EXPECT_EQ(negative.run.ksp.reason, 5);
}

TEST(SolverSYMMLQ, KeepsARecordOfReasonsAndFlags) {
  using Run = Record<SYMMLQ_Impl<double, long, int>>;
  const auto solve = [](Run& r) {
    r.run.KSPSetUp_SYMMLQ();
    return printed([&] { r.run.KSPSolve_SYMMLQ(); });
  };
  const std::vector<double> swap{0, 1, 1, 0};
  Run limited("SolverSYMMLQ", swap, {1, 2});
  limited.run.ksp.max_its = 1;
  limited.run.ksp.diagonal_scale = limited.run.ksp.guess_zero = true;
  const int products = limited.A.products;
  EXPECT_EQ(solve(limited), "Krylov method SYMMLQ does not support diagonal scaling");
  EXPECT_EQ(limited.run.ksp.reason, -3);
  EXPECT_EQ(limited.A.products, products + 1) << "none for the start residual";

  // (r, z) is 4 - 1 at the start, and negative after a step, which is left out
  Run indefinite("SolverSYMMLQ", swap, {1, 2}, {-1, 1});
  EXPECT_EQ(solve(indefinite), "");
  EXPECT_EQ(indefinite.run.ksp.reason, -8);
  EXPECT_EQ(indefinite.run.ksp.its, 1);
  EXPECT_EQ(valuesOf(indefinite.x), (std::vector<double>{0, 0}));

  Run converged("SolverSYMMLQ", swap, {1, 2});
  solve(converged);
  EXPECT_EQ(converged.run.ksp.reason, 2);
  EXPECT_EQ(converged.run.ksp.converged(2001, 0), -3) << "the limit comes first";
  EXPECT_EQ(converged.run.ksp.converged(2000, 0), 2);
  EXPECT_EQ(converged.run.ksp.converged(5, std::nan("")), 0);
}

}  // namespace
}  // namespace mivo::test
