// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/sparse_rows.hpp"

namespace mivo::sparse {

/// Average entries in a row from which rows are summed two at a time.
constexpr int kLongRow = 16;

/// A product with long rows: calls store(i, sum) for each row, each sum taken in stored order, two
/// rows side by side. Returns false, having done nothing, for short rows.
template <class T, class I, class Store>
bool longRowProducts(I rows, const I* rowptr, const I* col_idx, const T* values, const T* x,
                     const Store& store) {
  if (rows < 2 || (rowptr[rows] - rowptr[0]) / rows < kLongRow) return false;
  I i = 0;
  for (; rows - i >= 2; i += 2) {
    const I begin = rowptr[i];
    const I middle = rowptr[i + 1];
    const I end = rowptr[i + 2];
    const I common = middle - begin < end - middle ? middle - begin : end - middle;
    const I* cols0 = col_idx + begin;
    const I* cols1 = col_idx + middle;
    const T* values0 = values + begin;
    const T* values1 = values + middle;
    T s0 = T(0);
    T s1 = T(0);
    I k = 0;
    for (; common - k >= 4; k += 4) {
      prefetch(values0, std::int64_t(k) + kFetchAhead);
      prefetch(values1, std::int64_t(k) + kFetchAhead);
      prefetch(cols0, 2 * std::int64_t(k) + kFetchAhead);
      s0 += values0[k] * x[cols0[k]];
      s1 += values1[k] * x[cols1[k]];
      s0 += values0[k + 1] * x[cols0[k + 1]];
      s1 += values1[k + 1] * x[cols1[k + 1]];
      s0 += values0[k + 2] * x[cols0[k + 2]];
      s1 += values1[k + 2] * x[cols1[k + 2]];
      s0 += values0[k + 3] * x[cols0[k + 3]];
      s1 += values1[k + 3] * x[cols1[k + 3]];
    }
    store(i, rowDot(begin + k, middle, col_idx, values, x, s0));
    store(i + 1, rowDot(middle + k, end, col_idx, values, x, s1));
  }
  if (i < rows) store(i, rowDot(rowptr[i], rowptr[i + 1], col_idx, values, x, T(0)));
  return true;
}

}  // namespace mivo::sparse
