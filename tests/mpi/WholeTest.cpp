// SPDX-License-Identifier: Apache-2.0

// What concerns a vector or a matrix as a whole: its way to and from one rank, reductions,
// statistics, and stationary solvers. Some ranks own nothing.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "mivo/solver/ParSolver.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "tests/support/operators.hpp"
#include "tests/support/ranks.hpp"

namespace mivo {
namespace {

using test::distributed;
using test::HostCsr;
using test::ownColumn;
using test::ownPart;
using test::rankDevices;
using test::valuesOf;
using test::worldCuts;
using test::worldRank;
using test::worldSize;

template <class T>
class WholeOverRanks : public testing::Test {};
using ValueTypes = testing::Types<long, float, Complex<double>>;
TYPED_TEST_SUITE(WholeOverRanks, ValueTypes);

TYPED_TEST(WholeOverRanks, DenseMatricesTravelFromAndToAnyRank) {
  using T = TypeParam;
  using Local = MatrixT<T, int>;
  for (const auto& [rows, cols] : std::vector<std::pair<int, int>>{{13, 3}, {2, 2}, {0, 0}}) {
    const auto all = test::smallValues<T>(static_cast<std::size_t>(rows * cols), 5);
    for (const Device& device : rankDevices()) {
      for (int root = 0; root < worldSize(); ++root) {
        ParMatrixT<T, long, int> X;
        const bool mine = worldRank() == root;
        X.scatter(kCommWorld, root, mine ? test::matrixOf<T>(device, rows, cols, all) : Local());
        long begin = 0, end = 0;
        X.getOwnerShipRange(&begin, &end);
        const std::vector<T> own(all.begin() + begin * cols, all.begin() + end * cols);
        EXPECT_EQ(valuesOf(X.getLocalMatrix()), own);
        const int other = (root + 1) % worldSize();
        EXPECT_EQ(valuesOf(X.gather(other)), worldRank() == other ? all : std::vector<T>());
        EXPECT_EQ(valuesOf(X.getLocalMatrix()), own) << "gather leaves the matrix alone";
      }
      // Fewer parts than ranks.
      PartitionerT<long, int> single;
      single.create(rows, 1);
      ParMatrixT<T, long, int> X;
      const bool first = worldRank() == 0;
      X.scatter(kCommWorld, 0, first ? test::matrixOf<T>(device, rows, cols, all) : Local(),
                single);
      EXPECT_EQ(valuesOf(X.getLocalMatrix()), first ? all : std::vector<T>());
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
        X.setValue(k / cols, k % cols, T(50), SetValueMode::Set);
        X.setValue(k / cols, k % cols, T(r), SetValueMode::Set);
        X.setValue(k / cols, k % cols, T(1), SetValueMode::Add);
      }
    }
    X.endAssemble();
    long begin = 0, end = 0;
    X.getOwnerShipRange(&begin, &end);
    EXPECT_EQ(valuesOf(X.getLocalMatrix()),
              std::vector<T>(expected.begin() + begin * cols, expected.begin() + end * cols));

    // Rank r gives ones in the first r rows, the first rank nothing.
    MatrixT<T, long> part;
    part.create(worldRank(), worldRank() > 0 ? 1 : 0, Device());
    part.fill(T(1));
    Y.createByAssemble(part, kCommWorld);
    EXPECT_EQ(Y.getRows(), size - 1);
    std::vector<T> sums;
    for (int i = 0; i + 1 < size; ++i) sums.push_back(T(size - 1 - i));
    EXPECT_EQ(valuesOf(Y.gather(0)), worldRank() == 0 ? sums : std::vector<T>());
  }
}

TYPED_TEST(WholeOverRanks, ReductionsReachOverRanksWithAndWithoutRows) {
  using T = TypeParam;
  using R = RealType<T>;
  std::mt19937 rng(23);
  const int n = 19;
  auto a = test::smallValues<T>(n, 3);
  const auto b = test::smallValues<T>(n, 4);
  a[n / 2] = T(R(5));
  T dot(0), sum(0);
  R squares(0), least(0), most(0), largest(0);
  for (std::size_t k = 0; k < a.size(); ++k) {
    dot += conj(a[k]) * b[k];
    sum += a[k];
    squares += absSquared(a[k]);
    least = std::min(least, realPart(a[k]));
    most = std::max(most, realPart(a[k]));
    largest = std::max(largest, static_cast<R>(abs(a[k])));
  }
  for (const auto& part : worldCuts<long>(n, rng)) {
    for (const Device& device : rankDevices()) {
      const auto x = ownColumn(device, part, a), y = ownColumn(device, part, b);
      using Vector = ParMatrixT<T, long, int>;
      EXPECT_EQ(Vector::dot(x, y), dot);
      EXPECT_NEAR(static_cast<double>(Vector::absSum(x, R(2))), static_cast<double>(squares), 1e-4);
      EXPECT_NEAR(static_cast<double>(Vector::absMax(x)), static_cast<double>(largest), 1e-6);
      T min(0), max(0), total(0);
      x.min_max_sum(&min, &max, &total);
      EXPECT_EQ(realPart(min), least);
      EXPECT_EQ(realPart(max), most);
      EXPECT_EQ(total, sum);
    }
  }
}

TYPED_TEST(WholeOverRanks, SparseMatricesTravelAndTellOfAllTheirRows) {
  using T = TypeParam;
  using R = RealType<T>;
  using Matrix = ParCSRMatrixT<T, long, int>;
  std::mt19937 rng(41);
  for (const auto& [rows, cols] : std::vector<std::pair<int, int>>{{17, 17}, {2, 6}}) {
    const HostCsr<T> a = test::randomCsr<T>(rng, rows, cols);
    const std::vector<T> dense = a.dense();
    const auto row_cuts = worldCuts<long>(rows, rng), col_cuts = worldCuts<long>(cols, rng);
    for (const Device& device : rankDevices()) {
      const int root = worldSize() - 1;
      const Matrix S = Matrix::scatter(
          kCommWorld, root, worldRank() == root ? test::sparseOf(device, a) : CSRMatrixT<T, int>());
      for (std::size_t k = 0; k < row_cuts.size(); ++k) {
        const auto& part = row_cuts[k];
        Matrix A = distributed<T, long>(device, part, col_cuts[(k + 1) % col_cuts.size()], a);
        const auto whole = test::plainOf(A.gather(root));
        EXPECT_EQ(whole.dense(), worldRank() == root ? dense : std::vector<T>());
        EXPECT_TRUE(A == S.toDevice(device));
        std::vector<T> diagonal;
        std::vector<R> norms;
        double most = 0;
        for (int i = 0; i < rows; ++i) {
          R norm(0);
          double count = 0;
          for (const auto& [j, v] : a.row(i)) {
            norm += static_cast<R>(abs(v));
            count += isZero(v) ? 0 : 1;
          }
          norms.push_back(norm);
          most = std::max(most, count);
          diagonal.push_back(i < cols ? dense[static_cast<std::size_t>(i * cols + i)] : T(0));
        }
        EXPECT_EQ(valuesOf(A.getDiag().getLocalMatrix()), ownPart(part, diagonal));
        if constexpr (!std::is_integral_v<T>) {
          test::expectNear(valuesOf(A.rowNorm(1).getLocalMatrix()), ownPart(part, norms));
        }
        const auto meta = A.computeMeta();
        EXPECT_EQ(meta.nnzs, static_cast<long>(a.values.size()));
        EXPECT_EQ(meta.row_nnz_max, most);
        // An entry is known to its row's owner only.
        long begin = 0, end = 0;
        A.getOwnerShipRange(&begin, &end);
        for (int i = 0; i < rows; ++i) {
          const bool own = i >= begin && i < end;
          for (const auto& [j, v] : a.row(i)) {
            bool found = false;
            EXPECT_EQ(A.getElementValue(i, j, &found), own ? v : T(0));
            EXPECT_EQ(found, own);
            EXPECT_EQ(A.setElementValue(i, j, T(7)), own);
          }
        }
      }
    }
  }
}

/// A solve with a stationary method: iterations, and this rank's part of x.
template <class T>
std::pair<int, std::vector<T>> solveBy(const std::string& name, const json& params,
                                       ParCSRMatrixT<T, long, int> A,
                                       const ParMatrixT<T, long, int>& b) {
  auto solver = ParSolverT<T, long, int>::getFactory().createInstance(
      {{"solver_type", name}, {name + "_params", params}});
  auto x = b.deepCopy();
  x.fill(T(0));
  solver->setup(A);
  int iterations = 0;
  RealType<T> relres = 1;
  solver->solve(A, b, x, iterations, relres);
  return {iterations, valuesOf(x.getLocalMatrix())};
}

TEST(WholeOverRanksOnce, StationarySolversReachTheSolutionOnAnyCut) {
  using T = Complex<double>;
  std::mt19937 rng(7);
  const int n = 12;
  const auto a = HostCsr<T>::build(n, n, [&](int i, HostCsr<T>& out) {
    for (int j = 0; j < n; ++j) {
      if (j == i) out.push(j, T(20, 1));
      if (j != i && (i + 2 * j) % 3 == 0) out.push(j, test::smallValue<T>(rng) * T(0.4));
    }
  });
  const auto solution = test::smallVector<T>(rng, n);
  const auto b = test::denseAxpby(a.dense(), T(1), solution, T(0), solution);
  int jacobi_iterations = 0;
  for (const auto& part : worldCuts<long>(n, rng)) {
    const auto A = distributed<T, long>(Device(), part, part, a);
    const auto rhs = ownColumn(Device(), part, b);
    const auto expected = ownPart(part, solution);
    const auto jacobi = solveBy<T>("SolverJacobi", json::object(), A, rhs);
    if (jacobi_iterations == 0) jacobi_iterations = jacobi.first;
    EXPECT_EQ(jacobi.first, jacobi_iterations) << "Jacobi does not see the cuts";
    const auto lp = solveBy<T>("SolverJacobiLp", {{"order", 2}}, A, rhs);
    for (const auto& found : {jacobi, lp, solveBy<T>("SolverSOR", {{"rtol", 1e-10}}, A, rhs)}) {
      EXPECT_LT(found.first, 200);
      ASSERT_EQ(found.second.size(), expected.size());
      for (std::size_t k = 0; k < expected.size(); ++k) {
        EXPECT_LT(abs(found.second[k] - expected[k]), 1e-6) << k;
      }
    }
  }
}

}  // namespace
}  // namespace mivo
