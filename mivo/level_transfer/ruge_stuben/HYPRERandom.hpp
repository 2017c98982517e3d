// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/utils/export.hpp"

namespace mivo {

/// The random numbers of the coarsening by independent sets: the multiplicative generator with
/// multiplier 16807 and modulus 2^31 - 1 (Park and Miller 1988). One state for the process; not for
/// several threads.
class MIVO_API HYPRERandom {
 public:
  static std::int32_t seed;  ///< in [1, 2^31 - 2]

  /// Starts anew, from the nearest seed that is allowed.
  static void SeedRand(std::int32_t value);
  /// The next number in (0, 1).
  static double Rand();
  /// As many numbers as `steps` are left out, in time that grows with their logarithm.
  static void skip(std::int64_t steps);
};

}  // namespace mivo
