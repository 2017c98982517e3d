// SPDX-License-Identifier: Apache-2.0
// Strong and weak scaling, run under mpiexec by `bench/scaling/run`: a triad, the product with a
// 7-point matrix and iterations of Jacobi-PCG in turn, so that a disturbed machine disturbs all.
//
//   bench_scaling NX NY NZ REPETITIONS TRIAD_ELEMENTS
//
// Rank 0 prints medians over the repetitions, "name=value" separated by blanks, then one line a
// rank with the messages of a product.
#include <mpi.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/support/array.hpp"
#include "bench/support/median.hpp"
#include "mivo/mivo.hpp"

namespace mivo::bench {
namespace {

/// What this rank has sent and reduced since its start.
struct Calls {
  long messages = 0;
  long bytes = 0;
  long allreduces = 0;
} calls;

}  // namespace
}  // namespace mivo::bench

// The dynamic linker takes the functions of the program before those of any library.
extern "C" {

int MPI_Isend(const void* data, int count, MPI_Datatype type, int to, int tag, MPI_Comm comm,
              MPI_Request* request) {
  int size = 0;
  MPI_Type_size(type, &size);
  mivo::bench::calls.messages += 1;
  mivo::bench::calls.bytes += static_cast<long>(size) * count;
  return PMPI_Isend(data, count, type, to, tag, comm, request);
}

int MPI_Allreduce(const void* in, void* out, int count, MPI_Datatype type, MPI_Op op,
                  MPI_Comm comm) {
  mivo::bench::calls.allreduces += 1;
  return PMPI_Allreduce(in, out, count, type, op, comm);
}

}  // extern "C"

namespace mivo::bench {
namespace {

using Matrix = ParCSRMatrixT<double, long, int>;
using Vector = ParMatrixT<double, long, int>;
using Solver = ParSolverT<double, long, int>;

struct Grid {
  long nx, ny, nz;
  long rows() const { return nx * ny * nz; }
};

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double slowestRank(double seconds) {
  MPI_Allreduce(MPI_IN_PLACE, &seconds, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
  return seconds;
}

/// Wall time of the slowest rank; all begin together.
template <class F>
double secondsOf(const F& f) {
  MPI_Barrier(MPI_COMM_WORLD);
  const double start = now();
  f();
  return slowestRank(now() - start);
}

/// 6 on the diagonal, -1 for each neighbour; each rank sets its own rows, slabs of planes.
Matrix laplacian(const Grid& g) {
  Matrix A;
  A.create(g.rows(), g.rows(), Device());
  long begin = 0;
  long end = 0;
  A.getOwnerShipRange(&begin, &end);
  A.beginAssemble();
  for (long i = begin; i < end; ++i) {
    const auto set = [&](bool inside, long j, double value) {
      if (inside) A.setValue(i, j, value, SetValueMode::Set);
    };
    const long x = i % g.nx, y = i / g.nx % g.ny, z = i / (g.nx * g.ny);
    set(z > 0, i - g.nx * g.ny, -1);
    set(y > 0, i - g.nx, -1);
    set(x > 0, i - 1, -1);
    set(true, i, 6);
    set(x < g.nx - 1, i + 1, -1);
    set(y < g.ny - 1, i + g.nx, -1);
    set(z < g.nz - 1, i + g.nx * g.ny, -1);
  }
  A.endAssemble();
  return A;
}

/// The least traffic of a product: every array once.
double productBytes(const Matrix& A) {
  double bytes = 0;
  std::vector<CSRMatrixT<double, int>> blocks;
  A.getLocalMatrix(blocks);
  for (const auto& block : blocks) {
    if (block.getNnz() > 0) bytes += 12.0 * block.getNnz();
  }
  bytes += A.getLocalRows() * (2.0 * sizeof(double) + sizeof(int));
  MPI_Allreduce(MPI_IN_PLACE, &bytes, 1, MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
  return bytes;
}

constexpr int kIterations = 12;

/// Seconds and calls an iteration. The first one, which touches fresh memory, does not count.
double secondsOfIteration(Solver& solver, Matrix& A, const Vector& b, Vector& x, Calls& each) {
  std::vector<double> times;
  Calls first;
  solver.observer = [&](int, double, double, double) {
    times.push_back(now());
    if (times.size() == 2) first = calls;
  };
  x.fill(0.0);
  int iterations = 0;
  double residual = 0;
  MPI_Barrier(MPI_COMM_WORLD);
  solver.solve(A, b, x, iterations, residual);
  MIVO_CHECK(iterations == kIterations && std::isfinite(residual))
      << "bench_scaling: the solve ended early";
  const long steps = kIterations - 1;
  each.messages = (calls.messages - first.messages) / steps;
  each.bytes = (calls.bytes - first.bytes) / steps;
  each.allreduces = (calls.allreduces - first.allreduces) / steps;
  return slowestRank((times.back() - times[1]) / static_cast<double>(steps));
}

/// Messages and bytes of one product: sent, then received.
std::vector<long> traffic(const Matrix& A, int rank) {
  using Plan = SpMVCommPatternT<double, long, int>;
  std::vector<long> counts(4, 0);
  const Plan plan = A.getSpMVCommPattern();
  plan.sendTraversal([&](int to, Plan::SpmvSendMeta* meta) {
    if (to == rank) return;
    counts[0] += 1;
    counts[1] += meta->host_indices.getSize() * static_cast<long>(sizeof(double));
  });
  plan.recvTraversal([&](int from, Plan::SpmvColBlock* block) {
    if (from == rank) return;
    counts[2] += 1;
    counts[3] += block->host_recv_buffer.getSize() * static_cast<long>(sizeof(double));
  });
  return counts;
}

void measure(const Grid& g, int repetitions, long triadElements) {
  int rank = 0;
  int ranks = 1;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &ranks);
  Matrix A = laplacian(g);
  Vector x, y, b;
  for (Vector* v : {&x, &y, &b}) v->create(A.getRowPartitioner(), Device(), kCommWorld);
  b.fill(1.0);

  // A 1 is the number of neighbours that a point at the boundary lacks.
  A.matVec(b, y, nullptr);
  const double lacking = 2.0 * static_cast<double>(g.nx * g.ny + g.ny * g.nz + g.nz * g.nx);
  const double sum = Vector::dot(b, y);
  MIVO_CHECK(sum == lacking) << "bench_scaling: the product is wrong";

  const auto solver = Solver::getFactory().createInstance(
      {{"solver_type", "SolverPCG"},
       {"SolverPCG_params",
        {{"max_its", kIterations},
         {"rtol", 1e-30},
         {"preconditioner", {{"preconditioner_type", "PrecondJacobi"}}}}}});
  solver->preconditioner->setup(A);
  solver->setup(A);
  const Triad triad(static_cast<std::size_t>(triadElements));

  Calls iteration;
  std::vector<double> triads, products, iterations;
  for (int k = -1; k < repetitions; ++k) {
    const double t = secondsOf([&] { triad.run(); });
    const double p = secondsOf([&] { A.matVec(b, y, nullptr); });
    const double i = secondsOfIteration(*solver, A, b, x, iteration);
    if (k < 0) continue;  // to warm up
    triads.push_back(t);
    products.push_back(p);
    iterations.push_back(i);
  }

  const double bytes = productBytes(A);
  std::vector<long> own = traffic(A, rank);
  own.insert(own.end(), {iteration.messages, iteration.bytes, iteration.allreduces});
  const int fields = static_cast<int>(own.size());
  std::vector<long> all(own.size() * static_cast<std::size_t>(ranks));
  MPI_Gather(own.data(), fields, MPI_LONG, all.data(), fields, MPI_LONG, 0, MPI_COMM_WORLD);
  if (rank != 0) return;
  std::printf(
      "ranks=%d rows=%ld triad_GBs=%.3f product_ms=%.4f product_GBs=%.3f pcg_ms=%.4f "
      "wait_some=%d\n",
      ranks, g.rows(), triad.bytes() * ranks / median(triads) / 1e9, median(products) * 1e3,
      bytes / median(products) / 1e9, median(iterations) * 1e3, Utils::isWaitSome() ? 1 : 0);
  for (int r = 0; r < ranks; ++r) {
    const long* c = &all[own.size() * static_cast<std::size_t>(r)];
    std::printf("rank=%d of=%d sends=%ld bytes_out=%ld receives=%ld bytes_in=%ld", r, ranks, c[0],
                c[1], c[2], c[3]);
    std::printf(" pcg_sends=%ld pcg_bytes_out=%ld allreduces=%ld\n", c[4], c[5], c[6]);
  }
}

}  // namespace
}  // namespace mivo::bench

int main(int argc, char** argv) {
  if (argc != 6) {
    std::fprintf(stderr, "usage: %s NX NY NZ REPETITIONS TRIAD_ELEMENTS\n", argv[0]);
    return 2;
  }
  mivo::Device::initialize();
  mivo::bench::measure({std::atol(argv[1]), std::atol(argv[2]), std::atol(argv[3])},
                       std::atoi(argv[4]), std::atol(argv[5]));
  mivo::Device::finalize();
  return 0;
}
