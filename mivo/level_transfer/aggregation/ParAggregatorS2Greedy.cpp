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

MIVO_INSTANCE_SCALARS(ParAggregatorS2Greedy_T, long, int)
MIVO_REGISTER_SCALARS(ParAggregatorT, "AggregatorS2Greedy", ParAggregatorS2Greedy_T)

}  // namespace mivo
