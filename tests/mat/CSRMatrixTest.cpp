// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/Partitioner.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/sparse.hpp"

// The kernels are tested in tests/ops, whole products and sums in tests/mpi.

namespace mivo::test {
namespace {

using M = CSRMatrixT<double, int>;
using Vector = MatrixT<double, int>;
using Rows = std::vector<std::vector<std::pair<int, double>>>;

const auto rowsOf = plainRows<double>;

M on(const Device& device, int cols, const Rows& rows) {
  return sparseOf(device, rowsOf(cols, rows));
}

void expectDefault(const M& m) {
  EXPECT_EQ(m.getRows(), 0);
  EXPECT_EQ(m.getCols(), 0);
  EXPECT_EQ(m.getNnz(), 0);
  EXPECT_EQ(m.getDevice(), Device());
  EXPECT_EQ(m.getRowPtr(), nullptr);
  EXPECT_EQ(m.getColIdx(), nullptr);
  EXPECT_EQ(m.getValues(), nullptr);
}

TEST(CSRMatrix, IsEmptyShapedOrComplete) {
  expectDefault(M());
  for (const Device& device : testDevices()) {
    M m;
    m.create(0, 5, 0, device);
    EXPECT_EQ(m.getCols(), 5);
    EXPECT_EQ(m.getRowPtr(), nullptr);
    EXPECT_EQ(m.evaluateNnzs(), 0);

    m.create(3, 5, 0, device);
    EXPECT_EQ(plainOf(m).rowptr, (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(m.getColIdx(), nullptr);
    const int rowptr[] = {0, 1, 1, 2};
    Device().rawCopyTo(sizeof rowptr, rowptr, device, m.getRowPtr());
    EXPECT_EQ(m.evaluateNnzs(), 2);
    EXPECT_EQ(m.getNnz(), 0);
    m.resizeNnz(2, 0);
    EXPECT_EQ(m.getNnz(), 2);
    EXPECT_EQ(m.getCols(), 5);
    EXPECT_NE(m.getColIdx(), nullptr);
    MIVO_EXPECT_FATAL_TEXT(m.resizeNnz(2, 0), "");
    m.create(2, 5, 0, device);
    m.resizeNnz(0, 7);
    EXPECT_EQ(m.getCols(), 7);
    EXPECT_EQ(m.getValues(), nullptr);
  }
}

TEST(CSRMatrix, ResizeKeepsEntriesOfEqualRowsAndIsSeenByAllHandles) {
  for (const Device& device : testDevices()) {
    M m = on(device, 3, {{{0, 1}}, {{2, 2}}});
    const M handle = m;
    m.resize(2, 9, m.getDevice());
    EXPECT_EQ(handle.getCols(), 9);
    EXPECT_EQ(handle.getNnz(), 2);
    m.resize(4, 3, m.getDevice());
    EXPECT_EQ(handle.getNnz(), 0);
    EXPECT_EQ(handle.getColIdx(), nullptr);
    EXPECT_EQ(plainOf(handle).rowptr, std::vector<int>(5, 0));
    m.create(1, 1, 1, device);
    EXPECT_EQ(handle.getRows(), 4);
  }
}

TEST(CSRMatrix, CopiesDuplicateAndAnEmptyMatrixLosesItsShape) {
  std::mt19937 rng(3);
  for (const Device& device : testDevices()) {
    const auto plain = randomCsr<double>(rng, 9, 6);
    const M m = sparseOf(device, plain);
    M copy;
    m.deepCopy(copy);
    EXPECT_EQ(plainOf(copy), plain);
    EXPECT_NE(copy.getValues(), m.getValues());
    M::scale(copy, 0);
    const double* storage = copy.getValues();
    m.deepCopy(copy);
    EXPECT_EQ(copy.getValues(), storage) << "storage of equal shape is reused";
    EXPECT_EQ(plainOf(copy), plain);
    EXPECT_EQ(plainOf(m.toDevice(Device())), plain);
    EXPECT_NE(m.toDevice(device).getValues(), m.getValues());

    CSRMatrixT<float, int> structure;
    m.copyStructure(structure);
    EXPECT_EQ(plainOf(structure).rowptr, plain.rowptr);
    EXPECT_EQ(plainOf(structure).col_idx, plain.col_idx);
    EXPECT_NE(structure.getColIdx(), m.getColIdx());

    M shaped;
    shaped.create(4, 4, 0, device);
    expectDefault(shaped.toDevice(device));
    shaped.deepCopy(copy);
    expectDefault(copy);
  }
}

TEST(CSRMatrix, ProductsAndSumsLeaveEmptyOperandsOut) {
  using Values = std::vector<double>;
  for (const Device& device : testDevices()) {
    const Rows unsorted = {{{2, 1}, {0, 2}}, {{1, 3}}};
    const M m = on(device, 3, unsorted);
    const auto x = matrixOf<double>(device, 3, 1, {1, 10, 100});
    Vector y;
    m.aAxpby(2, x, 0, y);
    EXPECT_EQ(valuesOf(y), (Values{204, 60}));
    m.aAxpby(2, x, 3, y);
    EXPECT_EQ(valuesOf(y), (Values{816, 240}));
    M().aAxpby(1, y, 1, y);
    EXPECT_EQ(y.getSize(), 0) << "an empty matrix clears y, unchecked";
    y = x;
    m.aAxpby(1, Vector(), 1, y);
    EXPECT_EQ(y.getSize(), 0);

    M out = m;
    m.multiply(M(), out);
    expectDefault(out);
    M().multiply(m, out);
    expectDefault(out);
    M::matadd(2, M(), -3, M(), out);
    expectDefault(out);
    // The other is copied in its order.
    M::matadd(2, m, -3, M(), out);
    EXPECT_EQ(plainOf(out), rowsOf(3, {{{2, 2}, {0, 4}}, {{1, 6}}}));
    M scaled = m;  // B's own storage
    M::matadd(5, M(), 3, m, scaled);
    EXPECT_EQ(plainOf(scaled), rowsOf(3, {{{2, 3}, {0, 6}}, {{1, 9}}}));
    EXPECT_EQ(plainOf(m), rowsOf(3, unsorted));
    M::matadd(2, m, -3, m, out);  // sorts its operands
    EXPECT_EQ(plainOf(out), rowsOf(3, {{{0, -2}, {2, -1}}, {{1, -3}}}));
  }
}

TEST(CSRMatrix, ResultMayBeAnOperandOrHoldEntriesAlready) {
  std::mt19937 rng(9);
  for (const Device& device : testDevices()) {
    const auto plain = randomCsr<double>(rng, 7, 7);
    const M handle = sparseOf(device, plain);
    // A result without entries is filled in place, for all its handles.
    M shaped, square;
    shaped.create(7, 7, 0, device);
    square.create(7, 7, 0, device);
    const M alias = square;
    handle.multiply(handle, square);
    EXPECT_EQ(plainOf(alias), plainOf(square));
    M m = handle;
    m.multiply(m, m);
    EXPECT_EQ(plainOf(m), plainOf(square));
    EXPECT_EQ(plainOf(handle), plain) << "the other handle keeps the operand";
    handle.multiply(handle, m);
    EXPECT_EQ(plainOf(m), plainOf(square));
    M::matadd(1, m, -1, m, m);
    EXPECT_EQ(plainOf(m).dense(), std::vector<double>(49, 0));
    // A selection or a diagonal update is built afresh, also from and into a matrix without
    // entries.
    M left = shaped, right = shaped, update = shaped;
    handle.getSelectedCols(0, 7, left, 0);
    handle.getSelectedRows(MatrixT<int, int>::range(0, 3, 1), right, false);
    EXPECT_EQ(plainOf(left), plain);
    EXPECT_EQ(right.getRows(), 3);
    const auto ones = matrixOf<double>(device, 7, 1, std::vector<double>(7, 1));
    update.axpbyDiag(3, ones, 1, Vector(), update);
    EXPECT_EQ(plainOf(update),
              HostCsr<double>::build(7, 7, [](int i, auto& out) { out.push(i, 3); }));
    EXPECT_EQ(shaped.getNnz(), 0);
  }
}

TEST(CSRMatrix, SelectionsOfNothingHaveAShapeWhereTheyCan) {
  for (const Device& device : testDevices()) {
    const M m = on(device, 4, {{{3, 1}}, {{0, 2}, {2, 3}}, {}, {{1, 4}}});
    const auto list = matrixOf<int>(device, 3, 1, {3, 1, 3});
    M out;
    m.getSelectedRows(list, out, false);
    EXPECT_EQ(plainOf(out), rowsOf(4, {{{1, 4}}, {{0, 2}, {2, 3}}, {{1, 4}}}));
    EXPECT_EQ(out.getCols(), 4);
    m.getSelectedRows(IndexVector(), out, true);
    EXPECT_EQ(plainOf(out), rowsOf(4, {{}, {}, {}, {}}));
    m.getSelectedRows(IndexVector(), out, false);
    expectDefault(out);
    // The 0 by 0 matrix may stand for any shape without entries.
    M().getSelectedRows(list, out, false);
    EXPECT_EQ(out.getRows(), 3);
    EXPECT_EQ(out.getNnz(), 0);
  }
}

TEST(CSRMatrix, BlocksJoinToTheWholeAndEmptyOnesKeepTheirPlace) {
  const auto part = partsAt<long>({0, 1, 1, 5}), rows = partsAt<long>({0, 2, 4, 6});
  for (const Device& device : testDevices()) {
    const M m = on(device, 5, {{{3, 1}, {0, 2}, {2, 3}}, {{4, 4}}});
    std::vector<M> blocks;
    m.splitCols(part, blocks);
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(plainOf(blocks[0]), rowsOf(1, {{{0, 2}}, {}}));
    expectDefault(blocks[1]);
    const M joined = M::mergeCols(part, blocks), nothing = M::mergeCols(part, std::vector<M>(3));
    EXPECT_EQ(joined.getCols(), 5);
    EXPECT_EQ(plainOf(joined), rowsOf(5, {{{0, 2}, {3, 1}, {2, 3}}, {{4, 4}}}));
    EXPECT_EQ(nothing.getRows(), 0);
    EXPECT_EQ(nothing.getCols(), 5);
    m.splitCols(partsAt<long>({0, 5}), blocks);
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0].getValues(), m.getValues());
    M().splitCols(part, blocks);
    EXPECT_TRUE(blocks.empty());

    const M stacked = M::mergeRows(rows, std::vector<M>{M(), joined, M()});
    EXPECT_EQ(plainOf(stacked), rowsOf(5, {{}, {}, {{0, 2}, {3, 1}, {2, 3}}, {{4, 4}}, {}, {}}));
    EXPECT_EQ(stacked.getCols(), 5);
    EXPECT_EQ(plainOf(M::mergeRows(rows, std::vector<M>(3))).rowptr, std::vector<int>(7, 0));
    expectDefault(M::mergeRows(rows, std::vector<M>()));
  }
}

TEST(CSRMatrix, LookupsStayInsideThePattern) {
  for (const Device& device : testDevices()) {
    const Rows rows = {{{3, 1}, {0, 0}}, {}, {{1, 2}}};
    M m = on(device, 4, rows);
    bool found = false;
    EXPECT_EQ(m.getElementValue(2, 1, &found), 2);
    EXPECT_TRUE(found);
    EXPECT_EQ(m.getElementValue(0, 0, &found), 0);
    EXPECT_TRUE(found);
    for (const auto& [row, col] : {std::pair{1, 1}, {0, 2}, {-1, 0}, {3, 0}, {0, 9}}) {
      EXPECT_EQ(m.getElementValue(row, col, &found), 0);
      EXPECT_FALSE(found);
      EXPECT_FALSE(m.setElementValue(row, col, 9));
    }
    EXPECT_EQ(plainOf(m), rowsOf(4, rows));
    EXPECT_TRUE(m.setElementValue(0, 0, 8));
    EXPECT_EQ(m.getElementValue(0, 0, nullptr), 8);
  }
}

TEST(CSRMatrix, EqualityIgnoresOrderAndStoredZeros) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const Device& device : testDevices()) {
    const M m = on(device, 3, {{{2, 1}, {0, 2}}, {}}), broken = on(device, 3, {{{0, nan}}});
    EXPECT_TRUE(m == on(device, 3, {{{0, 2}, {2, 1}}, {{1, 0}}}));
    EXPECT_FALSE(m == on(device, 3, {{{0, 2}, {2, 3}}, {}}));
    EXPECT_FALSE(m == on(device, 4, {{{0, 2}, {2, 1}}, {}}));
    EXPECT_TRUE(on(device, 3, {{{0, 0}}}) == on(device, 3, {{}}));
    EXPECT_FALSE(on(device, 3, {{{0, 1}}}) == on(device, 3, {{}}));
    EXPECT_FALSE(broken == broken);
  }
}

TEST(CSRMatrix, CheckFindsBrokenStructure) {
  const auto checked = [](const std::vector<int>& rowptr, const std::vector<int>& cols,
                          bool sorted) {
    const int rows = static_cast<int>(rowptr.size()) - 1;
    const HostCsr<double> plain{rows, 3, rowptr, cols, std::vector<double>(cols.size(), 1.0)};
    sparseOf(Device(), plain).check(sorted);
  };
  checked({0, 2, 3}, {0, 2, 1}, true);
  checked({0, 2, 3}, {2, 0, 1}, false);
  checked({0, 2}, {1, 1}, false);
  M().check(true);
  const struct {
    std::vector<int> rowptr, cols;
    bool sorted;
  } broken[] = {{{0, 2}, {1, 1}, true},
                {{0, 2, 3}, {2, 0, 1}, true},
                {{0, 2, 1, 3}, {0, 1, 2}, false},
                {{-1, 2, 3}, {0, 1, 2}, false},
                {{0, 1, 2}, {0, 1, 2}, false},
                {{0, 1}, {3}, false},
                {{0, 1}, {-1}, false}};
  for (const auto& b : broken) {
    MIVO_EXPECT_FATAL_TEXT(checked(b.rowptr, b.cols, b.sorted), "");
  }
}

TEST(CSRMatrix, MismatchesEndTheProcess) {
  const auto full = [](int rows, int cols) {
    return on(Device(), cols, Rows(static_cast<std::size_t>(rows), {{cols - 1, 1.0}}));
  };
  const M a = full(2, 3);
  M c;
  Vector x, y, wide;
  x.create(3, 1, Device());
  y.create(2, 1, Device());
  wide.create(3, 2, Device());
  MIVO_EXPECT_FATAL_TEXT(a.multiply(full(2, 3), c), "multiply: mat1.col1 != mat2.row2");
  MIVO_EXPECT_FATAL_TEXT(M::matadd(1, a, 1, full(2, 4), c), "add: A and B must has same dim");
  MIVO_EXPECT_FATAL_TEXT(a.aAxpby(1, wide, 1, y), "aAxpby: x.cols!= 1");
  MIVO_EXPECT_FATAL_TEXT(a.aAxpby(1, y, 1, y), "aAxpby: A.cols != x.rows");
  MIVO_EXPECT_FATAL_TEXT(a.aAxpby(1, x, 1, x), "aAxpby: A.rows!= y.rows");

  const auto part = partsAt<long>({0, 2, 4});
  std::vector<M> blocks;
  MIVO_EXPECT_FATAL_TEXT(a.splitCols(part, blocks),
                         "splitRows: rows.size() != partitioner.getGlobalSize()");
  blocks = {full(2, 3), full(2, 2)};
  MIVO_EXPECT_FATAL_TEXT(M::mergeRows(part, blocks), "merge: submat column size should be equal");
  blocks = {full(2, 2), full(1, 2)};
  MIVO_EXPECT_FATAL_TEXT(M::mergeCols(part, blocks), "merge: submat row size should be equal");
}

template <class T>
class CSRMatrixTest : public testing::Test {};
using Types = testing::Types<int, float, Complex<double>>;
TYPED_TEST_SUITE(CSRMatrixTest, Types);

TYPED_TEST(CSRMatrixTest, PackedFormHasNoGaps) {
  using T = TypeParam;
  const auto m = sparseOf(Device(), plainRows<T>(4, {{{3, T(1)}, {0, T(2)}}, {{1, T(3)}}}));
  comu::Stream stream;
  stream.setCapacity(m.getStreamSize());
  m.packStream(stream);
  const int head[] = {2, 4, 3, 0, 2, 3, 3, 0, 1};
  ASSERT_EQ(m.getStreamSize(), static_cast<int>(sizeof head + 3 * sizeof(T)));
  EXPECT_EQ(stream.getWritePosition(), m.getStreamSize());
  EXPECT_EQ(std::memcmp(stream.getBuffer(), head, sizeof head), 0);
  EXPECT_EQ(std::memcmp(stream.getBuffer() + sizeof head, m.getValues(), 3 * sizeof(T)), 0);
  CSRMatrixT<T, int> copy;
  copy.unpackStream(stream);
  EXPECT_EQ(plainOf(copy), plainOf(m));
  EXPECT_EQ(stream.getReadPosition(), m.getStreamSize());

  // No rows: the place of the one row pointer is passed over.
  CSRMatrixT<T, int> flat;
  flat.create(0, 5, 0, Device());
  comu::Stream short_stream;
  short_stream.setCapacity(16);
  flat.packStream(short_stream);
  EXPECT_EQ(flat.getStreamSize(), 16);
  EXPECT_EQ(short_stream.getWritePosition(), 16);
  copy.unpackStream(short_stream);
  EXPECT_EQ(copy.getCols(), 5);
  EXPECT_EQ(copy.getRowPtr(), nullptr);
}

TYPED_TEST(CSRMatrixTest, LongIndicesStoreAndPack) {
  using T = TypeParam;
  const auto plain = HostCsr<T, long>::build(2L, 1L << 40, [](long i, auto& out) {
    if (i == 0) out.push((1L << 40) - 1, T(7));
  });
  const auto m = sparseOf(Device(), plain);
  CSRMatrixT<T, long> copy;
  m.deepCopy(copy);
  EXPECT_EQ(plainOf(copy), plain);
  comu::Stream stream;
  stream.setCapacity(m.getStreamSize());
  m.packStream(stream);
  EXPECT_EQ(m.getStreamSize(), static_cast<int>(7 * sizeof(long) + sizeof(T)));
  copy.unpackStream(stream);
  EXPECT_EQ(plainOf(copy), plain);
  EXPECT_EQ(copy.evaluateNnzs(), 1);
}

}  // namespace
}  // namespace mivo::test
