// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <vector>

#include "mivo/precond/ParSmootherSOR.hpp"
#include "mivo/precond/ParSmootherSSOR.hpp"
#include "mivo/utils/Factory.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/operators.hpp"

namespace mivo::test {
namespace {

template <class T>
using SOR = ParSmootherSOR_T<T, long, int>;

template <class T>
std::shared_ptr<SOR<T>> makeSOR(const std::string& name, const json& params = json()) {
  return makePreconditioner<SOR<T>, T>(name, params);
}

// Sweeps in both directions are tested on 1 to 4 ranks.
template <class T>
class SORTest : public testing::Test {};
TYPED_TEST_SUITE(SORTest, ScalarTypes);

TYPED_TEST(SORTest, TakesAnOrderOfRows) {
  using T = TypeParam;
  for (const Device& device : testDevices()) {
    auto sor = makeSOR<T>("PrecondSOR");
    sor->setup(parCsrOf<T>(device, 3, {T(4), T(1), T(2), T(1), T(2), T(1), T(2), T(1), T(8)}));
    DeviceArray<int> rowOrder(device, std::vector<int>{1, 2, 0});
    auto x = parVectorOf<T>(device, {T(0), T(0), T(0)});
    sor->sor_step(parVectorOf<T>(device, {T(1), T(4), T(6)}), x, 1.0, true, rowOrder.data());
    // 4 / 2, then (6 - 2) / 8, then (1 - 2 - 1) / 4
    expectNear(valuesOf(x), {T(RealType<T>(-0.5)), T(2), T(RealType<T>(0.5))});
  }
}

const std::vector<double> kMatrix{2, 1, 1, 2};

TEST(ParSmootherSOR, HasThePreconditionerOfTheFrameToo) {
  for (const std::string name : {"SOR", "SSOR"}) {
    const auto sor = makeSOR<double>("Precond" + name);
    EXPECT_EQ(sor->name, name);
    std::ostringstream tree;
    sor->describe(tree, 0);
    EXPECT_EQ(tree.str(), "ParPreconditionerT Precond" + name +
                              "\n  preconditioner ParPreconditionerT PrecondIdentity\n");
  }
}

TEST(ParSmootherSOR, LetsAZeroDiagonalShow) {
  SOR<double> sor;
  sor.setup(parCsrOf<double>(Device(), 2, {0, 1, 1, 2}));
  EXPECT_EQ(preconditioned<double>(sor, {4, 8}, {0, 0})[0],
            std::numeric_limits<double>::infinity());
}

TEST(ParSmootherSOR, SolvesWithTheTableOfTheFrame) {
  auto A = parCsrOf<double>(Device(), 2, kMatrix);
  auto sor = makeSOR<double>("PrecondSOR", {{"verbose", 2}, {"max_its", 2}});
  sor->setup(A);
  const Outcome out = solved(*sor, A, {3, 4}, {0, 0});
  // x = (3/2, 5/4), then (7/8, 25/16); the first row is left over: 3 - 17/4, then 3 - 53/16
  EXPECT_EQ(
      withoutTimes(out.text),
      "I 0/1 ParOperator:83] Begin solving equation: size 2 solver SOR device cpu:0\n"
      "I 0/1 ParOperator:86]     iter           |r|      |r|/|r0|       |r|/|b|     conv_rate\n"
      "I 0/1 ParOperator:100]        1  1.250000e+00  2.500000e-01  2.500000e-01  2.500000e-01\n"
      "I 0/1 ParOperator:100]        2  3.125000e-01  6.250000e-02  6.250000e-02  2.500000e-01\n"
      "I 0/1 ParOperator:113] Finish solving using SOR, iter/max_its 3/2, res_b 6.250000e-02, "
      "solve_time T, precond_setup T, precond T\n");
  EXPECT_EQ(out.iter, 3) << "one more than allowed without convergence";
  EXPECT_EQ(out.relres, 0.0625);
  EXPECT_EQ(out.x, (std::vector<double>{7.0 / 8, 25.0 / 16}));
  EXPECT_EQ(sor->commSize, 1);
}

TEST(ParSmootherSOR, StopsAtTheToleranceAndBracketsAnEmptySolve) {
  auto A = parCsrOf<double>(Device(), 2, kMatrix);
  auto sor = makeSOR<double>("PrecondSOR", {{"rtol", 0.25}});
  sor->setup(A);
  Outcome out = solved(*sor, A, {3, 4}, {0, 0});
  EXPECT_EQ(out.iter, 2) << "a ratio equal to rtol is not enough";
  EXPECT_EQ(out.relres, 0.0625);

  sor->max_its = 0;
  sor->verbose = 1;
  out = solved(*sor, A, {3, 4}, {1, 1});
  EXPECT_EQ(out.iter, 1);
  EXPECT_DOUBLE_EQ(out.relres, 1.0 / 5);
  EXPECT_EQ(out.x, (std::vector<double>{1, 1}));
  EXPECT_THAT(out.text, testing::HasSubstr("Begin solving equation"));
  EXPECT_THAT(out.text, testing::HasSubstr("iter/max_its 1/0, res_b 0.2,"));
}

TEST(ParSmootherSOR, LogsTheResidualBehindEachSweepAndTimesItsWork) {
  ParSmootherSSOR_T<double, long, int> sor;
  sor.setup(parCsrOf<double>(Device(), 1, {4}));
  sor.verbose = 1;
  sor.relax = 0.5;
  const auto b = parVectorOf<double>(Device(), {8});
  auto x = parVectorOf<double>(Device(), {0});
  EXPECT_THAT(printed([&] { sor.smooth(b, x); }),
              testing::MatchesRegex("I 0/1 [^ ]+\\] smooth 0 2\n"));
  EXPECT_THAT(printed([&] { sor.precondition(b, x); }),
              testing::MatchesRegex("I 0/1 [^ ]+\\] precondition 0 2\n"));
  EXPECT_EQ(sor.setupTime.getCount(), 1u);
  EXPECT_EQ(sor.precondTime.getCount(), 1u);
}

}  // namespace
}  // namespace mivo::test
