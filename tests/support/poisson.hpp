// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mivo/solver/ParSolver.hpp"
#include "mivo/testcase/TestCase.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "tests/support/dense.hpp"

namespace mivo::test {

/// The system of the Poisson test case with these parameters.
template <class T, class G = long>
struct Poisson {
  ParCSRMatrixT<T, G, int> A;
  ParMatrixT<T, G, int> x, b;

  explicit Poisson(const json& params, const Device& device = Device(), int comm = kCommWorld) {
    const auto problem = TestCaseT<T, G, int>::getFactory().createInstance(
        {{"testcase_type", "PoissonFDM"}, {"PoissonFDM_params", params}});
    problem->setDeviceAndComm(device, comm);
    problem->generate(A, x, b);
  }
};

/// A solve with a preconditioner without parameters, to a residual of 1e-9 |r0|.
template <class T>
struct PoissonSolve {
  std::vector<RealType<T>> history;  ///< |r| by iteration
  RealType<T> relres = 1;
  std::vector<T> x;  ///< this rank's part

  PoissonSolve(Poisson<T> s, const std::string& precond, const std::string& name = "SolverPCG",
               json params = json::object()) {
    params["rtol"] = 1e-9;
    params["preconditioner"] = {{"preconditioner_type", precond}};
    const auto solver = ParSolverT<T, long, int>::getFactory().createInstance(
        {{"solver_type", name}, {name + "_params", params}});
    solver->observer = [&](int, RealType<T> r, RealType<T>, RealType<T>) { history.push_back(r); };
    solver->preconditioner->setup(s.A);
    solver->setup(s.A);
    s.x.fill(T(0));
    int iterations = 0;
    solver->solve(s.A, s.b, s.x, iterations, relres);
    EXPECT_EQ(static_cast<std::size_t>(iterations) + 1, history.size());
    x = valuesOf(s.x);
  }
};

}  // namespace mivo::test
