// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class Base>
class Factory;

/// Interface for interpolation from a splitting into coarse and fine unknowns.
template <class T, class G, class L>
class MIVO_API ParInterpolatorT : public virtual ParOperator {
 public:
  /// P is the prolongation, `ncoarse` the global number of its columns. Collective.
  virtual void interpolate(const ParCSRMatrixT<T, G, L>& A, const ParCSRMatrixT<int, G, L>& S,
                           const ParMatrixT<int, G, L>& cf, G& ncoarse,
                           ParCSRMatrixT<T, G, L>& P) = 0;

  ~ParInterpolatorT() override;

  /// Family of the key "interpolator_type".
  static Factory<ParInterpolatorT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParInterpolatorT, long, int)

}  // namespace mivo
