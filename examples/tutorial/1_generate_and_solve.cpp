// SPDX-License-Identifier: Apache-2.0

// Step 1: a system from the library and a solver from JSON.
//
// Sample runs:
//   $ 1_generate_and_solve 2 50 PrecondJacobi
//   converged: 2500 unknowns, 121 iterations
//   $ 1_generate_and_solve 2 50 PrecondSSOR
//   converged: 2500 unknowns, 46 iterations
//   $ 1_generate_and_solve 3 30 PrecondSSOR
//   converged: 27000 unknowns, 33 iterations

#include "report.hpp"

using mivo::json;

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
  tutorial::Matrix A;
  tutorial::Vector x, b;
  mivo::TestCaseT<double, long, int>::getFactory().createInstance(problem)->generate(A, x, b);
  x.fill(0.0);  // the test case leaves the exact solution there

  const json solver = {{"solver_type", "SolverPCG"},
                       {"SolverPCG_params",
                        {{"rtol", 1e-8}, {"preconditioner", {{"preconditioner_type", argv[3]}}}}}};
  tutorial::solveAndReport(A, b, x, solver);
  mivo::Device::finalize();
}
