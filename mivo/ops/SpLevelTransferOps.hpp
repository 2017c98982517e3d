// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/level_transfer_records.hpp"
#include "mivo/ops/views.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class T, class G, class L, class Space>
class SpLevelTransferOpsImpl;

/// Kernels of the coarsening pipelines: strength of connection, aggregates, splittings and
/// interpolation.
///
/// All pointers lie in the memory of `device`. Matrices with results of unknown size are built in
/// two passes: one with null columns or values, which fills the row pointers, and one that writes
/// the entries. Kernels whose rows depend on each other run as one task.
///
/// T is one of the four scalar types, (G, L) is (long, int).
template <class T, class G, class L>
class MIVO_API SpLevelTransferOps {
 public:
  using R = RealType<T>;
  using View = COT_CSRRawMat<T, L>;
  using StrengthView = COT_CSRRawMat<int, L>;
  using Block = COT_SpMVCSRRawMat<T, L>;
  using StrengthBlock = COT_SpMVCSRRawMat<int, L>;
  using Record = AggregateData<int>;

  // Smoothed aggregation.

  /// s_ij = 1 where a_ij^2 > eps2 d_i d_j off the diagonal of the whole matrix, else 0, for a block
  /// whose first row and column are given and S of the same pattern. The block's column numbers
  /// index d, which has n elements and counts as 0 beyond. Complex numbers by their modulus.
  static void csr_strength(const Device& device, View a, const T* d, L n, R eps2, G firstRow,
                           G firstCol, StrengthView s);
  /// Row i of the n by naggr matrix T is 1 in column aggr_i, and empty where that is negative. Two
  /// passes.
  static void csr_tentative_prolongation(const Device& device, L n, L naggr, const int* aggr,
                                         L* rowptr, L* col_idx, T* values);
  /// Af = A with its weak entries made 0 and their sum taken from the diagonal; all three matrices
  /// in blocks of the same pattern.
  static void csr_tentative_filter(const Device& device, L rows, L nblocks, const Block* a,
                                   const StrengthBlock* s, const Block* af);
  /// P = (I - omega Df^-1 Af) T, with the weak entries of A added to the diagonal of Af. `marker`
  /// has one element per column of T. Two passes, one task.
  static void csr_tentative_smooth(const Device& device, View a, StrengthView s, View t, R omega,
                                   View p, L* marker);
  /// The same with Af from `csr_tentative_filter`, its zeros included: to the bit what filtering,
  /// scaling by -omega Df^-1, adding I and the product with T one after the other give.
  static void csr_tentative_filter_smooth(const Device& device, View a, StrengthView s, View t,
                                          R omega, View p, L* marker);

  // Aggregation. States of nodes: -1 undone, -2 without strong connections, else the number of an
  // aggregate.

  /// Greedy pass, see `LevelTransferOps_SA::seq_aggregate`. `count` and `stack` are scratch of one
  /// element per row. One task.
  static void csr_aggregate(const Device& device, StrengthView s, int maxAggregation, L* count,
                            int* aggr, int* naggr, L* stack);
  /// A step of the distributed greedy pass: INIT sets states, owners and the count `undone`;
  /// AGGREGATE is one round, which takes numbers from `next` and appends a record for each node of
  /// another rank that joins; APPLY takes over `nrecords` records of other ranks. One task.
  static void par_csr_aggregate(const Device& device, AggregateStep step,
                                const AggregateNodes<L>& nodes, int* nrecords, Record* records);
  /// The same with nodes of other ranks flagged in their ghost views; INIT and AGGREGATE only.
  static void par_csr_aggregate_comm_pattern(const Device& device, AggregateStep step,
                                             const AggregateNodes<L>& nodes);
  /// Counts the records for one part, and copies them unless `selected` is null. One task.
  static void par_csr_aggregate_select(const Device& device, const int* nrecords,
                                       const Record* records, int part, int* count,
                                       Record* selected);

  // Classical strength and splitting by independent sets.

  /// Strength of the rows of A: 1 for entries off the diagonal whose real part lies beyond
  /// strong_threshold times the extreme one on the other side of zero than d_i; 0 in rows with |sum
  /// of the row| > max_row_sum |d_i| when max_row_sum is below 1. With several functions only
  /// entries within one count.
  static void par_boomeramg_strength(const Device& device, const StrengthRows<T, L>& rows,
                                     R strong_threshold, R max_row_sum);

  /// A step of the coarsening by parallel modified independent sets: MEASURE adds dependants,
  /// INITIAL sets marks by `mode`, INDEPENDENT_SET, MARK and UPDATE_GRAPH make a round. INITIAL and
  /// UPDATE_GRAPH give the number of own points in the graph. One task.
  static void par_boomeramg_coarsen_pmis(const Device& device, CoarsenPMISStep step, int mode,
                                         const PMISGraph<L>& graph, int* size);

  // Extended+i interpolation and truncation.

  /// Interpolation of this rank's rows, each sorted and truncated as it is made, like
  /// `boomeramg_csr_truncate` with rescaling and the largest modulus. Two passes: the first numbers
  /// the C points of these rows, lists C neighbours of F points for the second, and counts entries
  /// before truncation unless P has no row pointers; the second fills P, which has room for these,
  /// or for `max_elmts` entries of each F point and one of each C point, and its row pointers. One
  /// task.
  static void par_boomeramg_interpolation_extended_pi(const Device& device, bool counts,
                                                      const ExtendedInterpolation<T, L>& m);

  /// coarse_i += bias for numbers that are not negative
  static void par_boomeramg_interpolation_add_rank_bias(const Device& device, L n, int bias,
                                                        int* coarse);

  /// Drops from each row what is below trunc_factor times its norm (`nrm_type` 0 largest modulus, 1
  /// sum, 2 Euclidean), then all but the max_elmts entries of largest modulus; `rescale` keeps the
  /// sum. Entries that stay are packed at the row's start, which with the new end comes to begin
  /// and end.
  static void boomeramg_csr_truncate(const Device& device, View p, R trunc_factor, int max_elmts,
                                     bool rescale, int nrm_type, L* begin, L* end);

  /// Sorts the entries [left, right] from the largest modulus down by quicksort with the middle
  /// element as pivot. One task.
  static void hypre_qsort2_abs(const Device& device, L* col_idx, T* values, L left, L right);
  /// The same on arrays in host memory
  static void hypre_qsort2_abs(L* col_idx, T* values, L left, L right);

  // Ruge-Stueben splitting and direct interpolation. Marks C, F and U are characters.

  /// s_ij = 1 where the real part of a_ij is below eps_strong times the least one of the row, i !=
  /// j. Rows without such entries become F; cf keeps the other marks.
  static void rs_connect(const Device& device, View a, R eps_strong, StrengthView s, int* cf);

  /// The same on column blocks.
  static void par_rs_connect(const Device& device, L rows, L nblocks, const Block* a, R eps_strong,
                             const StrengthBlock* s, int* cf);

  /// First pass of the classical splitting. St is the transpose of the strong part of S, whose
  /// pattern serves for that of A, which is not read; lambda, i2n and n2i have one element per row,
  /// ptr and cnt twice as many and two more. One task.
  static void rs_cfsplit(const Device& device, View a, StrengthView s, int* cf, StrengthView st,
                         L* lambda, L* ptr, L* cnt, L* i2n, L* n2i);

  /// The same for the merged matrix of a rank.
  static void par_rs_cfsplit(const Device& device, StrengthView s, StrengthView st, int* cf,
                             L* lambda, L* ptr, L* cnt, L* i2n, L* n2i);

  /// Direct interpolation. Two passes: the first (`counts`) numbers the points with mark `cmark`,
  /// gives their number and the bounds of truncation.
  static void rs_interpolation(const Device& device, bool counts, const DirectRows<T, L>& rows);

  /// The same on column blocks in rank order; marks and coarse numbers of ghosts, which the first
  /// pass does not read, come through exchange views.
  static void par_rs_interpolation(const Device& device, bool counts,
                                   const DirectBlocks<T, L>& rows);

 private:
  template <class Space>
  using Worker = SpLevelTransferOpsImpl<T, G, L, Space>;
};

MIVO_EXTERN_SCALARS(SpLevelTransferOps, long, int)

}  // namespace mivo
