// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/MixedBlasOps.hpp"

#include "mivo/ops/MixedBlasOpsImpl.hpp"
#include "mivo/spm/dispatch.hpp"

namespace mivo {

template <class To, class From, class I>
void MixedBlasOps<To, From, I>::copy(const Device& device, I n, const From* x, To* y) {
  MIVO_DISPATCH(copy, n, x, y);
}

MIVO_FOR_EACH_MIXED_PAIR(MIVO_MIXED_INSTANCE, template, MixedBlasOps, int)
MIVO_FOR_EACH_MIXED_PAIR(MIVO_MIXED_INSTANCE, template, MixedBlasOps, long)

}  // namespace mivo
