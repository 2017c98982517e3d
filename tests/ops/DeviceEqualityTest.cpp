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
std::vector<T> roundingVector(std::mt19937& rng, std::size_t n) {
  std::uniform_real_distribution<double> draw(-1.0, 1.0);
  std::vector<T> x(n);
  for (T& v : x) v = fromParts<T>([&] { return draw(rng); });
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
};
TYPED_TEST_SUITE(DeviceEquality, ScalarTypes);

TYPED_TEST(DeviceEquality, ReductionsAddUpTo256PartialSums) {
  using T = TypeParam;
  const Device device = testDevices()[1];
  DeviceArray<T> x(device, this->first), y(device, this->second);
  for (const int n : {3, 256, 257, this->kSize}) {
    std::vector<T> partial(static_cast<std::size_t>(std::min(n, 256)), T(0));
    for (std::size_t k = 0; k < static_cast<std::size_t>(n); ++k) {
      partial[k % partial.size()] += conj(this->first[k]) * this->second[k];
    }
    T expected = partial[0];
    for (std::size_t p = 1; p < partial.size(); ++p) expected += partial[p];
    const T on_device = BlasOps<T, int>::dot(device, n, x, y);
    EXPECT_EQ(on_device, expected) << n;
    const T on_host = BlasOps<T, int>::dot(Device(), n, this->first.data(), this->second.data());
    const double eps = std::numeric_limits<RealType<T>>::epsilon();
    EXPECT_LE(abs(on_device - on_host), eps * n) << n;
  }
}

TYPED_TEST(DeviceEquality, ProductsAndSweepsGiveTheSameBits) {
  using T = TypeParam;
  using R = RealType<T>;
  using Ops = SpBlasOps<T, int>;
  const int n = this->kSize;
  auto a = randomCsr<T>(this->rng, n, n);
  a.values = roundingVector<T>(this->rng, a.values.size());
  const auto factors = roundingVector<T>(this->rng, 2);
  const auto expectSameBits = [&](const char* name, const auto& op) {
    std::vector<std::vector<T>> results;
    for (const Device& device : testDevices()) {
      const DeviceCsr<T> m(device, a);
      DeviceArray<T> x(device, this->first), y(device, this->second), z(device, this->third);
      op(device, m, x, y, z);
      results.push_back(z.values());
    }
    EXPECT_EQ(results[0], results[1]) << name;
  };
  expectSameBits("aAxpby", [&](const Device& d, const auto& m, T* x, T*, T* z) {
    Ops::aAxpby(d, factors[0], n, n, m.rowptr(), m.rowptr() + 1, m.col_idx(), m.values(), x,
                factors[1], z);
  });
  expectSameBits("jacobi", [&](const Device& d, const auto& m, T* x, T* y, T* z) {
    Ops::jacobi(d, n, n, m.rowptr(), m.col_idx(), m.values(), x, y, z, T(R(0.7)));
  });
  expectSameBits("richardson", [&](const Device& d, const auto& m, T* x, T* y, T* z) {
    Ops::richardson(d, n, n, m.rowptr(), m.col_idx(), m.values(), x, y, z, T(R(0.7)));
  });
  // Gauss-Seidel is one sequential task everywhere; a heavy diagonal keeps it bounded.
  for (int i = 0; i < n; ++i) {
    for (int k = a.rowptr[i]; k < a.rowptr[i + 1]; ++k) {
      if (a.col_idx[k] == i) a.values[k] = T(R(900.1));
    }
  }
  expectSameBits("sor", [&](const Device& d, const auto& m, T*, T* y, T* z) {
    Ops::sor(d, n, n, m.rowptr(), m.col_idx(), m.values(), y, z, T(R(1.2)), 1, nullptr);
  });
}

}  // namespace
}  // namespace mivo::test
