// SPDX-License-Identifier: Apache-2.0

// Step 4: multigrid, with options for single levels.
//
// Sample runs:
//   $ ./4_multigrid 3 20 jacobi
//   8000 rows, 42992 entries
//   719 rows, 18465 entries
//   88 rows, 4796 entries
//   10 rows, 100 entries
//   converged: 8000 unknowns, 15 iterations
//   $ ./4_multigrid 3 20 mixed
//   converged: 8000 unknowns, 12 iterations
//   $ ./4_multigrid 3 40 mixed
//   converged: 64000 unknowns, 17 iterations

#include "report.hpp"

using mivo::json;
using Matrix = mivo::ParCSRMatrixT<double, long, int>;
using Multigrid = mivo::ParPreconditionerAMG_T<double, long, int>;
using Vector = mivo::ParMatrixT<double, long, int>;
using Solver = mivo::ParSolverT<double, long, int>;
using TestCase = mivo::TestCaseT<double, long, int>;

const char* const kMultigrid = R"({
  "level_transfer": {
    "level_transfer_type": "LevelTransferSmoothAggregation",
    "LevelTransferSmoothAggregation_params": {"aggregator": {"aggregator_type": "AggregatorVMBSeq"}}
  },
  "pre_smoother": {"smoother_type": "SmootherJacobi", "SmootherJacobi_params": {"relax": 0.67}},
  "post_smoother": {"smoother_type": "SmootherJacobi", "SmootherJacobi_params": {"relax": 0.67}},
  "min_coarse_size": 50,
  "coarse_solver": {"solver_type": "SolverGaussElim"}
})";

// For the finest level alone: a sweep of SOR on the way down, its adjoint on the way up.
const char* const kFinestLevel = R"({
  "pre_smoother_0": {"smoother_type": "SmootherSOR"},
  "post_smoother_0": {"smoother_type": "SmootherSOR", "SmootherSOR_params": {"forward": false}}
})";

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: 4_multigrid DIMENSIONS POINTS jacobi|mixed\n";
    return 1;
  }
  mivo::Device::initialize();
  const json problem = {
      {"testcase_type", "PoissonFDM"},
      {"PoissonFDM_params", {{"dim", std::stoi(argv[1])}, {"N", std::stoi(argv[2])}}}};
  json multigrid = json::parse(kMultigrid);
  if (std::string(argv[3]) == "mixed") multigrid.update(json::parse(kFinestLevel));
  const json preconditioner = {{"preconditioner_type", "PrecondAMG"},
                               {"PrecondAMG_params", multigrid}};
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
  for (const auto& level : std::dynamic_pointer_cast<Multigrid>(solver->preconditioner)->levels) {
    std::cout << level.A.getRows() << " rows, " << level.A.getNnzs() << " entries\n";
  }
  int iterations = 0;
  double residual = 0;
  solver->solve(A, b, x, iterations, residual);

  const bool converged = tutorial::report(*solver, A, b, x, iterations);
  mivo::Device::finalize();
  return converged ? 0 : 1;
}
