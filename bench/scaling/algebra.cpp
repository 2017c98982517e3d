// SPDX-License-Identifier: Apache-2.0
// What two ranks gain over one in the product and the transpose of a 7-point matrix:
//
//   mpiexec -n 2 -bind-to core bench_algebra_scaling [SIZE [REPETITIONS]]
//
// In turn, rank 0 works alone on the whole matrix while the others sleep, and all work together.
// Rank 0 prints medians of the wall time of the slowest rank.
#include <mpi.h>
#include <time.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include "bench/mat/grid_matrices.hpp"
#include "bench/support/median.hpp"
#include "mivo/mivo.hpp"

namespace mivo::bench {
namespace {

/// Wall time, and processor time of this process, in which waiting for messages counts as well.
struct Times {
  double wall = 0;
  double processor = 0;
};

double clockSeconds(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

Times now() { return {clockSeconds(CLOCK_MONOTONIC), clockSeconds(CLOCK_PROCESS_CPUTIME_ID)}; }

template <class F>
Times timesOf(const F& f) {
  const Times start = now();
  f();
  const Times end = now();
  return {end.wall - start.wall, end.processor - start.processor};
}

/// A barrier that leaves the processor to the others.
void meet() {
  MPI_Request request;
  MPI_Ibarrier(MPI_COMM_WORLD, &request);
  int done = 0;
  for (;;) {
    MPI_Test(&request, &done, MPI_STATUS_IGNORE);
    if (done != 0) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

Times timesAlone(int rank, const std::function<void()>& f) {
  meet();
  Times times;
  if (rank == 0) times = timesOf(f);
  meet();
  return times;
}

/// Those of the slowest rank.
Times timesTogether(const std::function<void()>& f) {
  meet();
  MPI_Barrier(MPI_COMM_WORLD);
  const Times own = timesOf(f);
  double slowest[2] = {own.wall, own.processor};
  MPI_Allreduce(MPI_IN_PLACE, slowest, 2, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
  return {slowest[0], slowest[1]};
}

void print(const char* name, const char* what, double Times::*time, const std::vector<Times>& alone,
           const std::vector<Times>& together) {
  std::vector<double> one, all, gain;
  for (std::size_t k = 0; k < alone.size(); ++k) {
    one.push_back(alone[k].*time);
    all.push_back(together[k].*time);
    gain.push_back(one.back() / all.back());
  }
  std::printf("%-10s %-10s alone %8.2f ms  together %8.2f ms  gain %.2f\n", name, what,
              median(one) * 1e3, median(all) * 1e3, median(gain));
}

void compare(const char* name, int rank, int repetitions, const std::function<void()>& alone,
             const std::function<void()>& together) {
  std::vector<Times> one, all;
  for (int k = -1; k < repetitions; ++k) {
    const Times a = timesAlone(rank, alone);
    const Times b = timesTogether(together);
    if (k < 0) continue;  // to warm up
    one.push_back(a);
    all.push_back(b);
  }
  if (rank != 0) return;
  print(name, "wall", &Times::wall, one, all);
  print(name, "processor", &Times::processor, one, all);
}

void run(int n, int repetitions) {
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  const ParMatrix whole = gridMatrix(rank == 0 ? n : 1, kCommSelf);
  const ParMatrix A = gridMatrix(n, kCommWorld);
  compare(
      "multiply", rank, repetitions, [&] { whole.multiply(whole); }, [&] { A.multiply(A); });
  compare(
      "transpose", rank, repetitions, [&] { whole.transpose(); }, [&] { A.transpose(); });
}

}  // namespace
}  // namespace mivo::bench

int main(int argc, char** argv) {
  mivo::Device::initialize();
  mivo::bench::run(argc > 1 ? std::atoi(argv[1]) : 100, argc > 2 ? std::atoi(argv[2]) : 11);
  mivo::Device::finalize();
  return 0;
}
