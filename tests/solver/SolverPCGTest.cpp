// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "mivo/operators/ParOperatorIdentity.hpp"
#include "mivo/solver/SolverPCG.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

template <class T>
std::shared_ptr<SolverPCG_T<T, long, int>> makePCG(const json& params = json()) {
  return makeSolver<SolverPCG_T<T, long, int>>("SolverPCG", params);
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

Outcome run(SolverPCG_T<double, long, int>& pcg, const std::vector<double>& matrix,
            const std::vector<double>& b, const std::vector<double>& start) {
  DenseOperator<double> A(Device(), b.size(), matrix);
  return solved(pcg, A, b, start);
}

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
  const Outcome out = run(*pcg, kMatrix, {1, 1}, {0, 0});
  EXPECT_EQ(out.iter, 2);
  EXPECT_NEAR(out.x[1], 0.125, 1e-14);
  EXPECT_EQ(out.text, "");
}

TEST(SolverPCG, PrintsItsTables) {
  const auto pcg =
      makePCG<double>({{"verbose", 2}, {"verb", 1}, {"max_its", 1}, {"btol", 0.5}, {"atol", 1e-3}});
  // r0 = (3, 4); alpha = 25 / (2 * 9 + 8 * 16) = 25 / 146; then |r| = |(3 - 6 alpha, 4 - 32 alpha)|
  const Outcome out = run(*pcg, kMatrix, {3, 4}, {0, 0});
  EXPECT_EQ(
      withoutTimes(out.text),
      "I 0/1 ParOperator:83] Begin solving equation: size 2 solver PCG device cpu:0\n"
      "I 0/1 ParOperator:86]     iter           |r|      |r|/|r0|       |r|/|b|     conv_rate\n"
      "I 0/1 ParOperator:100]        0  5.000000e+00  1.000000e+00  1.000000e+00  1.000000e+00\n"
      "======================== PCG =====================\n"
      "Tolerances: atol=0.001, rtol=1e-08, btol=0.5\n"
      "Iters   Resid. norm    Resid./resid0  Resid./rhs\n"
      "-----   ------------   -------------  ------------\n"
      "    0   5.000000e+00   1.000000e+00   1.000000e+00\n"
      "I 0/1 ParOperator:100]        1  2.465753e+00  4.931507e-01  4.931507e-01  4.931507e-01\n"
      "    1   2.465753e+00   4.931507e-01   4.931507e-01\n"
      "I 0/1 ParOperator:113] Finish solving using PCG, iter/max_its 1/1, res_b 4.931507e-01, "
      "solve_time T, precond_setup T, precond T\n");
}

TEST(SolverPCG, KeepsRateAndTimesFromSolveToSolve) {
  const auto pcg = makePCG<double>({{"verbose", 2}, {"max_its", 1}});
  run(*pcg, kMatrix, {3, 4}, {0, 0});
  const double first = pcg->lastResB;
  EXPECT_NEAR(first, 360.0 / 730.0, 1e-15);
  const double seconds = pcg->solveTime.getTimeSec();
  const Outcome again = run(*pcg, kMatrix, {3, 4}, {0, 0});
  EXPECT_THAT(again.text, testing::HasSubstr(
                              "ParOperator:100]        0  5.000000e+00  1.000000e+00  1.000000e+00"
                              "  2.027778e+00\n"))
      << "the first rate is against the end of the solve before";
  EXPECT_EQ(pcg->solveTime.getCount(), 2u);
  EXPECT_GT(pcg->solveTime.getTimeSec(), seconds);
}

TEST(SolverPCG, WarnsOfABreakdownAndKeepsWhatItHas) {
  // (p, A p) = 0 in the first step
  const Outcome first = run(*makePCG<double>(), {1, 0, 0, -1}, {1, 1}, {0, 0});
  EXPECT_EQ(first.text, "/project/src/solver/SolverPCG:120, Warning! the matrix may not be SPD.\n");
  EXPECT_EQ(first.iter, 1);
  EXPECT_DOUBLE_EQ(first.relres, 1);
  EXPECT_EQ(first.x, (std::vector<double>{0, 0}));

  // (r, z) = 0 in the first step makes alpha 0, and is found in the second
  DenseOperator<double> A(Device(), 2, {1, 0, 0, 2});
  DiagonalPreconditioner<double> P(parVectorOf<double>(Device(), {1, -1}));
  auto x = parVectorOf<double>(Device(), {0, 0});
  const auto pcg = makePCG<double>();
  int iter = 0;
  double relres = 0;
  const std::string text = printed([&] {
    pcg->solve(P, A, parVectorOf<double>(Device(), {1, 1}), x, iter, relres);
  });
  EXPECT_EQ(text, "/project/src/solver/SolverPCG:107, Warning! the matrix may not be SPD.\n");
  EXPECT_EQ(iter, 2);
  EXPECT_DOUBLE_EQ(relres, 1);
  EXPECT_EQ(pcg->solveTime.getCount(), 1u);
}

}  // namespace
}  // namespace mivo::test
