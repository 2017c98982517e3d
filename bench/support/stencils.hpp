// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/utils/Device.hpp"

namespace mivo::bench {

/// Entries of a stencil matrix on an n x n x n grid without boundary rows.
inline long stencilEntries(long n, bool full) {
  return full ? (3 * n - 2) * (3 * n - 2) * (3 * n - 2) : 7 * n * n * n - 6 * n * n;
}

/// Calls `entry(row, col, value)` for the 7-point stencil, or with `full` the 27-point one, rows
/// and columns ascending: 6 or 26 on the diagonal, -1 beside it.
template <class Entry>
void forStencil(int n, bool full, const Entry& entry) {
  const double diagonal = full ? 26.0 : 6.0;
  for (int z = 0; z < n; ++z) {
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) {
        const int row = (z * n + y) * n + x;
        for (int dz = -1; dz <= 1; ++dz) {
          for (int dy = -1; dy <= 1; ++dy) {
            for (int dx = -1; dx <= 1; ++dx) {
              const int distance = dx * dx + dy * dy + dz * dz;
              if (!full && distance > 1) continue;
              if (x + dx < 0 || x + dx >= n || y + dy < 0 || y + dy >= n || z + dz < 0 ||
                  z + dz >= n) {
                continue;
              }
              entry(row, row + (dz * n + dy) * n + dx, distance == 0 ? diagonal : -1.0);
            }
          }
        }
      }
    }
  }
}

/// The same as a host matrix with columns of type I.
template <class I>
CSRMatrixT<double, I> stencilMatrix(int n, bool full) {
  const I rows = static_cast<I>(n) * n * n;
  CSRMatrixT<double, I> m;
  m.create(rows, rows, static_cast<I>(stencilEntries(n, full)), Device());
  I* rowptr = m.getRowPtr();
  I count = 0;
  I last = -1;
  forStencil(n, full, [&](int row, int col, double value) {
    if (row != last) rowptr[last = row] = count;
    m.getColIdx()[count] = col;
    m.getValues()[count] = value;
    ++count;
  });
  rowptr[rows] = count;
  return m;
}

/// Bytes of such a matrix: values, columns and row pointers.
template <class I>
double matrixBytes(const CSRMatrixT<double, I>& m) {
  return static_cast<double>(m.getNnz()) * (sizeof(double) + sizeof(I)) +
         static_cast<double>(m.getRows() + 1) * sizeof(I);
}

}  // namespace mivo::bench
