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
#include "tests/support/amg.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

using Smoother = ParSmootherT<double, long, int>;
using Precond = ParPreconditionerT<double, long, int>;
using Solver = ParSolverT<double, long, int>;

template <class Base>
std::shared_ptr<Base> make(const json& j) {
  return Base::getFactory().createInstance(j);
}

const int n = 9;

/// x after each of `members` has been set up and `call`ed on `device`, one after the other.
template <class Base, class Call>
std::vector<double> after(const Device& device, const json& members, const Call& call,
                          const std::vector<double>& start = smallValues<double>(n, 5)) {
  auto A = parCsrOf(device, n, positiveDefinite<double>(n, 3));
  const auto b = parVectorOf(device, smallValues<double>(n, 4));
  auto x = parVectorOf(device, start);
  for (const json& each : members) {
    const auto member = make<Base>(each);
    member->setup(A);
    call(*member, A, b, x);
  }
  return valuesOf(x);
}

TEST(Lists, SmoothersRunOneAfterTheOther) {
  const json jacobi = smootherOf("SmootherJacobi", {{"relax", 0.5}});
  const json sor = smootherOf("SmootherSOR", {{"nsweeps", 2}});
  const json list = smootherOf("SmootherList", {smootherOf("SmootherList", json::array({jacobi})),
                                                sor, smootherOf("NoSuch"), jacobi});
  const auto smooth = [](auto& smoother, auto&, auto& b, auto& x) { smoother.smooth(b, x); };
  for (const Device& device : testDevices()) {
    const auto apart = after<Smoother>(device, {jacobi, sor, jacobi}, smooth);
    EXPECT_EQ(after<Smoother>(device, json::array({list}), smooth), apart);
    EXPECT_NE(apart, smallValues<double>(n, 5));
    // a start from zero is the same as that from a vector of zeros, for single smoothers too
    for (const json& each : {list, jacobi, sor, smootherOf("SmootherSSOR"),
                             smootherOf("SmootherJacobi", {{"nsweeps", 0}}),
                             smootherOf("SmootherList", json::array())}) {
      const auto fromZero = after<Smoother>(
          device, json::array({each}),
          [](auto& smoother, auto&, auto& b, auto& x) { smoother.smoothFromZero(b, x); });
      const std::vector<double> zeros(n, 0);
      EXPECT_EQ(fromZero, after<Smoother>(device, json::array({each}), smooth, zeros)) << each;
    }
  }
}

TEST(Lists, PreconditionersHandOnZWithoutAResidual) {
  const json jacobi = precondOf("PrecondJacobi", {{"relax", 0.5}});
  const json fresh = precondOf("PrecondSOR");
  const json going = precondOf("PrecondSOR", {{"initial_zero", false}});
  const auto listOf = [](const json& members) { return precondOf("PrecondList", members); };
  for (const Device& device : testDevices()) {
    const auto apply = [&](const json& members) {
      return after<Precond>(device, members, [](auto& precond, auto&, auto& b, auto& z) {
        precond.precondition(b, z);
        EXPECT_EQ(precond.setupTime.getCount(), 1u);
        EXPECT_EQ(precond.precondTime.getCount(), 1u);
      });
    };
    const json nested = {listOf(json::array({jacobi})), listOf(json::array({going}))};
    EXPECT_EQ(apply(json::array({listOf({jacobi, going})})), apply({jacobi, going}));
    EXPECT_EQ(apply(json::array({listOf(nested)})), apply({jacobi, going}));
    EXPECT_EQ(apply(json::array({listOf({jacobi, fresh})})), apply(json::array({fresh})))
        << "a start from zero discards what came before";
    EXPECT_NE(apply({jacobi, going}), apply(json::array({fresh})));
    for (const json& none : {json::array(), json(), json::object()}) {
      EXPECT_EQ(apply(json::array({listOf(none)})), smallValues<double>(n, 5)) << "does nothing";
    }
  }
}

TEST(Lists, SolversRestartWhereTheOneBeforeEnded) {
  using Vector = ParVector<double>;
  const json pcg = solverOf("SolverPCG", {{"max_its", 2}});
  const json gmres = solverOf("SolverFLGMRES_R", {{"max_its", 2}});
  const json list = solverOf("SolverList", {solverOf("SolverList", json::array({pcg})), gmres});
  for (const Device& device : testDevices()) {
    std::vector<double> norms;
    int iter = -7;
    double relres = -7;
    const auto apart =
        after<Solver>(device, {pcg, gmres}, [&](auto& solver, auto& A, auto& b, auto& x) {
          solver.solve(A, b, x, iter, relres);
          norms.push_back(Vector::residual(A, x, b));
        });
    const auto together =
        after<Solver>(device, json::array({list}), [&](auto& solver, auto& A, auto& b, auto& x) {
          std::vector<Status<double>> statuses, expected;
          solver.observer = [&](int k, double r, double relR0, double relB) {
            statuses.push_back({k, r, relR0, relB});
          };
          const double normb = Vector::normL2(b), r0 = Vector::residual(A, x, b);
          for (const double r : norms) {
            expected.push_back({static_cast<int>(expected.size()), r, r / r0, r / normb});
          }
          solver.solve(A, b, x, iter, relres);
          EXPECT_EQ(statuses, expected);
          EXPECT_EQ(relres, norms[1] / normb);
          EXPECT_EQ(iter, 0) << "whatever the members did";
        });
    EXPECT_EQ(together, apart);
  }
}

/// A run of a list of solvers on [2 0; 0 8], b = (3, 4).
SolveRecord<double> runList(Solver& list) { return runSolver(list, {2, 0, 0, 8}, {3, 4}, {0, 0}); }

TEST(SolverList, PrintsItsTable) {
  const json one = solverOf("SolverPCG", {{"max_its", 1}}), none = solverOf("NoSuch");
  const auto list = make<Solver>(
      solverOf("SolverList", {one, none, solverOf("SolverPCG"), solverOf("SolverPreOnly")}));
  list->verbose = 2;
  const auto out = runList(*list);
  // the residual after one step is 360 / 146; the next member ends below the tolerance
  EXPECT_EQ(out.history.size(), 2u);
  EXPECT_LT(out.relres, 1e-8);
  EXPECT_THAT(
      withoutTimes(out.text),
      testing::MatchesRegex(
          "I 0/1 ParOperator:83. Begin solving equation: size 2 solver SolverList device cpu:0\n"
          "I 0/1 ParOperator:86. [^\n]*\n"
          "I 0/1 ParOperator:100.        0  2.465753e.00  4.931507e-01  4.931507e-01  "
          "4.931507e-01\n"
          "I 0/1 ParOperator:100.        2  [^\n]*\n"
          "[^\n]*Finish solving using SolverList, iter/max_its 0/2000, res_b [^\n]*\n"));

  const auto empty = make<Solver>(solverOf("SolverList", json::array()));
  empty->verbose = 1;
  const auto start = runList(*empty);
  EXPECT_EQ(start.iter, 0);
  EXPECT_EQ(start.relres, 1);
  EXPECT_EQ(start.x, (std::vector<double>{0, 0}));
  EXPECT_TRUE(start.history.empty());
  EXPECT_THAT(start.text, testing::HasSubstr("Begin solving"));
  EXPECT_THAT(start.text, testing::HasSubstr("iter/max_its 0/2000, res_b 1,"));
}

TEST(SolverList, GivesItsOwnPreconditionerToItsMembers) {
  const json pcg = solverOf("SolverPCG", {{"preconditioner", precondOf("PrecondJacobi")}});
  const auto list = make<Solver>(solverOf("SolverList", {pcg, solverOf("SolverPreOnly")}));
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
  for (const json& bad : {json(5), json("x"), json(true), json{{"rtol", 1e-3}}}) {
    EXPECT_THROW(make<Smoother>(smootherOf("SmootherList", bad)), json::type_error) << bad;
    EXPECT_THROW(make<Precond>(precondOf("PrecondList", bad)), json::type_error) << bad;
    EXPECT_THROW(make<Solver>(solverOf("SolverList", bad)), json::type_error) << bad;
  }
}

}  // namespace
}  // namespace mivo::test
