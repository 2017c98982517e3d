// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "mivo/solver/SolverFLGMRES_R.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

auto makeFLGMRES(const json& params = json()) {
  return makeSolver<SolverFLGMRES_R_T<double, long, int, double>>("SolverFLGMRES_R", params);
}

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
  const auto solver = makeFLGMRES({{"restart", 3}, {"augk", 2}, {"max_its", 20}});
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

TEST(SolverFLGMRES_R, TakesAPreconditionerThatChangesFromStepToStep) {
  struct Changing : DiagonalPreconditioner<double> {
    using DiagonalPreconditioner::DiagonalPreconditioner;
    void precondition(const ParVector<double>& r, ParVector<double>& z) override {
      DiagonalPreconditioner::precondition(r, z);
      if (applications % 2 == 0) DiagonalPreconditioner::precondition(z.deepCopy(), z);
    }
  };
  const std::size_t n = 20;
  std::vector<double> d(n);
  for (std::size_t i = 0; i < n; ++i) d[i] = 0.25 + 0.05 * static_cast<double>(i % 5);
  DenseOperator<double> A(Device(), n, convection(n));
  Changing P(parVectorOf(Device(), d));
  auto x = parVectorOf(Device(), std::vector<double>(n, 0.0));
  const std::vector<double> b(n, 1.0);
  int iter = 0;
  double relres = 1;
  makeFLGMRES({{"rtol", 1e-12}, {"restart", 8}})
      ->solve(P, A, parVectorOf(Device(), b), x, iter, relres);
  EXPECT_LE(relres, 1e-12);
  EXPECT_LE(normOf(denseAxpby(convection(n), -1.0, valuesOf(x), 1.0, b)), 2e-12 * normOf(b));
}

TEST(SolverFLGMRES_R, EntersNoCycleButSetsItsLengthFirst) {
  const std::vector<double> A{2, 1, 0, 8};
  const auto exact = makeFLGMRES({{"verb", 1}});
  EXPECT_THAT(runSolver<double>(*exact, A, {3, 8}, {1, 1}).text,
              testing::ContainsRegex("\nGMRES iteration 0 ..b-Ax.._2 = 0.000000e.00  rel.res "
                                     "-?nan\n$"));
  EXPECT_EQ(exact->restart, 20) << "the first cycle has begun";
  const auto none = makeFLGMRES({{"max_its", 0}});
  runSolver<double>(*none, A, {3, 4}, {1, 0});
  EXPECT_EQ(none->restart, 22);
  const auto zero = makeFLGMRES({{"restart", -1}});
  runSolver<double>(*zero, A, {0, 0}, {5, 6});
  EXPECT_EQ(zero->restart, 2001) << "set before b is looked at";
}

}  // namespace
}  // namespace mivo::test
