// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/operators/ParPreconditioner.hpp"
#include "mivo/operators/ParSmoother.hpp"
#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// Base of classes that serve as smoother, as preconditioner and as solver. It adds no operation: a
/// concrete class implements those of all three, `setup` being one and the same.
template <class T, class G, class L>
class MIVO_API ParOpBaseT : public ParSmootherT<T, G, L>,
                            public ParPreconditionerT<T, G, L>,
                            public ParSolverT<T, G, L> {
 public:
  ~ParOpBaseT() override;

  /// Family of the key "op_type".
  static Factory<ParOpBaseT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParOpBaseT, long, int)

}  // namespace mivo
