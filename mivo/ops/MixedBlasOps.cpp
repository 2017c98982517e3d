// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/MixedBlasOps.hpp"

#include "mivo/ops/MixedBlasOpsImpl.hpp"
#include "mivo/spm/dispatch.hpp"

namespace mivo {

#ifdef MIVO_WITH_CUDA
#define MIVO_EXTERN(To, From)                                       \
  extern template class MixedBlasOpsImpl<To, From, int, spm::Cuda>; \
  extern template class MixedBlasOpsImpl<To, From, long, spm::Cuda>;
MIVO_FOR_EACH_MIXED_PAIR(MIVO_EXTERN)
#undef MIVO_EXTERN
#endif

template <class To, class From, class I>
void MixedBlasOps<To, From, I>::copy(const Device& device, I n, const From* x, To* y) {
  MIVO_DISPATCH(copy, n, x, y);
}

#define MIVO_INSTANCE(To, From)               \
  template class MixedBlasOps<To, From, int>; \
  template class MixedBlasOps<To, From, long>;
MIVO_FOR_EACH_MIXED_PAIR(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
