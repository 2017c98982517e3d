// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/ops/host/forms.hpp"
#include "mivo/spm/function.hpp"

namespace mivo::sparse {

/// Entries by which loops over rows fetch ahead.
constexpr int kFetchAhead = 512;

/// Hints that p[at] is needed soon; it may lie outside of the array.
template <class U>
[[gnu::always_inline]] MIVO_FUNCTION inline void prefetch([[maybe_unused]] const U* p,
                                                          [[maybe_unused]] std::int64_t at) {
#if !defined(__CUDA_ARCH__) && !defined(MIVO_PLAIN_FORMS)
  const auto address =
      reinterpret_cast<std::uintptr_t>(p) + static_cast<std::uintptr_t>(at) * sizeof(U);
  __builtin_prefetch(reinterpret_cast<const void*>(address), 0, 0);
#endif
}

/// The same for column and value of an entry.
template <class T, class I>
[[gnu::always_inline]] MIVO_FUNCTION inline void prefetchEntry(const I* col_idx, const T* values,
                                                               std::int64_t at) {
  prefetch(col_idx, at);
  prefetch(values, at);
}

}  // namespace mivo::sparse
