// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>
#include <vector>

#include "mivo/ops/MatOps.hpp"

namespace mivo {
namespace {

template <class T_, class I_, class Layout_>
struct Case {
  using T = T_;
  using I = I_;
  using Layout = Layout_;
  static constexpr bool kRowMajor = std::is_same_v<Layout, MatrixLayoutRowMajor>;
  static std::size_t at(long i, long j, long ld) {
    return static_cast<std::size_t>(kRowMajor ? i * ld + j : j * ld + i);
  }
};

template <class C>
class MatOpsTest : public testing::Test {};

using Cases =
    testing::Types<Case<int, int, MatrixLayoutRowMajor>, Case<long, long, MatrixLayoutColMajor>,
                   Case<float, int, MatrixLayoutColMajor>, Case<double, int, MatrixLayoutRowMajor>,
                   Case<Complex<float>, long, MatrixLayoutRowMajor>,
                   Case<Complex<double>, int, MatrixLayoutColMajor>>;
TYPED_TEST_SUITE(MatOpsTest, Cases);

// Leading dimensions exceed the matrices, so that a kernel that swaps them or the layouts shows.
constexpr long kRows = 7, kCols = 3, kPicked = 5;
const std::vector<int> kIndices = {6, 0, 0, 3, 5};

TYPED_TEST(MatOpsTest, SelectRowsGathersListedRowsAndLeavesThePaddingAlone) {
  using T = typename TypeParam::T;
  using Ops = MatOps<T, typename TypeParam::I, typename TypeParam::Layout>;
  const long ld_a = 8, ld_out = 6;
  std::vector<T> a(64), out(48, T(-1));
  for (std::size_t k = 0; k < a.size(); ++k) a[k] = T(static_cast<int>(k));
  std::vector<T> expected = out;
  for (long r = 0; r < kPicked; ++r) {
    for (long j = 0; j < kCols; ++j) {
      expected[TypeParam::at(r, j, ld_out)] =
          a[TypeParam::at(kIndices[static_cast<std::size_t>(r)], j, ld_a)];
    }
  }
  Ops::select_rows(Device(), kPicked, kCols, kIndices.data(), a.data(), ld_a, out.data(), ld_out);
  EXPECT_EQ(out, expected);
  Ops::select_rows(Device(), 0, kCols, nullptr, nullptr, 1, nullptr, 1);
}

TYPED_TEST(MatOpsTest, UnselectRowsScattersInOrderSoThatTheLastOfEqualTargetsStays) {
  using T = typename TypeParam::T;
  using Ops = MatOps<T, typename TypeParam::I, typename TypeParam::Layout>;
  const long ld_a = 6, ld_out = 9;
  std::vector<T> a(48), out(72, T(-1));
  for (std::size_t k = 0; k < a.size(); ++k) a[k] = T(static_cast<int>(k));
  std::vector<T> expected = out;
  for (long r = 0; r < kPicked; ++r) {
    for (long j = 0; j < kCols; ++j) {
      expected[TypeParam::at(kIndices[static_cast<std::size_t>(r)], j, ld_out)] =
          a[TypeParam::at(r, j, ld_a)];
    }
  }
  Ops::unselect_rows(Device(), kPicked, kCols, kIndices.data(), a.data(), ld_a, out.data(), ld_out);
  EXPECT_EQ(out, expected);
}

TYPED_TEST(MatOpsTest, ElementAccessFollowsTheLayout) {
  using T = typename TypeParam::T;
  using Ops = MatOps<T, typename TypeParam::I, typename TypeParam::Layout>;
  const long ld = kRows + 1;
  std::vector<T> a(static_cast<std::size_t>(ld * ld));
  for (std::size_t k = 0; k < a.size(); ++k) a[k] = T(static_cast<int>(k));
  T value{};
  Ops::get_element_value(Device(), 5, 2, a.data(), ld, &value);
  EXPECT_EQ(value, a[TypeParam::at(5, 2, ld)]);

  std::vector<T> expected = a;
  expected[TypeParam::at(1, 2, ld)] = T(-9);
  Ops::set_element_value(Device(), 1, 2, a.data(), ld, T(-9));
  EXPECT_EQ(a, expected);
}

// A device kind without kernels falls through.
TEST(MatOps, DoesNothingOnAKindWithoutKernels) {
  double a[] = {1, 2}, value = 7;
  using Ops = MatOps<double, int, MatrixLayoutRowMajor>;
  Ops::get_element_value(Device(Device::kHip), 0, 1, a, 2, &value);
  Ops::set_element_value(Device(Device::kHip), 0, 0, a, 2, 5.0);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(a[0], 1);
}

}  // namespace
}  // namespace mivo
