// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "mivo/mat/ParMatrix.hpp"
#include "tests/support/dense.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/fatal.hpp"

namespace mivo::test {
namespace {

template <class T>
class ParMatrixAssemblyTest : public testing::Test {};
TYPED_TEST_SUITE(ParMatrixAssemblyTest, ValueTypes);

TYPED_TEST(ParMatrixAssemblyTest, SetsAndAddsAndZeroesTheRest) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    ParMatrixT<T, long, int> x(3, 2, device);
    x.fill(T(99));
    x.beginAssemble();
    x.setValue(0, 1, T(4), SetValueMode::Set);
    x.setValue(0, 1, T(5), SetValueMode::Set);
    x.setValue(2, 0, T(1), SetValueMode::Add);
    x.setValue(2, 0, T(2), SetValueMode::Add);
    x.setValue(2, 1, T(7), SetValueMode::Set);
    x.setValue(2, 1, T(-3), SetValueMode::Add);
    x.setValue(1, T(6), SetValueMode::Add);
    EXPECT_EQ(valuesOf(x)[0], T(99)) << "nothing happens before endAssemble";
    x.endAssemble();
    EXPECT_EQ(valuesOf(x), (std::vector<T>{T(0), T(5), T(6), T(0), T(3), T(4)}));
    EXPECT_EQ(x.getLocalMatrix().getDevice().type, device.type);

    x.beginAssemble();
    x.endAssemble();
    EXPECT_EQ(valuesOf(x), std::vector<T>(6, T(0)));
  }
}

TYPED_TEST(ParMatrixAssemblyTest, WholeMatrixComesThroughAssembly) {
  using T = TypeParam;
  const std::vector<T> a = smallValues<T>(12, 1);
  for (const Device& device : testDevices()) {
    ParMatrixT<T, long, int> x;
    x.createByAssemble(matrixOf<T, long>(device, 4, 3, a), kCommWorld);
    EXPECT_EQ(x.getRows(), 4);
    EXPECT_EQ(x.getCols(), 3);
    EXPECT_EQ(valuesOf(x), a);
  }
  ParMatrixT<T, int, int> none(2, Device());
  none.createByAssemble(MatrixT<T, int>(), kCommWorld);
  EXPECT_EQ(none.getSize(), 0);
}

TYPED_TEST(ParMatrixAssemblyTest, ScatterAndGatherMoveTheWholeMatrix) {
  using T = TypeParam;
  const std::vector<T> a = smallValues<T>(10, 2);
  for (const Device& device : testDevices()) {
    const MatrixT<T, int> m = matrixOf<T>(device, 5, 2, a);
    ParMatrixT<T, long, int> x(3, Device());
    x.scatter(kCommWorld, 0, m);
    EXPECT_EQ(x.getRows(), 5);
    EXPECT_EQ(x.getCols(), 2);
    EXPECT_EQ(x.getDevice(), device);
    x.fill(T(1));
    EXPECT_EQ(valuesOf(m), a) << "the scattered matrix does not share its storage";

    PartitionerT<long, int> part;
    part.create(5, 1);
    x.scatter(kCommWorld, 0, m, part);
    const MatrixT<T, int> back = x.gather(0);
    EXPECT_EQ(back.getRows(), 5);
    EXPECT_EQ(valuesOf(back), a);
    EXPECT_EQ(back.getDevice().type, device.type);
    EXPECT_NE(back.getData(), x.getLocalMatrix().getData());
  }
  ParMatrixT<T, long, int> none(4, Device());
  none.scatter(kCommWorld, 0, MatrixT<T, int>());
  EXPECT_EQ(none.getRows(), 0);
  EXPECT_EQ(none.gather(0).getSize(), 0);
  EXPECT_EQ((ParMatrixT<T, long, int>().gather(0).getRows()), 0);
}

TEST(ParMatrixAssembly, EntriesOutsideTheMatrixEndTheProcessInEndAssemble) {
  Device::initialize();
  const long outside[][2] = {{2, 0}, {-1, 0}, {0, 3}, {0, -1}, {0, 4'294'967'296}};
  for (const auto& at : outside) {
    ParMatrixT<double, long, int> x(2, 3, Device());
    x.beginAssemble();
    x.setValue(at[0], at[1], 1.0, SetValueMode::Set);
    EXPECT_EXIT(x.endAssemble(), testing::ExitedWithCode(1), "");
  }
  ParMatrixT<double, long, int> x(2, 3, Device());
  MIVO_EXPECT_FATAL_TEXT(x.setValue(0, 0, 1.0, SetValueMode::Set),
                         "setValue: beginAssemble has not been called");
  MIVO_EXPECT_FATAL_TEXT(x.endAssemble(), "endAssemble: beginAssemble has not been called");
}

}  // namespace
}  // namespace mivo::test
