// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <random>

#include "mivo/ops/BlasOps.hpp"
#include "mivo/ops/SpBlasOps.hpp"
#include "tests/support/RandomCsr.hpp"

// What a kernel gives on a device against what it gives on the host, with values that round: the
// same bits where each element is computed by itself, 256 partial sums where the host has one.
namespace mivo::test {
namespace {

template <class T>
T roundingValue(std::mt19937& rng) {
  std::uniform_real_distribution<double> draw(-1.0, 1.0);
  return fromParts<T>([&] { return draw(rng); });
}

template <class T>
std::vector<T> roundingVector(std::mt19937& rng, int n) {
  std::vector<T> x(static_cast<std::size_t>(n));
  for (T& v : x) v = roundingValue<T>(rng);
  return x;
}

template <class T>
class DeviceEquality : public testing::Test {
 protected:
  static constexpr int kSize = 1013;
  std::mt19937 rng{7};
  std::vector<T> first = roundingVector<T>(rng, kSize), second = roundingVector<T>(rng, kSize),
                 third = roundingVector<T>(rng, kSize);

  void SetUp() override {
    if (testDevices().size() < 2) GTEST_SKIP() << "no CUDA device";
  }

  /// op(device, x, y, z) on arrays in the memory of each device leaves the same bits in z.
  template <class Op>
  void expectSameBits(const char* name, const Op& op) {
    std::vector<std::vector<T>> results;
    for (const Device& device : testDevices()) {
      DeviceArray<T> x(device, first), y(device, second), z(device, third);
      op(device, x.data(), y.data(), z.data());
      results.push_back(z.values());
    }
    EXPECT_EQ(results[0], results[1]) << name;
  }
};
TYPED_TEST_SUITE(DeviceEquality, ScalarTypes);

TYPED_TEST(DeviceEquality, ReductionsAddUpTo256PartialSums) {
  using T = TypeParam;
  const Device device = testDevices()[1];
  DeviceArray<T> x(device, this->first), y(device, this->second);
  for (const int n : {3, 256, 257, this->kSize}) {
    const int parts = std::min(n, 256);
    std::vector<T> partial(static_cast<std::size_t>(parts), T(0));
    for (int i = 0; i < n; ++i) {
      const auto k = static_cast<std::size_t>(i);
      partial[k % partial.size()] += conj(this->first[k]) * this->second[k];
    }
    T expected = partial[0];
    for (int p = 1; p < parts; ++p) expected += partial[static_cast<std::size_t>(p)];
    const T on_device = BlasOps<T, int>::dot(device, n, x.data(), y.data());
    EXPECT_EQ(on_device, expected) << n;
    const T on_host = BlasOps<T, int>::dot(Device(), n, this->first.data(), this->second.data());
    const double eps = std::numeric_limits<RealType<T>>::epsilon();
    EXPECT_LE(abs(on_device - on_host), eps * n) << n;
  }
}

TYPED_TEST(DeviceEquality, ProductsAndSweepsGiveTheSameBits) {
  using T = TypeParam;
  using R = RealType<T>;
  using SpBlas = SpBlasOps<T, int>;
  const int n = this->kSize;
  auto a = randomCsr<T>(this->rng, n, n);
  for (T& v : a.values) v = roundingValue<T>(this->rng);
  const T alpha = roundingValue<T>(this->rng), beta = roundingValue<T>(this->rng);
  const auto with_matrix = [&](const char* name, const auto& op) {
    this->expectSameBits(name, [&](const Device& d, const T* x, T* y, T* z) {
      const DeviceCsr<T> on_device(d, a);
      op(d, on_device, x, y, z);
    });
  };
  using Csr = DeviceCsr<T>;
  with_matrix("aAxpby", [&](const Device& d, const Csr& m, const T* x, T*, T* z) {
    SpBlas::aAxpby(d, alpha, n, n, m.rowptr(), m.rowptr() + 1, m.col_idx(), m.values(), x, beta, z);
  });
  with_matrix("jacobi", [&](const Device& d, const Csr& m, const T* x, T* y, T* z) {
    SpBlas::jacobi(d, n, n, m.rowptr(), m.col_idx(), m.values(), x, y, z, T(R(0.7)));
  });
  with_matrix("richardson", [&](const Device& d, const Csr& m, const T* x, T* y, T* z) {
    SpBlas::richardson(d, n, n, m.rowptr(), m.col_idx(), m.values(), x, y, z, T(R(0.7)));
  });
  // Gauss-Seidel is one sequential task everywhere; a heavy diagonal keeps it bounded.
  for (int i = 0; i < n; ++i) {
    for (int k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
      if (a.col_idx[k] == i) a.values[k] = T(R(900.1));
    }
  }
  with_matrix("sor", [&](const Device& d, const Csr& m, const T*, T* y, T* z) {
    SpBlas::sor(d, n, n, m.rowptr(), m.col_idx(), m.values(), y, z, T(R(1.2)), 1, nullptr);
  });
}

}  // namespace
}  // namespace mivo::test
