// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class Base>
class Factory;

/// Interface for grouping the unknowns into aggregates.
template <class T, class G, class L>
class MIVO_API ParAggregatorT : public virtual ParOperator {
 public:
  /// `aggr` receives the aggregate of each unknown, as one column distributed like the rows of A,
  /// and `naggr` the number of aggregates. Collective.
  virtual void aggregate(const ParCSRMatrixT<T, G, L>& A, const ParCSRMatrixT<int, G, L>& S,
                         ParMatrixT<int, G, L>& aggr, G& naggr) = 0;

  ~ParAggregatorT() override;

  /// Family of the key "aggregator_type".
  static Factory<ParAggregatorT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParAggregatorT, long, int)

}  // namespace mivo
