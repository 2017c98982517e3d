// SPDX-License-Identifier: Apache-2.0
// What all Krylov solvers of one stopping rule do alike.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "mivo/solver/ParSolver.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

class KrylovSolvers : public testing::TestWithParam<const char*> {
 protected:
  static auto make(const json& params = json()) { return makeSolverOf<double>(GetParam(), params); }
  const std::vector<double> matrix{2, 0, 0, 8};
};

INSTANTIATE_TEST_SUITE_P(All, KrylovSolvers,
                         testing::Values("SolverPCG", "SolverBiCGSTAB", "SolverFLGMRES_R"),
                         [](const auto& each) { return std::string(each.param); });

TEST_P(KrylovSolvers, AnswerAZeroRightHandSideInSilence) {
  const auto solver = make({{"verbose", 2}, {"verb", 1}});
  const auto out = runSolver<double>(*solver, matrix, {0, 0}, {5, 6});
  EXPECT_EQ(out.x, (std::vector<double>{0, 0}));
  EXPECT_EQ(out.iter, -7);
  EXPECT_EQ(out.relres, -7);
  EXPECT_EQ(out.text, "");
  EXPECT_TRUE(out.history.empty());
  EXPECT_EQ(solver->solveTime.getCount(), 0u);
  EXPECT_EQ(solver->lastResB, 1.0);
}

TEST_P(KrylovSolvers, TakeTheLargestTolerance) {
  // |b| = 5, and from this start |r0| = |(1, 4)|
  const auto steps = [&](const json& params) {
    return runSolver<double>(*make(params), matrix, {3, 4}, {1, 0}).iter;
  };
  EXPECT_EQ(steps({{"atol", 4.2}}), 0);
  EXPECT_GT(steps({{"atol", 4.1}}), 0);
  EXPECT_EQ(steps({{"btol", 0.83}}), 0);
  EXPECT_GT(steps({{"btol", 0.82}}), 0);
  EXPECT_EQ(steps({{"rtol", 1.0}}), 0);
  EXPECT_EQ(steps({{"btol", 1e-14}}), steps(json())) << "the default rtol is the larger one";
}

TEST_P(KrylovSolvers, ReportTheStartWithoutIterations) {
  const auto out =
      runSolver<double>(*make({{"max_its", 0}, {"verbose", 1}}), matrix, {3, 4}, {1, 0});
  EXPECT_EQ(out.iter, 0);
  EXPECT_DOUBLE_EQ(out.relres, std::sqrt(17.0) / 5);
  EXPECT_EQ(out.x, (std::vector<double>{1, 0}));
  EXPECT_THAT(out.text, testing::HasSubstr("Begin solving"));
  EXPECT_THAT(out.text, testing::HasSubstr("iter/max_its 0/0, res_b 0.824621,"));
}

TEST_P(KrylovSolvers, EndAtOnceWithAnExactStartOrNaN) {
  const auto exact = runSolver<double>(*make({{"verb", 1}}), matrix, {2, 8}, {1, 1});
  EXPECT_EQ(exact.iter, 0);
  EXPECT_EQ(exact.relres, 0);
  EXPECT_EQ(exact.x, (std::vector<double>{1, 1}));
  EXPECT_THAT(exact.text, testing::ContainsRegex("    0   0.000000e.00 +-?nan +0.000000e.00\n"));

  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto lost = runSolver<double>(*make(), matrix, {1, nan}, {0, 0});
  EXPECT_EQ(lost.iter, 0);
  EXPECT_TRUE(std::isnan(lost.relres));
  // NaN that comes up later ends the iteration as well
  const auto later = runSolver<double>(*make(), {1, 0, 0, nan}, {1, 1}, {0, 0});
  EXPECT_EQ(later.iter, 1);
  EXPECT_TRUE(std::isnan(later.relres));
}

TEST_P(KrylovSolvers, SolveASecondTimeAsTheFirst) {
  const auto solver = make();
  const auto A = positiveDefinite<double>(9, 3);
  const auto b = smallValues<double>(9, 4);
  const auto first = runSolver<double>(*solver, A, b, smallValues<double>(9, 5));
  const auto second = runSolver<double>(*solver, A, b, smallValues<double>(9, 5));
  EXPECT_EQ(second.history, first.history);
  EXPECT_EQ(second.x, first.x);
  EXPECT_EQ(solver->solveTime.getCount(), 2u);
}

/// Tables of one iteration for b = (3, 4): that of the frame, and that of the solver if it has a
/// title.
void expectTables(const std::string& name, json params, const std::vector<double>& matrix,
                  const std::string& r, const std::string& relative,
                  const std::string& title = "") {
  const bool cycles = name == "FLGMRES_R";
  params["verbose"] = 2;
  params.update(cycles ? json{{"rtol", 0.75}} : json{{"max_its", 1}});
  const std::string frame = "I 0/1 ParOperator:", one = "  1.000000e+00", part = "  " + relative;
  std::string rows = frame + "100]        1  " + r + part + part + part + "\n";
  if (!title.empty()) {
    const std::string own = "    1   " + r + " " + part + " " + part + "\n";
    rows = title + "\nTolerances: atol=0.001, rtol=" + (cycles ? "0.75" : "1e-08") +
           ", btol=0.5\n"
           "Iters   Resid. norm    Resid./resid0  Resid./rhs\n"
           "-----   ------------   -------------  ------------\n"
           "    0   5.000000e+00   1.000000e+00   1.000000e+00\n" +
           (name == "BiCGSTAB" ? own + rows : rows + own);
  }
  if (cycles) rows += "GMRES iteration 1 ||b-Ax||_2 = " + r + "  rel.res " + relative + "\n";
  EXPECT_EQ(withoutTimes(solveDense<double>("Solver" + name, params, matrix, {3, 4}).text),
            frame + "83] Begin solving equation: size 2 solver " + name + " device cpu:0\n" +
                frame + "86]     iter           |r|      |r|/|r0|       |r|/|b|     conv_rate\n" +
                frame + "100]        0  5.000000e+00" + one + one + one + "\n" + rows + frame +
                "113] Finish solving using " + name + ", iter/max_its 1/" +
                (cycles ? "2000" : "1") + ", res_b " + relative +
                ", solve_time T, precond_setup T, precond T\n");
}

TEST(KrylovSolverTables, HaveTheRowsOfTheFrameAndTheirOwn) {
  const std::vector<double> diagonal{2, 0, 0, 8};
  const json own = {{"verb", 1}, {"btol", 0.5}, {"atol", 1e-3}};
  // alpha = 25 / (2 * 9 + 8 * 16), |r| = |(3 - 6 alpha, 4 - 32 alpha)|
  expectTables("PCG", own, diagonal, "2.465753e+00", "4.931507e-01",
               "======================== PCG =====================");
  // v = (10, 32), alpha = 25 / 158, s = (224, -168) / 158, t = (280, -1344) / 158,
  // omega = 288512 / 1884736, |s - omega t| = 1.171059
  expectTables("BiCGSTAB", own, {2, 1, 0, 8}, "1.171059e+00", "2.342118e-01",
               "======================== BiCGstab =====================");
  // V0 = (0.6, 0.8), w = (1.2, 6.4), h = 5.84, hn = 2.88, |r| = 5 hn / |(h, hn)|
  expectTables("FLGMRES_R", own, diagonal, "2.211462e+00", "4.422925e-01",
               "======================= FLGMRES ===================");
  // |r|^2 = 25 - 146^2 / 1060
  expectTables("MINRES", {{"algo", "standard"}}, diagonal, "2.211462e+00", "4.422925e-01");
  // |r| of conjugate gradients
  expectTables("SYMMLQ", {{"btol", 1}, {"atol", 9}}, diagonal, "2.465753e+00", "4.931507e-01");
}

/// A solve of a small system from zero ends so when the method cannot go on; `rows` are those of an
/// observer.
void expectEnd(const std::string& name, const json& params, const std::vector<double>& matrix,
               const std::vector<double>& b, const std::vector<double>& diagonal,
               const std::string& text, int iter, double relres, const std::vector<double>& x,
               std::size_t rows) {
  SCOPED_TRACE(name + params.dump() + testing::PrintToString(matrix));
  const auto out = solveDense<double>("Solver" + name, params, matrix, b, diagonal);
  EXPECT_EQ(out.text, text);
  EXPECT_EQ(out.iter, iter);
  EXPECT_THAT(out.relres, testing::NanSensitiveDoubleEq(relres));
  EXPECT_THAT(out.x, testing::Pointwise(testing::NanSensitiveDoubleEq(), x));
  EXPECT_EQ(out.history.size(), rows);
}

TEST(KrylovSolverEndings, TellOfBreakdownsAndKeepWhatTheyHave) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<double> swap{0, 1, 1, 0}, one{1, 0, 0, 1}, zeros{0, 0, 0, 0};
  const json none, standard = {{"algo", "standard"}};
  const auto its = [](int max) { return json{{"max_its", max}}; };

  const std::string spd = ", Warning! the matrix may not be SPD.\n",
                    pcg = "/project/src/solver/SolverPCG:";
  // (p, A p) = 0 in the first step; (r, z) = 0 there makes alpha 0, and is found in the second
  expectEnd("PCG", none, {1, 0, 0, -1}, {1, 1}, {}, pcg + "120" + spd, 1, 1, {0, 0}, 1);
  expectEnd("PCG", none, {1, 0, 0, 2}, {1, 1}, {1, -1}, pcg + "107" + spd, 2, 1, {0, 0}, 2);

  const std::string small = "phg: bicgstab: ||s|| is too small: ";
  // alpha = 1/4 leaves s = 0, and a step cut short has no row; a tiny system vanishes by the
  // absolute bound: s = (0, -1e-62), and the residual says so
  expectEnd("BiCGSTAB", none, {4, 0, 0, 4}, {1, 2}, {}, small + "0.000000e+00, terminated.\n", 1, 0,
            {0.25, 0.5}, 1);
  expectEnd("BiCGSTAB", none, {1, 0, 1, 1}, {1e-62, 0}, {}, small + "1.000000e-62, terminated.\n",
            1, 1, {1e-62, 0}, 1);
  // r0 = (1, 0), alpha = 1, s = (0, -1), t = (-1, 0), so that omega = 0 and (r1, r0) = 0;
  // (rhat, v) = 0 makes alpha infinite, and NaN ends the iteration in silence
  expectEnd("BiCGSTAB", none, {1, 1, 1, 0}, {1, 0}, {}, "phg: bicgstab: method failed.!\n", 2, 1,
            {1, 0}, 2);
  expectEnd("BiCGSTAB", none, {0, 1, -1, 0}, {1, 0}, {}, "", 1, nan, {nan, nan}, 2);

  const std::string happy = "0.000000e+00 happy break i=";
  // The identity maps the first vector to itself: no column is ever kept, nor has a row. In a
  // cyclic shift three columns do not help, and the fourth, which would, closes the cycle.
  expectEnd("FLGMRES_R", its(2), one, {0, 4}, {}, happy + "1 " + happy + "1 ", 2, 1, {0, 0}, 1);
  expectEnd("FLGMRES_R", its(9), {0, 0, 0, 1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}, {1, 0, 0, 0}, {},
            happy + "4 " + happy + "4 ", 9, 1, {0, 0, 0, 0}, 8);
  // The first column halves the residual, the second vanishes, as does that of the next cycle.
  expectEnd("FLGMRES_R", its(2), {1, 1, 0, 1}, {0, 1}, {}, happy + "2 ", 2, std::sqrt(0.5),
            {0, 0.5}, 2);

  const std::string possible = "Possible indefinite operator 0 tolerance 1e-50\n",
                    detected = "Detected indefinite operator ", tolerance = " tolerance 1e-50\n";
  expectEnd("MINRES", standard, {2, 0, 0, 2}, {1, 0}, {}, possible, 1, 0, {0.5, 0}, 2);
  expectEnd("MINRES", standard, zeros, {3, 4}, {}, possible + detected + "0" + tolerance, 1, nan,
            {nan, nan}, 2);
  expectEnd("MINRES", standard, one, {3, 4}, {-1, 0}, detected + "-9" + tolerance, 0, 1, {0, 0}, 0);
  expectEnd("MINRES", none, zeros, {3, 4}, {}, "", 1, 1, {0, 0}, 2);
  expectEnd("MINRES", none, swap, {3, 4}, {-1, 0}, detected + "-9" + tolerance, 0, 1, {0, 0}, 0);
  // (r, M r) = 4 - 1 at the start, and -25 / 9 after the first product
  expectEnd("MINRES", none, swap, {1, 2}, {-1, 1}, detected + "-2.77778" + tolerance, 1, 1, {0, 0},
            2);
  expectEnd("MINRES", none, {1, 0, 0, nan}, {1, 1}, {}, "", 0, nan, {0, 0}, 1);

  // alpha and c are exactly 0, the estimate is 1e16, and the last move 1e15; the first iteration is
  // done in any case
  for (const int max : {0, 1}) {
    expectEnd("SYMMLQ", its(max), swap, {1, 0}, {}, "", 1, 1e16, {1e15, 0}, 2);
  }
  expectEnd("SYMMLQ", none, swap, {1, 0}, {}, "Detected happy breakdown 0 tolerance 1e-18\n", 2, 0,
            {0, 1}, 3);
}

// Keys and defaults are tested with the document that lists them.
TEST(SolverPCG, CompletesAPreconditionerToTheIdentity) {
  const auto pcg = makeSolverOf<double>("SolverPCG", {{"preconditioner", {{"tagName", "p"}}}});
  EXPECT_EQ(pcg->name, "PCG");
  std::ostringstream tree;
  pcg->describe(tree, 0);
  EXPECT_EQ(tree.str(),
            "ParSolverT SolverPCG\n  preconditioner[p] ParPreconditionerT PrecondIdentity\n");
  EXPECT_NE(makeSolverOf<double>("SolverPCG")->preconditioner, nullptr);

  // an unknown one is not made, and a solve does without
  const auto none = makeSolverOf<double>("SolverPCG", {{"preconditioner", precondOf("NoSuch")}});
  EXPECT_TRUE(none->preconditioner == nullptr && none->children.empty());
  DenseOperator<double> A(Device(), 2, {2, 0, 0, 8});
  const Outcome out = solved(*none, A, {1, 1}, {0, 0});
  EXPECT_EQ(out.iter, 2);
  EXPECT_NEAR(out.x[1], 0.125, 1e-14);
  EXPECT_EQ(out.text, "");
}

/// A solve of a small system, real and positive definite, for |b| about `size`.
template <class T>
SolverRun<T> solveOfSize(const json& config, RealType<T> size) {
  std::vector<T> b;
  for (int i = 0; i < 30; ++i) b.push_back(T(size * (1 + i % 4)));
  return {parSparseOf(Device(), laplacian<T>(6, 5), kCommSelf), parVectorOf(Device(), b),
          parVectorOf(Device(), std::vector<T>(30, T(0))), config};
}

// Scalars of these sizes have squares that a float cannot hold.
TEST(ComplexKrylovSolvers, TakeTheSameStepsInRealAndComplexWhateverTheSizeOfB) {
  const json transfer = {{"level_transfer_type", "LevelTransferRugeStuben"}};
  const json multigrid = precondOf("PrecondAMG", {{"level_transfer", transfer},
                                                  {"min_coarse_size", 8},
                                                  {"pre_smoother", smootherOf("SmootherSOR")},
                                                  {"post_smoother", smootherOf("SmootherSOR")},
                                                  {"coarse_solver", solverOf("SolverGaussElim")}});
  for (const std::string name : {"SolverPCG", "SolverBiCGSTAB"}) {
    for (const json& preconditioner : {precondOf("PrecondJacobi"), multigrid}) {
      const json config =
          solverOf(name, {{"rtol", 1e-5}, {"max_its", 60}, {"preconditioner", preconditioner}});
      const int steps = solveOfSize<float>(config, 1).iterations;
      for (const float size : {1e-12f, 1e-8f, 1e-6f, 1.0f, 1e6f, 1e9f, 1e12f}) {
        const auto real = solveOfSize<float>(config, size);
        const auto complex = solveOfSize<Complex<float>>(config, size);
        EXPECT_EQ(real.iterations, steps) << config << size;
        EXPECT_EQ(complex.iterations, steps) << config << size;
        EXPECT_LE(complex.relres, 2e-5f) << config << size;
      }
    }
  }
}

}  // namespace
}  // namespace mivo::test
