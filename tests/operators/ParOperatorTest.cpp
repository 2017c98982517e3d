// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "mivo/operators/ParOperatorIdentity.hpp"
#include "mivo/utils/Complex.hpp"
#include "tests/support/devices.hpp"
#include "tests/support/operators.hpp"

namespace mivo::test {
namespace {

using OperatorPtr = std::shared_ptr<ParOperator>;

OperatorPtr node(const std::string& family, const std::string& name, const std::string& tag = "") {
  auto op = std::make_shared<ParOperator>();
  op->family_name = family;
  op->registered_name = name;
  op->tagName = tag;
  return op;
}

std::string described(const ParOperator& op, int level) {
  std::ostringstream out;
  op.describe(out, level);
  return out.str();
}

TEST(ParOperator, DescribesTheTreeWithRolesAndTags) {
  const OperatorPtr solver = node("ParSolverT", "SolverPCG");
  EXPECT_EQ(described(*solver, 0), "ParSolverT SolverPCG\n");

  const OperatorPtr preconditioner = node("ParPreconditionerT", "PrecondList");
  const OperatorPtr smoother = node("ParSmootherT", "SmootherJacobi", "inner");
  solver->appendChild(preconditioner, "preconditioner");
  solver->appendChild(nullptr, "nobody");
  preconditioner->appendChild(smoother, "smoother");
  preconditioner->appendChild(node("ParSmootherT", "SmootherSOR", "t"), "");
  EXPECT_EQ(described(*solver, 0),
            "ParSolverT SolverPCG\n"
            "  preconditioner ParPreconditionerT PrecondList\n"
            "    smoother[inner] ParSmootherT SmootherJacobi\n"
            "    [t] ParSmootherT SmootherSOR\n");
  EXPECT_EQ(described(*smoother, 3), "      smoother[inner] ParSmootherT SmootherJacobi\n");
}

TEST(ParOperator, FindsTheFirstTagDepthFirst) {
  const OperatorPtr root = node("F", "root", "root");
  const OperatorPtr left = node("F", "left", "l"), deep = node("F", "deep", "x");
  const OperatorPtr right = node("F", "right", "x"), untagged = node("F", "untagged");
  root->appendChild(left, "a");
  left->appendChild(deep, "b");
  root->appendChild(right, "c");
  root->appendChild(untagged, "d");
  EXPECT_EQ(ParOperator::findOpByTagName(root, "x"), deep);
  EXPECT_EQ(ParOperator::findOpByTagName(root, "root"), root);
  EXPECT_EQ(ParOperator::findOpByTagName(root, ""), untagged);
  EXPECT_EQ(ParOperator::findOpByTagName(root, "missing"), nullptr);
}

TEST(ParOperator, KeepsOneCallbackForEachTagAndPlace) {
  ParOperator op;
  std::string calls;
  op.registerCallBack("t", CallBackPlace::Before, [&](OperatorPtr) { calls += "old"; });
  op.registerCallBack("t", CallBackPlace::After, [&](OperatorPtr) { calls += "after "; });
  op.registerCallBack("t", CallBackPlace::Before, [&](OperatorPtr) { calls += "before "; });
  op.getCallBack("t", CallBackPlace::Before)(nullptr);
  op.getCallBack("t", CallBackPlace::After)(nullptr);
  EXPECT_EQ(calls, "before after ");

  EXPECT_FALSE(op.getCallBack("unknown", CallBackPlace::Before));
  EXPECT_EQ(op.callbacks.size(), 1u) << "asking makes no entry";
  op.registerCallBack("one", CallBackPlace::Before, nullptr);
  EXPECT_FALSE(op.getCallBack("one", CallBackPlace::Before));
  EXPECT_FALSE(op.getCallBack("one", CallBackPlace::After));
}

TEST(ParOperator, CopiesShareTheChildren) {
  ParOperator op;
  op.reserved = 5;
  op.tagName = "t";
  op.registerCallBack("t", CallBackPlace::After, [](OperatorPtr) {});
  op.appendChild(node("F", "child"), "role");
  const ParOperator copy(op);
  ParOperator assigned;
  assigned = op;
  op.children.front()->tagName = "changed";
  op.appendChild(node("F", "second"), "role");
  for (const ParOperator* other : {&copy, &std::as_const(assigned)}) {
    EXPECT_EQ(other->reserved, 5);
    EXPECT_EQ(other->tagName, "t");
    EXPECT_TRUE(other->getCallBack("t", CallBackPlace::After));
    ASSERT_EQ(other->children.size(), 1u);
    EXPECT_EQ(other->children.front()->tagName, "changed");
  }
}

TEST(AsyncMatVecObject, WaitsForTheResultOrItsException) {
  ParMatrixFreeT<double, long, int>::AsyncMatVecObject async;
  async.arm().set_value(7);
  EXPECT_EQ(async.wait(), 7);
  async.arm().set_exception(std::make_exception_ptr(std::runtime_error("broken")));
  EXPECT_THROW(async.wait(), std::runtime_error);
}

TEST(Identity, CopiesInEveryRoleAndKeepsWhatItShouldNotTouch) {
  using T = Complex<double>;
  using Vector = ParMatrixT<T, long, int>;
  const std::vector<T> values{1, T(-2, 1), 3}, doubled{2, T(-4, 2), 6}, old{7, 7, 7};
  for (const Device& device : testDevices()) {
    ParOperatorIdentityT<T, long, int> identity;
    EXPECT_EQ(identity.getRows() + identity.getCols(), 0);
    identity.setup(identity);
    DiagonalPreconditioner<T> twice(parVectorOf<T>(device, {2, 2, 2}));
    int iter = 9;
    double relres = 5;
    // As a solver it is one application of the preconditioner, its own or the one that is given.
    const std::pair<std::function<void(const Vector&, Vector&)>, std::vector<T>> roles[] = {
        {[&](auto& x, auto& y) { identity.aAxpby(2, x, 3, y, nullptr); }, values},
        {[&](auto& x, auto& y) { identity.matVec(x, y, nullptr); }, values},
        {[&](auto& x, auto& y) { identity.precondition(x, y); }, values},
        {[&](auto& x, auto& y) { identity.smooth(x, y); }, old},
        {[&](auto& x, auto& y) { identity.solve(identity, x, y, iter, relres); }, values},
        {[&](auto& x, auto& y) { identity.solve(twice, identity, x, y, iter, relres); }, doubled}};
    for (const auto& [apply, expected] : roles) {
      const Vector x = parVectorOf<T>(device, values);
      Vector y = parVectorOf<T>(device, old);
      apply(x, y);
      EXPECT_EQ(valuesOf(y), expected);
      EXPECT_NE(y.getLocalMatrix().getData(), x.getLocalMatrix().getData());
    }
    EXPECT_EQ(iter, 9);
    EXPECT_EQ(relres, 5);
  }
}

}  // namespace
}  // namespace mivo::test
