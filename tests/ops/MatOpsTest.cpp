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

template <class T>
std::vector<T> ascending(std::size_t n) {
  std::vector<T> out(n);
  for (std::size_t k = 0; k < n; ++k) out[k] = T(static_cast<int>(k));
  return out;
}

// A scatter keeps the last of equal targets; what lies between columns or rows stays.
TYPED_TEST(MatOpsTest, RowsAreGatheredAndScattered) {
  using T = typename TypeParam::T;
  using Ops = MatOps<T, typename TypeParam::I, typename TypeParam::Layout>;
  const long ld = 8, ld_picked = 6;
  const std::vector<T> a = ascending<T>(64), b = ascending<T>(48);
  std::vector<T> picked(48, T(-1)), into(64, T(-1)), expected_picked = picked, expected_into = into;
  for (long r = 0; r < kPicked; ++r) {
    const long row = kIndices[static_cast<std::size_t>(r)];
    for (long j = 0; j < kCols; ++j) {
      expected_picked[TypeParam::at(r, j, ld_picked)] = a[TypeParam::at(row, j, ld)];
      expected_into[TypeParam::at(row, j, ld)] = b[TypeParam::at(r, j, ld_picked)];
    }
  }
  Ops::select_rows(Device(), kPicked, kCols, kIndices.data(), a.data(), ld, picked.data(),
                   ld_picked);
  Ops::unselect_rows(Device(), kPicked, kCols, kIndices.data(), b.data(), ld_picked, into.data(),
                     ld);
  EXPECT_EQ(picked, expected_picked);
  EXPECT_EQ(into, expected_into);
  Ops::select_rows(Device(), 0, kCols, nullptr, nullptr, 1, nullptr, 1);
}

TYPED_TEST(MatOpsTest, ElementAccessFollowsTheLayout) {
  using T = typename TypeParam::T;
  using Ops = MatOps<T, typename TypeParam::I, typename TypeParam::Layout>;
  const long ld = kRows + 1;
  std::vector<T> a = ascending<T>(static_cast<std::size_t>(ld * ld));
  T value{};
  Ops::get_element_value(Device(), 5, 2, a.data(), ld, &value);
  EXPECT_EQ(value, a[TypeParam::at(5, 2, ld)]);

  std::vector<T> expected = a;
  expected[TypeParam::at(1, 2, ld)] = T(-9);
  Ops::set_element_value(Device(), 1, 2, a.data(), ld, T(-9));
  EXPECT_EQ(a, expected);
}

}  // namespace
}  // namespace mivo
