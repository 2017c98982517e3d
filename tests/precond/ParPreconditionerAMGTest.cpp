// SPDX-License-Identifier: Apache-2.0
// The hierarchy: what is built, from which keys, and what is printed of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "mivo/precond/ParPreconditionerAMG.hpp"
#include "mivo/precond/ParSmootherJacobi.hpp"
#include "tests/support/amg.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/operators.hpp"

namespace mivo::test {
namespace {

const json kGauss = {{"solver_type", "SolverGaussElim"}};

json pairs(const json& params) {
  return {{"level_transfer_type", "TestPairs"}, {"TestPairs_params", params}};
}

template <class T>
std::vector<long> rowsOf(const Amg<T>& amg) {
  std::vector<long> rows;
  for (const auto& level : amg.levels) rows.push_back(level.A.getRows());
  return rows;
}

/// The hierarchy of a chain of n points.
std::shared_ptr<Amg<double>> chain(int n, const json& params) {
  const auto amg = makeAmg<double>(params);
  amg->setup(parSparseOf(Device(), laplacian<double>(n, 1)));
  return amg;
}

std::string treeOf(const ParOperator& op) {
  std::ostringstream out;
  op.describe(out, 0);
  return out.str();
}

TEST(AMGHierarchy, StopsAtTheSizeAndAtTheLimitOfLevels) {
  EXPECT_EQ(rowsOf(*chain(64, pairsParams())), (std::vector<long>{64, 32, 16, 8}));
  EXPECT_EQ(rowsOf(*chain(20, pairsParams())), (std::vector<long>{20, 10}));
  EXPECT_EQ(rowsOf(*chain(21, pairsParams({{"min_coarse_size", 3}}))),
            (std::vector<long>{21, 11, 6, 3}));
  EXPECT_EQ(rowsOf(*chain(64, pairsParams({{"max_levels", 2}}))), (std::vector<long>{64, 32}));
  // there is no test of the ratio: one unknown remains one
  EXPECT_EQ(rowsOf(*chain(4, pairsParams({{"min_coarse_size", 0}, {"max_levels", 5}}))),
            (std::vector<long>{4, 2, 1, 1, 1}));
  for (const auto& alone :
       {chain(64, pairsParams({{"max_levels", 1}})), chain(10, pairsParams())}) {
    ASSERT_EQ(alone->levels.size(), 1u);
    EXPECT_EQ(alone->levels[0].level_transfer, nullptr);
    EXPECT_EQ(alone->levels[0].pre_smoother, nullptr);
    EXPECT_NE(alone->levels[0].coarse_pre_smoother, nullptr);
  }
  for (int none : {0, -3}) {
    EXPECT_TRUE(chain(64, pairsParams({{"max_levels", none}}))->levels.empty());
  }
}

TEST(AMGHierarchy, AnEmptyProlongationAboveTheFinestLevelMakesTheCoarsest) {
  const auto amg = chain(64, pairsParams({{"level_transfer", pairs({{"empty_from", 2}})}}));
  ASSERT_EQ(rowsOf(*amg), (std::vector<long>{64, 32, 16}));
  const auto& last = amg->levels[2];
  EXPECT_NE(last.level_transfer, nullptr);
  EXPECT_EQ(last.pre_smoother, nullptr);
  EXPECT_NE(last.coarse_post_smoother, nullptr);
  EXPECT_EQ(last.level_transfer->levelId, 2);
  // The finest level keeps its smoothers and gets a coarser one without rows.
  EXPECT_EQ(rowsOf(*chain(64, pairsParams({{"level_transfer", pairs({{"empty_from", 0}})}}))),
            (std::vector<long>{64, 0}));
}

TEST(AMGHierarchy, DescribesItself) {
  json params = pairsParams({{"max_levels", 3}});
  params["post_smoother_1"] = smootherOf("SmootherSOR");
  params["post_smoother_1"]["tagName"] = "deep";
  const std::string smoothers = "ParSmootherT SmootherJacobi\n";
  const std::string upper =
      "ParSolverT SolverAMG\n"
      "  preconditioner ParPreconditionerT PrecondIdentity\n"
      "  level_0  \n"
      "    pre_smoother " +
      smoothers + "    post_smoother " + smoothers +
      "    level_transfer ParLevelTransferT TestPairs\n"
      "  level_1  \n"
      "    pre_smoother " +
      smoothers +
      "    post_smoother[deep] ParSmootherT SmootherSOR\n"
      "      preconditioner ParPreconditionerT PrecondIdentity\n"
      "    level_transfer ParLevelTransferT TestPairs\n"
      "  level_2  \n";
  EXPECT_EQ(treeOf(*chain(64, params)), upper + "    coarse_solver  \n      coarse_pre_smoother " +
                                            smoothers + "      coarse_post_smoother " + smoothers);
  params["coarse_solver"] = kGauss;
  const auto amg = chain(64, params);
  EXPECT_EQ(treeOf(*amg), upper +
                              "    coarse_solver ParSolverT SolverGaussElim\n"
                              "      preconditioner ParPreconditionerT PrecondIdentity\n");
  EXPECT_EQ(amg->levels[2].coarse_pre_smoother, nullptr);
  EXPECT_EQ(ParOperator::findOpByTagName(amg, "deep"), amg->levels[1].post_smoother);
}

TEST(AMGHierarchy, TakesKeysOfALevelBeforeTheCommonOnes) {
  json params = pairsParams({{"max_levels", 3}});
  const auto jacobi = [](double relax) { return smootherOf("SmootherJacobi", {{"relax", relax}}); };
  params["pre_smoother_0"] = jacobi(0.125);
  params["pre_smoother_2"] = jacobi(0.25);  // not used: the coarsest level reads the plain key
  params["level_transfer_1"] = pairs({{"factor", 0.5}});
  const auto amg = chain(64, params);
  const auto relaxOf = [](const auto& smoother) {
    return std::dynamic_pointer_cast<ParSmootherJacobi_T<double, long, int>>(smoother)->relax;
  };
  const auto& levels = amg->levels;
  EXPECT_EQ(relaxOf(levels[0].pre_smoother), 0.125);
  EXPECT_EQ(relaxOf(levels[0].post_smoother), 0.75);
  EXPECT_EQ(relaxOf(levels[1].pre_smoother), 0.5);
  EXPECT_EQ(relaxOf(levels[2].coarse_pre_smoother), 0.5);
  EXPECT_EQ(relaxOf(levels[2].coarse_post_smoother), 0.75);
  EXPECT_EQ(levels[0].R.getElementValue(0, 0, nullptr), 1);
  EXPECT_EQ(levels[1].R.getElementValue(0, 0, nullptr), 0.5);
  EXPECT_EQ(levels[0].level_transfer->levelId, 0);
  EXPECT_EQ(levels[1].level_transfer->levelId, 1);

  // With keys for each level the plain ones are not needed, nor smoothers beside a coarse solver.
  json single = {{"max_levels", 2},
                 {"coarse_solver", kGauss},
                 {"level_transfer_0", pairs({})},
                 {"pre_smoother_0", jacobi(0.5)},
                 {"post_smoother_0", jacobi(0.5)}};
  EXPECT_EQ(rowsOf(*chain(64, single)), (std::vector<long>{64, 32}));
  for (const char* missing : {"level_transfer_0", "pre_smoother_0", "post_smoother_0"}) {
    json params_left = single;
    params_left.erase(missing);
    const std::string family =
        std::string(missing) == "level_transfer_0" ? "level_transfer_type" : "smoother_type";
    MIVO_EXPECT_FATAL(chain(64, params_left), "Factory:64", "json null not contains key " + family);
  }
  single.erase("coarse_solver");
  MIVO_EXPECT_FATAL(chain(64, single), "Factory:64", "json null not contains key smoother_type");
}

TEST(AMGHierarchy, RefusesWhatItCannotUse) {
  MIVO_EXPECT_FATAL_TEXT(
      makeAmg<double>(pairsParams())->setup(DenseOperator<double>(Device(), 1, {1})),
      "AMG: setup should be given a ParCSRMatrix");
  setenv("MIVO_VERBOSE_LEVEL", "0", 1);
  for (const std::string key :
       {"post_smoother smoother", "level_transfer level_transfer", "coarse_solver solver"}) {
    const std::string part = key.substr(0, key.find(' ')),
                      type = key.substr(key.find(' ') + 1) + "_type";
    MIVO_EXPECT_FATAL_TEXT(chain(64, pairsParams({{part, {{type, "NoSuch"}}}})),
                           "AMG: \"" + part + "\" should be an object with a known \"" + type +
                               "\", found {\"" + type + "\":\"NoSuch\"}");
  }
}

TEST(AMGHierarchy, IsBuiltAnewByEachSetup) {
  const json params = pairsParams({{"min_coarse_size", 3}, {"coarse_solver", kGauss}});
  const auto amg = chain(64, params), fresh = chain(21, params);
  const std::weak_ptr<ParOperator> before = amg->levels[0].pre_smoother;
  const auto A = amg->levels[1].A;  // of the hierarchy itself
  amg->setup(A);
  EXPECT_TRUE(before.expired());
  EXPECT_EQ(rowsOf(*amg), (std::vector<long>{32, 16, 8, 4, 2}));
  EXPECT_EQ(amg->setup_times.transfer.getCount(), 4u);
  EXPECT_EQ(amg->setup_times.rap.getCount(), 4u);
  EXPECT_EQ(amg->setup_times.coarse.getCount(), 1u);
  EXPECT_EQ(amg->setupTime.getCount(), 2u);
  amg->setup(fresh->fine);
  EXPECT_EQ(treeOf(*amg), treeOf(*fresh));
  const auto run = [](Amg<double>& solver) {
    ParVector<double> x(21, Device()), b(21, Device());
    x.fill(0);
    b.fill(1);
    solver.precondition(b, x);
    solver.precondition(x, b);
    return valuesOf(b);
  };
  EXPECT_EQ(run(*amg), run(*fresh));
  EXPECT_EQ(amg->step, 2);
}

// The least that is asked of an object without a set-up is that it says so.
TEST(AMGHierarchy, IsMissedWhereNobodyCalledSetup) {
  ParVector<double> x(4, Device()), b(4, Device());
  x.fill(0);
  b.fill(1);
  for (const std::string name : {"AMG", "Jacobi", "SOR"}) {
    const auto p = ParPreconditionerT<double, long, int>::getFactory().createInstance(
        {{"preconditioner_type", "Precond" + name}});
    MIVO_EXPECT_FATAL_TEXT(p->precondition(b, x), name + ": no matrix was set up");
    const auto s = ParSolverT<double, long, int>::getFactory().createInstance(
        {{"solver_type", "Solver" + name}});
    int iter = 0;
    double relres = 0;
    auto A = parSparseOf(Device(), laplacian<double>(4, 1));
    MIVO_EXPECT_FATAL_TEXT(s->solve(A, b, x, iter, relres), name + ": no matrix was set up");
  }
}

TEST(AMGHierarchy, CallbacksReachItsObjectsByTag) {
  json params = pairsParams({{"max_levels", 2}, {"coarse_solver", {{"solver_type", "SolverPCG"}}}});
  std::vector<std::string> tags;
  for (const char* key : {"level_transfer", "pre_smoother", "post_smoother", "coarse_solver"}) {
    params[key]["tagName"] = key;
    tags.push_back(key);
  }
  const auto amg = makeAmg<double>(params);
  std::vector<std::string> made;
  for (const std::string& tag : tags) {
    amg->registerCallBack(tag, CallBackPlace::After, [&made, tag](const auto& op) {
      made.push_back(tag + " " + op->registered_name);
      if (auto* jacobi = dynamic_cast<ParSmootherJacobi_T<double, long, int>*>(op.get())) {
        jacobi->nsweeps = 7;
      }
    });
  }
  amg->setup(parSparseOf(Device(), laplacian<double>(64, 1)));
  EXPECT_EQ(made,
            (std::vector<std::string>{"level_transfer TestPairs", "pre_smoother SmootherJacobi",
                                      "post_smoother SmootherJacobi", "coarse_solver SolverPCG"}));
  const auto found = std::dynamic_pointer_cast<ParSmootherJacobi_T<double, long, int>>(
      ParOperator::findOpByTagName(amg, "pre_smoother"));
  EXPECT_EQ(found->nsweeps, 7);
}

template <class T>
class AMGHierarchyOf : public testing::Test {};
TYPED_TEST_SUITE(AMGHierarchyOf, ScalarTypes);

TYPED_TEST(AMGHierarchyOf, CoarseOperatorsAreProductsOfThree) {
  using T = TypeParam;
  const int n = 45;
  std::mt19937 rng(11);
  for (const Device& device : testDevices()) {
    const auto amg = makeAmg<T>(
        pairsParams({{"level_transfer", pairs({{"factor", 0.5}})}, {"min_coarse_size", 2}}));
    const auto A = parSparseOf(device, randomCsr<T>(rng, n, n));
    amg->setup(A);
    ASSERT_EQ(rowsOf(*amg), (std::vector<long>{45, 23, 12, 6, 3, 2}));
    EXPECT_EQ(plainOf(amg->levels[0].A.getLocalMatrix(-1)), plainOf(A.getLocalMatrix(-1)));
    for (std::size_t l = 0; l + 1 < amg->levels.size(); ++l) {
      const auto& level = amg->levels[l];
      const std::size_t rows = level.A.getRows(), coarse = level.P.getCols();
      const auto a = plainOf(level.A.getLocalMatrix(-1)).dense();
      const auto p = plainOf(level.P.getLocalMatrix(-1)).dense();
      const auto r = plainOf(level.R.getLocalMatrix(-1)).dense();
      const auto plain = plainOf(amg->levels[l + 1].A.getLocalMatrix(-1));
      // small numbers, so that all sums are exact
      std::vector<T> expected(coarse * coarse, T(0));
      for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < rows; ++j) {
          for (std::size_t I = 0; I < coarse; ++I) {
            for (std::size_t J = 0; J < coarse; ++J) {
              expected[I * coarse + J] += r[I * rows + i] * a[i * rows + j] * p[j * coarse + J];
            }
          }
        }
      }
      EXPECT_EQ(plain.dense(), expected) << "level " << l + 1;
      EXPECT_EQ(plain, plain.sorted()) << "rows in order of columns";
    }
  }
}

/// Figures of times as T, others as they are.
std::string withoutSetupTimes(const std::string& text) {
  static const std::regex time("(transfer|smoother|rap|preprare|total) [0-9.e+-]+");
  static const std::regex place("ParPreconditionerAMG(Cycle)?\\.cpp:[0-9]+\\]");
  return std::regex_replace(std::regex_replace(text, time, "$1 T"), place, "AMG]");
}

TEST(AMGHierarchy, PrintsStatisticsAndTimesFromVerboseTwo) {
  for (int verbose : {0, 1}) {
    EXPECT_EQ(printed([&] { chain(24, pairsParams({{"verbose", verbose}})); }), "");
  }
  const std::string timers =
      "I 0/1 AMG] AMG setup timers: transfer T smoother T rap T preprare T total T\n";
  // Chains of 24, 12 and 6 points, of 3 n - 2 entries. A pair of rows 2, -1 sums to 2, -1 again.
  EXPECT_EQ(withoutSetupTimes(printed([&] {
              chain(24, pairsParams({{"verbose", 2}}));
            })),
            "I 0/1 AMG]                                                          row_entries"
            "                         row_sums\n"
            "I 0/1 AMG]    level       rows       cols       nnzs     sparse        min        max"
            "        avg        min        max        avg\n"
            "I 0/1 AMG]        0         24         24         70  1.215e-01  2.000e+00  3.000e+00"
            "  2.917e+00  0.000e+00  1.000e+00  8.333e-02\n"
            "I 0/1 AMG]        1         12         12         34  2.361e-01  2.000e+00  3.000e+00"
            "  2.833e+00  0.000e+00  1.000e+00  1.667e-01\n"
            "I 0/1 AMG]        2          6          6         16  4.444e-01  2.000e+00  3.000e+00"
            "  2.667e+00  0.000e+00  1.000e+00  3.333e-01\n"
            "I 0/1 AMG] AMG DOF size 24 operator complexity is 1.71429\n" +
                timers);
  EXPECT_EQ(withoutSetupTimes(printed([&] {
              chain(24, pairsParams({{"verbose", 3}, {"max_levels", 0}}));
            })),
            "I 0/1 AMG] AMG DOF size 0 operator complexity is 1\n" + timers);
}

}  // namespace
}  // namespace mivo::test
