// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class Base>
class Factory;

/// Interface for restriction to a coarse level as an action instead of a matrix. The library has no
/// class of this family.
template <class T, class G, class L>
class MIVO_API ParRestrictionerT : public ParOperator {
 public:
  /// coarse = R fine
  virtual void restriction(const ParMatrixT<T, G, L>& fine, ParMatrixT<T, G, L>& coarse) = 0;

  ~ParRestrictionerT() override;

  /// Family of the key "restrictioner_type".
  static Factory<ParRestrictionerT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParRestrictionerT, long, int)

}  // namespace mivo
