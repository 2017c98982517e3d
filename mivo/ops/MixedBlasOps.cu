// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/MixedBlasOps.hpp"
#include "mivo/ops/MixedBlasOpsImpl.hpp"

namespace mivo {

#define MIVO_INSTANCE(To, From)                              \
  template class MixedBlasOpsImpl<To, From, int, spm::Cuda>; \
  template class MixedBlasOpsImpl<To, From, long, spm::Cuda>;
MIVO_FOR_EACH_MIXED_PAIR(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
