// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <vector>

#include "mivo/solver/SolverFLGMRES_R.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

template <class T>
using FLGMRES = SolverFLGMRES_R_T<T, long, int, T>;

template <class T>
std::shared_ptr<FLGMRES<T>> makeFLGMRES(const json& params = json()) {
  return makeSolver<FLGMRES<T>>("SolverFLGMRES_R", params);
}

double root(double a) { return std::sqrt(a); }
float root(float a) { return std::sqrt(a); }
template <class R>
Complex<R> root(const Complex<R>& a) {
  const std::complex<R> out = std::sqrt(std::complex<R>(a.re, a.im));
  return {out.real(), out.imag()};
}

/// The formulas with full tables, for a start at zero.
template <class T>
struct Reference {
  using R = RealType<T>;
  std::vector<T> x;
  std::vector<Status<R>> history;
  std::vector<int> begins;  ///< iterations before each cycle
  int it = 0;

  Reference(const std::vector<T>& A, const std::vector<T>& d, const std::vector<T>& b, R rtol,
            int maxIts, int k0, int augk)
      : x(b.size(), T(0)) {
    using Table = std::vector<std::vector<T>>;
    const std::size_t n = b.size(), m = static_cast<std::size_t>(k0 + augk);
    auto r = b;
    const R r0 = normOf(r);
    R res = r0;
    history.push_back({0, r0, r0 / r0, r0 / r0});
    Table V(m + 2), Z(m + 2), aug(static_cast<std::size_t>(augk), std::vector<T>(n, T(0)));
    for (int c = 0; it < maxIts; ++c) {
      begins.push_back(it);
      const int length = k0 + std::min(c, augk);
      Table H(m + 2, std::vector<T>(m + 2));
      std::vector<T> g(m + 2), cs(m + 2), sn(m + 2);
      res = normOf(r);
      V[0] = r;
      for (T& v : V[0]) v *= T(1 / res);
      g[0] = T(res);
      int i = 0;
      for (; i < length && res > rtol * r0 && it < maxIts; ++i) {
        ++it;
        const auto col = static_cast<std::size_t>(i);
        Z[col] = scaledBy(d, i < k0 ? V[col] : aug[static_cast<std::size_t>(i - k0)]);
        auto w = denseProduct(A, Z[col]);
        for (std::size_t j = 0; j <= col; ++j) {
          H[j][col] = dotOf(w, V[j]);
          w = combined(-H[j][col], V[j], T(1), w);
        }
        const R hn = normOf(w);
        if (hn == 0) break;
        H[col + 1][col] = T(hn);
        for (T& v : w) v *= T(1 / hn);
        V[col + 1] = w;
        for (std::size_t j = 0; j < col; ++j) {
          const T t = cs[j] * H[j][col] + sn[j] * H[j + 1][col];
          H[j + 1][col] = cs[j] * H[j + 1][col] - sn[j] * H[j][col];
          H[j][col] = t;
        }
        const T a = H[col][col], e = H[col + 1][col];
        T rho = root(a * a + e * e);
        if (isZero(rho)) rho = T(R(1e-16));
        cs[col] = a / rho;
        sn[col] = e / rho;
        g[col + 1] = -sn[col] * g[col];
        g[col] = cs[col] * g[col];
        H[col][col] = a * cs[col] + e * sn[col];
        res = abs(g[col + 1]);
        history.push_back({it, res, res / r0, res / r0});
      }
      if (i > 0) {
        std::vector<T> y(g.begin(), g.begin() + i), fix(n, T(0)), keep(n, T(0));
        for (int j = i - 1; j >= 0; --j) {
          const auto row = static_cast<std::size_t>(j);
          for (std::size_t l = row + 1; l < y.size(); ++l) y[row] -= H[row][l] * y[l];
          y[row] = y[row] / H[row][row];
        }
        for (std::size_t j = 0; j < y.size(); ++j) {
          const int a = static_cast<int>(j) - k0;
          fix = combined(y[j], Z[j], T(1), fix);
          keep = combined(y[j], a < 0 ? V[j] : aug[static_cast<std::size_t>(a)], T(1), keep);
        }
        x = combined(T(1), fix, T(1), x);
        aug[static_cast<std::size_t>(c % augk)] = keep;
      }
      if (rtol * r0 >= res) break;
      r = denseAxpby(A, T(-1), x, T(1), b);
    }
  }
};

template <class T>
class FLGMRESTest : public testing::Test {};
TYPED_TEST_SUITE(FLGMRESTest, ScalarTypes);

TYPED_TEST(FLGMRESTest, FollowsTheReferenceBitForBitAndSolvesRealSystems) {
  using T = TypeParam;
  using R = RealType<T>;
  const R rtol = sizeof(R) == sizeof(float) ? R(1e-5) : R(1e-12);
  for (const Device& device : testDevices()) {
    for (const std::size_t n : {3, 9, 33}) {
      for (const bool isReal : {true, false}) {
        auto A = unsymmetric<T>(n, 5, isReal);
        auto b = smallValues<T>(n, 6), d = b;
        for (std::size_t i = 0; i < n; ++i) {
          if (isReal) b[i] = T(realPart(b[i]));
          d[i] = T(1) / A[i * n + i];
        }
        const int limit = isReal ? 300 : 11;
        const Reference<T> reference(A, d, b, rtol, limit, 3, 2);
        const auto solver =
            makeFLGMRES<T>({{"rtol", rtol}, {"max_its", limit}, {"restart", 3}, {"augk", 2}});
        const auto out = runSolver<T>(*solver, device, A, d, b, std::vector<T>(n, T(0)));

        EXPECT_EQ(out.history, reference.history) << n << isReal;
        EXPECT_EQ(out.x, reference.x);
        EXPECT_EQ(out.iter, reference.it);
        EXPECT_EQ(out.relres, reference.history.back().relB);
        EXPECT_EQ(out.applications, out.iter);
        if (!isReal) continue;
        const auto exact = denseSolve(A, b);
        for (std::size_t i = 0; i < n; ++i) EXPECT_LT(abs(out.x[i] - exact[i]), 100 * rtol);
      }
    }
  }
}

// The rest does not depend on the value type.

/// A system that takes several cycles: convection and diffusion on a line.
std::vector<double> convection(std::size_t n) {
  std::vector<double> A(n * n, 0.0);
  for (std::size_t i = 0; i < n; ++i) {
    A[i * n + i] = 2;
    if (i > 0) A[i * n + i - 1] = -1.7;
    if (i + 1 < n) A[i * n + i + 1] = -0.3;
  }
  return A;
}

/// Counts the columns between the residuals that end the cycles.
class CycleCounter : public DenseOperator<double> {
 public:
  using DenseOperator<double>::DenseOperator;
  void aAxpby(double alpha, const ParVector<double>& x, double beta, ParVector<double>& y,
              AsyncMatVecObject* async) override {
    if (alpha == 1) {
      ++cycles.back();
    } else {
      cycles.push_back(0);
    }
    DenseOperator<double>::aAxpby(alpha, x, beta, y, async);
  }
  std::vector<int> cycles{0};
};

TEST(SolverFLGMRES_R, LengthensItsCyclesAndKeepsTheLengthForTheNextSolve) {
  const std::size_t n = 40;
  const auto solver = makeFLGMRES<double>({{"restart", 3}, {"augk", 2}, {"max_its", 20}});
  const auto cycles = [&] {
    CycleCounter A(Device(), n, convection(n));
    auto x = parVectorOf(Device(), std::vector<double>(n, 0.0));
    const auto b = parVectorOf(Device(), std::vector<double>(n, 1.0));
    int iter = 0;
    double relres = 0;
    solver->solve(A, b, x, iter, relres);
    EXPECT_EQ(iter, 20);
    return A.cycles;
  };
  EXPECT_EQ(cycles(), (std::vector<int>{3, 4, 5, 5, 3, 0}));
  EXPECT_EQ(solver->restart, 5);
  EXPECT_EQ(cycles(), (std::vector<int>{5, 6, 7, 2, 0}));
  EXPECT_EQ(solver->restart, 7);
  solver->restart = 0;
  solver->augk = 0;
  EXPECT_EQ(cycles(), (std::vector<int>{20, 0})) << "no restart within 20 iterations";
  EXPECT_EQ(solver->restart, 21);
  EXPECT_EQ(solver->augk, 2);
}

TEST(SolverFLGMRES_R, NeverRisesWithinACycleAndGainsByWhatItKeeps) {
  const std::size_t n = 60;
  const auto A = convection(n);
  const std::vector<double> b(n, 1.0), one(n, 1.0), zero(n, 0.0);
  const int k0 = 6, augk = 2;
  const auto out = runSolver<double>(
      *makeFLGMRES<double>({{"restart", k0}, {"augk", augk}, {"max_its", 400}}), A, b, zero);
  EXPECT_LE(out.relres, 1e-8);
  EXPECT_LE(normOf(denseAxpby(A, -1.0, out.x, 1.0, b)), 1.0001e-8 * normOf(b));
  const Reference<double> reference(A, one, b, 1e-8, 400, k0, augk);
  EXPECT_EQ(out.history, reference.history);
  ASSERT_GT(reference.begins.size(), 3u);
  // A cycle starts from the residual computed anew, which rounding may have moved.
  expectNeverRising(out.history, 1e-10);
}

TEST(SolverFLGMRES_R, TakesAPreconditionerThatChangesFromStepToStep) {
  class Changing : public DiagonalPreconditioner<double> {
   public:
    using DiagonalPreconditioner<double>::DiagonalPreconditioner;
    void precondition(const ParVector<double>& r, ParVector<double>& z) override {
      DiagonalPreconditioner<double>::precondition(r, z);
      if (applications % 2 == 0) {
        auto again = z.deepCopy();
        DiagonalPreconditioner<double>::precondition(again, z);
      }
    }
  };
  const std::size_t n = 20;
  std::vector<double> d(n);
  for (std::size_t i = 0; i < n; ++i) d[i] = 0.25 + 0.05 * static_cast<double>(i % 5);
  DenseOperator<double> A(Device(), n, convection(n));
  Changing P(parVectorOf(Device(), d));
  auto x = parVectorOf(Device(), std::vector<double>(n, 0.0));
  const std::vector<double> b(n, 1.0);
  const auto solver = makeFLGMRES<double>({{"rtol", 1e-12}, {"restart", 8}});
  int iter = 0;
  double relres = 1;
  solver->solve(P, A, parVectorOf(Device(), b), x, iter, relres);
  EXPECT_LE(relres, 1e-12);
  const auto exact = denseSolve(convection(n), b);
  for (std::size_t i = 0; i < n; ++i) EXPECT_NEAR(valuesOf(x)[i], exact[i], 1e-9);
}

TEST(SolverFLGMRES_R, EntersNoCycleButSetsItsLengthFirst) {
  const std::vector<double> A{2, 1, 0, 8};
  const auto exact = makeFLGMRES<double>({{"verb", 1}});
  EXPECT_THAT(runSolver<double>(*exact, A, {3, 8}, {1, 1}).text,
              testing::ContainsRegex("\nGMRES iteration 0 ..b-Ax.._2 = 0.000000e.00  rel.res "
                                     "-?nan\n$"));
  EXPECT_EQ(exact->restart, 20) << "the first cycle has begun";
  const auto none = makeFLGMRES<double>({{"max_its", 0}});
  runSolver<double>(*none, A, {3, 4}, {1, 0});
  EXPECT_EQ(none->restart, 22);
  const auto zero = makeFLGMRES<double>({{"restart", -1}});
  runSolver<double>(*zero, A, {0, 0}, {5, 6});
  EXPECT_EQ(zero->restart, 2001) << "set before b is looked at";
}

TEST(SolverFLGMRES_R, LeavesAVanishedColumnOut) {
  // The identity maps the first vector to itself: no column is ever kept.
  const auto none =
      runSolver<double>(*makeFLGMRES<double>({{"max_its", 2}}), {1, 0, 0, 1}, {0, 4}, {0, 0});
  EXPECT_EQ(none.text, "0.000000e+00 happy break i=1 0.000000e+00 happy break i=1 ");
  EXPECT_EQ(none.iter, 2);
  EXPECT_EQ(none.relres, 1);
  EXPECT_EQ(none.x, (std::vector<double>{0, 0}));
  EXPECT_EQ(none.history.size(), 1u) << "a column left out has no row";

  // A cyclic shift: three columns that do not help, and the fourth, which would, closes the cycle.
  const std::vector<double> shift{0, 0, 0, 1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
  const auto turns =
      runSolver<double>(*makeFLGMRES<double>({{"max_its", 9}}), shift, {1, 0, 0, 0}, {0, 0, 0, 0});
  EXPECT_EQ(turns.text, "0.000000e+00 happy break i=4 0.000000e+00 happy break i=4 ");
  EXPECT_EQ(turns.iter, 9);
  EXPECT_EQ(turns.relres, 1);

  // [1 1; 0 1] from (0, 1): the first column halves the residual, the second vanishes. x = (0,
  // 1/2), r = (-1/2, 1/2), and the cycle of that start again leaves its second column out.
  const std::vector<double> jordan{1, 1, 0, 1};
  const auto some =
      runSolver<double>(*makeFLGMRES<double>({{"max_its", 2}}), jordan, {0, 1}, {0, 0});
  EXPECT_EQ(some.text, "0.000000e+00 happy break i=2 ");
  EXPECT_DOUBLE_EQ(some.relres, std::sqrt(0.5));
  EXPECT_EQ(some.x[0], 0);
  EXPECT_DOUBLE_EQ(some.x[1], 0.5);
}

}  // namespace
}  // namespace mivo::test
