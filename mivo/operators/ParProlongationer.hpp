// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class Base>
class Factory;

/// Interface for prolongation from a coarse level as an action instead of a matrix. The library has
/// no class of this family.
template <class T, class G, class L>
class MIVO_API ParProlongationerT : public ParOperator {
 public:
  /// fine = P coarse
  virtual void prolongation(const ParMatrixT<T, G, L>& coarse, ParMatrixT<T, G, L>& fine) = 0;

  ~ParProlongationerT() override;

  /// Family of the key "prolongationer_type".
  static Factory<ParProlongationerT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParProlongationerT, long, int)

}  // namespace mivo
