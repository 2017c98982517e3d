// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

/// The formulas, for data on which nothing breaks down.
template <class T>
struct Reference {
  using R = RealType<T>;
  std::vector<T> x;
  std::vector<Status<R>> history;

  Reference(const std::vector<T>& A, const std::vector<T>& d, const std::vector<T>& b,
            const std::vector<T>& start, R rtol, int maxIts)
      : x(start) {
    auto r = combined(T(1), b, T(-1), denseProduct(A, x));
    const R r0 = normOf(r), bnorm = normOf(b);
    const auto rhat = r;
    std::vector<T> p, v;
    T rhoOld(0), alpha(0), omega(0);
    R res = r0;
    history.push_back({0, res, res / r0, res / bnorm});
    for (int k = 1; res > rtol * r0 && k <= maxIts; ++k) {
      const T rho = dotOf(r, rhat);
      const T beta = alpha * rho / (rhoOld * omega);
      p = k == 1 ? r : combined(T(1), r, beta, combined(T(1), p, -omega, v));
      const auto phat = scaledBy(d, p);
      v = denseProduct(A, phat);
      alpha = rho / dotOf(rhat, v);
      const auto s = combined(T(1), r, -alpha, v);
      const auto shat = scaledBy(d, s);
      const auto t = denseProduct(A, shat);
      omega = dotOf(t, s) / dotOf(t, t);
      x = combined(T(1), x, T(1), combined(omega, shat, alpha, phat));
      r = combined(T(1), s, -omega, t);
      rhoOld = rho;
      res = normOf(r);
      history.push_back({k, res, res / r0, res / bnorm});
    }
  }
};

template <class T>
class BiCGSTABTest : public testing::Test {};
TYPED_TEST_SUITE(BiCGSTABTest, ScalarTypes);

TYPED_TEST(BiCGSTABTest, FollowsTheReferenceBitForBitAndSolvesRealSystems) {
  using T = TypeParam;
  using R = RealType<T>;
  const R rtol = sizeof(R) == sizeof(float) ? R(1e-5) : R(1e-12);
  for (const Device& device : testDevices()) {
    for (const std::size_t n : {3, 9, 33}) {
      for (const bool isReal : {true, false}) {
        for (const bool zeroStart : {true, false}) {
          const auto A = unsymmetric<T>(n, 5, isReal);
          auto b = smallValues<T>(n, 6), start = smallValues<T>(n, 7), d = b;
          for (std::size_t i = 0; i < n; ++i) {
            if (isReal) b[i] = T(realPart(b[i])), start[i] = T(realPart(start[i]));
            if (zeroStart) start[i] = T(0);
            d[i] = T(1) / A[i * n + i];
          }
          const int limit = isReal ? 2000 : 4;
          const Reference<T> reference(A, d, b, start, rtol, limit);
          const auto solver =
              makeSolverOf<T>("SolverBiCGSTAB", {{"rtol", rtol}, {"max_its", limit}});
          const auto out = runSolver<T>(*solver, device, A, d, b, start);

          EXPECT_EQ(out.history, reference.history) << n << isReal << zeroStart;
          EXPECT_EQ(out.x, reference.x);
          EXPECT_EQ(out.iter, reference.history.back().iter);
          EXPECT_EQ(out.relres, reference.history.back().relB);
          EXPECT_EQ(out.products, 2 * out.iter + (zeroStart ? 0 : 1));
          EXPECT_EQ(out.applications, 2 * out.iter);
          EXPECT_EQ(out.text, "");
          if (!isReal) continue;
          EXPECT_LE(out.iter, static_cast<int>(n)) << "exact after n steps";
          const auto exact = denseSolve(A, b);
          for (std::size_t i = 0; i < n; ++i) EXPECT_LT(abs(out.x[i] - exact[i]), 100 * rtol);
        }
      }
    }
  }
}

// The rest does not depend on the value type.

TEST(SolverBiCGSTAB, EndsAtAVanishedHalfStepWithTheTrueResidual) {
  // alpha = 1/4 leaves s = 0
  const auto exact = solveDense<double>("SolverBiCGSTAB", {}, {4, 0, 0, 4}, {1, 2});
  EXPECT_EQ(exact.text, "phg: bicgstab: ||s|| is too small: 0.000000e+00, terminated.\n");
  EXPECT_EQ(exact.iter, 1);
  EXPECT_EQ(exact.relres, 0);
  EXPECT_EQ(exact.x, (std::vector<double>{0.25, 0.5}));
  EXPECT_EQ(exact.history.size(), 1u) << "a step cut short has no row";
  EXPECT_EQ(exact.products, 2) << "one of them for the true residual";

  // A tiny system vanishes by the absolute bound: s = (0, -1e-62), and the residual says so.
  const auto tiny = solveDense<double>("SolverBiCGSTAB", {}, {1, 0, 1, 1}, {1e-62, 0});
  EXPECT_EQ(tiny.text, "phg: bicgstab: ||s|| is too small: 1.000000e-62, terminated.\n");
  EXPECT_DOUBLE_EQ(tiny.relres, 1);
}

TEST(SolverBiCGSTAB, EndsAtABreakdownWithWhatItHas) {
  // r0 = (1, 0), alpha = 1, s = (0, -1), t = (-1, 0), so that omega = 0 and (r1, r0) = 0
  const auto rho = solveDense<double>("SolverBiCGSTAB", {}, {1, 1, 1, 0}, {1, 0});
  EXPECT_EQ(rho.text, "phg: bicgstab: method failed.!\n");
  EXPECT_EQ(rho.iter, 2);
  EXPECT_EQ(rho.relres, 1);
  EXPECT_EQ(rho.x, (std::vector<double>{1, 0}));
  EXPECT_EQ(rho.history.size(), 2u) << "the failed step has no row";

  // (rhat, v) = 0 makes alpha infinite, and NaN ends the iteration in silence
  const auto lost = solveDense<double>("SolverBiCGSTAB", {}, {0, 1, -1, 0}, {1, 0});
  EXPECT_EQ(lost.text, "");
  EXPECT_EQ(lost.iter, 1);
  EXPECT_TRUE(std::isnan(lost.relres));
}

}  // namespace
}  // namespace mivo::test
