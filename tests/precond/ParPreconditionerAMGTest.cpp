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
  json params = pairsParams({{"max_levels", 2}});
  params["post_smoother_0"] = smootherOf("SmootherSOR");
  params["post_smoother_0"]["tagName"] = "deep";
  const std::string upper =
      "ParSolverT SolverAMG\n"
      "  preconditioner ParPreconditionerT PrecondIdentity\n"
      "  level_0  \n"
      "    pre_smoother ParSmootherT SmootherJacobi\n"
      "    post_smoother[deep] ParSmootherT SmootherSOR\n"
      "      preconditioner ParPreconditionerT PrecondIdentity\n"
      "    level_transfer ParLevelTransferT TestPairs\n"
      "  level_1  \n"
      "    coarse_solver ";
  EXPECT_EQ(treeOf(*chain(64, params)),
            upper +
                " \n"
                "      coarse_pre_smoother ParSmootherT SmootherJacobi\n"
                "      coarse_post_smoother ParSmootherT SmootherJacobi\n");
  params["coarse_solver"] = kGauss;
  const auto amg = chain(64, params);
  EXPECT_EQ(treeOf(*amg), upper +
                              "ParSolverT SolverGaussElim\n"
                              "      preconditioner ParPreconditionerT PrecondIdentity\n");
  EXPECT_EQ(amg->levels[1].coarse_pre_smoother, nullptr);
  EXPECT_EQ(ParOperator::findOpByTagName(amg, "deep"), amg->levels[0].post_smoother);
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
  const std::vector<std::string> tags = {"level_transfer", "pre_smoother", "post_smoother",
                                         "coarse_solver"};
  json params = pairsParams({{"max_levels", 2}, {"coarse_solver", solverOf("SolverPCG")}});
  for (const auto& tag : tags) params[tag]["tagName"] = tag;
  const auto amg = makeAmg<double>(params);
  std::vector<std::string> names;
  std::vector<std::shared_ptr<ParOperator>> made;
  for (const auto& tag : tags) {
    amg->registerCallBack(tag, CallBackPlace::After, [&, tag](const auto& op) {
      names.push_back(tag + " " + op->registered_name);
      made.push_back(op);
    });
  }
  amg->setup(parSparseOf(Device(), laplacian<double>(64, 1)));
  ASSERT_EQ(names,
            (std::vector<std::string>{"level_transfer TestPairs", "pre_smoother SmootherJacobi",
                                      "post_smoother SmootherJacobi", "coarse_solver SolverPCG"}));
  for (std::size_t k = 0; k < tags.size(); ++k) {
    EXPECT_EQ(ParOperator::findOpByTagName(amg, tags[k]), made[k]);
  }
}

TEST(AMGHierarchy, CoarseOperatorsAreProductsOfThree) {
  const int n = 45;
  std::mt19937 rng(11);
  for (const Device& device : testDevices()) {
    const auto amg = makeAmg<double>(
        pairsParams({{"level_transfer", pairs({{"factor", 0.5}})}, {"min_coarse_size", 2}}));
    const auto A = parSparseOf(device, randomCsr<double>(rng, n, n));
    amg->setup(A);
    ASSERT_EQ(rowsOf(*amg), (std::vector<long>{45, 23, 12, 6, 3, 2}));
    EXPECT_EQ(plainOf(amg->levels[0].A.getLocalMatrix(-1)), plainOf(A.getLocalMatrix(-1)));
    for (std::size_t l = 0; l + 1 < amg->levels.size(); ++l) {
      const auto& level = amg->levels[l];
      // small numbers, so that all sums are exact; rows are in order of columns
      const auto product = level.R.multiply(level.A).multiply(level.P);
      EXPECT_EQ(plainOf(amg->levels[l + 1].A.getLocalMatrix(-1)),
                plainOf(product.getLocalMatrix(-1)).sorted())
          << "level " << l + 1;
    }
  }
}

// A chain of n points has 3 n - 2 entries.
TEST(AMGHierarchy, PrintsStatisticsAndTimesFromVerboseTwo) {
  const auto text = [](const json& keys) { return printed([&] { chain(24, pairsParams(keys)); }); };
  for (int verbose : {0, 1}) EXPECT_EQ(text({{"verbose", verbose}}), "");
  const std::string at = "I 0/1 ParPreconditionerAMG(Cycle)?.cpp:[0-9]+. ",
                    timers = at +
                             "AMG setup timers: transfer [^ ]+ smoother [^ ]+ rap [^ ]+ "
                             "preprare [^ ]+ total [^ ]+\n";
  EXPECT_THAT(
      text({{"verbose", 2}}),
      testing::MatchesRegex(at + " +row_entries +row_sums\n" + at + "   level" +
                            MatrixMetaT<long>::getTableHead() + "\n" + at +
                            "       0         24         24         70 [^\n]*\n" + at +
                            "       1         12         12         34 [^\n]*\n" + at +
                            "       2          6          6         16 [^\n]*  3.333e-01\n" + at +
                            "AMG DOF size 24 operator complexity is 1.71429\n" + timers));
  EXPECT_THAT(text({{"verbose", 3}, {"max_levels", 0}}),
              testing::MatchesRegex(at + "AMG DOF size 0 operator complexity is 1\n" + timers));
}

}  // namespace
}  // namespace mivo::test
