// SPDX-License-Identifier: Apache-2.0

// Step 3: the same plate on several ranks.
//
// Each rank walks over its own cells only, and the program is linked with mivo::mpi. Entries that
// belong to another rank's rows find their way in endAssemble. The rest is as in step 2.
//
// Sample runs:
//   $ ./3_assemble_in_parallel 100 PrecondSSOR 100
//   converged: 10000 unknowns, 107 iterations
//   $ mpiexec -n 2 ./3_assemble_in_parallel 100 PrecondJacobi 100
//   converged: 10000 unknowns, 209 iterations
//   $ mpiexec -n 2 ./3_assemble_in_parallel 100 PrecondSSOR 100
//   converged: 10000 unknowns, 112 iterations

#include "report.hpp"

using mivo::SetValueMode;
using Matrix = mivo::ParCSRMatrixT<double, long, int>;
using Vector = mivo::ParMatrixT<double, long, int>;
using Solver = mivo::ParSolverT<double, long, int>;

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: 3_assemble_in_parallel CELLS PRECONDITIONER CONDUCTIVITY\n";
    return 1;
  }
  mivo::Device::initialize();
  const long n = std::stol(argv[1]);
  const double inclusion = std::stod(argv[3]);
  const auto conductivity = [=](long cell) {
    const long column = cell % n, row = cell / n;
    return std::min(column, row) > n / 3 && std::max(column, row) < 2 * n / 3 ? inclusion : 1.0;
  };

  Matrix A;
  A.create(n * n, n * n, mivo::Device());
  A.beginAssemble();
  // Heat flows between the cells i and j by the harmonic mean of their conductivities.
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
    const long column = cell % n, row = cell / n;
    if (column + 1 < n) couple(cell, cell + 1);
    if (row + 1 < n) couple(cell, cell + n);  // perhaps a cell of the next rank
    const int edges = (column == 0) + (column == n - 1) + (row == 0) + (row == n - 1);
    A.setValue(cell, cell, 2 * conductivity(cell) * edges, SetValueMode::Add);
  }
  A.endAssemble();

  Vector b(n * n, mivo::Device()), x(n * n, mivo::Device());
  b.fill(1.0);
  x.fill(0.0);
  const auto solver = Solver::getFactory().createInstance(
      {{"solver_type", "SolverPCG"},
       {"SolverPCG_params", {{"preconditioner", {{"preconditioner_type", argv[2]}}}}}});
  if (solver == nullptr || solver->preconditioner == nullptr) {
    std::cerr << "no preconditioner is called " << argv[2] << "\n";
    return 1;
  }
  solver->preconditioner->setup(A);
  solver->setup(A);
  int iterations = 0;
  double residual = 0;
  solver->solve(A, b, x, iterations, residual);

  const bool converged = tutorial::report(*solver, A, b, x, iterations);
  mivo::Device::finalize();
  return converged ? 0 : 1;
}
