// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/aggregation/ParVMBAggregator.hpp"

#include "mivo/level_transfer/aggregation/LevelTransferOps_SA.hpp"
#include "mivo/utils/Factory.hpp"

namespace mivo {

template <class T, class G, class L>
ParVMBAggregator_T<T, G, L>::~ParVMBAggregator_T() = default;

template <class T, class G, class L>
void ParVMBAggregator_T<T, G, L>::aggregate(const Matrix& /*A*/, const Strength& S,
                                            Aggregates& aggr, G& naggr) {
  LevelTransferOps_SA<T, G, L>::par_aggregate(S, aggr, naggr);
}

MIVO_INSTANCE_SCALARS(ParVMBAggregator_T, long, int)
MIVO_REGISTER_SCALARS(ParAggregatorT, "AggregatorVMB", ParVMBAggregator_T)

}  // namespace mivo
