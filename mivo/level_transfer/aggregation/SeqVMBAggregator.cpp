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

#define MIVO_INSTANCE(T) template class SeqVMBAggregator_T<T, long, int>;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

#define MIVO_REGISTER_TYPE(T) \
  MIVO_REGISTER(ParAggregatorT, "AggregatorVMBSeq", T, long, int, SeqVMBAggregator_T<T, long, int>)
MIVO_INSTANTIATE_SCALARS(MIVO_REGISTER_TYPE)
#undef MIVO_REGISTER_TYPE

}  // namespace mivo
