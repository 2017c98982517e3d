// SPDX-License-Identifier: Apache-2.0

// Step 4: multigrid, with options for single levels.
//
// The number of iterations hardly depends on the number of unknowns. Level 0 is smoothed by one
// sweep of SOR on the way down and its adjoint on the way up, the levels below by Jacobi, and the
// coarsest one is solved exactly.
//
// Sample runs:
//   $ 4_multigrid 3 20
//   converged: 8000 unknowns, 12 iterations
//   $ 4_multigrid 3 40
//   converged: 64000 unknowns, 17 iterations

#include "report.hpp"

using mivo::json;

const char* const kConfiguration = R"({
  "solver_type": "SolverPCG",
  "SolverPCG_params": {
    "preconditioner": {
      "preconditioner_type": "PrecondAMG",
      "PrecondAMG_params": {
        "min_coarse_size": 50,
        "level_transfer": {
          "level_transfer_type": "LevelTransferSmoothAggregation",
          "LevelTransferSmoothAggregation_params": {
            "aggregator": {"aggregator_type": "AggregatorVMBSeq"}
          }
        },
        "pre_smoother_0": {"smoother_type": "SmootherSOR"},
        "post_smoother_0": {
          "smoother_type": "SmootherSOR", "SmootherSOR_params": {"forward": false}
        },
        "pre_smoother": {
          "smoother_type": "SmootherJacobi", "SmootherJacobi_params": {"relax": 0.67}
        },
        "post_smoother": {
          "smoother_type": "SmootherJacobi", "SmootherJacobi_params": {"relax": 0.67}
        },
        "coarse_solver": {"solver_type": "SolverGaussElim"}
      }
    }
  }
})";

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: 4_multigrid DIMENSIONS POINTS\n";
    return 1;
  }
  mivo::Device::initialize();
  const json problem = {
      {"testcase_type", "PoissonFDM"},
      {"PoissonFDM_params", {{"dim", std::stoi(argv[1])}, {"N", std::stoi(argv[2])}}}};
  tutorial::Matrix A;
  tutorial::Vector x, b;
  mivo::TestCaseT<double, long, int>::getFactory().createInstance(problem)->generate(A, x, b);
  x.fill(0.0);
  tutorial::solveAndReport(A, b, x, json::parse(kConfiguration));
  mivo::Device::finalize();
}
