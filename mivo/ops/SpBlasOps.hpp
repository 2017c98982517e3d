// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/kernel_arguments.hpp"
#include "mivo/ops/views.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class T, class I, class Space>
class SpBlasOpsImpl;

/// Sparse kernels of one rank on raw arrays and plain views.
///
/// Every member takes the device first; arrays and views lie in its memory and belong to the
/// caller. Nothing is checked: shapes, ranges and devices are the caller's duty. T is int, long,
/// float, double, `Complex<float>` or `Complex<double>`, I is int or long. `rowptr` has rows + 1
/// elements; columns count from 0.
///
/// Two-pass members are called first with null result columns and values, fill the result's row
/// pointers and return; the caller allocates `rowptr[rows]` entries and calls again.
template <class T, class I>
class MIVO_API SpBlasOps {
 public:
  using R = RealType<T>;
  using View = COT_CSRRawMat<T, I>;
  using MergeView = COT_MergeCSRRawMat<T, I>;
  using BlockView = COT_SpMVCSRRawMat<T, I>;

  // Products with vectors. Each row is summed in stored order from 0; beta 0 does not read y.

  /// y = alpha A x + beta y; `rowend` and `cols` are not read
  static void aAxpby(const Device& device, T alpha, I rows, I cols, const I* rowptr,
                     const I* rowend, const I* col_idx, const T* values, const T* x, T beta, T* y);
  /// The same on `nvec` pairs of vectors, `xstride` and `ystride` elements apart
  static void aAxpby_multi(const Device& device, T alpha, I rows, I cols, const I* rowptr,
                           const I* col_idx, const T* values, I nvec, I xstride, const T* x, T beta,
                           I ystride, T* y);

  // Stationary corrections and sweeps. d is the diagonal entry of the row, 1 if there is none.

  /// y_i += (b_i - (A x)_i) omega / d
  static void jacobi(const Device& device, I rows, I cols, const I* rowptr, const I* col_idx,
                     const T* values, const T* x, const T* b, T* y, T omega);
  /// y_i += (b_i - (A x)_i) omega d / sum_j |a_ij|^p. With a row map, rows of negative mark take
  /// x_i. An empty row divides by 0 unguarded.
  static void jacobi_diagLp(const Device& device, I rows, I cols, const I* rowptr, const I* col_idx,
                            const T* values, const T* x, const T* b, T* y, T omega, T p,
                            const I* row_map);
  /// y_i += (b_i - (A x)_i) omega
  static void richardson(const Device& device, I rows, I cols, const I* rowptr, const I* col_idx,
                         const T* values, const T* x, const T* b, T* y, T omega);
  /// x_i = (b_i - sum_{j != i} a_ij x_j) omega / d + x_i (1 - omega), in place and in order,
  /// forward or backward; step k treats row order[k] (row k when `order` is null), a negative one
  /// is skipped. One sequential task.
  static void sor(const Device& device, I rows, I cols, const I* rowptr, const I* col_idx,
                  const T* values, const T* b, T* x, T omega, int forward, const I* order);
  /// The sweep over a table of column blocks: x_i += (b_i - (A x)_i) omega / diag_i, where blocks
  /// of `rank` read the live x and all others their frozen ghost values. One sequential task.
  static void par_sor(const Device& device, I rows, int rank, I nblocks, const BlockView* blocks,
                      const T* b, const T* diag, T* x, T omega, int forward, const I* order);

  // Products, sums and updates of matrices.

  /// dense[i * cols + j] = a_ij; other elements stay as they are
  static void csr2dense(const Device& device, I rows, I cols, const I* rowptr, const I* col_idx,
                        const T* values, T* dense);
  /// C = A B by rows with a dense marker of `cols_b` elements (Gustavson 1978). Two-pass; columns
  /// of a row of C stand in order of first appearance. One sequential task.
  static void csr_matmul(const Device& device, I rows_a, I cols_a, I cols_b, const I* a_rowptr,
                         const I* a_col_idx, const T* a_values, const I* b_rowptr,
                         const I* b_col_idx, const T* b_values, I* c_rowptr, I* c_col_idx,
                         T* c_values, I* marker);
  /// C = A_0 B_0 + A_1 B_1 + ..., two-pass, from tables of `count` factors on the device, one of
  /// them at least; as csr_matmul and then csr_matadd in this order: rows are sorted by column when
  /// several terms have entries. `used` has `count` elements and keeps between the passes which
  /// have; the marker has `cols` elements, as have the three arrays of `scratch`, read by the
  /// second pass alone.
  static void csr_matmul_vec(const Device& device, I rows, I cols, I count, const View* a,
                             const View* b, View c, I* used, I* marker, View scratch);
  /// (R A) P until all rows are done or the next one may need more room than `c` and `rest` have;
  /// *reached becomes that row. Columns stand in order of first appearance. One sequential task.
  static void csr_matmul_triple(const Device& device, const TripleProductRows<T, I>& m);
  /// C = alpha A + beta B, two-pass, sorted. Sorts the rows of A and B in place; `scratch` has
  /// capacity A.nnz + B.nnz and keeps its content between the passes.
  static void csr_matadd(const Device& device, T alpha, View a, T beta, View b, View scratch,
                         View c);
  /// The same by hashing, unsorted, with a table of A.nnz + B.nnz slots; leaves A and B alone.
  static void csr_matadd_hash(const Device& device, T alpha, View a, T beta, View b, View scratch,
                              View c, HashTableSlot<I, I>* slots);
  /// C = sum of `count` matrices of the same shape, two-pass, with a marker of `cols` elements
  static void csr_matadd_vec(const Device& device, I rows, I cols, I count, const View* matrices,
                             View c, I* marker);
  /// a_ij *= d_i alpha
  static void csr_matmul_aDA(const Device& device, T alpha, const T* d, MergeView a);
  /// a_ij *= x_j alpha, x being the view's own
  static void csr_matmul_aAD(const Device& device, T alpha, BlockView a);
  /// Diagonal update, two-pass: a diagonal entry v of row i becomes beta b_i v + alpha a_i, a
  /// missing one is appended to the row with column i, other entries are copied unscaled. Null a
  /// counts as 0, null b as 1.
  static void csr_axpby_diag(const Device& device, T alpha, const T* a, T beta, const T* b,
                             MergeView source, MergeView result);
  /// T = transpose of A into arrays of full size. Rows of T are sorted on the host; their order is
  /// free on a device.
  static void csr_transpose(const Device& device, I rows, I cols, const I* rowptr, const I* col_idx,
                            const T* values, I* t_rowptr, I* t_col_idx, T* t_values);
  /// Stable insertion sort of each row by column
  static void csr_sort_rows(const Device& device, I rows, I cols, const I* rowptr, I* col_idx,
                            T* values);
  /// Entries with |v| > threshold (or > per_row[i] when that is not null), two-pass; thresholds by
  /// their real part
  static void csr_sparsify(const Device& device, View a, T threshold, const T* per_row, View out);

  // Selection, splitting and joining.

  /// out_i = first entry with column + first_col == first_row + i; rows without one keep out_i
  static void csr_diag(const Device& device, I rows, I cols, const I* rowptr, const I* col_idx,
                       const T* values, T* out, I first_row, I first_col);
  /// Rows rows[0..n), two-pass, compact or, with `keep`, at their own numbers (the result's other
  /// rows are then empty). `row_map` is not read.
  static void get_selected_rows(const Device& device, View a, I n, const I* rows, const I* row_map,
                                View out, int keep);
  /// Entries whose column is in the sorted list, stored with column + shift, two-pass
  static void get_selected_cols(const Device& device, View a, I n, const I* columns, View out,
                                I shift);
  /// Positions begins[i] to ends[i] - 1 of the entry arrays as row i, two-pass; `flag` is not read
  static void get_selected_cols_v2(const Device& device, View a, const I* begins, const I* ends,
                                   View out, int flag);
  /// Entries with columns in [begin, end), stored with column + shift, two-pass
  static void get_selected_cols_v3(const Device& device, View a, I begin, I end, View out, I shift);
  /// Cuts A into `nparts` column blocks by bounds[0..nparts], counting, then filling the views of
  /// the table `out`; `rebase` numbers the columns of each block from 0.
  static void csr_split_cols(const Device& device, CSRMatStep step, View a, I nparts,
                             const I* bounds, View* out, int rebase);
  /// Stacks blocks, two-pass; sound for a table of one block only
  static void csr_merge_rows(const Device& device, I nblocks, const MergeView* blocks, View out);
  /// Joins blocks of equal row count side by side in table order, with first_col added, two-pass
  static void csr_merge_cols(const Device& device, I nblocks, const MergeView* blocks, View out);
  /// Appends `count` rows of `block` (empty ones when its row pointers are null) at row `first_row`
  static void csr_append_rows(const Device& device, View out, I first_row, I count, View block);

  // Queries. `value` and `found` are single elements of device memory.

  static void get_row_element_count(const Device& device, View a, I n, I* counts);  ///< per row
  static void get_col_element_count(const Device& device, View a, I n, I* counts);  ///< per column
  static void get_element_value(const Device& device, I rows, I cols, const I* rowptr,
                                const I* col_idx, const T* values, I row, I col, T* value,
                                int* found);  ///< the first entry in row and col: 0, 0 without one
  /// Overwrites the first entry in row and col; never inserts
  static void set_element_value(const Device& device, I rows, I cols, const I* rowptr,
                                const I* col_idx, T* values, I row, I col, T value, int* found);

  // Rows of a block table.

  /// Per row over all blocks the sum of values and the number of entries; with `skip_zero` the
  /// number of entries that differ from zero
  static void par_csr_row_meta(const Device& device, I rows, I nblocks, const BlockView* blocks,
                               I* counts, T* sums, int skip_zero);
  /// (sum |a|^p)^(1/p) per row; any p that is not positive gives the largest |a|
  static void par_csr_row_norm_lp(const Device& device, I rows, I nblocks, const BlockView* blocks,
                                  T p, R* norms);
  /// Has no effect.
  static void par_csr_row_norm_topk(const Device& device, I rows, I nblocks,
                                    const BlockView* blocks, I k, View out);
  /// Diagonal across blocks, 0 where there is none
  static void par_csr_diag(const Device& device, I rows, I nblocks, const BlockView* blocks,
                           T* out);

 private:
  template <class Space>
  using Worker = SpBlasOpsImpl<T, I, Space>;
};

MIVO_EXTERN_VALUES(SpBlasOps, int)
MIVO_EXTERN_VALUES(SpBlasOps, long)

}  // namespace mivo
