// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "tests/support/poisson.hpp"
#include "tests/support/ranks.hpp"

// Each rank keeps its part in the memory of its own device, as on a node with a GPU for each rank.
namespace mivo::test {
namespace {

const json kProblem = {{"dim", 3}, {"N", 7}};

Device ownDevice() { return rankDevices().back(); }

class DeviceRanks : public testing::Test {
 protected:
  // The same on all ranks: each sees all devices.
  void SetUp() override {
    if (rankDevices().size() < 2) GTEST_SKIP() << "no CUDA device";
  }
};

TEST_F(DeviceRanks, ProductsGiveTheBitsOfTheHost) {
  Poisson<double> on_host(kProblem), on_device(kProblem, ownDevice());
  EXPECT_EQ(on_device.A.getDevice(), ownDevice());
  EXPECT_EQ(valuesOf(on_device.b), valuesOf(on_host.b));
  ParMatrixT<double, long, int> y, z;
  on_host.A.matVec(on_host.b, y, nullptr);
  on_device.A.matVec(on_device.b, z, nullptr);
  EXPECT_EQ(z.getDevice(), ownDevice());
  EXPECT_EQ(valuesOf(z), valuesOf(y));
  on_host.A.aAxpby(0.3, on_host.x, -1.7, y, nullptr);
  on_device.A.aAxpby(0.3, on_device.x, -1.7, z, nullptr);
  EXPECT_EQ(valuesOf(z), valuesOf(y));
  using Vector = ParMatrixT<double, long, int>;
  const double dot = Vector::dot(on_host.x, y);
  EXPECT_NEAR(Vector::dot(on_device.x, z), dot, 1e-12 * std::abs(dot));
}

TEST_F(DeviceRanks, SolversTakeTheStepsOfTheHost) {
  for (const char* precond : {"PrecondJacobi", "PrecondSSOR"}) {
    const auto on_host = PoissonSolve<double>(Poisson<double>(kProblem), precond).history;
    const PoissonSolve<double> on_device(Poisson<double>(kProblem, ownDevice()), precond);
    EXPECT_LE(on_device.relres, 1e-8);
    ASSERT_EQ(on_device.history.size(), on_host.size()) << precond;
    ASSERT_GT(on_host.size(), 5u);
    for (std::size_t k = 0; k < on_host.size(); ++k) {
      EXPECT_NEAR(on_device.history[k], on_host[k], 1e-8 * on_host[0]) << precond << k;
    }
  }
}

}  // namespace
}  // namespace mivo::test
