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

template <class T>
class MatrixTest : public testing::Test {
 protected:
  void SetUp() override { Device::initialize(); }
};
TYPED_TEST_SUITE(MatrixTest, ValueTypes);

TYPED_TEST(MatrixTest, ResizeKeepsTheStorageThatFits) {
  using M = MatrixT<TypeParam, int>;
  for (const Device& device : testDevices()) {
    M m;
    m.create(4, 5, device);
    const TypeParam* data = m.getData();
    const M handle = m;
    m.resize(3, 2, device);
    m.resize(10, 2, device);
    EXPECT_EQ(m.getData(), data);
    EXPECT_EQ(m.getCapacity(), 20);
    EXPECT_EQ(handle.getRows(), 10);
    m.resize(7, 3, device);
    EXPECT_EQ(m.getCapacity(), 21);
    EXPECT_EQ(handle.getSize(), 20);
    m.create(0, 5, device);
    EXPECT_EQ(m.getData(), nullptr);
    EXPECT_EQ(m.getCols(), 5);
  }
  EXPECT_EQ(M().getRows(), 0);
  EXPECT_EQ(M().getDevice(), Device());
}

TYPED_TEST(MatrixTest, HandlesSurviveMovesAndTheirOwnDeviceAsArgument) {
  using M = MatrixT<TypeParam, int>;
  for (const Device& device : testDevices()) {
    M m;
    m.create(2, 1, device);
    m.create(3, 1, m.getDevice());
    EXPECT_EQ(m.getDevice(), device);
    m.resize(4, 1, m.getDevice());
    EXPECT_EQ(m.getDevice(), device);
    M taken = std::move(m);
    EXPECT_EQ(m.getData(), taken.getData());
    m = std::move(taken);
    taken.resize(5, 1, device);
    EXPECT_EQ(m.getRows(), 4);
  }
}

TYPED_TEST(MatrixTest, CopiesOfAHandleShareAndDeepCopiesDoNot) {
  using M = MatrixT<TypeParam, int>;
  const std::vector<TypeParam> a = smallValues<TypeParam>(6, 1);
  for (const Device& device : testDevices()) {
    M m = matrixOf<TypeParam>(device, 2, 3, a);
    M same = m.toDevice(device);
    M into;
    m.toDevice(device, into);
    M deep;
    m.deepCopy(deep);
    m.fill(TypeParam(7));
    EXPECT_EQ(same.getData(), m.getData());
    EXPECT_EQ(into.getData(), m.getData());
    EXPECT_EQ(valuesOf(deep), a);
    EXPECT_EQ(deep.getRows(), 2);
    EXPECT_EQ(deep.getDevice().type, device.type);
    EXPECT_EQ(valuesOf(same), std::vector<TypeParam>(6, TypeParam(7)));
  }
}

TYPED_TEST(MatrixTest, ElementAccessStaysInsideTheShape) {
  for (const Device& device : testDevices()) {
    const std::vector<TypeParam> a = smallValues<TypeParam>(12, 2);
    MatrixT<TypeParam, int> m = matrixOf<TypeParam>(device, 4, 3, a);
    bool ok = false;
    EXPECT_EQ(m.getElementValue(2, 1, &ok), a[7]);
    EXPECT_TRUE(ok);
    EXPECT_TRUE(m.setElementValue(3, 2, TypeParam(50)));
    EXPECT_EQ(m.getElementValue(3, 2, nullptr), TypeParam(50));
    const int outside[][2] = {{4, 0}, {0, 3}, {-1, 0}, {0, -1}};
    for (const auto& at : outside) {
      ok = true;
      EXPECT_EQ(m.getElementValue(at[0], at[1], &ok), TypeParam(0));
      EXPECT_FALSE(ok);
      EXPECT_FALSE(m.setElementValue(at[0], at[1], TypeParam(99)));
    }
    std::vector<TypeParam> expected = a;
    expected[11] = TypeParam(50);
    EXPECT_EQ(valuesOf(m), expected);
  }
}

TYPED_TEST(MatrixTest, SelectsAndReturnsRows) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    const std::vector<T> a = smallValues<T>(15, 3);
    MatrixT<T, int> m = matrixOf<T>(device, 5, 3, a);
    const IndexVector picked = matrixOf<int>(device, 3, 1, {4, 0, 2});
    MatrixT<T, int> sub;
    m.selectRows(picked, sub);
    ASSERT_EQ(sub.getRows(), 3);
    EXPECT_EQ(valuesOf(sub),
              (std::vector<T>{a[12], a[13], a[14], a[0], a[1], a[2], a[6], a[7], a[8]}));

    m.fill(T(1));
    m.unselectRows(picked, sub);
    std::vector<T> expected = a;
    for (std::size_t row : {1, 3}) {
      for (std::size_t j = 0; j < 3; ++j) expected[3 * row + j] = T(1);
    }
    EXPECT_EQ(valuesOf(m), expected);

    m.selectRows(picked, m);
    EXPECT_EQ(valuesOf(m), valuesOf(sub));
  }
}

TYPED_TEST(MatrixTest, SplitAndMergedRowsGiveTheMatrixBack) {
  using M = MatrixT<TypeParam, int>;
  const auto part = partsAt<long>({0, 3, 3, 7});
  const std::vector<TypeParam> a = smallValues<TypeParam>(14, 4);
  for (const Device& device : testDevices()) {
    std::vector<M> blocks;
    matrixOf<TypeParam>(device, 7, 2, a).splitRows(part, blocks);
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(valuesOf(blocks[0]), std::vector<TypeParam>(a.begin(), a.begin() + 6));
    EXPECT_EQ(blocks[1].getRows(), 0);
    EXPECT_EQ(blocks[2].getDevice(), Device());
    for (M& block : blocks) block = block.toDevice(device);
    const M merged = M::mergeRows(part, blocks);
    EXPECT_EQ(merged.getRows(), 7);
    EXPECT_EQ(merged.getDevice().type, device.type);
    EXPECT_EQ(valuesOf(merged), a);
  }
  PartitionerT<int, int> none;
  none.create(0, 2);
  std::vector<M> blocks;
  M().splitRows(none, blocks);
  EXPECT_EQ(blocks.size(), 2u);
  EXPECT_EQ(M::mergeRows(none, blocks).getSize(), 0);
}

TYPED_TEST(MatrixTest, ArithmeticAsksForEqualCountsNotShapes) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    MatrixT<T, int> x = matrixOf<T>(device, 3, 2, std::vector<T>(6, T(2)));
    const MatrixT<T, int> y = matrixOf<T>(device, 6, 1, std::vector<T>(6, T(5)));
    x += y;
    EXPECT_EQ(valuesOf(x), std::vector<T>(6, T(7)));
    EXPECT_EQ((MatrixT<T, int>::dot(x, y)), T(210));
  }
}

TYPED_TEST(MatrixTest, TravelsThroughAStreamWithAHeaderOfTwoInts) {
  const std::vector<TypeParam> a = smallValues<TypeParam>(6, 10);
  const MatrixT<TypeParam, int> m = matrixOf<TypeParam>(Device(), 2, 3, a);
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
  const std::vector<TypeParam> v = valuesOf(MatrixT<TypeParam, int>::rand(500, 2));
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
  using M = MatrixT<int, int>;
  EXPECT_EQ(valuesOf(M::range(-2, 3)), (std::vector<int>{-2, -1, 0, 1, 2}));
  EXPECT_EQ(valuesOf(M::range(1, 8, 3)), (std::vector<int>{1, 4, 7}));
  EXPECT_EQ(valuesOf(M::range(1, 7, 3)), (std::vector<int>{1, 4}));
  EXPECT_EQ(M::range(3, 3).getRows(), 0);
  EXPECT_EQ(M::range(3, 1).getRows(), 0);
  EXPECT_EQ(M::range(0, 5).getCols(), 1);
  EXPECT_EQ(valuesOf(M::range(-2'000'000'000, 2'000'000'000, 1'500'000'000)),
            (std::vector<int>{-2'000'000'000, -500'000'000, 1'000'000'000}));
  EXPECT_EQ(M::range(1, 4).getString(), "[1, 2, 3]");
  EXPECT_EQ(M().getString(), "[]");
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
  using M = MatrixT<double, int>;
  M x, y, z;
  x.create(3, 1, Device());
  y.create(4, 1, Device());
  z.create(3, 1, Device());
  // A kind without memory stands for another device.
  M far;
  far.create(0, 1, Device(2, 0));
  M none;
  const IndexVector rows = IndexVector::range(0, 2);

  MIVO_EXPECT_FATAL(none.create(-1, 1, Device()), "Matrix:117", "");
  MIVO_EXPECT_FATAL(none.resize(1, -1, Device()), "Matrix:117", "");
  MIVO_EXPECT_FATAL_TEXT(none.create(1 << 16, 1 << 16, Device()),
                         "Matrix: 65536 x 65536 elements exceed the index type");
  MatrixT<double, long> wide;
  MIVO_EXPECT_FATAL_TEXT(wide.create(1L << 33, 1L << 31, Device()),
                         "Matrix: 8589934592 x 2147483648 elements exceed the index type");
  MIVO_EXPECT_FATAL_TEXT(wide.create(1, 1L << 61, Device()),
                         "Matrix: 1 x 2305843009213693952 elements exceed the index type");
  MIVO_EXPECT_FATAL_TEXT(M::axpy(1, x, y), "axpy: x and y must have the same size");
  MIVO_EXPECT_FATAL_TEXT(M::axpy(1, none, far), "axpy: x and y must be on the same device");
  MIVO_EXPECT_FATAL_TEXT(M::axpby(1, x, 1, y), "axpby: x and y must have the same size");
  MIVO_EXPECT_FATAL_TEXT(M::axpby(1, none, 1, far), "axpby: x and y must be on the same device");
  MIVO_EXPECT_FATAL_TEXT(M::axpbypz(1, x, 1, y, z), "axpbypz: x and y must have the same size");
  MIVO_EXPECT_FATAL_TEXT(M::axpbypz(1, x, 1, z, y), "axpbypz: x and z must have the same size");
  MIVO_EXPECT_FATAL_TEXT(M::axpbypz(1, none, 1, far, none),
                         "axpbypz: x and y must be on the same device");
  MIVO_EXPECT_FATAL_TEXT(M::axpbypz(1, none, 1, none, far),
                         "axpbypz: x and z must be on the same device");
  MIVO_EXPECT_FATAL_TEXT(M::axpbypcz(1, x, 1, z, 1, y),
                         "axpbypcz: x and z must have the same size");
  MIVO_EXPECT_FATAL_TEXT(M::axypbz(1, x, y, 1, z), "axypbz: x and y must have the same size");
  MIVO_EXPECT_FATAL(M::dot(x, far), "Matrix:306", "dot: x and y must be on the same device");
  MIVO_EXPECT_FATAL(M::dot(x, y), "Matrix:307", "dot: x and y must have the same size");
  MIVO_EXPECT_FATAL(far.selectRows(rows, z), "Matrix:436",
                    "selectRows: indices should on the same device");
  MIVO_EXPECT_FATAL(x.unselectRows(rows, far), "Matrix:441",
                    "selectRows: indices and sub_array should on the same device");
  std::vector<M> blocks;
  PartitionerT<int, int> part;
  part.create(4, 2);
  MIVO_EXPECT_FATAL(x.splitRows(part, blocks), "Matrix:677",
                    "splitRows: rows.size() != partitioner.getGlobalSize()");
}

}  // namespace
}  // namespace mivo::test
