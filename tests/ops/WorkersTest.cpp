// SPDX-License-Identifier: Apache-2.0
/// The workers of the kernel families on a space of three chunks.

#include <gtest/gtest.h>

#include <algorithm>
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

// Against the dispatcher, which runs in one chunk.
TEST(Workers, HaveTheMembersOfTheirDispatchers) {
  OpenMP three(3);
  const Device host;
  using Sparse = SpBlasOpsImpl<double, int, OpenMP>;
  using View = COT_CSRRawMat<double, int>;
  std::vector<int> ptr = {0, 2, 5, 7, 8}, col = {0, 1, 0, 1, 3, 2, 3, 3};
  std::vector<double> val = {4, -1, -1, 4, 2, 3, 5, 8};
  const std::vector<double> x = {1, 2, 3, 4};
  for (const double beta : {0.0, 2.0}) {
    std::vector<double> y(4, 7), expected = y;
    Sparse::aAxpby(three, 0.5, 4, 4, ptr.data(), ptr.data() + 1, col.data(), val.data(), x.data(),
                   beta, y.data());
    SpBlasOps<double, int>::aAxpby(host, 0.5, 4, 4, ptr.data(), ptr.data() + 1, col.data(),
                                   val.data(), x.data(), beta, expected.data());
    EXPECT_EQ(y, expected);
  }
  std::vector<int> c_ptr(5), marker(4);
  const auto multiply = [&](int* c_col, double* c_val) {
    Sparse::csr_matmul(three, 4, 4, 4, ptr.data(), col.data(), val.data(), ptr.data(), col.data(),
                       val.data(), c_ptr.data(), c_col, c_val, marker.data());
  };
  multiply(nullptr, nullptr);
  std::vector<int> c_col(static_cast<std::size_t>(c_ptr[4]));
  std::vector<double> c_val(c_col.size());
  multiply(c_col.data(), c_val.data());
  EXPECT_EQ(c_col, (std::vector<int>{0, 1, 3, 0, 1, 3, 2, 3, 3}));
  EXPECT_EQ(c_val, (std::vector<double>{17, -8, -2, -8, 17, 24, 9, 55, 64}));

  std::vector<int> part_ptr(10);
  std::vector<View> parts = {{4, 2, 0, part_ptr.data(), part_ptr.data() + 1, nullptr, nullptr},
                             {4, 2, 0, part_ptr.data() + 5, part_ptr.data() + 6, nullptr, nullptr}};
  const View a{4, 4, 8, ptr.data(), ptr.data() + 1, col.data(), val.data()};
  const std::vector<int> bounds = {0, 2, 4};
  Sparse::csr_split_cols(three, CSR_MAT_STEP_COUNT, a, 2, bounds.data(), parts.data(), 1);
  EXPECT_EQ(part_ptr, (std::vector<int>{0, 2, 4, 4, 4, 0, 0, 1, 3, 4}));
  std::vector<double> norms(4);
  const COT_SpMVCSRRawMat<double, int> block{4,          4,         8, ptr.data(), ptr.data() + 1,
                                             col.data(), val.data()};
  Sparse::par_csr_row_norm_lp(three, 4, 1, &block, 0.0, norms.data());
  EXPECT_EQ(norms, (std::vector<double>{4, 4, 5, 8}));

  std::vector<double> dense(16, 0), turned(16);
  Sparse::csr2dense(three, 4, 4, ptr.data(), col.data(), val.data(), dense.data());
  MatOpsImpl<double, int, MatrixLayoutRowMajor, OpenMP>::transpose(three, 4, 4, dense.data(), 4,
                                                                   turned.data(), 4);
  EXPECT_EQ(turned[13], 2);
  EXPECT_EQ(turned[1], -1);
  EXPECT_EQ(std::count(turned.begin(), turned.end(), 0.0), 8);

  SpLevelTransferOpsImpl<double, long, int, OpenMP>::hypre_qsort2_abs(three, col.data(), val.data(),
                                                                      0, 7);
  EXPECT_EQ(val, (std::vector<double>{8, 5, 4, 4, 3, 2, -1, -1}));
}

}  // namespace
}  // namespace mivo
