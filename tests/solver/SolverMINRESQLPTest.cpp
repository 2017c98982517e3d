// SPDX-License-Identifier: Apache-2.0
// The "qlp" form of SolverMINRES.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

template <class T>
class QLP : public testing::Test {};
TYPED_TEST_SUITE(QLP, ScalarTypes);

// Q D Q with a reflection Q and the eigenvalues 0, 0, 0, -1, 2, ..., 20. Where the system is
// inconsistent, the right-hand side has parts along eigenvectors of 0.
TYPED_TEST(QLP, FindsTheSolutionOfLeastLengthOfASingularSystem) {
  using T = TypeParam;
  using R = RealType<T>;
  const R eps = std::numeric_limits<R>::epsilon();
  const std::size_t n = 23;
  for (const unsigned seed : {3u, 17u, 40u}) {
    const auto v = smallValues<T>(n, seed);
    std::vector<T> Q(n * n), QD(n * n), A(n * n), along(n), rhs(n);
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = 0; j < n; ++j) {
        const int k = static_cast<int>(j) - 2;
        const T eigenvalue = T(R(k <= 0 ? 0 : k % 2 == 0 ? k : -k));
        Q[i * n + j] = T(i == j ? 1 : 0) - T(2) * v[i] * conj(v[j]) / dotOf(v, v);
        QD[i * n + j] = Q[i * n + j] * eigenvalue;
        if (j == i && k > 0) along[i] = T(R(k % 3 + 1));
        if (j == i) rhs[i] = eigenvalue * along[i];
      }
    }
    for (std::size_t j = 0; j < n; ++j) {
      std::vector<T> column(n);
      for (std::size_t i = 0; i < n; ++i) column[i] = Q[i * n + j];
      const auto product = denseProduct(QD, column);
      for (std::size_t i = 0; i < n; ++i) A[i * n + j] = product[i];
    }
    const auto expected = denseProduct(Q, along);
    for (const bool consistent : {true, false}) {
      // in single precision rounding hides the rank
      if (!consistent && sizeof(R) == sizeof(float)) continue;
      if (!consistent) rhs[0] = T(7), rhs[2] = T(-5);
      for (const Device& device : testDevices()) {
        const auto run = solveDense<T>("SolverMINRES", {{"rtol", 10 * eps}}, A,
                                       denseProduct(Q, rhs), {}, device);
        for (std::size_t i = 0; i < n; ++i) {
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

TEST(SolverMINRESQLP, PrintsItsTable) {
  // A = diag(2, 8), b = (3, 4): x1 = t b with t = (b, A b) / |A b|^2; |T e_1| = |A b| / |b|
  const double t = 146 / 1060.0;
  const auto run =
      solveDense<double>("SolverMINRES", {{"monitor", 1}, {"max_its", 1}}, {2, 0, 0, 8}, {3, 4});
  EXPECT_EQ(run.text,
            "        flag      rnorm     Arnorm   Compatible         LS      Anorm      Acond      "
            "xnorm\n"
            "      0    0   5.00e+00   3.26e+01     1.00e+00   1.00e+00   0.00e+00   1.00e+00   "
            "0.00e+00\n"
            "      1    4   2.21e+00   5.43e+00     2.33e-01   3.77e-01   6.51e+00   1.00e+00   "
            "6.89e-01\n");
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
}

}  // namespace
}  // namespace mivo::test
