// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "mivo/mat/ParMatrix.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/operators.hpp"

// The kernels are tested alone; assembly, ways to and from one rank, and reductions in tests/mpi.

namespace mivo::test {
namespace {

using Vector = ParVector<double>;
using Values = std::vector<double>;

template <class T>
ParVector<T> vectorOf(const Device& device, const std::vector<T>& values, int cols = 1) {
  ParVector<T> x(static_cast<long>(values.size()) / cols, cols, device);
  x.setLocalMatrix({matrixOf<T>(device, static_cast<int>(values.size()) / cols, cols, values)});
  return x;
}

TEST(ParMatrix, CreationShapesTheLocalBlockWhereElementsStayInside) {
  for (const Device& device : testDevices()) {
    Vector x(7, 3, device), y;
    EXPECT_EQ(x.getSize(), 21);
    EXPECT_EQ(x.getLocalMatrix().getRows(), 7);
    EXPECT_EQ(x.getLocalMatrix().getCols(), 3);
    EXPECT_EQ(x.getDevice(), device);
    y.create(x.getRowPartitioner(), device);
    EXPECT_EQ(y.getRows(), 7);
    EXPECT_EQ(y.getCols(), 1);
    EXPECT_EQ(y.getColPartitioner().getNumParts(), 1);
    const double* data = x.getLocalMatrix().getData();
    x.resize(7, 3, device);
    EXPECT_EQ(x.getLocalMatrix().getData(), data);
    x.resize(8, 3, device);
    EXPECT_EQ(x.getLocalMatrix().getRows(), 8);

    EXPECT_TRUE(x.setElementValue(7, 1, 44));
    bool ok = false;
    EXPECT_EQ(x.getElementValue(7, 1, &ok), 44);
    EXPECT_TRUE(ok);
    for (const auto& [row, col] : {std::pair{8L, 0L}, {0L, 3L}, {-1L, 0L}, {0L, -1L}}) {
      EXPECT_FALSE(x.setElementValue(row, col, 1));
      EXPECT_EQ(x.getElementValue(row, col, &ok), 0);
      EXPECT_FALSE(ok);
    }
  }
}

TEST(ParMatrix, EmptyObjectsAnswerEveryQuery) {
  const Vector none, noRows(0, 4, Device());
  for (const Vector& x : {none, noRows, none.deepCopy(), noRows.toDevice(Device())}) {
    EXPECT_EQ(x.getRows(), 0);
    EXPECT_EQ(x.getSize(), 0);
    long begin = -1, end = -1;
    x.getOwnerShipRange(&begin, &end);
    EXPECT_EQ(begin, 0);
    EXPECT_EQ(end, 0);
    bool ok = true;
    EXPECT_EQ(x.getElementValue(0, 0, &ok), 0);
    EXPECT_FALSE(ok);
    EXPECT_EQ(Vector::normL1(x), 0);
    EXPECT_EQ(Vector::dot(x, x), 0);
    EXPECT_EQ(x.gather(0).getRows(), 0);
  }
}

TEST(ParMatrix, ArithmeticActsOnTheLocalBlock) {
  for (const Device& device : testDevices()) {
    const Vector x = vectorOf<double>(device, {3, 3}), y = vectorOf<double>(device, {5, 5});
    const auto changed = [&](const std::function<void(Vector&)>& change) {
      Vector z = vectorOf<double>(device, {7, 7});
      change(z);
      return valuesOf(z);
    };
    EXPECT_EQ(changed([](Vector& z) { z.fill(4); }), Values(2, 4));
    EXPECT_EQ(changed([](Vector& z) { z *= 2; }), Values(2, 14));
    EXPECT_EQ(changed([&](Vector& z) { Vector::axpy(2, x, z); }), Values(2, 13));
    EXPECT_EQ(changed([&](Vector& z) { Vector::axpby(2, x, -1, z); }), Values(2, -1));
    EXPECT_EQ(changed([&](Vector& z) { Vector::axpbypz(2, x, -1, y, z); }), Values(2, 8));
    EXPECT_EQ(changed([&](Vector& z) { Vector::axpbypcz(2, x, -1, y, 3, z); }), Values(2, 22));
    EXPECT_EQ(changed([&](Vector& z) { Vector::axypbz(2, x, y, -1, z); }), Values(2, 23));
    EXPECT_EQ(changed([](Vector& z) { Vector::reciprocal(14, z); }), Values(2, 2));
    expectNear(changed([](Vector& z) { Vector::pow(2, z); }), Values(2, 49));
  }
}

TEST(ParMatrix, CopiesKeepUnevenSplitsAndOwnTheirData) {
  // More parts than ranks: only the shape of the split matters here.
  const auto rows = partsAt<long>({0, 4, 6}), cols = partsAt<long>({0, 0, 2});
  for (const Device& device : testDevices()) {
    Vector x, even(6, 2, device);
    x.create(rows, cols, device);
    EXPECT_EQ(x.getLocalMatrix().getRows(), 4);
    x.fill(3);
    x.deepCopy(even);
    EXPECT_TRUE(even.hasShapeOf(x));
    EXPECT_TRUE(even.getRowPartitioner() == rows);
    EXPECT_NE(even.getLocalMatrix().getData(), x.getLocalMatrix().getData());
    EXPECT_EQ(valuesOf(even), Values(8, 3));
    const double* data = even.getLocalMatrix().getData();
    x.deepCopy(even);
    EXPECT_EQ(even.getLocalMatrix().getData(), data) << "a second copy reuses the storage";

    // Either partition alone makes a difference.
    const Vector plain(6, 2, device);
    Vector other[2];
    other[0].create(rows, plain.getColPartitioner(), device);
    other[1].create(plain.getRowPartitioner(), cols, device);
    for (Vector& o : other) {
      EXPECT_FALSE(o.hasShapeOf(x));
      x.deepCopy(o);
      EXPECT_TRUE(o.hasShapeOf(x));
    }
    Vector handle = x, shared = x.toDevice(device), selfCopy = x;
    const Vector deep = x.deepCopy();
    x.deepCopy(selfCopy);
    x.deepCopy(shared);
    handle.fill(5);
    EXPECT_EQ(valuesOf(x), Values(8, 5));
    EXPECT_EQ(valuesOf(deep), Values(8, 3));
    EXPECT_EQ(valuesOf(selfCopy), valuesOf(deep));
    EXPECT_EQ(valuesOf(shared), valuesOf(deep))
        << "a deep copy into shared storage must unshare it";

    Vector placed(3, device);
    x.toDevice(placed.getDevice(), placed);
    EXPECT_TRUE(placed.hasShapeOf(x)) << "the device is an argument out of the result";
    EXPECT_EQ(placed.getLocalMatrix().getData(), x.getLocalMatrix().getData());

    ParVector<int> structure;
    x.copyStructure(structure);
    EXPECT_TRUE(structure.hasShapeOf(x));
    EXPECT_EQ(structure.getLocalMatrix().getSize(), 8);
  }
}

TEST(ParMatrix, SplitsIntoPartsAndJoinsThem) {
  using C = Complex<double>;
  for (const Device& device : testDevices()) {
    const auto x = vectorOf<C>(device, {C(1, 4), C(2, 5), C(3, 6)});
    Vector re, im(2, device);
    x.getReal(re);
    x.getImag(im);
    EXPECT_EQ(valuesOf(re), (Values{1, 2, 3}));
    EXPECT_EQ(valuesOf(im), (Values{4, 5, 6}));
    EXPECT_EQ(valuesOf(x.getReal()), valuesOf(re));
    EXPECT_EQ(valuesOf(x.getImag()), valuesOf(im));
    ParVector<C> joined;
    joined.createComplex(re, im);
    EXPECT_EQ(valuesOf(joined), valuesOf(x));
    EXPECT_TRUE(joined.hasShapeOf(x));
    joined.createComplex(re, Vector());
    EXPECT_TRUE(joined.hasShapeOf(x));
    EXPECT_EQ(valuesOf(joined.getImag()), Values(3, 0));
  }
}

TEST(ParMatrix, WrongCallsEndTheProcess) {
  Device::initialize();
  Vector x(2, 3, Device());
  const auto block = x.getLocalMatrix();
  const std::string one = "only support localMat.size == 1",
                    begin = "beginAssemble has not been called";
  MIVO_EXPECT_FATAL(x.setLocalMatrix({}), "ParMatrix:282", one);
  MIVO_EXPECT_FATAL((x.setLocalMatrix({block, block})), "ParMatrix:282", one);
  MIVO_EXPECT_FATAL_TEXT(x.setValue(0, 0, 1.0, SetValueMode::Set), "setValue: " + begin);
  MIVO_EXPECT_FATAL_TEXT(x.endAssemble(), "endAssemble: " + begin);
  for (const auto& [row, col] :
       {std::pair{2L, 0L}, {-1L, 0L}, {0L, 3L}, {0L, -1L}, {0L, 1L << 32}}) {
    x.beginAssemble();
    x.setValue(row, col, 1.0, SetValueMode::Set);
    EXPECT_EXIT(x.endAssemble(), testing::ExitedWithCode(1), "");
  }
}

}  // namespace
}  // namespace mivo::test
