// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/sparse_rows.hpp"

namespace mivo {

/// Bodies of the members of `SpBlasOps` that look up elements and reduce rows.
template <class T, class I, class Space>
class SpBlasQueriesImpl {
 public:
  using R = RealType<T>;
  using View = COT_CSRRawMat<T, I>;
  using BlockView = COT_SpMVCSRRawMat<T, I>;
  using Policy = spm::RangePolicy<Space>;

  static void get_row_element_count(Space& space, View a, I n, I* counts);
  static void get_col_element_count(Space& space, View a, I n, I* counts);
  static void get_element_value(Space& space, I rows, I cols, const I* rowptr, const I* col_idx,
                                const T* values, I row, I col, T* value, int* found);
  static void set_element_value(Space& space, I rows, I cols, const I* rowptr, const I* col_idx,
                                T* values, I row, I col, T value, int* found);
  static void par_csr_row_meta(Space& space, I rows, I nblocks, const BlockView* blocks, I* counts,
                               T* sums, int skip_zero);
  static void par_csr_row_norm_lp(Space& space, I rows, I nblocks, const BlockView* blocks, T p,
                                  R* norms);
  static void par_csr_row_norm_max(Space& space, I rows, I nblocks, const BlockView* blocks,
                                   R* norms);
  static void par_csr_row_norm_topk(Space& space, I rows, I nblocks, const BlockView* blocks, I k,
                                    View out);
  static void par_csr_diag(Space& space, I rows, I nblocks, const BlockView* blocks, T* out);
};

template <class T, class I, class Space>
void SpBlasQueriesImpl<T, I, Space>::get_row_element_count(Space& space, View a, I n, I* counts) {
  spm::parallel_for(Policy(space, 0, n),
                    [=] MIVO_FUNCTION(I i) { counts[i] = a.row_end[i] - a.row_begin[i]; });
}

template <class T, class I, class Space>
void SpBlasQueriesImpl<T, I, Space>::get_col_element_count(Space& space, View a, I n, I* counts) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    for (I j = 0; j < n; ++j) counts[j] = 0;
    for (I i = 0; i < a.rows; ++i) {
      for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) ++counts[a.col_idx[k]];
    }
  });
}

template <class T, class I, class Space>
void SpBlasQueriesImpl<T, I, Space>::get_element_value(Space& space, I /*rows*/, I /*cols*/,
                                                       const I* rowptr, const I* col_idx,
                                                       const T* values, I row, I col, T* value,
                                                       int* found) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    const I end = rowptr[row + 1];
    const I k = sparse::findColumn(rowptr[row], end, col_idx, col);
    *found = k < end ? 1 : 0;
    *value = k < end ? values[k] : T(0);
  });
}

template <class T, class I, class Space>
void SpBlasQueriesImpl<T, I, Space>::set_element_value(Space& space, I /*rows*/, I /*cols*/,
                                                       const I* rowptr, const I* col_idx, T* values,
                                                       I row, I col, T value, int* found) {
  spm::parallel_for(Policy(space, 0, 1), [=] MIVO_FUNCTION(I) {
    const I end = rowptr[row + 1];
    const I k = sparse::findColumn(rowptr[row], end, col_idx, col);
    *found = k < end ? 1 : 0;
    if (k < end) values[k] = value;
  });
}

template <class T, class I, class Space>
void SpBlasQueriesImpl<T, I, Space>::par_csr_row_meta(Space& space, I rows, I nblocks,
                                                      const BlockView* blocks, I* counts, T* sums,
                                                      int skip_zero) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    I n = 0;
    T sum = T(0);
    for (I m = 0; m < nblocks; ++m) {
      const BlockView& a = blocks[m];
      for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
        sum += a.values[k];
        if (skip_zero == 0 || !isZero(a.values[k])) ++n;
      }
    }
    counts[i] = n;
    sums[i] = sum;
  });
}

template <class T, class I, class Space>
void SpBlasQueriesImpl<T, I, Space>::par_csr_row_norm_lp(Space& space, I rows, I nblocks,
                                                         const BlockView* blocks, T p, R* norms) {
  const R order = realPart(p);
  if (!(order > R(0))) {
    par_csr_row_norm_max(space, rows, nblocks, blocks, norms);
    return;
  }
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    R sum = R(0);
    for (I m = 0; m < nblocks; ++m) {
      const BlockView& a = blocks[m];
      for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) sum += powReal(abs(a.values[k]), order);
    }
    norms[i] = rootOfOrder(sum, order);
  });
}

template <class T, class I, class Space>
void SpBlasQueriesImpl<T, I, Space>::par_csr_row_norm_max(Space& space, I rows, I nblocks,
                                                          const BlockView* blocks, R* norms) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    R largest = R(0);
    for (I m = 0; m < nblocks; ++m) {
      const BlockView& a = blocks[m];
      for (I k = a.row_begin[i]; k < a.row_end[i]; ++k) {
        const R v = abs(a.values[k]);
        if (v > largest) largest = v;
      }
    }
    norms[i] = largest;
  });
}

template <class T, class I, class Space>
void SpBlasQueriesImpl<T, I, Space>::par_csr_row_norm_topk(Space&, I, I, const BlockView*, I,
                                                           View) {}

template <class T, class I, class Space>
void SpBlasQueriesImpl<T, I, Space>::par_csr_diag(Space& space, I rows, I nblocks,
                                                  const BlockView* blocks, T* out) {
  spm::parallel_for(Policy(space, 0, rows), [=] MIVO_FUNCTION(I i) {
    out[i] = T(0);
    for (I m = 0; m < nblocks; ++m) {
      const BlockView& a = blocks[m];
      const I first = blocks[0].first_row;
      if (a.first_col > blocks[0].rows + first || first > a.cols + a.first_col) continue;
      const I end = a.row_end[i];
      const I k = sparse::findColumn(a.row_begin[i], end, a.col_idx, a.first_row + i - a.first_col);
      if (k < end) out[i] = a.values[k];
    }
  });
}

}  // namespace mivo
