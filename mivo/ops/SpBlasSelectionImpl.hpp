// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/sparse_rows.hpp"

namespace mivo {

/// Bodies of the members of `SpBlasOps` that select, split and join rows and columns.
template <class T, class I, class Space>
class SpBlasSelectionImpl {
 public:
  using View = COT_CSRRawMat<T, I>;
  using MergeView = COT_MergeCSRRawMat<T, I>;
  using Policy = spm::RangePolicy<Space>;

  static void csr_diag(Space& space, I rows, I cols, const I* rowptr, const I* col_idx,
                       const T* values, T* out, I first_row, I first_col);
  static void get_selected_rows(Space& space, View a, I n, const I* rows, const I* row_map,
                                View out, int keep);
  static void get_selected_cols(Space& space, View a, I n, const I* columns, View out, I shift);
  static void get_selected_cols_v2(Space& space, View a, const I* begins, const I* ends, View out,
                                   int flag);
  static void get_selected_cols_v3(Space& space, View a, I begin, I end, View out, I shift);
  static void csr_split_cols(Space& space, CSRMatStep step, View a, I nparts, const I* bounds,
                             View* out, int rebase);
  static void csr_split_cols_count(Space& space, View a, I nparts, const I* bounds, View* out);
  static void csr_split_cols_fill(Space& space, View a, I nparts, const I* bounds, View* out,
                                  int rebase);
  static void csr_merge_rows(Space& space, I nblocks, const MergeView* blocks, View out);
  static void csr_merge_cols(Space& space, I nblocks, const MergeView* blocks, View out);
  static void csr_append_rows(Space& space, View out, I first_row, I count, View block);
};

template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::csr_diag(Space& space, I rows, I /*cols*/, const I* rowptr,
                                                const I* col_idx, const T* values, T* out,
                                                I first_row, I first_col) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    const I end = rowptr[i + 1];
    const I k = sparse::findColumn(rowptr[i], end, col_idx, first_row + i - first_col);
    if (k < end) out[i] = values[k];
  });
}

template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::get_selected_rows(Space& space, View a, I n, const I* rows,
                                                         const I* /*row_map*/, View out, int keep) {
  if (sparse::counting(out.col_idx, out.values)) {
    const I out_rows = keep != 0 ? out.rows : n;
    spm::parallel_for(Policy(space, 0, out_rows),
                      [=] MIVO_FUNCTION(I i) { out.row_begin[i + 1] = 0; });
    spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) {
      const I row = rows[i];
      out.row_begin[(keep != 0 ? row : i) + 1] = a.row_end[row] - a.row_begin[row];
    });
    sparse::prefixSum(space, out_rows, out.row_begin);
    return;
  }
  spm::parallel_for(Policy(space, 0, n), [=] MIVO_FUNCTION(I i) {
    const I row = rows[i];
    const I from = a.row_begin[row];
    const I to = out.row_begin[keep != 0 ? row : i];
    sparse::copyRow(a.row_end[row] - from, a.col_idx + from, a.values + from, I(0),
                    out.col_idx + to, out.values + to);
  });
}

template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::get_selected_cols(Space& space, View a, I n,
                                                         const I* columns, View out, I shift) {
  const bool count = sparse::counting(out.col_idx, out.values);
  spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(I i) {
    I at = count ? 0 : out.row_begin[i];
    for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      if (!sparse::contains(n, columns, a.col_idx[k])) continue;
      if (!count) {
        out.col_idx[at] = a.col_idx[k] + shift;
        out.values[at] = a.values[k];
      }
      ++at;
    }
    if (count) out.row_begin[i + 1] = at;
  });
  if (count) sparse::prefixSum(space, a.rows, out.row_begin);
}

template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::get_selected_cols_v2(Space& space, View a, const I* begins,
                                                            const I* ends, View out, int /*flag*/) {
  if (sparse::counting(out.col_idx, out.values)) {
    spm::parallel_for(Policy(space, 0, a.rows),
                      [=] MIVO_FUNCTION(I i) { out.row_begin[i + 1] = ends[i] - begins[i]; });
    sparse::prefixSum(space, a.rows, out.row_begin);
    return;
  }
  spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(I i) {
    const I from = begins[i];
    const I to = out.row_begin[i];
    sparse::copyRow(ends[i] - from, a.col_idx + from, a.values + from, I(0), out.col_idx + to,
                    out.values + to);
  });
}

template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::get_selected_cols_v3(Space& space, View a, I begin, I end,
                                                            View out, I shift) {
  const bool count = sparse::counting(out.col_idx, out.values);
  spm::parallel_for(Policy(space, 0, a.rows), [=] MIVO_FUNCTION(I i) {
    I at = count ? 0 : out.row_begin[i];
    for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
      const I c = a.col_idx[k];
      if (c < begin || c >= end) continue;
      if (!count) {
        out.col_idx[at] = c + shift;
        out.values[at] = a.values[k];
      }
      ++at;
    }
    if (count) out.row_begin[i + 1] = at;
  });
  if (count) sparse::prefixSum(space, a.rows, out.row_begin);
}

template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::csr_split_cols(Space& space, CSRMatStep step, View a,
                                                      I nparts, const I* bounds, View* out,
                                                      int rebase) {
  if (step != CSR_MAT_STEP_FILL) {
    csr_split_cols_count(space, a, nparts, bounds, out);
  } else {
    csr_split_cols_fill(space, a, nparts, bounds, out, rebase);
  }
}

template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::csr_split_cols_count(Space& space, View a, I nparts,
                                                            const I* bounds, View* out) {
  spm::parallel_for(Policy(space, 0, nparts), [=] MIVO_FUNCTION(I p) {
    out[p].nnz = 0;
    if (out[p].row_begin == nullptr) return;  // no rows
    for (I i = 0; i <= a.rows; ++i) out[p].row_begin[i] = 0;
  });
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    for (I i = 0; i < a.rows; ++i) {
      for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
        const I c = a.col_idx[k];
        I p = 0;
        while (c < bounds[p] || c >= bounds[p + 1]) ++p;
        ++out[p].row_begin[i + 1];
      }
    }
  });
  spm::parallel_for(Policy(space, 0, nparts), [=] MIVO_FUNCTION(I p) {
    for (I i = 0; i < a.rows; ++i) out[p].row_begin[i + 1] += out[p].row_begin[i];
  });
}

template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::csr_split_cols_fill(Space& space, View a, I nparts,
                                                           const I* bounds, View* out, int rebase) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    for (I i = 0; i < a.rows; ++i) {
      for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
        const I c = a.col_idx[k];
        I p = 0;
        while (c < bounds[p] || c >= bounds[p + 1]) ++p;
        const I at = out[p].row_begin[i]++;
        out[p].col_idx[at] = rebase != 0 ? c - bounds[p] : c;
        out[p].values[at] = a.values[k];
      }
    }
  });
  spm::parallel_for(Policy(space, 0, nparts),
                    [=] MIVO_FUNCTION(I p) { sparse::shiftUp(a.rows, out[p].row_begin); });
}

template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::csr_merge_rows(Space& space, I nblocks,
                                                      const MergeView* blocks, View out) {
  if (sparse::counting(out.col_idx, out.values)) {
    spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
      I row = 0;
      for (I m = 0; m < nblocks; ++m) {
        const MergeView& a = blocks[m];
        for (I j = 0; j < a.rows; ++j) out.row_begin[++row] = a.row_end[j] - a.row_begin[j];
      }
    });
    sparse::prefixSum(space, out.rows, out.row_begin);
    return;
  }
  spm::parallel_for(Policy(space, 0, nblocks), [=] MIVO_FUNCTION(I m) {
    const MergeView& a = blocks[m];
    for (I j = 0; j < a.rows; ++j) {
      // Row j of the block, not of the stack: rows of earlier blocks are not counted.
      const I from = a.row_begin[j];
      const I to = out.row_begin[j];
      sparse::copyRow(a.row_end[j] - from, a.col_idx + from, a.values + from, a.first_col,
                      out.col_idx + to, out.values + to);
    }
  });
}

// Blocks without row pointers are empty ones.
template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::csr_merge_cols(Space& space, I nblocks,
                                                      const MergeView* blocks, View out) {
  if (sparse::counting(out.col_idx, out.values)) {
    spm::parallel_for(Policy(space, 0, out.rows), [=] MIVO_FUNCTION(I i) {
      I n = 0;
      for (I m = 0; m < nblocks; ++m) {
        const MergeView& a = blocks[m];
        if (a.row_begin != nullptr) n += a.row_end[i] - a.row_begin[i];
      }
      out.row_begin[i + 1] = n;
    });
    sparse::prefixSum(space, out.rows, out.row_begin);
    return;
  }
  spm::parallel_for(Policy(space, 0, out.rows), [=] MIVO_FUNCTION(I i) {
    I to = out.row_begin[i];
    for (I m = 0; m < nblocks; ++m) {
      const MergeView& a = blocks[m];
      if (a.row_begin == nullptr) continue;
      const I from = a.row_begin[i];
      const I n = a.row_end[i] - from;
      sparse::copyRow(n, a.col_idx + from, a.values + from, a.first_col, out.col_idx + to,
                      out.values + to);
      to += n;
    }
  });
}

template <class T, class I, class Space>
void SpBlasSelectionImpl<T, I, Space>::csr_append_rows(Space& space, View out, I first_row, I count,
                                                       View block) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    if (out.row_begin == nullptr) return;  // no rows
    if (first_row == 0) out.row_begin[0] = 0;
    I end = out.row_begin[first_row];
    for (I j = 0; j < count; ++j) {
      if (block.row_begin != nullptr) end += block.row_end[j] - block.row_begin[j];
      out.row_begin[first_row + j + 1] = end;
    }
  });
  if (block.row_begin == nullptr) return;
  spm::parallel_for(Policy(space, 0, count), [=] MIVO_FUNCTION(I j) {
    const I from = block.row_begin[j];
    const I to = out.row_begin[first_row + j];
    sparse::copyRow(block.row_end[j] - from, block.col_idx + from, block.values + from, I(0),
                    out.col_idx + to, out.values + to);
  });
}

}  // namespace mivo
