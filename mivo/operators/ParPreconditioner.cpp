// SPDX-License-Identifier: Apache-2.0
#include "mivo/operators/ParPreconditioner.hpp"

#include "mivo/utils/Factory.hpp"

namespace mivo {

template <class T, class G, class L>
ParPreconditionerT<T, G, L>::~ParPreconditionerT() = default;

template <class T, class G, class L>
Factory<ParPreconditionerT<T, G, L>>& ParPreconditionerT<T, G, L>::getFactory() {
  static Factory<ParPreconditionerT> factory("preconditioner_type");
  return factory;
}

#define MIVO_INSTANCE(T) template class ParPreconditionerT<T, long, int>;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
