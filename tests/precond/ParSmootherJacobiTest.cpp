// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "mivo/precond/ParSmootherJacobi.hpp"
#include "mivo/precond/ParSmootherJacobiLp.hpp"
#include "mivo/utils/Factory.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/operators.hpp"

namespace mivo::test {
namespace {

template <class T>
using Jacobi = ParSmootherJacobi_T<T, long, int>;
template <class T>
using JacobiLp = ParSmootherJacobiLp_T<T, long, int>;

template <class T>
std::shared_ptr<Jacobi<T>> makeJacobi(const json& params = json(),
                                      const std::string& name = "PrecondJacobi") {
  return makePreconditioner<Jacobi<T>, T>(name, params);
}

/// x + relax f .* (b - A x)
template <class T>
std::vector<T> sweepOf(const std::vector<T>& A, const std::vector<T>& factor, T relax,
                       const std::vector<T>& b, const std::vector<T>& x) {
  const std::vector<T> r = denseAxpby(A, T(-1), x, T(1), b);
  std::vector<T> out(x.size());
  for (std::size_t i = 0; i < x.size(); ++i) out[i] = (factor[i] * relax) * r[i] + x[i];
  return out;
}

template <class T>
class JacobiTest : public testing::Test {};
TYPED_TEST_SUITE(JacobiTest, ScalarTypes);

TYPED_TEST(JacobiTest, SweepsAsTheFormulaSays) {
  using T = TypeParam;
  using R = RealType<T>;
  const T relax(R(0.75));
  for (const Device& device : testDevices()) {
    for (const int n : {1, 2, 31, 33}) {
      const auto size = static_cast<std::size_t>(n);
      auto dense = smallValues<T>(size * size, 21);
      std::vector<T> inverse(size);
      for (std::size_t i = 0; i < size; ++i) {
        // a zero counts as 1
        dense[i * size + i] = i == 2 ? T(0) : T(R(4 + 4 * n));
        inverse[i] = i == 2 ? T(1) : T(1) / dense[i * size + i];
      }
      const auto b = smallValues<T>(size, 22), start = smallValues<T>(size, 23);
      auto expected = start, fromZero = std::vector<T>(size, T(0));
      for (int k = 0; k < 3; ++k) {
        expected = sweepOf(dense, inverse, relax, b, expected);
        fromZero = sweepOf(dense, inverse, relax, b, fromZero);
      }

      auto jacobi = makeJacobi<T>({{"relax", 0.75}, {"nsweeps", 3}});
      jacobi->setup(parCsrOf(device, n, dense));
      auto x = parVectorOf(device, start);
      jacobi->smooth(parVectorOf(device, b), x);
      expectNear(valuesOf(x), expected);
      expectNear(preconditioned(*jacobi, b, start, device), fromZero);
      jacobi->initial_zero = false;
      expectNear(preconditioned(*jacobi, b, start, device), expected);
    }
  }
}

// The first sweep from zero is done without a product. Its bits must be those of the long way,
// which "initial_zero" false takes with a start of zeros.
TYPED_TEST(JacobiTest, FromZeroHasTheBitsOfASweepFromZeros) {
  using T = TypeParam;
  using R = RealType<T>;
  const R inf = std::numeric_limits<R>::infinity();
  for (const Device& device : testDevices()) {
    for (const bool finiteMatrix : {true, false}) {
      std::vector<T> dense = smallValues<T>(36, 24);
      dense[8] = finiteMatrix ? T(5) : T(inf);
      const std::vector<T> b{T(1), T(-R(0)), T(R(0)), T(-2), T(inf), T(1)};
      const auto A = parCsrOf(device, 6, dense);
      auto fast = makeJacobi<T>({{"relax", -0.5}}), slow = makeJacobi<T>({{"relax", -0.5}});
      fast->setup(A);
      slow->setup(A);
      slow->initial_zero = false;
      const auto got = preconditioned(*fast, b, std::vector<T>(6, T(inf)), device);
      expectSameBits(got, preconditioned(*slow, b, std::vector<T>(6, T(0)), device));
      // infinity times zero in row 1 is NaN, although the start is zero
      EXPECT_EQ(std::isnan(realPart(got[1])), !finiteMatrix);
    }
  }
}

TYPED_TEST(JacobiTest, ScalesByPowersOfTheRowInTheLpForm) {
  using T = TypeParam;
  using R = RealType<T>;
  auto dense = smallValues<T>(25, 25);
  for (std::size_t j = 0; j < 5; ++j) dense[3 * 5 + j] = T(0);
  const auto b = smallValues<T>(5, 26);
  const std::vector<T> zeros(5, T(0));
  for (const Device& device : testDevices()) {
    for (const double order : {1.0, 2.0, 3.0}) {
      std::vector<T> factor(5);
      for (std::size_t i = 0; i < 5; ++i) {
        R sum = 0;
        for (std::size_t j = 0; j < 5; ++j) {
          sum += static_cast<R>(std::pow(static_cast<double>(abs(dense[5 * i + j])), order));
        }
        factor[i] = dense[6 * i] / T(sum == 0 ? R(1) : sum);
      }
      auto lp = makeJacobi<T>({{"order", order}, {"relax", 2.0}}, "PrecondJacobiLp");
      ASSERT_NE(std::dynamic_pointer_cast<JacobiLp<T>>(lp), nullptr);
      lp->setup(parCsrOf(device, 5, dense));
      expectNear(preconditioned(*lp, b, zeros, device), sweepOf(dense, factor, T(2), b, zeros));
    }
  }
}

TEST(ParSmootherJacobi, LeavesTheKeysOfTheFrameAlone) {
  for (const std::string name : {"PrecondJacobi", "PrecondJacobiLp"}) {
    const auto jacobi =
        makeJacobi<double>({{"rtol", 1e-2},
                            {"max_its", 3},
                            {"verbose", 1},
                            {"preconditioner", {{"preconditioner_type", "PrecondIdentity"}}}},
                           name);
    EXPECT_EQ(jacobi->rtol, 1e-8);
    EXPECT_EQ(jacobi->max_its, 2000);
    EXPECT_EQ(jacobi->verbose, 0);
    EXPECT_EQ(jacobi->preconditioner, nullptr);
    EXPECT_TRUE(jacobi->children.empty());
  }
}

TEST(ParSmootherJacobi, TurnsIntoTheIdentityAfterItsBudgetForGood) {
  const auto A = parCsrOf<double>(Device(), 2, {2, 1, 1, 4});
  const std::vector<double> b{4, 8}, zeros{0, 0};
  auto jacobi = makeJacobi<double>({{"max_iters", 1}, {"nsweeps", 3}});
  auto reference = makeJacobi<double>({{"nsweeps", 3}});
  jacobi->setup(A);
  reference->setup(A);
  EXPECT_EQ(preconditioned(*jacobi, b, zeros), preconditioned(*reference, b, zeros))
      << "the budget is looked at before the sweeps only";
  EXPECT_EQ(jacobi->apply_count, 3);
  EXPECT_EQ(preconditioned(*jacobi, b, zeros), b);
  jacobi->setup(A);
  EXPECT_EQ(preconditioned(*jacobi, b, zeros), b) << "a new set-up gives no new budget";
  EXPECT_EQ(jacobi->apply_count, 3);
}

TEST(ParSmootherJacobi, DoesNothingInNoSweeps) {
  auto jacobi = makeJacobi<double>({{"nsweeps", 0}});
  jacobi->setup(parCsrOf<double>(Device(), 2, {2, 1, 1, 4}));
  const std::vector<double> b{4, 8}, start{5, 6};
  auto x = parVectorOf(Device(), start);
  jacobi->smooth(parVectorOf(Device(), b), x);
  EXPECT_EQ(valuesOf(x), start);
  EXPECT_EQ(preconditioned(*jacobi, b, start), (std::vector<double>{0, 0}));
  jacobi->initial_zero = false;
  EXPECT_EQ(preconditioned(*jacobi, b, start), start);
}

TEST(ParSmootherJacobi, SolvesUntilTheResidualBeforeASweepIsSmall) {
  auto A = parCsrOf<double>(Device(), 2, {2, 0, 0, 4});
  Jacobi<double> jacobi;
  jacobi.setup(A);
  // exact after one sweep, which the residual of the second one shows
  Outcome out = solved(jacobi, A, {3, 4}, {0, 0});
  EXPECT_EQ(out.text, "");
  EXPECT_EQ(out.iter, 2);
  EXPECT_EQ(out.relres, 0);
  EXPECT_EQ(out.x, (std::vector<double>{1.5, 1}));
  jacobi.rtol = 1.0;
  EXPECT_EQ(solved(jacobi, A, {3, 4}, {0, 0}).iter, 2) << "a ratio equal to rtol is not enough";
  jacobi.rtol = 1.0001;
  out = solved(jacobi, A, {3, 4}, {0, 0});
  EXPECT_EQ(out.iter, 1);
  EXPECT_EQ(out.relres, 1);
  EXPECT_EQ(out.x, (std::vector<double>{1.5, 1})) << "the sweep has been made";
}

TEST(ParSmootherJacobi, CountsOneTooManyWithoutConvergence) {
  auto A = parCsrOf<double>(Device(), 2, {1, 2, 2, 1});
  Jacobi<double> jacobi;
  jacobi.setup(A);
  jacobi.max_its = 5;
  Outcome out = solved(jacobi, A, {3, 4}, {0, 0});
  EXPECT_EQ(out.iter, 6);
  // a sweep doubles the length of the residual; that before the fifth one counts
  EXPECT_DOUBLE_EQ(out.relres, 16);

  jacobi.max_its = 0;
  out = solved(jacobi, A, {3, 4}, {3, -3});
  EXPECT_EQ(out.iter, 1);
  EXPECT_DOUBLE_EQ(out.relres, std::sqrt(37.0) / 5);
  EXPECT_EQ(out.x, (std::vector<double>{3, -3}));
}

TEST(MatrixSmoothers, RefuseOtherOperatorsButGoesOn) {
  DenseOperator<double> other(Device(), 1, {1});
  for (const std::string name : {"PrecondJacobi", "PrecondJacobiLp", "PrecondSOR", "PrecondSSOR"}) {
    const auto op = ParPreconditionerT<double, long, int>::getFactory().createInstance(
        {{"preconditioner_type", name}});
    op->setup(parCsrOf<double>(Device(), 1, {4}));
    EXPECT_THAT(printed([&] { op->setup(other); }),
                testing::EndsWith("] ParSOR setup should be a ParCSRMatrix!\n"));
    EXPECT_EQ(preconditioned<double>(*op, {8}, {0}), (std::vector<double>{2}))
        << "the earlier matrix is still there";
  }
}

TEST(ParSmootherJacobi, LogsTheResidualBehindEachSweep) {
  auto A = parCsrOf<double>(Device(), 1, {4});
  const auto b = parVectorOf<double>(Device(), {8});
  Jacobi<double> jacobi;
  jacobi.setup(A);
  jacobi.verbose = 1;
  jacobi.relax = 0.5;
  jacobi.nsweeps = 2;
  auto x = parVectorOf<double>(Device(), {0});
  const auto lines = [](const std::string& first, const std::string& second) {
    return testing::MatchesRegex("I 0/1 [^ ]+\\] " + first + "\nI 0/1 [^ ]+\\] " + second + "\n");
  };
  EXPECT_THAT(printed([&] { jacobi.smooth(b, x); }), lines("smooth 0 4", "smooth 1 2"));
  EXPECT_EQ(jacobi.setupTime.getCount(), 1u);
  EXPECT_THAT(printed([&] { jacobi.precondition(b, x); }),
              lines("precondition 0 4", "precondition 1 2"));
  jacobi.max_its = 2;
  EXPECT_THAT(solved(jacobi, A, {8}, {0}).text, lines("solve 1 1", "solve 2 0.5"));
}

}  // namespace
}  // namespace mivo::test
