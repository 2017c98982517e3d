// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <utility>
#include <vector>

#include "mivo/mat/ParMatrix.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/operators.hpp"

namespace mivo::test {
namespace {

template <class T>
using Vector = ParMatrixT<T, long, int>;

template <class T>
Vector<T> vectorOf(const Device& device, const std::vector<T>& values, int cols = 1) {
  Vector<T> x(static_cast<long>(values.size()) / cols, cols, device);
  x.setLocalMatrix({matrixOf<T>(device, static_cast<int>(values.size()) / cols, cols, values)});
  return x;
}

template <class T>
class ParMatrixTest : public testing::Test {
 protected:
  void SetUp() override { Device::initialize(); }
};
TYPED_TEST_SUITE(ParMatrixTest, ValueTypes);

TYPED_TEST(ParMatrixTest, CreationShapesTheLocalBlock) {
  for (const Device& device : testDevices()) {
    Vector<TypeParam> x(7, 3, device), y;
    EXPECT_EQ(x.getSize(), 21);
    EXPECT_EQ(x.getLocalMatrix().getRows(), 7);
    EXPECT_EQ(x.getLocalMatrix().getCols(), 3);
    EXPECT_EQ(x.getDevice(), device);
    y.create(x.getRowPartitioner(), device);
    EXPECT_EQ(y.getRows(), 7);
    EXPECT_EQ(y.getCols(), 1);
    EXPECT_EQ(y.getColPartitioner().getNumParts(), 1);

    const TypeParam* data = x.getLocalMatrix().getData();
    x.resize(7, 3, device);
    EXPECT_EQ(x.getLocalMatrix().getData(), data);
    x.resize(8, 3, device);
    EXPECT_EQ(x.getLocalMatrix().getRows(), 8);
  }
}

TYPED_TEST(ParMatrixTest, EmptyObjectsAnswerEveryQuery) {
  Vector<TypeParam> none;
  Vector<TypeParam> noRows(0, 4, Device());
  for (const Vector<TypeParam>& x : {none, noRows, none.deepCopy(), noRows.toDevice(Device())}) {
    EXPECT_EQ(x.getRows(), 0);
    EXPECT_EQ(x.getSize(), 0);
    long begin = -1, end = -1;
    x.getOwnerShipRange(&begin, &end);
    EXPECT_EQ(begin, 0);
    EXPECT_EQ(end, 0);
    bool ok = true;
    EXPECT_EQ(x.getElementValue(0, 0, &ok), TypeParam(0));
    EXPECT_FALSE(ok);
    EXPECT_EQ(Vector<TypeParam>::normL1(x), 0);
    EXPECT_EQ(Vector<TypeParam>::dot(x, x), TypeParam(0));
    EXPECT_EQ(x.gather(0).getRows(), 0);
  }
}

TYPED_TEST(ParMatrixTest, ElementAccessStaysInsideTheShape) {
  for (const Device& device : testDevices()) {
    Vector<TypeParam> x = vectorOf(device, smallValues<TypeParam>(6, 1), 2);
    EXPECT_TRUE(x.setElementValue(2, 1, TypeParam(44)));
    bool ok = false;
    EXPECT_EQ(x.getElementValue(2, 1, &ok), TypeParam(44));
    EXPECT_TRUE(ok);
    const long outside[][2] = {{3, 0}, {0, 2}, {-1, 0}, {0, -1}};
    for (const auto& at : outside) {
      EXPECT_FALSE(x.setElementValue(at[0], at[1], TypeParam(1)));
      EXPECT_EQ(x.getElementValue(at[0], at[1], &ok), TypeParam(0));
      EXPECT_FALSE(ok);
    }
  }
}

// The kernels are tested alone, reductions in tests/mpi.
TEST(ParMatrix, ArithmeticActsOnTheLocalBlock) {
  using T = Complex<double>;
  using V = Vector<T>;
  const std::size_t n = 31;
  const std::vector<T> x = smallValues<T>(n, 2), y = smallValues<T>(n, 3), z = smallValues<T>(n, 4);
  const T a(3, 1), b(-2), c(5, -2);
  using Call = std::function<void(const V&, const V&, V&)>;
  using Formula = std::function<T(T, T, T)>;
  const std::vector<std::pair<Call, Formula>> table = {
      {[&](auto&, auto&, V& t) { t.fill(c); }, [&](T, T, T) { return c; }},
      {[&](auto&, auto&, V& t) { t *= a; }, [&](T, T, T w) { return w * a; }},
      {[&](auto& u, auto&, V& t) { V::axpy(a, u, t); }, [&](T u, T, T w) { return w + u * a; }},
      {[&](auto& u, auto&, V& t) { V::axpby(a, u, b, t); },
       [&](T u, T, T w) { return u * a + w * b; }},
      {[&](auto& u, auto& v, V& t) { V::axpbypz(a, u, b, v, t); },
       [&](T u, T v, T w) { return w + u * a + v * b; }},
      {[&](auto& u, auto& v, V& t) { V::axpbypcz(a, u, b, v, c, t); },
       [&](T u, T v, T w) { return v * b + u * a + w * c; }},
      {[&](auto& u, auto& v, V& t) { V::axypbz(a, u, v, b, t); },
       [&](T u, T v, T w) { return u * a * v + w * b; }}};
  for (const Device& device : testDevices()) {
    for (std::size_t k = 0; k < table.size(); ++k) {
      V target = vectorOf(device, z);
      table[k].first(vectorOf(device, x), vectorOf(device, y), target);
      std::vector<T> expected(n);
      for (std::size_t i = 0; i < n; ++i) expected[i] = table[k].second(x[i], y[i], z[i]);
      EXPECT_EQ(valuesOf(target), expected) << k;
    }
    V one = vectorOf(device, std::vector<T>{T(1), T(0), T(-1)});
    V::reciprocal(T(2), one);
    EXPECT_EQ(valuesOf(one), (std::vector<T>{T(2), T(2), T(-2)}));
    V square = vectorOf(device, std::vector<T>{T(2), T(0), T(5)});
    V::pow(T(2), square);
    expectNear(valuesOf(square), std::vector<T>{T(4), T(0), T(25)});
  }
}

TYPED_TEST(ParMatrixTest, CopiesKeepUnevenSplitsAndOwnTheirData) {
  using V = Vector<TypeParam>;
  PartitionerT<long, int> rows, cols;
  // More parts than ranks: only the shape of the split matters here.
  rows.create(6, std::vector<long>{0, 4, 6});
  cols.create(2, std::vector<long>{0, 0, 2});
  for (const Device& device : testDevices()) {
    V x;
    x.create(rows, cols, device);
    EXPECT_EQ(x.getLocalMatrix().getRows(), 4);
    x.fill(TypeParam(3));

    V even(6, 2, device);
    x.deepCopy(even);
    EXPECT_TRUE(even.hasShapeOf(x));
    EXPECT_TRUE(even.getRowPartitioner() == rows);
    EXPECT_NE(even.getLocalMatrix().getData(), x.getLocalMatrix().getData());
    EXPECT_EQ(valuesOf(even), std::vector<TypeParam>(8, TypeParam(3)));

    // Either partition alone makes a difference.
    const V equal(6, 2, device);
    for (bool sameRows : {true, false}) {
      V other;
      other.create(sameRows ? rows : equal.getRowPartitioner(),
                   sameRows ? equal.getColPartitioner() : cols, device);
      EXPECT_FALSE(other.hasShapeOf(x));
      x.deepCopy(other);
      EXPECT_TRUE(other.hasShapeOf(x));
    }

    // A second copy reuses the storage.
    const TypeParam* data = even.getLocalMatrix().getData();
    x.deepCopy(even);
    EXPECT_EQ(even.getLocalMatrix().getData(), data);

    V handle = x, shared = x.toDevice(device), deep = x.deepCopy();
    V selfCopy = x;
    x.deepCopy(selfCopy);
    x.deepCopy(shared);
    handle.fill(TypeParam(5));
    EXPECT_EQ(valuesOf(x), std::vector<TypeParam>(8, TypeParam(5)));
    EXPECT_EQ(valuesOf(deep), std::vector<TypeParam>(8, TypeParam(3)));
    EXPECT_EQ(valuesOf(selfCopy), valuesOf(deep));
    EXPECT_EQ(valuesOf(shared), valuesOf(deep))
        << "a deep copy into shared storage must unshare it";

    V placed(3, device);
    x.toDevice(placed.getDevice(), placed);
    EXPECT_TRUE(placed.hasShapeOf(x)) << "the device is an argument out of the result";
    EXPECT_EQ(placed.getLocalMatrix().getData(), x.getLocalMatrix().getData());

    ParMatrixT<double, long, int> structure;
    x.copyStructure(structure);
    EXPECT_TRUE(structure.hasShapeOf(x));
    EXPECT_EQ(structure.getLocalMatrix().getSize(), 8);
    EXPECT_FALSE(structure.hasShapeOf(V(6, 2, device)));
  }
}

TYPED_TEST(ParMatrixTest, SplitsIntoPartsAndJoinsThem) {
  using R = RealType<TypeParam>;
  for (const Device& device : testDevices()) {
    const std::vector<TypeParam> a = smallValues<TypeParam>(7, 8);
    const Vector<TypeParam> x = vectorOf(device, a);
    Vector<R> re, im(3, device);
    x.getReal(re);
    x.getImag(im);
    EXPECT_EQ(im.getRows(), 7);
    for (std::size_t k = 0; k < a.size(); ++k) {
      EXPECT_EQ(valuesOf(re)[k], realPart(a[k]));
      EXPECT_EQ(valuesOf(im)[k], imagPart(a[k]));
    }
    EXPECT_EQ(valuesOf(x.getReal()), valuesOf(re));
    EXPECT_EQ(valuesOf(x.getImag()), valuesOf(im));
    Vector<TypeParam> joined;
    joined.createComplex(re, im);
    EXPECT_EQ(valuesOf(joined), a);
    EXPECT_TRUE(joined.hasShapeOf(x));
    joined.createComplex(re, Vector<R>());
    EXPECT_TRUE(joined.hasShapeOf(x));
    EXPECT_EQ(valuesOf(joined.getImag()), std::vector<R>(7, R(0)));
  }
}

TYPED_TEST(ParMatrixTest, ResidualIsRightHandSideMinusProduct) {
  using T = TypeParam;
  using V = Vector<T>;
  for (const Device& device : testDevices()) {
    DenseOperator<T> A(device, 3, {T(2), T(0), T(0), T(0), T(2), T(0), T(0), T(0), T(2)});
    const V x = vectorOf(device, std::vector<T>{T(1), T(2), T(3)});
    const V b = vectorOf(device, std::vector<T>{T(2), T(7), T(10)});
    V r;
    V::residual_vec(A, x, b, r);
    EXPECT_EQ(valuesOf(r), (std::vector<T>{T(0), T(3), T(4)}));
    EXPECT_EQ(V::residual(A, x, b, r), 5);
    EXPECT_EQ(V::residual(A, x, b), 5);
    EXPECT_EQ(valuesOf(b)[1], T(7));
  }
}

TEST(ParMatrix, SequentialMatrixWrapsTheLocalOne) {
  for (const Device& device : testDevices()) {
    for (int comm : {kCommSelf, kCommWorld}) {
      const MatrixT<double, int> m = matrixOf<double>(device, 3, 2, {1, 2, 3, 4, 5, 6});
      Vector<double> x;
      x.createSeq(m, comm);
      EXPECT_EQ(x.getComm(), comm);
      EXPECT_EQ(x.getLocalMatrix().getData(), m.getData());
      EXPECT_EQ(x.getElementValue(2, 0, nullptr), 5);
      EXPECT_EQ(x.getDevice(), device);
    }
  }
}

TEST(ParMatrix, LocalBlockMustBeOne) {
  Device::initialize();
  Vector<double> x(2, Device());
  const MatrixT<double, int> block = x.getLocalMatrix();
  MIVO_EXPECT_FATAL(x.setLocalMatrix({}), "ParMatrix:282", "only support localMat.size == 1");
  MIVO_EXPECT_FATAL((x.setLocalMatrix({block, block})), "ParMatrix:282",
                    "only support localMat.size == 1");
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
