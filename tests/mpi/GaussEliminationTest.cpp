// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "mivo/solver/SolverGaussElimination.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/krylov.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

template <class T>
auto gauss(const json& params = json()) {
  return makeSolver<SolverGaussElimination_T<T, long, int>>("SolverGaussElim", params);
}

template <class T>
class GaussElimination : public testing::Test {};
using Types = testing::Types<float, Complex<double>>;
TYPED_TEST_SUITE(GaussElimination, Types);

// Every cut of the rows, those with empty ranks too; x keeps its storage, and what was not asked
// for stays.
TYPED_TEST(GaussElimination, SolvesWhateverTheStartAndThePartition) {
  using T = TypeParam;
  std::mt19937 rng(5);
  for (const int n : {1, 2, 23}) {
    const auto a = dominatedCsr<T>(rng, n);
    const auto b = smallVector<T>(rng, n), start = smallVector<T>(rng, n);
    const auto expected = denseSolve(a.dense(), b);
    forEachCut(n, rng, [&](const auto& part, const Device& device) {
      auto A = distributed<T, long>(device, part, part, a);
      auto x = ownColumn(device, part, start);
      const auto alias = x, rhs = ownColumn(device, part, b);
      const auto solver = gauss<T>();
      solver->setup(A);
      int iterations = -3;
      RealType<T> relres = -3;
      solver->solve(A, rhs, x, iterations, relres);
      expectNear(valuesOf(x), ownPart(part, expected));
      EXPECT_EQ(valuesOf(alias), valuesOf(x));
      EXPECT_EQ(iterations, -3);
      EXPECT_EQ(relres, -3);
      EXPECT_EQ(solver->solveTime.getCount(), 1u);
      ParVector<T> fresh;
      solver->solve(A, rhs, fresh, iterations, relres);
      EXPECT_EQ(valuesOf(fresh), valuesOf(x));
      EXPECT_EQ(fresh.getDevice(), device);
    });
  }
}

TEST(GaussEliminationOnce, PrintsItsLinesOnRankZeroAlone) {
  std::mt19937 rng(1);
  const auto part = worldCuts<long>(4L, rng).front();
  const auto b = ownColumn(Device(), part, std::vector<double>(4, 1.0));
  auto x = b.deepCopy();
  int iterations = 0;
  double relres = 0;
  const auto solve = [&](int verbose, const auto& entry) {
    auto A = distributed<double, long>(Device(), part, part, HostCsr<double>::build(4, 4, entry));
    const auto solver = gauss<double>({{"verbose", verbose}});
    return printed([&] { solver->solve(A, b, x, iterations, relres); });
  };
  for (const int verbose : {0, 1, 2}) {
    const auto text = solve(verbose, [](int i, auto& out) { out.push(i, 1.0); });
    const bool speaks = verbose > 0 && worldRank() == 0;
    const auto expect = [&](const std::string& line, bool there) {
      EXPECT_EQ(testing::Value(text, testing::ContainsRegex(line)), there) << line;
    };
    EXPECT_EQ(text.empty(), !speaks);
    expect("ing equation: size 4 solver GaussElim device cpu:0\n", speaks);
    expect("Finish solving using GaussElim, iter/max_its 1/2000, res_b 0", speaks);
    expect("gauss_elim time: fact [0-9.e+-]+ ms, solve [0-9.e+-]+ ms\n", speaks && verbose > 1);
  }
  // No pivoting: a zero on the diagonal is not reported. No rows: nothing to do.
  solve(0, [](int i, auto& out) { out.push(3 - i, 1.0); });
  for (const double v : valuesOf(x)) EXPECT_FALSE(std::isfinite(v));
  ParSparse<double> none;
  ParVector<double> nothing;
  gauss<double>()->solve(none, nothing, nothing, iterations, relres);
  EXPECT_EQ(nothing.getRows(), 0);
}

TEST(GaussEliminationOnce, NeedsAMatrix) {
  if (worldSize() > 1) return;
  DenseOperator<double> A(Device(), 1, {2.0});
  auto x = parVectorOf<double>(Device(), {1.0}), two = parVectorOf<double>(Device(), {1.0, 1.0});
  auto one = parCsrOf<double>(Device(), 1, {2.0});
  int iterations = 0;
  double relres = 0;
  MIVO_EXPECT_FATAL_TEXT(gauss<double>()->solve(A, x, x, iterations, relres),
                         "Gauss elimination needs a ParCSRMatrixT");
  MIVO_EXPECT_FATAL_TEXT(gauss<double>()->solve(one, x, two, iterations, relres),
                         "Gauss elimination needs a solution of 1 x 1, found 2 x 1");
}

}  // namespace
}  // namespace mivo::test
