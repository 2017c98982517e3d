// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/ops/MixedBlasOps.hpp"
#include "mivo/spm/parallel.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class To, class From>
MIVO_FUNCTION To convertValue(const From& a) {
  if constexpr (kIsComplex<To> && !kIsComplex<From>) {
    return To(static_cast<RealType<To>>(a));
  } else {
    return static_cast<To>(a);
  }
}

/// Bodies of `MixedBlasOps`, written once for all execution spaces: the same member with a space in
/// place of the device.
template <class To, class From, class I, class Space>
class MixedBlasOpsImpl {
 public:
  static void copy(Space& space, I n, const From* x, To* y);
};

template <class To, class From, class I, class Space>
void MixedBlasOpsImpl<To, From, I, Space>::copy(Space& space, I n, const From* x, To* y) {
  spm::parallel_for(spm::RangePolicy<Space>(space, 0, n),
                    [=] MIVO_FUNCTION(I i) { y[i] = convertValue<To>(x[i]); });
}

#ifdef MIVO_WITH_CUDA
MIVO_FOR_EACH_MIXED_PAIR(MIVO_MIXED_INSTANCE, MIVO_CUDA_TEMPLATE, MixedBlasOpsImpl, int, spm::Cuda)
MIVO_FOR_EACH_MIXED_PAIR(MIVO_MIXED_INSTANCE, MIVO_CUDA_TEMPLATE, MixedBlasOpsImpl, long, spm::Cuda)
#endif

}  // namespace mivo
