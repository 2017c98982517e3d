// SPDX-License-Identifier: Apache-2.0

// Step 1: a system from the library and a solver from JSON.
//
// Sample runs:
//   $ ./1_generate_and_solve 2 50 PrecondJacobi
//   converged: 2500 unknowns, 121 iterations
//   $ ./1_generate_and_solve 2 50 PrecondSSOR
//   converged: 2500 unknowns, 46 iterations
//   $ ./1_generate_and_solve 3 30 PrecondSSOR
//   converged: 27000 unknowns, 33 iterations

#include "report.hpp"

using mivo::json;
using Matrix = mivo::ParCSRMatrixT<double, long, int>;
using Vector = mivo::ParMatrixT<double, long, int>;
using Solver = mivo::ParSolverT<double, long, int>;
using TestCase = mivo::TestCaseT<double, long, int>;

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: 1_generate_and_solve DIMENSIONS POINTS PRECONDITIONER\n";
    return 1;
  }
  mivo::Device::initialize();

  // Poisson's equation on a square or a cube, as the test case "PoissonFDM" makes it.
  const json problem = {
      {"testcase_type", "PoissonFDM"},
      {"PoissonFDM_params", {{"dim", std::stoi(argv[1])}, {"N", std::stoi(argv[2])}}}};
  json config = json::parse(R"({
    "solver_type": "SolverPCG",
    "SolverPCG_params": {"rtol": 1e-8, "preconditioner": {"preconditioner_type": ""}}
  })");
  config["SolverPCG_params"]["preconditioner"]["preconditioner_type"] = argv[3];

  // A name that no class has gives a null pointer.
  const auto testcase = TestCase::getFactory().createInstance(problem);
  const auto solver = Solver::getFactory().createInstance(config);
  if (testcase == nullptr || solver == nullptr || solver->preconditioner == nullptr) {
    std::cerr << "no preconditioner is called " << argv[3] << "\n";
    return 1;
  }

  Matrix A;
  Vector x, b;
  testcase->generate(A, x, b);
  x.fill(0.0);  // the start; the test case leaves the exact solution there

  // No solver sets up its preconditioner: that is the caller's duty.
  solver->preconditioner->setup(A);
  solver->setup(A);
  int iterations = 0;
  double residual = 0;
  solver->solve(A, b, x, iterations, residual);

  const bool converged = tutorial::report(*solver, A, b, x, iterations);
  mivo::Device::finalize();
  return converged ? 0 : 1;
}
