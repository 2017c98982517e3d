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

/// A solve with a described solver.
template <class T>
struct SolverRun {
  std::vector<RealType<T>> history;  ///< |r| by status
  int iterations = 0;
  RealType<T> relres = 1;
  std::vector<T> x;  ///< this rank's part

  SolverRun(ParCSRMatrixT<T, long, int> A, const ParMatrixT<T, long, int>& b,
            ParMatrixT<T, long, int> start, const json& description) {
    const auto solver = ParSolverT<T, long, int>::getFactory().createInstance(description);
    solver->observer = [&](int, RealType<T> r, RealType<T>, RealType<T>) { history.push_back(r); };
    if (solver->preconditioner) solver->preconditioner->setup(A);
    solver->setup(A);
    solver->solve(A, b, start, iterations, relres);
    x = valuesOf(start);
  }
};

inline json solverWith(const std::string& solver, const json& preconditioner,
                       json params = json::object()) {
  params["preconditioner"] = preconditioner;
  return {{"solver_type", solver}, {solver + "_params", params}};
}

/// A solve from zero with a preconditioner without parameters, to a residual of 1e-9 |r0|.
template <class T>
struct PoissonSolve : SolverRun<T> {
  PoissonSolve(const Poisson<T>& s, const std::string& precond,
               const std::string& name = "SolverPCG", json params = json::object())
      : SolverRun<T>(s.A, s.b, zero(s.x),
                     solverWith(name, {{"preconditioner_type", precond}}, accurate(params))) {
    EXPECT_EQ(static_cast<std::size_t>(this->iterations) + 1, this->history.size());
  }

 private:
  static ParMatrixT<T, long, int> zero(ParMatrixT<T, long, int> x) {
    x.fill(T(0));
    return x;
  }
  static json accurate(json params) {
    params["rtol"] = 1e-9;
    return params;
  }
};

}  // namespace mivo::test
