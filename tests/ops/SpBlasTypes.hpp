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

/// Names that a typed test takes into its body with MIVO_SPBLAS_TYPES.
template <class Pair>
struct SpBlasNames {
  using T = typename Pair::T;
  using I = typename Pair::I;
  using R = RealType<T>;
  using Csr = HostCsr<T, I>;
  using DeviceMatrix = DeviceCsr<T, I>;
  using Ops = SpBlasOps<T, I>;
};

template <class Pair>
class SpBlasSuite : public ::testing::Test {
 public:
  using Value = typename Pair::T;
  using Index = typename Pair::I;

  /// Runs body(device, rows, cols) for each device and shape.
  template <class Body>
  static void forEachShape(const Body& body) {
    for (const Device& device : testDevices()) {
      for (const auto& [rows, cols] : testShapes()) {
        SCOPED_TRACE(device.getString() + ", " + std::to_string(rows) + " x " +
                     std::to_string(cols));
        body(device, static_cast<Index>(rows), static_cast<Index>(cols));
      }
    }
  }
  HostCsr<Value, Index> random(Index rows, Index cols) {
    return randomCsr<Value, Index>(rng, rows, cols);
  }
  std::vector<Value> vector(Index n) { return smallVector<Value>(rng, n); }

  std::mt19937 rng{20240611};
};

}  // namespace mivo::test

/// Brings the types of the suite into the body of a typed test.
#define MIVO_SPBLAS_TYPES                                             \
  using Names = SpBlasNames<TypeParam>;                               \
  [[maybe_unused]] typedef typename Names::T T;                       \
  [[maybe_unused]] typedef typename Names::I I;                       \
  [[maybe_unused]] typedef typename Names::R R;                       \
  [[maybe_unused]] typedef typename Names::Csr Csr;                   \
  [[maybe_unused]] typedef typename Names::DeviceMatrix DeviceMatrix; \
  [[maybe_unused]] typedef typename Names::Ops Ops
