// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/Factory.hpp"
#include "tests/support/operators.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

template <class T>
struct Solve {
  std::vector<RealType<T>> history;  ///< |r| by status
  int iterations = 0;
  RealType<T> relres = 1;
  std::vector<T> x;  ///< this rank's part

  Solve(ParCSRMatrixT<T, long, int>& A, const ParVector<T>& b, ParVector<T> start,
        const json& description) {
    const auto solver = ParSolverT<T, long, int>::getFactory().createInstance(description);
    solver->observer = [&](int, RealType<T> r, RealType<T>, RealType<T>) { history.push_back(r); };
    solver->preconditioner->setup(A);
    solver->setup(A);
    solver->solve(A, b, start, iterations, relres);
    x = valuesOf(start);
  }
};

json solverWith(const std::string& solver, const json& preconditioner, json params) {
  params["preconditioner"] = preconditioner;
  return {{"solver_type", solver}, {solver + "_params", params}};
}

template <class T>
class GeneralSolversOverRanks : public testing::Test {};
using DoubleTypes = testing::Types<double, Complex<double>>;
TYPED_TEST_SUITE(GeneralSolversOverRanks, DoubleTypes);

TYPED_TEST(GeneralSolversOverRanks, TakeTheStepsOfOneRankAloneAndInLists) {
  using T = TypeParam;
  const json jacobi{{"preconditioner_type", "PrecondJacobi"},
                    {"PrecondJacobi_params", {{"relax", 0.5}}}};
  const json going{{"preconditioner_type", "PrecondJacobiLp"},
                   {"PrecondJacobiLp_params", {{"initial_zero", false}}}};
  const json list{{"preconditioner_type", "PrecondList"},
                  {"PrecondList_params", json::array({jacobi, going})}};
  const json bicgstab = solverWith("SolverBiCGSTAB", jacobi, {{"rtol", 1e-5}});
  const json gmres = solverWith("SolverFLGMRES_R", list, {{"restart", 3}, {"rtol", 1e-4}});
  // few steps: collectives are slow where ranks share cores
  const json solvers{
      {"solver_type", "SolverList"},
      {"SolverList_params", json::array({solverWith("SolverBiCGSTAB", jacobi, {{"max_its", 1}}),
                                         solverWith("SolverFLGMRES_R", list, {{"max_its", 2}})})}};
  std::mt19937 rng(31);
  const int n = 23;
  const HostCsr<T> a = dominatedCsr<T>(rng, n);
  const auto b = smallVector<T>(rng, n), start = smallVector<T>(rng, n);
  auto self = parSparseOf(Device(), a, kCommSelf);
  for (const json& solver : {bicgstab, gmres, solvers}) {
    SCOPED_TRACE(solver);
    const Solve<T> alone(self, parVectorOf(Device(), b), parVectorOf(Device(), start), solver);
    for (const auto& part : worldCuts<long>(n, rng)) {
      for (const Device& device : rankDevices()) {
        auto A = distributed<T, long>(device, part, part, a);
        const Solve<T> together(A, ownColumn(device, part, b), ownColumn(device, part, start),
                                solver);
        EXPECT_EQ(together.iterations, alone.iterations);
        expectSameHistory(together.history, alone.history, 1e-8);
        expectNear(together.x, ownPart(part, alone.x));
      }
    }
  }
}

}  // namespace
}  // namespace mivo::test
