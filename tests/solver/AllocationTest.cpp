// SPDX-License-Identifier: Apache-2.0
// A program of its own, since it replaces the global allocation functions.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "mivo/mivo.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/poisson.hpp"

namespace {
long g_allocations = 0;
}  // namespace

void* operator new(std::size_t size) {
  ++g_allocations;
  if (void* p = std::malloc(size > 0 ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace mivo {
namespace {

// Every container is a shared handle, so that a work vector made on the way would show here.
TEST(KrylovSolvers, AllocateNothingAfterTheirFirstIteration) {
  test::registerPairs<double>();
  std::vector<json> preconditioners = {
      test::precondOf("PrecondList", json::array({test::precondOf("PrecondJacobi")})),
      test::precondOf("PrecondAMG", test::pairsParams())};
  for (const std::string name : {"Identity", "Jacobi", "JacobiLp", "SOR", "SSOR"}) {
    preconditioners.push_back(test::precondOf("Precond" + name, {{"nsweeps", 2}}));
  }
  test::Poisson<double> s({{"N", 12}, {"rhs", "random"}}, Device(), kCommSelf);
  const std::vector<std::pair<std::string, std::string>> solvers = {
      {"SolverPCG", ""},    {"SolverBiCGSTAB", ""},  {"SolverFLGMRES_R", ""},
      {"SolverSYMMLQ", ""}, {"SolverMINRES", "qlp"}, {"SolverMINRES", "standard"}};
  for (const auto& [name, algo] : solvers) {
    for (const json& preconditioner : preconditioners) {
      SCOPED_TRACE(name + algo + preconditioner.dump());
      const json params = {{"max_its", 6}, {"rtol", 1e-30}, {"restart", 2}, {"algo", algo}};
      const auto solver = ParSolverT<double, long, int>::getFactory().createInstance(
          test::solverWith(name, preconditioner, params));
      solver->preconditioner->setup(s.A);
      long counts[7] = {};
      solver->observer = [&](int iter, double, double, double) { counts[iter] = g_allocations; };
      s.x.fill(0);
      int iter = 0;
      double relres = 0;
      const long before = g_allocations;
      solver->solve(s.A, s.b, s.x, iter, relres);
      ASSERT_EQ(iter, 6);
      EXPECT_GT(counts[1], before) << "the count works: work vectors are made before the loop";
      EXPECT_EQ(counts[6], counts[1]);
    }
  }
}

TEST(Multigrid, AllocatesNothingAfterItsFirstCycle) {
  auto A = test::parSparseOf(Device(), test::laplacian<double>(12, 12));
  const auto b = test::columnOf(Device(), A.getRowPartitioner(), std::vector<double>(144, 1));
  for (const std::string name : {"Jacobi", "JacobiLp", "SOR", "SSOR"}) {
    const json smoother = test::smootherOf("Smoother" + name);
    const auto amg = test::makeAmg<double>(
        test::pairsParams({{"pre_smoother", smoother}, {"post_smoother", smoother}}));
    amg->setup(A);
    amg->cycle_limit = 5;
    amg->cycle_tolerance = 0;
    auto x = b.deepCopy();
    long counts[5] = {};
    amg->observer = [&](int iter, double, double, double) { counts[iter] = g_allocations; };
    int iter = 0;
    double relres = 0;
    amg->solve(A, b, x, iter, relres);
    EXPECT_EQ(counts[4], counts[0]) << name;
    const long before = g_allocations;
    amg->precondition(b, x);
    EXPECT_EQ(g_allocations, before) << name;
  }
}

}  // namespace
}  // namespace mivo
