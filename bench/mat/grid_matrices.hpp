// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>

#include "bench/support/stencils.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"

namespace mivo::bench {

using ParMatrix = ParCSRMatrixT<double, long, int>;

/// The 7-point matrix on an n x n x n grid, spread evenly over the ranks.
inline ParMatrix gridMatrix(int n, int comm) {
  ParMatrix A;
  const long rows = static_cast<long>(n) * n * n;
  A.create(rows, rows, Device(), comm);
  long begin = 0;
  long end = 0;
  A.getOwnerShipRange(&begin, &end);
  A.beginAssemble();
  forStencil(n, false, [&](int row, int col, double value) {
    if (row >= begin && row < end) A.setValue(row, col, value, SetValueMode::Set);
  });
  A.endAssemble();
  return A;
}

/// (1 - A / 9) P, where P maps boxes of 2 x 2 x 2 points, an n of even size, to their points: the
/// prolongation of smoothed aggregation.
inline ParMatrix gridProlongation(const ParMatrix& A, int n) {
  const int half = n / 2;
  const long rows = static_cast<long>(n) * n * n;
  ParMatrix P;
  P.create(rows, rows / 8, Device(), A.getComm());
  long begin = 0;
  long end = 0;
  P.getOwnerShipRange(&begin, &end);
  P.beginAssemble();
  for (long i = begin; i < end; ++i) {
    const long x = i % n / 2, y = i / n % n / 2, z = i / n / n / 2;
    P.setValue(i, (z * half + y) * half + x, 1.0, SetValueMode::Set);
  }
  P.endAssemble();
  ParMatrix smoothed;
  ParMatrix::matadd(1.0, P, -1.0 / 9.0, A.multiply(P), smoothed);
  return smoothed;
}

}  // namespace mivo::bench
