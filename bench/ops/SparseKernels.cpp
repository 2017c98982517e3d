// SPDX-License-Identifier: Apache-2.0
// Products and sweeps on stencil matrices, each beside a plain loop.
#include <string>

#include "bench/ops/plain_loops.hpp"
#include "bench/support/measure.hpp"
#include "bench/support/stencils.hpp"
#include "mivo/ops/SpBlasOps.hpp"

namespace mivo::bench {
namespace {

struct System {
  CSRMatrixT<double, int> A;
  Array<double> x;
  Array<double> y;
  Array<double> b;
  System(int n, bool full)
      : A(stencilMatrix<int>(n, full)),
        x(static_cast<std::size_t>(A.getRows())),
        y(static_cast<std::size_t>(A.getRows())),
        b(static_cast<std::size_t>(A.getRows())) {}
  /// The matrix once and `passes` reads or writes of a vector.
  double bytes(int passes) const {
    return matrixBytes(A) + passes * static_cast<double>(sizeof(double)) * A.getRows();
  }
};

System& shared(bool full) {
  static System seven(static_cast<int>(sized(128, 8)), false);
  static System all(static_cast<int>(sized(80, 8)), true);
  return full ? all : seven;
}

void addKernels(bool full) {
  using Ops = SpBlasOps<double, int>;
  const std::string suffix = full ? "/27-point" : "/7-point";
  const Device d;

  // y = A x reads the matrix and x and writes y; beta other than 0 reads y too.
  for (const double beta : {0.0, 0.5}) {
    add(std::string("aAxpby") + (beta == 0.0 ? "" : "_update") + suffix,
        [=](benchmark::State& state) {
          System& s = shared(full);
          const auto m = s.A.getRawMat();
          measureBeside(
              state, s.bytes(beta == 0.0 ? 2 : 3),
              [&] {
                Ops::aAxpby(d, 1.0, m.rows, m.cols, m.row_begin, m.row_end, m.col_idx, m.values,
                            s.x.data(), beta, s.y.data());
              },
              [&] {
                plain::spmv(1.0, m.rows, m.row_begin, m.col_idx, m.values, s.x.data(), beta,
                            s.y.data());
              });
        });
  }
  add("jacobi" + suffix, [=](benchmark::State& state) {
    System& s = shared(full);
    const auto m = s.A.getRawMat();
    measureBeside(
        state, s.bytes(4),
        [&] {
          Ops::jacobi(d, m.rows, m.cols, m.row_begin, m.col_idx, m.values, s.x.data(), s.b.data(),
                      s.y.data(), 1e-3);
        },
        [&] {
          plain::jacobi(m.rows, m.row_begin, m.col_idx, m.values, s.x.data(), s.b.data(),
                        s.y.data(), 1e-3);
        });
  });
  for (const bool forward : {true, false}) {
    add(std::string("sor_") + (forward ? "forward" : "backward") + suffix,
        [=](benchmark::State& state) {
          System& s = shared(full);
          const auto m = s.A.getRawMat();
          measureBeside(
              state, s.bytes(3),
              [&] {
                Ops::sor(d, m.rows, m.cols, m.row_begin, m.col_idx, m.values, s.b.data(),
                         s.y.data(), 1.0, forward ? 1 : 0, nullptr);
              },
              [&] {
                plain::sor(m.rows, m.row_begin, m.col_idx, m.values, s.b.data(), s.y.data(), 1.0);
              });
        });
  }
}

}  // namespace

void registerBenchmarks() {
  addKernels(false);
  addKernels(true);
}

}  // namespace mivo::bench
