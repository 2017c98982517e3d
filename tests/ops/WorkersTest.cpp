// SPDX-License-Identifier: Apache-2.0
/// The workers of the kernel families on a space of three chunks.

#include <gtest/gtest.h>

#include <vector>

#include "mivo/mivo.hpp"

namespace mivo {
namespace {

using spm::OpenMP;

TEST(Workers, RunInChunksAndJoinPartialSums) {
  OpenMP three(3), one;
  using Ops = BlasOpsImpl<double, int, OpenMP>;
  // Chunks of 2, 2 and 1: the second one loses its 1 beside the large number.
  const std::vector<double> x = {1, 1e16, -1e16, 1, 2}, ones(5, 1.0);
  EXPECT_EQ(Ops::dot(one, 5, x.data(), ones.data()), 3);
  EXPECT_EQ(Ops::dot(three, 5, x.data(), ones.data()), 2);
  double least = 0, most = 0;
  Ops::min_max_sum(three, 5, x.data(), &least, &most, nullptr);
  EXPECT_EQ(least, -1e16);
  EXPECT_EQ(most, 1e16);

  std::vector<int> rounded(5);
  MixedBlasOpsImpl<int, double, int, OpenMP>::copy(three, 3, ones.data(), rounded.data());
  EXPECT_EQ(rounded, (std::vector<int>{1, 1, 1, 0, 0}));
}

// One of each family, whose rows are cut into chunks.
TEST(Workers, HaveTheMembersOfTheirDispatchers) {
  OpenMP three(3);
  using Sparse = SpBlasOpsImpl<double, int, OpenMP>;
  std::vector<int> ptr = {0, 2, 5, 7, 8}, col = {0, 1, 0, 1, 3, 2, 3, 3};
  std::vector<double> val = {4, -1, -1, 4, 2, 3, 5, 8}, y(4, 7);
  const std::vector<double> x = {1, 2, 3, 4};
  Sparse::aAxpby(three, 0.5, 4, 4, ptr.data(), ptr.data() + 1, col.data(), val.data(), x.data(),
                 2.0, y.data());
  EXPECT_EQ(y, (std::vector<double>{15, 21.5, 28.5, 30}));
  std::vector<int> c_ptr(5), marker(4), c_col(9);
  std::vector<double> c_val(9);
  for (const bool fill : {false, true}) {
    Sparse::csr_matmul(three, 4, 4, 4, ptr.data(), col.data(), val.data(), ptr.data(), col.data(),
                       val.data(), c_ptr.data(), fill ? c_col.data() : nullptr,
                       fill ? c_val.data() : nullptr, marker.data());
  }
  EXPECT_EQ(c_ptr, (std::vector<int>{0, 3, 6, 8, 9}));
  EXPECT_EQ(c_col, (std::vector<int>{0, 1, 3, 0, 1, 3, 2, 3, 3}));
  EXPECT_EQ(c_val, (std::vector<double>{17, -8, -2, -8, 17, 24, 9, 55, 64}));
  std::vector<double> norms(4);
  const COT_SpMVCSRRawMat<double, int> block{4,          4,         8, ptr.data(), ptr.data() + 1,
                                             col.data(), val.data()};
  Sparse::par_csr_row_norm_lp(three, 4, 1, &block, 0.0, norms.data());
  EXPECT_EQ(norms, (std::vector<double>{4, 4, 5, 8}));

  std::vector<double> turned(6);
  MatOpsImpl<double, int, MatrixLayoutRowMajor, OpenMP>::transpose(three, 3, 2, val.data(), 2,
                                                                   turned.data(), 3);
  EXPECT_EQ(turned, (std::vector<double>{4, -1, 2, -1, 4, 3}));
  SpLevelTransferOpsImpl<double, long, int, OpenMP>::hypre_qsort2_abs(three, col.data(), val.data(),
                                                                      0, 7);
  EXPECT_EQ(val, (std::vector<double>{8, 5, 4, 4, 3, 2, -1, -1}));
}

}  // namespace
}  // namespace mivo
