// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "mivo/mivo.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/values.hpp"

namespace mivo::test {
namespace {

template <class Base>
std::set<std::string> namesOf() {
  std::set<std::string> names;
  for (const auto& [name, info] : Base::getFactory().getMap()) names.insert(name);
  return names;
}

template <class T>
class Families : public testing::Test {
 protected:
  template <template <class, class, class> class... Base>
  static void expectNamesOfDouble() {
    EXPECT_EQ((std::vector{namesOf<Base<T, long, int>>()...}),
              (std::vector{namesOf<Base<double, long, int>>()...}));
  }
  template <template <class, class, class> class... Base>
  static void makeAll() {
    const auto make = [](auto& factory) {
      for (const auto& [name, info] : factory.getMap()) {
        const auto object = factory.createInstance(json{{factory.getKey(), name}});
        ASSERT_NE(object, nullptr) << name;
        EXPECT_EQ(object->registered_name, name);
        EXPECT_EQ(object->family_name, info.base_name);
        EXPECT_EQ(object->tagName, "");
      }
    };
    (make(Base<T, long, int>::getFactory()), ...);
  }
};
TYPED_TEST_SUITE(Families, ScalarTypes);

// The names for double are those of the configuration's schema, which a test of the driver sees.
TYPED_TEST(Families, HaveTheSameNamesInEveryType) {
  using T = TypeParam;
  EXPECT_EQ((namesOf<ParMatrixFreeT<T, long, int>>()), std::set<std::string>{"Identity"});
  this->template expectNamesOfDouble<ParPreconditionerT, ParLevelTransferT, ParAggregatorT,
                                     ParInterpolatorT>();
  auto smoothers = namesOf<ParSmootherT<double, long, int>>();
  auto solvers = namesOf<ParSolverT<double, long, int>>();
  if (std::is_same_v<T, float>) {
    // the one name that stands in another family for float, and one that it lacks
    EXPECT_EQ(solvers.erase("SolverJacobiLp"), 1u);
    smoothers.insert("SolverJacobiLp");
    smoothers.erase("SmootherList");
  }
  EXPECT_EQ((namesOf<ParSmootherT<T, long, int>>()), smoothers);
  EXPECT_EQ((namesOf<ParSolverT<T, long, int>>()), solvers);
  const bool inDouble = std::is_same_v<RealType<T>, double>;
  EXPECT_EQ((namesOf<TestCaseT<T, long, int>>().size()), inDouble ? 2u : 0u);
  EXPECT_EQ((namesOf<TestCaseT<T, int, int>>().size()), inDouble ? 1u : 0u);
}

TYPED_TEST(Families, MakeEveryNameWithoutParameters) {
  this->template makeAll<ParMatrixFreeT, ParPreconditionerT, ParSmootherT, ParSolverT,
                         ParLevelTransferT, ParAggregatorT, ParStrengtherT, ParSplitterT,
                         ParInterpolatorT, TestCaseT>();
}

/// A family of this test alone, with a class that makes a child.
class Leaf : public ParOperator {
 public:
  static Factory<Leaf>& getFactory() {
    static Factory<Leaf> factory("leaf_type");
    return factory;
  }
  void create(const json& params) {
    readJsonKey(params, "value", value);
    json child;
    if (readJsonKey(params, "child", child)) {
      appendChild(getFactory().createInstance(child, this), "child");
    }
  }
  int value = 1;
};
const FactoryRegisterer<Leaf, Leaf> registeredLeaf("Leaf", "Plain");

TEST(Factory, ReadsParametersOnlyFromAnObject) {
  auto& factory = Leaf::getFactory();
  const auto value = [&](const json& j) { return factory.createInstance(j)->value; };
  EXPECT_EQ(value({{"leaf_type", "Plain"}, {"Plain_params", {{"value", 5}}}}), 5);
  EXPECT_EQ(value({{"leaf_type", "Plain"}, {"Plain_params", {{"other", 5}}}}), 1);
  EXPECT_EQ(value({{"leaf_type", "Plain"}, {"Plain_params", 5}}), 1);
  EXPECT_EQ(value({{"leaf_type", "Plain"}}), 1);
  EXPECT_THROW(value({{"leaf_type", "Plain"}, {"Plain_params", {{"value", "5"}}}}),
               json::type_error);
  EXPECT_THROW(value({{"leaf_type", 3}}), json::type_error);
}

TEST(Factory, RunsTheCallbacksOfTheParentAroundTheCreation) {
  ParOperator parent;
  std::vector<std::string> calls;
  parent.registerCallBack("t", CallBackPlace::Before, [&](std::shared_ptr<ParOperator> op) {
    calls.push_back(op == nullptr ? "before" : "?");
  });
  parent.registerCallBack("t", CallBackPlace::After, [&](std::shared_ptr<ParOperator> op) {
    calls.push_back("after " + op->registered_name + " " + op->tagName);
    std::dynamic_pointer_cast<Leaf>(op)->value = 77;
  });
  const json tagged{{"leaf_type", "Plain"}, {"tagName", "t"}};
  EXPECT_EQ(Leaf::getFactory().createInstance(tagged, &parent)->value, 77);
  EXPECT_EQ(calls, (std::vector<std::string>{"before", "after Plain t"}));

  calls.clear();
  EXPECT_EQ(Leaf::getFactory().createInstance(tagged)->tagName, "t");
  Leaf::getFactory().createInstance({{"leaf_type", "Plain"}, {"tagName", "u"}}, &parent);
  Leaf::getFactory().createInstance({{"leaf_type", "Plain"}}, &parent);
  EXPECT_TRUE(calls.empty());
}

TEST(Factory, BuildsTheTreeOfNestedObjects) {
  const json j = json::parse(R"({"leaf_type": "Plain", "tagName": "root", "Plain_params": {
    "child": {"leaf_type": "Plain", "tagName": "inner", "Plain_params": {"value": 3}}}})");
  const std::shared_ptr<ParOperator> root = Leaf::getFactory().createInstance(j);
  const auto inner = std::dynamic_pointer_cast<Leaf>(ParOperator::findOpByTagName(root, "inner"));
  ASSERT_NE(inner, nullptr);
  EXPECT_EQ(inner->value, 3);
  EXPECT_EQ(inner->role, "child");
}

TEST(Factory, KeepsTheFirstRegistrationOfAName) {
  class Other : public Leaf {
   public:
    void create(const json&) { value = -1; }
  };
  const FactoryRegisterer<Leaf, Other> second("Other", "Plain");
  EXPECT_EQ(Leaf::getFactory().createInstance({{"leaf_type", "Plain"}})->value, 1);
}

TEST(Factory, EndsTheProcessWithoutTheFamilyKey) {
  for (const json& j : {json::object(), json{{"a", {1, 2}}}, json("leaf_type")}) {
    MIVO_EXPECT_FATAL(Leaf::getFactory().createInstance(j), "Factory:64",
                      "json " + j.dump() + " not contains key leaf_type");
  }
}

TEST(FactoryMessages, AnUnknownNameGivesNullAndIsReportedFromLevelOne) {
  const auto action = [] {
    if (Leaf::getFactory().createInstance({{"leaf_type", "NoSuch"}}) != nullptr) std::exit(3);
  };
  const std::string text =
      "I 0/1 Factory:54] getCreator NoSuch failed\n\n"
      "I 0/1 Factory:74] createInstance NoSuch failed\n\n";
  MIVO_EXPECT_PRINTED_AT("0", action(), testing::Eq(""));
  MIVO_EXPECT_PRINTED_AT("1", action(), testing::Eq(text));
}

TEST(FactoryMessages, CreationAndSpecialParametersAreTracedAtLevelThree) {
  const auto action = [] {
    Leaf::getFactory().createInstance({{"leaf_type", "Plain"}, {"Plain_params", {{"value", 5}}}});
    Leaf::getFactory().createInstance({{"leaf_type", "Plain"}});
    getJsonByKey({{"key_2", 5}}, "key", 2);
    getJsonByKey({{"key_2", 5}}, "key", 1);
  };
  MIVO_EXPECT_PRINTED_AT("2", action(), testing::Eq(""));
  const std::string made = "I 0/1 Factory:82] Leaf::createInstance: name Plain, params ";
  MIVO_EXPECT_PRINTED_AT("3", action(),
                         testing::Eq(made + "{\"value\":5}\n\n" + made + "null\n\n" +
                                     "I 0/1 ParPreconditionerAMG:9] use special params key_2\n"));
}

TEST(Json, PrefersTheKeyOfTheLevel) {
  const json j{{"key", 1}, {"key_2", 22}, {"key_-1", 33}};
  EXPECT_EQ(getJsonByKey(j, "key", 2), 22);
  EXPECT_EQ(getJsonByKey(j, "key", -1), 33);
  EXPECT_EQ(getJsonByKey(j, "key", 0), 1);
  EXPECT_TRUE(getJsonByKey(j, "other", 2).is_null());
  EXPECT_TRUE(getJsonByKey(json(), "key", 2).is_null());
  EXPECT_THROW(getJsonByKey(json::array(), "key", 2), json::type_error);
}

TEST(Json, RefusesNumbersThatAnIntegerKeyCannotHold) {
  const auto read = [](const char* text, auto field) {
    readJsonKey(json::parse(text), "n", field);
    return field;
  };
  EXPECT_EQ(read(R"({"n": 2147483647})", 0), 2147483647);
  EXPECT_EQ(read(R"({"n": -2147483648})", 0), std::numeric_limits<int>::min());
  EXPECT_EQ(read(R"({"n": 2147483647.5})", 0), 2147483647);
  EXPECT_EQ(read(R"({"n": 18446744073709551615})", 0UL), ~0UL);
  const auto refuses = [&](const std::string& number, auto field) {
    EXPECT_THROW(read(("{\"n\": " + number + "}").c_str(), field), json::out_of_range) << number;
  };
  for (const char* number :
       {"2147483648", "-2147483649", "18446744073709551615", "1e300", "-2147483649.0"}) {
    refuses(number, 0);
  }
  refuses("-1", 0U), refuses("9223372036854775808", 0L), refuses("18446744073709551616", 0UL);
}

TEST(Plugin, AddsNewNamesAndCannotReplaceOldOnes) {
  auto& factory = ParPreconditionerT<double, long, int>::getFactory();
  ASSERT_EQ(factory.getMap().count("PrecondFromPlugin"), 0u);
  Utils::loadPlugin(MIVO_TEST_PLUGIN);
  const auto added = factory.createInstance(
      {{"preconditioner_type", "PrecondFromPlugin"}, {"PrecondFromPlugin_params", {{"tag", "p"}}}});
  ASSERT_NE(added, nullptr);
  EXPECT_EQ(added->role, "p") << "the plugin's own create has run";
  EXPECT_EQ(added->family_name, "ParPreconditionerT");

  const auto kept = factory.createInstance({{"preconditioner_type", "PrecondIdentity"}});
  EXPECT_NE((std::dynamic_pointer_cast<ParOperatorIdentityT<double, long, int>>(kept)), nullptr);
}

}  // namespace
}  // namespace mivo::test
