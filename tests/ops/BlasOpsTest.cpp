// SPDX-License-Identifier: Apache-2.0
#include "mivo/ops/BlasOps.hpp"

#include <gtest/gtest.h>

namespace mivo {
namespace {

TEST(BlasOps, DotConjugatesTheFirstFactorAndDotuDoesNot) {
  const Device host;
  const Complex<double> x[] = {{0, 1}};
  using Ops = BlasOps<Complex<double>, int>;
  EXPECT_EQ(Ops::dot(host, 1, x, x), Complex<double>(1));
  EXPECT_EQ(Ops::dotu(host, 1, x, x), Complex<double>(-1));
}

}  // namespace
}  // namespace mivo
