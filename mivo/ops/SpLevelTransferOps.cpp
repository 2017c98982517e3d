// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/SpLevelTransferOps.hpp"

#include "mivo/ops/SpLevelTransferOpsImpl.hpp"
#include "mivo/spm/dispatch.hpp"

namespace mivo {

#ifdef MIVO_WITH_CUDA
extern template class SpAggregationImpl<int, spm::Cuda>;
extern template class SpPMISImpl<int, spm::Cuda>;
#endif
// Not a matter of the value type: compiled in a unit of its own each.
extern template class SpAggregationImpl<int, spm::OpenMP>;
extern template class SpPMISImpl<int, spm::OpenMP>;

// Smoothed aggregation.

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::csr_strength(const Device& device, View a, const T* d, L n,
                                               R eps2, G firstRow, G firstCol, StrengthView s) {
  MIVO_DISPATCH(csr_strength, a, d, n, eps2, firstRow, firstCol, s);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::csr_tentative_prolongation(const Device& device, L n, L naggr,
                                                             const int* aggr, L* rowptr, L* col_idx,
                                                             T* values) {
  MIVO_DISPATCH(csr_tentative_prolongation, n, naggr, aggr, rowptr, col_idx, values);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::csr_tentative_filter(const Device& device, L rows, L nblocks,
                                                       const Block* a, const StrengthBlock* s,
                                                       const Block* af) {
  MIVO_DISPATCH(csr_tentative_filter, rows, nblocks, a, s, af);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::csr_tentative_smooth(const Device& device, View a, StrengthView s,
                                                       View t, R omega, View p, L* marker) {
  MIVO_DISPATCH(csr_tentative_smooth, a, s, t, omega, p, marker);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::csr_tentative_filter_smooth(const Device& device, View a,
                                                              StrengthView s, View t, R omega,
                                                              View p, L* marker) {
  MIVO_DISPATCH(csr_tentative_filter_smooth, a, s, t, omega, p, marker);
}

// Aggregation.

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::csr_aggregate(const Device& device, StrengthView s,
                                                int maxAggregation, L* count, int* aggr, int* naggr,
                                                L* stack) {
  MIVO_DISPATCH(csr_aggregate, s, maxAggregation, count, aggr, naggr, stack);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_csr_aggregate(const Device& device, AggregateStep step,
                                                    const AggregateNodes<L>& nodes, int* nrecords,
                                                    Record* records) {
  MIVO_DISPATCH(par_csr_aggregate, step, nodes, nrecords, records);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_csr_aggregate_comm_pattern(const Device& device,
                                                                 AggregateStep step,
                                                                 const AggregateNodes<L>& nodes) {
  MIVO_DISPATCH(par_csr_aggregate_comm_pattern, step, nodes);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_csr_aggregate_select(const Device& device,
                                                           const int* nrecords,
                                                           const Record* records, int part,
                                                           int* count, Record* selected) {
  MIVO_DISPATCH(par_csr_aggregate_select, nrecords, records, part, count, selected);
}

// Classical strength and splitting by independent sets.

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_boomeramg_strength(const Device& device,
                                                         const StrengthRows<T, L>& rows,
                                                         R strong_threshold, R max_row_sum) {
  MIVO_DISPATCH(par_boomeramg_strength, rows, strong_threshold, max_row_sum);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_boomeramg_coarsen_pmis(const Device& device,
                                                             CoarsenPMISStep step, int mode,
                                                             const PMISGraph<L>& graph, int* size) {
  MIVO_DISPATCH(par_boomeramg_coarsen_pmis, step, mode, graph, size);
}

// Extended+i interpolation and truncation.

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_boomeramg_interpolation_extended_pi(
    const Device& device, bool counts, const ExtendedInterpolation<T, L>& m) {
  MIVO_DISPATCH(par_boomeramg_interpolation_extended_pi, counts, m);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_boomeramg_interpolation_add_rank_bias(const Device& device,
                                                                            L n, int bias,
                                                                            int* coarse) {
  MIVO_DISPATCH(par_boomeramg_interpolation_add_rank_bias, n, bias, coarse);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::boomeramg_csr_truncate(const Device& device, View p,
                                                         R trunc_factor, int max_elmts,
                                                         bool rescale, int nrm_type, L* begin,
                                                         L* end) {
  MIVO_DISPATCH(boomeramg_csr_truncate, p, trunc_factor, max_elmts, rescale, nrm_type, begin, end);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::hypre_qsort2_abs(const Device& device, L* col_idx, T* values,
                                                   L left, L right) {
  MIVO_DISPATCH(hypre_qsort2_abs, col_idx, values, left, right);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::hypre_qsort2_abs(L* col_idx, T* values, L left, L right) {
  hypre_qsort2_abs(Device(), col_idx, values, left, right);
}

// Ruge-Stueben splitting and direct interpolation. Marks C, F and U are characters.

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::rs_connect(const Device& device, View a, R eps_strong,
                                             StrengthView s, int* cf) {
  MIVO_DISPATCH(rs_connect, a, eps_strong, s, cf);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_rs_connect(const Device& device, L rows, L nblocks,
                                                 const Block* a, R eps_strong,
                                                 const StrengthBlock* s, int* cf) {
  MIVO_DISPATCH(par_rs_connect, rows, nblocks, a, eps_strong, s, cf);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::rs_cfsplit(const Device& device, View a, StrengthView s, int* cf,
                                             StrengthView st, L* lambda, L* ptr, L* cnt, L* i2n,
                                             L* n2i) {
  MIVO_DISPATCH(rs_cfsplit, a, s, cf, st, lambda, ptr, cnt, i2n, n2i);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_rs_cfsplit(const Device& device, StrengthView s,
                                                 StrengthView st, int* cf, L* lambda, L* ptr,
                                                 L* cnt, L* i2n, L* n2i) {
  MIVO_DISPATCH(par_rs_cfsplit, s, st, cf, lambda, ptr, cnt, i2n, n2i);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::rs_interpolation(const Device& device, bool counts,
                                                   const DirectRows<T, L>& rows) {
  MIVO_DISPATCH(rs_interpolation, counts, rows);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_rs_interpolation(const Device& device, bool counts,
                                                       const DirectBlocks<T, L>& rows) {
  MIVO_DISPATCH(par_rs_interpolation, counts, rows);
}

MIVO_INSTANCE_SCALARS(SpLevelTransferOps, long, int)

}  // namespace mivo
