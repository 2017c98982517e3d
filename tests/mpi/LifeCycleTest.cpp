// SPDX-License-Identifier: Apache-2.0

// A program that sets up and solves again and again keeps its size.

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "mivo/testcase/PoissonFDM.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

double residentBytes() {
  double size = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE));
}

// A sanitizer keeps freed memory and finds leaks by itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kSetups = 5;
#else
constexpr int kSetups = 50;
#endif

TEST(LifeCycle, FiftySetupsTakeTheMemoryOfFive) {
  const json smoother = smootherOf("SmootherSSOR");
  for (const std::string name :
       {"LevelTransferSmoothAggregation", "LevelTransferBoomerAMG", "LevelTransferRugeStuben"}) {
    const auto solver = ParSolverT<double, long, int>::getFactory().createInstance(
        {{"solver_type", "SolverPCG"},
         {"SolverPCG_params",
          {{"preconditioner",
            {{"preconditioner_type", "PrecondAMG"},
             {"PrecondAMG_params",
              {{"level_transfer", {{"level_transfer_type", name}}},
               {"pre_smoother", smoother},
               {"post_smoother", smoother}}}}}}}});
    double early = 0;
    for (int k = 1; k <= kSetups; ++k) {
      PoissonFDM_T<double, long, int> problem;
      problem.dim = 2;
      problem.N = 36 + k % 5;
      ParSparse<double> A;
      ParMatrixT<double, long, int> x, b;
      problem.generate(A, x, b);
      ParSparse<double>::scale(A, k);
      x.fill(0);
      solver->preconditioner->setup(A);
      solver->setup(A);
      int iter = 0;
      double relres = 0;
      solver->solve(A, b, x, iter, relres);
      ASSERT_LE(relres, 1e-8) << name << " " << k;
      if (k == 5) early = residentBytes();
    }
    // One hierarchy has 0.5 MB.
    EXPECT_LT(residentBytes(), early + 1e6) << name;
  }
}

}  // namespace
}  // namespace mivo::test
