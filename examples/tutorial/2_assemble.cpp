// SPDX-License-Identifier: Apache-2.0

// Step 2: a matrix of your own, entry by entry.
//
// Heat conduction in a square plate of CELLS x CELLS cells of conductivity 1, with an inclusion of
// another CONDUCTIVITY in the middle: each pair of neighbours exchanges heat, the edge is kept at
// temperature 0, and the plate is heated evenly. Contributions to an entry add up, as in the
// assembly of finite elements.
//
// Sample runs:
//   $ ./2_assemble 100 PrecondIdentity 1
//   converged: 10000 unknowns, 186 iterations
//   $ ./2_assemble 100 PrecondJacobi 100
//   converged: 10000 unknowns, 209 iterations
//   $ ./2_assemble 100 PrecondSSOR 100
//   converged: 10000 unknowns, 107 iterations

#include "report.hpp"

using mivo::SetValueMode;
using Matrix = mivo::ParCSRMatrixT<double, long, int>;
using Vector = mivo::ParMatrixT<double, long, int>;
using Solver = mivo::ParSolverT<double, long, int>;

int main(int argc, char** argv) {
  if (argc != 4) {
    std::cerr << "usage: 2_assemble CELLS PRECONDITIONER CONDUCTIVITY\n";
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
  for (long cell = 0; cell < n * n; ++cell) {
    const long column = cell % n, row = cell / n;
    if (column + 1 < n) couple(cell, cell + 1);
    if (row + 1 < n) couple(cell, cell + n);
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
