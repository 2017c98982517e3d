// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/operators/ParMatrixFree.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// Interface of smoothers: a few steps of a stationary iteration that damp the oscillating part of
/// the error. Exists for the four scalar types with (long, int). Both operations are collective.
template <class T, class G, class L>
class MIVO_API ParSmootherT : public virtual ParOperator {
 public:
  /// Prepares for A.
  virtual void setup(const ParMatrixFreeT<T, G, L>& A) = 0;
  /// Improves the given x for A x = b.
  virtual void smooth(const ParMatrixT<T, G, L>& b, ParMatrixT<T, G, L>& x) = 0;

  ~ParSmootherT() override;

  /// The same from x = 0, whatever x holds, with the same bits: a class that can begin from zero
  /// at less cost overrides it. Multigrid begins every level but the finest of a solver so.
  virtual void smoothFromZero(const ParMatrixT<T, G, L>& b, ParMatrixT<T, G, L>& x);

  /// Family of the key "smoother_type".
  static Factory<ParSmootherT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParSmootherT, long, int)

}  // namespace mivo
