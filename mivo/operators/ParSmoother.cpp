// SPDX-License-Identifier: Apache-2.0
#include "mivo/operators/ParSmoother.hpp"

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/utils/Factory.hpp"

namespace mivo {

template <class T, class G, class L>
ParSmootherT<T, G, L>::~ParSmootherT() = default;

template <class T, class G, class L>
void ParSmootherT<T, G, L>::smoothFromZero(const ParMatrixT<T, G, L>& b, ParMatrixT<T, G, L>& x) {
  x.fill(T(0));
  smooth(b, x);
}

template <class T, class G, class L>
Factory<ParSmootherT<T, G, L>>& ParSmootherT<T, G, L>::getFactory() {
  static Factory<ParSmootherT> factory("smoother_type");
  return factory;
}

MIVO_INSTANCE_SCALARS(ParSmootherT, long, int)

}  // namespace mivo
