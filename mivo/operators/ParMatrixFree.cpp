// SPDX-License-Identifier: Apache-2.0
#include "mivo/operators/ParMatrixFree.hpp"

#include "mivo/utils/Factory.hpp"

namespace mivo {

template <class T, class G, class L>
ParMatrixFreeT<T, G, L>::~ParMatrixFreeT() = default;

template <class T, class G, class L>
void ParMatrixFreeT<T, G, L>::matVec(const ParMatrixT<T, G, L>& x, ParMatrixT<T, G, L>& y,
                                     AsyncMatVecObject* async) {
  aAxpby(T(1), x, T(0), y, async);
}

template <class T, class G, class L>
Factory<ParMatrixFreeT<T, G, L>>& ParMatrixFreeT<T, G, L>::getFactory() {
  static Factory<ParMatrixFreeT> factory("matrix_type");
  return factory;
}

MIVO_INSTANCE_VALUES(ParMatrixFreeT, int, int)
MIVO_INSTANCE_VALUES(ParMatrixFreeT, long, int)

}  // namespace mivo
