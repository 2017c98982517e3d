// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/SpBlasOps.hpp"

#include <cstddef>

#include "mivo/ops/SpBlasOpsImpl.hpp"
#include "mivo/spm/dispatch.hpp"

namespace mivo {

// Products with vectors.

template <class T, class I>
void SpBlasOps<T, I>::aAxpby(const Device& device, T alpha, I rows, I cols, const I* rowptr,
                             const I* rowend, const I* col_idx, const T* values, const T* x, T beta,
                             T* y) {
  MIVO_DISPATCH(aAxpby, alpha, rows, cols, rowptr, rowend, col_idx, values, x, beta, y);
}

template <class T, class I>
void SpBlasOps<T, I>::aAxpby_multi(const Device& device, T alpha, I rows, I cols, const I* rowptr,
                                   const I* col_idx, const T* values, I nvec, I xstride, const T* x,
                                   T beta, I ystride, T* y) {
  MIVO_DISPATCH(aAxpby_multi, alpha, rows, cols, rowptr, col_idx, values, nvec, xstride, x, beta,
                ystride, y);
}

template <class T, class I>
void SpBlasOps<T, I>::jacobi(const Device& device, I rows, I cols, const I* rowptr,
                             const I* col_idx, const T* values, const T* x, const T* b, T* y,
                             T omega) {
  MIVO_DISPATCH(jacobi, rows, cols, rowptr, col_idx, values, x, b, y, omega);
}

template <class T, class I>
void SpBlasOps<T, I>::jacobi_diagLp(const Device& device, I rows, I cols, const I* rowptr,
                                    const I* col_idx, const T* values, const T* x, const T* b, T* y,
                                    T omega, T p, const I* row_map) {
  MIVO_DISPATCH(jacobi_diagLp, rows, cols, rowptr, col_idx, values, x, b, y, omega, p, row_map);
}

template <class T, class I>
void SpBlasOps<T, I>::richardson(const Device& device, I rows, I cols, const I* rowptr,
                                 const I* col_idx, const T* values, const T* x, const T* b, T* y,
                                 T omega) {
  MIVO_DISPATCH(richardson, rows, cols, rowptr, col_idx, values, x, b, y, omega);
}

template <class T, class I>
void SpBlasOps<T, I>::sor(const Device& device, I rows, I cols, const I* rowptr, const I* col_idx,
                          const T* values, const T* b, T* x, T omega, int forward, const I* order) {
  MIVO_DISPATCH(sor, rows, cols, rowptr, col_idx, values, b, x, omega, forward, order);
}

template <class T, class I>
void SpBlasOps<T, I>::par_sor(const Device& device, I rows, int rank, I nblocks,
                              const BlockView* blocks, const T* b, const T* diag, T* x, T omega,
                              int forward, const I* order) {
  MIVO_DISPATCH(par_sor, rows, rank, nblocks, blocks, b, diag, x, omega, forward, order);
}

// Products, sums and updates of matrices.

template <class T, class I>
void SpBlasOps<T, I>::csr2dense(const Device& device, I rows, I cols, const I* rowptr,
                                const I* col_idx, const T* values, T* dense) {
  MIVO_DISPATCH(csr2dense, rows, cols, rowptr, col_idx, values, dense);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_matmul(const Device& device, I rows_a, I cols_a, I cols_b,
                                 const I* a_rowptr, const I* a_col_idx, const T* a_values,
                                 const I* b_rowptr, const I* b_col_idx, const T* b_values,
                                 I* c_rowptr, I* c_col_idx, T* c_values, I* marker) {
  MIVO_DISPATCH(csr_matmul, rows_a, cols_a, cols_b, a_rowptr, a_col_idx, a_values, b_rowptr,
                b_col_idx, b_values, c_rowptr, c_col_idx, c_values, marker);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_matmul_vec(const Device& device, I rows, I cols, I count, const View* a,
                                     const View* b, View c, I* used, I* marker, View scratch) {
  MIVO_DISPATCH(csr_matmul_vec, rows, cols, count, a, b, c, used, marker, scratch);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_matmul_triple(const Device& device, const TripleProductRows<T, I>& m) {
  MIVO_DISPATCH(csr_matmul_triple, m);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_matadd(const Device& device, T alpha, View a, T beta, View b,
                                 View scratch, View c) {
  MIVO_DISPATCH(csr_matadd, alpha, a, beta, b, scratch, c);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_matadd_hash(const Device& device, T alpha, View a, T beta, View b,
                                      View scratch, View c, HashTableSlot<I, I>* slots) {
  MIVO_DISPATCH(csr_matadd_hash, alpha, a, beta, b, scratch, c, slots);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_matadd_vec(const Device& device, I rows, I cols, I count,
                                     const View* matrices, View c, I* marker) {
  MIVO_DISPATCH(csr_matadd_vec, rows, cols, count, matrices, c, marker);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_matmul_aDA(const Device& device, T alpha, const T* d, MergeView a) {
  MIVO_DISPATCH(csr_matmul_aDA, alpha, d, a);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_matmul_aAD(const Device& device, T alpha, BlockView a) {
  MIVO_DISPATCH(csr_matmul_aAD, alpha, a);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_axpby_diag(const Device& device, T alpha, const T* a, T beta, const T* b,
                                     MergeView source, MergeView result) {
  MIVO_DISPATCH(csr_axpby_diag, alpha, a, beta, b, source, result);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_transpose(const Device& device, I rows, I cols, const I* rowptr,
                                    const I* col_idx, const T* values, I* t_rowptr, I* t_col_idx,
                                    T* t_values) {
  MIVO_DISPATCH(csr_transpose, rows, cols, rowptr, col_idx, values, t_rowptr, t_col_idx, t_values);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_sort_rows(const Device& device, I rows, I cols, const I* rowptr,
                                    I* col_idx, T* values) {
  MIVO_DISPATCH(csr_sort_rows, rows, cols, rowptr, col_idx, values);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_sparsify(const Device& device, View a, T threshold, const T* per_row,
                                   View out) {
  MIVO_DISPATCH(csr_sparsify, a, threshold, per_row, out);
}

// Selection, splitting and joining.

template <class T, class I>
void SpBlasOps<T, I>::csr_diag(const Device& device, I rows, I cols, const I* rowptr,
                               const I* col_idx, const T* values, T* out, I first_row,
                               I first_col) {
  MIVO_DISPATCH(csr_diag, rows, cols, rowptr, col_idx, values, out, first_row, first_col);
}

template <class T, class I>
void SpBlasOps<T, I>::get_selected_rows(const Device& device, View a, I n, const I* rows,
                                        const I* row_map, View out, int keep) {
  MIVO_DISPATCH(get_selected_rows, a, n, rows, row_map, out, keep);
}

template <class T, class I>
void SpBlasOps<T, I>::get_selected_cols(const Device& device, View a, I n, const I* columns,
                                        View out, I shift) {
  MIVO_DISPATCH(get_selected_cols, a, n, columns, out, shift);
}

template <class T, class I>
void SpBlasOps<T, I>::get_selected_cols_v2(const Device& device, View a, const I* begins,
                                           const I* ends, View out, int flag) {
  MIVO_DISPATCH(get_selected_cols_v2, a, begins, ends, out, flag);
}

template <class T, class I>
void SpBlasOps<T, I>::get_selected_cols_v3(const Device& device, View a, I begin, I end, View out,
                                           I shift) {
  MIVO_DISPATCH(get_selected_cols_v3, a, begin, end, out, shift);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_split_cols(const Device& device, CSRMatStep step, View a, I nparts,
                                     const I* bounds, View* out, int rebase) {
  MIVO_DISPATCH(csr_split_cols, step, a, nparts, bounds, out, rebase);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_merge_rows(const Device& device, I nblocks, const MergeView* blocks,
                                     View out) {
  MIVO_DISPATCH(csr_merge_rows, nblocks, blocks, out);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_merge_cols(const Device& device, I nblocks, const MergeView* blocks,
                                     View out) {
  MIVO_DISPATCH(csr_merge_cols, nblocks, blocks, out);
}

template <class T, class I>
void SpBlasOps<T, I>::csr_append_rows(const Device& device, View out, I first_row, I count,
                                      View block) {
  MIVO_DISPATCH(csr_append_rows, out, first_row, count, block);
}

// Queries.

template <class T, class I>
void SpBlasOps<T, I>::get_row_element_count(const Device& device, View a, I n, I* counts) {
  MIVO_DISPATCH(get_row_element_count, a, n, counts);
}

template <class T, class I>
void SpBlasOps<T, I>::get_col_element_count(const Device& device, View a, I n, I* counts) {
  MIVO_DISPATCH(get_col_element_count, a, n, counts);
}

template <class T, class I>
void SpBlasOps<T, I>::get_element_value(const Device& device, I rows, I cols, const I* rowptr,
                                        const I* col_idx, const T* values, I row, I col, T* value,
                                        int* found) {
  MIVO_DISPATCH(get_element_value, rows, cols, rowptr, col_idx, values, row, col, value, found);
}

template <class T, class I>
void SpBlasOps<T, I>::set_element_value(const Device& device, I rows, I cols, const I* rowptr,
                                        const I* col_idx, T* values, I row, I col, T value,
                                        int* found) {
  MIVO_DISPATCH(set_element_value, rows, cols, rowptr, col_idx, values, row, col, value, found);
}

// Rows of a block table.

template <class T, class I>
void SpBlasOps<T, I>::par_csr_row_meta(const Device& device, I rows, I nblocks,
                                       const BlockView* blocks, I* counts, T* sums, int skip_zero) {
  MIVO_DISPATCH(par_csr_row_meta, rows, nblocks, blocks, counts, sums, skip_zero);
}

template <class T, class I>
void SpBlasOps<T, I>::par_csr_row_norm_lp(const Device& device, I rows, I nblocks,
                                          const BlockView* blocks, T p, R* norms) {
  MIVO_DISPATCH(par_csr_row_norm_lp, rows, nblocks, blocks, p, norms);
}

template <class T, class I>
void SpBlasOps<T, I>::par_csr_row_norm_topk(const Device& device, I /*rows*/, I /*nblocks*/,
                                            const BlockView* /*blocks*/, I /*k*/, View /*out*/) {
  device.setDeviceContext();
}

template <class T, class I>
void SpBlasOps<T, I>::par_csr_diag(const Device& device, I rows, I nblocks, const BlockView* blocks,
                                   T* out) {
  MIVO_DISPATCH(par_csr_diag, rows, nblocks, blocks, out);
}

MIVO_INSTANCE_VALUES(SpBlasOps, int)
MIVO_INSTANCE_VALUES(SpBlasOps, long)

}  // namespace mivo
