// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <type_traits>
#include <vector>

#include "mivo/ops/BlasOps.hpp"
#include "mivo/ops/MixedBlasOps.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/values.hpp"

namespace mivo::test {
namespace {

constexpr int kSizes[] = {0, 1, 2, 31, 32, 33, 597};

template <class T>
constexpr bool kHasNaN = !std::is_integral_v<RealType<T>>;

/// Multiples of a quarter, small enough for sums of products to be exact in any order.
template <class T>
T quarters(int re, int im) {
  const int parts[] = {re, im};
  const int* part = parts;
  return fromParts<T>([&] { return static_cast<RealType<T>>(*part++) / (kHasNaN<T> ? 4 : 1); });
}

template <class T>
T notANumber() {
  return T(std::numeric_limits<RealType<T>>::quiet_NaN());
}

template <class T>
std::vector<T> randomVector(int n, unsigned seed) {
  std::mt19937 engine(seed);
  std::uniform_int_distribution<int> number(-20, 20);
  std::vector<T> x(static_cast<std::size_t>(n));
  for (T& value : x) {
    const int re = number(engine);
    value = quarters<T>(re, number(engine));
  }
  for (std::size_t i = 0; i < x.size(); i += 5) x[i] = T(0);
  return x;
}

template <class T>
void plantNaN(std::vector<T>& x, std::size_t i) {
  if (kHasNaN<T> && i < x.size()) x[i] = notANumber<T>();
}

template <class C>
class BlasOpsTest : public testing::Test {
 protected:
  using Value = typename C::T;
  using Vector = std::vector<Value>;

  /// Runs an operation on x, y, z on each device and compares all three with the naive loop over
  /// `expect(i, x, y, z)`.
  template <class Call, class Expect>
  static void check(const Call& call, const Expect& expect) {
    for (const Device& device : testDevices()) {
      for (const int n : kSizes) {
        Vector x = randomVector<Value>(n, 1), y = randomVector<Value>(n, 2),
               z = randomVector<Value>(n, 3);
        plantNaN(x, 3);
        plantNaN(y, 6);
        plantNaN(z, 7);
        DeviceArray<Value> dx(device, x), dy(device, y), dz(device, z);
        SCOPED_TRACE(n);
        call(device, n, dx, dy, dz);
        for (std::size_t i = 0; i < x.size(); ++i) expect(i, x, y, z);
        expectSameBits(dx.values(), x);
        expectSameBits(dy.values(), y);
        expectSameBits(dz.values(), z);
      }
    }
  }

  static Vector scalars() {
    Vector list = {Value(0), Value(1), quarters<Value>(-6, 2)};
    if (kHasNaN<Value>) list.push_back(notANumber<Value>());
    return list;
  }
};

using Cases = testing::Types<TypePair<int, int>, TypePair<int, long>, TypePair<long, int>,
                             TypePair<float, int>, TypePair<float, long>, TypePair<double, int>,
                             TypePair<double, long>, TypePair<Complex<float>, int>,
                             TypePair<Complex<double>, int>, TypePair<Complex<double>, long>>;
TYPED_TEST_SUITE(BlasOpsTest, Cases);

#define USE_TYPES            \
  MIVO_TEST_PAIR_TYPES       \
  using Ops = BlasOps<T, I>; \
  using V [[maybe_unused]] = std::vector<T>;

TYPED_TEST(BlasOpsTest, UpdatesOfOneVectorFollowTheirFormulas) {
  USE_TYPES
  for (const T a : this->scalars()) {
    this->check([&](const Device& d, I n, T* x, T*, T*) { Ops::fill(d, n, a, x); },
                [&](std::size_t i, V& x, V&, V&) { x[i] = a; });
    this->check([&](const Device& d, I n, T* x, T*, T*) { Ops::scal(d, n, a, x); },
                [&](std::size_t i, V& x, V&, V&) { x[i] = a == T(0) ? T(0) : x[i] * a; });
    this->check([&](const Device& d, I n, T* x, T* y, T*) { Ops::copy(d, n, x, y); },
                [&](std::size_t i, V& x, V& y, V&) { y[i] = x[i]; });
    this->check([&](const Device& d, I n, T* x, T*, T*) { Ops::reciprocal(d, n, a, x); },
                [&](std::size_t i, V& x, V&, V&) {
                  if (a == T(0)) {
                    x[i] = T(0);
                  } else if (x[i] == T(0)) {
                    x[i] = a;
                  } else if constexpr (kIsComplex<T>) {
                    const R s = R(1) / (x[i].re * x[i].re + x[i].im * x[i].im);
                    const T p = a * T(x[i].re, -x[i].im);
                    x[i] = T(p.re * s, p.im * s);
                  } else {
                    x[i] = a / x[i];
                  }
                });
  }
}

TYPED_TEST(BlasOpsTest, UpdatesOfSeveralVectorsFollowTheirFormulasAndDropWhatAZeroScales) {
  USE_TYPES
  const T zero(0);
  for (const T a : this->scalars()) {
    this->check([&](const Device& d, I n, T* x, T* y, T*) { Ops::axpy(d, n, a, x, y); },
                [&](std::size_t i, V& x, V& y, V&) { y[i] = y[i] + x[i] * a; });
    for (const T b : this->scalars()) {
      this->check([&](const Device& d, I n, T* x, T* y, T*) { Ops::axpby(d, n, a, x, b, y); },
                  [&](std::size_t i, V& x, V& y, V&) {
                    y[i] = b == zero ? x[i] * a : x[i] * a + y[i] * b;
                  });
      this->check(
          [&](const Device& d, I n, T* x, T* y, T* z) { Ops::axpbypz(d, n, a, x, b, y, z); },
          [&](std::size_t i, V& x, V& y, V& z) { z[i] = z[i] + (x[i] * a + y[i] * b); });
      this->check([&](const Device& d, I n, T* x, T* y, T* z) { Ops::axypbz(d, n, a, x, y, b, z); },
                  [&](std::size_t i, V& x, V& y, V& z) {
                    const T product = (x[i] * a) * y[i];
                    z[i] = b == zero ? product : product + z[i] * b;
                  });
      for (const T c : this->scalars()) {
        this->check(
            [&](const Device& d, I n, T* x, T* y, T* z) { Ops::axpbypcz(d, n, a, x, b, y, c, z); },
            [&](std::size_t i, V& x, V& y, V& z) {
              z[i] = c == zero ? x[i] * a + y[i] * b : y[i] * b + x[i] * a + z[i] * c;
            });
      }
    }
  }
}

TYPED_TEST(BlasOpsTest, PowerMatchesTheStandardLibrary) {
  USE_TYPES
  for (const Device& device : testDevices()) {
    const V x = {T(0), T(2), quarters<T>(9, 5), quarters<T>(-8, 12), quarters<T>(-3, 0)};
    for (const T a : {T(2), T(0), quarters<T>(5, -2)}) {
      DeviceArray<T> dx(device, x);
      Ops::pow(device, static_cast<I>(x.size()), a, dx);
      const V got = dx.values();
      for (std::size_t i = 0; i < x.size(); ++i) {
        SCOPED_TRACE(i);
        if constexpr (kIsComplex<T>) {
          // Zero stays zero, whatever the exponent.
          const std::complex<double> base(x[i].re, x[i].im), exponent(a.re, a.im),
              expected = x[i] == T(0) ? base : std::pow(base, exponent);
          const double bound = 20 * std::numeric_limits<R>::epsilon() * (1 + std::abs(expected));
          EXPECT_LE(std::abs(std::complex<double>(got[i].re, got[i].im) - expected), bound);
        } else {
          using Wide = std::conditional_t<kHasNaN<T>, T, double>;
          EXPECT_TRUE(sameBits(got[i], static_cast<T>(std::pow(Wide(x[i]), Wide(a)))));
        }
      }
    }
  }
}

TYPED_TEST(BlasOpsTest, NonzeroIndicesCountNaNAndListPositionsAscending) {
  USE_TYPES
  for (const Device& device : testDevices()) {
    for (const int n : kSizes) {
      V x = randomVector<T>(n, 4);
      plantNaN(x, 10);
      if constexpr (kIsComplex<T>) {
        if (n > 20) x[20] = T(0, 1);
      }
      std::vector<I> expected;
      for (std::size_t i = 0; i < x.size(); ++i) {
        if (!(x[i] == T(0))) expected.push_back(static_cast<I>(i));
      }
      DeviceArray<T> dx(device, x);
      DeviceArray<I> count(device, std::vector<I>{-1});
      Ops::get_nonzero_indices(device, n, dx, nullptr, count);
      ASSERT_EQ(count.values()[0], static_cast<I>(expected.size()));
      DeviceArray<I> indices(device, expected.size());
      Ops::get_nonzero_indices(device, n, dx, indices, count);
      EXPECT_EQ(count.values()[0], static_cast<I>(expected.size()));
      EXPECT_EQ(indices.values(), expected);
    }
  }
}

TYPED_TEST(BlasOpsTest, PartsAreTakenAndJoined) {
  USE_TYPES
  for (const Device& device : testDevices()) {
    for (const int n : kSizes) {
      const V x = randomVector<T>(n, 5), y = randomVector<T>(n, 6);
      std::vector<R> re, im;
      std::vector<Complex<T>> both, onlyRe, onlyIm, none(x.size());
      for (std::size_t i = 0; i < x.size(); ++i) {
        re.push_back(realPart(x[i]));
        im.push_back(imagPart(x[i]));
        both.push_back({x[i], y[i]});
        onlyRe.push_back({x[i], T(0)});
        onlyIm.push_back({T(0), y[i]});
      }
      DeviceArray<T> dx(device, x), dy(device, y);
      DeviceArray<R> part(device, std::vector<R>(x.size(), R(9)));
      Ops::get_real(device, n, dx, part);
      EXPECT_EQ(part.values(), re);
      Ops::get_imag(device, n, dx, part);
      EXPECT_EQ(part.values(), im);

      DeviceArray<Complex<T>> dz(device, std::vector<Complex<T>>(x.size(), Complex<T>(T(9), T(9))));
      Ops::create_complex(device, n, dx, nullptr, dz);
      EXPECT_EQ(dz.values(), onlyRe);
      Ops::create_complex(device, n, nullptr, dy, dz);
      EXPECT_EQ(dz.values(), onlyIm);
      Ops::create_complex(device, n, dx, dy, dz);
      EXPECT_EQ(dz.values(), both);
      Ops::create_complex(device, n, nullptr, nullptr, dz);
      EXPECT_EQ(dz.values(), none);
    }
  }
}

TYPED_TEST(BlasOpsTest, SumsMatchTheNaiveLoop) {
  USE_TYPES
  for (const Device& device : testDevices()) {
    for (const int n : kSizes) {
      const V x = randomVector<T>(n, 7), y = randomVector<T>(n, 8);
      T dot(0), dotu(0), sum(0);
      R squares(0), absolutes(0), cubes(0);
      for (std::size_t i = 0; i < x.size(); ++i) {
        dot += conj(x[i]) * y[i];
        dotu += x[i] * y[i];
        sum += x[i];
        squares += realPart(x[i]) * realPart(x[i]) + imagPart(x[i]) * imagPart(x[i]);
        absolutes += abs(x[i]);
        cubes += static_cast<R>(std::pow(abs(x[i]), R(3)));
      }
      DeviceArray<T> dx(device, x), dy(device, y);
      EXPECT_EQ(Ops::dot(device, n, dx, dy), dot);
      EXPECT_EQ(Ops::dotu(device, n, dx, dy), dotu);
      EXPECT_EQ(Ops::abs_sum(device, n, dx, R(2)), squares);
      T gotSum(-1);
      Ops::min_max_sum(device, n, dx, nullptr, nullptr, &gotSum);
      EXPECT_EQ(gotSum, sum);
      // Roots and powers round, so that the order of a device shows.
      const double bound = 1e3 * (kHasNaN<T> ? double(std::numeric_limits<R>::epsilon()) : 0.0);
      EXPECT_NEAR(Ops::abs_sum(device, n, dx, R(1)), absolutes, bound * double(absolutes));
      EXPECT_NEAR(Ops::abs_sum(device, n, dx, R(3)), cubes, bound * double(cubes));
    }
  }
}

TYPED_TEST(BlasOpsTest, ExtremesStartAtTheIdentityOfTheirReducer) {
  USE_TYPES
  for (const Device& device : testDevices()) {
    for (const int n : kSizes) {
      V x = randomVector<T>(n, 9);
      plantNaN(x, 1);
      T min = kIsComplex<T> ? T(0) : T(std::numeric_limits<R>::max());
      T max = kIsComplex<T> ? T(0) : T(std::numeric_limits<R>::min());
      R absMax = std::numeric_limits<R>::min();
      for (const T& value : x) {
        if (realPart(value) < realPart(min)) min = value;
        if (realPart(value) > realPart(max)) max = value;
        if (abs(value) > absMax) absMax = abs(value);
      }
      DeviceArray<T> dx(device, x);
      T gotMin(-1), gotMax(-1), gotSum(-1);
      Ops::min_max_sum(device, n, dx, &gotMin, nullptr, nullptr);
      Ops::min_max_sum(device, n, dx, nullptr, &gotMax, &gotSum);
      EXPECT_EQ(realPart(gotMin), realPart(min)) << n;
      EXPECT_EQ(realPart(gotMax), realPart(max)) << n;
      if (device.type == Device::kHost) {
        // Of elements with the same real part the first stays.
        EXPECT_EQ(gotMin, min) << n;
        EXPECT_EQ(gotMax, max) << n;
      }
      EXPECT_TRUE(n > 0 || gotSum == T(0));
      EXPECT_EQ(Ops::abs_max(device, n, dx), absMax) << n;
    }
  }
}

TYPED_TEST(BlasOpsTest, AdamStepMatchesTheFormulasInOrder) {
  USE_TYPES
  const T lr = kHasNaN<T> ? quarters<T>(1, 1) : T(1);
  const T decay = kHasNaN<T> ? quarters<T>(2, 0) : T(3);
  const R beta1 = kHasNaN<T> ? R(0.9) : R(2), beta2 = kHasNaN<T> ? R(0.99) : R(3);
  const R eps = kHasNaN<T> ? R(1e-3) : R(2);
  const auto raise = [](R base, I step) {
    return static_cast<R>(std::pow(double(base), double(step)));
  };
  const auto expectClose = [](const auto& got, const auto& expected) {
    const double bound = kHasNaN<T> ? 500 * double(std::numeric_limits<R>::epsilon()) : 0.0;
    for (std::size_t i = 0; i < got.size(); ++i) {
      EXPECT_LE(double(abs(got[i] - expected[i])), bound * (1 + double(abs(expected[i])))) << i;
    }
  };
  for (const Device& device : testDevices()) {
    for (const I amsgrad : {0, 1}) {
      const int n = 33;
      V x = randomVector<T>(n, 10), m(x.size(), T(0));
      std::vector<R> v(x.size(), R(0)), vmax(x.size(), R(0));
      DeviceArray<T> dx(device, x), dm(device, m);
      DeviceArray<R> dv(device, v), dvmax(device, vmax);
      for (I step = 1; step <= 3; ++step) {
        // The gradient shrinks, so that the running maximum differs from v.
        const V g = step == 3 ? V(x.size(), T(0)) : randomVector<T>(n, 11);
        DeviceArray<T> dg(device, g);
        Ops::adamw_step(device, n, dg, dx, dm, dv, dvmax, lr, beta1, beta2, eps, decay, amsgrad,
                        step);
        for (std::size_t i = 0; i < x.size(); ++i) {
          x[i] = x[i] * (T(1) - lr * decay);
          m[i] = T(1 - beta1) * g[i] + T(beta1) * m[i];
          const T mhat = m[i] / T(1 - raise(beta1, step));
          v[i] = beta2 * v[i] + (1 - beta2) * absSquared(g[i]);
          if (amsgrad != 0) vmax[i] = std::max(v[i], vmax[i]);
          const R vhat = (amsgrad != 0 ? vmax[i] : v[i]) / (1 - raise(beta2, step));
          x[i] = x[i] - lr * mhat / T(static_cast<R>(std::sqrt(double(vhat))) + eps);
        }
      }
      expectClose(dx.values(), x);
      expectClose(dv.values(), v);
      expectClose(dvmax.values(), vmax);
    }
  }
}

TEST(BlasOps, SmallCasesByHand) {
  const Device host;
  using Ops = BlasOps<double, int>;
  const double zeros[] = {0, 0}, negative[] = {-3, -2};
  EXPECT_EQ(Ops::abs_max(host, 2, zeros), 2.2250738585072014e-308);
  double max = 0, sum = 0;
  Ops::min_max_sum(host, 2, negative, nullptr, &max, nullptr);
  EXPECT_EQ(max, 2.2250738585072014e-308);
  // Sums add in index order on the host: here the order decides.
  const double large[] = {1e16, 1, -1e16, 1}, ones[] = {1, 1, 1, 1};
  EXPECT_EQ(Ops::dot(host, 4, large, ones), 1);
  Ops::min_max_sum(host, 4, large, nullptr, nullptr, &sum);
  EXPECT_EQ(sum, 1);
}

TEST(BlasOps, AKindWithoutKernelsDoesNothingAndGivesZero) {
  const Device hip(Device::kHip);
  double x[] = {3, 4}, min = 7, max = 8, sum = 9;
  using Ops = BlasOps<double, int>;
  Ops::fill(hip, 2, 1.0, x);
  Ops::min_max_sum(hip, 2, x, &min, &max, &sum);
  EXPECT_EQ(x[0], 3);
  EXPECT_EQ((std::array<double, 3>{min, max, sum}), (std::array<double, 3>{7, 8, 9}));
  EXPECT_EQ(Ops::dot(hip, 2, x, x), 0);
  EXPECT_EQ(Ops::abs_max(hip, 2, x), 0);
}

template <class To, class From>
void checkConversion(const std::vector<From>& from, const std::vector<To>& expected) {
  for (const Device& device : testDevices()) {
    DeviceArray<From> x(device, from);
    DeviceArray<To> y(device, std::vector<To>(from.size(), To(77)));
    MixedBlasOps<To, From, int>::copy(device, static_cast<int>(from.size()), x, y);
    EXPECT_EQ(y.values(), expected);
    DeviceArray<To> z(device, std::vector<To>(from.size(), To(77)));
    MixedBlasOps<To, From, long>::copy(device, static_cast<long>(from.size()), x, z);
    EXPECT_EQ(z.values(), expected);
  }
}

TEST(MixedBlasOps, ConvertsEachPairOfTypes) {
  using CF = Complex<float>;
  using CD = Complex<double>;
  checkConversion<double, float>({0.1f, -2}, {static_cast<double>(0.1f), -2});
  checkConversion<float, double>({0.1, 1e300}, {0.1f, std::numeric_limits<float>::infinity()});
  checkConversion<double, int>({3, -2147483647}, {3, -2147483647});
  checkConversion<float, int>({3, 16777217}, {3, 16777216});
  checkConversion<int, double>({2.9, -2.9}, {2, -2});
  checkConversion<int, float>({2.9f, -2.9f}, {2, -2});
  checkConversion<CD, CF>({{0.5f, 0.1f}}, {{0.5, static_cast<double>(0.1f)}});
  checkConversion<CF, CD>({{0.5, 0.1}}, {{0.5f, 0.1f}});
  checkConversion<CD, int>({7}, {{7, 0}});
  checkConversion<CF, int>({-7}, {{-7, 0}});
}

TEST(Complex, ArithmeticMatchesTheStandardType) {
  using Standard = std::complex<double>;
  const auto check = [](const Complex<double>& got, const Standard& expected) {
    EXPECT_LE(std::abs(Standard(got.re, got.im) - expected), 1e-15 * (1 + std::abs(expected)));
  };
  const Complex<double> list[] = {{1, 2}, {-3.5, 0.25}, {0, -1}, {4, 0}};
  for (const auto& a : list) {
    const Standard p(a.re, a.im);
    check(-a, -p);
    EXPECT_DOUBLE_EQ(abs(a), std::abs(p));
    for (const auto& b : list) {
      const Standard q(b.re, b.im);
      check(a + b, p + q);
      check(a - b, p - q);
      check(a * b, p * q);
      check(a / b, p / q);
      Complex<double> c = a;
      c /= b;
      c *= b;
      check(c, p);
      EXPECT_EQ(a == b, p == q);
      EXPECT_EQ(a != b, p != q);
    }
  }
  static_assert(
      sizeof(Complex<float>) == 2 * sizeof(float) && std::is_trivially_copyable_v<Complex<double>>,
      "arrays of complex numbers are plain memory");
}

}  // namespace
}  // namespace mivo::test
