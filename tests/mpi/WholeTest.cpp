// SPDX-License-Identifier: Apache-2.0

// What concerns a vector or a matrix as a whole: its way to and from one rank, reductions and
// statistics. Some ranks own nothing.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "tests/support/operators.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

template <class T>
class WholeOverRanks : public testing::Test {};
using Types = testing::Types<long, float, Complex<double>>;
TYPED_TEST_SUITE(WholeOverRanks, Types);

TYPED_TEST(WholeOverRanks, DenseMatricesTravelFromAndToAnyRank) {
  using T = TypeParam;
  using Local = MatrixT<T, int>;
  for (const auto& [rows, cols] : std::vector<std::pair<int, int>>{{13, 3}, {2, 2}, {0, 0}}) {
    const auto all = smallValues<T>(static_cast<std::size_t>(rows * cols), 5);
    for (const Device& device : rankDevices()) {
      for (int root = 0; root < worldSize(); ++root) {
        ParMatrixT<T, long, int> X;
        const bool mine = worldRank() == root;
        const Local given = mine ? matrixOf<T>(device, rows, cols, all) : Local();
        X.scatter(kCommWorld, root, given);
        EXPECT_EQ(X.getRows(), rows);
        EXPECT_EQ(X.getCols(), cols);
        EXPECT_TRUE(!mine || X.getDevice() == device);
        const auto own = rows > 0 ? ownPart(X.getRowPartitioner(), all, cols) : all;
        EXPECT_EQ(valuesOf(X), own);
        const int other = (root + 1) % worldSize();
        Local back = X.gather(other);
        EXPECT_EQ(valuesOf(back), worldRank() == other ? all : std::vector<T>());
        EXPECT_EQ(back.getRows(), worldRank() == other ? rows : 0);
        EXPECT_TRUE(back.getSize() == 0 || back.getDevice() == X.getDevice());
        back.fill(T(1));
        EXPECT_EQ(valuesOf(X), own) << "gather leaves the matrix alone";
        X.fill(T(1));
        EXPECT_EQ(valuesOf(given), mine ? all : std::vector<T>()) << "the storage is not shared";
      }
      // Fewer parts than ranks.
      PartitionerT<long, int> single;
      single.create(rows, 1);
      ParMatrixT<T, long, int> X;
      const bool first = worldRank() == 0;
      X.scatter(kCommWorld, 0, first ? matrixOf<T>(device, rows, cols, all) : Local(), single);
      EXPECT_EQ(valuesOf(X), first ? all : std::vector<T>());
      EXPECT_EQ(valuesOf(X.gather(0)), first ? all : std::vector<T>());
    }
  }
}

TYPED_TEST(WholeOverRanks, DenseEntriesFindTheirOwnersFromAnyRank) {
  using T = TypeParam;
  const int rows = 7, cols = 2, size = worldSize();
  for (const Device& device : rankDevices()) {
    ParMatrixT<T, long, int> X(rows, cols, device), Y;
    X.fill(T(9));
    X.beginAssemble();
    // Only the last value that a rank sets counts; what ranks have set is summed like what they
    // add.
    std::vector<T> expected(rows * cols, T(0));
    for (int r = 0; r < size; ++r) {
      for (int k = r; k < rows * cols; k += 2) {
        expected[static_cast<std::size_t>(k)] += T(r + 1);
        if (r != worldRank()) continue;
        const bool set = k % 3 > 0;
        if (set) X.setValue(k / cols, k % cols, T(50), SetValueMode::Set);
        X.setValue(k / cols, k % cols, T(r), set ? SetValueMode::Set : SetValueMode::Add);
        if (k % cols == 0) X.setValue(k / cols, T(1), SetValueMode::Add);
        if (k % cols != 0) X.setValue(k / cols, k % cols, T(1), SetValueMode::Add);
      }
    }
    EXPECT_EQ(valuesOf(X), std::vector<T>(valuesOf(X).size(), T(9))) << "before endAssemble";
    X.endAssemble();
    EXPECT_EQ(valuesOf(X), ownPart(X.getRowPartitioner(), expected, cols));
    EXPECT_EQ(X.getLocalMatrix().getDevice().type, device.type);
    X.beginAssemble();
    X.endAssemble();
    EXPECT_EQ(valuesOf(X), std::vector<T>(valuesOf(X).size(), T(0)));

    // Rank r gives its first r rows, the first rank nothing.
    std::vector<T> given, sums;
    for (int k = 0; k < 2 * worldRank(); ++k) given.push_back(T(k + 1));
    Y.createByAssemble(matrixOf<T, long>(device, worldRank(), given.empty() ? 0 : 2, given),
                       kCommWorld);
    EXPECT_EQ(Y.getRows(), size - 1);
    EXPECT_EQ(Y.getCols(), size > 1 ? 2 : 0);
    for (int k = 0; k + 2 < 2 * size; ++k) sums.push_back(T((size - 1 - k / 2) * (k + 1)));
    EXPECT_EQ(valuesOf(Y.gather(0)), worldRank() == 0 ? sums : std::vector<T>());
  }
}

TYPED_TEST(WholeOverRanks, ReductionsReachOverRanksWithAndWithoutRows) {
  using T = TypeParam;
  using R = RealType<T>;
  using Vector = ParMatrixT<T, long, int>;
  std::mt19937 rng(23);
  const int n = 19;
  auto a = smallValues<T>(n, 3);
  const auto b = smallValues<T>(n, 4);
  a[n / 2] = T(R(5));
  T dot(0), sum(0);
  R sizes(0), squares(0), cubes(0), least(0), most(0), largest(0);
  for (std::size_t k = 0; k < a.size(); ++k) {
    dot += conj(a[k]) * b[k];
    sum += a[k];
    const R size = static_cast<R>(abs(a[k]));
    sizes += size;
    squares += absSquared(a[k]);
    cubes += absSquared(a[k]) * size;
    least = std::min(least, realPart(a[k]));
    most = std::max(most, realPart(a[k]));
    largest = std::max(largest, size);
  }
  forEachCut(n, rng, [&](const auto& part, const Device& device) {
    const auto x = ownColumn(device, part, a), y = ownColumn(device, part, b);
    EXPECT_EQ(Vector::dot(x, y), dot);
    const auto near = [](R got, R wanted) {
      EXPECT_NEAR(static_cast<double>(got), static_cast<double>(wanted),
                  1e-6 * (1 + static_cast<double>(wanted)));
    };
    near(Vector::absSum(x, R(2)), squares);
    near(Vector::absSum(x, R(3)), cubes);
    near(Vector::normL1(x), sizes);
    near(Vector::normL2(x), static_cast<R>(std::sqrt(squares)));
    near(Vector::absMax(x), largest);
    x.min_max_sum(nullptr, nullptr, nullptr);
    T min(0), max(0), total(0);
    x.min_max_sum(&min, &max, &total);
    EXPECT_EQ(realPart(min), least);
    EXPECT_EQ(realPart(max), most);
    EXPECT_EQ(total, sum);
  });
}

TYPED_TEST(WholeOverRanks, SparseMatricesTravelAndTellOfAllTheirRows) {
  using T = TypeParam;
  using R = RealType<T>;
  using Matrix = ParSparse<T>;
  std::mt19937 rng(41);
  for (const auto& [rows, cols] : std::vector<std::pair<int, int>>{{17, 17}, {2, 6}, {0, 3}}) {
    const HostCsr<T> a = randomCsr<T>(rng, rows, cols);
    const std::vector<T> dense = a.dense();
    std::vector<T> diagonal;
    std::vector<R> norms;
    double most = 0;
    for (int i = 0; i < rows; ++i) {
      norms.push_back(R(0));
      double count = 0;
      for (const auto& [j, v] : a.row(i)) {
        norms.back() += static_cast<R>(abs(v));
        count += isZero(v) ? 0 : 1;
      }
      most = std::max(most, count);
      diagonal.push_back(i < cols ? dense[static_cast<std::size_t>(i * cols + i)] : T(0));
    }
    forCuts({rows, cols}, rng, [&](const Device& device, const auto& parts) {
      const int root = worldSize() - 1, rank = worldRank();
      const auto S = Matrix::scatter(kCommWorld, root,
                                     rank == root ? sparseOf(device, a) : CSRMatrixT<T, int>());
      EXPECT_EQ(S.getRows(), a.rows);
      EXPECT_EQ(S.getCols(), a.cols);
      EXPECT_TRUE(rank != root || S.getDevice() == device);
      Matrix A = distributed(device, parts[0], parts[1], a);
      const auto whole = A.gather(root);
      EXPECT_EQ(plainOf(whole).dense(), rank == root ? dense : std::vector<T>());
      EXPECT_TRUE(whole.getNnz() == 0 || whole.getDevice() == device);
      EXPECT_TRUE(A == S.toDevice(device));
      EXPECT_EQ(valuesOf(A.getDiag()), ownPart(parts[0], diagonal));
      if constexpr (!std::is_integral_v<T>) {
        expectNear(valuesOf(A.rowNorm(1)), ownPart(parts[0], norms));
      }
      const auto meta = A.computeMeta();
      EXPECT_EQ(meta.nnzs, static_cast<long>(a.values.size()));
      EXPECT_TRUE(a.rows == 0 || meta.row_nnz_max == most) << meta.row_nnz_max << ", " << most;
      // An entry is known to its row's owner only.
      for (int i = 0; i < a.rows; ++i) {
        const bool own = i >= rangeOf(parts[0]).first && i < rangeOf(parts[0]).second;
        for (const auto& [j, v] : a.row(i)) {
          bool found = false;
          EXPECT_EQ(A.getElementValue(i, j, &found), own ? v : T(0));
          EXPECT_EQ(found, own);
          EXPECT_EQ(A.setElementValue(i, j, T(7)), own);
        }
      }
    });
  }
}

}  // namespace
}  // namespace mivo::test
