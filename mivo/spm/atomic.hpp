// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/spm/function.hpp"

namespace mivo::spm {

/// Adds `value` to `*p` and returns what stood there before. On a device the step is atomic, since
/// the indices of a loop run at the same time; the host runs them one after the other.
template <class I>
MIVO_FUNCTION I fetchAdd(I* p, I value) {
#ifdef __CUDA_ARCH__
  if constexpr (sizeof(I) == 8) {
    using Word = unsigned long long;
    return static_cast<I>(atomicAdd(reinterpret_cast<Word*>(p), static_cast<Word>(value)));
  } else {
    return atomicAdd(p, value);
  }
#else
  const I old = *p;
  *p = old + value;
  return old;
#endif
}

/// Ends the kernel, and on the host the program, where an invariant is broken.
MIVO_FUNCTION inline void trap() {
#ifdef __CUDA_ARCH__
  __trap();
#else
  __builtin_trap();
#endif
}

}  // namespace mivo::spm
