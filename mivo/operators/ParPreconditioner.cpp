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

MIVO_INSTANCE_SCALARS(ParPreconditionerT, long, int)

}  // namespace mivo
