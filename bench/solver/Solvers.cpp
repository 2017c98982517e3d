// SPDX-License-Identifier: Apache-2.0
// Iterations of whole solvers, and the generation of their test problem.
#include <string>

#include "bench/support/measure.hpp"
#include "bench/support/stencils.hpp"
#include "mivo/mivo.hpp"

namespace mivo::bench {
namespace {

using Matrix = ParCSRMatrixT<double, long, int>;
using Vector = ParMatrixT<double, long, int>;
using Solver = ParSolverT<double, long, int>;

struct System {
  Matrix A;
  Vector x, b;

  System() {
    A.createSeq(stencilMatrix<int>(static_cast<int>(sized(100, 8)), false), kCommSelf);
    for (Vector* v : {&x, &b}) v->create(A.getRowPartitioner(), Device(), kCommSelf);
    b.fill(1.0);
    x.fill(0.0);
  }
  /// Reads of the whole matrix, and reads or writes of a vector.
  double bytes(int matrices, int vectors) const {
    return matrices * matrixBytes(A.getLocalMatrix(-1)) +
           vectors * static_cast<double>(sizeof(double)) * static_cast<double>(A.getRows());
  }
};

System& shared() {
  static System system;
  return system;
}

/// Median seconds between two statuses. The first iteration, which touches fresh memory, does not
/// count.
double secondsOfIteration(Solver& solver, System& s) {
  std::vector<double> times;
  solver.observer = [&](int, double, double, double) { times.push_back(now()); };
  s.x.fill(0.0);
  int iter = 0;
  double relres = 0;
  solver.solve(s.A, s.b, s.x, iter, relres);
  std::vector<double> steps;
  for (std::size_t k = 2; k < times.size(); ++k) steps.push_back(times[k] - times[k - 1]);
  return median(steps);
}

/// "vs_bound" is the time in units of what the triad's bandwidth needs for the least traffic.
void addIteration(const std::string& name, const json& config, int matrices, int vectors) {
  add(name, [=](benchmark::State& state) {
    System& s = shared();
    const auto solver = Solver::getFactory().createInstance(config);
    solver->preconditioner->setup(s.A);
    solver->setup(s.A);
    std::vector<double> seconds, triad;
    for (auto _ : state) {
      triad.push_back(triadSeconds());
      seconds.push_back(secondsOfIteration(*solver, s));
      state.SetIterationTime(seconds.back());
    }
    report(state, s.bytes(matrices, vectors), seconds, triad);
    state.counters["vs_bound"] = 1 / state.counters["vs_triad"];
  });
}

/// How often an iteration runs each operation, one call of the library's separate kernels each.
struct Parts {
  int products, applications;
  int dots, norms;
  int updates;  ///< y = a x + b y
  int sums;     ///< z = a x + b y
  int copies, scales;
};

/// Seconds of the parts, each timed alone on vectors of the system.
double secondsOfParts(const Parts& parts, ParPreconditionerT<double, long, int>& P, System& s,
                      Vector& y, Vector& z) {
  volatile double sink = 0;
  return parts.products * secondsOf([&] { s.A.aAxpby(1.0, s.b, 0.0, y, nullptr); }) +
         parts.applications * secondsOf([&] { P.precondition(s.b, y); }) +
         parts.dots * secondsOf([&] { sink = Vector::dot(s.b, y); }) +
         parts.norms * secondsOf([&] { sink = Vector::normL2(y); }) +
         parts.updates * secondsOf([&] { Vector::axpby(0.5, s.b, 0.5, y); }) +
         parts.sums * secondsOf([&] { Vector::axpbypcz(0.5, s.b, 0.5, y, 0.0, z); }) +
         parts.copies * secondsOf([&] { s.b.deepCopy(y); }) +
         parts.scales * secondsOf([&] { Vector::scale(0.5, y); });
}

/// An iteration beside its parts: "vs_parts" is its time in units of their sum.
void addIterationBesideParts(const std::string& name, const json& config, const Parts& parts,
                             int matrices, int vectors) {
  add(name, [=](benchmark::State& state) {
    System& s = shared();
    const auto solver = Solver::getFactory().createInstance(config);
    solver->preconditioner->setup(s.A);
    Vector y = s.b.deepCopy(), z = s.b.deepCopy();
    std::vector<double> seconds, sums, triad;
    for (auto _ : state) {
      triad.push_back(triadSeconds());
      for (int k = 0; k < 5; ++k) {
        sums.push_back(secondsOfParts(parts, *solver->preconditioner, s, y, z));
      }
      seconds.push_back(secondsOfIteration(*solver, s));
      state.SetIterationTime(seconds.back());
    }
    report(state, s.bytes(matrices, vectors), seconds, triad);
    state.counters["vs_parts"] = median(seconds) / median(sums);
  });
}

void addPreconditioner(const std::string& name, const json& config, int matrices, int vectors) {
  add(name, [=](benchmark::State& state) {
    System& s = shared();
    const auto preconditioner =
        ParPreconditionerT<double, long, int>::getFactory().createInstance(config);
    preconditioner->setup(s.A);
    measure(state, s.bytes(matrices, vectors), [&] { preconditioner->precondition(s.b, s.x); });
  });
}

void addGeneration(int dim, int N) {
  add("poisson_fdm/dim" + std::to_string(dim), [=](benchmark::State& state) {
    const auto problem = TestCaseT<double, long, int>::getFactory().createInstance(
        {{"testcase_type", "PoissonFDM"}, {"PoissonFDM_params", {{"dim", dim}, {"N", N}}}});
    double entries = 1;
    std::vector<double> seconds;
    for (auto _ : state) {
      Matrix A;
      Vector x, b;
      seconds.push_back(secondsOf([&] { problem->generate(A, x, b); }));
      state.SetIterationTime(seconds.back());
      entries = static_cast<double>(A.getNnzs());
    }
    state.counters["ms"] = median(seconds) * 1e3;
    state.counters["ns_per_entry"] = median(seconds) * 1e9 / entries;
  });
}

}  // namespace

void registerBenchmarks() {
  const json jacobi{{"preconditioner_type", "PrecondJacobi"}};
  const json ssor{{"preconditioner_type", "PrecondSSOR"}};
  const auto solver = [](const std::string& name, const json& preconditioner) {
    return json{
        {"solver_type", name},
        {name + "_params", {{"preconditioner", preconditioner}, {"max_its", 12}, {"rtol", 1e-30}}}};
  };
  // The kernels of a Jacobi iteration touch 18 vectors; six of them have just been in use. SSOR has
  // two sweeps over b, d and x in place of the three vectors of Jacobi.
  addIteration("pcg_iteration/PrecondJacobi", solver("SolverPCG", jacobi), 1, 12);
  addIteration("pcg_iteration/PrecondSSOR", solver("SolverPCG", ssor), 3, 18);
  addIterationBesideParts("pcg_iteration_parts/PrecondJacobi", solver("SolverPCG", jacobi),
                          {1, 1, 2, 1, 3, 0, 0, 0}, 1, 12);
  // 25 vectors beside products and preconditioner, which touch two and three vectors
  addIterationBesideParts("bicgstab_iteration/PrecondJacobi", solver("SolverBiCGSTAB", jacobi),
                          {2, 2, 4, 2, 2, 4, 0, 0}, 2, 35);
  // The median of steps 1 to 11 is step 6, with 7 vectors to orthogonalise against.
  addIterationBesideParts("flgmres_r_iteration/PrecondJacobi", solver("SolverFLGMRES_R", jacobi),
                          {1, 1, 7, 1, 7, 0, 1, 1}, 1, 38);
  // The parts are those of the formulas; fewer passes do the same.
  const auto minres = [&](const std::string& algo) {
    json config = solver("SolverMINRES", jacobi);
    config["SolverMINRES_params"]["algo"] = algo;
    return config;
  };
  addIterationBesideParts("minres_iteration/qlp", minres("qlp"), {1, 1, 2, 0, 4, 3, 0, 0}, 1, 20);
  addIterationBesideParts("minres_iteration/standard", minres("standard"), {1, 1, 2, 0, 7, 0, 1, 3},
                          1, 25);
  addIterationBesideParts("symmlq_iteration", solver("SolverSYMMLQ", jacobi),
                          {1, 1, 2, 0, 7, 0, 1, 4}, 1, 24);
  addPreconditioner("jacobi_from_zero", jacobi, 0, 3);
  addPreconditioner("ssor", ssor, 2, 9);
  addGeneration(2, static_cast<int>(sized(1000, 16)));
  addGeneration(3, static_cast<int>(sized(100, 8)));
}

}  // namespace mivo::bench
