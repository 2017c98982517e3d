// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <random>

#include "mivo/utils/ScalarTraits.hpp"

namespace mivo::test {

/// Whole number in [-4, 4] (both parts of a complex one), so that short sums are exact in every
/// type.
template <class T>
T smallValue(std::mt19937& rng) {
  const auto draw = [&] { return static_cast<RealType<T>>(static_cast<int>(rng() % 9) - 4); };
  if constexpr (kIsComplex<T>) {
    const auto re = draw();
    return T(re, draw());
  } else {
    return draw();
  }
}

}  // namespace mivo::test
