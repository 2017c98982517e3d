// SPDX-License-Identifier: Apache-2.0

// Step 2: a matrix of your own, entry by entry.
//
// Heat conduction in a square plate of N x N cells with a highly conducting inclusion in its
// middle: each pair of neighbours exchanges heat, the edge is kept at temperature 0, and the plate
// is heated evenly. Contributions to an entry add up, as in the assembly of finite elements.
//
// Sample runs:
//   $ 2_assemble 50
//   converged: 2500 unknowns, 55 iterations
//   $ 2_assemble 100
//   converged: 10000 unknowns, 107 iterations

#include "report.hpp"

using mivo::SetValueMode;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: 2_assemble CELLS\n";
    return 1;
  }
  mivo::Device::initialize();
  const long n = std::stol(argv[1]);
  const auto conductivity = [n](long x, long y) {
    return x > n / 3 && x < 2 * n / 3 && y > n / 3 && y < 2 * n / 3 ? 100.0 : 1.0;
  };

  tutorial::Matrix A;
  A.create(n * n, n * n, mivo::Device());
  A.beginAssemble();
  // Heat flows between the cells i and j with this conductivity.
  const auto couple = [&A](long i, long j, double k) {
    A.setValue(i, i, k, SetValueMode::Add);
    A.setValue(j, j, k, SetValueMode::Add);
    A.setValue(i, j, -k, SetValueMode::Add);
    A.setValue(j, i, -k, SetValueMode::Add);
  };
  for (long y = 0; y < n; ++y) {
    for (long x = 0; x < n; ++x) {
      const long cell = x + n * y;
      const double k = conductivity(x, y);
      if (x + 1 < n) couple(cell, cell + 1, 2 / (1 / k + 1 / conductivity(x + 1, y)));
      if (y + 1 < n) couple(cell, cell + n, 2 / (1 / k + 1 / conductivity(x, y + 1)));
      const long edges = (x == 0) + (x == n - 1) + (y == 0) + (y == n - 1);
      if (edges > 0) A.setValue(cell, cell, 2 * k * static_cast<double>(edges), SetValueMode::Add);
    }
  }
  A.endAssemble();

  tutorial::Vector b(n * n, mivo::Device()), x(n * n, mivo::Device());
  b.fill(1.0);
  x.fill(0.0);
  tutorial::solveAndReport(
      A, b, x,
      {{"solver_type", "SolverPCG"},
       {"SolverPCG_params", {{"preconditioner", {{"preconditioner_type", "PrecondSSOR"}}}}}});
  mivo::Device::finalize();
}
