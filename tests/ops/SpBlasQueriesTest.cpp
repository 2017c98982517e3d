// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>

#include "tests/ops/SpBlasTypes.hpp"

namespace mivo::test {
namespace {

template <class Pair>
class SpBlasQueries : public SpBlasSuite<Pair> {};
TYPED_TEST_SUITE(SpBlasQueries, SpBlasTypes);

TYPED_TEST(SpBlasQueries, ElementCountsOfRowsAndColumns) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const auto& a, const auto& d) {
    std::vector<I> by_row(a.rows, 0), by_col(a.cols, 0);
    for (I i = 0; i < a.rows; ++i) {
      for (const auto& entry : a.row(i)) {
        ++by_row[i];
        ++by_col[entry.first];
      }
    }
    DeviceArray<I> row_counts(device, std::vector<I>(a.rows, 7)),
        col_counts(device, std::vector<I>(a.cols, 7));
    Ops::get_row_element_count(device, d.view(), a.rows, row_counts);
    Ops::get_col_element_count(device, d.view(), a.cols, col_counts);
    EXPECT_EQ(row_counts.values(), by_row);
    EXPECT_EQ(col_counts.values(), by_col);
  });
}

TYPED_TEST(SpBlasQueries, ElementsAreReadAndOverwrittenButNeverInserted) {
  USE_TYPES
  for (const Device& device : testDevices()) {
    // Row 0 has two entries in column 3, of which the first counts; row 1 is empty.
    const Csr a{2, 4, {0, 3, 3}, {3, 1, 3}, {T(5), T(6), T(7)}};
    const OnDevice d(device, a);
    DeviceArray<T> value(device, std::vector<T>{T(9)});
    DeviceArray<int> found(device, std::vector<int>{9});
    const auto get = [&](I row, I col) {
      Ops::get_element_value(device, 2, 4, d.rowptr(), d.col_idx(), d.values(), row, col, value,
                             found);
      return std::make_pair(value.values()[0], found.values()[0]);
    };
    const auto set = [&](I row, I col, T v) {
      Ops::set_element_value(device, 2, 4, d.rowptr(), d.col_idx(), d.values(), row, col, v, found);
      return found.values()[0];
    };
    EXPECT_EQ(get(0, 3), std::make_pair(T(5), 1));
    EXPECT_EQ(get(0, 1), std::make_pair(T(6), 1));
    EXPECT_EQ(get(0, 0), std::make_pair(T(0), 0));
    EXPECT_EQ(get(1, 3), std::make_pair(T(0), 0));
    EXPECT_EQ(set(0, 3, T(1)), 1);
    EXPECT_EQ(set(1, 3, T(2)), 0);
    EXPECT_EQ(d.host().values, (std::vector<T>{T(1), T(6), T(7)}));
  }
}

TYPED_TEST(SpBlasQueries, RowsOfABlockTable) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const auto& ghosts, const auto& d0) {
    // Global columns: ghosts [0, cols), own [cols, cols + rows), ghosts [cols + rows, cols + rows +
    // 5)
    const I rows = ghosts.rows, cols = ghosts.cols;
    const std::vector<Csr> a = {ghosts, this->random(rows, rows), this->random(rows, 5)};
    const std::vector<I> first_col = {0, cols, cols + rows};
    const OnDevice d1(device, a[1]), d2(device, a[2]);
    DeviceArray<COT_SpMVCSRRawMat<T, I>> table(
        device, {d0.blockView(cols, 0), d1.blockView(cols, cols), d2.blockView(cols, cols + rows)});
    std::vector<I> entries(rows, 0), nonzeros(rows, 0);
    std::vector<T> sums(rows, T(0)), diagonal(rows, T(0));
    std::vector<R> abs_sums(rows, R(0)), maxima(rows, R(0));
    std::vector<double> squares(rows, 0);
    for (I i = 0; i < rows; ++i) {
      for (int m = 0; m < 3; ++m) {
        for (const auto& [j, v] : a[m].row(i)) {
          ++entries[i];
          nonzeros[i] += v != T(0) ? 1 : 0;
          sums[i] += v;
          abs_sums[i] += abs(v);
          maxima[i] = std::max(maxima[i], abs(v));
          squares[i] += static_cast<double>(absSquared(v));
          if (j + first_col[m] == cols + i) diagonal[i] = v;
        }
      }
    }
    DeviceArray<I> counts(device, std::vector<I>(rows, 7));
    DeviceArray<T> out(device, std::vector<T>(rows, T(7)));
    for (const int skip_zero : {0, 1}) {
      Ops::par_csr_row_meta(device, rows, 3, table, counts, out, skip_zero);
      EXPECT_EQ(counts.values(), skip_zero != 0 ? nonzeros : entries);
      EXPECT_EQ(out.values(), sums);
    }
    Ops::par_csr_diag(device, rows, 3, table, out);
    EXPECT_EQ(out.values(), diagonal);

    DeviceArray<R> norms(device, std::vector<R>(rows, R(7)));
    const auto norm = [&](T p) {
      Ops::par_csr_row_norm_lp(device, rows, 3, table, p, norms);
      return norms.values();
    };
    Ops::par_csr_row_norm_topk(device, rows, 3, table, 2, {});
    EXPECT_EQ(norm(T(1)), abs_sums);
    EXPECT_EQ(norm(T(0)), maxima);
    EXPECT_EQ(norm(T(-2)), maxima);
    const std::vector<R> euclidean = norm(T(2));
    for (I i = 0; i < rows; ++i) {
      const double root = std::sqrt(squares[i]);  // truncated for integers
      EXPECT_NEAR(static_cast<double>(euclidean[i]), static_cast<double>(R(root)), 1e-5 * root);
    }
  });
}

TEST(SpBlasQueries, NaNCountsAsAnEntryAndIsNoMaximum) {
  using Ops = SpBlasOps<double, int>;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const Device& device : testDevices()) {
    const DeviceCsr<double> d(device, HostCsr<double>{1, 3, {0, 3}, {0, 1, 2}, {nan, 0, -3}});
    DeviceArray<COT_SpMVCSRRawMat<double, int>> table(device, {d.blockView(0, 0)});
    DeviceArray<int> count(device, std::vector<int>(1));
    DeviceArray<double> out(device, std::vector<double>(1));
    Ops::par_csr_row_meta(device, 1, 1, table, count, out, 1);
    EXPECT_EQ(count.values()[0], 2);
    EXPECT_TRUE(std::isnan(out.values()[0]));
    Ops::par_csr_row_norm_lp(device, 1, 1, table, nan, out);
    EXPECT_EQ(out.values()[0], 3);
    Ops::par_csr_row_norm_lp(device, 1, 1, table, 3, out);
    EXPECT_TRUE(std::isnan(out.values()[0]));
  }
}

}  // namespace
}  // namespace mivo::test
