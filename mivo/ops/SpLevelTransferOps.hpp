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
  using Ghosts = COT_RawCommPattern<int, L>;
  using Record = AggregateData<int>;

  // Smoothed aggregation.

  /// s_ij = 1 where a_ij^2 > eps2 d_i d_j off the diagonal of the whole matrix, else 0, for a block
  /// whose first row and column are given and S of the same pattern. The block's column numbers
  /// index d, which has n elements and counts as 0 beyond. Complex numbers by their modulus.
  static void csr_strength(const Device& device, View a, const T* d, L n, R eps2, G firstRow,
                           G firstCol, StrengthView s);
  /// Row i of the n by naggr matrix T is 1 in column aggr_i, and empty where that is negative. Two
  /// passes.
  static void csr_tentative_prolongation(const Device& device, L n, const int* aggr, L* rowptr,
                                         L* col_idx, T* values);
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
  /// another rank that joins; APPLY takes over `nrecords` records of other ranks. S S is `blocks2`
  /// and its halo exchange views are `ghosts`, whose values are states. `stack` is scratch of one
  /// element per row. One task.
  static void par_csr_aggregate(const Device& device, AggregateStep step, int rank, L rows,
                                L nblocks, const StrengthBlock* blocks, L nblocks2,
                                const StrengthBlock* blocks2, L nghosts, const Ghosts* ghosts,
                                int* state, int* owner, int* undone, int* next, int* nrecords,
                                Record* records, L* stack);
  /// The same with nodes of other ranks flagged in their ghost views; INIT and AGGREGATE only.
  static void par_csr_aggregate_comm_pattern(const Device& device, AggregateStep step, int rank,
                                             L rows, L nblocks, const StrengthBlock* blocks,
                                             L nblocks2, const StrengthBlock* blocks2, L nghosts,
                                             const Ghosts* ghosts, int* state, int* owner,
                                             int* undone, int* next, L* stack);
  /// Counts the records for one part, and copies them unless `selected` is null. One task.
  static void par_csr_aggregate_select(const Device& device, const int* nrecords,
                                       const Record* records, int part, int* count,
                                       Record* selected);

 private:
  template <class Space>
  using Worker = SpLevelTransferOpsImpl<T, G, L, Space>;
};

#define MIVO_EXTERN(T) extern template class SpLevelTransferOps<T, long, int>;
MIVO_FOR_EACH_SCALAR(MIVO_EXTERN)
#undef MIVO_EXTERN

}  // namespace mivo
