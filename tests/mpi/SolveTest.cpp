// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "mivo/precond/ParSmootherSOR.hpp"
#include "tests/support/operators.hpp"
#include "tests/support/poisson.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

template <class T>
class SolveOverRanks : public testing::Test {};
using DoubleTypes = testing::Types<double, Complex<double>>;
TYPED_TEST_SUITE(SolveOverRanks, DoubleTypes);

/// The solve described takes the same steps over each cut of the rows as on one rank.
template <class T>
void expectStepsOfOneRank(const json& solver, const HostCsr<T>& a) {
  SCOPED_TRACE(solver);
  std::mt19937 rng(31);
  const auto n = static_cast<std::size_t>(a.rows);
  const auto b = smallVector<T>(rng, n), start = smallVector<T>(rng, n);
  const auto self = parSparseOf(Device(), a, kCommSelf);
  const SolverRun<T> alone(self, parVectorOf(Device(), b), parVectorOf(Device(), start), solver);
  forEachCut(a.rows, rng, [&](const auto& part, const Device& device) {
    const SolverRun<T> together(distributed<T, long>(device, part, part, a),
                                ownColumn(device, part, b), ownColumn(device, part, start), solver);
    const std::vector<T> expected = ownPart(part, alone.x);
    if (solver["solver_type"] == "SolverSOR") {  // sees the cuts, but not in the solution
      EXPECT_LT(together.iterations, 200);
      ASSERT_EQ(together.x.size(), expected.size());
      for (std::size_t k = 0; k < expected.size(); ++k) {
        EXPECT_LT(abs(together.x[k] - expected[k]), 1e-10) << k;
      }
      return;
    }
    EXPECT_EQ(together.iterations, alone.iterations);
    expectSameHistory(together.history, alone.history, 1e-8);
    expectNear(together.x, expected);
  });
}

TYPED_TEST(SolveOverRanks, SolversTakeTheStepsOfOneRankAloneAndInLists) {
  using T = TypeParam;
  std::mt19937 rng(31);
  const auto general = dominatedCsr<T>(rng, 23),
             hermitian = HostCsr<T>::fromDense(23, 23, positiveDefinite<T>(23, 7));
  const auto plain = precondOf("PrecondJacobi"),
             jacobi = precondOf("PrecondJacobi", {{"relax", 0.5}}),
             going = precondOf("PrecondJacobiLp", {{"initial_zero", false}}),
             list = precondOf("PrecondList", json::array({jacobi, going})),
             one = solverWith("SolverBiCGSTAB", jacobi, {{"max_its", 1}}),
             two = solverWith("SolverFLGMRES_R", list, {{"max_its", 2}});
  // few steps: collectives are slow where ranks share cores
  for (const json& solver :
       {solverWith("SolverPCG", plain), solverWith("SolverMINRES", plain, {{"algo", "qlp"}}),
        solverWith("SolverMINRES", plain, {{"algo", "standard"}}),
        solverWith("SolverSYMMLQ", plain)}) {
    expectStepsOfOneRank(solver, hermitian);
  }
  for (const json& solver :
       {solverWith("SolverBiCGSTAB", jacobi, {{"rtol", 1e-5}}),
        solverWith("SolverFLGMRES_R", list, {{"restart", 3}, {"rtol", 1e-4}}),
        solverOf("SolverList", json::array({one, two})), solverOf("SolverJacobi", {{"rtol", 1e-5}}),
        solverOf("SolverJacobiLp", {{"order", 2}}), solverOf("SolverSOR", {{"rtol", 1e-12}})}) {
    expectStepsOfOneRank(solver, general);
  }
  // The second one has fewer rows than there may be ranks.
  for (const json& problem : {json{{"dim", 3}, {"N", 4}}, json{{"dim", 1}, {"N", 3}}}) {
    const Poisson<T> alone(problem, Device(), kCommSelf), together(problem);
    const auto& part = together.A.getRowPartitioner();
    EXPECT_EQ(ownEntries(together.A), ownEntries(part, plainOf(alone.A.getLocalMatrix(0))));
    EXPECT_EQ(valuesOf(together.b), ownPart(part, valuesOf(alone.b)));
  }
}

/// Gauss-Seidel over the rows of each rank, with the values of other ranks as they were before.
template <class T>
void hybridSweep(const HostCsr<T>& a, const std::vector<long>& offsets, const std::vector<T>& b,
                 RealType<T> omega, bool rising, std::vector<T>& x) {
  const std::vector<T> frozen = x;
  for (std::size_t p = 0; p + 1 < offsets.size(); ++p) {
    for (long k = offsets[p]; k < offsets[p + 1]; ++k) {
      const long i = rising ? k : offsets[p] + offsets[p + 1] - 1 - k;
      T sum = b[static_cast<std::size_t>(i)], diag(0);
      for (const auto& [j, v] : a.row(static_cast<int>(i))) {
        const bool own = j >= offsets[p] && j < offsets[p + 1];
        if (j == i) diag = v;
        if (j != i) sum -= v * (own ? x : frozen)[static_cast<std::size_t>(j)];
      }
      T& xi = x[static_cast<std::size_t>(i)];
      xi = T(1 - omega) * xi + T(omega) * sum / diag;
    }
  }
}

template <class T>
class SweepsOverRanks : public testing::Test {};
TYPED_TEST_SUITE(SweepsOverRanks, ScalarTypes);

TYPED_TEST(SweepsOverRanks, FollowTheirDirectionWithFrozenGhosts) {
  using T = TypeParam;
  std::mt19937 rng(29);
  const int n = 23;
  const HostCsr<T> a = dominatedCsr<T>(rng, n);
  const auto b = smallVector<T>(rng, n), start = smallVector<T>(rng, n);
  forEachCut(n, rng, [&](const auto& part, const Device& device) {
    auto A = distributed<T, long>(device, part, part, a);
    const auto rhs = ownColumn(device, part, b);
    for (const auto& [name, forward, relax] :
         std::vector<std::tuple<std::string, bool, double>>{{"PrecondSOR", true, 1.25},
                                                            {"PrecondSOR", false, 1.0},
                                                            {"PrecondSSOR", true, 1.25},
                                                            {"PrecondSSOR", false, 1.25}}) {
      SCOPED_TRACE(name + (forward ? " forward" : " backward"));
      const auto omega = static_cast<RealType<T>>(relax);
      std::vector<T> expected = start, fromZero(n, T(0));
      for (auto* x : {&expected, &fromZero}) {
        for (int k = 0; k < 2; ++k) {
          hybridSweep(a, part.getOffsets(), b, omega, forward, *x);
          if (name == "PrecondSSOR") hybridSweep(a, part.getOffsets(), b, omega, !forward, *x);
        }
      }
      const auto sor = makePreconditioner<ParSmootherSOR_T<T, long, int>, T>(
          name, {{"relax", relax}, {"forward", forward}, {"nsweeps", 2}});
      sor->setup(A);
      auto x = ownColumn(device, part, start);
      sor->smooth(rhs, x);
      expectNear(valuesOf(x), ownPart(part, expected));
      for (const bool zero : {false, true}) {
        sor->initial_zero = zero;
        x = ownColumn(device, part, start);
        sor->precondition(rhs, x);
        expectNear(valuesOf(x), ownPart(part, zero ? fromZero : expected));
      }
    }
  });
}

}  // namespace
}  // namespace mivo::test
