// SPDX-License-Identifier: Apache-2.0

// Set-up, cycle and solve of multigrid hierarchies on the 7-point problem of N^3 points, each in
// the time of a V-cycle; the cycle against its parts measured alone; memory. On one rank, or on
// several under mpiexec. Called by bench/multigrid/run.
//
//   bench_multigrid NAME SMOOTHING N REPETITIONS [PROBLEM]
//
// NAME is a level transfer, with "/" and an aggregator behind it where it takes one; SMOOTHING is
// ssor, sor (forward down, backward up) or jacobi. PROBLEM is poisson3d (default) or poisson2d, by
// the library's test case, or on N^3 points without boundary rows and with b = A 1: 27point,
// anisotropic (a hundred times stronger in x), jumps (a thousand times stronger in every other
// block of 8^3) or convection (along x, upwind, ten times the diffusion; solved by
// SolverFLGMRES_R).

#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "bench/support/median.hpp"
#include "bench/support/stencils.hpp"
#include "mivo/mivo.hpp"
#include "mivo/mpi_stub/mpi.h"

namespace {

using mivo::json;
using Matrix = mivo::ParCSRMatrixT<double, long, int>;
using Vector = mivo::ParMatrixT<double, long, int>;
using Solver = mivo::ParSolverT<double, long, int>;
using Amg = mivo::ParPreconditionerAMG_T<double, long, int>;

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Seconds of the slowest rank.
template <class F>
double secondsOf(const F& f) {
  MPI_Barrier(MPI_COMM_WORLD);
  const double start = now();
  f();
  double seconds = now() - start;
  MPI_Allreduce(MPI_IN_PLACE, &seconds, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
  return seconds;
}

template <class F>
double medianOf(int repetitions, const F& f) {
  f();
  std::vector<double> seconds;
  for (int k = 0; k < repetitions; ++k) seconds.push_back(secondsOf(f));
  return mivo::bench::median(seconds);
}

double peakMegabytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024;
}

double megabytes(const Matrix& m) {
  return (12.0 * static_cast<double>(m.getNnzs()) + 4.0 * static_cast<double>(m.getRows())) /
         (1024 * 1024);
}

json withParams(const std::string& family, const std::string& name, const json& params) {
  return {{family + "_type", name}, {name + "_params", params}};
}

json hierarchy(const std::string& name, const std::string& smoothing) {
  const auto slash = name.find('/');
  json params = json::object();
  if (slash != std::string::npos) {
    params["aggregator"] = {{"aggregator_type", name.substr(slash + 1)}};
  }
  const auto smoother = [&](bool forward) {
    if (smoothing == "jacobi") return withParams("smoother", "SmootherJacobi", {{"relax", 0.67}});
    if (smoothing == "ssor") return withParams("smoother", "SmootherSSOR", json::object());
    return withParams("smoother", "SmootherSOR", {{"forward", forward}});
  };
  return {{"level_transfer", withParams("level_transfer", name.substr(0, slash), params)},
          {"pre_smoother", smoother(true)},
          {"post_smoother", smoother(false)}};
}

/// The sweeps, residuals and transfers of a cycle, each alone.
double partsOfCycle(Amg& amg, int repetitions) {
  double sum = 0;
  for (std::size_t l = 0; l + 1 < amg.levels.size(); ++l) {
    Amg::Level& level = amg.levels[l];
    Vector b, x, r, coarse, correction;
    b.create(level.A.getRowPartitioner(), level.A.getDevice(), level.A.getComm());
    b.fill(1);
    b.deepCopy(x);
    b.deepCopy(r);
    sum += medianOf(repetitions, [&] { level.pre_smoother->smoothFromZero(b, x); });
    sum += medianOf(repetitions, [&] { level.post_smoother->smooth(b, x); });
    if (amg.levels[l + 1].A.getRows() == 0) continue;  // no unknown is left: smoothing alone
    sum += medianOf(repetitions, [&] { Vector::residual_vec(level.A, x, b, r); });
    sum += medianOf(repetitions, [&] { level.R.matVec(r, coarse, nullptr); });
    sum += medianOf(repetitions, [&] { level.P.matVec(coarse, correction, nullptr); });
    sum += medianOf(repetitions, [&] { Vector::axpy(1.0, correction, x); });
  }
  return sum;
}

/// Coupling of two neighbours on the grid of n^3 points.
double coupling(const std::string& problem, int n, int row, int col) {
  if (problem == "anisotropic") return std::abs(row - col) == 1 ? 100 : 1;
  if (problem == "convection") return row - col == 1 ? 11 : 1;
  if (problem != "jumps") return 1;
  const auto conductivity = [n](int point) {
    const int x = point % n, y = point / n % n, z = point / n / n;
    return (x / 8 + y / 8 + z / 8) % 2 == 0 ? 1.0 : 1000.0;
  };
  return 2 / (1 / conductivity(row) + 1 / conductivity(col));
}

void makeSystem(const std::string& problem, int n, Matrix& A, Vector& x, Vector& b) {
  if (problem == "poisson3d" || problem == "poisson2d") {
    mivo::TestCaseT<double, long, int>::getFactory()
        .createInstance(withParams("testcase", "PoissonFDM",
                                   {{"dim", problem == "poisson3d" ? 3 : 2}, {"N", n}}))
        ->generate(A, x, b);
    return;
  }
  const long rows = static_cast<long>(n) * n * n;
  A.create(rows, rows, mivo::Device());
  long begin = 0, end = 0;
  A.getOwnerShipRange(&begin, &end);
  A.beginAssemble();
  mivo::bench::forStencil(n, problem == "27point", [&](int row, int col, double value) {
    if (row < begin || row >= end) return;
    if (row == col) {
      // Couplings across the boundary are those of the stencil.
      A.setValue(row, row, problem == "27point" ? value : 1e-3, mivo::SetValueMode::Add);
      return;
    }
    const double k = coupling(problem, n, row, col);
    A.setValue(row, col, -k, mivo::SetValueMode::Add);
    if (problem != "27point") A.setValue(row, row, k, mivo::SetValueMode::Add);
  });
  A.endAssemble();
  x.create(A.getRowPartitioner(), A.getDevice(), A.getComm());
  x.fill(1);
  b = A.matVec(x);
}

void measure(const std::string& name, const std::string& smoothing, int n, int repetitions,
             const std::string& problem) {
  Matrix A;
  Vector x, b;
  makeSystem(problem, n, A, x, b);
  A.prepareMatVec(false);
  x.fill(0);

  const json config = withParams(
      "solver", problem == "convection" ? "SolverFLGMRES_R" : "SolverPCG",
      {{"max_its", 300},
       {"preconditioner", withParams("preconditioner", "PrecondAMG", hierarchy(name, smoothing))}});
  std::shared_ptr<Solver> solver;
  std::shared_ptr<Amg> amg;
  std::vector<double> setups, transfers, raps;
  Vector z;
  b.deepCopy(z);
  double memory = 0;
  for (int k = 0; k < repetitions; ++k) {
    solver = nullptr;
    amg = nullptr;
    solver = Solver::getFactory().createInstance(config);
    setups.push_back(secondsOf([&] { solver->preconditioner->setup(A); }));
    amg = std::dynamic_pointer_cast<Amg>(solver->preconditioner);
    transfers.push_back(amg->setup_times.transfer.getTimeSec());
    raps.push_back(amg->setup_times.rap.getTimeSec());
    if (k > 0) continue;
    // Later set-ups find memory that the first has left behind.
    amg->precondition(b, z);
    memory = peakMegabytes();
  }
  solver->setup(A);
  const double cycle = medianOf(repetitions, [&] { amg->precondition(b, z); });
  const double parts = partsOfCycle(*amg, repetitions);
  int iterations = 0;
  double relres = 0;
  const double solve = secondsOf([&] { solver->solve(A, b, x, iterations, relres); });

  double entries = 0, needed = 0;
  for (std::size_t l = 0; l < amg->levels.size(); ++l) {
    const auto& level = amg->levels[l];
    entries += static_cast<double>(level.A.getNnzs());
    needed += (l > 0 ? megabytes(level.A) : 0) + megabytes(level.P) + megabytes(level.R);
  }
  const double complexity = entries / static_cast<double>(amg->levels[0].A.getNnzs());
  int ranks = 1, rank = 0;
  MPI_Comm_size(MPI_COMM_WORLD, &ranks);
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  if (rank > 0) return;
  const double setup = mivo::bench::median(setups);
  std::cerr << std::fixed << std::setprecision(3) << "| " << problem << " " << n << " | " << name
            << " | " << smoothing << " | " << ranks << " | " << amg->levels.size() << " | "
            << complexity << " | " << iterations << " | " << setup << " | "
            << mivo::bench::median(transfers) << " | " << mivo::bench::median(raps) << " | "
            << std::setprecision(4) << cycle << " | " << std::setprecision(1) << setup / cycle
            << " | " << std::setprecision(2) << cycle / parts << " | " << std::setprecision(3)
            << solve << " | " << setup + solve << " | " << std::setprecision(0) << needed << " | "
            << memory << " |\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5 && argc != 6) {
    std::cerr << "usage: bench_multigrid NAME SMOOTHING N REPETITIONS [PROBLEM]\n";
    return 1;
  }
  mivo::Device::initialize();
  measure(argv[1], argv[2], std::atoi(argv[3]), std::atoi(argv[4]),
          argc == 6 ? argv[5] : "poisson3d");
  mivo::Device::finalize();
}
