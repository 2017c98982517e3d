// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class Base>
class Factory;

/// Interface for splitting the unknowns into coarse and fine ones.
template <class T, class G, class L>
class MIVO_API ParSplitterT : public virtual ParOperator {
 public:
  /// `cf` receives the mark of each unknown, as one column distributed like the rows of A.
  /// Collective.
  virtual void split(const ParCSRMatrixT<T, G, L>& A, ParCSRMatrixT<int, G, L>& S,
                     ParMatrixT<int, G, L>& cf) = 0;

  ~ParSplitterT() override;

  /// Family of the key "splitter_type".
  static Factory<ParSplitterT>& getFactory();
};

MIVO_EXTERN_SCALARS(ParSplitterT, long, int)

}  // namespace mivo
