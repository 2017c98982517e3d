// SPDX-License-Identifier: Apache-2.0

// The classical pipelines as level transfers on one rank.

#include <gmock/gmock.h>

#include <cmath>

#include "mivo/level_transfer/fasp_wrapper/ParLevelTransferBoomerAMG.hpp"
#include "mivo/level_transfer/ruge_stuben/ParLevelTransferRugeStuben.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/printed.hpp"

namespace mivo::test {
namespace {

using testing::HasSubstr;

template <class T>
class ClassicalTransfers : public testing::Test {};
TYPED_TEST_SUITE(ClassicalTransfers, ScalarTypes);

// As a stationary solver each pipeline takes the residual down in each cycle, in every value type
// and on every device.
TYPED_TEST(ClassicalTransfers, MakeHierarchiesThatConverge) {
  using T = TypeParam;
  const json ssor = smootherOf("SmootherSSOR");
  for (const Device& device : testDevices()) {
    for (const std::string name :
         {"LevelTransferRugeStuben", "LevelTransferRugeStubenSeq", "LevelTransferBoomerAMG"}) {
      const json params = {{"level_transfer", {{"level_transfer_type", name}}},
                           {"pre_smoother", ssor},
                           {"post_smoother", ssor}};
      ParMatrixT<T, long, int> x(480, device), b(480, device);
      x.fill(T(0));
      b.fill(T(1));
      const SolverRun<T> run(parSparseOf(device, laplacian<T>(24, 20)), b, x,
                             solverOf("SolverAMG", params));
      ASSERT_GE(run.history.size(), 4u) << name;
      double last = std::sqrt(480.0);
      for (std::size_t cycle = 0; cycle < 4; ++cycle) {
        EXPECT_LT(run.history[cycle], 0.5 * last + 1e-4) << name << cycle;
        last = run.history[cycle];
      }
    }
  }
}

TEST(ClassicalSolves, ConvergeInFewIterationsAtModestComplexity) {
  const auto expectAtMost = [](int its, double most, int dim, int n, const std::string& transfer) {
    const json params = {{"level_transfer", {{"level_transfer_type", transfer}}},
                         {"pre_smoother", smootherOf("SmootherSOR")},
                         {"post_smoother", smootherOf("SmootherSOR", {{"forward", false}})}};
    double complexity = 0;
    EXPECT_LE(multigridIterations(dim, n, params, &complexity), its) << transfer;
    EXPECT_LT(complexity, most) << transfer;
  };
  expectAtMost(11, 2.8, 3, 24, "LevelTransferBoomerAMG");
  expectAtMost(10, 2.3, 2, 64, "LevelTransferRugeStubenSeq");
  expectAtMost(22, 2.1, 2, 64, "LevelTransferRugeStuben");
}

TEST(ClassicalPipelines, NameTheirPartsAndTellTheirTimes) {
  using Transfer = ParLevelTransferBoomerAMG<double, long, int>;
  Transfer transfer;
  transfer.create(
      {{"interpolator", {{"interpolator_type", "InterpolatorAMGCLDirect"}}}, {"verbose", 1}});
  std::vector<std::string> roles;
  for (const auto& child : transfer.children) roles.push_back(child->role + child->registered_name);
  EXPECT_EQ(roles, (std::vector<std::string>{"strengtherStrengtherBoomerAMG",
                                             "splitterSplitterBoomerAMGPMIS",
                                             "interpolatorInterpolatorAMGCLDirect"}));
  transfer.keep = true;
  const auto A = parSparseOf(Device(), laplacian<double>(9, 9));
  ParSparse<double> P, R;
  EXPECT_THAT(printed([&] { transfer.transfer_operators(A, P, R); }),
              testing::ContainsRegex("ParLevelTransferBoomerAMG timers: strength time [0-9.e-]+ "
                                     "split time [0-9.e-]+ interp_time [0-9.e-]+\n"));
  EXPECT_EQ(plainOf(transfer.impl->Ac.getLocalMatrix(0)),
            plainOf(R.multiply(A).multiply(P).getLocalMatrix(0)));

  Transfer standard;
  standard.create(json());
  SeqLevelTransferRugeStuben_T<double, long, int> classical;
  const auto extended = [&] { standard.transfer_operators(A, P, R); };
  const auto direct = [&] { classical.transfer_operators(A, P, R); };
  EXPECT_EQ(printed(extended) + printed(direct), "");
  MIVO_EXPECT_PRINTED_AT(
      "3", extended(),
      testing::ContainsRegex("par_BoomerAMGInterpolationExtendedPI time [0-9.e-]+ "
                             "ghost_and_comm_pat_time [0-9.e-]+ ghost_time [0-9.e-]+ "
                             "get_non_zero_time [0-9.e-]+ fill_elem_time [0-9.e-]+ "
                             "truncate_time [0-9.e-]+\n"));
  MIVO_EXPECT_PRINTED_AT("3", direct(),
                         HasSubstr("] num nodes 81, the naggr is 41, the nnz of P is "));
  MIVO_EXPECT_FATAL_TEXT(transfer.create({{"splitter", {{"splitter_type", "SplitterPMIS"}}}}),
                         R"(LevelTransferBoomerAMG: "splitter" should be an object with a known )"
                         R"("splitter_type", found {"splitter_type":"SplitterPMIS"})");
}

}  // namespace
}  // namespace mivo::test
