// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "mivo/precond/ParPrecondList.hpp"
#include "mivo/precond/ParSmootherList.hpp"
#include "mivo/precond/ParSolverList.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

template <class T>
using Smoother = ParSmootherT<T, long, int>;
template <class T>
using Precond = ParPreconditionerT<T, long, int>;
template <class T>
using Solver = ParSolverT<T, long, int>;

json object(const std::string& family, const std::string& name, const json& params = json()) {
  return {{family + "_type", name}, {name + "_params", params}};
}

template <class Base>
std::shared_ptr<Base> make(const json& j) {
  return Base::getFactory().createInstance(j);
}

template <class T>
class ListsOf : public testing::Test {
 protected:
  static constexpr int n = 9;
  const std::vector<T> matrix = positiveDefinite<T>(n, 3);
  const std::vector<T> b = smallValues<T>(n, 4);
  const std::vector<T> start = smallValues<T>(n, 5);

  /// x after `action(A, b, x)` on a device.
  template <class Action>
  std::vector<T> after(const Device& device, const Action& action) const {
    auto A = parCsrOf(device, n, matrix);
    auto x = parVectorOf(device, start);
    action(A, parVectorOf(device, b), x);
    return valuesOf(x);
  }
};
TYPED_TEST_SUITE(ListsOf, ScalarTypes);

TYPED_TEST(ListsOf, SmoothersRunOneAfterTheOther) {
  using T = TypeParam;
  const json jacobi = object("smoother", "SmootherJacobi", {{"relax", 0.5}});
  const json sor = object("smoother", "SmootherSOR", {{"nsweeps", 2}});
  const json list = object("smoother", "SmootherList",
                           {object("smoother", "SmootherList", json::array({jacobi})), sor,
                            object("smoother", "NoSuch"), jacobi});
  if (std::is_same_v<T, float>) {
    EXPECT_EQ(make<Smoother<T>>(list), nullptr);
    return;
  }
  for (const Device& device : testDevices()) {
    const auto together = this->after(device, [&](auto& A, const auto& rhs, auto& x) {
      const auto smoother = make<Smoother<T>>(list);
      smoother->setup(A);
      smoother->smooth(rhs, x);
    });
    const auto apart = this->after(device, [&](auto& A, const auto& rhs, auto& x) {
      for (const json& each : {jacobi, sor, jacobi}) {
        const auto smoother = make<Smoother<T>>(each);
        smoother->setup(A);
        smoother->smooth(rhs, x);
      }
    });
    EXPECT_EQ(together, apart);
    EXPECT_NE(together, this->start);
    // a start from zero is the same as that from a vector of zeros, for single smoothers too
    for (const json& each : {list, jacobi, sor, object("smoother", "SmootherSSOR"),
                             object("smoother", "SmootherJacobi", {{"nsweeps", 0}}),
                             object("smoother", "SmootherList", json::array())}) {
      const auto fromZero = this->after(device, [&](auto& A, const auto& rhs, auto& x) {
        const auto smoother = make<Smoother<T>>(each);
        smoother->setup(A);
        smoother->smoothFromZero(rhs, x);
      });
      const auto fromZeros = this->after(device, [&](auto& A, const auto& rhs, auto& x) {
        const auto smoother = make<Smoother<T>>(each);
        smoother->setup(A);
        x.fill(T(0));
        smoother->smooth(rhs, x);
      });
      EXPECT_EQ(fromZero, fromZeros) << each;
    }
  }
}

TYPED_TEST(ListsOf, PreconditionersHandOnZWithoutAResidual) {
  using T = TypeParam;
  const json jacobi = object("preconditioner", "PrecondJacobi", {{"relax", 0.5}});
  const json fresh = object("preconditioner", "PrecondSOR");
  const json going = object("preconditioner", "PrecondSOR", {{"initial_zero", false}});
  const auto apply = [&](const Device& device, const std::vector<json>& members) {
    return this->after(device, [&](auto& A, const auto& rhs, auto& x) {
      for (const json& each : members) {
        const auto precond = make<Precond<T>>(each);
        precond->setup(A);
        precond->precondition(rhs, x);
      }
    });
  };
  const auto listOf = [](const json& members) {
    return object("preconditioner", "PrecondList", members);
  };
  for (const Device& device : testDevices()) {
    EXPECT_EQ(apply(device, {listOf({jacobi, going})}), apply(device, {jacobi, going}));
    EXPECT_EQ(
        apply(device, {listOf({listOf(json::array({jacobi})), listOf(json::array({going}))})}),
        apply(device, {jacobi, going}));
    EXPECT_EQ(apply(device, {listOf({jacobi, fresh})}), apply(device, {fresh}))
        << "a start from zero discards what came before";
    EXPECT_NE(apply(device, {jacobi, going}), apply(device, {fresh}));
    for (const json& none : {json::array(), json(), json::object()}) {
      EXPECT_EQ(apply(device, {listOf(none)}), this->start) << "an empty list does nothing";
    }
  }
  const auto list = make<Precond<T>>(listOf(json::array({jacobi})));
  this->after(Device(), [&](auto& A, const auto& rhs, auto& x) {
    list->setup(A);
    list->precondition(rhs, x);
    list->precondition(rhs, x);
  });
  EXPECT_EQ(list->setupTime.getCount(), 1u);
  EXPECT_EQ(list->precondTime.getCount(), 2u);
}

TYPED_TEST(ListsOf, SolversRestartWhereTheOneBeforeEnded) {
  using T = TypeParam;
  using R = RealType<T>;
  const json pcg = object("solver", "SolverPCG", {{"max_its", 2}});
  const json gmres = object("solver", "SolverFLGMRES_R", {{"max_its", 2}});
  const json list =
      object("solver", "SolverList", {object("solver", "SolverList", json::array({pcg})), gmres});
  for (const Device& device : testDevices()) {
    std::vector<R> norms;
    const auto apart = this->after(device, [&](auto& A, const auto& rhs, auto& x) {
      int iter = 0;
      R relres = 0;
      for (const json& each : {pcg, gmres}) {
        make<Solver<T>>(each)->solve(A, rhs, x, iter, relres);
        norms.push_back(ParMatrixT<T, long, int>::residual(A, x, rhs));
      }
    });
    std::vector<Status<R>> statuses;
    int iter = -7;
    R relres = -7, normb = 0, r0 = 0;
    const auto together = this->after(device, [&](auto& A, const auto& rhs, auto& x) {
      const auto solver = make<Solver<T>>(list);
      solver->observer = [&](int k, R r, R relR0, R relB) {
        statuses.push_back({k, r, relR0, relB});
      };
      normb = ParMatrixT<T, long, int>::normL2(rhs);
      r0 = ParMatrixT<T, long, int>::residual(A, x, rhs);
      solver->setup(A);
      solver->solve(A, rhs, x, iter, relres);
    });
    EXPECT_EQ(together, apart);
    EXPECT_EQ(iter, 0) << "whatever the members did";
    EXPECT_EQ(relres, norms[1] / normb);
    EXPECT_EQ(statuses, (std::vector<Status<R>>{{0, norms[0], norms[0] / r0, norms[0] / normb},
                                                {1, norms[1], norms[1] / r0, norms[1] / normb}}));
  }
}

/// A run of a list of solvers on [2 0; 0 8], b = (3, 4).
SolveRecord<double> runList(Solver<double>& list) {
  return runSolver<double>(list, {2, 0, 0, 8}, {3, 4}, {0, 0});
}

TEST(SolverList, PrintsItsTable) {
  const auto list = make<Solver<double>>(
      object("solver", "SolverList",
             {object("solver", "SolverPCG", {{"max_its", 1}}), object("solver", "NoSuch"),
              object("solver", "SolverPCG"), object("solver", "SolverPreOnly")}));
  list->verbose = 2;
  const auto out = runList(*list);
  // the residual after one step is 360 / 146; the next member ends below the tolerance
  EXPECT_EQ(out.history.size(), 2u);
  EXPECT_LT(out.relres, 1e-8);
  const std::string text = withoutTimes(out.text);
  EXPECT_THAT(
      text,
      testing::StartsWith(
          "I 0/1 ParOperator:83] Begin solving equation: size 2 solver SolverList device cpu:0\n"
          "I 0/1 ParOperator:86]     iter           |r|      |r|/|r0|       |r|/|b|     conv_rate\n"
          "I 0/1 ParOperator:100]        0  2.465753e+00  4.931507e-01  4.931507e-01  "
          "4.931507e-01\n"
          "I 0/1 ParOperator:100]        2  "));
  EXPECT_THAT(text,
              testing::HasSubstr("Finish solving using SolverList, iter/max_its 0/2000, res_b"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 5);
}

TEST(SolverList, WithoutMembersReportsTheStart) {
  const auto list = make<Solver<double>>(object("solver", "SolverList", json::array()));
  list->verbose = 1;
  const auto out = runList(*list);
  EXPECT_EQ(out.iter, 0);
  EXPECT_EQ(out.relres, 1);
  EXPECT_EQ(out.x, (std::vector<double>{0, 0}));
  EXPECT_TRUE(out.history.empty());
  EXPECT_THAT(out.text, testing::HasSubstr("Begin solving"));
  EXPECT_THAT(out.text, testing::HasSubstr("iter/max_its 0/2000, res_b 1,"));
}

TEST(SolverList, GivesItsOwnPreconditionerToItsMembers) {
  const auto list = make<Solver<double>>(
      object("solver", "SolverList",
             {object("solver", "SolverPCG",
                     {{"preconditioner", {{"preconditioner_type", "PrecondJacobi"}}}}),
              object("solver", "SolverPreOnly")}));
  std::ostringstream tree;
  list->describe(tree, 0);
  EXPECT_EQ(tree.str(),
            "ParSolverT SolverList\n"
            "  preconditioner ParPreconditionerT PrecondIdentity\n"
            "  0 ParSolverT SolverPCG\n"
            "    preconditioner ParPreconditionerT PrecondJacobi\n"
            "  1 ParSolverT SolverPreOnly\n");
  // PrecondJacobi was never set up, so that its application would not leave two right steps of PCG.
  const auto out = runList(*list);
  EXPECT_EQ(out.applications, 2);
  EXPECT_LT(out.relres, 1e-8);
}

TEST(Lists, TakeNothingButAnArray) {
  for (const std::string family : {"smoother", "preconditioner", "solver"}) {
    const std::string name = family == "smoother"         ? "SmootherList"
                             : family == "preconditioner" ? "PrecondList"
                                                          : "SolverList";
    const auto build = [&](const json& params) {
      const json j = object(family, name, params);
      if (family == "smoother") make<Smoother<double>>(j);
      if (family == "preconditioner") make<Precond<double>>(j);
      if (family == "solver") make<Solver<double>>(j);
    };
    for (const json& bad : {json(5), json("x"), json(true), json{{"rtol", 1e-3}}}) {
      EXPECT_THROW(build(bad), json::type_error) << name << bad;
    }
  }
}

}  // namespace
}  // namespace mivo::test
