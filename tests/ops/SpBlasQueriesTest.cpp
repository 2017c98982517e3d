// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>
#include <type_traits>

#include "tests/ops/SpBlasTypes.hpp"

namespace mivo::test {
namespace {

template <class Pair>
class SpBlasQueries : public SpBlasSuite<Pair> {};
TYPED_TEST_SUITE(SpBlasQueries, SpBlasTypes);

TYPED_TEST(SpBlasQueries, ElementCountsOfRowsAndColumns) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr a = this->random(rows, cols);
    const DeviceMatrix d(device, a);
    std::vector<I> by_row(rows, 0);
    std::vector<I> by_col(cols, 0);
    for (I i = 0; i < rows; ++i) {
      for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
        ++by_row[i];
        ++by_col[a.col_idx[k]];
      }
    }
    DeviceArray<I> row_counts(device, std::vector<I>(rows, 7));
    DeviceArray<I> col_counts(device, std::vector<I>(cols, 7));
    Ops::get_row_element_count(device, d.view(), rows, row_counts.data());
    Ops::get_col_element_count(device, d.view(), cols, col_counts.data());
    EXPECT_EQ(row_counts.values(), by_row);
    EXPECT_EQ(col_counts.values(), by_col);
  });
}

TYPED_TEST(SpBlasQueries, ElementsAreReadAndOverwrittenButNeverInserted) {
  MIVO_SPBLAS_TYPES;
  for (const Device& device : testDevices()) {
    Csr a;  // row 0: (3, 5) (1, 6) and a second entry in column 3; row 1 empty
    a.cols = 4;
    a.push(3, T(5));
    a.push(1, T(6));
    a.push(3, T(7));
    a.endRow();
    a.endRow();
    const DeviceMatrix d(device, a);
    DeviceArray<T> value(device, std::vector<T>{T(9)});
    DeviceArray<int> found(device, std::vector<int>{9});
    const auto expectElement = [&](I row, I col, T v, int f) {
      Ops::get_element_value(device, 2, 4, d.rowptr(), d.col_idx(), d.values(), row, col,
                             value.data(), found.data());
      EXPECT_EQ(value.values()[0], v);
      EXPECT_EQ(found.values()[0], f);
    };
    expectElement(0, 3, T(5), 1);
    expectElement(0, 1, T(6), 1);
    expectElement(0, 0, T(0), 0);
    expectElement(1, 3, T(0), 0);
    Ops::set_element_value(device, 2, 4, d.rowptr(), d.col_idx(), d.values(), 0, 3, T(1),
                           found.data());
    EXPECT_EQ(found.values()[0], 1);
    Ops::set_element_value(device, 2, 4, d.rowptr(), d.col_idx(), d.values(), 1, 3, T(2),
                           found.data());
    EXPECT_EQ(found.values()[0], 0);
    EXPECT_EQ(d.host().values, (std::vector<T>{T(1), T(6), T(7)}));
  }
}

TYPED_TEST(SpBlasQueries, RowsOfABlockTable) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    // Global columns: ghosts [0, cols), own [cols, cols + rows), ghosts [cols + rows, cols + rows +
    // 5)
    const std::vector<Csr> a = {this->random(rows, cols), this->random(rows, rows),
                                this->random(rows, 5)};
    const std::vector<I> first_col = {0, cols, cols + rows};
    std::vector<DeviceMatrix> matrices;
    std::vector<COT_SpMVCSRRawMat<T, I>> blocks;
    for (int m = 0; m < 3; ++m) {
      matrices.emplace_back(device, a[m]);
      blocks.push_back(matrices[m].blockView(cols, first_col[m]));
    }
    DeviceArray<COT_SpMVCSRRawMat<T, I>> table(device, blocks);
    std::vector<I> entries(rows, 0);
    std::vector<I> nonzeros(rows, 0);
    std::vector<T> sums(rows, T(0));
    std::vector<T> diagonal(rows, T(0));
    std::vector<R> abs_sums(rows, R(0));
    std::vector<R> maxima(rows, R(0));
    std::vector<R> euclid(rows, R(0));
    for (I i = 0; i < rows; ++i) {
      double squares = 0;
      for (int m = 0; m < 3; ++m) {
        for (I k = a[m].rowptr[i]; k < a[m].rowptr[i + 1]; ++k) {
          const T v = a[m].values[k];
          ++entries[i];
          nonzeros[i] += v != T(0) ? 1 : 0;
          sums[i] += v;
          abs_sums[i] += abs(v);
          maxima[i] = std::max(maxima[i], abs(v));
          squares += static_cast<double>(absSquared(v));
          if (a[m].col_idx[k] + first_col[m] == cols + i) diagonal[i] = v;
        }
      }
      euclid[i] = static_cast<R>(std::sqrt(squares));
    }
    DeviceArray<I> counts(device, std::vector<I>(rows, 7));
    DeviceArray<T> out(device, std::vector<T>(rows, T(7)));
    for (const int skip_zero : {0, 1}) {
      Ops::par_csr_row_meta(device, rows, 3, table.data(), counts.data(), out.data(), skip_zero);
      EXPECT_EQ(counts.values(), skip_zero != 0 ? nonzeros : entries);
      EXPECT_EQ(out.values(), sums);
    }
    Ops::par_csr_diag(device, rows, 3, table.data(), out.data());
    EXPECT_EQ(out.values(), diagonal);

    DeviceArray<R> norms(device, std::vector<R>(rows, R(7)));
    Ops::par_csr_row_norm_topk(device, rows, 3, table.data(), 2, {});
    Ops::par_csr_row_norm_lp(device, rows, 3, table.data(), T(1), norms.data());
    EXPECT_EQ(norms.values(), abs_sums);
    for (const T p : {T(0), T(-2)}) {
      Ops::par_csr_row_norm_lp(device, rows, 3, table.data(), p, norms.data());
      EXPECT_EQ(norms.values(), maxima);
    }
    Ops::par_csr_row_norm_lp(device, rows, 3, table.data(), T(2), norms.data());
    const std::vector<R> found = norms.values();
    for (I i = 0; i < rows; ++i) {
      EXPECT_NEAR(static_cast<double>(found[i]), static_cast<double>(euclid[i]), 1e-5 * euclid[i]);
    }
  });
}

TEST(SpBlasQueries, NaNCountsAsAnEntryAndIsNoMaximum) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const Device& device : testDevices()) {
    HostCsr<double> a;
    a.cols = 3;
    a.push(0, nan);
    a.push(1, 0);
    a.push(2, -3);
    a.endRow();
    const DeviceCsr<double> d(device, a);
    DeviceArray<COT_SpMVCSRRawMat<double, int>> table(device, {d.blockView(0, 0)});
    DeviceArray<int> count(device, std::vector<int>(1));
    DeviceArray<double> out(device, std::vector<double>(1));
    SpBlasOps<double, int>::par_csr_row_meta(device, 1, 1, table.data(), count.data(), out.data(),
                                             1);
    EXPECT_EQ(count.values()[0], 2);
    EXPECT_TRUE(std::isnan(out.values()[0]));
    SpBlasOps<double, int>::par_csr_row_norm_lp(device, 1, 1, table.data(), nan, out.data());
    EXPECT_EQ(out.values()[0], 3);
    SpBlasOps<double, int>::par_csr_row_norm_lp(device, 1, 1, table.data(), 3, out.data());
    EXPECT_TRUE(std::isnan(out.values()[0]));
  }
}

}  // namespace
}  // namespace mivo::test
