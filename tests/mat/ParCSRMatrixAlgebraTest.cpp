// SPDX-License-Identifier: Apache-2.0

// What a world of one can show of the operations on whole matrices: their messages, and small cases
// by hand. tests/mpi/AlgebraTest.cpp compares them with references on any number of ranks.

#include <gtest/gtest.h>

#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/parsparse.hpp"

namespace mivo {
namespace {

using test::columnOf;
using test::parSparseOf;
using test::partsAt;
using test::plainOf;
using test::plainRows;
using test::testDevices;

using Matrix = ParCSRMatrixT<double, long, int>;
using Vector = ParMatrixT<double, long, int>;

Matrix small(const Device& device = Device()) {
  return parSparseOf(device, plainRows<double>(2, {{{0, 1.}, {1, 2.}}, {{0, 3.}}}));
}

TEST(ParCSRMatrixAlgebra, SmallMatricesByHand) {
  for (const Device& device : testDevices()) {
    const Matrix A = small(device);
    EXPECT_EQ(plainOf(A.multiply(A).getLocalMatrix(0)),
              plainRows<double>(2, {{{0, 7.}, {1, 2.}}, {{0, 3.}, {1, 6.}}}));
    Matrix turned = A.transpose();
    turned.sortRows();
    EXPECT_EQ(plainOf(turned.getLocalMatrix(0)),
              plainRows<double>(2, {{{0, 1.}, {1, 3.}}, {{0, 2.}}}));
    Matrix out;
    Matrix::matadd(1, A, 10, A.transpose(), out);
    EXPECT_EQ(plainOf(out.getLocalMatrix(0)),
              plainRows<double>(2, {{{0, 11.}, {1, 32.}}, {{0, 23.}}}));
    const auto d = columnOf(device, A.getRowPartitioner(), std::vector<double>{5., 7.});
    Matrix::axpbyDiag(2, d, -1, Vector(), A, out);
    EXPECT_EQ(plainOf(out.getLocalMatrix(0)),
              plainRows<double>(2, {{{0, 9.}, {1, 2.}}, {{0, 3.}, {1, 14.}}}));
    // b 0 leaves the old diagonal unread; without d1 nothing is added to it.
    Matrix::axpbyDiag(2, Vector(), 0, d, A, out);
    EXPECT_EQ(plainOf(out.getLocalMatrix(0)),
              plainRows<double>(2, {{{0, 0.}, {1, 2.}}, {{0, 3.}, {1, 0.}}}));
    // In place, for all handles.
    Matrix scaled = A.deepCopy();
    scaled.matmul_aDA(2, d, out);
    scaled.matmul_aAD(1, d, scaled);
    EXPECT_EQ(plainOf(out.getLocalMatrix(0)),
              plainRows<double>(2, {{{0, 50.}, {1, 140.}}, {{0, 210.}}}));
    EXPECT_EQ(out.getLocalMatrix(0).getValues(), scaled.getLocalMatrix(0).getValues());
    EXPECT_EQ(plainOf(A.sparsify(1).getLocalMatrix(0)),
              plainRows<double>(2, {{{1, 2.}}, {{0, 3.}}}));
  }
}

TEST(ParCSRMatrixAlgebra, MismatchesEndTheProcess) {
  const Matrix A = small();
  Matrix elsewhere = A.deepCopy(), out;
  elsewhere.setComm(kCommSelf);
  MIVO_EXPECT_FATAL_TEXT(A.multiply(elsewhere, out), "A and B should have the same comm");
  MIVO_EXPECT_FATAL_TEXT(Matrix::matadd(1, A, 1, elsewhere, out), "aXpbY: comm should be same");
  Matrix wide, cut;
  wide.create(2, 3, Device());
  cut.create(partsAt<long>({0, 1, 2}), A.getColPartitioner(), {}, Device());
  for (const Matrix& other : {wide, cut}) {
    MIVO_EXPECT_FATAL_TEXT(Matrix::matadd(1, A, 1, other, out), "aXpbY: partition should be same");
  }
  const Matrix tall = parSparseOf(Device(), plainRows<double>(1, {{{0, 1.}}, {}, {}}));
  MIVO_EXPECT_FATAL_TEXT(A.multiply(tall, out), "multiply: mat1.col1 != mat2.row2");
  Vector d(3, Device());
  d.fill(1.0);
  MIVO_EXPECT_FATAL_TEXT(Matrix::axpbyDiag(1, d, 1, Vector(), A, out),
                         "axpbyDiag: partition should be same");
  MIVO_EXPECT_FATAL_TEXT(Matrix::axpbyDiag(1, Vector(), 1, d, A, out),
                         "axpbyDiag: partition should be same");
  Matrix B = A;
  MIVO_EXPECT_FATAL_TEXT(B.matmul_aDA(1, d, out), "matmul_aDA: partition should be same");
  MIVO_EXPECT_FATAL_TEXT(B.matmul_aAD(1, d, out), "matmul_aAD: partition should be same");
  if (testDevices().size() < 2) return;
  const Matrix far = small(testDevices()[1]);
  MIVO_EXPECT_FATAL_TEXT(A.multiply(far, out), "A and B should on the same device");
  MIVO_EXPECT_FATAL_TEXT(Matrix::matadd(1, A, 1, far, out), "aXpbY: device should be same");
}

}  // namespace
}  // namespace mivo
