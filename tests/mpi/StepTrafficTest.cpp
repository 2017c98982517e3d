// SPDX-License-Identifier: Apache-2.0

// What the steps of a solve put on the wire.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/amg.hpp"
#include "tests/support/message_spy.hpp"
#include "tests/support/operators.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

/// Messages that this rank sends for a product.
template <class T>
int sendsOf(const ParCSRMatrixT<T, long, int>& A) {
  int sends = 0;
  A.getSpMVCommPattern().sendTraversal([&](int p, auto*) { sends += p == worldRank() ? 0 : 1; });
  return sends;
}

/// One whole iteration of conjugate gradients, from one status to the next.
MessageSpy iterationOf(ParSolverT<double, long, int>& solver, Poisson<double>& s) {
  MessageSpy step;
  solver.observer = [&](int it, double, double, double) {
    if (it == 2) MessageSpy::start();
    if (it == 3) step = MessageSpy::get();
  };
  solver.preconditioner->setup(s.A);
  s.x.fill(0);
  int iterations = 0;
  double relres = 1;
  solver.solve(s.A, s.b, s.x, iterations, relres);
  EXPECT_EQ(iterations, 3);
  return step;
}

// The table of docs/scaling.md.
TEST(StepTraffic, AnIterationExchangesForItsProductsAndReducesThreeTimes) {
  struct Row {
    std::string smoother;  ///< none: the preconditioner is Jacobi itself
    int exchanges;         ///< with the matrix of a level that has a coarser one
    int coarsest;          ///< with the matrix of the coarsest level; negative: solved directly
  };
  for (const Row& row : std::vector<Row>{{"", 0, 0},
                                         {"SmootherJacobi", 2, 1},
                                         {"SmootherJacobi", 2, -1},
                                         {"SmootherSOR", 2, 1},
                                         {"SmootherSSOR", 4, 3}}) {
    SCOPED_TRACE(row.smoother + (row.coarsest < 0 ? " with elimination" : ""));
    json params = {{"level_transfer",
                    {{"level_transfer_type", "LevelTransferSmoothAggregation"},
                     {"LevelTransferSmoothAggregation_params",
                      {{"aggregator", {{"aggregator_type", "AggregatorVMBSeq"}}}}}}},
                   {"pre_smoother", smootherOf(row.smoother)},
                   {"post_smoother", smootherOf(row.smoother)}};
    if (row.coarsest < 0) params["coarse_solver"] = solverOf("SolverGaussElim");
    const auto solver = ParSolverT<double, long, int>::getFactory().createInstance(solverWith(
        "SolverPCG",
        row.smoother.empty() ? precondOf("PrecondJacobi") : precondOf("PrecondAMG", params),
        {{"rtol", 0}, {"max_its", 3}}));
    Poisson<double> s({{"dim", 2}, {"N", 24}});
    const MessageSpy step = iterationOf(*solver, s);

    int sends = sendsOf(s.A);
    if (const auto* amg = dynamic_cast<Amg<double>*>(solver->preconditioner.get())) {
      EXPECT_GE(amg->levels.size(), 3u);
      for (const auto& level : amg->levels) {
        const bool last = &level == &amg->levels.back();
        if (last) {
          sends += std::max(row.coarsest, 0) * sendsOf(level.A);
        } else {
          sends += row.exchanges * sendsOf(level.A) + sendsOf(level.R) + sendsOf(level.P);
        }
      }
    }
    EXPECT_EQ(static_cast<int>(step.sent.size()), sends);
    EXPECT_EQ(step.allreduces, 3);
    EXPECT_EQ(step.alltoalls, 0);
    EXPECT_EQ(step.gathers, row.coarsest < 0 ? std::min(worldSize(), 2) : 0);
  }
}

// A start from zero has the bits of the long way, which "initial_zero" false takes, and needs it
// only where a product with zeros is not zero, on whatever rank that is.
TEST(StepTraffic, SweepsFromZeroSendNothing) {
  using T = Complex<double>;
  const double inf = std::numeric_limits<double>::infinity();
  const int n = 23;
  std::mt19937 rng(37);
  auto b = smallVector<T>(rng, n);
  b[3] = T(inf, -1.0);
  b[5] = T(-0.0, 0.0);
  const HostCsr<T> full = dominatedCsr<T>(rng, n);
  HostCsr<T> infinite = full;
  infinite.values.back() = T(inf);
  // no rank has an own block that is worth the name
  const auto shift = HostCsr<T>::build(
      n, n, [&](int i, HostCsr<T>& out) { out.push((i + n / 2) % n, T(-2.0, 1.0)); });
  for (const auto& part : worldCuts<long>(n, rng)) {
    for (const Device& device : rankDevices()) {
      for (const auto* a : std::vector<const HostCsr<T>*>{&full, &infinite, &shift}) {
        const auto A = distributed<T, long>(device, part, part, *a);
        A.prepareMatVec(true);
        for (const std::string name : {"PrecondJacobi", "PrecondSOR", "PrecondSSOR"}) {
          SCOPED_TRACE(name);
          const auto fast = makePreconditioner<ParPreconditionerT<T, long, int>, T>(name);
          const auto slow = makePreconditioner<ParPreconditionerT<T, long, int>, T>(
              name, {{"initial_zero", false}});
          fast->setup(A);
          slow->setup(A);
          auto x = ownColumn(device, part, std::vector<T>(n, T(7)));
          auto slow_x = ownColumn(device, part, std::vector<T>(n, T(0)));
          slow->precondition(ownColumn(device, part, b), slow_x);
          MessageSpy::start();
          fast->precondition(ownColumn(device, part, b), x);
          const bool sends = name == "PrecondSSOR" || (name == "PrecondJacobi" && a == &infinite);
          EXPECT_EQ(static_cast<int>(MessageSpy::get().sent.size()), sends ? sendsOf(A) : 0);
          EXPECT_EQ(MessageSpy::get().allreduces, 0);
          expectSameBits(valuesOf(x), valuesOf(slow_x));
          if (name == "PrecondJacobi" && a == &full) {
            fast->precondition(x, x);
            EXPECT_EQ(valuesOf(x), std::vector<T>(valuesOf(x).size(), T(0))) << "b is x, thus zero";
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace mivo::test
