// SPDX-License-Identifier: Apache-2.0

// Step 3: the same plate on several ranks.
//
// Two things change: each rank walks over its own cells only, and the program is linked with
// mivo::mpi. Entries that belong to another rank's rows find their way in endAssemble.
//
// Sample runs:
//   $ 3_assemble_in_parallel 50
//   converged: 2500 unknowns, 55 iterations
//   $ mpiexec -n 2 3_assemble_in_parallel 50
//   converged: 2500 unknowns, 61 iterations

#include "report.hpp"

using mivo::SetValueMode;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: 3_assemble_in_parallel CELLS\n";
    return 1;
  }
  mivo::Device::initialize();
  const long n = std::stol(argv[1]);
  const auto conductivity = [n](long cell) {
    const long x = cell % n, y = cell / n;
    return x > n / 3 && x < 2 * n / 3 && y > n / 3 && y < 2 * n / 3 ? 100.0 : 1.0;
  };

  tutorial::Matrix A;
  A.create(n * n, n * n, mivo::Device());
  A.beginAssemble();
  const auto couple = [&](long i, long j) {
    const double k = 2 / (1 / conductivity(i) + 1 / conductivity(j));
    A.setValue(i, i, k, SetValueMode::Add);
    A.setValue(j, j, k, SetValueMode::Add);
    A.setValue(i, j, -k, SetValueMode::Add);
    A.setValue(j, i, -k, SetValueMode::Add);
  };
  long begin = 0, end = 0;
  A.getOwnerShipRange(&begin, &end);
  for (long cell = begin; cell < end; ++cell) {
    const long x = cell % n, y = cell / n;
    if (x + 1 < n) couple(cell, cell + 1);
    if (y + 1 < n) couple(cell, cell + n);  // perhaps a cell of the next rank
    const long edges = (x == 0) + (x == n - 1) + (y == 0) + (y == n - 1);
    const double k = 2 * conductivity(cell) * static_cast<double>(edges);
    if (edges > 0) A.setValue(cell, cell, k, SetValueMode::Add);
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
