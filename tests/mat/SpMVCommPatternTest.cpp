// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/parsparse.hpp"

namespace mivo::test {
namespace {

template <class T>
using Plan = SpMVCommPatternT<T, long, int>;
template <class T>
using Vector = ParMatrixT<T, long, int>;

template <class T>
class SpMVCommPatternTest : public testing::Test {};
TYPED_TEST_SUITE(SpMVCommPatternTest, ValueTypes);

/// The 2 by 2 matrix {1 2; . 3}.
template <class T>
ParCSRMatrixT<T, long, int> smallMatrix(const Device& device) {
  return parSparseOf(device, plainRows<T>(2, {{{0, T(1)}, {1, T(2)}}, {{1, T(3)}}}));
}

// What an exchange calls, moves and counts is tested on 1 to 4 ranks.
TEST(SpMVCommPattern, ExchangeOfOneRankLeavesTheHandleAloneAndNeedsNoCalls) {
  for (const Device& device : testDevices()) {
    const auto A = smallMatrix<double>(device);
    Plan<double> plan;
    plan.create(A);
    EXPECT_EQ(plan.getDevice(), device);
    EXPECT_EQ(plan.getComm(), kCommWorld);
    const Vector<double> x(2, device);
    Plan<double>::AsyncMatVecObject async;
    plan.exchange(x, nullptr, nullptr, nullptr, &async);
    // A handle that was touched would be ready.
    EXPECT_THROW(async.wait(), std::future_error);
  }
}

TEST(SpMVCommPattern, TagsCountUp) {
  const int tag = Plan<double>::getMessageTag();
  Plan<float>::incMessageTag();
  EXPECT_EQ(Plan<double>::getMessageTag(), tag + 1) << "one counter serves all plans";
}

TYPED_TEST(SpMVCommPatternTest, OwnBlockKeepsTheVectorAndGivesNothingBack) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    const auto A = smallMatrix<T>(device);
    const Vector<T> x = columnOf(device, A.getColPartitioner(), std::vector<T>{T(5), T(6)});
    A.exchangeMatVec(x, nullptr, nullptr, nullptr, nullptr);
    Plan<T> plan = A.getSpMVCommPattern();  // copies share the plan
    plan.fill(T(9));
    EXPECT_EQ(valuesOf(x), (std::vector<T>{T(5), T(6)})) << "the own block has no ghost values";

    plan.initReverseExchange();
    MatrixT<COT_RawCommPattern<T, int>, int> table;
    plan.getRawMat(table);
    ASSERT_EQ(table.getSize(), 1);
    EXPECT_EQ(table.getData()->recv_x_size, 2);
    EXPECT_EQ(table.getData()->recv_x, x.getLocalMatrix().getData());
    EXPECT_NE(table.getData()->recv_write_flag, nullptr);
    EXPECT_EQ(plan.getRawMatOnDev().getDevice().type, device.type);
    plan.recvTraversal([](int, typename Plan<T>::SpmvColBlock* b) { b->recv_write_flag.fill(1); });
    plan.reverseExchange(x, [](const T& a, const T& b) { return a + b; });
    EXPECT_EQ(valuesOf(x), (std::vector<T>{T(5), T(6)}));
  }
}

TEST(SpMVCommPattern, WrongArgumentsEndTheProcess) {
  Plan<double> plan;
  MIVO_EXPECT_FATAL_TEXT(plan.create(kCommWorld, Device(), partsAt<long>({0, 3}), {}), "");
  const auto A = smallMatrix<double>(Device());
  plan.create(A);
  const Vector<double> self(2, Device(), kCommSelf), foreign(2, Device(2, 0));
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
