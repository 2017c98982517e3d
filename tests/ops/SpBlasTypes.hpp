// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include "mivo/ops/SpBlasOps.hpp"
#include "tests/support/RandomCsr.hpp"

namespace mivo::test {

/// Value types of the sparse suites, each with one of the two index types.
using SpBlasTypes =
    ::testing::Types<TypePair<double, int>, TypePair<float, int>, TypePair<int, int>,
                     TypePair<long, long>, TypePair<Complex<float>, int>,
                     TypePair<Complex<double>, long>>;

#define USE_TYPES                                    \
  MIVO_TEST_PAIR_TYPES                               \
  using Ops [[maybe_unused]] = SpBlasOps<T, I>;      \
  using View [[maybe_unused]] = COT_CSRRawMat<T, I>; \
  using Csr [[maybe_unused]] = HostCsr<T, I>;        \
  using OnDevice [[maybe_unused]] = DeviceCsr<T, I>;

template <class Pair>
class SpBlasSuite : public ::testing::Test {
 public:
  using Value = typename Pair::T;
  using Index = typename Pair::I;
  using Matrix = HostCsr<Value, Index>;

  /// Runs body(device, a, copy of a on the device) for a random matrix of each shape.
  template <class Body>
  void forEachMatrix(const Body& body) {
    for (const Device& device : testDevices()) {
      for (const auto& [rows, cols] : testShapes()) {
        SCOPED_TRACE(device.getString() + ", " + std::to_string(rows) + " x " +
                     std::to_string(cols));
        const Matrix a = random(static_cast<Index>(rows), static_cast<Index>(cols));
        body(device, a, DeviceCsr<Value, Index>(device, a));
      }
    }
  }
  Matrix random(Index rows, Index cols) { return randomCsr<Value, Index>(rng, rows, cols); }
  std::vector<Value> vector(Index n) { return smallVector<Value>(rng, n); }
  template <class Call>
  static Matrix twoPasses(const Device& device, Index rows, Index cols, const Call& call) {
    return twoPass<Value, Index>(device, rows, cols, call);
  }

  std::mt19937 rng{20240611};
};

}  // namespace mivo::test
