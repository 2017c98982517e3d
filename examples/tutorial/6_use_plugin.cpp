// SPDX-License-Identifier: Apache-2.0

// Step 6, the program: it learns the name "PrecondRedBlack" when it runs.
//
// Sample runs:
//   $ ./6_use_plugin ./6_red_black_plugin.so PrecondRedBlack 50
//   converged: 2500 unknowns, 61 iterations
//   $ ./6_use_plugin ./6_red_black_plugin.so PrecondJacobi 50
//   converged: 2500 unknowns, 121 iterations

#include "report.hpp"

using mivo::json;
using Matrix = mivo::ParCSRMatrixT<double, long, int>;
using Preconditioner = mivo::ParPreconditionerT<double, long, int>;
using Vector = mivo::ParMatrixT<double, long, int>;
using Solver = mivo::ParSolverT<double, long, int>;
using TestCase = mivo::TestCaseT<double, long, int>;

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: 6_use_plugin PLUGIN PRECONDITIONER POINTS\n";
    return 1;
  }
  mivo::Device::initialize();
  mivo::Utils::loadPlugin(argv[1]);
  const std::string name = argv[2];
  const int points = std::stoi(argv[3]);
  if (Preconditioner::getFactory().getMap().count(name) == 0) {
    std::cerr << "no preconditioner " << name << ": is " << argv[1] << " the right plugin?\n";
    return 1;
  }

  const json problem = {{"testcase_type", "PoissonFDM"},
                        {"PoissonFDM_params", {{"dim", 2}, {"N", points}}}};
  const json preconditioner = {{"preconditioner_type", name},
                               {name + "_params", {{"width", points}}}};
  const auto solver = Solver::getFactory().createInstance(
      {{"solver_type", "SolverPCG"}, {"SolverPCG_params", {{"preconditioner", preconditioner}}}});
  const auto testcase = TestCase::getFactory().createInstance(problem);
  if (testcase == nullptr || solver == nullptr || solver->preconditioner == nullptr) return 1;

  Matrix A;
  Vector x, b;
  testcase->generate(A, x, b);
  x.fill(0.0);
  solver->preconditioner->setup(A);
  solver->setup(A);
  int iterations = 0;
  double residual = 0;
  solver->solve(A, b, x, iterations, residual);

  const bool converged = tutorial::report(*solver, A, b, x, iterations);
  mivo::Device::finalize();
  return converged ? 0 : 1;
}
