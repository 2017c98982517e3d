// SPDX-License-Identifier: Apache-2.0

// The exchange tools with the objects that pack themselves. The cases hold for any number of ranks:
// what rank `from` sends to rank `to` is a function of the two, and is empty for some.

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

#include "mivo/comu/communication_tools.hpp"
#include "tests/support/dense.hpp"
#include "tests/support/sparse.hpp"
#include "tests/support/world.hpp"

namespace mivo::test {
namespace {

bool isEmpty(int from, int to) { return (from + 2 * to) % 3 == 0; }

template <class T>
HostCsr<T> plainFor(int from, int to) {
  if (isEmpty(from, to)) return {};
  std::mt19937 rng(static_cast<unsigned>(10 * from + to));
  return randomCsr<T>(rng, 4 + from, 3 + to);
}

template <class T>
CSRMatrixT<T, int> sparseFor(int from, int to) {
  return isEmpty(from, to) ? CSRMatrixT<T, int>() : sparseOf(Device(), plainFor<T>(from, to));
}

template <class T>
MatrixT<T, int> denseFor(int from, int to) {
  if (isEmpty(from, to)) return {};
  const std::size_t n = static_cast<std::size_t>((1 + from) * (2 + to));
  return matrixOf<T>(Device(), 1 + from, 2 + to,
                     smallValues<T>(n, static_cast<unsigned>(10 * from + to)));
}

template <class T>
bool same(const CSRMatrixT<T, int>& m, int from, int to) {
  return m.getCols() == plainFor<T>(from, to).cols && plainOf(m) == plainFor<T>(from, to);
}

template <class T>
bool same(const MatrixT<T, int>& m, int from, int to) {
  const MatrixT<T, int> expected = denseFor<T>(from, to);
  return m.getRows() == expected.getRows() && m.getCols() == expected.getCols() &&
         valuesOf(m) == valuesOf(expected);
}

template <class T>
class MatrixMessages : public testing::Test {};
TYPED_TEST_SUITE(MatrixMessages, ValueTypes);

TYPED_TEST(MatrixMessages, SparseMatricesReachTheirRanksAloneAndInMaps) {
  using T = TypeParam;
  using Matrix = CSRMatrixT<T, int>;
  std::vector<Matrix> send, recv;
  std::vector<std::map<int, Matrix>> sendMaps, recvMaps;
  for (int i = 0; i < worldSize(); ++i) {
    send.push_back(sparseFor<T>(worldRank(), i));
    sendMaps.emplace_back();
    if (!isEmpty(worldRank(), i)) sendMaps.back() = {{-3, send.back()}, {7, Matrix()}};
  }
  comu::sparse_send_recv_stream(kCommWorld, send, recv);
  comu::sparse_send_recv_stream(kCommWorld, sendMaps, recvMaps);
  ASSERT_EQ(recv.size(), send.size());
  ASSERT_EQ(recvMaps.size(), send.size());
  for (int i = 0; i < worldSize(); ++i) {
    const std::size_t at = static_cast<std::size_t>(i);
    EXPECT_TRUE(same(recv[at], i, worldRank())) << "from " << i;
    EXPECT_EQ(recvMaps[at].size(), isEmpty(i, worldRank()) ? 0u : 2u) << "from " << i;
    if (recvMaps[at].size() != 2) continue;
    EXPECT_TRUE(same(recvMaps[at][-3], i, worldRank())) << "from " << i;
    EXPECT_EQ(recvMaps[at][7].getRows(), 0);
  }
  const std::size_t own = static_cast<std::size_t>(worldRank());
  EXPECT_EQ(recv[own].getValues(), send[own].getValues()) << "the own matrix is a handle";
}

/// One object of each rank to the root, and one for each rank from the root.
template <class Matrix, class Make>
void scatterAndGather(const Make& make) {
  for (int root = 0; root < worldSize(); ++root) {
    std::vector<Matrix> all, collected;
    if (worldRank() == root) {
      for (int i = 0; i < worldSize(); ++i) all.push_back(make(root, i));
    }
    Matrix mine = make(5, 3);  // what it holds before is replaced
    comu::stlmpi_scatter_stream(kCommWorld, all, mine, root);
    EXPECT_TRUE(same(mine, root, worldRank())) << "root " << root;

    comu::stlmpi_gather_stream(kCommWorld, make(worldRank(), root), collected, root);
    EXPECT_EQ(collected.size(), worldRank() == root ? static_cast<std::size_t>(worldSize()) : 0u);
    for (std::size_t i = 0; i < collected.size(); ++i) {
      EXPECT_TRUE(same(collected[i], static_cast<int>(i), root)) << "from " << i;
    }
  }
}

TYPED_TEST(MatrixMessages, ScatterAndGatherMoveMatricesAlsoEmptyOnes) {
  using T = TypeParam;
  scatterAndGather<MatrixT<T, int>>(denseFor<T>);
  scatterAndGather<CSRMatrixT<T, int>>(sparseFor<T>);
}

}  // namespace
}  // namespace mivo::test
