// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class Base>
class Factory;

/// Interface for interpolation from aggregates. The library has no class of this family.
template <class T, class G, class L>
class MIVO_API ParAggrInterpolatorT : public virtual ParOperator {
 public:
  /// P is the prolongation from `naggr` aggregates to the rows of A. Collective.
  virtual void interpolate(const ParCSRMatrixT<T, G, L>& A, const ParMatrixT<int, G, L>& aggr,
                           G naggr, ParCSRMatrixT<T, G, L>& P) = 0;

  ~ParAggrInterpolatorT() override;

  /// Family of the key "aggr_interpolator_type".
  static Factory<ParAggrInterpolatorT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParAggrInterpolatorT, long, int)

}  // namespace mivo
