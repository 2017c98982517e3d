// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>

#include "tests/ops/SpBlasTypes.hpp"

namespace mivo::test {
namespace {

/// The stored diagonal element, else 1.
template <class T, class I>
T storedDiagonal(const HostCsr<T, I>& a, I i) {
  for (const auto& [j, v] : a.row(i)) {
    if (j == i) return v;
  }
  return T(1);
}

/// Gives the stored diagonal entries large values, so that sweeps stay bounded and no integer is
/// divided by 0.
template <class T, class I>
HostCsr<T, I> dominant(HostCsr<T, I> a) {
  for (I i = 0; i < a.rows; ++i) {
    for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
      if (a.col_idx[k] == i) a.values[k] = T(64 + i % 3);
    }
  }
  return a;
}

/// Runs sweep(steps, forward, order) in both directions, with and without an order array that skips
/// rows. `steps` are the rows in the order in which the sweep must treat them.
template <class I, class Sweep>
void forEachSweep(std::mt19937& rng, const Device& device, I n, const Sweep& sweep) {
  std::vector<I> natural(n);
  std::iota(natural.begin(), natural.end(), I(0));
  std::vector<I> order = natural;
  std::shuffle(order.begin(), order.end(), rng);
  for (I i = 2; i < n; i += 6) order[i] = -1;
  DeviceArray<I> on_device(device, order);
  for (const int forward : {0, 1}) {
    for (const bool ordered : {false, true}) {
      std::vector<I> steps = ordered ? order : natural;
      if (forward == 0) std::reverse(steps.begin(), steps.end());
      steps.erase(std::remove(steps.begin(), steps.end(), I(-1)), steps.end());
      sweep(steps, forward, ordered ? on_device.data() : nullptr);
    }
  }
}

template <class Pair>
class SpBlasProducts : public SpBlasSuite<Pair> {};
TYPED_TEST_SUITE(SpBlasProducts, SpBlasTypes);

/// A x, summed in stored order.
template <class T, class I>
std::vector<T> product(const HostCsr<T, I>& a, const std::vector<T>& x) {
  std::vector<T> y(a.rows, T(0));
  for (I i = 0; i < a.rows; ++i) {
    for (const auto& [j, v] : a.row(i)) y[i] += v * x[j];
  }
  return y;
}

TYPED_TEST(SpBlasProducts, ProductsMatchTheDenseOnes) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const auto& a, const auto& d) {
    const std::vector<T> ax = product(a, std::vector<T>(a.cols, T(3)));
    const std::vector<T> b = this->vector(a.rows);
    DeviceArray<T> dx(device, std::vector<T>(a.cols + 3, T(3)));
    DeviceArray<T> db(device, b);
    for (const T beta : {T(0), T(1), T(-3)}) {
      std::vector<T> y = this->vector(a.rows);
      DeviceArray<T> dy(device, y);
      for (I i = 0; i < a.rows; ++i) y[i] = T(2) * ax[i] + beta * y[i];
      Ops::aAxpby(device, T(2), a.rows, a.cols, d.rowptr(), nullptr, d.col_idx(), d.values(), dx,
                  beta, dy);
      EXPECT_EQ(dy.values(), y);
    }
    std::vector<T> y = this->vector(a.rows);
    DeviceArray<T> dy(device, y);
    for (I i = 0; i < a.rows; ++i) y[i] += (b[i] - ax[i]) * T(2);
    Ops::richardson(device, a.rows, a.cols, d.rowptr(), d.col_idx(), d.values(), dx, db, dy, T(2));
    EXPECT_EQ(dy.values(), y);

    // Two pairs of vectors, apart by more than their length in y; what lies between stays.
    std::vector<T> wide(2 * a.rows + 2, T(60));
    DeviceArray<T> dwide(device, wide);
    for (I i = 0; i < a.rows; ++i) wide[i] = wide[i + a.rows + 2] = T(3) * ax[i] + T(60);
    Ops::aAxpby_multi(device, T(3), a.rows, a.cols, d.rowptr(), d.col_idx(), d.values(), 2, 3, dx,
                      T(1), a.rows + 2, dwide);
    EXPECT_EQ(dwide.values(), wide);
  });
}

TYPED_TEST(SpBlasProducts, JacobiDividesByTheStoredDiagonalOrOne) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const auto& shape, const auto&) {
    const I n = shape.rows;
    const auto a = dominant(this->random(n, n));
    const OnDevice d(device, a);
    const std::vector<T> x = this->vector(n), b = this->vector(n), ax = product(a, x);
    std::vector<T> jacobi = this->vector(n), lp = jacobi;
    std::vector<I> map(n, 0);
    DeviceArray<T> dx(device, x), db(device, b), dy(device, jacobi), dz(device, lp);
    for (I i = 0; i < n; ++i) {
      const T diagonal = storedDiagonal(a, i), step = (b[i] - ax[i]) * T(40);
      jacobi[i] += step / diagonal;
      R weight = R(0);
      for (const auto& entry : a.row(i)) weight += abs(entry.second);
      map[i] = weight == R(0) || i % 4 == 1 ? -1 : i;
      lp[i] = map[i] < 0 ? x[i] : lp[i] + step * diagonal / T(weight);
    }
    DeviceArray<I> dmap(device, map);
    Ops::jacobi(device, n, n, d.rowptr(), d.col_idx(), d.values(), dx, db, dy, T(40));
    Ops::jacobi_diagLp(device, n, n, d.rowptr(), d.col_idx(), d.values(), dx, db, dz, T(40), T(1),
                       dmap);
    EXPECT_EQ(dy.values(), jacobi);
    EXPECT_EQ(dz.values(), lp);
  });
}

TYPED_TEST(SpBlasProducts, SweepsFollowDirectionAndOrder) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const auto& shape, const auto&) {
    const I n = shape.rows;
    const auto a = dominant(this->random(n, n));
    const OnDevice d(device, a);
    const std::vector<T> b = this->vector(n);
    DeviceArray<T> db(device, b);
    forEachSweep(this->rng, device, n, [&](const auto& steps, int forward, const I* order) {
      std::vector<T> x = this->vector(n);
      DeviceArray<T> dx(device, x);
      for (const I i : steps) {
        T s = T(0);
        for (const auto& [j, v] : a.row(i)) {
          if (j != i) s += v * x[j];
        }
        x[i] = (b[i] - s) * T(3) / storedDiagonal(a, i) + x[i] * (T(1) - T(3));
      }
      Ops::sor(device, n, n, d.rowptr(), d.col_idx(), d.values(), db, dx, T(3), forward, order);
      EXPECT_EQ(dx.values(), x);
    });
  });
}

TYPED_TEST(SpBlasProducts, BlockSweepsReadLiveOwnAndFrozenGhostValues) {
  USE_TYPES
  this->forEachMatrix([&](const Device& device, const auto& first, const auto& d0) {
    // Blocks of ranks 0, 1 (the own one) and 2, the diagonal given apart from the matrix.
    const I n = first.rows;
    const std::vector<Csr> a = {first, dominant(this->random(n, n)), this->random(n, 5)};
    std::vector<std::vector<T>> x = {this->vector(first.cols), {}, this->vector(5)};
    const OnDevice d1(device, a[1]), d2(device, a[2]);
    DeviceArray<T> left(device, x[0]), right(device, x[2]);
    DeviceArray<COT_SpMVCSRRawMat<T, I>> table(
        device, {d0.blockView(0, 0, 0, left), d1.blockView(0, 0, 1), d2.blockView(0, 0, 2, right)});
    const std::vector<T> b = this->vector(n);
    DeviceArray<T> db(device, b), diag(device, std::vector<T>(n, T(80)));
    forEachSweep(this->rng, device, n, [&](const auto& steps, int forward, const I* order) {
      x[1] = this->vector(n);
      DeviceArray<T> dx(device, x[1]);
      for (const I i : steps) {
        T s = T(0);
        for (int m = 0; m < 3; ++m) {
          for (const auto& [j, v] : a[m].row(i)) s += v * x[m][j];
        }
        x[1][i] += (b[i] - s) * T(2) / T(80);
      }
      Ops::par_sor(device, n, 1, 3, table, db, diag, dx, T(2), forward, order);
      EXPECT_EQ(dx.values(), x[1]);
    });
  });
}

// Rows of very different lengths with values that round: the fast loops must add in stored order
// too.
template <class T>
void expectStoredOrder() {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> real(-1, 1);
  std::vector<T> x(1000);
  for (T& v : x) v = T(real(rng));
  for (const int rows : {1, 2, 3, 8, 97, 1013}) {
    for (const int spread : {1, 3, 40}) {
      const auto a = HostCsr<T>::build(rows, 1000, [&](int, HostCsr<T>& out) {
        const int n = spread == 1 ? 7 : static_cast<int>(rng() % spread);
        for (int k = 0; k < n; ++k) out.push(static_cast<int>(rng() % 1000), T(real(rng)));
      });
      const std::vector<T> ax = product(a, x);
      for (const T beta : {T(0), T(0.3)}) {
        std::vector<T> y(rows, T(0.7)), expected;
        for (const T s : ax) expected.push_back(T(1.1) * s + beta * T(0.7));
        SpBlasOps<T, int>::aAxpby(Device(), T(1.1), rows, 1000, a.rowptr.data(), nullptr,
                                  a.col_idx.data(), a.values.data(), x.data(), beta, y.data());
        ASSERT_EQ(y, expected) << rows << " rows, spread " << spread;
      }
    }
  }
}

TEST(SpBlasProducts, RowsAreSummedInStoredOrderToTheBit) {
  expectStoredOrder<double>();
  expectStoredOrder<float>();
}

TEST(SpBlasProducts, NonFiniteOperandsFollowTheFormulas) {
  using Ops = SpBlasOps<double, int>;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Device host;
  // [2 0; . .], the second row empty
  const int rowptr[] = {0, 2, 2};
  const int col_idx[] = {0, 1};
  const double values[] = {2, 0};
  const double x[] = {3, 4};
  double y[] = {nan, nan};
  Ops::aAxpby(host, 1, 2, 2, rowptr, nullptr, col_idx, values, x, 0, y);
  EXPECT_EQ(y[0], 6);
  EXPECT_EQ(y[1], 0);
  // An empty row has no Lp weight to divide by, while its Jacobi correction is b omega.
  const double b[] = {10, 5};
  double z[] = {1, 1};
  Ops::jacobi_diagLp(host, 2, 2, rowptr, col_idx, values, x, b, z, 1, 2, nullptr);
  EXPECT_EQ(z[0], 1 + (10 - 6) * 2.0 / 4.0);
  EXPECT_TRUE(std::isinf(z[1]));
  double w[] = {1, 1};
  Ops::jacobi(host, 2, 2, rowptr, col_idx, values, x, b, w, 0.5);
  EXPECT_EQ(w[0], 2);
  EXPECT_EQ(w[1], 3.5);
}

}  // namespace
}  // namespace mivo::test
