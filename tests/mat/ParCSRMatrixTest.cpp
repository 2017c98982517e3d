// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/parsparse.hpp"

namespace mivo::test {
namespace {

template <class T>
using Matrix = ParCSRMatrixT<T, long, int>;
template <class T>
using Vector = ParMatrixT<T, long, int>;

template <class T>
class ParCSRMatrixTest : public testing::Test {};
TYPED_TEST_SUITE(ParCSRMatrixTest, ValueTypes);

/// The 2 by 5 matrix {1 . 2 . 3; . 4 . . 5} in column blocks of 2, 0 and 3 columns, the rows in one
/// part.
template <class T>
Matrix<T> threeBlocks(const Device& device) {
  std::vector<CSRMatrixT<T, int>> blocks(3);
  blocks[0] = sparseOf(device, plainRows<T>(2, {{{0, T(1)}}, {{1, T(4)}}}));
  blocks[2] = sparseOf(device, plainRows<T>(3, {{{2, T(3)}, {0, T(2)}}, {{2, T(5)}}}));
  Matrix<T> A;
  A.create(partsAt<long>({0, 2}), partsAt<long>({0, 2, 2, 5}), blocks, device);
  return A;
}

// Products, of which tests/mpi has more.

TEST(ParCSRMatrix, MatrixWithoutEntriesScalesY) {
  for (const Device& device : testDevices()) {
    Matrix<double> A;
    A.create(3, 2, device);
    const Vector<double> x = columnOf(device, A.getColPartitioner(), std::vector<double>{7., 8.});
    Vector<double> y = columnOf(device, A.getRowPartitioner(), std::vector<double>{1., 2., 3.});
    A.aAxpby(1., x, 2., y, nullptr);
    EXPECT_EQ(valuesOf(y), (std::vector<double>{2., 4., 6.}));
    y.fill(std::numeric_limits<double>::quiet_NaN());
    A.aAxpby(1., x, 0., y, nullptr);
    EXPECT_EQ(valuesOf(y), std::vector<double>(3, 0.));
  }
}

TEST(ParCSRMatrix, ProductShapesAResultThatIsNotReadButRefusesOneThatIs) {
  for (const Device& device : testDevices()) {
    Matrix<double> A = parSparseOf(device, plainRows<double>(2, {{{0, 1.}}, {{1, 2.}}, {{0, 3.}}}));
    const Vector<double> x = columnOf(device, A.getColPartitioner(), std::vector<double>{1., 10.});
    Vector<double> y(7, device);
    A.matVec(x, y, nullptr);
    EXPECT_EQ(valuesOf(y), (std::vector<double>{1., 20., 3.}));
    const Matrix<double>& fixed = A;
    y.create(7, device);
    fixed.matVec(x, y, nullptr);
    EXPECT_EQ(valuesOf(y), (std::vector<double>{1., 20., 3.}));
    // The right size in an unusual partition.
    y.create(partsAt<long>({0, 3, 3}), device);
    A.aAxpby(1., x, 0., y, nullptr);
    EXPECT_EQ(valuesOf(y), (std::vector<double>{1., 20., 3.}));
    EXPECT_EQ(y.getRowPartitioner(), A.getRowPartitioner());
    y.create(partsAt<long>({0, 3, 3}), device);
    MIVO_EXPECT_FATAL_TEXT(A.aAxpby(1., x, 1., y, nullptr), "aAxpby: A.rows!= y.rows");
  }
}

TEST(ParCSRMatrix, BlockWithoutEntriesDoesNotDisplaceOneThatIsStored) {
  Matrix<double> A = parSparseOf(Device(), plainRows<double>(2, {{{0, 1.}}, {{1, 2.}}}));
  A.setLocalMatrix({CSRMatrixT<double, int>()});
  EXPECT_EQ(A.getNnzs(), 2);
}

TEST(ParCSRMatrix, EmptyMatrixTakesPartInEverything) {
  for (const Device& device : testDevices()) {
    for (Matrix<double> A : {Matrix<double>(), [&] {
                               Matrix<double> m;
                               m.create(0, 0, device);
                               return m;
                             }()}) {
      Vector<double> x(0, A.getDevice()), y(0, A.getDevice());
      A.aAxpby(1., x, 1., y, nullptr);
      A.aAxpby(1., x, 0., y, nullptr);
      EXPECT_EQ(A.matVec(x).getRows(), 0);
      EXPECT_EQ(A.getNnzs(), 0);
      EXPECT_EQ(A.getLocalRows(), 0);
      EXPECT_EQ(A.getLocalMatrix(-1).getNnz(), 0);
      EXPECT_EQ(A.getDiag().getRows(), 0);
      EXPECT_EQ(A.gather(0).getRows(), 0);
      EXPECT_TRUE(A == A.deepCopy());
      long begin = -1, end = -1;
      A.getOwnerShipRange(&begin, &end);
      EXPECT_EQ(begin, 0);
      EXPECT_EQ(end, 0);
    }
  }
}

TEST(ParCSRMatrix, ProductChecksItsVectorsInOrder) {
  Matrix<double> A = parSparseOf(Device(), plainRows<double>(3, {{{0, 1.}}, {{1, 2.}}}));
  const Vector<double> shortX(2, Device()), foreignX(3, Device(2, 0)),
      selfX(3, Device(), kCommSelf), wide(3, 2, Device());
  Vector<double> y(2, Device()), longY(3, Device()), wideY(2, 2, Device());
  const std::string shape = "aAxpby: A.rows!= y.rows || x.cols != y.cols",
                    short_x = "aAxpby: A.cols != x.rows",
                    device = "aAxpby: A and x must on the same device",
                    comm = "aAxpby: A and x must have the same comm";
  const auto product = [&](const Vector<double>& x, Vector<double>& out) {
    A.aAxpby(1, x, 0, out, nullptr);
  };
  MIVO_EXPECT_FATAL_TEXT(product(shortX, longY), short_x);
  MIVO_EXPECT_FATAL_TEXT(product(foreignX, longY), shape);
  MIVO_EXPECT_FATAL_TEXT(product(wide, y), shape);
  MIVO_EXPECT_FATAL_TEXT(product(foreignX, y), device);
  MIVO_EXPECT_FATAL_TEXT(product(selfX, y), comm);
  MIVO_EXPECT_FATAL_TEXT(product(wide, wideY), "aAxpby: x.cols!= 1");
  const auto exchange = [&](const Vector<double>& x) {
    A.exchangeMatVec(x, nullptr, nullptr, nullptr, nullptr);
  };
  MIVO_EXPECT_FATAL_TEXT(exchange(shortX), short_x);
  MIVO_EXPECT_FATAL_TEXT(exchange(foreignX), device);
  MIVO_EXPECT_FATAL_TEXT(exchange(selfX), comm);
}

// Structure.

TEST(ParCSRMatrix, ColumnBlocksJoinWithGlobalColumns) {
  for (const Device& device : testDevices()) {
    const Matrix<double> A = threeBlocks<double>(device);
    const auto joined = A.getLocalMatrix(-1);
    EXPECT_EQ(plainOf(joined),
              plainRows<double>(5, {{{0, 1.}, {4, 3.}, {2, 2.}}, {{1, 4.}, {4, 5.}}}));
    // One block per rank, however many parts the columns have.
    std::vector<CSRMatrixT<double, int>> perRank(7);
    A.getLocalMatrix(perRank);
    ASSERT_EQ(perRank.size(), 1u);
    EXPECT_EQ(perRank[0].getValues(), A.getLocalMatrix(0).getValues());

    const Matrix<double> single = parSparseOf(device, plainOf(joined));
    EXPECT_EQ(single.getLocalMatrix(-1).getValues(), single.getLocalMatrix(0).getValues());
    EXPECT_TRUE(single == A);
  }
}

TEST(ParCSRMatrix, ElementsOfThePatternCanBeReadAndChanged) {
  for (const Device& device : testDevices()) {
    Matrix<double> A = threeBlocks<double>(device);
    bool found = false;
    EXPECT_EQ(A.getElementValue(0, 4, &found), 3.);
    EXPECT_TRUE(found);
    EXPECT_EQ(A.getElementValue(1, 3, &found), 0.);
    EXPECT_FALSE(found);
    EXPECT_TRUE(A.setElementValue(1, 4, 9.));
    EXPECT_EQ(A.getElementValue(1, 4, nullptr), 9.);
    EXPECT_FALSE(A.setElementValue(0, 3, 9.));
    EXPECT_EQ(A.getNnzs(), 5);

    A.sortRows();
    EXPECT_EQ(plainOf(A.getLocalMatrix(2)), plainRows<double>(3, {{{0, 2.}, {2, 3.}}, {{2, 9.}}}));
    Matrix<double>::scale(A, 2.);
    EXPECT_EQ(valuesOf(A.getDiag()), (std::vector<double>{2., 8.}));
    A.fill(5.);
    EXPECT_EQ(A.getElementValue(0, 2, nullptr), 5.);
    EXPECT_EQ(A.getElementValue(1, 1, nullptr), 5.);
  }
}

TEST(ParCSRMatrix, BlockTableHoldsStoredBlocksAndLeavesThePlanAlone) {
  for (const Device& device : testDevices()) {
    Matrix<double> A = threeBlocks<double>(device);
    Matrix<double>::BlockTable table;
    A.getRawMat(table);
    ASSERT_EQ(table.getSize(), 2);
    ASSERT_EQ(table.getDevice(), Device());
    const auto& last = table.getData()[1];
    EXPECT_EQ(last.rank, 2);
    EXPECT_EQ(last.first_row, 0);
    EXPECT_EQ(last.first_col, 2);
    EXPECT_EQ(last.cols, 3);
    EXPECT_EQ(last.nnz, 3);
    EXPECT_EQ(last.values, A.getLocalMatrix(2).getValues());
    EXPECT_EQ(last.row_end, last.row_begin + 1);
    EXPECT_EQ(table.getData()[0].rank, 0);
    EXPECT_EQ(table.getData()[0].x, nullptr);
    EXPECT_EQ(A.getRawMatOnDev().getDevice().type, device.type);

    Matrix<double> B = parSparseOf(device, plainRows<double>(2, {{{0, 1.}}, {{1, 2.}}}));
    const Vector<double> x(2, device);
    B.matVec(x);
    B.getRawMat(table);
    EXPECT_EQ(table.getData()[0].x, x.getLocalMatrix().getData());
    EXPECT_NE(table.getData()[0].y, nullptr);
  }
}

TEST(ParCSRMatrix, WrongConstructionEndsTheProcess) {
  Matrix<double> A;
  MIVO_EXPECT_FATAL_TEXT(
      A.create(partsAt<long>({0, 2}), partsAt<long>({0, 1, 2}),
               {CSRMatrixT<double, int>(), CSRMatrixT<double, int>(), CSRMatrixT<double, int>()},
               Device()),
      "num of col blocks should equal to the col partitioner size");
  A.create(2, 2, Device());
  Vector<double> d;
  MIVO_EXPECT_FATAL_TEXT(A.getDiag(d, 1), "ParCSRMatrix only support diag with row partition");
}

// Rows and statistics.

TEST(ParCSRMatrix, RowNormsReachOverAllBlocks) {
  for (const Device& device : testDevices()) {
    const Matrix<double> A = threeBlocks<double>(device);
    EXPECT_EQ(valuesOf(A.rowNorm(1.)), (std::vector<double>{6., 9.}));
    EXPECT_EQ(valuesOf(A.rowNorm(0.)), (std::vector<double>{3., 5.}));
    const std::vector<double> n2 = valuesOf(A.rowNorm(2.));
    EXPECT_DOUBLE_EQ(n2[0], std::sqrt(14.));
    EXPECT_DOUBLE_EQ(n2[1], std::sqrt(41.));
  }
}

// Smoothers have forms of their own for all ranks.
TEST(ParCSRMatrix, SweepsOfOneRankFollowTheirFormulas) {
  for (const Device& device : testDevices()) {
    Matrix<double> A =
        parSparseOf(device, plainRows<double>(2, {{{0, 4.}, {1, 2.}}, {{0, 1.}, {1, 8.}}}));
    const auto sweep = [&](const auto& work) {
      const auto part = A.getRowPartitioner();
      const Vector<double> b = columnOf(device, part, std::vector<double>{10., 20.});
      Vector<double> x = columnOf(device, part, std::vector<double>{1., 2.});
      work(b, x);
      return valuesOf(x);
    };
    using Values = std::vector<double>;
    EXPECT_EQ(sweep([&](auto& b, auto& x) { A.jacobi(b, x, 0.5); }), (Values{1.25, 2.1875}));
    EXPECT_EQ(sweep([&](auto& b, auto& x) { A.sor(b, x, 1., true); }), (Values{1.5, 2.3125}));
    EXPECT_EQ(sweep([&](auto& b, auto& x) { A.sor(b, x, 1., false); }), (Values{1.3125, 2.375}));
  }
}

TYPED_TEST(ParCSRMatrixTest, StatisticsCountEntriesThatAreNotZero) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    Matrix<T> A = threeBlocks<T>(device);
    A.setElementValue(0, 2, T(0));
    const auto meta = A.computeMeta();
    EXPECT_EQ(meta.rows, 2);
    EXPECT_EQ(meta.cols, 5);
    EXPECT_EQ(meta.nnzs, 5);
    // Over rows squared, also for a rectangular matrix.
    EXPECT_EQ(meta.sparse, 1.25);
    EXPECT_EQ(meta.row_nnz_min, 2);
    EXPECT_EQ(meta.row_nnz_max, 2);
    EXPECT_EQ(meta.row_nnz_sum, 4);
    EXPECT_EQ(meta.row_nnz_avg, 2);
    EXPECT_EQ(meta.row_sum_min, kIsComplex<T> ? 0 : 4) << "complex minima start from 0";
    EXPECT_EQ(meta.row_sum_max, 9);
    EXPECT_EQ(meta.row_sum_sum, 13);
    EXPECT_EQ(meta.row_sum_avg, 6.5);
  }
}

TEST(ParCSRMatrix, StatisticsPrintAsATableRow) {
  const auto meta = threeBlocks<double>(Device()).computeMeta();
  EXPECT_EQ(meta.getTableHead(),
            "       rows       cols       nnzs     sparse        min        max        avg"
            "        min        max        avg");
  EXPECT_EQ(meta.getString(),
            "          2          5          5  1.250e+00  2.000e+00  3.000e+00  2.500e+00"
            "  6.000e+00  9.000e+00  7.500e+00");
}

TEST(ParCSRMatrix, DumpShowsStoredBlocks) {
  for (const Device& device : testDevices()) {
    std::ostringstream os;
    threeBlocks<double>(device).saveToStream(os, 2);
    const std::string head = "%%MatrixMarket matrix coordinate real general\n";
    EXPECT_EQ(os.str(), "the matrix for process 0/1 is\nblock 0\n" + head +
                            "2 2 2\n1 1 1.00e+00\n2 2 4.00e+00\nblock 2\n" + head +
                            "2 3 3\n1 3 3.00e+00\n1 1 2.00e+00\n2 3 5.00e+00\n");
  }
}

// Copies.

TEST(ParCSRMatrix, CopiesAreIndependentAndKeepThePartition) {
  for (const Device& device : testDevices()) {
    Matrix<double> A = threeBlocks<double>(device);
    A.tagName = "fine";
    const Matrix<double> shared = A, deep = A.deepCopy();
    Matrix<double> moved;
    moved.create(2, 5, device);
    const Matrix<double> handle = moved;
    A.toDevice(device, moved);
    EXPECT_EQ(moved.tagName, "fine");
    EXPECT_EQ(handle.getNnzs(), 5) << "a matrix of the same shape is reused";
    const Matrix<double> onHost = A.toDevice(Device());
    EXPECT_EQ(onHost.getDevice(), Device());
    A.fill(7.);
    EXPECT_EQ(shared.getElementValue(0, 2, nullptr), 7.);
    for (const Matrix<double>& copy : {deep, moved, onHost}) {
      EXPECT_EQ(copy.getColPartitioner(), A.getColPartitioner());
      EXPECT_EQ(copy.getElementValue(0, 2, nullptr), 2.);
      EXPECT_EQ(copy.getLocalMatrix(2).getNnz(), 3);
    }
    EXPECT_FALSE(deep == A);
    A.toDevice(device, A);
    EXPECT_EQ(A.getElementValue(0, 2, nullptr), 7.);
  }
}

// Operations on whole matrices, which tests/mpi/AlgebraTest.cpp compares with references.

TEST(ParCSRMatrixAlgebra, MismatchesEndTheProcess) {
  const auto small = [](const Device& device) {
    return parSparseOf(device, plainRows<double>(2, {{{0, 1.}, {1, 2.}}, {{0, 3.}}}));
  };
  const Matrix<double> A = small(Device());
  Matrix<double> elsewhere = A.deepCopy(), out;
  elsewhere.setComm(kCommSelf);
  MIVO_EXPECT_FATAL_TEXT(A.multiply(elsewhere, out), "A and B should have the same comm");
  MIVO_EXPECT_FATAL_TEXT(Matrix<double>::matadd(1, A, 1, elsewhere, out),
                         "aXpbY: comm should be same");
  Matrix<double> wide, cut;
  wide.create(2, 3, Device());
  cut.create(partsAt<long>({0, 1, 2}), A.getColPartitioner(), {}, Device());
  for (const Matrix<double>& other : {wide, cut}) {
    MIVO_EXPECT_FATAL_TEXT(Matrix<double>::matadd(1, A, 1, other, out),
                           "aXpbY: partition should be same");
  }
  const Matrix<double> tall = parSparseOf(Device(), plainRows<double>(1, {{{0, 1.}}, {}, {}}));
  MIVO_EXPECT_FATAL_TEXT(A.multiply(tall, out), "multiply: mat1.col1 != mat2.row2");
  Vector<double> d(3, Device());
  d.fill(1.0);
  MIVO_EXPECT_FATAL_TEXT(Matrix<double>::axpbyDiag(1, d, 1, Vector<double>(), A, out),
                         "axpbyDiag: partition should be same");
  MIVO_EXPECT_FATAL_TEXT(Matrix<double>::axpbyDiag(1, Vector<double>(), 1, d, A, out),
                         "axpbyDiag: partition should be same");
  Matrix<double> B = A;
  MIVO_EXPECT_FATAL_TEXT(B.matmul_aDA(1, d, out), "matmul_aDA: partition should be same");
  MIVO_EXPECT_FATAL_TEXT(B.matmul_aAD(1, d, out), "matmul_aAD: partition should be same");
  if (testDevices().size() < 2) return;
  const Matrix<double> far = small(testDevices()[1]);
  MIVO_EXPECT_FATAL_TEXT(A.multiply(far, out), "A and B should on the same device");
  MIVO_EXPECT_FATAL_TEXT(Matrix<double>::matadd(1, A, 1, far, out), "aXpbY: device should be same");
}

}  // namespace
}  // namespace mivo::test
