// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <vector>

#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

template <class T>
class ProductOverRanks : public testing::Test {};
using Types = testing::Types<long, float, Complex<double>>;
TYPED_TEST_SUITE(ProductOverRanks, Types);

TYPED_TEST(ProductOverRanks, EqualsTheDenseProduct) {
  using T = TypeParam;
  using R = RealType<T>;
  std::mt19937 rng(17);
  const std::vector<std::pair<T, T>> scalars = {
      {T(1), T(0)}, {T(0), T(1)}, {T(R(-2)), T(R(3))}, {T(0), T(0)}};
  for (const auto& [rows, cols] : std::vector<std::pair<int, int>>{{40, 40}, {31, 12}, {3, 21}}) {
    const HostCsr<T> a = randomCsr<T>(rng, rows, cols);
    const std::vector<T> x = smallVector<T>(rng, static_cast<std::size_t>(cols));
    const std::vector<T> y = smallVector<T>(rng, static_cast<std::size_t>(rows));
    forCuts({rows, cols}, rng, [&](const Device& device, const auto& parts) {
      auto A = distributed(device, parts[0], parts[1], a);
      const auto xs = ownColumn(device, parts[1], x);
      for (const auto& [alpha, beta] : scalars) {
        // What must not be read is not a number.
        std::vector<T> start = y;
        if (isZero(beta) && std::numeric_limits<R>::has_quiet_NaN) {
          start.assign(y.size(), T(std::numeric_limits<R>::quiet_NaN()));
        }
        auto ys = ownColumn(device, parts[0], start);
        A.aAxpby(alpha, xs, beta, ys, nullptr);
        EXPECT_EQ(valuesOf(ys), ownPart(parts[0], denseAxpby(a.dense(), alpha, x, beta, y)))
            << alpha << ", " << beta;
      }
    });
  }
}

// A remote block is walked by the rows that have entries in it; what comes out is, to the sign of a
// zero, what adding its whole product gives. Rank 0 has no own block that could clear the sign of
// y.
TEST(ProductOverRanksOnce, ARemoteBlockAddsItsProductToTheBit) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> draw(-1.0, 1.0);
  const int n = 60;
  PartitionerT<long, int> part;
  part.create(n, worldSize());
  const auto owner = [&](int i) {
    int p = 0, local = 0;
    part.global2Local(i, p, local);
    return p;
  };
  const auto hasOwn = [&](int i) { return owner(i) > 0 || worldSize() == 1; };
  // Columns come from the own rank and the next one only, so that the order of the blocks is given.
  const HostCsr<double> a = HostCsr<double>::build(n, n, [&](int i, HostCsr<double>& out) {
    for (int j = 0; j < n; ++j) {
      const int p = owner(j);
      const bool remote = p == (owner(i) + 1) % worldSize() && p != owner(i) && i % 5 == 0;
      if ((p == owner(i) && hasOwn(i) && i % 3 > 0) || remote) out.push(j, draw(rng));
    }
  });
  std::vector<double> x(n), y(n);
  for (double& v : x) v = draw(rng);
  for (std::size_t i = 0; i < y.size(); ++i)
    y[i] = i % 4 == 0 ? -0.0 : i % 7 == 0 ? 0.0 : draw(rng);
  for (const double alpha : {1.0, 0.3, -0.3}) {
    for (const double beta : {0.0, 1.0, -1.7}) {
      std::vector<double> expected = y;
      for (int i = 0; i < n; ++i) {
        double own = 0, remote = 0;
        for (const auto& [j, v] : a.row(i)) {
          (owner(j) == owner(i) ? own : remote) += v * x[static_cast<std::size_t>(j)];
        }
        double& out = expected[static_cast<std::size_t>(i)];
        const double scaled = beta == 0 ? 0 : beta * out;
        out = !hasOwn(i) ? scaled : beta == 0 ? alpha * own : alpha * own + scaled;
        if (worldSize() > 1) out += alpha * remote;
      }
      for (const Device& device : rankDevices()) {
        auto A = distributed<double, long>(device, part, part, a);
        auto ys = ownColumn(device, part, y);
        A.aAxpby(alpha, ownColumn(device, part, x), beta, ys, nullptr);
        SCOPED_TRACE(testing::Message() << device.getString() << ", " << alpha << ", " << beta);
        expectSameBits(valuesOf(ys), ownPart(part, expected));
      }
    }
  }
}

}  // namespace
}  // namespace mivo::test
