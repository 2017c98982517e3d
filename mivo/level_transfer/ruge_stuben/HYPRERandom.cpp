// SPDX-License-Identifier: Apache-2.0
#include "mivo/level_transfer/ruge_stuben/HYPRERandom.hpp"

namespace mivo {
namespace {

constexpr std::int32_t kModulus = 2147483647;
constexpr std::int32_t kMultiplier = 16807;

}  // namespace

std::int32_t HYPRERandom::seed = 1;

void HYPRERandom::SeedRand(std::int32_t value) {
  seed = value == kModulus ? kModulus - 1 : value < 1 ? 1 : value;
}

double HYPRERandom::Rand() {
  // Schrage's form of 16807 seed mod (2^31 - 1), which fits 32 bits.
  const std::int32_t high = seed / 127773;
  const std::int32_t low = seed % 127773;
  const std::int32_t t = kMultiplier * low - 2836 * high;
  seed = t > 0 ? t : t + kModulus;
  return seed / 2147483647.0;
}

void HYPRERandom::skip(std::int64_t steps) {
  std::int64_t factor = kMultiplier, value = seed;
  for (; steps > 0; steps /= 2) {
    if (steps % 2 != 0) value = value * factor % kModulus;
    factor = factor * factor % kModulus;
  }
  seed = static_cast<std::int32_t>(value);
}

}  // namespace mivo
