// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <vector>

#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

template <class T>
auto makePCG(const json& params = json()) {
  return makeSolverOf<T>("SolverPCG", params);
}

/// The method as the books write it.
template <class T>
struct ReferencePCG {
  using R = RealType<T>;
  std::vector<T> x;
  std::vector<Status<R>> history;

  ReferencePCG(const std::vector<T>& A, const std::vector<T>& d, const std::vector<T>& b,
               const std::vector<T>& start, R rtol, int maxIts)
      : x(start) {
    auto r = combined(T(1), b, T(-1), denseProduct(A, x));
    const R r0 = normOf(r), normb = normOf(b);
    history.push_back({0, r0, r0 / r0, r0 / normb});
    R res = r0;
    T rho(0);
    std::vector<T> p;
    for (int k = 1; res > rtol * r0 && k <= maxIts; ++k) {
      const auto z = scaledBy(d, r);
      const T rhoNew = dotOf(r, z);
      p = k == 1 ? z : combined(T(1), z, rhoNew / rho, p);
      rho = rhoNew;
      const auto q = denseProduct(A, p);
      const T alpha = rho / dotOf(p, q);
      x = combined(alpha, p, T(1), x);
      r = combined(-alpha, q, T(1), r);
      res = normOf(r);
      history.push_back({k, res, res / r0, res / normb});
    }
  }
};

template <class T>
class PCG : public testing::Test {};
TYPED_TEST_SUITE(PCG, ScalarTypes);

TYPED_TEST(PCG, FollowsTheReferenceBitForBitAndSolvesTheSystem) {
  using T = TypeParam;
  using R = RealType<T>;
  const R rtol = sizeof(R) == sizeof(float) ? R(1e-5) : R(1e-12);
  for (const Device& device : testDevices()) {
    for (const std::size_t n : {1, 2, 31, 33}) {
      for (const bool zeroStart : {true, false}) {
        const auto matrix = positiveDefinite<T>(n, 5);
        const auto b = smallValues<T>(n, 6);
        if (n == 1 && isZero(b[0])) continue;
        std::vector<T> inverse(n), start(n, T(0));
        for (std::size_t i = 0; i < n; ++i) inverse[i] = T(1) / matrix[i * n + i];
        if (!zeroStart) start = smallValues<T>(n, 7);
        const ReferencePCG<T> reference(matrix, inverse, b, start, rtol, 2000);

        const auto out =
            runSolver<T>(*makePCG<T>({{"rtol", rtol}}), device, matrix, inverse, b, start);
        EXPECT_EQ(out.history, reference.history) << "n " << n;
        EXPECT_EQ(out.x, reference.x);
        EXPECT_EQ(out.iter, reference.history.back().iter);
        EXPECT_EQ(out.relres, reference.history.back().relB);
        EXPECT_EQ(out.products, out.iter + (zeroStart ? 0 : 1)) << "a zero start saves one product";
        EXPECT_EQ(out.applications, out.iter);
        const auto residual = denseAxpby(matrix, T(-1), out.x, T(1), b);
        for (std::size_t i = 0; i < n; ++i) {
          EXPECT_LT(abs(residual[i]), 100 * n * rtol) << "n " << n << ", row " << i;
        }
      }
    }
  }
}

// The rest does not depend on the value type.

const std::vector<double> kMatrix{2, 0, 0, 8};

// Keys and defaults are tested with the document that lists them.
TEST(SolverPCG, CompletesAPreconditionerToTheIdentity) {
  const auto pcg = makePCG<double>({{"preconditioner", {{"tagName", "p"}}}});
  EXPECT_EQ(pcg->name, "PCG");
  std::ostringstream tree;
  pcg->describe(tree, 0);
  EXPECT_EQ(tree.str(),
            "ParSolverT SolverPCG\n  preconditioner[p] ParPreconditionerT PrecondIdentity\n");
  EXPECT_NE(makePCG<double>()->preconditioner, nullptr);
}

TEST(SolverPCG, TakesTheIdentityForAnUnknownPreconditioner) {
  const auto pcg = makePCG<double>({{"preconditioner", {{"preconditioner_type", "NoSuch"}}}});
  EXPECT_EQ(pcg->preconditioner, nullptr);
  EXPECT_TRUE(pcg->children.empty());
  DenseOperator<double> A(Device(), 2, kMatrix);
  const Outcome out = solved(*pcg, A, {1, 1}, {0, 0});
  EXPECT_EQ(out.iter, 2);
  EXPECT_NEAR(out.x[1], 0.125, 1e-14);
  EXPECT_EQ(out.text, "");
}

TEST(SolverPCG, KeepsRateAndTimesFromSolveToSolve) {
  const auto pcg = makePCG<double>({{"verbose", 2}, {"max_its", 1}});
  runSolver<double>(*pcg, kMatrix, {3, 4}, {0, 0});
  EXPECT_NEAR(pcg->lastResB, 360.0 / 730.0, 1e-15);
  const double seconds = pcg->solveTime.getTimeSec();
  EXPECT_THAT(runSolver<double>(*pcg, kMatrix, {3, 4}, {0, 0}).text,
              testing::HasSubstr("1.000000e+00  1.000000e+00  2.027778e+00\n"))
      << "the first rate is against the end of the solve before";
  EXPECT_EQ(pcg->solveTime.getCount(), 2u);
  EXPECT_GT(pcg->solveTime.getTimeSec(), seconds);
}

TEST(SolverPCG, WarnsOfABreakdownAndKeepsWhatItHas) {
  // (p, A p) = 0 in the first step
  const auto first = solveDense<double>("SolverPCG", {}, {1, 0, 0, -1}, {1, 1});
  EXPECT_EQ(first.text, "/project/src/solver/SolverPCG:120, Warning! the matrix may not be SPD.\n");
  EXPECT_EQ(first.iter, 1);
  EXPECT_DOUBLE_EQ(first.relres, 1);
  EXPECT_EQ(first.x, (std::vector<double>{0, 0}));

  // (r, z) = 0 in the first step makes alpha 0, and is found in the second
  const auto next = solveDense<double>("SolverPCG", {}, {1, 0, 0, 2}, {1, 1}, {1, -1});
  EXPECT_EQ(next.text, "/project/src/solver/SolverPCG:107, Warning! the matrix may not be SPD.\n");
  EXPECT_EQ(next.iter, 2);
  EXPECT_DOUBLE_EQ(next.relres, 1);
}

}  // namespace
}  // namespace mivo::test
