// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/resource.h>

#include <chrono>
#include <iomanip>
#include <iostream>
#include <mivo/mivo.hpp>

// What all steps of the tutorial share: set-up, solve, and one line about them.
namespace tutorial {

using Matrix = mivo::ParCSRMatrixT<double, long, int>;
using Operator = mivo::ParMatrixFreeT<double, long, int>;
using Vector = mivo::ParMatrixT<double, long, int>;
using Solver = mivo::ParSolverT<double, long, int>;

/// Sets up a solver made from `config` and solves A x = b from the x that is given. Collective.
inline void solveAndReport(Operator& A, const Vector& b, Vector& x, const mivo::json& config) {
  using Clock = std::chrono::steady_clock;
  const auto seconds = [](Clock::time_point from) {
    return std::chrono::duration<double>(Clock::now() - from).count();
  };
  const auto solver = Solver::getFactory().createInstance(config);
  const auto start = Clock::now();
  solver->preconditioner->setup(A);
  solver->setup(A);
  const double setup = seconds(start);

  const auto middle = Clock::now();
  int iterations = 0;
  double relres = 0;
  solver->solve(A, b, x, iterations, relres);
  const double solve = seconds(middle);

  const double error = Vector::residual(A, x, b) / Vector::normL2(b);
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  long firstRow = 0;
  x.getOwnerShipRange(&firstRow, nullptr);
  if (firstRow > 0) return;  // one rank speaks for all
  std::cout << (error < 1.1e-8 ? "converged" : "NOT converged") << ": " << A.getRows()
            << " unknowns, " << iterations << " iterations; set-up " << std::setprecision(2)
            << setup << " s, solve " << solve << " s, memory " << usage.ru_maxrss / 1024 << " MB"
            << std::endl;
}

}  // namespace tutorial
