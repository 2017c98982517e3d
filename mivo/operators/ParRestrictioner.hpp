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

#define MIVO_EXTERN(T) extern template class ParRestrictionerT<T, long, int>;
MIVO_FOR_EACH_SCALAR(MIVO_EXTERN)
#undef MIVO_EXTERN

}  // namespace mivo
