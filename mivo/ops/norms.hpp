// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <type_traits>

#include "mivo/utils/ScalarTraits.hpp"

namespace mivo {

/// |a|^p as a real number, p by its real part.
template <class T>
MIVO_FUNCTION RealType<T> absPower(const T& a, const T& p) {
  return powReal(abs(a), realPart(p));
}

/// Root of order p > 0; integers go through double, so that 1 / p is not truncated to 0.
template <class R>
MIVO_FUNCTION R rootOfOrder(const R& a, const R& p) {
  if constexpr (std::is_floating_point_v<R>) {
    return powReal(a, R(1) / p);
  } else {
    return static_cast<R>(powReal(static_cast<double>(a), 1.0 / static_cast<double>(p)));
  }
}

}  // namespace mivo
