// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "mivo/mat/CSRMatrix.hpp"

// A plain two-pass product with a marker, as anybody would write it first, for comparison.
namespace mivo::bench::plain {

using View = COT_CSRRawMat<double, int>;

/// Row pointers of C = A B; returns the number of its entries.
__attribute__((noinline)) inline int productCount(const View& a, const View& b, int* rowptr,
                                                  std::vector<int>& marker) {
  marker.assign(static_cast<std::size_t>(b.cols), -1);
  int* const seen = marker.data();
  int count = 0;
  rowptr[0] = 0;
  for (int i = 0; i < a.rows; ++i) {
    for (int k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      const int row = a.col_idx[k];
      for (int m = b.row_begin[row]; m < b.row_end[row]; ++m) {
        if (seen[b.col_idx[m]] != i) {
          seen[b.col_idx[m]] = i;
          ++count;
        }
      }
    }
    rowptr[i + 1] = count;
  }
  return count;
}

/// Columns and values of C, which stand in order of first appearance.
__attribute__((noinline)) inline void productFill(const View& a, const View& b, int* columns,
                                                  double* values, std::vector<int>& marker) {
  marker.assign(static_cast<std::size_t>(b.cols), -1);
  int* const place = marker.data();
  int next = 0;
  for (int i = 0; i < a.rows; ++i) {
    const int start = next;
    for (int k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      const int row = a.col_idx[k];
      const double factor = a.values[k];
      for (int m = b.row_begin[row]; m < b.row_end[row]; ++m) {
        const int c = b.col_idx[m];
        if (place[c] < start) {
          place[c] = next;
          columns[next] = c;
          values[next++] = factor * b.values[m];
        } else {
          values[place[c]] += factor * b.values[m];
        }
      }
    }
  }
}

/// C = A B in memory that nobody has touched, from where the library takes its own.
inline CSRMatrixT<double, int> product(const CSRMatrixT<double, int>& A,
                                       const CSRMatrixT<double, int>& B) {
  CSRMatrixT<double, int> C;
  C.create(A.getRows(), B.getCols(), 0, Device());
  std::vector<int> marker;
  C.resizeNnz(productCount(A.getRawMat(), B.getRawMat(), C.getRowPtr(), marker), 0);
  productFill(A.getRawMat(), B.getRawMat(), C.getColIdx(), C.getValues(), marker);
  return C;
}

/// The same into the arrays of a C that has its size.
inline void productInto(const CSRMatrixT<double, int>& A, const CSRMatrixT<double, int>& B,
                        const CSRMatrixT<double, int>& C, std::vector<int>& marker) {
  productCount(A.getRawMat(), B.getRawMat(), C.getRowPtr(), marker);
  productFill(A.getRawMat(), B.getRawMat(), C.getColIdx(), C.getValues(), marker);
}

}  // namespace mivo::bench::plain
