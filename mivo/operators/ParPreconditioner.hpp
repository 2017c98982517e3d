// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/operators/ParMatrixFree.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/TickMeter.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// Interface of preconditioners: approximate inverses that a Krylov solver applies to its
/// residuals.
///
/// `setup` comes once per matrix, before the first solve, and is the caller's duty: no solver calls
/// it. Exists for the four scalar types with (long, int). Both operations are collective.
template <class T, class G, class L>
class MIVO_API ParPreconditionerT : public virtual ParOperator {
 public:
  TickMeter setupTime;    ///< time in `setup`; driven by the concrete classes
  TickMeter precondTime;  ///< time in `precondition`

  /// Prepares for A, which must outlive the uses of this object unless the class says that it
  /// shares A.
  virtual void setup(const ParMatrixFreeT<T, G, L>& A) = 0;
  /// z = M r, M being the approximate inverse. z has the shape of r and is not r.
  virtual void precondition(const ParMatrixT<T, G, L>& r, ParMatrixT<T, G, L>& z) = 0;

  ~ParPreconditionerT() override;

  /// Family of the key "preconditioner_type".
  static Factory<ParPreconditionerT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParPreconditionerT, long, int)

}  // namespace mivo
