// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/operators/ParAggregator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Greedy aggregation on all ranks at once: "AggregatorVMB"; decisions about nodes of other ranks
/// travel as records, see `LevelTransferOps_SA::par_aggregate`. On several ranks aggregates of the
/// same local number are one, so that they reach over ranks and the hierarchy converges more slowly
/// than with "AggregatorVMBSeq". No keys.
template <class T, class G, class L>
class MIVO_API ParVMBAggregator_T : public ParAggregatorT<T, G, L> {
 public:
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;
  using Aggregates = ParMatrixT<int, G, L>;

  ~ParVMBAggregator_T() override;

  void create(const json& /*params*/) {}

  void aggregate(const Matrix& A, const Strength& S, Aggregates& aggr, G& naggr) override;
};

MIVO_EXTERN_SCALARS(ParVMBAggregator_T, long, int)

}  // namespace mivo
