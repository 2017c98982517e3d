// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/SpLevelTransferOps.hpp"

#include "mivo/ops/SpLevelTransferOpsImpl.hpp"
#include "mivo/spm/dispatch.hpp"

namespace mivo {

#ifdef MIVO_WITH_CUDA
#define MIVO_EXTERN(T) extern template class SpSmoothedAggregationImpl<T, long, int, spm::Cuda>;
MIVO_INSTANTIATE_SCALARS(MIVO_EXTERN)
#undef MIVO_EXTERN
extern template class SpAggregationImpl<int, spm::Cuda>;
#endif
// Not a matter of the value type: compiled in one unit of its own.
extern template class SpAggregationImpl<int, spm::OpenMP>;

// Smoothed aggregation.

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::csr_strength(const Device& device, View a, const T* d, L n,
                                               R eps2, G firstRow, G firstCol, StrengthView s) {
  MIVO_DISPATCH(csr_strength, a, d, n, eps2, firstRow, firstCol, s);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::csr_tentative_prolongation(const Device& device, L n,
                                                             const int* aggr, L* rowptr, L* col_idx,
                                                             T* values) {
  MIVO_DISPATCH(csr_tentative_prolongation, n, aggr, rowptr, col_idx, values);
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
                                                    int rank, L rows, L nblocks,
                                                    const StrengthBlock* blocks, L nblocks2,
                                                    const StrengthBlock* blocks2, L nghosts,
                                                    const Ghosts* ghosts, int* state, int* owner,
                                                    int* undone, int* next, int* nrecords,
                                                    Record* records, L* stack) {
  MIVO_DISPATCH(par_csr_aggregate, step, rank, rows, nblocks, blocks, nblocks2, blocks2, nghosts,
                ghosts, state, owner, undone, next, nrecords, records, stack);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_csr_aggregate_comm_pattern(
    const Device& device, AggregateStep step, int rank, L rows, L nblocks,
    const StrengthBlock* blocks, L nblocks2, const StrengthBlock* blocks2, L nghosts,
    const Ghosts* ghosts, int* state, int* owner, int* undone, int* next, L* stack) {
  MIVO_DISPATCH(par_csr_aggregate_comm_pattern, step, rank, rows, nblocks, blocks, nblocks2,
                blocks2, nghosts, ghosts, state, owner, undone, next, stack);
}

template <class T, class G, class L>
void SpLevelTransferOps<T, G, L>::par_csr_aggregate_select(const Device& device,
                                                           const int* nrecords,
                                                           const Record* records, int part,
                                                           int* count, Record* selected) {
  MIVO_DISPATCH(par_csr_aggregate_select, nrecords, records, part, count, selected);
}

#define MIVO_INSTANCE(T) template class SpLevelTransferOps<T, long, int>;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
