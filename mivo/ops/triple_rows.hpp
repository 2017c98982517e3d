// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/sparse_rows.hpp"

namespace mivo::sparse {

// The two halves of a row of R A P. They are functions of their own, so that the inner loops have
// all registers for themselves.

/// Scaled rows one after the other, so that short ones can be added in one loop, whose end is
/// foretold more often than that of each.
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

/// Row `row` of R A into `out`, which is of the length returned; the marker holds -1 before, and
/// the positions of its columns after. The rows of A are those of the blocks, then the ghosts.
template <class T, class I>
[[gnu::noinline]] MIVO_FUNCTION I multiplyRow(const COT_CSRRawMat<T, I>& r, I row, I own_rows,
                                              I count, const COT_MergeCSRRawMat<T, I>* blocks,
                                              const COT_CSRRawMat<T, I>& ghosts,
                                              const COT_CSRRawMat<T, I>& out, I* marker) {
  I n = 0;
  const auto addRow = [&](const T& v, const auto& a, I j, I shift) {
    n = addScaledRow(v, a.row_begin[j], a.row_end[j], a.col_idx, a.values, shift, I(0), n,
                     out.col_idx, out.values, marker);
  };
  for (I k = r.row_begin[row]; k < r.row_end[row]; ++k) {
    const I j = r.col_idx[k];
    const T v = r.values[k];
    if (j < own_rows) {
      for (I b = 0; b < count; ++b) addRow(v, blocks[b], j, blocks[b].first_col);
    } else if (ghosts.nnz > 0) {
      addRow(v, ghosts, j - own_rows, I(0));
    }
  }
  return n;
}

/// Multiplies a row of n entries by P and puts the result into C from `start` on; returns its end.
/// The marker holds less than `start` before, and the positions of its columns after.
template <class T, class I>
[[gnu::noinline]] MIVO_FUNCTION I multiplyRowByP(I n, const COT_CSRRawMat<T, I>& row,
                                                 const COT_CSRRawMat<T, I>& p, I start,
                                                 const COT_CSRRawMat<T, I>& c, I* marker,
                                                 TermBuffer<T, I>& terms) {
  I next = start;
  const auto flush = [&] {
    next = addEntries(
        I(0), terms.size, terms.col_idx, I(0), [&](I k) { return terms.values[k]; }, start, next,
        c.col_idx, c.values, marker);
    terms.size = 0;
  };
  for (I k = 0; k < n; ++k) {
    const I begin = p.row_begin[row.col_idx[k]];
    const I end = p.row_end[row.col_idx[k]];
    if (end - begin > terms.kRoom - terms.size) flush();
    if (end - begin > terms.kRoom) {
      next = addScaledRow(row.values[k], begin, end, p.col_idx, p.values, I(0), start, next,
                          c.col_idx, c.values, marker);
    } else {
      terms.append(row.values[k], begin, end, p);
    }
  }
  flush();
  return next;
}

}  // namespace mivo::sparse
