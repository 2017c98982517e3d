// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <future>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/parsparse.hpp"

// What holds on any number of ranks is tested in tests/mpi.

namespace mivo::test {
namespace {

using Matrix = ParSparse<double>;
using Local = CSRMatrixT<double, int>;
using Vector = ParMatrixT<double, long, int>;
using Plan = SpMVCommPatternT<double, long, int>;
using Values = std::vector<double>;

const auto rowsOf = plainRows<double>;

Vector column(const Matrix& A, const PartitionerT<long, int>& part, const Values& values) {
  return columnOf(A.getDevice(), part, values);
}

/// The 2 by 5 matrix {1 . 2 . 3; . 4 . . 5} in column blocks of 2, 0 and 3 columns, the rows in one
/// part.
template <class T = double>
ParSparse<T> threeBlocks(const Device& device) {
  std::vector<CSRMatrixT<T, int>> blocks(3);
  blocks[0] = sparseOf(device, plainRows<T>(2, {{{0, T(1)}}, {{1, T(4)}}}));
  blocks[2] = sparseOf(device, plainRows<T>(3, {{{2, T(3)}, {0, T(2)}}, {{2, T(5)}}}));
  ParSparse<T> A;
  A.create(partsAt<long>({0, 2}), partsAt<long>({0, 2, 2, 5}), blocks, device);
  return A;
}

TEST(ParCSRMatrix, MatrixWithoutEntriesScalesY) {
  for (const Device& device : testDevices()) {
    Matrix A;
    A.create(3, 2, device);
    const Vector x = column(A, A.getColPartitioner(), {7, 8});
    Vector y = column(A, A.getRowPartitioner(), {1, 2, 3});
    A.aAxpby(1, x, 2, y, nullptr);
    EXPECT_EQ(valuesOf(y), (Values{2, 4, 6}));
    y.fill(std::numeric_limits<double>::quiet_NaN());
    A.aAxpby(1, x, 0, y, nullptr);
    EXPECT_EQ(valuesOf(y), Values(3, 0));
    A = Matrix();
    Vector none;
    A.aAxpby(1, none, 1, none, nullptr);
    EXPECT_EQ(A.matVec(none).getRows() + A.getDiag().getRows() + A.getLocalRows(), 0);
    EXPECT_EQ(A.getLocalMatrix(-1).getNnz() + A.gather(0).getRows(), 0);
    EXPECT_TRUE(A == A.deepCopy());
  }
}

TEST(ParCSRMatrix, ProductShapesAResultThatIsNotReadButRefusesOneThatIs) {
  for (const Device& device : testDevices()) {
    Matrix A = parSparseOf(device, rowsOf(2, {{{0, 1}}, {{1, 2}}, {{0, 3}}}));
    const Matrix& fixed = A;
    const Vector x = column(A, A.getColPartitioner(), {1, 10});
    const Values expected = {1, 20, 3};
    Vector y(7, device);
    A.matVec(x, y, nullptr);
    EXPECT_EQ(valuesOf(y), expected);
    y.create(7, device);
    fixed.matVec(x, y, nullptr);
    EXPECT_EQ(valuesOf(y), expected);
    // The right size in an unusual partition.
    y.create(partsAt<long>({0, 3, 3}), device);
    A.aAxpby(1, x, 0, y, nullptr);
    EXPECT_EQ(valuesOf(y), expected);
    EXPECT_EQ(y.getRowPartitioner(), A.getRowPartitioner());
    y.create(partsAt<long>({0, 3, 3}), device);
    MIVO_EXPECT_FATAL_TEXT(A.aAxpby(1, x, 1, y, nullptr), "aAxpby: A.rows!= y.rows");
  }
}

TEST(ParCSRMatrix, ProductChecksItsVectorsInOrder) {
  Matrix A = parSparseOf(Device(), rowsOf(3, {{{0, 1}}, {{1, 2}}}));
  const Vector shortX(2, Device()), foreignX(3, Device(2, 0)), selfX(3, Device(), kCommSelf),
      wide(3, 2, Device());
  Vector y(2, Device()), longY(3, Device()), wideY(2, 2, Device());
  const std::string shape = "aAxpby: A.rows!= y.rows || x.cols != y.cols",
                    short_x = "aAxpby: A.cols != x.rows",
                    device = "aAxpby: A and x must on the same device",
                    comm = "aAxpby: A and x must have the same comm";
  const auto product = [&](const Vector& x, Vector& out) { A.aAxpby(1, x, 0, out, nullptr); };
  MIVO_EXPECT_FATAL_TEXT(product(shortX, longY), short_x);
  MIVO_EXPECT_FATAL_TEXT(product(foreignX, longY), shape);
  MIVO_EXPECT_FATAL_TEXT(product(wide, y), shape);
  MIVO_EXPECT_FATAL_TEXT(product(foreignX, y), device);
  MIVO_EXPECT_FATAL_TEXT(product(selfX, y), comm);
  MIVO_EXPECT_FATAL_TEXT(product(wide, wideY), "aAxpby: x.cols!= 1");
  const auto exchange = [&](const Vector& x) {
    A.exchangeMatVec(x, nullptr, nullptr, nullptr, nullptr);
  };
  MIVO_EXPECT_FATAL_TEXT(exchange(shortX), short_x);
  MIVO_EXPECT_FATAL_TEXT(exchange(foreignX), device);
  MIVO_EXPECT_FATAL_TEXT(exchange(selfX), comm);
  Plan plan;
  MIVO_EXPECT_FATAL_TEXT(plan.create(kCommWorld, Device(), partsAt<long>({0, 3}), {}), "");
  plan.create(A);
  const auto direct = [&](const auto& x) { plan.exchange(x, nullptr, nullptr, nullptr, nullptr); };
  MIVO_EXPECT_FATAL_TEXT(direct(foreignX), device);
  MIVO_EXPECT_FATAL_TEXT(direct(foreignX.getLocalMatrix()), device);
  MIVO_EXPECT_FATAL_TEXT(direct(selfX), comm);
  Vector cut;
  cut.create(partsAt<long>({0, 1, 1, 5}), Device());
  A = threeBlocks(Device());
  MIVO_EXPECT_FATAL_TEXT(product(cut, y), short_x + " (the partitions differ)");
}

TEST(ParCSRMatrix, ExchangeOfOneRankLeavesTheHandleAloneAndNeedsNoCalls) {
  for (const Device& device : testDevices()) {
    Plan plan;
    plan.create(parSparseOf(device, rowsOf(2, {{{0, 1}, {1, 2}}, {{1, 3}}})));
    Plan::AsyncMatVecObject async;
    plan.exchange(Vector(2, device), nullptr, nullptr, nullptr, &async);
    // A handle that was touched would be ready.
    EXPECT_THROW(async.wait(), std::future_error);
  }
}

TEST(ParCSRMatrix, ColumnBlocksJoinWithGlobalColumns) {
  for (const Device& device : testDevices()) {
    const Matrix A = threeBlocks(device);
    const auto joined = A.getLocalMatrix(-1);
    EXPECT_EQ(plainOf(joined), rowsOf(5, {{{0, 1}, {4, 3}, {2, 2}}, {{1, 4}, {4, 5}}}));
    // One block per rank, however many parts the columns have.
    std::vector<Local> perRank(7);
    A.getLocalMatrix(perRank);
    ASSERT_EQ(perRank.size(), 1u);
    EXPECT_EQ(perRank[0].getValues(), A.getLocalMatrix(0).getValues());

    Matrix single = parSparseOf(device, plainOf(joined));
    EXPECT_EQ(single.getLocalMatrix(-1).getValues(), single.getLocalMatrix(0).getValues());
    EXPECT_TRUE(single == A);
    single.setLocalMatrix({Local()});
    EXPECT_EQ(single.getNnzs(), 5) << "no entries do not displace those that are stored";
  }
}

TEST(ParCSRMatrix, ElementsOfThePatternAndTheirNormsCanBeReadAndChanged) {
  for (const Device& device : testDevices()) {
    Matrix A = threeBlocks(device);
    EXPECT_EQ(valuesOf(A.rowNorm(1)), (Values{6, 9}));
    EXPECT_EQ(valuesOf(A.rowNorm(0)), (Values{3, 5}));
    EXPECT_DOUBLE_EQ(valuesOf(A.rowNorm(2))[1], std::sqrt(41.));
    bool found = true;
    EXPECT_EQ(A.getElementValue(1, 3, &found), 0);
    EXPECT_FALSE(found);
    EXPECT_TRUE(A.setElementValue(1, 4, 9));
    EXPECT_EQ(A.getElementValue(1, 4, &found), 9);
    EXPECT_TRUE(found);
    EXPECT_FALSE(A.setElementValue(0, 3, 9));
    EXPECT_EQ(A.getNnzs(), 5);

    A.sortRows();
    EXPECT_EQ(plainOf(A.getLocalMatrix(2)), rowsOf(3, {{{0, 2}, {2, 3}}, {{2, 9}}}));
    Matrix::scale(A, 2);
    EXPECT_EQ(valuesOf(A.getDiag()), (Values{2, 8}));
    A.fill(5);
    EXPECT_EQ(valuesOf(A.rowNorm(1)), (Values{15, 10}));
  }
}

// Smoothers have forms of their own for all ranks.
TEST(ParCSRMatrix, SweepsOfOneRankFollowTheirFormulas) {
  for (const Device& device : testDevices()) {
    Matrix A = parSparseOf(device, rowsOf(2, {{{0, 4}, {1, 2}}, {{0, 1}, {1, 8}}}));
    const auto part = A.getRowPartitioner();
    const Vector b = column(A, part, {10, 20});
    const auto sweep = [&](const auto& work) {
      Vector x = column(A, part, {1, 2});
      work(x);
      return valuesOf(x);
    };
    EXPECT_EQ(sweep([&](auto& x) { A.jacobi(b, x, 0.5); }), (Values{1.25, 2.1875}));
    EXPECT_EQ(sweep([&](auto& x) { A.sor(b, x, 1, true); }), (Values{1.5, 2.3125}));
    EXPECT_EQ(sweep([&](auto& x) { A.sor(b, x, 1, false); }), (Values{1.3125, 2.375}));
  }
}

// Zeros do not count; the sparsity is over rows squared, also for a rectangular matrix; complex
// minima start from 0.
TEST(ParCSRMatrix, StatisticsPrintAsATableRow) {
  for (const Device& device : testDevices()) {
    Matrix A = threeBlocks(device);
    A.setElementValue(1, 4, 0);
    const auto meta = A.computeMeta();
    EXPECT_EQ(meta.getTableHead(),
              "       rows       cols       nnzs     sparse        min        max        avg"
              "        min        max        avg");
    EXPECT_EQ(meta.getString(),
              "          2          5          5  1.250e+00  1.000e+00  3.000e+00  2.000e+00"
              "  4.000e+00  6.000e+00  5.000e+00");
    EXPECT_EQ(meta.row_nnz_sum, 4);
    EXPECT_EQ(meta.row_sum_sum, 10);
    EXPECT_EQ(threeBlocks<Complex<float>>(device).computeMeta().row_sum_min, 0);
  }
}

TEST(ParCSRMatrix, DumpShowsStoredBlocks) {
  for (const Device& device : testDevices()) {
    std::ostringstream os;
    threeBlocks(device).saveToStream(os, 2);
    const std::string head = "%%MatrixMarket matrix coordinate real general\n";
    EXPECT_EQ(os.str(), "the matrix for process 0/1 is\nblock 0\n" + head +
                            "2 2 2\n1 1 1.00e+00\n2 2 4.00e+00\nblock 2\n" + head +
                            "2 3 3\n1 3 3.00e+00\n1 1 2.00e+00\n2 3 5.00e+00\n");
  }
}

TEST(ParCSRMatrix, CopiesAreIndependentAndKeepThePartition) {
  for (const Device& device : testDevices()) {
    Matrix A = threeBlocks(device);
    A.tagName = "fine";
    const Matrix shared = A, deep = A.deepCopy(), onHost = A.toDevice(Device());
    Matrix moved;
    moved.create(2, 5, device);
    const Matrix handle = moved;
    A.toDevice(device, moved);
    EXPECT_EQ(moved.tagName, "fine");
    EXPECT_EQ(handle.getNnzs(), 5) << "a matrix of the same shape is reused";
    EXPECT_EQ(onHost.getDevice(), Device());
    A.fill(7);
    EXPECT_EQ(shared.getElementValue(0, 2, nullptr), 7);
    for (const Matrix& copy : {deep, moved, onHost}) {
      EXPECT_EQ(copy.getColPartitioner(), A.getColPartitioner());
      EXPECT_EQ(copy.getElementValue(0, 2, nullptr), 2);
      EXPECT_EQ(copy.getLocalMatrix(2).getNnz(), 3);
    }
    EXPECT_FALSE(deep == A);
    A.toDevice(device, A);
    EXPECT_EQ(A.getElementValue(0, 2, nullptr), 7);
  }
}

TEST(ParCSRMatrix, MismatchesEndTheProcess) {
  const auto small = [](const Device& device) {
    return parSparseOf(device, rowsOf(2, {{{0, 1}, {1, 2}}, {{0, 3}}}));
  };
  Matrix A = small(Device()), wide, cut, out;
  Vector d(3, Device());
  const Vector none;
  MIVO_EXPECT_FATAL_TEXT(
      A.create(partsAt<long>({0, 2}), partsAt<long>({0, 1, 2}), std::vector<Local>(3), Device()),
      "num of col blocks should equal to the col partitioner size");
  MIVO_EXPECT_FATAL_TEXT(A.getDiag(d, 1), "ParCSRMatrix only support diag with row partition");
  Matrix elsewhere = A.deepCopy();
  elsewhere.setComm(kCommSelf);
  MIVO_EXPECT_FATAL_TEXT(A.multiply(elsewhere, out), "A and B should have the same comm");
  MIVO_EXPECT_FATAL_TEXT(Matrix::matadd(1, A, 1, elsewhere, out), "aXpbY: comm should be same");
  wide.create(2, 3, Device());
  cut.create(partsAt<long>({0, 1, 2}), A.getColPartitioner(), {}, Device());
  for (const Matrix& other : {wide, cut}) {
    MIVO_EXPECT_FATAL_TEXT(Matrix::matadd(1, A, 1, other, out), "aXpbY: partition should be same");
  }
  const Matrix tall = parSparseOf(Device(), rowsOf(1, {{{0, 1}}, {}, {}}));
  MIVO_EXPECT_FATAL_TEXT(A.multiply(tall, out), "multiply: mat1.col1 != mat2.row2");
  const std::string same = "partition should be same";
  MIVO_EXPECT_FATAL_TEXT(Matrix::axpbyDiag(1, d, 1, none, A, out), "axpbyDiag: " + same);
  MIVO_EXPECT_FATAL_TEXT(Matrix::axpbyDiag(1, none, 1, d, A, out), "axpbyDiag: " + same);
  MIVO_EXPECT_FATAL_TEXT(A.matmul_aDA(1, d, out), "matmul_aDA: " + same);
  MIVO_EXPECT_FATAL_TEXT(A.matmul_aAD(1, d, out), "matmul_aAD: " + same);
  if (testDevices().size() < 2) return;
  const Matrix far = small(testDevices()[1]);
  MIVO_EXPECT_FATAL_TEXT(A.multiply(far, out), "A and B should on the same device");
  MIVO_EXPECT_FATAL_TEXT(Matrix::matadd(1, A, 1, far, out), "aXpbY: device should be same");
}

// Assembly.

TEST(ParCSRAssembly, BothWaysOfAssemblyAddInTheOrderGiven) {
  const Device device;
  // Sums that depend on their order, and zeros of both signs.
  const std::vector<std::vector<std::pair<int, double>>> rows = {
      {{1, 1e16}, {0, -0.0}, {1, 1.}, {1, -1e16}, {2, 0.1}, {2, 0.2}, {2, 0.3}},
      {{2, 0.3}, {2, 0.2}, {0, 1.}, {2, 0.1}, {0, -1.}, {1, 1e-320}}};
  HostCsr<double, long> given;
  given.cols = 3;
  Matrix byValue, byMatrix;
  byValue.create(2, 3, device);
  byValue.beginAssemble();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    for (const auto& entry : rows[i]) {
      given.push(entry.first, entry.second);
      byValue.setValue(static_cast<long>(i), entry.first, entry.second, SetValueMode::Add);
    }
    given.endRow();
  }
  byValue.endAssemble();
  byMatrix.createByAssemble(sparseOf(device, given), kCommWorld);
  const HostCsr<double> expected =
      plainRows<double>(3, {{{0, 0.0}, {1, (1e16 + 1.) - 1e16}, {2, (0.1 + 0.2) + 0.3}},
                            {{0, 0.0}, {1, 1e-320}, {2, (0.3 + 0.2) + 0.1}}});
  for (const Matrix& A : {byValue, byMatrix}) {
    const HostCsr<double> result = plainOf(A.getLocalMatrix(0));
    EXPECT_EQ(result, expected);
    expectSameBits(result.values, expected.values);
  }
}

TEST(ParCSRAssembly, EachBeginningForgetsWhatWasSetAndEachEndReplacesTheMatrix) {
  for (const Device& device : testDevices()) {
    Matrix A;
    A.create(2, 2, device);
    const auto x = columnOf(device, A.getColPartitioner(), std::vector<double>{1., 10.});
    A.beginAssemble();
    A.setValue(0, 0, 9., SetValueMode::Set);
    A.beginAssemble();
    A.setValue(1, 0, 2., SetValueMode::Set);
    A.endAssemble();
    EXPECT_EQ(valuesOf(A.matVec(x)), (std::vector<double>{0., 2.}));
    A.beginAssemble();
    A.endAssemble();
    EXPECT_EQ(A.getNnzs(), 0);
    EXPECT_EQ(valuesOf(A.matVec(x)), (std::vector<double>{0., 0.}));
  }
}

TEST(ParCSRAssembly, TraversalVisitsAndChangesAnOpenAssembly) {
  Matrix A;
  A.create(3, 3, Device());
  std::map<long, long> counts;
  const auto countRow = [&](long row, long count) {
    counts[row] += count;
    return false;  // does not stop the walk
  };
  A.traversal(countRow, nullptr);
  A.beginAssemble();
  A.setValue(2, 1, 4., SetValueMode::Set);
  A.setValue(0, 0, 1., SetValueMode::Set);
  A.setValue(2, 2, 5., SetValueMode::Set);
  A.traversal(countRow, [](long, long col, double& value) {
    value += 100. * static_cast<double>(col);
    return false;
  });
  A.endAssemble();
  EXPECT_EQ(plainOf(A.getLocalMatrix(0)),
            (plainRows<double>(3, {{{0, 1.}}, {}, {{1, 104.}, {2, 205.}}})));
  A.traversal(countRow, nullptr);
  EXPECT_EQ(counts, (std::map<long, long>{{0, 1}, {2, 2}}));
}

TEST(ParCSRAssembly, WhatLiesOutsideTheMatrixEndsTheProcess) {
  Matrix A;
  A.create(4, 4, Device());
  MIVO_EXPECT_FATAL_TEXT(A.setValue(0, 0, 1., SetValueMode::Set),
                         "setValue: beginAssemble must come first");
  MIVO_EXPECT_FATAL_TEXT(A.endAssemble(), "endAssemble: beginAssemble must come first");
  const std::string outside = " lies outside the matrix";
  for (const long at : {4L, -1L}) {
    A.beginAssemble();
    A.setValue(0, at, 1., SetValueMode::Set);
    MIVO_EXPECT_FATAL_TEXT(A.endAssemble(), "endAssemble: column " + std::to_string(at) + outside);
    A.beginAssemble();
    A.setValue(at, 0, 1., SetValueMode::Set);
    MIVO_EXPECT_FATAL_TEXT(A.endAssemble(), "endAssemble: row " + std::to_string(at) + outside);
  }
  Matrix narrow;
  narrow.create(3, 0, Device());
  narrow.beginAssemble();
  narrow.setValue(0, 0, 1., SetValueMode::Set);
  MIVO_EXPECT_FATAL_TEXT(narrow.endAssemble(), "endAssemble: column 0 lies outside the matrix");
}

}  // namespace
}  // namespace mivo::test
