// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/kernel_arguments.hpp"
#include "mivo/ops/sparse_rows.hpp"

namespace mivo::sparse {

// The two halves of a row of R A P. They are functions of their own, so that the inner loops have
// all registers for themselves.

/// Row `row` of R A into `m.row_a`, of the length returned; the marker of A holds -1 before, and
/// the positions of its columns after.
template <class T, class I>
[[gnu::noinline]] MIVO_FUNCTION I multiplyRow(const TripleProductRows<T, I>& m, I row) {
  I n = 0;
  const auto addRow = [&](const T& v, const auto& a, I j, I shift) {
    n = addScaledRow(v, a.row_begin[j], a.row_end[j], a.col_idx, a.values, shift, I(0), n,
                     m.row_a.col_idx, m.row_a.values, m.marker_a);
  };
  for (I k = m.r.row_begin[row]; k < m.r.row_end[row]; ++k) {
    const I j = m.r.col_idx[k];
    const T v = m.r.values[k];
    if (j < m.own_rows) {
      for (I b = 0; b < m.nblocks; ++b) addRow(v, m.blocks[b], j, m.blocks[b].first_col);
    } else if (m.ghosts.nnz > 0) {
      addRow(v, m.ghosts, j - m.own_rows, I(0));
    }
  }
  return n;
}

/// In place of a `TermBuffer`: rows of P are added one by one.
struct NoTerms {};

/// Multiplies the row of n entries in `m.row_a` by P and puts the result into C from `start` on;
/// returns its end. The marker of P holds less than `start` before, and the positions of its
/// columns after.
template <class T, class I>
[[gnu::noinline]] MIVO_FUNCTION I multiplyRowByP(const TripleProductRows<T, I>& m, I n, I start,
                                                 NoTerms&) {
  I next = start;
  for (I k = 0; k < n; ++k) {
    const I j = m.row_a.col_idx[k];
    next = addScaledRow(m.row_a.values[k], m.p.row_begin[j], m.p.row_end[j], m.p.col_idx,
                        m.p.values, I(0), start, next, m.c.col_idx, m.c.values, m.marker_p);
  }
  return next;
}

}  // namespace mivo::sparse
