// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>

#include "mivo/solver/LGMRESImpl.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

TEST(SolverLGMRES, EndsTheProcessAtEachHook) {
  const auto solver =
      makeSolverOf<double>("SolverLGMRES", {{"rtol", 0.5}, {"max_its", 3}, {"verbose", 1}});
  EXPECT_EQ(solver->name, "LGMRES");
  EXPECT_EQ(solver->max_its, 3);
  DenseOperator<double> A(Device(), 1, {2});
  auto v = parVectorOf<double>(Device(), {1});
  int iter = 0;
  double relres = 0;
  MIVO_EXPECT_FATAL(
      solver->solve(A, v, v, iter, relres), "ParOperator:83",
      "Begin solving equation: size 1 solver LGMRES device cpu:0\nI 0/1 petsc_adapter:309] ");
  LGMRES_Impl<double, long, int> run;
  MIVO_EXPECT_FATAL(run.initialResidual(v), "petsc_adapter:309", "");
  MIVO_EXPECT_FATAL(run.applyOperator(v, v), "petsc_adapter:295", "");
  MIVO_EXPECT_FATAL(run.unwindPreconditioner(v), "petsc_adapter:276", "");
}

/// A run with the hooks filled for a preconditioner on the right: A M y = r, x = M y.
template <class T>
struct FilledHooks {
  using R = RealType<T>;
  using Vector = ParVector<T>;
  std::shared_ptr<ParSolverT<T, long, int>> solver;
  DenseOperator<T> A;
  DiagonalPreconditioner<T> M;
  Vector b, x, z;
  std::vector<Status<R>> history;
  LGMRES_Impl<T, long, int> run;

  FilledHooks(const Device& device, const std::vector<T>& matrix, const std::vector<T>& rhs,
              const std::vector<T>& diagonal, const json& params)
      : solver(makeSolverOf<T>("SolverLGMRES", params)),
        A(device, rhs.size(), matrix),
        M(parVectorOf(device, diagonal)),
        b(parVectorOf(device, rhs)),
        x(parVectorOf(device, std::vector<T>(rhs.size(), T(0)))),
        z(x.deepCopy()) {
    solver->observer = [this](int k, R r, R r0, R rb) { history.push_back({k, r, r0, rb}); };
    run.ksp.setUp(*solver, M, A, b, x);
    run.initialResidual = [this](Vector& r) { Vector::residual(A, x, b, r); };
    run.applyOperator = [this](const Vector& v, Vector& out) {
      M.precondition(v, z);
      A.matVec(z, out, nullptr);
    };
    run.unwindPreconditioner = [this](Vector& t) {
      M.precondition(t, z);
      z.deepCopy(t);
    };
  }
};

TEST(SolverLGMRES, BehindTheHooksConvergesWithLessWorkThanWithoutAugmentation) {
  using T = Complex<double>;
  const std::size_t n = 60;
  // some convection over a Laplace stencil, where short cycles stagnate
  std::vector<T> A(n * n, T(0)), M(n);
  for (std::size_t i = 0; i < n; ++i) {
    A[i * n + i] = T(2.02, 0.01);
    if (i > 0) A[i * n + i - 1] = T(-1.05);
    if (i + 1 < n) A[i * n + i + 1] = T(-0.95);
    M[i] = T(1 / double(2 + i % 3));
  }
  const auto exact = smallValues<T>(n, 4), b = denseProduct(A, exact);
  for (const Device& device : testDevices()) {
    int iterations[2];
    for (const int aug : {0, 2}) {
      FilledHooks<T> f(device, A, b, M, {{"rtol", 1e-10}});
      f.run.data().max_k = 8;
      f.run.data().aug_dim = aug;
      f.run.KSPSetUp_LGMRES();
      f.run.KSPSolve_LGMRES();
      EXPECT_EQ(f.run.ksp.reason, 2);
      iterations[aug / 2] = f.run.ksp.its;
      const auto x = valuesOf(f.x);
      for (std::size_t i = 0; i < n; ++i) EXPECT_LT(abs(x[i] - exact[i]), 1e-7);
      expectNeverRising(f.history, 1e-12);
      // A times a kept correction is its image
      const auto& kept = f.run.data().augvecs;
      ASSERT_EQ(kept.size(), std::size_t(2 * aug + 1));
      for (std::size_t slot = 0; slot < std::size_t(f.run.data().aug_ct); ++slot) {
        const auto correction = valuesOf(kept[slot]);
        EXPECT_NEAR(normOf(correction), 1, 1e-12);
        expectNear(denseProduct(A, correction), valuesOf(kept[std::size_t(aug) + slot]));
      }
      EXPECT_LE(f.run.data().matvecs, f.run.ksp.its);
    }
    EXPECT_LT(iterations[1], iterations[0]);
  }
}

TEST(SolverLGMRES, BehindTheHooksTellsOfItsBreakdowns) {
  const auto solve = [](const std::vector<double>& A, const std::vector<double>& b,
                        const json& params, auto prepare) {
    FilledHooks<double> f(Device(), A, b, std::vector<double>(b.size(), 1), params);
    f.run.KSPSetUp_LGMRES();
    prepare(f);
    const std::string text = printed([&] { f.run.KSPSolve_LGMRES(); });
    return text + "reason " + std::to_string(f.run.ksp.reason) + ", its " +
           std::to_string(f.run.ksp.its);
  };
  const auto plain = [](auto&) {};
  EXPECT_EQ(solve({1, 0, 0, 1}, {0, 0}, {}, plain),
            "Converged due to zero residual norm on entryreason 3, its 0");
  EXPECT_EQ(solve({2, 0, 0, 2}, {1, 0}, {}, plain),
            "Detected happy breakdown, current hapbnd = 0 tt = 0\nreason 2, its 1");
  EXPECT_EQ(solve({2, 0, 0, 2}, {1, 0}, {{"rtol", 0}}, plain),
            "Detected happy breakdown, current hapbnd = 0 tt = 0\nReached happy break down, but "
            "convergence was not indicated. Residual norm = 0reason -5, its 1");
  EXPECT_EQ(solve({0, 0, 0, 0}, {1, 0}, {{"rtol", 0}}, plain),
            "Detected happy breakdown, current hapbnd = 0 tt = 0\nReached happy break down, but "
            "convergence was not indicated. Residual norm = 0HH(it,it) is identically zero; it = "
            "0 GRS(it) = 1reason -5, its 1");
  EXPECT_EQ(solve({1, 2, 3, 4}, {1, 0}, {{"max_its", 1}}, plain), "reason -3, its 1");
  EXPECT_EQ(
      solve({1, 2, 3, 4}, {1, 0}, {{"max_its", 1}}, [](auto& f) { f.run.ksp.calc_sings = true; }),
      "Must call KSPSetComputeSingularValues() before KSPSetUp() is calledreason -3, its 1");

  FilledHooks<double> f(Device(), {1, 2, 3, 4}, {1, 0}, {1, 1}, {{"max_its", 1}});
  f.run.KSPSetUp_LGMRES();
  ParVector<double> built;
  f.run.KSPSolve_LGMRES();
  const auto x = valuesOf(f.x);
  f.x.fill(0);
  f.run.KSPBuildSolution_LGMRES(built);
  EXPECT_EQ(valuesOf(built), x);
}

}  // namespace
}  // namespace mivo::test
