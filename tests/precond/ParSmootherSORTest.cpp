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
#include "tests/support/par_csr.hpp"

namespace mivo {
namespace {

using test::expectNear;
using test::parCsrOf;
using test::parVectorOf;
using test::printed;
using test::valuesOf;

template <class T>
using SOR = ParSmootherSOR_T<T, long, int>;

template <class T>
std::shared_ptr<SOR<T>> makeSOR(const std::string& name, const json& params = json()) {
  return std::dynamic_pointer_cast<SOR<T>>(
      ParPreconditionerT<T, long, int>::getFactory().createInstance(
          {{"preconditioner_type", name}, {name + "_params", params}}));
}

/// Rows in the given order: x_i = (1 - omega) x_i + omega (b_i - sum_{j != i} a_ij x_j) / a_ii
template <class T>
void relaxRows(const std::vector<T>& A, const std::vector<T>& b, RealType<T> omega,
               const std::vector<int>& order, std::vector<T>& x) {
  const std::size_t n = b.size();
  for (const int row : order) {
    const auto i = static_cast<std::size_t>(row);
    T sum = b[i];
    for (std::size_t j = 0; j < n; ++j) {
      if (j != i) sum -= A[i * n + j] * x[j];
    }
    x[i] = T(1 - omega) * x[i] + T(omega) * sum / A[i * n + i];
  }
}

std::vector<int> rows(int n, bool rising) {
  std::vector<int> out;
  for (int i = 0; i < n; ++i) out.push_back(rising ? i : n - 1 - i);
  return out;
}

template <class T>
class SORTest : public testing::Test {};
using Scalars = testing::Types<float, double, Complex<float>, Complex<double>>;
TYPED_TEST_SUITE(SORTest, Scalars);

TYPED_TEST(SORTest, SweepsInTheOrderOfItsDirection) {
  using T = TypeParam;
  using R = RealType<T>;
  for (const Device& device : test::testDevices()) {
    for (const int n : {1, 2, 31, 33}) {
      const auto size = static_cast<std::size_t>(n);
      auto dense = test::smallValues<T>(size * size, 31);
      for (std::size_t i = 0; i < size; ++i) dense[i * size + i] = T(R(10 * n));
      const auto A = parCsrOf(device, n, n, dense);
      const auto b = test::smallValues<T>(size, 32), start = test::smallValues<T>(size, 33);
      const auto rhs = parVectorOf(device, b);
      for (const std::string name : {"PrecondSOR", "PrecondSSOR"}) {
        for (const bool forward : {true, false}) {
          for (const double omega : {1.0, 1.25}) {
            auto expected = start, fromZero = std::vector<T>(size, T(0));
            for (auto* x : {&expected, &fromZero}) {
              for (int k = 0; k < 2; ++k) {
                relaxRows(dense, b, R(omega), rows(n, forward), *x);
                if (name == "PrecondSSOR") relaxRows(dense, b, R(omega), rows(n, !forward), *x);
              }
            }
            auto sor = makeSOR<T>(name, {{"relax", omega}, {"forward", forward}, {"nsweeps", 2}});
            sor->setup(A);
            auto x = parVectorOf(device, start);
            sor->smooth(rhs, x);
            expectNear(valuesOf(x), expected);
            x = parVectorOf(device, start);
            sor->precondition(rhs, x);
            expectNear(valuesOf(x), fromZero);
            sor->initial_zero = false;
            x = parVectorOf(device, start);
            sor->precondition(rhs, x);
            expectNear(valuesOf(x), expected);
          }
        }
      }
    }
  }
}

TYPED_TEST(SORTest, TakesAnOrderOfRows) {
  using T = TypeParam;
  const std::vector<T> dense{T(4), T(1), T(2), T(1), T(5), T(1), T(2), T(1), T(6)};
  const std::vector<T> b{T(1), T(2), T(3)};
  const std::vector<int> order{1, 2, 0};
  for (const Device& device : test::testDevices()) {
    auto sor = makeSOR<T>("PrecondSOR");
    sor->setup(parCsrOf(device, 3, 3, dense));
    test::DeviceArray<int> rowOrder(device, order);
    auto x = parVectorOf(device, std::vector<T>(3, T(0)));
    sor->sor_step(parVectorOf(device, b), x, 1.0, true, rowOrder.data());
    std::vector<T> expected(3, T(0));
    relaxRows(dense, b, RealType<T>(1), order, expected);
    expectNear(valuesOf(x), expected);
  }
}

const std::vector<double> kMatrix{2, 1, 1, 2};

TEST(ParSmootherSOR, ReadsTheKeysOfTheFrameToo) {
  const json params{{"relax", 1.5}, {"forward", false}, {"nsweeps", 4}, {"initial_zero", false},
                    {"rtol", 0.5},  {"max_its", 3},     {"verbose", 1}};
  for (const std::string name : {"SOR", "SSOR"}) {
    const auto sor = makeSOR<double>("Precond" + name, params);
    EXPECT_EQ(sor->relax, 1.5);
    EXPECT_FALSE(sor->forward);
    EXPECT_EQ(sor->nsweeps, 4);
    EXPECT_FALSE(sor->initial_zero);
    EXPECT_EQ(sor->rtol, 0.5);
    EXPECT_EQ(sor->max_its, 3);
    EXPECT_EQ(sor->verbose, 1);
    EXPECT_EQ(sor->name, name);
    std::ostringstream tree;
    sor->describe(tree, 0);
    EXPECT_EQ(tree.str(), "ParPreconditionerT Precond" + name +
                              "\n  preconditioner ParPreconditionerT PrecondIdentity\n");
  }
  const auto plain = makeSOR<double>("PrecondSOR");
  EXPECT_EQ(plain->relax, 1);
  EXPECT_TRUE(plain->forward && plain->initial_zero);
  EXPECT_EQ(plain->nsweeps, 1);
}

TEST(ParSmootherSOR, LetsAZeroDiagonalShow) {
  SOR<double> sor;
  sor.setup(parCsrOf<double>(Device(), 2, 2, {0, 1, 1, 2}));
  auto x = parVectorOf<double>(Device(), {0, 0});
  sor.precondition(parVectorOf<double>(Device(), {4, 8}), x);
  EXPECT_EQ(valuesOf(x)[0], std::numeric_limits<double>::infinity());
}

TEST(ParSmootherSOR, SolvesWithTheTableOfTheFrame) {
  auto A = parCsrOf<double>(Device(), 2, 2, kMatrix);
  const auto b = parVectorOf<double>(Device(), {3, 4});
  auto x = parVectorOf<double>(Device(), {0, 0});
  auto sor = makeSOR<double>("PrecondSOR", {{"verbose", 2}, {"max_its", 2}});
  sor->setup(A);
  int iter = 0;
  double relres = 0;
  const std::string text = test::withoutTimes(printed([&] { sor->solve(A, b, x, iter, relres); }));
  // x = (3/2, 5/4), then (7/8, 25/16); the first row is left over: 3 - 17/4, then 3 - 53/16
  EXPECT_EQ(
      text,
      "I 0/1 ParOperator:83] Begin solving equation: size 2 solver SOR device cpu:0\n"
      "I 0/1 ParOperator:86]     iter           |r|      |r|/|r0|       |r|/|b|     conv_rate\n"
      "I 0/1 ParOperator:100]        1  1.250000e+00  2.500000e-01  2.500000e-01  2.500000e-01\n"
      "I 0/1 ParOperator:100]        2  3.125000e-01  6.250000e-02  6.250000e-02  2.500000e-01\n"
      "I 0/1 ParOperator:113] Finish solving using SOR, iter/max_its 3/2, res_b 6.250000e-02, "
      "solve_time T, precond_setup T, precond T\n");
  EXPECT_EQ(iter, 3) << "one more than allowed without convergence";
  EXPECT_EQ(relres, 0.0625);
  EXPECT_EQ(valuesOf(x), (std::vector<double>{7.0 / 8, 25.0 / 16}));
  EXPECT_EQ(sor->commSize, 1);
}

TEST(ParSmootherSOR, StopsAtTheToleranceAndBracketsAnEmptySolve) {
  auto A = parCsrOf<double>(Device(), 2, 2, kMatrix);
  const auto b = parVectorOf<double>(Device(), {3, 4});
  int iter = 0;
  double relres = 0;
  auto sor = makeSOR<double>("PrecondSOR", {{"rtol", 0.25}});
  sor->setup(A);
  auto x = parVectorOf<double>(Device(), {0, 0});
  sor->solve(A, b, x, iter, relres);
  EXPECT_EQ(iter, 2) << "a ratio equal to rtol is not enough";
  EXPECT_EQ(relres, 0.0625);

  sor->max_its = 0;
  sor->verbose = 1;
  x.fill(1);
  const std::string text = printed([&] { sor->solve(A, b, x, iter, relres); });
  EXPECT_EQ(iter, 1);
  EXPECT_DOUBLE_EQ(relres, 1.0 / 5);
  EXPECT_EQ(valuesOf(x), (std::vector<double>{1, 1}));
  EXPECT_THAT(text, testing::HasSubstr("Begin solving equation"));
  EXPECT_THAT(text, testing::HasSubstr("iter/max_its 1/0, res_b 0.2,"));
}

TEST(ParSmootherSOR, RefusesOtherOperators) {
  test::DenseOperator<double> other(Device(), 1, {1});
  SOR<double> sor;
  EXPECT_THAT(printed([&] { sor.setup(other); }),
              testing::EndsWith("] ParSOR setup should be a ParCSRMatrix!\n"));
}

TEST(ParSmootherSOR, LogsTheResidualBehindEachSweepAndTimesItsWork) {
  ParSmootherSSOR_T<double, long, int> sor;
  sor.setup(parCsrOf<double>(Device(), 1, 1, {4}));
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
}  // namespace mivo
