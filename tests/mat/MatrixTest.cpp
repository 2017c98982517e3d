// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

#include "mivo/mat/CrossData.hpp"
#include "mivo/mat/Matrix.hpp"
#include "mivo/mat/Partitioner.hpp"
#include "tests/support/dense.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/fatal.hpp"

namespace mivo::test {
namespace {

using M = MatrixT<double, int>;
using Values = std::vector<double>;

TEST(Matrix, ResizeKeepsTheStorageThatFits) {
  EXPECT_EQ(M().getRows(), 0);
  EXPECT_EQ(M().getDevice(), Device());
  for (const Device& device : testDevices()) {
    M m;
    m.create(4, 5, device);
    const double* data = m.getData();
    const M handle = m;
    m.resize(3, 2, device);
    m.resize(10, 2, m.getDevice());
    EXPECT_EQ(m.getData(), data);
    EXPECT_EQ(m.getCapacity(), 20);
    EXPECT_EQ(handle.getRows(), 10);
    m.resize(7, 3, m.getDevice());
    EXPECT_EQ(m.getDevice(), device);
    EXPECT_EQ(m.getCapacity(), 21);
    EXPECT_EQ(handle.getSize(), 20);
    M taken = std::move(m);
    EXPECT_EQ(m.getData(), taken.getData());
    m = std::move(taken);
    taken.resize(50, 1, device);
    EXPECT_EQ(m.getRows(), 7);
    m.create(0, 5, m.getDevice());
    EXPECT_EQ(m.getDevice(), device);
    EXPECT_EQ(m.getData(), nullptr);
    EXPECT_EQ(m.getCols(), 5);
  }
}

TEST(Matrix, CopiesOfAHandleShareAndDeepCopiesDoNot) {
  const Values a = smallValues<double>(6, 1);
  for (const Device& device : testDevices()) {
    M m = matrixOf<double>(device, 2, 3, a), into, deep;
    const M same = m.toDevice(device);
    m.toDevice(device, into);
    m.deepCopy(deep);
    m.fill(7);
    EXPECT_EQ(same.getData(), m.getData());
    EXPECT_EQ(into.getData(), m.getData());
    EXPECT_EQ(valuesOf(deep), a);
    EXPECT_EQ(deep.getRows(), 2);
    EXPECT_EQ(deep.getDevice().type, device.type);
    EXPECT_EQ(valuesOf(same), Values(6, 7));
    // Arithmetic asks for equal counts, not shapes.
    m += matrixOf<double>(device, 6, 1, Values(6, 5));
    EXPECT_EQ(valuesOf(m), Values(6, 12));
  }
}

TEST(Matrix, ElementAccessStaysInsideTheShape) {
  for (const Device& device : testDevices()) {
    Values a = smallValues<double>(12, 2);
    M m = matrixOf<double>(device, 4, 3, a);
    bool ok = false;
    EXPECT_EQ(m.getElementValue(2, 1, &ok), a[7]);
    EXPECT_TRUE(ok);
    for (const auto& [row, col] : {std::pair{4, 0}, {0, 3}, {-1, 0}, {0, -1}}) {
      ok = true;
      EXPECT_EQ(m.getElementValue(row, col, &ok), 0);
      EXPECT_FALSE(ok);
      EXPECT_FALSE(m.setElementValue(row, col, 99));
    }
    EXPECT_TRUE(m.setElementValue(3, 2, 50));
    EXPECT_EQ(m.getElementValue(3, 2, nullptr), 50);
    a[11] = 50;
    EXPECT_EQ(valuesOf(m), a);
  }
}

TEST(Matrix, SelectsReturnsSplitsAndMergesRows) {
  const auto part = partsAt<long>({0, 3, 3, 5});
  const Values a = smallValues<double>(15, 3);
  for (const Device& device : testDevices()) {
    M m = matrixOf<double>(device, 5, 3, a), sub;
    const IndexVector picked = matrixOf<int>(device, 3, 1, {4, 0, 2});
    m.selectRows(picked, sub);
    const Values selected = {a[12], a[13], a[14], a[0], a[1], a[2], a[6], a[7], a[8]};
    EXPECT_EQ(valuesOf(sub), selected);
    std::vector<M> blocks;
    m.splitRows(part, blocks);
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(valuesOf(blocks[0]), Values(a.begin(), a.begin() + 9));
    EXPECT_EQ(blocks[1].getRows(), 0);
    EXPECT_EQ(blocks[2].getDevice(), Device());
    for (M& block : blocks) block = block.toDevice(device);
    const M merged = M::mergeRows(part, blocks);
    EXPECT_EQ(merged.getRows(), 5);
    EXPECT_EQ(merged.getDevice().type, device.type);
    EXPECT_EQ(valuesOf(merged), a);

    m.fill(1);
    m.unselectRows(picked, sub);
    Values expected = a;
    for (const std::size_t k : {3, 4, 5, 9, 10, 11}) expected[k] = 1;
    EXPECT_EQ(valuesOf(m), expected);
    m.selectRows(picked, m);
    EXPECT_EQ(valuesOf(m), selected);
  }
  PartitionerT<int, int> none;
  none.create(0, 2);
  std::vector<M> blocks;
  M().splitRows(none, blocks);
  EXPECT_EQ(blocks.size(), 2u);
  EXPECT_EQ(M::mergeRows(none, blocks).getSize(), 0);
}

template <class T>
class MatrixTest : public testing::Test {};
TYPED_TEST_SUITE(MatrixTest, ValueTypes);

TYPED_TEST(MatrixTest, TravelsThroughAStreamWithAHeaderOfTwoInts) {
  const auto a = smallValues<TypeParam>(6, 10);
  const auto m = matrixOf<TypeParam>(Device(), 2, 3, a);
  const MatrixT<TypeParam, int> empty;
  EXPECT_EQ(m.getStreamSize(), static_cast<int>(8 + 6 * sizeof(TypeParam)));
  EXPECT_EQ(empty.getStreamSize(), 8);
  comu::Stream stream;
  stream.setCapacity(m.getStreamSize() + empty.getStreamSize());
  m.packStream(stream);
  empty.packStream(stream);
  EXPECT_EQ(stream.getWritePosition(), stream.getCapacity());
  MatrixT<TypeParam, int> first, second = m;
  first.unpackStream(stream);
  second.unpackStream(stream);
  EXPECT_EQ(first.getRows(), 2);
  EXPECT_EQ(valuesOf(first), a);
  EXPECT_EQ(second.getSize(), 0);
  EXPECT_EQ(valuesOf(m), a) << "unpacking must not write through shared storage";
}

TYPED_TEST(MatrixTest, RandomValuesFillTheirRange) {
  const auto v = valuesOf(MatrixT<TypeParam, int>::rand(500, 2));
  ASSERT_EQ(v.size(), 1000u);
  const double top = std::is_integral_v<TypeParam> ? 100 : 1;
  double sum = 0;
  for (const TypeParam& z : v) {
    const double part = static_cast<double>(kIsComplex<TypeParam> ? imagPart(z) : realPart(z));
    EXPECT_TRUE(part >= 0 && part < top) << part;
    sum += part;
  }
  EXPECT_NEAR(sum / 1000, top / 2, top / 20);
  EXPECT_NE(v, valuesOf(MatrixT<TypeParam, int>::rand(500, 2)));
}

TEST(Matrix, RangeListsIntegersBelowItsEnd) {
  using I = MatrixT<int, int>;
  EXPECT_EQ(valuesOf(I::range(-2, 3)), (std::vector<int>{-2, -1, 0, 1, 2}));
  EXPECT_EQ(valuesOf(I::range(1, 8, 3)), (std::vector<int>{1, 4, 7}));
  EXPECT_EQ(valuesOf(I::range(1, 7, 3)), (std::vector<int>{1, 4}));
  EXPECT_EQ(I::range(3, 3).getRows() + I::range(3, 1).getRows(), 0);
  EXPECT_EQ(I::range(0, 5).getCols(), 1);
  EXPECT_EQ(valuesOf(I::range(-2'000'000'000, 2'000'000'000, 1'500'000'000)),
            (std::vector<int>{-2'000'000'000, -500'000'000, 1'000'000'000}));
  EXPECT_EQ(I::range(1, 4).getString(), "[1, 2, 3]");
  EXPECT_EQ(I().getString(), "[]");
}

TEST(Matrix, CrossDataSharesItsStorageOnTheHostAfterToHost) {
  for (const Device& device : testDevices()) {
    CrossData<int> counter(device, 5);
    counter.device.fill(42);
    EXPECT_EQ(counter.host.getData()[0], 5);
    counter.toHost();
    EXPECT_EQ(counter.host.getData()[0], 42);
    EXPECT_EQ(counter.host.getDevice(), Device());
    EXPECT_EQ(counter.host.getData() == counter.device.getData(), device.type == Device::kHost);
  }
}

TEST(Matrix, ChecksEndTheProcessWithTheirText) {
  Device::initialize();
  M x, y, z, far, none;
  x.create(3, 1, Device());
  y.create(4, 1, Device());
  z.create(3, 1, Device());
  // A kind without memory stands for another device.
  far.create(0, 1, Device(2, 0));
  MatrixT<double, long> wide;
  const IndexVector rows = IndexVector::range(0, 2);

  MIVO_EXPECT_FATAL(none.create(-1, 1, Device()), "Matrix:117", "");
  MIVO_EXPECT_FATAL(none.resize(1, -1, Device()), "Matrix:117", "");
  MIVO_EXPECT_FATAL_TEXT(none.create(1 << 16, 1 << 16, Device()),
                         "Matrix: 65536 x 65536 elements exceed the index type");
  MIVO_EXPECT_FATAL_TEXT(wide.create(1L << 33, 1L << 31, Device()),
                         "Matrix: 8589934592 x 2147483648 elements exceed the index type");
  MIVO_EXPECT_FATAL_TEXT(wide.create(1, 1L << 61, Device()),
                         "Matrix: 1 x 2305843009213693952 elements exceed the index type");
  const std::string size = " must have the same size", place = " must be on the same device";
  MIVO_EXPECT_FATAL_TEXT(M::axpy(1, x, y), "axpy: x and y" + size);
  MIVO_EXPECT_FATAL_TEXT(M::axpy(1, none, far), "axpy: x and y" + place);
  MIVO_EXPECT_FATAL_TEXT(M::axpby(1, x, 1, y), "axpby: x and y" + size);
  MIVO_EXPECT_FATAL_TEXT(M::axpby(1, none, 1, far), "axpby: x and y" + place);
  MIVO_EXPECT_FATAL_TEXT(M::axpbypz(1, x, 1, y, z), "axpbypz: x and y" + size);
  MIVO_EXPECT_FATAL_TEXT(M::axpbypz(1, x, 1, z, y), "axpbypz: x and z" + size);
  MIVO_EXPECT_FATAL_TEXT(M::axpbypz(1, none, 1, far, none), "axpbypz: x and y" + place);
  MIVO_EXPECT_FATAL_TEXT(M::axpbypz(1, none, 1, none, far), "axpbypz: x and z" + place);
  MIVO_EXPECT_FATAL_TEXT(M::axpbypcz(1, x, 1, z, 1, y), "axpbypcz: x and z" + size);
  MIVO_EXPECT_FATAL_TEXT(M::axypbz(1, x, y, 1, z), "axypbz: x and y" + size);
  MIVO_EXPECT_FATAL(M::dot(x, far), "Matrix:306", "dot: x and y" + place);
  MIVO_EXPECT_FATAL(M::dot(x, y), "Matrix:307", "dot: x and y" + size);
  MIVO_EXPECT_FATAL(far.selectRows(rows, z), "Matrix:436",
                    "selectRows: indices should on the same device");
  MIVO_EXPECT_FATAL(x.unselectRows(rows, far), "Matrix:441",
                    "selectRows: indices and sub_array should on the same device");
  std::vector<M> blocks;
  MIVO_EXPECT_FATAL(x.splitRows(partsAt<long>({0, 2, 4}), blocks), "Matrix:677",
                    "splitRows: rows.size() != partitioner.getGlobalSize()");
}

}  // namespace
}  // namespace mivo::test
