// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

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

/// Draws numbers, with zeros of both signs and, where `wild`, infinities and NaN strewn in.
template <class T>
struct Draw {
  using R = RealType<T>;
  int n;
  bool wild;
  std::mt19937 rng{static_cast<unsigned>(n)};

  std::vector<T> operator()(int count, bool any) {
    const R rare[] = {R(0), -R(0), std::numeric_limits<R>::infinity(),
                      std::numeric_limits<R>::quiet_NaN()};
    std::vector<T> out(static_cast<std::size_t>(count));
    for (T& v : out) {
      v = fromParts<T>([&] {
        const auto kind = rng() % 12;
        return kind < (any ? 4 : 2) ? rare[kind] : std::uniform_real_distribution<R>(-2, 2)(rng);
      });
    }
    return out;
  }
  std::vector<T> operator()() { return (*this)(n, wild); }
  T finite() { return (*this)(1, false)[0]; }
  /// Scalars of iterations are real and not zero.
  T step() { return T(std::uniform_real_distribution<R>(R(0.1), 2)(rng)); }
};

template <class T>
struct Input {
  Device device;
  int n;
  Draw<T> draw;
};

template <class T>
std::vector<Input<T>> inputs() {
  std::vector<Input<T>> out;
  for (const Device& device : testDevices()) {
    for (const int n : {0, 1, 2, 31, 32, 33, 597}) {
      for (const bool wild : {false, true}) out.push_back({device, n, {n, wild}});
    }
  }
  return out;
}

/// Array for a fused call and an equal one for its parts, which have the same bits in the end.
template <class T>
struct Twice {
  Twice(const Device& device, const std::vector<T>& values)
      : fused(device, values), parts(device, values) {}
  ~Twice() { expectSameBits(fused.values(), parts.values()); }
  DeviceArray<T> fused, parts;
};

template <class T>
class FusedOpsTest : public testing::Test {};
TYPED_TEST_SUITE(FusedOpsTest, ScalarTypes);

#define MIVO_FUSED_TYPES                        \
  using T = TypeParam;                          \
  using R [[maybe_unused]] = RealType<T>;       \
  using Ops [[maybe_unused]] = BlasOps<T, int>; \
  using Fused = FusedOps<T, int>;

TYPED_TEST(FusedOpsTest, CgUpdateHasTheBitsOfTwoAxpbyAndANorm) {
  MIVO_FUSED_TYPES
  for (auto& [device, n, draw] : inputs<T>()) {
    DeviceArray<T> p(device, draw()), q(device, draw());
    Twice<T> x(device, draw()), r(device, draw());
    const T alpha = draw.finite();
    Ops::axpby(device, n, alpha, p, T(1), x.parts);
    Ops::axpby(device, n, -alpha, q, T(1), r.parts);
    const R squares = Ops::abs_sum(device, n, r.parts, R(2));
    expectSameBits<R>({Fused::cg_update(device, n, alpha, p, x.fused, q, r.fused)}, {squares});
  }
}

TYPED_TEST(FusedOpsTest, CombinationsHaveTheBitsOfTheirPartsAndReductions) {
  MIVO_FUSED_TYPES
  for (auto& [device, n, draw] : inputs<T>()) {
    DeviceArray<T> x(device, draw()), q(device, draw());
    Twice<T> y(device, draw()), z(device, draw());
    const T a = draw.finite(), b = T(R(1.5));
    Ops::axpby(device, n, a, x, T(1), y.parts);
    const T product = Ops::dot(device, n, y.parts, q);
    expectSameBits<T>({Fused::axpy_dot(device, n, a, x, y.fused, q)}, {product});

    Ops::axpbypcz(device, n, a, x, b, q, T(0), z.parts);
    const R squares = Ops::abs_sum(device, n, z.parts, R(2));
    expectSameBits<R>({Fused::axpby_squares(device, n, a, x, b, q, z.fused)}, {squares});
    // the result may take the place of an operand
    Fused::axpby_squares(device, n, a, x, b, q, q);
    expectSameBits(q.values(), z.parts.values());
  }
}

TYPED_TEST(FusedOpsTest, StepsOfKrylovMethodsHaveTheBitsOfTheirParts) {
  MIVO_FUSED_TYPES
  for (auto& [device, n, draw] : inputs<T>()) {
    const T a = draw.step(), b = draw.step(), c = draw.step(), d = draw.step();
    DeviceArray<T> u(device, draw()), v(device, draw()), p(device, draw()), q(device, draw());
    DeviceArray<T> w(device, draw()), ws(device, u.values());
    DeviceArray<T> lq(device, w.values());
    Twice<T> r(device, draw()), z(device, draw()), x(device, draw()), bar(device, w.values());
    Ops::axpy(device, n, a, v, r.parts);
    Ops::axpy(device, n, b, p, r.parts);
    Ops::axpy(device, n, a, u, z.parts);
    Ops::axpy(device, n, b, q, z.parts);
    const T rz = Ops::dot(device, n, r.parts, z.parts);
    expectSameBits<T>({Fused::lanczos_pair(device, n, a, v, u, b, p, q, r.fused, z.fused)}, {rz});

    Ops::scal(device, n, a, ws);
    Ops::axpy(device, n, b, p, ws);
    Ops::axpy(device, n, c, w, ws);
    Ops::axpy(device, n, d, ws, x.parts);
    Fused::minres_step(device, n, a, u, b, p, c, w, d, x.fused);
    expectSameBits(w.values(), ws.values());

    Ops::scal(device, n, c, lq);
    Ops::axpy(device, n, a, v, lq);
    Ops::scal(device, n, -a, bar.parts);
    Ops::axpy(device, n, c, v, bar.parts);
    Ops::axpy(device, n, d, lq, x.parts);
    Fused::symmlq_step(device, n, c, a, v, bar.fused, d, x.fused);
  }
}

TYPED_TEST(FusedOpsTest, QlpStepReflectsTheBasis) {
  MIVO_FUSED_TYPES
  const T g(R(0.5)), c1(R(0.6)), s1(R(0.8)), c2(R(-5) / 13), s2(R(12) / 13);
  for (auto& [device, n, draw] : inputs<T>()) {
    const auto z = draw(n, false), old = draw(n, false), last = draw(n, false);
    DeviceArray<T> zs(device, z), w_old(device, old), w(device, last), x(device, z.size());
    Fused::qlp_step(device, n, g, zs, c2, s2, c1, s1, T(1), w_old, w, x);
    const auto now_old = w_old.values(), now = w.values(), step = x.values();
    for (std::size_t i = 0; i < z.size(); ++i) {
      const T t = s2 * last[i] - c2 * g * z[i];
      EXPECT_LT(abs(step[i] - (c2 * last[i] + s2 * g * z[i])), R(1e-5));
      EXPECT_LT(abs(now_old[i] - (c1 * old[i] + s1 * t)), R(1e-5));
      EXPECT_LT(abs(now[i] - (s1 * old[i] - c1 * t)), R(1e-5));
    }
  }
}

TYPED_TEST(FusedOpsTest, JacobiFromZeroHasTheBitsOfASweepWithProduct) {
  MIVO_FUSED_TYPES
  for (auto& [device, n, draw] : inputs<T>()) {
    // a finite matrix, empty in every seventh row
    std::vector<int> rowptr{0}, columns;
    for (int i = 0; i < n; ++i) {
      for (int j = i % 5; j < n && i % 7 != 3; j += 5) columns.push_back(j);
      rowptr.push_back(static_cast<int>(columns.size()));
    }
    DeviceArray<int> rows(device, rowptr), cols(device, columns);
    DeviceArray<T> values(device, draw(rowptr.back(), false)), d(device, draw());
    DeviceArray<T> b(device, draw()), r(device, b.values());
    Twice<T> x(device, draw(n, true));
    const T relax = draw.finite();
    Ops::fill(device, n, T(0), x.parts);
    SpBlasOps<T, int>::aAxpby(device, T(-1), n, n, rows, nullptr, cols, values, x.parts, T(1), r);
    Ops::axypbz(device, n, relax, d, r, T(1), x.parts);
    Fused::jacobi_from_zero(device, n, relax, d, b, x.fused);
  }
}

TYPED_TEST(FusedOpsTest, CountsElementsWithAnyPartThatIsNotFinite) {
  MIVO_FUSED_TYPES
  constexpr R inf = std::numeric_limits<R>::infinity();
  for (const Device& device : testDevices()) {
    EXPECT_EQ(Fused::count_nonfinite(device, 0, nullptr), 0);
    auto values = Draw<T>{597, false}();
    const auto count = [&] {
      return Fused::count_nonfinite(device, 597, DeviceArray<T>(device, values));
    };
    values[5] = T(std::numeric_limits<R>::max());
    values[6] = T(std::numeric_limits<R>::denorm_min());
    EXPECT_EQ(count(), 0);
    int expected = 0;
    for (const R v : {inf, -inf, std::numeric_limits<R>::quiet_NaN()}) {
      values[static_cast<std::size_t>(100 * expected++)] = T(v);
      if constexpr (kIsComplex<T>) values[static_cast<std::size_t>(100 * expected++)] = T(1, v);
    }
    EXPECT_EQ(count(), expected);
  }
}

}  // namespace
}  // namespace mivo::test
