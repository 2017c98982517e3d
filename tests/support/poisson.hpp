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

// Descriptions of an object by its name and parameters.

inline json smootherOf(const std::string& name, const json& params = json::object()) {
  return {{"smoother_type", name}, {name + "_params", params}};
}

inline json solverOf(const std::string& name, const json& params = json::object()) {
  return {{"solver_type", name}, {name + "_params", params}};
}

inline json precondOf(const std::string& name, const json& params = json::object()) {
  return {{"preconditioner_type", name}, {name + "_params", params}};
}

inline json solverWith(const std::string& solver, const json& preconditioner,
                       json params = json::object()) {
  params["preconditioner"] = preconditioner;
  return solverOf(solver, params);
}

}  // namespace mivo::test
