// SPDX-License-Identifier: Apache-2.0
// What the index types and the 32-bit lengths of messages cannot hold ends the process. No test
// here holds much memory: sizes are claimed by partitioners, by row pointers, or by matrices of a
// kind of device that has no memory at all.

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <utility>
#include <vector>

#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/assembly/ColumnBlocks.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/sparse.hpp"

namespace mivo::test {
namespace {

using Local = CSRMatrixT<double, int>;
using Part = PartitionerT<long, int>;

constexpr long kLarge = 1L << 32;
constexpr int kHalf = 1 << 30;  ///< twice as many are one more than fits into an int

/// A matrix of one row that claims kHalf entries and has no arrays.
Local claimsHalf() {
  Local m;
  m.create(1, 1, kHalf, Device(Device::kHip, 0));
  return m;
}

TEST(IndexLimits, RowsAndColumnsOfOnePart) {
  const Part small = partsAt<long>({0, 3}), large = partsAt<long>({0, 3, kLarge});
  ParCSRMatrixT<double, long, int> m;
  MIVO_EXPECT_FATAL_TEXT(m.create(large, small, {}, Device(), kCommSelf),
                         "ParCSRMatrix: 4294967293 rows of part 1 exceed the local index type");
  MIVO_EXPECT_FATAL_TEXT(m.create(small, large, {}, Device(), kCommSelf),
                         "ParCSRMatrix: 4294967293 columns of part 1 exceed the local index type");

  COOMatrixT<double, long, long> entries;
  COOMatrixT<double, int, long> own;
  entries.getRowEx(kLarge + 1);
  MIVO_EXPECT_FATAL_TEXT(entries.endAssemble(kCommSelf, partsAt<long>({0, 2 * kLarge}), own),
                         "endAssemble: 8589934592 rows of one part exceed the local index type");

  Local rows;
  MIVO_EXPECT_FATAL_TEXT(rows.create(std::numeric_limits<int>::max(), 1, 0, Device()),
                         "CSRMatrix: 2147483647 rows have no row pointers in the index type");
}

TEST(IndexLimits, EntriesOfOneMatrix) {
  // The sum of the lengths, 5 * 2^30, would wrap around to a positive number.
  const Local m = sparseOf(Device(), HostCsr<double>{1, 1, {0, kHalf}, {0}, {1}});
  IndexVector sel;
  sel.create(5, 1, Device());
  sel.fill(0);
  Local out;
  MIVO_EXPECT_FATAL_TEXT(m.getSelectedRows(sel, out, false),
                         "CSRMatrix: the entries of a result exceed the index type");

  const Local half = claimsHalf();
  MIVO_EXPECT_FATAL_TEXT(Local::matadd(1, half, 1, half, out),
                         "add: 2147483648 entries exceed the index type");
  MIVO_EXPECT_FATAL_TEXT(Local::mergeRows(partsAt<long>({0, 1, 2}), {half, half}),
                         "merge: 2147483648 entries exceed the index type");

  ParCSRMatrixT<double, int, int> narrow;
  narrow.create(partsAt<int>({0, 1}), partsAt<int>({0, 1, 2}), {half, half}, Device(), kCommSelf);
  MIVO_EXPECT_FATAL_TEXT(narrow.getNnzs(),
                         "getNnzs: 2147483648 entries exceed the global index type");
  ParCSRMatrixT<double, long, int> wide;
  wide.create(partsAt<long>({0, 1}), partsAt<long>({0, 1, 2}), {half, half}, Device(), kCommSelf);
  EXPECT_EQ(wide.getNnzs(), 2L * kHalf);
}

/// Rows of `count` entries each that nobody gets to read.
struct ClaimedRows {
  std::size_t entries;
  std::size_t count(int) const { return entries; }
  const std::pair<long, double>* row(int) const { return nullptr; }
  void restart(bool) {}
};

TEST(IndexLimits, EntriesOfAnAssembledBlock) {
  ClaimedRows rows{std::size_t(kHalf)};
  MIVO_EXPECT_FATAL_TEXT((buildColumnBlocks<double, long, int>(partsAt<long>({0, 7}), 2, rows)),
                         "endAssemble: 2147483648 entries of one block exceed the index type");
}

TEST(IndexLimits, ElementsAndJoinedBlocks) {
  ParMatrixT<double, int, int> m;
  MIVO_EXPECT_FATAL_TEXT(m.create(1 << 16, 1 << 16, Device(), kCommSelf),
                         "ParMatrix: 65536 x 65536 elements exceed the global index type");
  using Dense = MatrixT<double, int, MatrixLayoutRowMajor>;
  MIVO_EXPECT_FATAL_TEXT(Dense::mergeRows(partsAt<long>({0, kLarge}), {Dense()}),
                         "mergeRows: 4294967296 rows exceed the index type");
  // The second block would begin at column 4294967296, which is 0 in 32 bits.
  const Local identity = sparseOf(Device(), plainRows<double>(1, {{{0, 1}}}));
  MIVO_EXPECT_FATAL_TEXT(
      Local::mergeCols(partsAt<long>({kLarge - 1, kLarge, kLarge + 1}), {Local(), identity}),
      "merge: 4294967297 columns exceed the index type");
}

TEST(IndexLimits, LengthsOfMessages) {
  MIVO_EXPECT_FATAL_TEXT(claimsHalf().getStreamSize(),
                         "CSRMatrix: 12884901908 bytes are too many for one message");
  MatrixT<double, int, MatrixLayoutRowMajor> v;
  v.create(kHalf, 1, Device(Device::kHip, 0));
  MIVO_EXPECT_FATAL_TEXT(v.getStreamSize(),
                         "Matrix: 1073741824 x 1 elements do not fit into one message");
}

}  // namespace
}  // namespace mivo::test
