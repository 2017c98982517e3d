// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <type_traits>

#include "mivo/ops/MatrixLayout.hpp"
#include "mivo/spm/function.hpp"

namespace mivo {

/// Position of element (i, j) of a matrix with leading dimension `ld`. In 64 bits, since rows times
/// columns may pass the range of an int.
template <class Layout, class I>
MIVO_FUNCTION std::ptrdiff_t matrixOffset(I i, I j, I ld) {
  if constexpr (std::is_same_v<Layout, MatrixLayoutRowMajor>) {
    return static_cast<std::ptrdiff_t>(i) * ld + j;
  } else {
    return static_cast<std::ptrdiff_t>(j) * ld + i;
  }
}

}  // namespace mivo
