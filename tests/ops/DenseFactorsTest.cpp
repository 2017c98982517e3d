// SPDX-License-Identifier: Apache-2.0
/// Dense products, factorisations and solves of `MatOps` against plain loops and known solutions.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <type_traits>
#include <vector>

#include "mivo/ops/MatOps.hpp"
#include "tests/support/dense.hpp"
#include "tests/support/devices.hpp"

namespace mivo {
namespace {

using test::DeviceArray;
using test::smallValues;
using test::testDevices;

/// Matrix for people: row by row, with no padding.
template <class T>
struct Plain {
  long rows, cols;
  std::vector<T> values;

  Plain(long r, long c) : rows(r), cols(c), values(static_cast<std::size_t>(r * c)) {}
  T& operator()(long i, long j) { return values[static_cast<std::size_t>(i * cols + j)]; }
  const T& operator()(long i, long j) const {
    return values[static_cast<std::size_t>(i * cols + j)];
  }

  static Plain random(long r, long c, unsigned seed) {
    Plain out(r, c);
    out.values = smallValues<T>(out.values.size(), seed);
    return out;
  }
  static Plain identity(long n) {
    Plain out(n, n);
    for (long i = 0; i < n; ++i) out(i, i) = T(1);
    return out;
  }
};

template <class T>
Plain<T> operator*(const Plain<T>& a, const Plain<T>& b) {
  Plain<T> c(a.rows, b.cols);
  for (long i = 0; i < a.rows; ++i) {
    for (long j = 0; j < b.cols; ++j) {
      for (long k = 0; k < a.cols; ++k) c(i, j) += a(i, k) * b(k, j);
    }
  }
  return c;
}

template <class T>
Plain<T> adjoint(const Plain<T>& a, bool conjugate = true) {
  Plain<T> out(a.cols, a.rows);
  for (long i = 0; i < a.rows; ++i) {
    for (long j = 0; j < a.cols; ++j) out(j, i) = conjugate ? conj(a(i, j)) : a(i, j);
  }
  return out;
}

template <class T>
double largest(const Plain<T>& a) {
  double out = 0;
  for (const T& v : a.values) out = std::max(out, static_cast<double>(abs(v)));
  return out;
}

template <class T>
double distance(const Plain<T>& a, const Plain<T>& b) {
  Plain<T> d = a;
  for (std::size_t k = 0; k < d.values.size(); ++k) d.values[k] = a.values[k] - b.values[k];
  return largest(d);
}

/// The same matrix in device memory: in the case's layout, with a leading dimension beyond its
/// extent and a mark in the padding that no kernel may touch.
template <class Case>
class OnDevice {
 public:
  using T = typename Case::T;
  OnDevice(const Device& device, const Plain<T>& m)
      : rows_(m.rows), cols_(m.cols), array_(device, packed(m)) {}
  T* data() { return array_.data(); }
  typename Case::I ld() const { return static_cast<typename Case::I>(leading()); }
  Plain<T> plain() const {
    const std::vector<T> values = array_.values();
    Plain<T> out(rows_, cols_);
    std::size_t seen = 0;
    for (long i = 0; i < rows_; ++i) {
      for (long j = 0; j < cols_; ++j, ++seen) out(i, j) = values[at(i, j)];
    }
    EXPECT_EQ(std::count(values.begin(), values.end(), kMark),
              static_cast<long>(values.size() - seen));
    return out;
  }

 private:
  static inline const T kMark = T(123457);
  long leading() const { return 3 + (Case::kRowMajor ? cols_ : rows_); }
  std::size_t at(long i, long j) const {
    return static_cast<std::size_t>(Case::kRowMajor ? i * leading() + j : j * leading() + i);
  }
  std::vector<T> packed(const Plain<T>& m) const {
    const long lines = Case::kRowMajor ? rows_ : cols_;
    std::vector<T> out(static_cast<std::size_t>(lines * leading()), kMark);
    for (long i = 0; i < rows_; ++i) {
      for (long j = 0; j < cols_; ++j) out[at(i, j)] = m(i, j);
    }
    return out;
  }

  long rows_, cols_;
  DeviceArray<T> array_;
};

template <class T_, class I_, class Layout_>
struct Case {
  using T = T_;
  using I = I_;
  using Layout = Layout_;
  using Ops = MatOps<T, I, Layout>;
  static constexpr bool kRowMajor = std::is_same_v<Layout, MatrixLayoutRowMajor>;
  static double eps() { return static_cast<double>(std::numeric_limits<RealType<T>>::epsilon()); }
};

using Row = MatrixLayoutRowMajor;
using Col = MatrixLayoutColMajor;

// Whole numbers: exact in every type.
template <class C>
class DenseProducts : public testing::Test {};
using AllTypes = testing::Types<Case<int, int, Row>, Case<int, long, Col>, Case<long, long, Row>,
                                Case<float, int, Col>, Case<double, int, Row>,
                                Case<Complex<float>, long, Row>, Case<Complex<double>, int, Col>>;
TYPED_TEST_SUITE(DenseProducts, AllTypes);

struct Shape {
  int m, n, k;
};
const Shape kShapes[] = {{0, 3, 2}, {3, 0, 2}, {3, 2, 0}, {1, 1, 1}, {7, 3, 5}, {33, 31, 2}};

TYPED_TEST(DenseProducts, AreThoseOfPlainLoops) {
  using T = typename TypeParam::T;
  using Ops = typename TypeParam::Ops;
  for (const Device& device : testDevices()) {
    for (const auto& [m, n, k] : kShapes) {
      const auto a = Plain<T>::random(m, k, 1);
      const auto b = Plain<T>::random(k, n, 2);
      OnDevice<TypeParam> da(device, a), db(device, b), dc(device, Plain<T>(m, n));
      Ops::matmat(device, m, n, k, da.data(), da.ld(), db.data(), db.ld(), dc.data(), dc.ld());
      EXPECT_EQ(dc.plain().values, (a * b).values);

      OnDevice<TypeParam> dt(device, Plain<T>(k, m));
      Ops::transpose(device, m, k, da.data(), da.ld(), dt.data(), dt.ld());
      EXPECT_EQ(dt.plain().values, adjoint(a, false).values);

      const auto x = Plain<T>::random(k, 1, 3);
      const auto y = Plain<T>::random(m, 1, 4);
      DeviceArray<T> dx(device, x.values), dy(device, y.values);
      Ops::aAxpby(device, m, k, T(2), da.data(), da.ld(), dx.data(), T(-3), dy.data());
      auto expected = a * x;
      for (long i = 0; i < m; ++i) expected(i, 0) = T(2) * expected(i, 0) - T(3) * y(i, 0);
      EXPECT_EQ(dy.values(), expected.values);
    }
  }
}

TYPED_TEST(DenseProducts, DiagonalsAndRowNormsOfEitherShape) {
  using T = typename TypeParam::T;
  using R = RealType<T>;
  using Ops = typename TypeParam::Ops;
  for (const Device& device : testDevices()) {
    for (const auto& [rows, cols] : {std::pair<int, int>{5, 3}, {3, 5}, {4, 0}}) {
      auto a = Plain<T>::random(rows, cols, 5);
      OnDevice<TypeParam> da(device, a);
      DeviceArray<T> diag(device, std::vector<T>(static_cast<std::size_t>(rows), T(9)));
      Ops::get_diag(device, rows, cols, da.data(), da.ld(), diag.data());
      std::vector<T> expected(static_cast<std::size_t>(rows), T(0));
      std::vector<R> norms(expected.size());
      for (int i = 0; i < rows; ++i) {
        if (i < cols) expected[static_cast<std::size_t>(i)] = a(i, i);
        // The maximum norm would be another number; so would the sum without its root.
        double squares = 0;
        for (int j = 0; j < cols; ++j) squares += static_cast<double>(absSquared(a(i, j)));
        norms[static_cast<std::size_t>(i)] = static_cast<R>(std::sqrt(squares));
      }
      EXPECT_EQ(diag.values(), expected);

      DeviceArray<R> dn(device, expected.size());
      Ops::mat_row_norm(device, rows, cols, da.data(), da.ld(), R(2), dn.data());
      const auto found = dn.values();
      for (std::size_t i = 0; i < norms.size(); ++i) {
        EXPECT_NEAR(static_cast<double>(found[i]), static_cast<double>(norms[i]), 1e-5);
      }

      DeviceArray<T> news(device, smallValues<T>(8, 6));
      Ops::set_diag(device, rows, cols, da.data(), da.ld(), news.data());
      for (int i = 0; i < std::min(rows, cols); ++i) {
        a(i, i) = smallValues<T>(8, 6)[static_cast<std::size_t>(i)];
      }
      EXPECT_EQ(da.plain().values, a.values);
    }
  }
}

/// What the tests below do with a matrix.
template <class C>
struct Runs {
  using T = typename C::T;
  using I = typename C::I;
  using Ops = typename C::Ops;

  struct Lu {
    Plain<T> factors;
    std::vector<I> ipiv;
    I info;
  };
  static Lu factor(const Device& device, const Plain<T>& a) {
    OnDevice<C> da(device, a);
    DeviceArray<I> ipiv(device, std::vector<I>(static_cast<std::size_t>(a.rows), I(-5)));
    DeviceArray<I> info(device, std::vector<I>{-7});
    Ops::xgetrf(device, static_cast<I>(a.rows), static_cast<I>(a.cols), da.data(), da.ld(),
                ipiv.data(), info.data());
    return {da.plain(), ipiv.values(), info.values()[0]};
  }
  static Plain<T> solve(const Device& device, const Plain<T>& a, const Plain<T>& b, I* info) {
    OnDevice<C> da(device, a), db(device, b);
    DeviceArray<I> ipiv(device, static_cast<std::size_t>(a.rows));
    DeviceArray<I> state(device, std::vector<I>{-7});
    Ops::xgesv(device, static_cast<I>(a.rows), static_cast<I>(b.cols), da.data(), da.ld(),
               ipiv.data(), db.data(), db.ld(), state.data());
    *info = state.values()[0];
    return db.plain();
  }
  /// Both steps of a two-step member, which is given garbage where it has nothing to read.
  template <class Member>
  static Plain<T> twoSteps(const Device& device, Member member, const Plain<T>& a,
                           const Plain<T>& b, int* status) {
    OnDevice<C> da(device, a);
    DeviceArray<T> db(device, b.values);
    DeviceArray<int> state(device, std::vector<int>{-7});
    const I n = static_cast<I>(a.rows);
    member(device, 0, n, state.data(), da.data(), da.ld(), db.data());
    EXPECT_EQ(da.plain().values.size(), a.values.size());
    EXPECT_EQ(db.values(), b.values);
    EXPECT_EQ(state.values()[0], -7);
    member(device, 1, n, state.data(), da.data(), da.ld(), nullptr);
    member(device, 2, n, nullptr, da.data(), da.ld(), db.data());
    *status = state.values()[0];
    Plain<T> x(b.rows, 1);
    x.values = db.values();
    return x;
  }
  /// Random, with a row order that needs exchanges: small numbers on the diagonal.
  static Plain<T> generalMatrix(int n) {
    auto a = Plain<T>::random(n, n, static_cast<unsigned>(40 + n));
    for (int i = 0; i < n; ++i) {
      a(i, (i + 1) % n) += T(5 * n);
      if (n > 1) a(i, i) = T(i % 2 == 0 ? 0 : 1);
    }
    return a;
  }
  /// |b - A x| against what rounding explains.
  static void expectSmallResidual(const Plain<T>& a, const Plain<T>& x, const Plain<T>& b) {
    const double n = static_cast<double>(a.rows);
    EXPECT_LE(distance(a * x, b), 8 * n * C::eps() * (largest(a) * n * largest(x) + largest(b)));
  }
};

template <class C>
class DenseFactors : public testing::Test {};
using Scalars =
    testing::Types<Case<float, int, Row>, Case<double, long, Row>, Case<double, int, Col>,
                   Case<Complex<float>, int, Col>, Case<Complex<double>, int, Row>>;
TYPED_TEST_SUITE(DenseFactors, Scalars);

TYPED_TEST(DenseFactors, SolveAndInvertWithRowExchanges) {
  using T = typename TypeParam::T;
  using I = typename TypeParam::I;
  using Ops = typename TypeParam::Ops;
  for (const Device& device : testDevices()) {
    for (const int n : {1, 2, 5, 33}) {
      const auto a = Runs<TypeParam>::generalMatrix(n);
      const auto b = Plain<T>::random(n, 3, 8);
      I info = 0;
      const auto x = Runs<TypeParam>::solve(device, a, b, &info);
      EXPECT_EQ(info, -1);
      Runs<TypeParam>::expectSmallResidual(a, x, b);

      const auto lu = Runs<TypeParam>::factor(device, a);
      DeviceArray<I> ipiv(device, lu.ipiv), state(device, std::vector<I>{-1});
      OnDevice<TypeParam> inverse(device, lu.factors);
      Ops::xgetri(device, n, inverse.data(), inverse.ld(), ipiv.data(), state.data());
      Runs<TypeParam>::expectSmallResidual(a, inverse.plain(), Plain<T>::identity(n));
      Runs<TypeParam>::expectSmallResidual(inverse.plain(), a, Plain<T>::identity(n));

      // The factors multiply to the rows in the order of the exchanges, their sizes below 1.
      Plain<T> lower = Plain<T>::identity(n), upper(n, n), permuted = a;
      for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) (j < i ? lower : upper)(i, j) = lu.factors(i, j);
      }
      for (int j = 0; j < n; ++j) {
        const auto p = static_cast<int>(lu.ipiv[static_cast<std::size_t>(j)]);
        ASSERT_GE(p, j);
        for (int k = 0; k < n; ++k) std::swap(permuted(j, k), permuted(p, k));
      }
      EXPECT_LE(largest(lower), 1 + 4 * TypeParam::eps());
      EXPECT_LE(distance(lower * upper, permuted), 8 * n * TypeParam::eps() * largest(a));
    }
  }
}

TYPED_TEST(DenseFactors, StayBackwardStableOnHilbert8) {
  using T = typename TypeParam::T;
  using I = typename TypeParam::I;
  Plain<T> a(8, 8), ones(8, 1);
  for (int i = 0; i < 8; ++i) {
    for (int j = 0; j < 8; ++j) a(i, j) = T(RealType<T>(1) / static_cast<RealType<T>>(i + j + 1));
    ones(i, 0) = T(1);
  }
  const auto b = a * ones;
  for (const Device& device : testDevices()) {
    I info = 0;
    Runs<TypeParam>::expectSmallResidual(a, Runs<TypeParam>::solve(device, a, b, &info), b);
    int status = 0;
    const auto x =
        Runs<TypeParam>::twoSteps(device, TypeParam::Ops::spd_mat_cholesky_decomp, a, b, &status);
    Runs<TypeParam>::expectSmallResidual(a, x, b);
    if (TypeParam::eps() < 1e-10) {
      EXPECT_LE(distance(x, ones), 1.5e10 * 8 * TypeParam::eps());
    }
  }
}

// The first of equal pivots wins, ipiv counts rows of the whole matrix, a tall or wide one takes
// min(m, n) columns, and a zero pivot leaves its column in info and the right side alone.
TYPED_TEST(DenseFactors, TellPivotsAndSingularColumns) {
  using T = typename TypeParam::T;
  using I = typename TypeParam::I;
  for (const Device& device : testDevices()) {
    Plain<T> tall(3, 2);
    tall.values = {T(1), T(2), T(-2), T(0), T(2), T(4)};
    const auto lu = Runs<TypeParam>::factor(device, tall);
    EXPECT_EQ(lu.info, -1);
    EXPECT_EQ(lu.ipiv, (std::vector<I>{1, 2, -5}));
    EXPECT_EQ(lu.factors.values, (std::vector<T>{T(-2), T(0), T(-1), T(4), T(-0.5), T(0.5)}));
    EXPECT_EQ(Runs<TypeParam>::factor(device, adjoint(tall)).info, -1);

    Plain<T> singular(3, 3);
    singular.values = {T(1), T(2), T(3), T(2), T(4), T(7), T(1), T(2), T(9)};
    const auto b = Plain<T>::random(3, 2, 9);
    I info = 0;
    EXPECT_EQ(Runs<TypeParam>::solve(device, singular, b, &info).values, b.values);
    EXPECT_EQ(info, 1);
    EXPECT_EQ(Runs<TypeParam>::factor(device, Plain<T>(2, 2)).info, 0);
    EXPECT_EQ(Runs<TypeParam>::factor(device, Plain<T>(0, 0)).info, -1);
    if constexpr (kIsComplex<T>) {  // a modulus of 0 where no part is
      Plain<T> faint(1, 1);
      faint.values[0].im = std::numeric_limits<RealType<T>>::min();
      EXPECT_EQ(Runs<TypeParam>::factor(device, faint).info, 0);
    }
  }
}

TYPED_TEST(DenseFactors, WithoutExchangesAreThoseOfPlainElimination) {
  using T = typename TypeParam::T;
  using I = typename TypeParam::I;
  using Ops = typename TypeParam::Ops;
  Plain<T> a(2, 2), zero(2, 2);
  a.values = {T(1), T(4), T(2), T(3)};
  zero.values = {T(0), T(1), T(1), T(0)};
  for (const Device& device : testDevices()) {
    OnDevice<TypeParam> da(device, a), dz(device, zero);
    DeviceArray<I> info(device, std::vector<I>{0});
    DeviceArray<T> det(device, std::size_t{1});
    Ops::xgetrf(device, 2, 2, da.data(), da.ld(), nullptr, info.data());
    EXPECT_EQ(da.plain().values, (std::vector<T>{T(1), T(4), T(2), T(-5)}));
    Ops::xgetrf_det(device, 2, da.data(), da.ld(), nullptr, det.data());
    EXPECT_EQ(det.values()[0], T(-5));
    OnDevice<TypeParam> db(device, a);
    Ops::xgetrs(device, 2, 2, da.data(), da.ld(), nullptr, db.data(), db.ld(), info.data());
    EXPECT_EQ(db.plain().values, Plain<T>::identity(2).values);
    Ops::xgetrf(device, 2, 2, dz.data(), dz.ld(), nullptr, info.data());
    EXPECT_EQ(info.values()[0], 0);
  }
}

// Each exchange turns the sign: a cycle of n rows takes n - 1 of them.
TYPED_TEST(DenseFactors, DeterminantCountsExchanges) {
  using T = typename TypeParam::T;
  using I = typename TypeParam::I;
  for (const Device& device : testDevices()) {
    for (const int n : {1, 2, 3, 4}) {
      Plain<T> cycle(n, n);
      for (int i = 0; i < n; ++i) cycle(i, (i + 1) % n) = T(2);
      const auto lu = Runs<TypeParam>::factor(device, cycle);
      OnDevice<TypeParam> factors(device, lu.factors);
      DeviceArray<I> ipiv(device, lu.ipiv);
      DeviceArray<T> det(device, std::size_t{1});
      TypeParam::Ops::xgetrf_det(device, n, factors.data(), factors.ld(), ipiv.data(), det.data());
      EXPECT_EQ(det.values()[0], T((n % 2 == 0 ? -1 : 1) * (1 << n)));
    }
  }
}

// The symmetric forms read the lower triangle alone: the upper one is garbage.
TYPED_TEST(DenseFactors, TwoStepMembersSolveTheirKindOfMatrix) {
  using T = typename TypeParam::T;
  using Ops = typename TypeParam::Ops;
  const auto nan = std::numeric_limits<RealType<T>>::quiet_NaN();
  for (const Device& device : testDevices()) {
    for (const int n : {1, 2, 33}) {
      const auto b = Plain<T>::random(n, 1, 10);
      const auto c = Plain<T>::random(n, n, 11);
      auto general = c, definite = c * adjoint(c), symmetric = c;
      for (int i = 0; i < n; ++i) {
        general(i, i) += T(20 * n);
        definite(i, i) += T(1);
        for (int j = 0; j < i; ++j) symmetric(i, j) = symmetric(j, i);
        symmetric(i, i) += T(i % 2 == 0 ? 20 * n : -20 * n);
      }
      if constexpr (kIsComplex<T>) {
        for (int i = 0; i < n; ++i) symmetric(i, i) += T(0, 30);
      }
      const auto lowerOf = [&](Plain<T> a) {
        for (int i = 0; i < n; ++i) {
          for (int j = i + 1; j < n; ++j) a(i, j) = T(nan);
        }
        return a;
      };
      int status = -1;
      Runs<TypeParam>::expectSmallResidual(
          general, Runs<TypeParam>::twoSteps(device, Ops::mat_lu_decomp, general, b, &status), b);
      EXPECT_EQ(status, 0);
      Runs<TypeParam>::expectSmallResidual(
          definite,
          Runs<TypeParam>::twoSteps(device, Ops::spd_mat_cholesky_decomp, lowerOf(definite), b,
                                    &status),
          b);
      EXPECT_EQ(status, 0);
      Runs<TypeParam>::expectSmallResidual(
          symmetric,
          Runs<TypeParam>::twoSteps(device, Ops::sym_mat_lu_decomp, lowerOf(symmetric), b, &status),
          b);
      EXPECT_EQ(status, 0);

      OnDevice<TypeParam> da(device, general);
      DeviceArray<T> db(device, b.values);
      DeviceArray<int> state(device, std::vector<int>{-7});
      Ops::mat_gauss_elim(device, n, da.data(), da.ld(), db.data(), state.data());
      EXPECT_EQ(state.values()[0], 0);
      Plain<T> x(n, 1);
      x.values = db.values();
      Runs<TypeParam>::expectSmallResidual(general, x, b);
    }
  }
}

TYPED_TEST(DenseFactors, ZeroPivotsSetTheStatus) {
  using T = typename TypeParam::T;
  using Ops = typename TypeParam::Ops;
  Plain<T> swap(2, 2), b(2, 1), zero(1, 1), one(1, 1);
  swap.values = {T(0), T(1), T(1), T(0)};
  b.values = {T(1), T(2)};
  one(0, 0) = T(5);
  for (const Device& device : testDevices()) {
    int status = 0;
    // Step 2 goes on all the same: with the untouched matrix as factors, x_1 = 1 / 0.
    const auto x = Runs<TypeParam>::twoSteps(device, Ops::mat_lu_decomp, swap, b, &status);
    EXPECT_EQ(status, 1);
    EXPECT_FALSE(std::isfinite(abs(x(1, 0))));
    Runs<TypeParam>::twoSteps(device, Ops::spd_mat_cholesky_decomp, swap, b, &status);
    EXPECT_EQ(status, 1);

    OnDevice<TypeParam> da(device, zero);
    DeviceArray<T> db(device, one.values);
    DeviceArray<int> state(device, std::vector<int>{-7});
    Ops::mat_gauss_elim(device, 1, da.data(), da.ld(), db.data(), state.data());
    EXPECT_EQ(state.values()[0], 1);
    EXPECT_EQ(db.values(), one.values);
  }
}

TYPED_TEST(DenseFactors, MembersWithoutEffectLeaveEverythingAlone) {
  using T = typename TypeParam::T;
  using I = typename TypeParam::I;
  using Ops = typename TypeParam::Ops;
  for (const Device& device : testDevices()) {
    const auto a = Plain<T>::random(3, 3, 12);
    OnDevice<TypeParam> da(device, a), db(device, a);
    DeviceArray<I> ipiv(device, std::vector<I>{5, 6, 7}), info(device, std::vector<I>{4});
    Ops::xpotrf(device, 3, da.data(), da.ld(), info.data());
    Ops::xpotrs(device, 3, 3, da.data(), da.ld(), db.data(), db.ld(), info.data());
    Ops::xsytrf(device, 3, da.data(), da.ld(), ipiv.data(), info.data());
    Ops::xsytf2(device, 3, da.data(), da.ld(), ipiv.data(), info.data());
    Ops::xsytrs(device, 3, 3, da.data(), da.ld(), ipiv.data(), db.data(), db.ld(), info.data());
    EXPECT_EQ(da.plain().values, a.values);
    EXPECT_EQ(db.plain().values, a.values);
    EXPECT_EQ(ipiv.values(), (std::vector<I>{5, 6, 7}));
    EXPECT_EQ(info.values(), std::vector<I>{4});
  }
}

}  // namespace
}  // namespace mivo
