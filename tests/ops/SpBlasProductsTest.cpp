// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>

#include "tests/ops/SpBlasTypes.hpp"

namespace mivo::test {
namespace {

template <class Pair>
class SpBlasProducts : public SpBlasSuite<Pair> {
 public:
  /// A square matrix whose stored diagonal entries are large, so that sweeps stay bounded and no
  /// integer type divides by zero.
  HostCsr<typename Pair::T, typename Pair::I> dominant(typename Pair::I n) {
    auto a = this->random(n, n);
    for (typename Pair::I i = 0; i < n; ++i) {
      for (auto k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
        if (a.col_idx[k] == i) a.values[k] = typename Pair::T(64 + i % 3);
      }
    }
    return a;
  }
};
TYPED_TEST_SUITE(SpBlasProducts, SpBlasTypes);

template <class T, class I>
std::vector<T> product(const HostCsr<T, I>& a, const std::vector<T>& x) {
  const std::vector<T> dense = a.dense();
  std::vector<T> y(a.rows, T(0));
  for (I i = 0; i < a.rows; ++i) {
    for (I j = 0; j < a.cols; ++j) y[i] += dense[i * a.cols + j] * x[j];
  }
  return y;
}

template <class T, class I>
T storedDiagonal(const HostCsr<T, I>& a, I i) {
  T d = T(1);
  for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
    if (a.col_idx[k] == i) d = a.values[k];
  }
  return d;
}

TYPED_TEST(SpBlasProducts, ProductsMatchTheDenseOnes) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I rows, I cols) {
    const Csr a = this->random(rows, cols);
    const DeviceMatrix d(device, a);
    const std::vector<T> x = this->vector(cols);
    const std::vector<T> y = this->vector(rows);
    const std::vector<T> ax = product(a, x);
    DeviceArray<T> dx(device, x);
    for (const T beta : {T(0), T(1), T(-3)}) {
      std::vector<T> expected(y.size());
      for (std::size_t i = 0; i < y.size(); ++i) expected[i] = T(2) * ax[i] + beta * y[i];
      DeviceArray<T> dy(device, y);
      Ops::aAxpby(device, T(2), rows, cols, d.rowptr(), nullptr, d.col_idx(), d.values(), dx.data(),
                  beta, dy.data());
      EXPECT_EQ(dy.values(), expected);
    }

    // Two pairs of vectors, apart by more than their length; what lies between stays.
    std::vector<T> wide_x(2 * cols + 3, T(50));
    std::vector<T> wide_y(2 * rows + 2, T(60));
    std::copy(x.begin(), x.end(), wide_x.begin());
    std::copy(x.begin(), x.end(), wide_x.begin() + cols + 3);
    std::vector<T> expected = wide_y;
    for (I i = 0; i < rows; ++i) expected[i] = expected[i + rows + 2] = T(3) * ax[i] + T(60);
    DeviceArray<T> mx(device, wide_x);
    DeviceArray<T> my(device, wide_y);
    Ops::aAxpby_multi(device, T(3), rows, cols, d.rowptr(), d.col_idx(), d.values(), 2, cols + 3,
                      mx.data(), T(1), rows + 2, my.data());
    EXPECT_EQ(my.values(), expected);

    std::vector<T> relaxed(y.size());
    const std::vector<T> b = this->vector(rows);
    for (std::size_t i = 0; i < y.size(); ++i) relaxed[i] = y[i] + (b[i] - ax[i]) * T(2);
    DeviceArray<T> db(device, b);
    DeviceArray<T> dy(device, y);
    Ops::richardson(device, rows, cols, d.rowptr(), d.col_idx(), d.values(), dx.data(), db.data(),
                    dy.data(), T(2));
    EXPECT_EQ(dy.values(), relaxed);
  });
}

TYPED_TEST(SpBlasProducts, JacobiDividesByTheStoredDiagonalOrOne) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I n, I) {
    const Csr a = this->dominant(n);
    const DeviceMatrix d(device, a);
    const std::vector<T> x = this->vector(n);
    const std::vector<T> b = this->vector(n);
    const std::vector<T> ax = product(a, x);
    std::vector<I> map(n, 0);
    std::vector<T> jacobi = this->vector(n);
    std::vector<T> lp = jacobi;
    DeviceArray<T> dx(device, x);
    DeviceArray<T> db(device, b);
    DeviceArray<T> dy(device, jacobi);
    DeviceArray<T> dz(device, lp);
    for (I i = 0; i < n; ++i) {
      const T diagonal = storedDiagonal(a, i);
      jacobi[i] += (b[i] - ax[i]) * T(40) / diagonal;
      R weight = R(0);
      for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) weight += abs(a.values[k]);
      map[i] = weight == R(0) || i % 4 == 1 ? -1 : i;
      if (map[i] < 0) {
        lp[i] = x[i];
      } else {
        lp[i] += (b[i] - ax[i]) * T(40) * diagonal / T(weight);
      }
    }
    DeviceArray<I> dmap(device, map);
    Ops::jacobi(device, n, n, d.rowptr(), d.col_idx(), d.values(), dx.data(), db.data(), dy.data(),
                T(40));
    Ops::jacobi_diagLp(device, n, n, d.rowptr(), d.col_idx(), d.values(), dx.data(), db.data(),
                       dz.data(), T(40), T(1), dmap.data());
    EXPECT_EQ(dy.values(), jacobi);
    EXPECT_EQ(dz.values(), lp);
  });
}

TYPED_TEST(SpBlasProducts, SweepsFollowDirectionAndOrder) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I n, I) {
    const Csr a = this->dominant(n);
    const DeviceMatrix d(device, a);
    const std::vector<T> b = this->vector(n);
    const std::vector<T> start = this->vector(n);
    DeviceArray<T> db(device, b);
    std::vector<I> order(n);
    std::iota(order.begin(), order.end(), I(0));
    const std::vector<I> natural = order;
    std::shuffle(order.begin(), order.end(), this->rng);
    for (I i = 2; i < n; i += 6) order[i] = -1;
    DeviceArray<I> dorder(device, order);
    for (const int forward : {0, 1}) {
      for (const bool ordered : {false, true}) {
        std::vector<I> steps = ordered ? order : natural;
        if (forward == 0) std::reverse(steps.begin(), steps.end());
        std::vector<T> x = start;
        DeviceArray<T> dx(device, x);
        for (const I i : steps) {
          if (i < 0) continue;
          T s = T(0);
          for (I k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
            if (a.col_idx[k] != i) s += a.values[k] * x[a.col_idx[k]];
          }
          x[i] = (b[i] - s) * T(3) / storedDiagonal(a, i) + x[i] * (T(1) - T(3));
        }
        Ops::sor(device, n, n, d.rowptr(), d.col_idx(), d.values(), db.data(), dx.data(), T(3),
                 forward, ordered ? dorder.data() : nullptr);
        EXPECT_EQ(dx.values(), x);
      }
    }
  });
}

TYPED_TEST(SpBlasProducts, BlockSweepsReadLiveOwnAndFrozenGhostValues) {
  MIVO_SPBLAS_TYPES;
  this->forEachShape([&](const Device& device, I n, I cols) {
    // Blocks of ranks 0, 1 (the own one) and 2, the diagonal given apart from the matrix.
    const std::vector<Csr> a = {this->random(n, cols), this->dominant(n), this->random(n, 5)};
    const std::vector<std::vector<T>> ghost = {this->vector(cols), this->vector(n),
                                               this->vector(5)};
    std::vector<DeviceMatrix> matrices;
    std::vector<std::unique_ptr<DeviceArray<T>>> pieces;
    std::vector<COT_SpMVCSRRawMat<T, I>> blocks;
    for (int m = 0; m < 3; ++m) {
      matrices.emplace_back(device, a[m]);
      pieces.push_back(std::make_unique<DeviceArray<T>>(device, ghost[m]));
      blocks.push_back(matrices[m].blockView(0, 0, m, pieces[m]->data()));
    }
    DeviceArray<COT_SpMVCSRRawMat<T, I>> table(device, blocks);
    const std::vector<T> b = this->vector(n);
    const std::vector<T> diag(n, T(80));
    std::vector<I> order(n);
    for (I i = 0; i < n; ++i) order[i] = i % 5 == 4 ? -1 : n - 1 - i;
    DeviceArray<T> db(device, b);
    DeviceArray<T> ddiag(device, diag);
    DeviceArray<I> dorder(device, order);
    for (const int forward : {0, 1}) {
      for (const bool ordered : {false, true}) {
        std::vector<T> x = this->vector(n);
        DeviceArray<T> dx(device, x);
        for (I step = 0; step < n; ++step) {
          const I k = forward != 0 ? step : n - 1 - step;
          const I i = ordered ? order[k] : k;
          if (i < 0) continue;
          T s = T(0);
          for (int m = 0; m < 3; ++m) {
            const std::vector<T>& operand = m == 1 ? x : ghost[m];
            for (I e = a[m].rowptr[i]; e < a[m].rowptr[i + 1]; ++e) {
              s += a[m].values[e] * operand[a[m].col_idx[e]];
            }
          }
          x[i] += (b[i] - s) * T(2) / diag[i];
        }
        Ops::par_sor(device, n, 1, 3, table.data(), db.data(), ddiag.data(), dx.data(), T(2),
                     forward, ordered ? dorder.data() : nullptr);
        EXPECT_EQ(dx.values(), x);
      }
    }
  });
}

// Rows of very different lengths with values that round: the fast loops must add in stored order
// too.
template <class T>
void expectStoredOrder() {
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> real(-1, 1);
  const Device host;
  for (const int rows : {1, 2, 3, 4, 5, 6, 7, 8, 9, 97, 1013}) {
    for (const int spread : {1, 3, 40}) {
      HostCsr<T> a;
      a.cols = 1000;
      for (int i = 0; i < rows; ++i) {
        const int n = spread == 1 ? 7 : static_cast<int>(rng() % spread);
        for (int k = 0; k < n; ++k) a.push(static_cast<int>(rng() % 1000), T(real(rng)));
        a.endRow();
      }
      std::vector<T> x(1000);
      for (T& v : x) v = T(real(rng));
      for (const T beta : {T(0), T(0.3)}) {
        std::vector<T> y(rows, T(0.7));
        std::vector<T> expected = y;
        for (int i = 0; i < rows; ++i) {
          T s = T(0);
          for (int k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) s += a.values[k] * x[a.col_idx[k]];
          expected[i] = beta == T(0) ? T(1.1) * s : T(1.1) * s + beta * y[i];
        }
        SpBlasOps<T, int>::aAxpby(host, T(1.1), rows, 1000, a.rowptr.data(), nullptr,
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
  // An empty row has no Lp weight to divide by.
  const double b[] = {10, 5};
  double z[] = {1, 1};
  Ops::jacobi_diagLp(host, 2, 2, rowptr, col_idx, values, x, b, z, 1, 2, nullptr);
  EXPECT_EQ(z[0], 1 + (10 - 6) * 2.0 / 4.0);
  EXPECT_TRUE(std::isinf(z[1]));
  // ... but its Jacobi correction is b omega.
  double w[] = {1, 1};
  Ops::jacobi(host, 2, 2, rowptr, col_idx, values, x, b, w, 0.5);
  EXPECT_EQ(w[0], 2);
  EXPECT_EQ(w[1], 3.5);
}

}  // namespace
}  // namespace mivo::test
