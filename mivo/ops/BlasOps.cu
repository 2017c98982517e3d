// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/BlasOpsImpl.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

#define MIVO_INSTANCE(T)                         \
  template class BlasOpsImpl<T, int, spm::Cuda>; \
  template class BlasOpsImpl<T, long, spm::Cuda>;
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
