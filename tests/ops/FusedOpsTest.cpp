// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "mivo/ops/BlasOps.hpp"
#include "mivo/ops/FusedOps.hpp"
#include "mivo/ops/SpBlasOps.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/values.hpp"

namespace mivo::test {
namespace {

/// Ordinary numbers with zeros of both signs, infinities and NaN strewn in where `wild`.
template <class R>
R draw(std::mt19937& rng, bool wild) {
  switch (rng() % 12) {
    case 0:
      return R(0);
    case 1:
      return -R(0);
    case 2:
      if (wild) return std::numeric_limits<R>::infinity();
      break;
    case 3:
      if (wild) return std::numeric_limits<R>::quiet_NaN();
      break;
    default:
      break;
  }
  return std::uniform_real_distribution<R>(-2, 2)(rng);
}

template <class T>
std::vector<T> drawVector(std::mt19937& rng, int n, bool wild) {
  std::vector<T> out(static_cast<std::size_t>(n));
  for (T& v : out) v = fromParts<T>([&] { return draw<RealType<T>>(rng, wild); });
  return out;
}

template <class T>
class FusedOpsTest : public testing::Test {};
TYPED_TEST_SUITE(FusedOpsTest, ScalarTypes);

constexpr int kSizes[] = {0, 1, 2, 31, 32, 33, 597};

TYPED_TEST(FusedOpsTest, CgUpdateHasTheBitsOfTwoAxpbyAndANorm) {
  using T = TypeParam;
  using R = RealType<T>;
  std::mt19937 rng(11);
  for (const Device& device : testDevices()) {
    for (const int n : kSizes) {
      for (const bool wild : {false, true}) {
        DeviceArray<T> p(device, drawVector<T>(rng, n, wild));
        DeviceArray<T> q(device, drawVector<T>(rng, n, wild));
        const auto x0 = drawVector<T>(rng, n, wild), r0 = drawVector<T>(rng, n, wild);
        const T alpha = drawVector<T>(rng, 1, false)[0];
        DeviceArray<T> x(device, x0), r(device, r0), xs(device, x0), rs(device, r0);
        BlasOps<T, int>::axpby(device, n, alpha, p.data(), T(1), xs.data());
        BlasOps<T, int>::axpby(device, n, -alpha, q.data(), T(1), rs.data());
        const R squares = BlasOps<T, int>::abs_sum(device, n, rs.data(), R(2));
        const R fused =
            FusedOps<T, int>::cg_update(device, n, alpha, p.data(), x.data(), q.data(), r.data());
        EXPECT_TRUE(sameBits(fused, squares)) << fused << " and " << squares;
        expectSameBits(x.values(), xs.values());
        expectSameBits(r.values(), rs.values());
      }
    }
  }
}

TYPED_TEST(FusedOpsTest, CombinationsHaveTheBitsOfTheirPartsAndReductions) {
  using T = TypeParam;
  using R = RealType<T>;
  using Fused = FusedOps<T, int>;
  using Plain = BlasOps<T, int>;
  std::mt19937 rng(14);
  for (const Device& device : testDevices()) {
    for (const int n : kSizes) {
      for (const bool wild : {false, true}) {
        DeviceArray<T> x(device, drawVector<T>(rng, n, wild));
        const auto y0 = drawVector<T>(rng, n, wild), z0 = drawVector<T>(rng, n, wild);
        const T a = drawVector<T>(rng, 1, false)[0], b = T(R(1.5));
        DeviceArray<T> y(device, y0), ys(device, y0), z(device, z0), zs(device, z0);

        Plain::axpby(device, n, a, x.data(), T(1), ys.data());
        const T product = Plain::dot(device, n, ys.data(), z.data());
        const T fused = Fused::axpy_dot(device, n, a, x.data(), y.data(), z.data());
        expectSameBits<T>({fused}, {product});
        expectSameBits(y.values(), ys.values());

        Plain::axpbypcz(device, n, a, x.data(), b, y.data(), T(0), zs.data());
        const R squares = Plain::abs_sum(device, n, zs.data(), R(2));
        expectSameBits<R>({Fused::axpby_squares(device, n, a, x.data(), b, y.data(), z.data())},
                          {squares});
        expectSameBits(z.values(), zs.values());
        // the result may take the place of an operand
        Fused::axpby_squares(device, n, a, x.data(), b, y.data(), y.data());
        expectSameBits(y.values(), zs.values());
      }
    }
  }
}

/// Scalars of iterations are real and not zero, as T.
template <class T>
T drawScalar(std::mt19937& rng) {
  return T(std::uniform_real_distribution<RealType<T>>(RealType<T>(0.1), 2)(rng));
}

TYPED_TEST(FusedOpsTest, StepsOfKrylovMethodsHaveTheBitsOfTheirParts) {
  using T = TypeParam;
  using Ops = BlasOps<T, int>;
  using Array = test::DeviceArray<T>;
  std::mt19937 rng(13);
  for (const Device& device : test::testDevices()) {
    for (const int n : kSizes) {
      for (const bool wild : {false, true}) {
        const auto draw = [&] { return Array(device, drawVector<T>(rng, n, wild)); };
        const auto copy = [&](const Array& from) { return Array(device, from.values()); };
        const T a = drawScalar<T>(rng), b = drawScalar<T>(rng), c = drawScalar<T>(rng);
        const T d = drawScalar<T>(rng);
        {
          Array v = draw(), u = draw(), v_old = draw(), u_old = draw(), r = draw(), z = draw();
          Array rs = copy(r), zs = copy(z);
          Ops::axpy(device, n, a, v.data(), rs.data());
          Ops::axpy(device, n, b, v_old.data(), rs.data());
          Ops::axpy(device, n, a, u.data(), zs.data());
          Ops::axpy(device, n, b, u_old.data(), zs.data());
          const T rz = Ops::dot(device, n, rs.data(), zs.data());
          const T fused = FusedOps<T, int>::lanczos_pair(
              device, n, a, v.data(), u.data(), b, v_old.data(), u_old.data(), r.data(), z.data());
          expectSameBits<T>({fused}, {rz});
          expectSameBits(r.values(), rs.values());
          expectSameBits(z.values(), zs.values());
        }
        {
          Array u = draw(), w_old = draw(), w = draw(), x = draw();
          Array ws = copy(u), xs = copy(x);
          Ops::scal(device, n, a, ws.data());
          Ops::axpy(device, n, b, w_old.data(), ws.data());
          Ops::axpy(device, n, c, w.data(), ws.data());
          Ops::axpy(device, n, d, ws.data(), xs.data());
          FusedOps<T, int>::minres_step(device, n, a, u.data(), b, w_old.data(), c, w.data(), d,
                                        x.data());
          expectSameBits(w.values(), ws.values());
          expectSameBits(x.values(), xs.values());
        }
        {
          Array u = draw(), bar = draw(), x = draw();
          Array w = copy(bar), bars = copy(bar), xs = copy(x);
          Ops::scal(device, n, c, w.data());
          Ops::axpy(device, n, a, u.data(), w.data());
          Ops::scal(device, n, -a, bars.data());
          Ops::axpy(device, n, c, u.data(), bars.data());
          Ops::axpy(device, n, d, w.data(), xs.data());
          FusedOps<T, int>::symmlq_step(device, n, c, a, u.data(), bar.data(), d, x.data());
          expectSameBits(bar.values(), bars.values());
          expectSameBits(x.values(), xs.values());
        }
      }
    }
  }
}

// Two rotations and a turn of sign leave the lengths of the three vectors together alone.
TYPED_TEST(FusedOpsTest, QlpStepReflectsTheBasis) {
  using T = TypeParam;
  using R = RealType<T>;
  std::mt19937 rng(14);
  const T c1(R(0.6)), s1(R(0.8)), c2(R(-5) / 13), s2(R(12) / 13);
  for (const Device& device : test::testDevices()) {
    for (const int n : kSizes) {
      const auto z = drawVector<T>(rng, n, false), old = drawVector<T>(rng, n, false);
      const auto last = drawVector<T>(rng, n, false);
      test::DeviceArray<T> zs(device, z), w_old(device, old), w(device, last);
      test::DeviceArray<T> x(device, std::vector<T>(z.size(), T(0)));
      FusedOps<T, int>::qlp_step(device, n, T(R(0.5)), zs.data(), c2, s2, c1, s1, T(1),
                                 w_old.data(), w.data(), x.data());
      const auto now_old = w_old.values(), now = w.values(), step = x.values();
      for (std::size_t i = 0; i < z.size(); ++i) {
        const T u = z[i] * T(R(0.5));
        const R before = absSquared(u) + absSquared(old[i]) + absSquared(last[i]);
        const R after = absSquared(now_old[i]) + absSquared(now[i]) + absSquared(step[i]);
        EXPECT_NEAR(before, after, 1e-5);
        EXPECT_LT(abs(step[i] - (c2 * last[i] + s2 * u)), R(1e-5));
        EXPECT_LT(abs(c1 * now_old[i] + s1 * now[i] - old[i]), R(1e-5));
      }
    }
  }
}

TYPED_TEST(FusedOpsTest, JacobiFromZeroHasTheBitsOfASweepWithProduct) {
  using T = TypeParam;
  using R = RealType<T>;
  std::mt19937 rng(12);
  for (const Device& device : testDevices()) {
    for (const int n : kSizes) {
      for (const bool wild : {false, true}) {
        // a finite matrix, empty in every seventh row
        std::vector<int> rowptr{0}, columns;
        for (int i = 0; i < n; ++i) {
          for (int j = i % 5; j < n && i % 7 != 3; j += 5) columns.push_back(j);
          rowptr.push_back(static_cast<int>(columns.size()));
        }
        DeviceArray<int> rows(device, rowptr), cols(device, columns);
        DeviceArray<T> values(device, drawVector<T>(rng, static_cast<int>(columns.size()), false));
        const auto b0 = drawVector<T>(rng, n, wild);
        DeviceArray<T> b(device, b0), r(device, b0), d(device, drawVector<T>(rng, n, wild));
        DeviceArray<T> expected(device, drawVector<T>(rng, n, true));
        DeviceArray<T> x(device, drawVector<T>(rng, n, true));
        const T relax = drawVector<T>(rng, 1, false)[0];

        BlasOps<T, int>::fill(device, n, T(0), expected.data());
        SpBlasOps<T, int>::aAxpby(device, T(-1), n, n, rows.data(), nullptr, cols.data(),
                                  values.data(), expected.data(), T(1), r.data());
        BlasOps<T, int>::axypbz(device, n, relax, d.data(), r.data(), T(1), expected.data());
        FusedOps<T, int>::jacobi_from_zero(device, n, relax, d.data(), b.data(), x.data());
        expectSameBits(x.values(), expected.values());

        DeviceArray<T> again(device, drawVector<T>(rng, n, true));
        const R squares = FusedOps<T, int>::jacobi_from_zero_squares(device, n, relax, d.data(),
                                                                     b.data(), again.data());
        const R plain = BlasOps<T, int>::abs_sum(device, n, b.data(), R(2));
        EXPECT_TRUE(sameBits(squares, plain)) << squares << " and " << plain;
        expectSameBits(again.values(), expected.values());
      }
    }
  }
}

TYPED_TEST(FusedOpsTest, CountsElementsWithAnyPartThatIsNotFinite) {
  using T = TypeParam;
  using R = RealType<T>;
  std::mt19937 rng(13);
  const R bad[] = {std::numeric_limits<R>::infinity(), -std::numeric_limits<R>::infinity(),
                   std::numeric_limits<R>::quiet_NaN()};
  for (const Device& device : testDevices()) {
    EXPECT_EQ((FusedOps<T, int>::count_nonfinite(device, 0, nullptr)), 0);
    auto values = drawVector<T>(rng, 597, false);
    values[5] = T(std::numeric_limits<R>::max());
    values[6] = T(std::numeric_limits<R>::denorm_min());
    EXPECT_EQ(
        (FusedOps<T, int>::count_nonfinite(device, 597, DeviceArray<T>(device, values).data())), 0);
    int expected = 0;
    for (const R v : bad) {
      values[static_cast<std::size_t>(100 * expected)] = T(v);
      ++expected;
      if constexpr (kIsComplex<T>) {
        values[static_cast<std::size_t>(100 * expected)] = T(R(1), v);
        ++expected;
      }
    }
    EXPECT_EQ(
        (FusedOps<T, int>::count_nonfinite(device, 597, DeviceArray<T>(device, values).data())),
        expected);
  }
}

}  // namespace
}  // namespace mivo::test
