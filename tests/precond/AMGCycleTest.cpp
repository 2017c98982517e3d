// SPDX-License-Identifier: Apache-2.0
// What a cycle computes and prints, and multigrid in its roles.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "mivo/precond/ParPreconditionerAMG.hpp"
#include "mivo/precond/ParSmootherJacobiLp.hpp"
#include "mivo/precond/ParSmootherList.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

using Solver = ParSolverT<double, long, int>;
using Vector = ParVector<double>;

json uncoupled(int level) {
  return {{"level_transfer_type", "TestPairs"}, {"TestPairs_params", {{"uncoupled_from", level}}}};
}

/// x = x + relax D^-1 (b - A x) on host arrays.
template <class T>
void jacobi(const std::vector<T>& A, double relax, const std::vector<T>& b, std::vector<T>& x) {
  const auto r = denseAxpby(A, T(-1), x, T(1), b);
  for (std::size_t i = 0; i < x.size(); ++i) {
    x[i] += T(static_cast<RealType<T>>(relax)) * r[i] / A[i * x.size() + i];
  }
}

/// The cycle of `pairsParams` from level l downward on host arrays.
template <class T>
std::vector<T> referenceCycle(const Amg<T>& amg, std::size_t l, const std::vector<T>& b,
                              std::vector<T> x) {
  const auto& level = amg.levels[l];
  const auto A = plainOf(level.A.getLocalMatrix(-1)).dense();
  jacobi(A, 0.5, b, x);
  if (l + 1 < amg.levels.size()) {
    const auto R = plainOf(level.R.getLocalMatrix(-1)).dense();
    const auto P = plainOf(level.P.getLocalMatrix(-1)).dense();
    const std::vector<T> zero(static_cast<std::size_t>(level.P.getCols()), T(0));
    const auto restricted = denseAxpby(R, T(1), denseAxpby(A, T(-1), x, T(1), b), T(0), zero);
    x = denseAxpby(P, T(1), referenceCycle(amg, l + 1, restricted, zero), T(1), x);
  }
  jacobi(A, 0.75, b, x);
  return x;
}

template <class T>
class AMGCycleOf : public testing::Test {};
TYPED_TEST_SUITE(AMGCycleOf, ScalarTypes);

TYPED_TEST(AMGCycleOf, SmoothsRestrictsCorrectsAndSmooths) {
  using T = TypeParam;
  const std::size_t n = 45;
  const auto b = smallValues<T>(n, 1), start = smallValues<T>(n, 2);
  for (const Device& device : testDevices()) {
    const json params = pairsParams(
        {{"min_coarse_size", 4},
         {"level_transfer",
          {{"level_transfer_type", "TestPairs"}, {"TestPairs_params", {{"factor", 0.5}}}}}});
    const auto amg = makeAmg<T>(params);
    amg->setup(parCsrOf(device, static_cast<int>(n), positiveDefinite<T>(n, 3)));
    const auto rhs = parVectorOf(device, b);
    auto x = parVectorOf(device, start);
    EXPECT_EQ(amg->step, 0);
    amg->amg_step(rhs, x);
    expectNear(valuesOf(x), referenceCycle(*amg, 0, b, start));

    // as a preconditioner from zero, whatever z holds, and also into an object without a size
    const auto fromZero = referenceCycle(*amg, 0, b, std::vector<T>(n, T(0)));
    auto z = parVectorOf(device, start);
    amg->precondition(rhs, z);
    expectNear(valuesOf(z), fromZero);
    ParVector<T> fresh, stepped;
    amg->precondition(rhs, fresh);
    amg->amg_step(rhs, stepped);
    expectSameBits(valuesOf(fresh), valuesOf(z));
    expectSameBits(valuesOf(stepped), valuesOf(z));
    EXPECT_EQ(fresh.getDevice().type, device.type);
    EXPECT_EQ(fresh.getComm(), kCommSelf);
    EXPECT_EQ(amg->step, 4);
    EXPECT_EQ(amg->precondTime.getCount(), 2u);

    // a part of a cycle, on the given x
    const std::vector<T> below = smallValues<T>(23, 4), belowStart = smallValues<T>(23, 5);
    auto y = parVectorOf(device, belowStart);
    amg->vcycle_recursive(1, parVectorOf(device, below), y);
    expectNear(valuesOf(y), referenceCycle(*amg, 1, below, belowStart));
    // Watching a cycle leaves its bits alone.
    amg->verbose = 3;
    auto watched = parVectorOf(device, start);
    amg->precondition(rhs, watched);
    expectSameBits(valuesOf(watched), valuesOf(z));
  }
}

/// A smoother of a program, which smooths in its own way.
template <class Base>
class Counted : public Base {
 public:
  static inline int calls = 0;
  void smooth(const ParVector<double>& b, ParVector<double>& x) override {
    ++calls;
    Base::smooth(b, x);
  }
};

// On each level, the coarsest one included, whatever the library's class does from zero.
TEST(AMGCycleWith, SmoothersOfAProgramCallsWhatTheyOverride) {
  using Smoother = ParSmootherT<double, long, int>;
  using Lp = Counted<ParSmootherJacobiLp_T<double, long, int>>;
  using List = Counted<ParSmootherList_T<double, long, int>>;
  const FactoryRegisterer<Smoother, Lp> lp("ParSmootherT", "TestLp");
  const FactoryRegisterer<Smoother, List> list("ParSmootherT", "TestList");
  const auto amg = makeAmg<double>(pairsParams(
      {{"pre_smoother", smootherOf("TestLp")},
       {"post_smoother", smootherOf("TestList", json::array({smootherOf("SmootherJacobi")}))}}));
  amg->setup(parSparseOf(Device(), laplacian<double>(32, 1)));
  ParVector<double> x, b(32, Device());
  b.fill(1);
  amg->precondition(b, x);
  ASSERT_EQ(amg->levels.size(), 3u);
  EXPECT_EQ(Lp::calls, 3);
  EXPECT_EQ(List::calls, 3);
  amg->levels[0].post_smoother->smoothFromZero(b, x);
  EXPECT_EQ(List::calls, 4);
}

/// A hierarchy on 5-point systems of 20 by 20 points, and a run of it as a solver.
class AMGCycle : public testing::Test {
 protected:
  static constexpr int n = 400;

  std::shared_ptr<Amg<double>> hierarchy(const json& params = json::object()) {
    const auto amg = makeAmg<double>(pairsParams(params));
    amg->setup(A);
    return amg;
  }

  /// Solves from zero.
  int solve(Solver& solver) {
    history.clear();
    solver.observer = [&](int iter, double r, double relR0, double relB) {
      history.push_back({iter, r, relR0, relB});
    };
    if (solver.preconditioner != nullptr) solver.preconditioner->setup(A);
    solver.setup(A);
    return resolve(solver);
  }
  int resolve(Solver& solver) {
    int iter = -1;
    x.fill(0);
    solver.solve(A, b, x, iter, relres);
    EXPECT_EQ(relres, relres) << "a number";
    return iter;
  }
  double trueResidual() { return Vector::residual(A, x, b) / Vector::normL2(b); }

  ParSparse<double> A = parSparseOf(Device(), laplacian<double>(20, 20));
  Vector b = columnOf(Device(), A.getRowPartitioner(), smallValues<double>(n, 7));
  Vector x = columnOf(Device(), A.getRowPartitioner(), std::vector<double>(n, 0));
  std::vector<Status<double>> history;
  double relres = -1;
};

TEST_F(AMGCycle, ResidualFallsInEveryCycleOfASolve) {
  const auto amg = makeAmg<double>(
      pairsParams({{"max_its", 3}, {"rtol", 0.5}, {"preconditioner", precondOf("PrecondJacobi")}}));
  const int iter = solve(*amg);
  const double normb = Vector::normL2(b);
  ASSERT_EQ(history.size(), static_cast<std::size_t>(iter) + 1)
      << "the cycles count from 0, and \"max_its\" and \"rtol\" do not end them";
  for (std::size_t k = 0; k < history.size(); ++k) {
    const double r = history[k].r;
    EXPECT_LT(r, k > 0 ? history[k - 1].r : normb);
    EXPECT_EQ(history[k], (Status<double>{static_cast<int>(k), r, r / normb, r / normb}));
    EXPECT_EQ(r < 1e-8 * normb, k + 1 == history.size());
  }
  EXPECT_EQ(amg->step, iter + 1);
  EXPECT_EQ(relres, history.back().relB);
  EXPECT_EQ(relres, trueResidual());
  EXPECT_EQ(amg->preconditioner->precondTime.getCount(), 0u) << "is not applied";
}

TEST_F(AMGCycle, SolveCountsFromZeroAndUpToItsLimit) {
  const auto exact =
      makeAmg<double>({{"max_levels", 1}, {"coarse_solver", solverOf("SolverGaussElim")}});
  EXPECT_EQ(solve(*exact), 0) << "one cycle was enough";
  EXPECT_EQ(history.size(), 1u);
  const auto amg = makeAmg<double>(pairsParams());
  amg->cycle_limit = 4;
  EXPECT_EQ(solve(*amg), 4);
  EXPECT_EQ(history.size(), 4u);
  // The matrix of a solve is that of the set-up.
  const auto x4 = valuesOf(x);
  A = parSparseOf(Device(), laplacian<double>(400, 1));
  resolve(*amg);
  EXPECT_EQ(valuesOf(x), x4);
  // 0 is not below 0, so that b = 0 takes all cycles, as do numbers that are none.
  b.fill(0);
  history.clear();
  x.fill(0);
  int iter = -1;
  amg->solve(A, b, x, iter, relres);
  EXPECT_EQ(iter, 4);
  EXPECT_EQ(history.back().r, 0);
  EXPECT_NE(relres, relres);
}

TEST_F(AMGCycle, IsSymmetricWhenThePostSmootherIsTheAdjointOfThePreSmoother) {
  const auto u = columnOf(Device(), A.getRowPartitioner(), smallValues<double>(n, 8));
  const auto asymmetry = [&](const json& down, const json& up) {
    const auto amg = hierarchy({{"pre_smoother", down}, {"post_smoother", up}});
    Vector Mu, Mb;
    amg->precondition(u, Mu);
    amg->precondition(b, Mb);
    return std::abs(Vector::dot(Mu, b) / Vector::dot(u, Mb) - 1);
  };
  const json forward = smootherOf("SmootherSOR", {{"relax", 1.2}}),
             backward = smootherOf("SmootherSOR", {{"relax", 1.2}, {"forward", false}}),
             jacobi = smootherOf("SmootherJacobi", {{"relax", 0.7}, {"nsweeps", 2}}),
             ssor = smootherOf("SmootherSSOR");
  EXPECT_LT(asymmetry(forward, backward), 1e-13);
  EXPECT_LT(asymmetry(ssor, ssor), 1e-13);
  EXPECT_LT(asymmetry(jacobi, jacobi), 1e-13);
  EXPECT_GT(asymmetry(forward, forward), 1e-6);
}

TEST_F(AMGCycle, TakesEverySmootherAndEveryCoarseSolver) {
  const auto sor = [](bool forward) { return smootherOf("SmootherSOR", {{"forward", forward}}); };
  const auto jacobi = smootherOf("SmootherJacobi", {{"relax", 0.7}});
  const std::vector<std::pair<json, json>> smoothers = {
      {jacobi, jacobi},
      {smootherOf("SmootherJacobiLp"), smootherOf("SmootherJacobiLp")},
      {sor(true), sor(false)},
      {smootherOf("SmootherSSOR"), smootherOf("SmootherSSOR")},
      {smootherOf("SmootherList", json::array({sor(true), jacobi})),
       smootherOf("SmootherList", json::array({jacobi, sor(false)}))}};
  for (const auto& [down, up] : smoothers) {
    // without coarse unknowns the cycle is smoothing alone
    const auto amg = hierarchy(
        {{"pre_smoother", down}, {"post_smoother", up}, {"level_transfer", uncoupled(0)}});
    EXPECT_EQ(amg->levels.size(), 2u);
    Vector z;
    amg->precondition(b, z);
    x.fill(0);
    amg->levels[0].pre_smoother->smooth(b, x);
    amg->levels[0].post_smoother->smooth(b, x);
    expectSameBits(valuesOf(z), valuesOf(x));
  }

  // nor is there anything to do on a second level of such a kind
  EXPECT_EQ(hierarchy({{"level_transfer", uncoupled(1)}})->levels.size(), 3u);

  const auto withCoarse = [&](const json& coarse, const json& transfer) {
    json params = pairsParams({{"max_levels", 2}, {"coarse_solver", coarse}});
    if (!transfer.is_null()) params["level_transfer"] = transfer;
    const auto solver = Solver::getFactory().createInstance(
        solverOf("SolverFLGMRES_R", {{"preconditioner", precondOf("PrecondAMG", params)}}));
    const int iter = solve(*solver);
    EXPECT_LT(trueResidual(), 1e-7) << coarse;
    return iter;
  };
  const int exact = withCoarse(solverOf("SolverGaussElim"), json());
  const json ssor = {{"preconditioner", precondOf("PrecondSSOR")}};
  const json others = json::array(
      {solverOf("SolverPCG", ssor), solverOf("SolverBiCGSTAB", ssor),
       solverOf("SolverFLGMRES_R", ssor), solverOf("SolverMINRES"), solverOf("SolverSYMMLQ", ssor),
       solverOf("SolverJacobi"), solverOf("SolverJacobiLp"), solverOf("SolverSOR"),
       solverOf("SolverSSOR"), solverOf("SolverList", json::array({solverOf("SolverPCG")})),
       solverOf("SolverAMG", pairsParams())});
  for (const json& coarse : others) {
    EXPECT_NEAR(withCoarse(coarse, json()), exact, 1) << coarse;
    withCoarse(coarse, uncoupled(0));
  }
  EXPECT_GT(withCoarse(solverOf("SolverPreOnly"), json()), exact);

  // an application leaves no start to the coarse solver of the next one
  const json oneStep = {{"coarse_solver", solverOf("SolverJacobi", {{"max_its", 1}})}};
  Vector z, z_fresh;
  const auto used = hierarchy(oneStep);
  used->precondition(x, z);
  used->precondition(b, z);
  hierarchy(oneStep)->precondition(b, z_fresh);
  expectSameBits(valuesOf(z), valuesOf(z_fresh));
}

TEST_F(AMGCycle, WithoutLevelsLeavesTheGivenVector) {
  const auto amg = hierarchy({{"max_levels", 0}});
  b.deepCopy(x);
  amg->amg_step(b, x);
  expectSameBits(valuesOf(x), valuesOf(b));
  Vector z;
  for (Vector* result : {&x, &z}) {
    amg->precondition(b, *result);
    EXPECT_EQ(valuesOf(*result), std::vector<double>(n, 0));
  }
  amg->cycle_limit = 2;
  EXPECT_EQ(resolve(*amg), 2);
  EXPECT_EQ(relres, 1);

  ParSparse<double> nothing;
  nothing.create(0, 0, Device());
  const auto empty = makeAmg<double>(pairsParams());
  empty->setup(nothing);
  EXPECT_EQ(empty->levels.size(), 1u);
  Vector no_b, no_x;
  no_b.create(nothing.getRowPartitioner(), Device());
  empty->precondition(no_b, no_x);
}

/// Cycles on 2, -1; -1, 2 with b = (4, 0) from zero, whose numbers are worked out by hand.
std::string textOfSmallCycle(int verbose, int cycles = 1, const json& keys = json::object()) {
  const auto relaxed = [](double relax) {
    return smootherOf("SmootherJacobi", {{"relax", relax}});
  };
  json params = pairsParams(
      {{"min_coarse_size", 1}, {"pre_smoother", relaxed(1)}, {"post_smoother", relaxed(0.5)}});
  params.update(keys);
  const auto amg = makeAmg<double>(params);
  auto A = parCsrOf<double>(Device(), 2, {2, -1, -1, 2});
  amg->setup(A);
  if (keys.empty()) amg->verbose = verbose;
  amg->cycle_limit = cycles;
  return std::regex_replace(solved(*amg, A, {4, 0}, {0, 0}).text,
                            std::regex("I 0/1 ParPreconditionerAMGCycle\\.cpp:[0-9]+\\] "), "| ");
}

TEST(AMGTrace, TellsEachStepOfACycle) {
  EXPECT_EQ(textOfSmallCycle(2), "");
  const std::string factors =
      "| AccuError level  presmooth correction postsmooth\n"
      "| AccuError 0 0.5 0.707107 0.25\n"
      "| AccuError 1 1 1 1\n";
  EXPECT_EQ(textOfSmallCycle(3), factors);
  EXPECT_EQ(textOfSmallCycle(4),
            "| STEP: 0 BEGIN level 0/2 residual 4\n"
            "| STEP: 0 level 0 presmooth: residual from 4 to 2\n"
            "| STEP: 0 level 0 restrict: norm from 2 to 2\n"
            "| STEP: 0     BEGIN level 1/2 residual 2\n"
            "| STEP: 0     level 1 coarse: residual from 2 to 0\n"
            "| STEP: 0     END level 1/2 residual 0\n\n"
            "| STEP: 0 level 0 prolongate: norm from 1 to 1.41421\n"
            "| STEP: 0 level 0 correct: residual from 2 to 1.41421\n"
            "| STEP: 0 level 0 postsmooth: residual from 1.41421 to 0.353553\n\n"
            "| STEP: 0 END level 0/2 residual 0.353553\n\n" +
                factors);
  EXPECT_THAT(textOfSmallCycle(4, 2), testing::HasSubstr("STEP: 1     BEGIN level 1/2"));
  // The key also turns on the table of the solver, in which the count begins with 0.
  const std::string text = textOfSmallCycle(0, 1, {{"verbose", 1}});
  EXPECT_THAT(text, testing::StartsWith("I 0/1 ParOperator:83] Begin solving equation: size 2 "
                                        "solver AMG device cpu:0\n"));
  EXPECT_THAT(text, testing::HasSubstr("Finish solving using AMG, iter/max_its 1/1, res_b"));
}

TEST_F(AMGCycle, MeasuresItsLevelsOnlyWhenAsked) {
  const auto amg = hierarchy({{"max_levels", 3}});
  amg->amg_step(b, x);
  EXPECT_EQ(amg->levels[0].cycle_time.getCount(), 0u);
  amg->profile = true;
  const auto start = getTickCount();
  amg->amg_step(b, x);
  const auto all = getTickCount() - start;
  std::uint64_t sum = 0;
  for (const auto& level : amg->levels) {
    EXPECT_GT(level.cycle_time.getTicks(), 0u);
    sum += level.cycle_time.getTicks();
  }
  EXPECT_LE(sum, all) << "each level without those below it";
}

}  // namespace
}  // namespace mivo::test
