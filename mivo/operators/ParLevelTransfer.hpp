// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class Base>
class Factory;

/// Interface of coarsening pipelines: from the matrix of a level to the operators that join it with
/// the next coarser one.
template <class T, class G, class L>
class MIVO_API ParLevelTransferT : public virtual ParOperator {
 public:
  std::int32_t levelId = 0;  ///< number of the level that is being coarsened, 0 the finest

  void setLevelId(int level) { levelId = level; }
  /// Prolongation P (rows of A by coarse unknowns) and restriction R. Collective.
  virtual void transfer_operators(const ParCSRMatrixT<T, G, L>& A, ParCSRMatrixT<T, G, L>& P,
                                  ParCSRMatrixT<T, G, L>& R) = 0;

  ~ParLevelTransferT() override;

  /// Family of the key "level_transfer_type".
  static Factory<ParLevelTransferT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParLevelTransferT, long, int)

}  // namespace mivo
