// SPDX-License-Identifier: Apache-2.0
/// Dense products, factorisations and solves of `MatOps` against plain loops and known solutions.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>
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
  Plain(long r, long c, std::vector<T> v) : rows(r), cols(c), values(std::move(v)) {}
  Plain(long r, long c, unsigned seed)
      : Plain(r, c, smallValues<T>(static_cast<std::size_t>(r * c), seed)) {}
  template <class Element>
  static Plain of(long r, long c, const Element& element) {
    Plain out(r, c);
    for (long i = 0; i < r; ++i) {
      for (long j = 0; j < c; ++j) out(i, j) = element(i, j);
    }
    return out;
  }
  static Plain identity(long n) {
    return of(n, n, [](long i, long j) { return T(i == j ? 1 : 0); });
  }
  T& operator()(long i, long j) { return values[static_cast<std::size_t>(i * cols + j)]; }
  const T& operator()(long i, long j) const {
    return values[static_cast<std::size_t>(i * cols + j)];
  }
};

template <class T>
Plain<T> operator*(const Plain<T>& a, const Plain<T>& b) {
  return Plain<T>::of(a.rows, b.cols, [&](long i, long j) {
    T sum(0);
    for (long k = 0; k < a.cols; ++k) sum += a(i, k) * b(k, j);
    return sum;
  });
}

template <class T>
Plain<T> adjoint(const Plain<T>& a, bool conjugate = true) {
  return Plain<T>::of(a.cols, a.rows,
                      [&](long i, long j) { return conjugate ? conj(a(j, i)) : a(j, i); });
}

template <class T>
double largest(const Plain<T>& a) {
  double out = 0;
  for (const T& v : a.values) out = std::max(out, static_cast<double>(abs(v)));
  return out;
}

template <class T>
double distance(const Plain<T>& a, const Plain<T>& b) {
  return largest(Plain<T>::of(a.rows, a.cols, [&](long i, long j) { return a(i, j) - b(i, j); }));
}

/// The same matrix in device memory: in the case's layout, with a leading dimension beyond its
/// extent and a mark in the padding that no kernel may touch.
template <class Case>
class OnDevice {
 public:
  using T = typename Case::T;
  OnDevice(const Device& device, const Plain<T>& m)
      : rows_(m.rows), cols_(m.cols), array_(device, packed(m)) {}
  operator T*() { return array_; }
  typename Case::I ld() const { return static_cast<typename Case::I>(leading()); }
  Plain<T> plain() const {
    const std::vector<T> values = array_.values();
    EXPECT_EQ(std::count(values.begin(), values.end(), kMark),
              static_cast<long>(values.size()) - rows_ * cols_);
    return Plain<T>::of(rows_, cols_, [&](long i, long j) { return values[at(i, j)]; });
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

template <class C>
struct RunsOf;

#define MIVO_DENSE_TYPES                                \
  MIVO_TEST_PAIR_TYPES                                  \
  using Ops [[maybe_unused]] = typename TypeParam::Ops; \
  using Runs [[maybe_unused]] = RunsOf<TypeParam>;

using Row = MatrixLayoutRowMajor;
using Col = MatrixLayoutColMajor;

// Whole numbers: exact in every type.
template <class C>
class DenseProducts : public testing::Test {};
using AllTypes = testing::Types<Case<int, int, Row>, Case<int, long, Col>, Case<long, long, Row>,
                                Case<float, int, Col>, Case<double, int, Row>,
                                Case<Complex<float>, long, Row>, Case<Complex<double>, int, Col>>;
TYPED_TEST_SUITE(DenseProducts, AllTypes);

TYPED_TEST(DenseProducts, AreThoseOfPlainLoops) {
  MIVO_DENSE_TYPES
  for (const Device& device : testDevices()) {
    for (const auto& [m, n, k] :
         {std::array{0, 3, 2}, {3, 0, 2}, {3, 2, 0}, {1, 1, 1}, {7, 3, 5}, {33, 31, 2}}) {
      const Plain<T> a(m, k, 1u), b(k, n, 2u), x(k, 1, 3u), y(m, 1, 4u);
      OnDevice<TypeParam> da(device, a), db(device, b), dc(device, Plain<T>(m, n));
      OnDevice<TypeParam> dt(device, Plain<T>(k, m));
      DeviceArray<T> dx(device, x.values), dy(device, y.values);
      Ops::matmat(device, m, n, k, da, da.ld(), db, db.ld(), dc, dc.ld());
      EXPECT_EQ(dc.plain().values, (a * b).values);
      Ops::transpose(device, m, k, da, da.ld(), dt, dt.ld());
      EXPECT_EQ(dt.plain().values, adjoint(a, false).values);
      Ops::aAxpby(device, m, k, T(2), da, da.ld(), dx, T(-3), dy);
      auto expected = a * x;
      for (long i = 0; i < m; ++i) expected(i, 0) = T(2) * expected(i, 0) - T(3) * y(i, 0);
      EXPECT_EQ(dy.values(), expected.values);
    }
  }
}

TYPED_TEST(DenseProducts, DiagonalsAndRowNormsOfEitherShape) {
  MIVO_DENSE_TYPES
  for (const Device& device : testDevices()) {
    for (const auto& [rows, cols] : {std::pair<unsigned, unsigned>{5, 3}, {3, 5}, {4, 0}}) {
      Plain<T> a(rows, cols, 5u);
      OnDevice<TypeParam> da(device, a);
      DeviceArray<T> diag(device, std::vector<T>(rows, T(9))), news(device, smallValues<T>(8, 6));
      DeviceArray<R> norms(device, std::size_t{rows});
      Ops::get_diag(device, rows, cols, da, da.ld(), diag);
      Ops::mat_row_norm(device, rows, cols, da, da.ld(), R(2), norms);
      Ops::set_diag(device, rows, cols, da, da.ld(), news);
      for (unsigned i = 0; i < rows; ++i) {
        EXPECT_EQ(diag.values()[i], i < cols ? a(i, i) : T(0));
        // The maximum norm would be another number; so would the sum without its root.
        double squares = 0;
        for (unsigned j = 0; j < cols; ++j) squares += static_cast<double>(absSquared(a(i, j)));
        EXPECT_NEAR(static_cast<double>(norms.values()[i]),
                    static_cast<double>(static_cast<R>(std::sqrt(squares))), 1e-5);
        if (i < cols) a(i, i) = smallValues<T>(8, 6)[i];
      }
      EXPECT_EQ(da.plain().values, a.values);
    }
  }
}

// A scatter on the host keeps the last of equal targets; devices have no order.
TYPED_TEST(DenseProducts, RowsAndElementsAreReadAndWritten) {
  MIVO_DENSE_TYPES
  const std::vector<int> rows = {6, 0, 0, 3, 5};
  for (const Device& device : testDevices()) {
    Plain<T> a(7, 3, 1u), into(7, 3, 2u), picked(5, 3);
    const Plain<T> b(5, 3, 3u);
    OnDevice<TypeParam> da(device, a), db(device, b), dinto(device, into), dpicked(device, picked);
    std::vector<int> targets = rows;
    if (device.type != Device::kHost) targets[2] = 1;
    DeviceArray<int> list(device, rows), places(device, targets);
    for (long r = 0; r < 5; ++r) {
      for (long j = 0; j < 3; ++j) {
        picked(r, j) = a(rows[static_cast<std::size_t>(r)], j);
        into(targets[static_cast<std::size_t>(r)], j) = b(r, j);
      }
    }
    Ops::select_rows(device, 5, 3, list, da, da.ld(), dpicked, dpicked.ld());
    EXPECT_EQ(dpicked.plain().values, picked.values);
    Ops::unselect_rows(device, 5, 3, places, db, db.ld(), dinto, dinto.ld());
    EXPECT_EQ(dinto.plain().values, into.values);
    Ops::select_rows(device, 0, 3, nullptr, nullptr, 1, nullptr, 1);

    DeviceArray<T> value(device, std::size_t{1});
    Ops::get_element_value(device, 5, 2, da, da.ld(), value);
    EXPECT_EQ(value.values()[0], a(5, 2));
    Ops::set_element_value(device, 1, 2, da, da.ld(), a(1, 2) = T(-9));
    EXPECT_EQ(da.plain().values, a.values);
  }
}

/// What the tests below do with a matrix.
template <class C>
struct RunsOf {
  using T = typename C::T;
  using I = typename C::I;
  using Ops = typename C::Ops;

  struct Lu {
    Plain<T> factors;
    std::vector<I> ipiv;
    I info;
  };
  static Lu factor(const Device& device, const Plain<T>& a, bool exchange = true) {
    OnDevice<C> da(device, a);
    DeviceArray<I> ipiv(device, std::vector<I>(static_cast<std::size_t>(a.rows), I(-5)));
    DeviceArray<I> info(device, std::vector<I>{-7});
    Ops::xgetrf(device, static_cast<I>(a.rows), static_cast<I>(a.cols), da, da.ld(),
                exchange ? ipiv.data() : nullptr, info);
    return {da.plain(), ipiv.values(), info.values()[0]};
  }
  static T determinant(const Device& device, const Lu& lu, bool exchange = true) {
    OnDevice<C> factors(device, lu.factors);
    DeviceArray<I> ipiv(device, lu.ipiv);
    DeviceArray<T> det(device, std::size_t{1});
    Ops::xgetrf_det(device, static_cast<I>(lu.factors.rows), factors, factors.ld(),
                    exchange ? ipiv.data() : nullptr, det);
    return det.values()[0];
  }
  static Plain<T> solve(const Device& device, const Plain<T>& a, const Plain<T>& b, I info) {
    OnDevice<C> da(device, a), db(device, b);
    DeviceArray<I> ipiv(device, static_cast<std::size_t>(a.rows));
    DeviceArray<I> state(device, std::vector<I>{-7});
    Ops::xgesv(device, static_cast<I>(a.rows), static_cast<I>(b.cols), da, da.ld(), ipiv, db,
               db.ld(), state);
    EXPECT_EQ(state.values()[0], info);
    return db.plain();
  }
  /// Both steps of a two-step member, which is given garbage where it has nothing to read; without
  /// a member, `mat_gauss_elim`.
  static Plain<T> decompose(const Device& device, decltype(&Ops::mat_lu_decomp) member,
                            const Plain<T>& a, const Plain<T>& b, int status) {
    OnDevice<C> da(device, a);
    DeviceArray<T> db(device, b.values);
    DeviceArray<int> state(device, std::vector<int>{-7});
    const I n = static_cast<I>(a.rows);
    if (member == nullptr) {
      Ops::mat_gauss_elim(device, n, da, da.ld(), db, state);
    } else {
      member(device, 0, n, state, da, da.ld(), db);
      EXPECT_EQ(db.values(), b.values);
      EXPECT_EQ(state.values()[0], -7);
      member(device, 1, n, state, da, da.ld(), nullptr);
      member(device, 2, n, nullptr, da, da.ld(), db);
    }
    da.plain();
    EXPECT_EQ(state.values()[0], status);
    return {b.rows, 1, db.values()};
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
  MIVO_DENSE_TYPES
  for (const Device& device : testDevices()) {
    for (const int n : {1, 2, 5, 33}) {
      // Small numbers on the diagonal: the order of the rows needs exchanges.
      Plain<T> a(n, n, static_cast<unsigned>(40 + n));
      for (int i = 0; i < n; ++i) {
        a(i, (i + 1) % n) += T(5 * n);
        if (n > 1) a(i, i) = T(i % 2 == 0 ? 0 : 1);
      }
      const Plain<T> b(n, 3, 8u);
      Runs::expectSmallResidual(a, Runs::solve(device, a, b, -1), b);

      const auto lu = Runs::factor(device, a);
      DeviceArray<I> ipiv(device, lu.ipiv), state(device, std::vector<I>{-1});
      OnDevice<TypeParam> inverse(device, lu.factors);
      Ops::xgetri(device, n, inverse, inverse.ld(), ipiv, state);
      Runs::expectSmallResidual(a, inverse.plain(), Plain<T>::identity(n));
      Runs::expectSmallResidual(inverse.plain(), a, Plain<T>::identity(n));

      // The factors multiply to the rows in the order of the exchanges, their sizes below 1.
      Plain<T> lower = Plain<T>::identity(n), upper(n, n), permuted = a;
      for (int j = 0; j < n; ++j) {
        const auto p = static_cast<int>(lu.ipiv[static_cast<std::size_t>(j)]);
        ASSERT_GE(p, j);
        for (int k = 0; k < n; ++k) {
          (k < j ? lower : upper)(j, k) = lu.factors(j, k);
          std::swap(permuted(j, k), permuted(p, k));
        }
      }
      EXPECT_LE(largest(lower), 1 + 4 * TypeParam::eps());
      EXPECT_LE(distance(lower * upper, permuted), 8 * n * TypeParam::eps() * largest(a));
    }
  }
}

TYPED_TEST(DenseFactors, StayBackwardStableOnHilbert8) {
  MIVO_DENSE_TYPES
  const auto a =
      Plain<T>::of(8, 8, [](long i, long j) { return T(R(1) / static_cast<R>(i + j + 1)); });
  const Plain<T> ones(8, 1, std::vector<T>(8, T(1))), b = a * ones;
  for (const Device& device : testDevices()) {
    Runs::expectSmallResidual(a, Runs::solve(device, a, b, -1), b);
    const auto x = Runs::decompose(device, Ops::spd_mat_cholesky_decomp, a, b, 0);
    Runs::expectSmallResidual(a, x, b);
    if (TypeParam::eps() < 1e-10) {
      EXPECT_LE(distance(x, ones), 1.5e10 * 8 * TypeParam::eps());
    }
  }
}

// The first of equal pivots wins, ipiv counts rows of the whole matrix, a tall or wide one takes
// min(m, n) columns, and a zero pivot leaves its column in info and the right side alone.
TYPED_TEST(DenseFactors, TellPivotsAndSingularColumns) {
  MIVO_DENSE_TYPES
  const Plain<T> tall(3, 2, {T(1), T(2), T(-2), T(0), T(2), T(4)}), b(3, 2, 9u);
  const Plain<T> singular(3, 3, {T(1), T(2), T(3), T(2), T(4), T(7), T(1), T(2), T(9)});
  for (const Device& device : testDevices()) {
    const auto lu = Runs::factor(device, tall);
    EXPECT_EQ(lu.info, -1);
    EXPECT_EQ(lu.ipiv, (std::vector<I>{1, 2, -5}));
    EXPECT_EQ(lu.factors.values, (std::vector<T>{T(-2), T(0), T(-1), T(4), T(-0.5), T(0.5)}));
    EXPECT_EQ(Runs::factor(device, adjoint(tall)).info, -1);
    EXPECT_EQ(Runs::solve(device, singular, b, 1).values, b.values);
    EXPECT_EQ(Runs::factor(device, Plain<T>(2, 2)).info, 0);
    EXPECT_EQ(Runs::factor(device, Plain<T>(0, 0)).info, -1);
    if constexpr (kIsComplex<T>) {  // a modulus of 0 where no part is
      const T faint(0, std::numeric_limits<R>::min());
      EXPECT_EQ(Runs::factor(device, Plain<T>(1, 1, std::vector{faint})).info, 0);
    }
  }
}

TYPED_TEST(DenseFactors, WithoutExchangesAreThoseOfPlainElimination) {
  MIVO_DENSE_TYPES
  const Plain<T> a(2, 2, {T(1), T(4), T(2), T(3)}), zero(2, 2, {T(0), T(1), T(1), T(0)});
  for (const Device& device : testDevices()) {
    const auto lu = Runs::factor(device, a, false);
    EXPECT_EQ(lu.factors.values, (std::vector<T>{T(1), T(4), T(2), T(-5)}));
    EXPECT_EQ(Runs::determinant(device, lu, false), T(-5));
    OnDevice<TypeParam> da(device, lu.factors), db(device, a);
    DeviceArray<I> info(device, std::vector<I>{lu.info});
    Ops::xgetrs(device, 2, 2, da, da.ld(), nullptr, db, db.ld(), info);
    EXPECT_EQ(db.plain().values, Plain<T>::identity(2).values);
    EXPECT_EQ(Runs::factor(device, zero, false).info, 0);
  }
}

// Each exchange turns the sign: a cycle of n rows takes n - 1 of them.
TYPED_TEST(DenseFactors, DeterminantCountsExchanges) {
  MIVO_DENSE_TYPES
  for (const Device& device : testDevices()) {
    for (const int n : {1, 2, 3, 4}) {
      const auto cycle =
          Plain<T>::of(n, n, [n](long i, long j) { return T(j == (i + 1) % n ? 2 : 0); });
      EXPECT_EQ(Runs::determinant(device, Runs::factor(device, cycle)),
                T((n % 2 == 0 ? -1 : 1) * (1 << n)));
    }
  }
}

// The symmetric forms read the lower triangle alone: the upper one is garbage.
TYPED_TEST(DenseFactors, TwoStepMembersSolveTheirKindOfMatrix) {
  MIVO_DENSE_TYPES
  const T nan(std::numeric_limits<R>::quiet_NaN());
  for (const Device& device : testDevices()) {
    for (const int n : {1, 2, 33}) {
      const Plain<T> b(n, 1, 10u), c(n, n, 11u);
      auto general = c, definite = c * adjoint(c), symmetric = c;
      for (int i = 0; i < n; ++i) {
        general(i, i) += T(20 * n);
        definite(i, i) += T(1);
        for (int j = 0; j < i; ++j) symmetric(i, j) = symmetric(j, i);
        symmetric(i, i) += T(i % 2 == 0 ? 20 * n : -20 * n);
        if constexpr (kIsComplex<T>) symmetric(i, i) += T(0, 30);
      }
      const auto check = [&](auto member, const Plain<T>& a, const T* upper) {
        const auto read = Plain<T>::of(
            n, n, [&](long i, long j) { return upper != nullptr && j > i ? *upper : a(i, j); });
        Runs::expectSmallResidual(a, Runs::decompose(device, member, read, b, 0), b);
      };
      check(Ops::mat_lu_decomp, general, nullptr);
      check(Ops::spd_mat_cholesky_decomp, definite, &nan);
      check(Ops::sym_mat_lu_decomp, symmetric, &nan);
      check(nullptr, general, nullptr);
    }
  }
}

TYPED_TEST(DenseFactors, ZeroPivotsSetTheStatus) {
  MIVO_DENSE_TYPES
  const Plain<T> swap(2, 2, {T(0), T(1), T(1), T(0)}), b(2, 1, {T(1), T(2)}),
      one(1, 1, std::vector{T(5)});
  for (const Device& device : testDevices()) {
    // Step 2 goes on all the same: with the untouched matrix as factors, x_1 = 1 / 0.
    const auto x = Runs::decompose(device, Ops::mat_lu_decomp, swap, b, 1);
    EXPECT_FALSE(std::isfinite(abs(x(1, 0))));
    Runs::decompose(device, Ops::spd_mat_cholesky_decomp, swap, b, 1);
    EXPECT_EQ(Runs::decompose(device, nullptr, Plain<T>(1, 1), one, 1).values, one.values);
  }
}

TYPED_TEST(DenseFactors, MembersWithoutEffectLeaveEverythingAlone) {
  MIVO_DENSE_TYPES
  for (const Device& device : testDevices()) {
    const Plain<T> a(3, 3, 12u);
    OnDevice<TypeParam> da(device, a), db(device, a);
    DeviceArray<I> ipiv(device, std::vector<I>{5, 6, 7}), info(device, std::vector<I>{4});
    Ops::xpotrf(device, 3, da, da.ld(), info);
    Ops::xpotrs(device, 3, 3, da, da.ld(), db, db.ld(), info);
    Ops::xsytrf(device, 3, da, da.ld(), ipiv, info);
    Ops::xsytf2(device, 3, da, da.ld(), ipiv, info);
    Ops::xsytrs(device, 3, 3, da, da.ld(), ipiv, db, db.ld(), info);
    EXPECT_EQ(da.plain().values, a.values);
    EXPECT_EQ(db.plain().values, a.values);
    EXPECT_EQ(ipiv.values(), (std::vector<I>{5, 6, 7}));
    EXPECT_EQ(info.values(), std::vector<I>{4});
  }
}

}  // namespace
}  // namespace mivo
