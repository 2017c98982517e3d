// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/operators/ParAggregator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Aggregation in three passes on rank 0, which is given the whole strength matrix:
/// "AggregatorFASPSeq". Nodes none of whose neighbours is in an aggregate become seeds that take
/// their neighbours, remaining nodes join the aggregate of a neighbour, and what is left forms
/// aggregates of its own. A node with one strong connection stays alone. Prints the aggregates at
/// MIVO_VERBOSE_LEVEL 3.
///
/// Key: "max_aggregation" (int, 50), the most nodes of an aggregate.
template <class T, class G, class L>
class MIVO_API SeqFASPAggregator_T : public ParAggregatorT<T, G, L> {
 public:
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;
  using Aggregates = ParMatrixT<int, G, L>;

  std::int32_t max_aggregation = 50;

  SeqFASPAggregator_T();
  ~SeqFASPAggregator_T() override;

  void create(const json& params);
  void aggregate(const Matrix& A, const Strength& S, Aggregates& aggr, G& naggr) override;
};

MIVO_EXTERN_SCALARS(SeqFASPAggregator_T, long, int)

}  // namespace mivo
