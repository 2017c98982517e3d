// SPDX-License-Identifier: Apache-2.0
// What all Krylov solvers of one stopping rule do alike.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
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

/// One iteration on a system with b = (3, 4) and its tables.
struct Table {
  std::string name;
  json params;
  std::vector<double> matrix;
  std::string r, relative;  ///< after the iteration
  std::string head;         ///< of the solver's own table, which some have
  bool ownRowFirst = false;
};

std::string expectedText(const Table& table, const std::string& maxIts, const std::string& rest) {
  const std::string frame = "I 0/1 ParOperator:", one = "  1.000000e+00";
  std::string own = "    1   " + table.r + "   " + table.relative + "   " + table.relative + "\n";
  std::string row = frame + "100]        1  " + table.r;
  for (int column = 0; column < 3; ++column) row += "  " + table.relative;
  row += "\n";
  std::string out = frame + "83] Begin solving equation: size 2 solver " + table.name +
                    " device cpu:0\n" + frame +
                    "86]     iter           |r|      |r|/|r0|       |r|/|b|     conv_rate\n" +
                    frame + "100]        0  5.000000e+00" + one + one + one + "\n";
  if (table.head.empty()) {
    out += row;
  } else {
    out += table.head +
           "Iters   Resid. norm    Resid./resid0  Resid./rhs\n"
           "-----   ------------   -------------  ------------\n"
           "    0   5.000000e+00   1.000000e+00   1.000000e+00\n" +
           (table.ownRowFirst ? own + row : row + own);
  }
  return out + rest + frame + "113] Finish solving using " + table.name + ", iter/max_its 1/" +
         maxIts + ", res_b " + table.relative + ", solve_time T, precond_setup T, precond T\n";
}

TEST(KrylovSolverTables, HaveTheRowsOfTheFrameAndTheirOwn) {
  const std::vector<double> diagonal{2, 0, 0, 8};
  const json own = {{"verb", 1}, {"btol", 0.5}, {"atol", 1e-3}};
  json loose = own;
  loose["rtol"] = 0.75;  // ends after the first iteration
  const std::vector<Table> tables = {
      // alpha = 25 / (2 * 9 + 8 * 16), |r| = |(3 - 6 alpha, 4 - 32 alpha)|
      {"PCG", own, diagonal, "2.465753e+00", "4.931507e-01",
       "======================== PCG =====================\n"
       "Tolerances: atol=0.001, rtol=1e-08, btol=0.5\n"},
      // v = (10, 32), alpha = 25 / 158, s = (224, -168) / 158, t = (280, -1344) / 158,
      // omega = 288512 / 1884736, |s - omega t| = 1.171059
      {"BiCGSTAB",
       own,
       {2, 1, 0, 8},
       "1.171059e+00",
       "2.342118e-01",
       "======================== BiCGstab =====================\n"
       "Tolerances: atol=0.001, rtol=1e-08, btol=0.5\n",
       true},
      // V0 = (0.6, 0.8), w = (1.2, 6.4), h = 5.84, hn = 2.88, |r| = 5 hn / |(h, hn)|
      {"FLGMRES_R", loose, diagonal, "2.211462e+00", "4.422925e-01",
       "======================= FLGMRES ===================\n"
       "Tolerances: atol=0.001, rtol=0.75, btol=0.5\n"},
      // |r|^2 = 25 - 146^2 / 1060
      {"MINRES", {{"algo", "standard"}}, diagonal, "2.211462e+00", "4.422925e-01", ""},
      // |r| of conjugate gradients
      {"SYMMLQ", {{"btol", 1}, {"atol", 9}}, diagonal, "2.465753e+00", "4.931507e-01", ""}};
  for (const Table& table : tables) {
    const bool restarts = table.name == "FLGMRES_R";
    json params = table.params;
    params["verbose"] = 2;
    if (!restarts) params["max_its"] = 1;
    const auto out = solveDense<double>("Solver" + table.name, params, table.matrix, {3, 4});
    EXPECT_EQ(withoutTimes(out.text),
              restarts ? expectedText(table, "2000",
                                      "GMRES iteration 1 ||b-Ax||_2 = 2.211462e+00  rel.res "
                                      "4.422925e-01\n")
                       : expectedText(table, "1", ""));
  }
}

/// Iterations and relative residual of a small system, real and positive definite, for |b| about
/// `size`.
template <class T>
std::pair<int, RealType<T>> solveOfSize(const json& config, RealType<T> size) {
  auto A = parSparseOf(Device(), laplacian<T>(6, 5));
  ParMatrixT<T, long, int> x(A.getRows(), Device()), b(A.getRows(), Device());
  for (int i = 0; i < 30; ++i) b.getLocalMatrix(-1).getData()[i] = T(size * (1 + i % 4));
  x.fill(T(0));
  const auto solver = ParSolverT<T, long, int>::getFactory().createInstance(config);
  solver->preconditioner->setup(A);
  std::pair<int, RealType<T>> out;
  solver->solve(A, b, x, out.first, out.second);
  return out;
}

// Scalars of these sizes have squares that a float cannot hold.
TEST(ComplexKrylovSolvers, TakeTheSameStepsInRealAndComplexWhateverTheSizeOfB) {
  const json jacobi = {{"preconditioner_type", "PrecondJacobi"}};
  const json transfer = {{"level_transfer_type", "LevelTransferRugeStuben"}};
  const json multigrid = {{"preconditioner_type", "PrecondAMG"},
                          {"PrecondAMG_params",
                           {{"level_transfer", transfer},
                            {"min_coarse_size", 8},
                            {"pre_smoother", smootherOf("SmootherSOR")},
                            {"post_smoother", smootherOf("SmootherSOR")},
                            {"coarse_solver", {{"solver_type", "SolverGaussElim"}}}}}};
  for (const std::string name : {"SolverPCG", "SolverBiCGSTAB"}) {
    for (const json& preconditioner : {jacobi, multigrid}) {
      const json params = {{"rtol", 1e-5}, {"max_its", 60}, {"preconditioner", preconditioner}};
      const json config = {{"solver_type", name}, {name + "_params", params}};
      const int steps = solveOfSize<float>(config, 1).first;
      for (const float size : {1e-12f, 1e-8f, 1e-6f, 1.0f, 1e6f, 1e9f, 1e12f}) {
        const auto real = solveOfSize<float>(config, size);
        const auto complex = solveOfSize<Complex<float>>(config, size);
        EXPECT_EQ(real.first, steps) << config << size;
        EXPECT_EQ(complex.first, steps) << config << size;
        EXPECT_LE(complex.second, 2e-5f) << config << size;
      }
    }
  }
}

}  // namespace
}  // namespace mivo::test
