// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace mivo {

/// Gives memory that was freed back to the system, where the C library keeps it: it does so with
/// blocks of up to 32 MB, which a large set-up leaves behind in numbers. Takes milliseconds.
/// Internal.
inline void trimHostMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace mivo
