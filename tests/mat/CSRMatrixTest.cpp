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

namespace mivo::test {
namespace {

template <class T>
class CSRMatrixTest : public testing::Test {};
TYPED_TEST_SUITE(CSRMatrixTest, ValueTypes);

template <class T>
void expectDefault(const CSRMatrixT<T, int>& m) {
  EXPECT_EQ(m.getRows(), 0);
  EXPECT_EQ(m.getCols(), 0);
  EXPECT_EQ(m.getNnz(), 0);
  EXPECT_EQ(m.getDevice(), Device());
  EXPECT_EQ(m.getRowPtr(), nullptr);
  EXPECT_EQ(m.getColIdx(), nullptr);
  EXPECT_EQ(m.getValues(), nullptr);
}

template <class T>
std::vector<T> applied(const HostCsr<T>& a, const std::vector<T>& x) {
  return denseAxpby(a.dense(), T(1), x, T(0), std::vector<T>(static_cast<std::size_t>(a.rows)));
}

// Storage.

TYPED_TEST(CSRMatrixTest, MatrixIsEmptyShapedOrComplete) {
  using M = CSRMatrixT<TypeParam, int>;
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

    M shaped;
    shaped.create(2, 5, 0, device);
    shaped.resizeNnz(0, 7);
    EXPECT_EQ(shaped.getCols(), 7);
    EXPECT_EQ(shaped.getValues(), nullptr);
  }
}

TYPED_TEST(CSRMatrixTest, ResizeKeepsEntriesOfEqualRowsAndIsSeenByAllHandles) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    CSRMatrixT<T, int> m = sparseOf(device, plainRows<T>(3, {{{0, T(1)}}, {{2, T(2)}}}));
    const CSRMatrixT<T, int> handle = m;
    m.resize(2, 9, m.getDevice());
    EXPECT_EQ(handle.getCols(), 9);
    EXPECT_EQ(handle.getNnz(), 2);
    m.resize(4, 3, m.getDevice());
    EXPECT_EQ(handle.getRows(), 4);
    EXPECT_EQ(handle.getNnz(), 0);
    EXPECT_EQ(handle.getColIdx(), nullptr);
    EXPECT_EQ(plainOf(handle).rowptr, std::vector<int>(5, 0));
    m.create(1, 1, 1, device);
    EXPECT_EQ(handle.getRows(), 4);
  }
}

TYPED_TEST(CSRMatrixTest, CopiesDuplicateAndAnEmptyMatrixLosesItsShape) {
  using T = TypeParam;
  using M = CSRMatrixT<T, int>;
  std::mt19937 rng(3);
  for (const Device& device : testDevices()) {
    const HostCsr<T> plain = randomCsr<T>(rng, 9, 6);
    const M m = sparseOf(device, plain);
    M copy;
    m.deepCopy(copy);
    EXPECT_EQ(plainOf(copy), plain);
    EXPECT_NE(copy.getValues(), m.getValues());
    M::scale(copy, T(0));
    const T* storage = copy.getValues();
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

// Algebra.

TYPED_TEST(CSRMatrixTest, ProductWithAVectorMatchesDense) {
  using T = TypeParam;
  std::mt19937 rng(5);
  for (const Device& device : testDevices()) {
    const HostCsr<T> plain = randomCsr<T>(rng, 33, 31);
    const auto m = sparseOf(device, plain);
    const std::vector<T> x = smallVector<T>(rng, 31), y = smallVector<T>(rng, 33);
    const auto dx = matrixOf<T>(device, 31, 1, x);
    MatrixT<T, int> out;
    m.aAxpby(T(2), dx, T(0), out);
    EXPECT_EQ(valuesOf(out), denseAxpby(plain.dense(), T(2), x, T(0), y));
    out = matrixOf<T>(device, 33, 1, y);
    m.aAxpby(T(2), dx, T(3), out);
    EXPECT_EQ(valuesOf(out), denseAxpby(plain.dense(), T(2), x, T(3), y));
    CSRMatrixT<T, int>().aAxpby(T(1), out, T(1), out);
    EXPECT_EQ(out.getSize(), 0) << "an empty matrix clears y, unchecked";
    out = dx;
    m.aAxpby(T(1), MatrixT<T, int>(), T(1), out);
    EXPECT_EQ(out.getSize(), 0);
  }
}

TYPED_TEST(CSRMatrixTest, ProductsAndSumsActLikeTheirFactorsAndTerms) {
  using T = TypeParam;
  using M = CSRMatrixT<T, int>;
  std::mt19937 rng(7);
  for (const Device& device : testDevices()) {
    for (const auto& [rows, cols] : testShapes()) {
      const auto a = randomCsr<T>(rng, rows, cols), b = randomCsr<T>(rng, cols, 17),
                 c = randomCsr<T>(rng, rows, cols);
      M product, sum;
      sparseOf(device, a).multiply(sparseOf(device, b), product);
      M::matadd(T(2), sparseOf(device, a), T(-3), sparseOf(device, c), sum);
      if (a.values.empty() || b.values.empty()) {
        expectDefault(product);
      } else {
        const std::vector<T> x = smallVector<T>(rng, 17);
        EXPECT_EQ(applied(plainOf(product), x), applied(a, applied(b, x)));
      }
      if (a.values.empty() && c.values.empty()) {
        expectDefault(sum);
      } else {
        const std::vector<T> x = smallVector<T>(rng, static_cast<std::size_t>(cols));
        EXPECT_EQ(applied(plainOf(sum), x), denseAxpby(a.dense(), T(2), x, T(-3), applied(c, x)));
        // An empty operand is left out, and the other copied in its order.
        if (!a.values.empty() && !c.values.empty()) {
          EXPECT_EQ(plainOf(sum), plainOf(sum).sorted());
        }
      }
    }
  }
}

TYPED_TEST(CSRMatrixTest, ResultMayBeAnOperandOrHoldEntriesAlready) {
  using T = TypeParam;
  using M = CSRMatrixT<T, int>;
  std::mt19937 rng(9);
  for (const Device& device : testDevices()) {
    const HostCsr<T> plain = randomCsr<T>(rng, 7, 7);
    const M handle = sparseOf(device, plain);
    // A result without entries is filled in place, for all its handles.
    M square;
    square.create(7, 7, 0, device);
    const M alias = square;
    handle.multiply(handle, square);
    EXPECT_EQ(plainOf(alias), plainOf(square));
    M m = handle;
    m.multiply(m, m);
    EXPECT_EQ(plainOf(m), plainOf(square));
    EXPECT_EQ(plainOf(handle), plain) << "the other handle keeps the operand";
    // A selection or a diagonal update is built afresh, also from and into a matrix without
    // entries.
    std::vector<M> blocks(2, M());
    PartitionerT<int, int> halves;
    halves.create(7, std::vector<int>{0, 7, 7});
    handle.splitCols(halves, blocks);
    EXPECT_EQ(plainOf(blocks[0]), plain);
    EXPECT_EQ(blocks[1].getNnz(), 0);
    M shaped;
    shaped.create(7, 7, 0, device);
    M left = shaped, right = shaped;
    handle.getSelectedCols(0, 7, left, 0);
    handle.getSelectedRows(MatrixT<int, int>::range(0, 3, 1), right, false);
    EXPECT_EQ(plainOf(left), plain);
    EXPECT_EQ(right.getRows(), 3);
    M update = shaped;
    const auto ones = matrixOf<T>(device, 7, 1, std::vector<T>(7, T(1)));
    update.axpbyDiag(T(3), ones, T(1), MatrixT<T, int>(), update);
    EXPECT_EQ(plainOf(update),
              HostCsr<T>::build(7, 7, [](int i, HostCsr<T>& out) { out.push(i, T(3)); }));
    EXPECT_EQ(shaped.getNnz(), 0);
    handle.multiply(handle, m);
    EXPECT_EQ(plainOf(m), plainOf(square));
    M::matadd(T(1), m, T(-1), m, m);
    EXPECT_EQ(plainOf(m).dense(), std::vector<T>(49, T(0)));

    // B alone, scaled, into C which is B's own storage.
    M scaled = handle;
    M::matadd(T(5), M(), T(2), handle, scaled);
    EXPECT_EQ(plainOf(handle), plain);
    for (std::size_t k = 0; k < plain.values.size(); ++k) {
      EXPECT_EQ(plainOf(scaled).values[k], plain.values[k] * T(2));
    }
  }
}

// Selection.

TYPED_TEST(CSRMatrixTest, SelectedRowsAreCompactOrKeepTheirPlace) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    const auto m =
        sparseOf(device, plainRows<T>(4, {{{3, T(1)}}, {{0, T(2)}, {2, T(3)}}, {}, {{1, T(4)}}}));
    const auto list = matrixOf<int>(device, 3, 1, {3, 1, 3});
    CSRMatrixT<T, int> out;
    m.getSelectedRows(list, out, false);
    EXPECT_EQ(plainOf(out), plainRows<T>(4, {{{1, T(4)}}, {{0, T(2)}, {2, T(3)}}, {{1, T(4)}}}));
    EXPECT_EQ(out.getCols(), 4);
    m.getSelectedRows(list, out, true);
    EXPECT_EQ(plainOf(out), plainRows<T>(4, {{}, {{0, T(2)}, {2, T(3)}}, {}, {{1, T(4)}}}));
    m.getSelectedRows(IndexVector(), out, true);
    EXPECT_EQ(plainOf(out), plainRows<T>(4, {{}, {}, {}, {}}));
    m.getSelectedRows(IndexVector(), out, false);
    expectDefault(out);
    // The 0 by 0 matrix may stand for any shape without entries.
    CSRMatrixT<T, int>().getSelectedRows(list, out, false);
    EXPECT_EQ(out.getRows(), 3);
    EXPECT_EQ(out.getNnz(), 0);
  }
}

TYPED_TEST(CSRMatrixTest, ColumnBlocksJoinToTheWhole) {
  using T = TypeParam;
  using M = CSRMatrixT<T, int>;
  for (const Device& device : testDevices()) {
    const M m = sparseOf(device, plainRows<T>(5, {{{3, T(1)}, {0, T(2)}, {2, T(3)}}, {{4, T(4)}}}));
    PartitionerT<long, int> part, single;
    part.create(5, std::vector<long>{0, 1, 1, 5});
    std::vector<M> blocks;
    m.splitCols(part, blocks);
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(plainOf(blocks[0]), plainRows<T>(1, {{{0, T(2)}}, {}}));
    expectDefault(blocks[1]);
    EXPECT_EQ(plainOf(blocks[2]), plainRows<T>(4, {{{2, T(1)}, {1, T(3)}}, {{3, T(4)}}}));
    const M joined = M::mergeCols(part, blocks);
    EXPECT_EQ(joined.getCols(), 5);
    EXPECT_EQ(plainOf(joined), plainRows<T>(5, {{{0, T(2)}, {3, T(1)}, {2, T(3)}}, {{4, T(4)}}}));

    single.create(5, 1);
    m.splitCols(single, blocks);
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0].getValues(), m.getValues());
    M().splitCols(part, blocks);
    EXPECT_TRUE(blocks.empty());
    const M nothing = M::mergeCols(part, std::vector<M>(3));
    EXPECT_EQ(nothing.getRows(), 0);
    EXPECT_EQ(nothing.getCols(), 5);
  }
}

TYPED_TEST(CSRMatrixTest, StackedRowsKeepEmptyBlocksAsEmptyRows) {
  using T = TypeParam;
  using M = CSRMatrixT<T, int>;
  for (const Device& device : testDevices()) {
    const auto part = partsAt<int>({0, 2, 4, 5, 7});
    const M top = sparseOf(device, plainRows<T>(3, {{{2, T(1)}}, {{0, T(2)}, {1, T(3)}}}));
    const M low = sparseOf(device, plainRows<T>(3, {{{1, T(4)}}}));
    const M stacked = M::mergeRows(part, std::vector<M>{M(), top, low, M()});
    EXPECT_EQ(plainOf(stacked),
              plainRows<T>(3, {{}, {}, {{2, T(1)}}, {{0, T(2)}, {1, T(3)}}, {{1, T(4)}}, {}, {}}));
    EXPECT_EQ(stacked.getCols(), 3);
    const M empty = M::mergeRows(part, std::vector<M>(4));
    EXPECT_EQ(plainOf(empty).rowptr, std::vector<int>(8, 0));
    EXPECT_EQ(empty.getNnz(), 0);
    expectDefault(M::mergeRows(part, std::vector<M>()));
  }
}

// Entries.

TYPED_TEST(CSRMatrixTest, LookupsStayInsideThePattern) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    const HostCsr<T> plain = plainRows<T>(4, {{{3, T(1)}, {0, T(0)}}, {}, {{1, T(2)}}});
    auto m = sparseOf(device, plain);
    bool found = false;
    EXPECT_EQ(m.getElementValue(2, 1, &found), T(2));
    EXPECT_TRUE(found);
    EXPECT_EQ(m.getElementValue(0, 0, &found), T(0));
    EXPECT_TRUE(found);
    for (const auto& [row, col] : {std::pair{1, 1}, {0, 2}, {-1, 0}, {3, 0}, {0, 9}}) {
      EXPECT_EQ(m.getElementValue(row, col, &found), T(0));
      EXPECT_FALSE(found);
      EXPECT_FALSE(m.setElementValue(row, col, T(9)));
    }
    EXPECT_EQ(plainOf(m), plain);
    EXPECT_TRUE(m.setElementValue(0, 0, T(8)));
    EXPECT_EQ(m.getElementValue(0, 0, nullptr), T(8));

    MatrixT<int, int> count;
    m.getColElementCount(count);
    EXPECT_EQ(valuesOf(count), (std::vector<int>{1, 1, 0, 1}));
    const int* storage = count.getData();
    m.getColElementCount(count);
    EXPECT_EQ(count.getData(), storage);
    EXPECT_EQ(valuesOf(count), (std::vector<int>{1, 1, 0, 1}));
  }
}

TYPED_TEST(CSRMatrixTest, EqualityIgnoresOrderAndStoredZeros) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    const auto of = [&](const HostCsr<T>& plain) { return sparseOf(device, plain); };
    const auto m = of(plainRows<T>(3, {{{2, T(1)}, {0, T(2)}}, {}}));
    EXPECT_TRUE(m == of(plainRows<T>(3, {{{0, T(2)}, {2, T(1)}}, {{1, T(0)}}})));
    EXPECT_FALSE(m == of(plainRows<T>(3, {{{0, T(2)}, {2, T(3)}}, {}})));
    EXPECT_FALSE(m == of(plainRows<T>(4, {{{0, T(2)}, {2, T(1)}}, {}})));
    EXPECT_TRUE(of(plainRows<T>(3, {{{0, T(0)}}})) == of(plainRows<T>(3, {{}})));
    EXPECT_FALSE(of(plainRows<T>(3, {{{0, T(1)}}})) == of(plainRows<T>(3, {{}})));
    if constexpr (!std::is_integral_v<T>) {
      const T nan(std::numeric_limits<RealType<T>>::quiet_NaN());
      const auto broken = of(plainRows<T>(3, {{{0, nan}}}));
      EXPECT_FALSE(broken == broken);
    }
  }
}

TEST(CSRMatrix, CheckFindsBrokenStructure) {
  const auto checked = [](std::vector<int> rowptr, std::vector<int> cols, bool sorted) {
    HostCsr<double> plain;
    plain.rows = static_cast<int>(rowptr.size()) - 1;
    plain.cols = 3;
    plain.rowptr = std::move(rowptr);
    plain.values.assign(cols.size(), 1.0);
    plain.col_idx = std::move(cols);
    sparseOf(Device(), plain).check(sorted);
  };
  checked({0, 2, 3}, {0, 2, 1}, true);
  checked({0, 2, 3}, {2, 0, 1}, false);
  checked({0, 2}, {1, 1}, false);
  CSRMatrixT<double, int>().check(true);
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
  using M = CSRMatrixT<double, int>;
  using Vector = MatrixT<double, int>;
  const auto full = [](int rows, int cols) {
    std::vector<std::vector<std::pair<int, double>>> all(static_cast<std::size_t>(rows));
    for (auto& row : all) row = {{cols - 1, 1.0}};
    return sparseOf(Device(), plainRows<double>(cols, all));
  };
  const auto vector = [](int rows, int cols) {
    return matrixOf<double>(Device(), rows, cols,
                            std::vector<double>(static_cast<std::size_t>(rows * cols)));
  };
  const M a = full(2, 3);
  M c;
  Vector y = vector(2, 1);
  MIVO_EXPECT_FATAL_TEXT(a.multiply(full(2, 3), c), "multiply: mat1.col1 != mat2.row2");
  MIVO_EXPECT_FATAL_TEXT(M::matadd(1, a, 1, full(2, 4), c), "add: A and B must has same dim");
  MIVO_EXPECT_FATAL_TEXT(a.aAxpby(1, vector(3, 2), 1, y), "aAxpby: x.cols!= 1");
  MIVO_EXPECT_FATAL_TEXT(a.aAxpby(1, vector(2, 1), 1, y), "aAxpby: A.cols != x.rows");
  y = vector(3, 1);
  MIVO_EXPECT_FATAL_TEXT(a.aAxpby(1, vector(3, 1), 1, y), "aAxpby: A.rows!= y.rows");

  PartitionerT<long, int> part;
  part.create(4, 2);
  std::vector<M> blocks;
  MIVO_EXPECT_FATAL_TEXT(a.splitCols(part, blocks),
                         "splitRows: rows.size() != partitioner.getGlobalSize()");
  blocks = {full(2, 3), full(2, 2)};
  MIVO_EXPECT_FATAL_TEXT(M::mergeRows(part, blocks), "merge: submat column size should be equal");
  blocks = {full(2, 2), full(1, 2)};
  MIVO_EXPECT_FATAL_TEXT(M::mergeCols(part, blocks), "merge: submat row size should be equal");
}

// Exchange.

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
  HostCsr<T, long> plain;
  plain.cols = 1L << 40;
  plain.push((1L << 40) - 1, T(7));
  plain.endRow();
  plain.endRow();
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
