// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "mivo/solver/KSPDataType.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// One run of `SolverSYMMLQ_T`: set `ksp` up, then call the members in their order.
template <class T, class G, class L>
class MIVO_API SYMMLQ_Impl {
 public:
  using R = RealType<T>;
  using Vector = ParMatrixT<T, G, L>;
  struct Data {
    double haptol = 1e-18;  ///< (r, z) below this counts as zero
  };

  KSPDataType<T, G, L> ksp;

  void KSPSetUp_SYMMLQ();
  /// Improves `ksp.x`. Collective.
  void KSPSolve_SYMMLQ();
  void KSPDestroyDefault();

 private:
  /// The loop from `beta1` on; leaves c and ceta for the last move.
  void iterate(R beta1, R& c, R& ceta);

  std::unique_ptr<Data> data_;
};

MIVO_EXTERN_SCALARS(SYMMLQ_Impl, long, int)

}  // namespace mivo
