// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/SpLevelTransferOpsImpl.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

#define MIVO_INSTANCE(T)                                             \
  template class SpSmoothedAggregationImpl<T, long, int, spm::Cuda>; \
  template class SpBoomerAMGImpl<T, int, spm::Cuda>;                 \
  template class SpExtendedInterpolationImpl<T, int, spm::Cuda>;     \
  template class SpRugeStubenImpl<T, int, spm::Cuda>;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
