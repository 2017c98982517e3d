// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/parsparse.hpp"

namespace mivo::test {
namespace {

using Plan = SpMVCommPatternT<double, long, int>;
using Vector = ParMatrixT<double, long, int>;

/// The 2 by 2 matrix {1 2; . 3}.
ParSparse<double> smallMatrix(const Device& device) {
  return parSparseOf(device, plainRows<double>(2, {{{0, 1.}, {1, 2.}}, {{1, 3.}}}));
}

// What an exchange calls, moves and counts is tested on 1 to 4 ranks.
TEST(SpMVCommPattern, ExchangeOfOneRankLeavesTheHandleAloneAndNeedsNoCalls) {
  for (const Device& device : testDevices()) {
    const auto A = smallMatrix(device);
    Plan plan;
    plan.create(A);
    EXPECT_EQ(plan.getDevice(), device);
    EXPECT_EQ(plan.getComm(), kCommWorld);
    const Vector x(2, device);
    Plan::AsyncMatVecObject async;
    plan.exchange(x, nullptr, nullptr, nullptr, &async);
    // A handle that was touched would be ready.
    EXPECT_THROW(async.wait(), std::future_error);
  }
}

TEST(SpMVCommPattern, WrongArgumentsEndTheProcess) {
  Plan plan;
  MIVO_EXPECT_FATAL_TEXT(plan.create(kCommWorld, Device(), partsAt<long>({0, 3}), {}), "");
  const auto A = smallMatrix(Device());
  plan.create(A);
  const Vector self(2, Device(), kCommSelf), foreign(2, Device(2, 0));
  MIVO_EXPECT_FATAL_TEXT(plan.exchange(self, nullptr, nullptr, nullptr, nullptr),
                         "aAxpby: A and x must have the same comm");
  MIVO_EXPECT_FATAL_TEXT(plan.exchange(foreign, nullptr, nullptr, nullptr, nullptr),
                         "aAxpby: A and x must on the same device");
  MIVO_EXPECT_FATAL_TEXT(
      plan.exchange(foreign.getLocalMatrix(), nullptr, nullptr, nullptr, nullptr),
      "aAxpby: A and x must on the same device");
}

}  // namespace
}  // namespace mivo::test
