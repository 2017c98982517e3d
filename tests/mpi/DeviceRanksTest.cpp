// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "mivo/solver/ParSolver.hpp"
#include "mivo/testcase/PoissonFDM.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "tests/support/ranks.hpp"

// Each rank keeps its part in the memory of its own device, as on a node with a GPU for each rank.
namespace mivo {
namespace {

using Solver = ParSolverT<double, long, int>;

Device ownDevice() { return test::rankDevices().back(); }

struct System {
  ParCSRMatrixT<double, long, int> A;
  ParMatrixT<double, long, int> x, b;

  explicit System(const Device& device) {
    PoissonFDM_T<double, long, int> problem;
    problem.create({{"dim", 3}, {"N", 7}});
    problem.setDeviceAndComm(device, kCommWorld);
    problem.generate(A, x, b);
  }
};

std::vector<double> localValues(const ParMatrixT<double, long, int>& x) {
  return test::valuesOf(x.getLocalMatrix());
}

class DeviceRanks : public testing::Test {
 protected:
  // The same on all ranks: each sees all devices.
  void SetUp() override {
    if (test::rankDevices().size() < 2) GTEST_SKIP() << "no CUDA device";
  }
};

TEST_F(DeviceRanks, ProductsGiveTheBitsOfTheHost) {
  System on_host{Device()}, on_device(ownDevice());
  EXPECT_EQ(on_device.A.getDevice(), ownDevice());
  EXPECT_EQ(localValues(on_device.b), localValues(on_host.b));
  ParMatrixT<double, long, int> y, z;
  on_host.A.matVec(on_host.b, y, nullptr);
  on_device.A.matVec(on_device.b, z, nullptr);
  EXPECT_EQ(z.getDevice(), ownDevice());
  EXPECT_EQ(localValues(z), localValues(y));
  on_host.A.aAxpby(0.3, on_host.x, -1.7, y, nullptr);
  on_device.A.aAxpby(0.3, on_device.x, -1.7, z, nullptr);
  EXPECT_EQ(localValues(z), localValues(y));
  using Vector = ParMatrixT<double, long, int>;
  const double dot = Vector::dot(on_host.x, y);
  EXPECT_NEAR(Vector::dot(on_device.x, z), dot, 1e-12 * std::abs(dot));
}

TEST_F(DeviceRanks, SolversTakeTheStepsOfTheHost) {
  for (const char* precond : {"PrecondJacobi", "PrecondSSOR"}) {
    std::vector<std::vector<double>> histories;
    for (const Device& device : {Device(), ownDevice()}) {
      System s(device);
      auto solver = Solver::getFactory().createInstance(
          {{"solver_type", "SolverPCG"},
           {"SolverPCG_params",
            {{"rtol", 1e-9}, {"preconditioner", {{"preconditioner_type", precond}}}}}});
      std::vector<double> history;
      solver->observer = [&](int, double r, double, double) { history.push_back(r); };
      s.x.fill(0.0);
      solver->preconditioner->setup(s.A);
      solver->setup(s.A);
      int iterations = 0;
      double relres = 1;
      solver->solve(s.A, s.b, s.x, iterations, relres);
      EXPECT_LE(relres, 1e-8);
      histories.push_back(history);
    }
    ASSERT_EQ(histories[0].size(), histories[1].size()) << precond;
    ASSERT_GT(histories[0].size(), 5u);
    for (std::size_t k = 0; k < histories[0].size(); ++k) {
      EXPECT_NEAR(histories[1][k], histories[0][k], 1e-8 * histories[0][0]) << precond << k;
    }
  }
}

}  // namespace
}  // namespace mivo
