// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/operators/ParAggregator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Greedy aggregation on rank 0, which is given the whole strength matrix: "AggregatorVMBSeq"
/// (Vanek, Mandel and Brezina 1996). A node and its strong neighbours form an aggregate, which then
/// takes the free neighbours of these. The best aggregates of the library, as long as rank 0 has
/// room and time for them.
///
/// Key: "max_aggregation" (int, 0), nodes from which an aggregate takes no neighbours of
/// neighbours; no limit below 1.
template <class T, class G, class L>
class MIVO_API SeqVMBAggregator_T : public ParAggregatorT<T, G, L> {
 public:
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;
  using Aggregates = ParMatrixT<int, G, L>;

  std::int32_t max_aggregation = 0;

  ~SeqVMBAggregator_T() override;

  void create(const json& params);
  void aggregate(const Matrix& A, const Strength& S, Aggregates& aggr, G& naggr) override;
};

MIVO_EXTERN_SCALARS(SeqVMBAggregator_T, long, int)

}  // namespace mivo
