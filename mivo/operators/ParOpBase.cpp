// SPDX-License-Identifier: Apache-2.0
#include "mivo/operators/ParOpBase.hpp"

#include "mivo/utils/Factory.hpp"

namespace mivo {

template <class T, class G, class L>
ParOpBaseT<T, G, L>::~ParOpBaseT() = default;

template <class T, class G, class L>
Factory<ParOpBaseT<T, G, L>>& ParOpBaseT<T, G, L>::getFactory() {
  static Factory<ParOpBaseT> factory("op_type");
  return factory;
}

MIVO_INSTANCE_SCALARS(ParOpBaseT, long, int)

}  // namespace mivo
