// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/host/forms.hpp"
#include "mivo/ops/kernel_arguments.hpp"
#include "mivo/ops/sparse_rows.hpp"

namespace mivo::sparse {

/// Scaled rows one after the other, to be added in one loop.
template <class T, class I>
struct TermBuffer {
  static constexpr I kRoom = 256;
  static constexpr I kShort = 4;
  I size = 0;
  I col_idx[kRoom + kShort];
  T values[kRoom + kShort];

  /// Appends a times the entries [begin, end) of `m`, for which there must be room.
  MIVO_FUNCTION void append(const T& a, I begin, I end, const COT_CSRRawMat<T, I>& m) {
    if (end - begin <= kShort && begin <= m.nnz - kShort) {
      for (I k = 0; k < kShort; ++k) {
        col_idx[size + k] = m.col_idx[begin + k];
        values[size + k] = m.values[begin + k] * a;
      }
    } else {
      for (I k = 0; k < end - begin; ++k) {
        col_idx[size + k] = m.col_idx[begin + k];
        values[size + k] = m.values[begin + k] * a;
      }
    }
    size += end - begin;
  }
};

/// `multiplyRowByP` with the rows of P put together first.
template <class T, class I>
[[gnu::noinline]] MIVO_FUNCTION I multiplyRowByP(const TripleProductRows<T, I>& m, I n, I start,
                                                 TermBuffer<T, I>& terms) {
  I next = start;
  const auto flush = [&] {
    next = addEntries(
        I(0), terms.size, terms.col_idx, I(0), [&](I k) { return terms.values[k]; }, start, next,
        m.c.col_idx, m.c.values, m.marker_p);
    terms.size = 0;
  };
  for (I k = 0; k < n; ++k) {
    const I begin = m.p.row_begin[m.row_a.col_idx[k]];
    const I end = m.p.row_end[m.row_a.col_idx[k]];
    if (end - begin > terms.kRoom - terms.size) flush();
    if (end - begin > terms.kRoom) {
      next = addScaledRow(m.row_a.values[k], begin, end, m.p.col_idx, m.p.values, I(0), start, next,
                          m.c.col_idx, m.c.values, m.marker_p);
    } else {
      terms.append(m.row_a.values[k], begin, end, m.p);
    }
  }
  flush();
  return next;
}

}  // namespace mivo::sparse
