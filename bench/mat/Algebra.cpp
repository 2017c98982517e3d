// SPDX-License-Identifier: Apache-2.0
// Operations on whole matrices of one rank: products beside a plain product with a marker, in fresh
// memory and in memory that has been touched; the others beside a copy into fresh memory.
#include <functional>
#include <string>
#include <vector>

#include "bench/mat/grid_matrices.hpp"
#include "bench/mat/plain_algebra.hpp"
#include "bench/support/measure.hpp"
#include "mivo/utils/communicator.hpp"

namespace mivo::bench {
namespace {

using Local = CSRMatrixT<double, int>;

struct Grid {
  int n = static_cast<int>(sized(100, 6));
  ParMatrix A = gridMatrix(n, kCommWorld);
  ParMatrix P = gridProlongation(A, n);
  ParMatrix R = P.transpose();
};

Grid& grid() {
  static Grid g;
  return g;
}

double bytesOf(const ParMatrix& m) { return matrixBytes(m.getLocalMatrix(-1)); }

void copy(const ParMatrix& m) { benchmark::DoNotOptimize(m.deepCopy().getLocalMatrix(-1)); }

void add(const std::string& name, long rounds, const std::function<void(benchmark::State&)>& f) {
  bench::add(name, f)->Iterations(sized(rounds, 1));
}

/// A product beside the plain one, "vs_loop" with a result in fresh memory as the library's,
/// "vs_touched" with one in memory that has been touched.
void product(benchmark::State& state, const ParMatrix& A, const ParMatrix& B) {
  const Local a = A.getLocalMatrix(-1);
  const Local b = B.getLocalMatrix(-1);
  const Local c = plain::product(a, b);
  std::vector<int> marker;
  std::vector<double> seconds, fresh, touched, triad;
  bool libraryFirst = true;  // in turn, since fresh memory costs more after other work
  for (auto _ : state) {
    const auto library = [&] {
      seconds.push_back(
          secondsOf([&] { benchmark::DoNotOptimize(A.multiply(B).getLocalMatrix(-1)); }));
    };
    if (libraryFirst) library();
    fresh.push_back(secondsOf([&] { benchmark::DoNotOptimize(plain::product(a, b)); }));
    if (!libraryFirst) library();
    libraryFirst = !libraryFirst;
    touched.push_back(secondsOf([&] { plain::productInto(a, b, c, marker); }));
    triad.push_back(triadSeconds());
    state.SetIterationTime(seconds.back());
  }
  report(state, matrixBytes(a) + matrixBytes(b) + matrixBytes(c), seconds, triad);
  state.counters["entries"] = c.getNnz();
  state.counters["vs_loop"] = median(fresh) / median(seconds);
  state.counters["vs_touched"] = median(touched) / median(seconds);
}

}  // namespace

void registerBenchmarks() {
  add("multiply/A_A", 9, [](benchmark::State& s) { product(s, grid().A, grid().A); });
  add("multiply/A_P", 9, [](benchmark::State& s) { product(s, grid().A, grid().P); });
  add("multiply/R_AP", 9,
      [](benchmark::State& s) { product(s, grid().R, grid().A.multiply(grid().P)); });
  add("transpose/A", 9, [](benchmark::State& s) {
    const ParMatrix& A = grid().A;
    measureBeside(
        s, 2 * bytesOf(A), [&] { benchmark::DoNotOptimize(A.transpose().getLocalMatrix(-1)); },
        [&] { copy(A); });
  });
  add("transpose/P", 9, [](benchmark::State& s) {
    const ParMatrix& P = grid().P;
    measureBeside(
        s, 2 * bytesOf(P), [&] { benchmark::DoNotOptimize(P.transpose().getLocalMatrix(-1)); },
        [&] { copy(P); });
  });
  add("matadd/A_AA", 7, [](benchmark::State& s) {
    const ParMatrix& A = grid().A;
    const ParMatrix B = A.multiply(A);
    ParMatrix C;
    measureBeside(
        s, bytesOf(A) + 2 * bytesOf(B), [&] { ParMatrix::matadd(1.0, A, -0.5, B, C); },
        [&] { copy(B); });
  });
  add("gather/A", 9, [](benchmark::State& s) {
    const ParMatrix& A = grid().A;
    measureBeside(
        s, 2 * bytesOf(A), [&] { benchmark::DoNotOptimize(A.gather(0)); }, [&] { copy(A); });
  });
}

}  // namespace mivo::bench
