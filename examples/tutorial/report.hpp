// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/resource.h>

#include <iomanip>
#include <iostream>
#include <mivo/mivo.hpp>

namespace tutorial {

/// Prints the line that all programs of the tutorial end with: unknowns and iterations, the seconds
/// that set-up and solve took, and the most memory that this process has used. Returns whether x
/// solves A x = b to 1e-8, which it finds out by a product of its own. Collective; the rank that
/// owns the first row prints.
inline bool report(const mivo::ParSolverT<double, long, int>& solver,
                   mivo::ParMatrixFreeT<double, long, int>& A,
                   const mivo::ParMatrixT<double, long, int>& b,
                   const mivo::ParMatrixT<double, long, int>& x, int iterations) {
  using Vector = mivo::ParMatrixT<double, long, int>;
  // A solver stops by the residual of its recurrence, which rounding parts from the true one.
  const bool converged = Vector::residual(A, x, b) < 1.1e-8 * Vector::normL2(b);
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  long begin = 0, end = 0;
  x.getOwnerShipRange(&begin, &end);
  if (begin == 0) {
    std::cout << (converged ? "converged: " : "NOT converged: ") << A.getRows() << " unknowns, "
              << iterations << " iterations; set-up " << std::setprecision(2)
              << solver.preconditioner->setupTime.getTimeSec() << " s, solve "
              << solver.solveTime.getTimeSec() << " s, memory " << usage.ru_maxrss / 1024 << " MB"
              << std::endl;
  }
  return converged;
}

}  // namespace tutorial
