// SPDX-License-Identifier: Apache-2.0
// Jacobi and Gauss-Seidel as smoothers, preconditioners and solvers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "mivo/precond/ParSmootherJacobiLp.hpp"
#include "mivo/precond/ParSmootherSOR.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

template <class T>
using Jacobi = ParSmootherJacobi_T<T, long, int>;

template <class T>
std::shared_ptr<Jacobi<T>> makeJacobi(const json& params = json(),
                                      const std::string& name = "PrecondJacobi") {
  return makePreconditioner<Jacobi<T>, T>(name, params);
}

template <class T>
class JacobiTest : public testing::Test {};
TYPED_TEST_SUITE(JacobiTest, ScalarTypes);

// x + relax f .* (b - A x), where f is the inverse diagonal, 1 for a zero, or in the form of order
// p the diagonal by the sum of the powers of its row, 1 for an empty one.
TYPED_TEST(JacobiTest, SweepsAsTheFormulaSays) {
  using T = TypeParam;
  using R = RealType<T>;
  const T relax(R(0.75));
  for (const Device& device : testDevices()) {
    for (const std::size_t n : {1, 2, 31, 33}) {
      for (const double order : {0., 1., 2., 3.}) {
        auto dense = smallValues<T>(n * n, 21);
        std::vector<T> factor(n);
        for (std::size_t i = 0; i < n; ++i) {
          dense[i * n + i] = i == 2 ? T(0) : T(R(order > 0 ? 3 : 4 + 4 * n));
          R sum = 0;
          for (std::size_t j = 0; j < n; ++j) {
            if (i == 3) dense[i * n + j] = T(0);
            sum += static_cast<R>(std::pow(static_cast<double>(abs(dense[i * n + j])), order));
          }
          const T d = dense[i * n + i];
          factor[i] = order > 0 ? d / T(sum == 0 ? R(1) : sum) : T(1) / (isZero(d) ? T(1) : d);
        }
        const auto b = smallValues<T>(n, 22), start = smallValues<T>(n, 23);
        auto expected = start, fromZero = std::vector<T>(n, T(0));
        for (auto* x : {&expected, &fromZero}) {
          for (int k = 0; k < 3; ++k) {
            const auto r = denseAxpby(dense, T(-1), *x, T(1), b);
            for (std::size_t i = 0; i < n; ++i) (*x)[i] += (factor[i] * relax) * r[i];
          }
        }
        json params = {{"relax", 0.75}, {"nsweeps", 3}};
        if (order > 0) params["order"] = order;
        const auto jacobi = makeJacobi<T>(params, order > 0 ? "PrecondJacobiLp" : "PrecondJacobi");
        jacobi->setup(parCsrOf(device, static_cast<int>(n), dense));
        auto x = parVectorOf(device, start);
        jacobi->smooth(parVectorOf(device, b), x);
        expectNear(valuesOf(x), expected);
        expectNear(preconditioned(*jacobi, b, start, device), fromZero);
        jacobi->initial_zero = false;
        expectNear(preconditioned(*jacobi, b, start, device), expected);
      }
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

TEST(ParSmootherJacobi, LeavesTheKeysOfTheFrameAlone) {
  const json identity = {{"preconditioner_type", "PrecondIdentity"}};
  for (const std::string name : {"PrecondJacobi", "PrecondJacobiLp"}) {
    const auto jacobi = makeJacobi<double>(
        {{"rtol", 1e-2}, {"max_its", 3}, {"verbose", 1}, {"preconditioner", identity}}, name);
    EXPECT_EQ(jacobi->rtol, 1e-8);
    EXPECT_EQ(jacobi->max_its, 2000);
    EXPECT_EQ(jacobi->verbose, 0);
    EXPECT_TRUE(jacobi->children.empty());
  }
}

TEST(ParSmootherJacobi, TurnsIntoTheIdentityAfterItsBudgetForGood) {
  const auto A = parCsrOf<double>(Device(), 2, {2, 1, 1, 4});
  const std::vector<double> b{4, 8}, zeros{0, 0};
  auto reference = makeJacobi<double>({{"nsweeps", 3}});
  reference->setup(A);
  for (const int budget : {1, 3}) {
    auto jacobi = makeJacobi<double>({{"max_iters", budget}, {"nsweeps", 3}});
    jacobi->setup(A);
    EXPECT_EQ(preconditioned(*jacobi, b, zeros), preconditioned(*reference, b, zeros))
        << "the budget is looked at before the sweeps only";
    EXPECT_EQ(jacobi->apply_count, 3);
    EXPECT_EQ(preconditioned(*jacobi, b, zeros), b) << budget;
    jacobi->setup(A);
    EXPECT_EQ(preconditioned(*jacobi, b, zeros), b) << "a new set-up gives no new budget";
    EXPECT_EQ(jacobi->apply_count, 3);
  }
}

TEST(ParSmootherJacobi, DoesNothingInNoSweeps) {
  auto jacobi = makeJacobi<double>({{"nsweeps", 0}});
  jacobi->setup(parCsrOf<double>(Device(), 2, {2, 1, 1, 4}));
  const std::vector<double> b{4, 8}, start{5, 6};
  EXPECT_EQ(preconditioned(*jacobi, b, start), (std::vector<double>{0, 0}));
  jacobi->initial_zero = false;
  EXPECT_EQ(preconditioned(*jacobi, b, start), start);
}

// Sweeps of Gauss-Seidel in both directions are tested on 1 to 4 ranks.
TEST(ParSmootherSOR, TakesAnOrderOfRows) {
  for (const Device& device : testDevices()) {
    ParSmootherSOR_T<double, long, int> sor;
    sor.setup(parCsrOf<double>(device, 3, {4, 1, 2, 1, 2, 1, 2, 1, 8}));
    DeviceArray<int> rowOrder(device, std::vector<int>{1, 2, 0});
    auto x = parVectorOf<double>(device, {0, 0, 0});
    sor.sor_step(parVectorOf<double>(device, {1, 4, 6}), x, 1.0, true, rowOrder.data());
    // 4 / 2, then (6 - 2) / 8, then (1 - 2 - 1) / 4
    EXPECT_EQ(valuesOf(x), (std::vector<double>{-0.5, 2, 0.5}));
    sor.setup(parCsrOf<double>(device, 2, {0, 1, 1, 2}));
    EXPECT_EQ(preconditioned<double>(sor, {4, 8}, {0, 0}, device)[0],
              std::numeric_limits<double>::infinity());
  }
}

// The residual before a sweep decides, a ratio equal to the tolerance is not enough, and without
// convergence the count is one too large.
TEST(MatrixSmoothers, SolveUntilTheResidualBeforeASweepIsSmall) {
  struct Row {
    std::string name;
    std::vector<double> matrix, start;
    double rtol;
    int max_its, iter;
    double relres;
    std::vector<double> x;
  };
  const std::vector<double> diagonal{2, 0, 0, 4}, growing{1, 2, 2, 1}, definite{2, 1, 1, 2};
  const std::vector<Row> rows = {
      // exact after one sweep, which the residual of the second one shows
      {"Jacobi", diagonal, {0, 0}, 1e-8, 9, 2, 0, {1.5, 1}},
      {"Jacobi", diagonal, {0, 0}, 1, 9, 2, 0, {1.5, 1}},
      {"Jacobi", diagonal, {0, 0}, 1.0001, 9, 1, 1, {1.5, 1}},
      // a sweep doubles the length of the residual; that before the fifth one counts
      {"Jacobi", growing, {0, 0}, 1e-8, 5, 6, 16, {23, 54}},
      {"Jacobi", growing, {3, -3}, 1e-8, 0, 1, std::sqrt(37.0) / 5, {3, -3}},
      // x = (3/2, 5/4), then (7/8, 25/16); the first row is left over: 3 - 17/4, then 3 - 53/16
      {"SOR", definite, {0, 0}, 1e-8, 2, 3, 0.0625, {7 / 8., 25 / 16.}},
      {"SOR", definite, {0, 0}, 0.25, 9, 2, 0.0625, {7 / 8., 25 / 16.}},
      {"SOR", definite, {1, 1}, 1e-8, 0, 1, 1.0 / 5, {1, 1}}};
  for (const Row& row : rows) {
    const auto solver = makeSolverOf<double>("Solver" + row.name);
    auto A = parCsrOf<double>(Device(), 2, row.matrix);
    solver->setup(A);
    solver->rtol = row.rtol;
    solver->max_its = row.max_its;
    Outcome out = solved(*solver, A, {3, 4}, row.start);
    EXPECT_EQ(out.text, "");
    EXPECT_EQ(out.iter, row.iter) << row.name << row.rtol;
    EXPECT_DOUBLE_EQ(out.relres, row.relres) << row.name << row.rtol;
    EXPECT_EQ(out.x, row.x) << row.name << row.rtol;
    if (row.name == "Jacobi") continue;
    // Gauss-Seidel also prints the table of the frame, without a row for the start; its first
    // rate is against the end of the solve before.
    solver->verbose = 2;
    const std::string frame = "I 0/1 ParOperator:",
                      text = withoutTimes(solved(*solver, A, {3, 4}, row.start).text),
                      ends = "iter/max_its " + std::to_string(row.iter) + "/" +
                             std::to_string(row.max_its) + ", res_b ";
    EXPECT_THAT(text, testing::HasSubstr(ends));
    if (row.max_its != 2) continue;
    EXPECT_EQ(text, frame + "83] Begin solving equation: size 2 solver SOR device cpu:0\n" + frame +
                        "86]     iter           |r|      |r|/|r0|       |r|/|b|     conv_rate\n" +
                        frame +
                        "100]        1  1.250000e+00  2.500000e-01  2.500000e-01  4.000000e+00\n" +
                        frame +
                        "100]        2  3.125000e-01  6.250000e-02  6.250000e-02  2.500000e-01\n" +
                        frame + "113] Finish solving using SOR, " + ends +
                        "6.250000e-02, solve_time T, precond_setup T, precond T\n");
  }
}

TEST(MatrixSmoothers, RefuseOtherOperatorsButGoOn) {
  DenseOperator<double> other(Device(), 1, {1});
  for (const std::string name : {"PrecondJacobi", "PrecondJacobiLp", "PrecondSOR", "PrecondSSOR"}) {
    const auto op = makePreconditioner<ParPreconditionerT<double, long, int>, double>(name);
    op->setup(parCsrOf<double>(Device(), 1, {4}));
    EXPECT_THAT(printed([&] { op->setup(other); }),
                testing::EndsWith("] ParSOR setup should be a ParCSRMatrix!\n"));
    EXPECT_EQ(preconditioned<double>(*op, {8}, {0}), (std::vector<double>{2}))
        << "the earlier matrix is still there";
  }
}

TEST(MatrixSmoothers, LogTheResidualBehindEachSweepAndTimeTheirWork) {
  auto A = parCsrOf<double>(Device(), 1, {4});
  const auto b = parVectorOf<double>(Device(), {8});
  const auto lines = [](const std::string& first, const std::string& second) {
    return testing::MatchesRegex("I 0/1 [^ ]+\\] " + first + "\nI 0/1 [^ ]+\\] " + second + "\n");
  };
  for (const std::string name : {"Jacobi", "SSOR"}) {
    const auto op = makePreconditioner<ParOpBaseT<double, long, int>, double>(
        "Precond" + name, {{"relax", 0.5}, {"nsweeps", 2}});
    static_cast<ParPreconditionerT<double, long, int>&>(*op).setup(A);
    op->verbose = 1;
    auto x = parVectorOf<double>(Device(), {0});
    const std::string first = name == "SSOR" ? " 0 2" : " 0 4",
                      second = name == "SSOR" ? " 1 0.5" : " 1 2";
    EXPECT_THAT(printed([&] { op->smooth(b, x); }), lines("smooth" + first, "smooth" + second));
    EXPECT_THAT(printed([&] { op->precondition(b, x); }),
                lines("precondition" + first, "precondition" + second));
    EXPECT_EQ(op->setupTime.getCount(), 1u);
    EXPECT_EQ(op->precondTime.getCount(), 1u);
    op->max_its = 2;
    if (name == "SSOR") continue;
    EXPECT_THAT(solved(*op, A, {8}, {0}).text, lines("solve 1 1", "solve 2 0.5"));
  }
}

}  // namespace
}  // namespace mivo::test
