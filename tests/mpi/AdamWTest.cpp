// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "mivo/ops/BlasOps.hpp"
#include "mivo/solver/SolverAdamW.hpp"
#include "tests/support/krylov.hpp"
#include "tests/support/ranks.hpp"

namespace mivo {
namespace {

using test::ownColumn;
using test::ownPart;

/// The method on plain arrays, with the kernel of a step: what each step logs, and the last x.
template <class T>
struct Reference {
  using R = RealType<T>;
  std::vector<T> x;
  std::vector<R> residuals, ratios;
  int iterations = 1;
  R rel = R(0);

  Reference(const std::vector<T>& A, const std::vector<T>& b, std::vector<T> start,
            const SolverAdamW_T<T, long, int>& s)
      : x(std::move(start)) {
    std::vector<T> m(b.size(), T(0));
    std::vector<R> v(b.size(), R(0)), vmax(v);
    for (; iterations <= s.max_its; ++iterations) {
      std::vector<T> g = test::denseAxpby(A, T(-1), x, T(1), b);
      residuals.push_back(test::normOf(g));
      ratios.push_back(rel);
      rel = residuals.back() / test::normOf(b);
      if (s.rtol > rel) break;
      if (!s.maximize) g = test::combined(T(-1), g, T(0), g);
      BlasOps<T, int>::adamw_step(Device(), static_cast<int>(b.size()), g.data(), x.data(),
                                  m.data(), v.data(), vmax.data(), T(R(s.learning_rate)),
                                  R(s.beta1), R(s.beta2), R(s.epsilon), T(R(s.weight_decay)),
                                  s.amsgrad ? 1 : 0, iterations);
    }
  }
};

template <class T>
class AdamW : public testing::Test {};
using Scalars = testing::Types<float, double, Complex<float>, Complex<double>>;
TYPED_TEST_SUITE(AdamW, Scalars);

TYPED_TEST(AdamW, StepsAsTheFormulasSay) {
  using T = TypeParam;
  using R = RealType<T>;
  std::mt19937 rng(7);
  const int n = 13;
  const auto a = test::dominatedCsr<T>(rng, n);
  const auto b = test::smallVector<T>(rng, n), start = test::smallVector<T>(rng, n);
  // The last one reaches its tolerance before its last step.
  const std::vector<json> cases = {
      {{"max_its", 6}},
      {{"max_its", 6}, {"amsgrad", true}, {"learning_rate", 0.05}, {"weight_decay", 0.2}},
      {{"max_its", 3}, {"maximize", true}, {"beta1", 0.5}, {"beta2", 0.9}, {"epsilon", 0.01}},
      {{"max_its", 0}},
      {{"max_its", 100}, {"learning_rate", 0.5}, {"rtol", 20}}};
  const R eps = std::numeric_limits<R>::epsilon();
  const auto cuts = test::worldCuts<long>(n, rng);
  for (const auto& part : {cuts.front(), cuts.back()}) {
    for (const Device& device : test::rankDevices()) {
      auto A = test::distributed<T, long>(device, part, part, a);
      const auto rhs = ownColumn(device, part, b);
      for (const json& params : cases) {
        const auto solver = test::makeSolver<SolverAdamW_T<T, long, int>>("SolverAdamW", params);
        std::vector<R> residuals, ratios;
        solver->observer = [&](int iter, R r, R relR0, R relB) {
          residuals.push_back(r);
          ratios.push_back(relB);
          EXPECT_EQ(iter, static_cast<int>(residuals.size()));
          EXPECT_EQ(relR0, relB);
        };
        auto x = ownColumn(device, part, start);
        int iterations = -1;
        R relres = R(-1);
        solver->solve(A, rhs, x, iterations, relres);

        const Reference<T> reference(a.dense(), b, start, *solver);
        EXPECT_EQ(iterations, reference.iterations) << params;
        ASSERT_EQ(residuals.size(), reference.residuals.size()) << params;
        for (std::size_t k = 0; k < residuals.size(); ++k) {
          EXPECT_NEAR(residuals[k], reference.residuals[k], 4096 * eps * reference.residuals[0]);
          EXPECT_NEAR(ratios[k], reference.ratios[k], 4096 * eps * (1 + reference.ratios[k]));
        }
        EXPECT_NEAR(relres, reference.rel, 4096 * eps * (1 + reference.rel));
        const auto expected = ownPart(part, reference.x);
        const auto found = test::valuesOf(x.getLocalMatrix());
        for (std::size_t i = 0; i < expected.size(); ++i) {
          EXPECT_LE(abs(found[i] - expected[i]), 4096 * eps * (1 + abs(expected[i])));
        }
      }
    }
  }
}

}  // namespace
}  // namespace mivo
