// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <vector>

#include "mivo/utils/ScalarTraits.hpp"

namespace mivo::test {

using ValueTypes = testing::Types<int, long, float, double, Complex<float>, Complex<double>>;
using ScalarTypes = testing::Types<float, double, Complex<float>, Complex<double>>;

/// A pair of value and index type for typed suites.
template <class Value, class Index>
struct TypePair {
  using T = Value;
  using I = Index;
};

/// The types of a suite over pairs under short names, not all of which each test needs.
#define MIVO_TEST_PAIR_TYPES                        \
  using T = typename TypeParam::T;                  \
  using I [[maybe_unused]] = typename TypeParam::I; \
  using R [[maybe_unused]] = RealType<T>;

/// A number of type T from draws of its part, of which a complex one takes two.
template <class T, class Draw>
T fromParts(const Draw& draw) {
  const auto re = static_cast<RealType<T>>(draw());
  if constexpr (kIsComplex<T>) {
    return T(re, static_cast<RealType<T>>(draw()));
  } else {
    return re;
  }
}

/// Whole number in [-4, 4] (both parts of a complex one), so that short sums are exact in every
/// type.
template <class T>
T smallValue(std::mt19937& rng) {
  return fromParts<T>([&] { return static_cast<int>(rng() % 9) - 4; });
}

template <class T>
std::vector<T> smallVector(std::mt19937& rng, std::size_t n) {
  std::vector<T> out(n);
  for (T& v : out) v = smallValue<T>(rng);
  return out;
}

template <class T>
std::vector<T> smallValues(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  return smallVector<T>(rng, n);
}

/// Equal with the sign of zeros, part by part; NaN equals NaN.
template <class T>
bool sameBits(const T& a, const T& b) {
  if constexpr (kIsComplex<T>) {
    return sameBits(a.re, b.re) && sameBits(a.im, b.im);
  } else {
    return (a != a && b != b) || (a == b && std::signbit(a) == std::signbit(b));
  }
}

template <class T>
void expectSameBits(const std::vector<T>& a, const std::vector<T>& b) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_TRUE(sameBits(a[i], b[i])) << i << ": " << a[i] << " and " << b[i];
  }
}

/// Elements agree but for a few roundings.
template <class T>
void expectNear(const std::vector<T>& a, const std::vector<T>& b) {
  ASSERT_EQ(a.size(), b.size());
  const RealType<T> eps = std::numeric_limits<RealType<T>>::epsilon();
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_LE(abs(a[i] - b[i]), 256 * eps * (1 + abs(b[i]))) << i << ": " << a[i] << ", " << b[i];
  }
}

}  // namespace mivo::test
