// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "mivo/solver/SolverGaussElimination.hpp"
#include "mivo/utils/Factory.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/krylov.hpp"
#include "tests/support/operators.hpp"
#include "tests/support/ranks.hpp"

namespace mivo {
namespace {

using test::HostCsr;
using test::ownColumn;
using test::ownPart;
using test::printed;
using test::worldRank;

template <class T>
auto makeSolver(const json& params = json()) {
  return test::makeSolver<SolverGaussElimination_T<T, long, int>>("SolverGaussElim", params);
}

template <class T>
class GaussElimination : public testing::Test {};
using Scalars = testing::Types<float, double, Complex<float>, Complex<double>>;
TYPED_TEST_SUITE(GaussElimination, Scalars);

// Every cut of the rows, those with empty ranks too; x keeps its storage, and what was not asked
// for stays.
TYPED_TEST(GaussElimination, SolvesWhateverTheStartAndThePartition) {
  using T = TypeParam;
  using R = RealType<T>;
  std::mt19937 rng(5);
  for (const int n : {1, 2, 23}) {
    const auto a = test::dominatedCsr<T>(rng, n);
    const auto b = test::smallVector<T>(rng, n), start = test::smallVector<T>(rng, n);
    const auto expected = test::denseSolve(a.dense(), b);
    for (const auto& part : test::worldCuts<long>(n, rng)) {
      for (const Device& device : test::rankDevices()) {
        auto A = test::distributed<T, long>(device, part, part, a);
        auto x = ownColumn(device, part, start);
        const auto alias = x;
        const auto solver = makeSolver<T>();
        solver->setup(A);
        int iterations = -3;
        R relres = R(-3);
        solver->solve(A, ownColumn(device, part, b), x, iterations, relres);
        test::expectNear(test::valuesOf(x.getLocalMatrix()), ownPart(part, expected));
        EXPECT_EQ(test::valuesOf(alias.getLocalMatrix()), test::valuesOf(x.getLocalMatrix()));
        EXPECT_EQ(x.getDevice(), device);
        EXPECT_EQ(iterations, -3);
        EXPECT_EQ(relres, R(-3));
        EXPECT_EQ(solver->solveTime.getCount(), 1u);
        ParMatrixT<T, long, int> fresh;
        solver->solve(A, ownColumn(device, part, b), fresh, iterations, relres);
        EXPECT_EQ(test::valuesOf(fresh.getLocalMatrix()), test::valuesOf(x.getLocalMatrix()));
        EXPECT_EQ(fresh.getDevice(), device);
      }
    }
  }
}

TEST(GaussEliminationOnce, PrintsItsLinesOnRankZeroAlone) {
  PartitionerT<long, int> part;
  part.create(4L, test::worldSize());
  const auto identity =
      HostCsr<double>::build(4, 4, [](int i, HostCsr<double>& out) { out.push(i, 1.0); });
  auto A = test::distributed<double, long>(Device(), part, part, identity);
  const std::vector<double> ones(4, 1.0);
  auto x = ownColumn(Device(), part, ones);
  const auto b = ownColumn(Device(), part, ones);
  for (const int verbose : {0, 1, 2}) {
    const auto solver = makeSolver<double>({{"verbose", verbose}});
    int iterations = 0;
    double relres = 0;
    const auto text = printed([&] { solver->solve(A, b, x, iterations, relres); });
    if (verbose == 0 || worldRank() > 0) {
      EXPECT_EQ(text, "");
      continue;
    }
    EXPECT_THAT(text, testing::HasSubstr("ing equation: size 4 solver GaussElim device cpu:0\n"));
    EXPECT_THAT(text, testing::ContainsRegex(
                          "Finish solving using GaussElim, iter/max_its 1/2000, res_b 0"));
    EXPECT_EQ(
        testing::Value(text, testing::ContainsRegex(
                                 "gauss_elim time: fact [0-9.e+-]+ ms, solve [0-9.e+-]+ ms\n")),
        verbose > 1);
  }
}

// No pivoting: a zero on the diagonal is not reported. No rows: nothing to do.
TEST(GaussEliminationOnce, LeavesInfinitiesBehindAZeroPivot) {
  PartitionerT<long, int> part;
  part.create(2L, test::worldSize());
  auto A = test::distributed<double, long>(
      Device(), part, part,
      HostCsr<double>::build(2, 2, [](int i, HostCsr<double>& out) { out.push(1 - i, 1.0); }));
  auto x = ownColumn(Device(), part, std::vector<double>(2, 0.0));
  int iterations = 0;
  double relres = 0;
  makeSolver<double>()->solve(A, ownColumn(Device(), part, std::vector<double>{1, 2}), x,
                              iterations, relres);
  for (const double v : test::valuesOf(x.getLocalMatrix())) EXPECT_FALSE(std::isfinite(v));

  ParCSRMatrixT<double, long, int> none;
  ParMatrixT<double, long, int> nothing;
  makeSolver<double>()->solve(none, nothing, nothing, iterations, relres);
  EXPECT_EQ(nothing.getRows(), 0);
}

TEST(GaussEliminationOnce, NeedsAMatrix) {
  if (test::worldSize() > 1) return;
  test::DenseOperator<double> A(Device(), 1, {2.0});
  auto x = test::parVectorOf<double>(Device(), {1.0});
  int iterations = 0;
  double relres = 0;
  MIVO_EXPECT_FATAL_TEXT(makeSolver<double>()->solve(A, x, x, iterations, relres),
                         "Gauss elimination needs a ParCSRMatrixT");
  auto one = test::parSparseOf(
      Device(), HostCsr<double>::build(1, 1, [](int, auto& out) { out.push(0, 2.0); }));
  auto two = test::parVectorOf<double>(Device(), {1.0, 1.0});
  MIVO_EXPECT_FATAL_TEXT(makeSolver<double>()->solve(one, x, two, iterations, relres),
                         "Gauss elimination needs a solution of 1 x 1, found 2 x 1");
}

}  // namespace
}  // namespace mivo
