// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
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

template <class T>
void expectStepsOfOneRank(const std::string& solver, const json& params, const json& first) {
  // The second one has fewer rows than there may be ranks.
  for (const json& problem : {first, json{{"dim", 1}, {"N", 3}}}) {
    const PoissonSolve<T> alone(Poisson<T>(problem, Device(), kCommSelf), "PrecondJacobi", solver,
                                params);
    const PoissonSolve<T> together(Poisson<T>(problem), "PrecondJacobi", solver, params);
    SCOPED_TRACE(solver + problem.dump());
    expectSameHistory(together.history, alone.history, 1e-10);
    PartitionerT<long, int> part;
    part.create(static_cast<long>(alone.x.size()), worldSize());
    expectNear(together.x, ownPart(part, alone.x));
  }
}

TYPED_TEST(SolveOverRanks, KrylovMethodsTakeTheStepsOfOneRank) {
  const json none = json::object(), cube = {{"dim", 3}, {"N", 6}}, square = {{"dim", 2}, {"N", 7}};
  expectStepsOfOneRank<TypeParam>("SolverPCG", none, cube);
  expectStepsOfOneRank<TypeParam>("SolverMINRES", {{"algo", "qlp"}}, square);
  expectStepsOfOneRank<TypeParam>("SolverMINRES", {{"algo", "standard"}}, square);
  expectStepsOfOneRank<TypeParam>("SolverSYMMLQ", none, square);
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
  using R = RealType<T>;
  std::mt19937 rng(29);
  const int n = 23;
  const HostCsr<T> a = dominatedCsr<T>(rng, n);
  const auto b = smallVector<T>(rng, n), start = smallVector<T>(rng, n);
  for (const auto& part : worldCuts<long>(n, rng)) {
    for (const Device& device : rankDevices()) {
      auto A = distributed<T, long>(device, part, part, a);
      const auto rhs = ownColumn(device, part, b);
      for (const auto& [name, forward, omega] :
           std::vector<std::tuple<std::string, bool, double>>{{"PrecondSOR", true, 1.25},
                                                              {"PrecondSOR", false, 1.0},
                                                              {"PrecondSSOR", true, 1.25},
                                                              {"PrecondSSOR", false, 1.25}}) {
        SCOPED_TRACE(name + (forward ? " forward" : " backward"));
        std::vector<T> expected = start, fromZero(n, T(0));
        for (auto* x : {&expected, &fromZero}) {
          for (int k = 0; k < 2; ++k) {
            hybridSweep(a, part.getOffsets(), b, R(omega), forward, *x);
            if (name == "PrecondSOR") continue;
            hybridSweep(a, part.getOffsets(), b, R(omega), !forward, *x);
          }
        }
        const auto sor = makePreconditioner<ParSmootherSOR_T<T, long, int>, T>(
            name, {{"relax", omega}, {"forward", forward}, {"nsweeps", 2}});
        sor->setup(A);
        auto x = ownColumn(device, part, start);
        sor->smooth(rhs, x);
        expectNear(valuesOf(x), ownPart(part, expected));
        sor->initial_zero = false;
        x = ownColumn(device, part, start);
        sor->precondition(rhs, x);
        expectNear(valuesOf(x), ownPart(part, expected));
        sor->initial_zero = true;
        sor->precondition(rhs, x);
        expectNear(valuesOf(x), ownPart(part, fromZero));
      }
    }
  }
}

template <class T>
class GeneralSolversOverRanks : public testing::Test {};
TYPED_TEST_SUITE(GeneralSolversOverRanks, DoubleTypes);

TYPED_TEST(GeneralSolversOverRanks, TakeTheStepsOfOneRankAloneAndInLists) {
  using T = TypeParam;
  const json jacobi{{"preconditioner_type", "PrecondJacobi"},
                    {"PrecondJacobi_params", {{"relax", 0.5}}}};
  const json going{{"preconditioner_type", "PrecondJacobiLp"},
                   {"PrecondJacobiLp_params", {{"initial_zero", false}}}};
  const json list{{"preconditioner_type", "PrecondList"},
                  {"PrecondList_params", json::array({jacobi, going})}};
  // few steps: collectives are slow where ranks share cores
  const std::vector<json> solvers = {
      solverWith("SolverBiCGSTAB", jacobi, {{"rtol", 1e-5}}),
      solverWith("SolverFLGMRES_R", list, {{"restart", 3}, {"rtol", 1e-4}}),
      {{"solver_type", "SolverList"},
       {"SolverList_params", json::array({solverWith("SolverBiCGSTAB", jacobi, {{"max_its", 1}}),
                                          solverWith("SolverFLGMRES_R", list, {{"max_its", 2}})})}},
      {{"solver_type", "SolverJacobi"}, {"SolverJacobi_params", {{"rtol", 1e-5}}}},
      {{"solver_type", "SolverJacobiLp"}, {"SolverJacobiLp_params", {{"order", 2}}}},
      {{"solver_type", "SolverSOR"}, {"SolverSOR_params", {{"rtol", 1e-12}}}}};
  std::mt19937 rng(31);
  const int n = 23;
  const HostCsr<T> a = dominatedCsr<T>(rng, n);
  const auto b = smallVector<T>(rng, n), start = smallVector<T>(rng, n);
  auto self = parSparseOf(Device(), a, kCommSelf);
  for (const json& solver : solvers) {
    SCOPED_TRACE(solver);
    const SolverRun<T> alone(self, parVectorOf(Device(), b), parVectorOf(Device(), start), solver);
    for (const auto& part : worldCuts<long>(n, rng)) {
      for (const Device& device : rankDevices()) {
        auto A = distributed<T, long>(device, part, part, a);
        const SolverRun<T> together(A, ownColumn(device, part, b), ownColumn(device, part, start),
                                    solver);
        const std::vector<T> expected = ownPart(part, alone.x);
        if (solver["solver_type"] == "SolverSOR") {  // sees the cuts, but not in the solution
          EXPECT_LT(together.iterations, 200);
          ASSERT_EQ(together.x.size(), expected.size());
          for (std::size_t k = 0; k < expected.size(); ++k) {
            EXPECT_LT(abs(together.x[k] - expected[k]), 1e-10) << k;
          }
          continue;
        }
        EXPECT_EQ(together.iterations, alone.iterations);
        expectSameHistory(together.history, alone.history, 1e-8);
        expectNear(together.x, expected);
      }
    }
  }
}

}  // namespace
}  // namespace mivo::test
