// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/level_transfer/aggregation/SeqLevelTransferSmoothAggregation.hpp"

namespace mivo {

/// Smoothed aggregation on distributed matrices: "LevelTransferSmoothAggregation", with the keys of
/// `SeqLevelTransferSmoothAggregation_T`. The aggregates come from the
/// key "aggregator" (object; the type "AggregatorS2Greedy" unless it names another). Here the weak
/// entries are subtracted from the diagonal of Af. "smooth" false gives P = T; "verbose" prints the
/// statistics of the strength matrix. Coarse unknowns are spread evenly over the ranks.
template <class T, class G, class L>
class MIVO_API ParLevelTransferSmoothAggregation_T
    : public SeqLevelTransferSmoothAggregation_T<T, G, L> {
 public:
  using Base = SeqLevelTransferSmoothAggregation_T<T, G, L>;
  using typename Base::Matrix;
  using typename Base::Ops;

  ParLevelTransferSmoothAggregation_T();
  ~ParLevelTransferSmoothAggregation_T() override;

  void transfer_operators(const Matrix& A, Matrix& P, Matrix& R) override;
};

MIVO_EXTERN_SCALARS(ParLevelTransferSmoothAggregation_T, long, int)

}  // namespace mivo
