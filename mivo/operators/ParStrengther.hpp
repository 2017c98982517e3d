// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class Base>
class Factory;

/// Interface for the strength of connections between unknowns.
template <class T, class G, class L>
class MIVO_API ParStrengtherT : public virtual ParOperator {
 public:
  /// S takes the structure of A, with 1 for a strong entry and 0 for a weak one. `diag` is the
  /// diagonal of A. Collective.
  virtual void strength(const ParCSRMatrixT<T, G, L>& A, const ParMatrixT<T, G, L>& diag,
                        ParCSRMatrixT<int, G, L>& S) = 0;

  ~ParStrengtherT() override;

  /// Family of the key "strengther_type".
  static Factory<ParStrengtherT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParStrengtherT, long, int)

}  // namespace mivo
