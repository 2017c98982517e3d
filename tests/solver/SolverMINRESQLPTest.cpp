// SPDX-License-Identifier: Apache-2.0
// The "qlp" form of SolverMINRES.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>

#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

/// Q diag(values) Q^H with Q a product of three random reflections; the columns of Q.
template <class T>
struct Spectral {
  std::vector<T> A;
  std::vector<std::vector<T>> Q;

  Spectral(const std::vector<RealType<T>>& values, unsigned seed) {
    const std::size_t n = values.size();
    A.assign(n * n, T(0));
    for (std::size_t k = 0; k < n; ++k) {
      std::vector<T> q(n, T(0));
      q[k] = T(1);
      for (unsigned h = 0; h < 3; ++h) {
        const auto v = smallValues<T>(n, seed + h);
        T sum(0);
        RealType<T> squares(0);
        for (std::size_t i = 0; i < n; ++i) {
          sum += conj(v[i]) * q[i];
          squares += absSquared(v[i]);
        }
        for (std::size_t i = 0; i < n; ++i) q[i] -= T(2) * v[i] * sum / T(squares);
      }
      for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) A[i * n + j] += q[i] * T(values[k]) * conj(q[j]);
      }
      Q.push_back(q);
    }
  }
  /// Q coefficients
  std::vector<T> combine(const std::vector<RealType<T>>& coefficients) const {
    std::vector<T> out(Q.size(), T(0));
    for (std::size_t k = 0; k < Q.size(); ++k) {
      for (std::size_t i = 0; i < Q.size(); ++i) out[i] += Q[k][i] * T(coefficients[k]);
    }
    return out;
  }
};

template <class T>
class QLP : public testing::Test {};
TYPED_TEST_SUITE(QLP, ScalarTypes);

// The right-hand side has parts along eigenvectors of eigenvalue 0 where the system is
// inconsistent.
TYPED_TEST(QLP, FindsTheSolutionOfLeastLengthOfASingularSystem) {
  using T = TypeParam;
  using R = RealType<T>;
  const R eps = std::numeric_limits<R>::epsilon();
  std::vector<R> values{0, 0, 0}, along{0, 0, 0}, outside{0, 0, 0};
  for (int k = 1; k <= 20; ++k) {
    values.push_back(R(k % 2 == 0 ? k : -k));
    along.push_back(R(k % 3 + 1));
  }
  for (const unsigned seed : {3u, 17u, 40u}) {
    const Spectral<T> system(values, seed);
    std::vector<R> rhs(values.size());
    for (std::size_t k = 0; k < rhs.size(); ++k) rhs[k] = values[k] * along[k];
    for (const bool consistent : {true, false}) {
      // in single precision rounding hides the rank
      if (!consistent && sizeof(R) == sizeof(float)) continue;
      if (!consistent) rhs[0] = R(7), rhs[2] = R(-5);
      for (const Device& device : testDevices()) {
        const auto run = solveDense<T>("SolverMINRES", {{"rtol", 10 * eps}}, system.A,
                                       system.combine(rhs), {}, device);
        const auto expected = system.combine(along);
        for (std::size_t i = 0; i < expected.size(); ++i) {
          EXPECT_LT(abs(run.x[i] - expected[i]), consistent ? 2000 * eps : R(1e-8)) << seed;
        }
        EXPECT_LE(run.iter, 40);
        expectNeverRising(run.history, R(100 * eps));
        const R least = consistent ? R(0) : R(std::sqrt(74.0));
        EXPECT_NEAR(run.history.back().r, least, 20 * eps * run.history[0].r);
      }
    }
  }
}

std::string row(const char* mark, int its, int flag, double rnorm, double Arnorm, double compatible,
                double LS, double Anorm, double Acond, double xnorm) {
  char text[200];
  std::snprintf(text, sizeof text,
                "%s %5d   %2d %10.2e %10.2e   %10.2e %10.2e %10.2e %10.2e %10.2e\n", mark, its,
                flag, rnorm, Arnorm, compatible, LS, Anorm, Acond, xnorm);
  return text;
}

const char* const kHead =
    "        flag      rnorm     Arnorm   Compatible         LS      Anorm      Acond      xnorm\n";

TEST(SolverMINRESQLP, PrintsItsTable) {
  // A = diag(2, 8), b = (3, 4): x1 = t b with t = (b, A b) / |A b|^2; |T e_1| = |A b| / |b|
  const double Ab = std::sqrt(1060.0), t = 146 / 1060.0, norm = Ab / 5;
  const double r1[] = {3 - 2 * t * 3, 4 - 8 * t * 4};
  const double rnorm = std::hypot(r1[0], r1[1]), Ar = std::hypot(2 * r1[0], 8 * r1[1]);
  const auto run =
      solveDense<double>("SolverMINRES", {{"monitor", 1}, {"max_its", 1}}, {2, 0, 0, 8}, {3, 4});
  EXPECT_EQ(run.text, kHead + row(" ", 0, 0, 5, Ab, 1, 1, 0, 1, 0) +
                          row(" ", 1, 4, rnorm, Ar, rnorm / (norm * 5 * t + 5), Ar / (norm * rnorm),
                              norm, 1, 5 * t));
  EXPECT_NEAR(run.x[0], 3 * t, 1e-15);
  EXPECT_NEAR(run.x[1], 4 * t, 1e-15);
}

TEST(SolverMINRESQLP, StopsBeforeAStepBeyondTheRadius) {
  // The solution is (1.5, 0.5) and the first iterate has the length 5 * 146 / 1060 = 0.69.
  const auto solve = [](double radius) {
    return solveDense<double>("SolverMINRES", {{"radius", radius}, {"monitor", 1}}, {2, 0, 0, 8},
                              {3, 4});
  };
  const auto stopped = solve(1.5);
  EXPECT_EQ(stopped.iter, 2);
  EXPECT_NEAR(std::hypot(stopped.x[0], stopped.x[1]), 5 * 146 / 1060., 1e-14);
  EXPECT_EQ(stopped.history[2].r, stopped.history[1].r);
  EXPECT_NE(stopped.text.find("\n      2    5 "), std::string::npos) << stopped.text;
  for (const double radius : {0.0, -1.0, 1.6}) {
    EXPECT_NEAR(solve(radius).x[0], 1.5, 1e-14) << radius;
  }
}

TEST(SolverMINRESQLP, StopsWhereTheConditionPassesItsLimit) {
  const json params = {{"monitor", 1}, {"rtol", 1e-14}};
  // One step more would bring the small eigenvalue in, and |x| to 1e9.
  const auto run = solveDense<double>("SolverMINRES", params, {1, 0, 0, 1e-9}, {1, 1});
  EXPECT_EQ(run.iter, 2);
  EXPECT_NEAR(run.x[0], 1, 1e-8);
  EXPECT_NEAR(run.x[1], 0, 1e-8);
  expectNeverRising(run.history, 1e-8);
  EXPECT_NE(run.text.find("\nT     2    6 "), std::string::npos) << run.text;
  const auto within = solveDense<double>("SolverMINRES", params, {1, 0, 0, 1e-7}, {1, 1e-3});
  EXPECT_NEAR(within.x[1], 1e4, 1e-3);
  // a system of zeros has the solution 0
  const auto zero = solveDense<double>("SolverMINRES", {}, {0, 0, 0, 0}, {3, 4});
  EXPECT_EQ(zero.x, (std::vector<double>{0, 0}));
  EXPECT_EQ(zero.relres, 1);
}

TEST(SolverMINRESQLP, LeavesAnExactStartAlone) {
  const auto solver = makeSolverOf<double>("SolverMINRES", {});
  for (const auto& b : {std::vector<double>{0, 0}, std::vector<double>{2, 3}}) {
    const auto run = runSolver<double>(*solver, {1, 0, 0, 1}, b, b);
    EXPECT_EQ(run.iter, 0);
    EXPECT_TRUE(std::isnan(run.relres)) << "0 / 0";
    EXPECT_EQ(run.x, b);
  }
}

TEST(SolverMINRESQLP, EndsWithAnIndefinitePreconditionerAndWithNaN) {
  const std::vector<double> A{0, 1, 1, 0};
  const auto atStart = solveDense<double>("SolverMINRES", {}, A, {3, 4}, {-1, 0});
  EXPECT_EQ(atStart.text, "Detected indefinite operator -9 tolerance 1e-50\n");
  EXPECT_EQ(atStart.iter, 0);
  EXPECT_EQ(atStart.relres, 1);
  // (r, M r) = 4 - 1 at the start, negative after the first product
  const auto later = solveDense<double>("SolverMINRES", {{"monitor", 1}}, A, {1, 2}, {-1, 1});
  EXPECT_NE(later.text.find("Detected indefinite operator -"), std::string::npos) << later.text;
  EXPECT_EQ(later.iter, 1);
  EXPECT_EQ(later.x, (std::vector<double>{0, 0}));
  EXPECT_EQ(later.relres, 1);

  const double nan = std::nan("");
  const auto lost = solveDense<double>("SolverMINRES", {}, {1, 0, 0, nan}, {1, 1});
  EXPECT_EQ(lost.iter, 0);
  EXPECT_TRUE(std::isnan(lost.relres));
}

}  // namespace
}  // namespace mivo::test
