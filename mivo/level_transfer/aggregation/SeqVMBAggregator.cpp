// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/aggregation/SeqVMBAggregator.hpp"

#include "mivo/level_transfer/aggregation/LevelTransferOps_SA.hpp"
#include "mivo/level_transfer/aggregation/gathered_strength.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
SeqVMBAggregator_T<T, G, L>::~SeqVMBAggregator_T() = default;

template <class T, class G, class L>
void SeqVMBAggregator_T<T, G, L>::create(const json& params) {
  readJsonKey(params, "max_aggregation", max_aggregation);
}

template <class T, class G, class L>
void SeqVMBAggregator_T<T, G, L>::aggregate(const Matrix& /*A*/, const Strength& S,
                                            Aggregates& aggr, G& naggr) {
  MatrixT<int, L, MatrixLayoutRowMajor> whole;
  // Ranks without the matrix find no aggregates.
  LevelTransferOps_SA<T, G, L>::seq_aggregate(gatherStrength(S), max_aggregation, whole, naggr);
  scatterAggregates(S, whole, aggr, naggr);
}

MIVO_INSTANCE_SCALARS(SeqVMBAggregator_T, long, int)
MIVO_REGISTER_SCALARS(ParAggregatorT, "AggregatorVMBSeq", SeqVMBAggregator_T)

}  // namespace mivo
