// SPDX-License-Identifier: Apache-2.0
// Assembly of a 7-point matrix through setValue in row order and in random order, and from a local
// matrix. Each run has a process of its own, with fresh memory.
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "bench/support/child.hpp"
#include "bench/support/measure.hpp"
#include "bench/support/stencils.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"

namespace mivo::bench {
namespace {

using Matrix = ParCSRMatrixT<double, long, int>;

int gridSize() { return static_cast<int>(sized(100, 6)); }

/// Runs `work(A)`, which makes A, between the looks at clock and memory. `calls` 0 counts the
/// entries of A.
template <class Work>
Run timed(double calls, const Work& work) {
  Matrix A;
  resetPeak();
  const double before = residentBytes();
  Run run;
  run.seconds = secondsOf([&] { work(A); });
  run.peakBytes = peakBytes() - before;
  run.entries = static_cast<double>(A.getNnzs());
  run.calls = calls > 0 ? calls : run.entries;
  run.resultBytes = matrixBytes(A.getLocalMatrix(-1));
  return run;
}

/// Registers a benchmark of three runs; the figure is the time for one call, and beside it stands
/// the peak of the memory beyond the finished matrix, for each of its entries.
void addAssembly(const std::string& name, Run (*work)()) {
  add(name, [work](benchmark::State& state) {
    std::vector<double> seconds;
    std::vector<double> triad;
    Run run;
    double peak = 0;
    for (auto _ : state) {
      run = inChild(work);
      seconds.push_back(run.seconds);
      triad.push_back(triadSeconds());
      peak = std::max(peak, run.peakBytes);
      state.SetIterationTime(run.seconds);
    }
    report(state, run.resultBytes, seconds, triad);
    state.counters["ns/call"] = median(seconds) / run.calls * 1e9;
    state.counters["calls"] = run.calls;
    state.counters["extra_B/entry"] = (peak - run.resultBytes) / run.entries;
  })->Iterations(sized(3, 1));
}

struct Entry {
  int row;
  int col;
  double value;
};

Run inRowOrder() {
  const int n = gridSize();
  const long rows = static_cast<long>(n) * n * n;
  return timed(static_cast<double>(stencilEntries(n, false)), [&](Matrix& A) {
    A.create(rows, rows, Device());
    A.beginAssemble();
    forStencil(n, false,
               [&](int row, int col, double v) { A.setValue(row, col, v, SetValueMode::Add); });
    A.endAssemble();
  });
}

Run inRandomOrder() {
  const int n = gridSize();
  const long rows = static_cast<long>(n) * n * n;
  std::vector<Entry> entries;
  entries.reserve(static_cast<std::size_t>(stencilEntries(n, false)));
  forStencil(n, false, [&](int row, int col, double v) { entries.push_back({row, col, v}); });
  std::shuffle(entries.begin(), entries.end(), std::mt19937(5));
  return timed(static_cast<double>(entries.size()), [&](Matrix& A) {
    A.create(rows, rows, Device());
    A.beginAssemble();
    for (const Entry& e : entries) A.setValue(e.row, e.col, e.value, SetValueMode::Add);
    A.endAssemble();
  });
}

Run fromLocalMatrix() {
  const CSRMatrixT<double, long> local = stencilMatrix<long>(gridSize(), false);
  return timed(0, [&](Matrix& A) { A.createByAssemble(local, kCommWorld); });
}

}  // namespace

void registerBenchmarks() {
  addAssembly("setValue/row_order", inRowOrder);
  addAssembly("setValue/random_order", inRandomOrder);
  addAssembly("createByAssemble", fromLocalMatrix);
}

}  // namespace mivo::bench
