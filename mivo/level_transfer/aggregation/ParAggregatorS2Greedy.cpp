// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/aggregation/ParAggregatorS2Greedy.hpp"

#include "mivo/level_transfer/aggregation/LevelTransferOps_SA.hpp"
#include "mivo/utils/Factory.hpp"

namespace mivo {

template <class T, class G, class L>
ParAggregatorS2Greedy_T<T, G, L>::~ParAggregatorS2Greedy_T() = default;

template <class T, class G, class L>
void ParAggregatorS2Greedy_T<T, G, L>::aggregate(const Matrix& /*A*/, const Strength& S,
                                                 Aggregates& aggr, G& naggr) {
  LevelTransferOps_SA<T, G, L>::par_aggregate_comm_pattern(S, aggr, naggr);
}

#define MIVO_INSTANCE(T) template class ParAggregatorS2Greedy_T<T, long, int>;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

#define MIVO_REGISTER_TYPE(T)                                       \
  MIVO_REGISTER(ParAggregatorT, "AggregatorS2Greedy", T, long, int, \
                ParAggregatorS2Greedy_T<T, long, int>)
MIVO_INSTANTIATE_SCALARS(MIVO_REGISTER_TYPE)
#undef MIVO_REGISTER_TYPE

}  // namespace mivo
