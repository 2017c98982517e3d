// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "mivo/precond/ParSmootherSOR.hpp"
#include "mivo/solver/ParSolver.hpp"
#include "mivo/testcase/TestCase.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "tests/support/operators.hpp"
#include "tests/support/ranks.hpp"

namespace mivo {
namespace {

using test::expectNear;
using test::HostCsr;
using test::ownColumn;
using test::ownPart;
using test::worldCuts;
using test::worldSize;

template <class T>
struct Solve {
  std::vector<RealType<T>> history;  ///< |r| by iteration
  RealType<T> relres = 1;
  std::vector<T> x;  ///< this rank's part
};

template <class T>
Solve<T> solvePoisson(int comm, const json& problem, const std::string& precond,
                      const json& params = json()) {
  auto testcase = TestCaseT<T, long, int>::getFactory().createInstance(
      {{"testcase_type", "PoissonFDM"}, {"PoissonFDM_params", problem}});
  testcase->setDeviceAndComm(Device(), comm);
  ParCSRMatrixT<T, long, int> A;
  ParMatrixT<T, long, int> x, b;
  testcase->generate(A, x, b);
  x.fill(T(0));
  auto solver = ParSolverT<T, long, int>::getFactory().createInstance(
      {{"solver_type", "SolverPCG"},
       {"SolverPCG_params",
        {{"rtol", 1e-9},
         {"preconditioner", {{"preconditioner_type", precond}, {precond + "_params", params}}}}}});
  Solve<T> out;
  solver->observer = [&](int, RealType<T> r, RealType<T>, RealType<T>) {
    out.history.push_back(r);
  };
  solver->preconditioner->setup(A);
  solver->setup(A);
  int iterations = 0;
  solver->solve(A, b, x, iterations, out.relres);
  EXPECT_EQ(static_cast<std::size_t>(iterations) + 1, out.history.size());
  out.x = test::valuesOf(x.getLocalMatrix());
  return out;
}

template <class T>
class SolveOverRanks : public testing::Test {};
using DoubleTypes = testing::Types<double, Complex<double>>;
TYPED_TEST_SUITE(SolveOverRanks, DoubleTypes);

TYPED_TEST(SolveOverRanks, JacobiPCGTakesTheStepsOfOneRank) {
  using T = TypeParam;
  for (const json& problem : {json{{"dim", 1}, {"N", 20}}, json{{"dim", 2}, {"N", 11}},
                              json{{"dim", 3}, {"N", 6}}, json{{"dim", 1}, {"N", 3}}}) {
    const auto alone = solvePoisson<T>(kCommSelf, problem, "PrecondJacobi");
    const auto together = solvePoisson<T>(kCommWorld, problem, "PrecondJacobi");
    ASSERT_EQ(together.history.size(), alone.history.size()) << problem;
    for (std::size_t k = 0; k < alone.history.size(); ++k) {
      // Where the method ends, what is left is rounding.
      const double noise = 1e-14 * alone.history[0];
      EXPECT_NEAR(together.history[k], alone.history[k], 1e-10 * alone.history[k] + noise)
          << problem << ", iteration " << k;
    }
    PartitionerT<long, int> part;
    part.create(static_cast<long>(alone.x.size()), worldSize());
    expectNear(together.x, ownPart(part, alone.x));
  }
}

// A single SOR sweep is no symmetric operator, so that conjugate gradients take the symmetric form.
TEST(SolveOverRanksOnce, HybridSweepsStillPreconditionPCG) {
  const json problem = {{"dim", 2}, {"N", 16}};
  const auto plain = solvePoisson<double>(kCommWorld, problem, "PrecondJacobi");
  const auto ssor = solvePoisson<double>(kCommWorld, problem, "PrecondSSOR");
  EXPECT_LE(ssor.relres, 1e-8);
  EXPECT_LT(ssor.history.size(), plain.history.size());
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

TYPED_TEST(SolveOverRanks, GhostsAreFrozenDuringASweep) {
  using T = TypeParam;
  using R = RealType<T>;
  std::mt19937 rng(29);
  const int n = 23;
  HostCsr<T> a = test::randomCsr<T>(rng, n, n);
  a = HostCsr<T>::build(n, n, [&](int i, HostCsr<T>& out) {
    for (const auto& [j, v] : a.row(i)) {
      if (j != i) out.push(j, v);
    }
    out.push(i, T(R(90)));
  });
  const auto b = test::smallVector<T>(rng, n), start = test::smallVector<T>(rng, n);
  for (const auto& part : worldCuts<long>(n, rng)) {
    for (const Device& device : test::rankDevices()) {
      auto A = test::distributed<T, long>(device, part, part, a);
      const auto rhs = ownColumn(device, part, b);
      for (const std::string name : {"PrecondSOR", "PrecondSSOR"}) {
        auto expected = start;
        for (int k = 0; k < 2; ++k) {
          hybridSweep(a, part.getOffsets(), b, R(1.25), true, expected);
          if (name == "PrecondSSOR") {
            hybridSweep(a, part.getOffsets(), b, R(1.25), false, expected);
          }
        }
        auto sor = std::dynamic_pointer_cast<ParSmootherSOR_T<T, long, int>>(
            ParPreconditionerT<T, long, int>::getFactory().createInstance(
                {{"preconditioner_type", name},
                 {name + "_params", {{"relax", 1.25}, {"nsweeps", 2}}}}));
        sor->setup(A);
        auto x = ownColumn(device, part, start);
        sor->smooth(rhs, x);
        expectNear(test::valuesOf(x.getLocalMatrix()), ownPart(part, expected));
      }
    }
  }
}

// The first sweep from zero skips the product, not its messages.
TYPED_TEST(SolveOverRanks, JacobiFromZeroExchangesZerosWhateverXHeld) {
  using T = TypeParam;
  using R = RealType<T>;
  std::mt19937 rng(31);
  const int n = 23;
  const auto a = HostCsr<T>::build(n, n, [&](int i, HostCsr<T>& out) {
    for (int j = 0; j < n; ++j) out.push(j, T(i == j ? R(2 + i) : R(1)));
  });
  const auto b = test::smallVector<T>(rng, n), garbage = test::smallVector<T>(rng, n);
  std::vector<T> expected = b;
  for (int i = 0; i < n; ++i) expected[static_cast<std::size_t>(i)] /= T(R(2 + i));
  auto jacobi = ParPreconditionerT<T, long, int>::getFactory().createInstance(
      {{"preconditioner_type", "PrecondJacobi"}});
  for (const auto& part : worldCuts<long>(n, rng)) {
    for (const Device& device : test::rankDevices()) {
      auto A = test::distributed<T, long>(device, part, part, a);
      const auto rhs = ownColumn(device, part, b);
      auto x = ownColumn(device, part, garbage);
      auto y = ownColumn(device, part, garbage);
      A.aAxpby(T(1), x, T(0), y, nullptr);
      jacobi->setup(A);
      for (int call = 0; call < 2; ++call) {
        jacobi->precondition(rhs, x);
        expectNear(test::valuesOf(x.getLocalMatrix()), ownPart(part, expected));
      }
      A.getSpMVCommPattern().recvTraversal([&](int owner, auto* block) {
        if (owner == test::worldRank()) return;
        const auto ghosts = test::valuesOf(block->recv_x);
        EXPECT_EQ(ghosts, std::vector<T>(ghosts.size(), T(0))) << "from rank " << owner;
      });
    }
  }
}

}  // namespace
}  // namespace mivo
