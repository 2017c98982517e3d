// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "mivo/solver/SolverAdamW.hpp"
#include "mivo/utils/Factory.hpp"
#include "tests/support/operators.hpp"
#include "tests/support/ranks.hpp"

namespace mivo {
namespace {

using test::HostCsr;
using test::ownColumn;
using test::ownPart;

/// The method on plain arrays: what each step logs, and the last x.
template <class T>
struct Reference {
  using R = RealType<T>;
  std::vector<T> x;
  std::vector<R> residuals, ratios;
  int iterations = 1;
  R rel = R(0);

  Reference(const HostCsr<T>& A, const std::vector<T>& b, std::vector<T> start,
            const SolverAdamW_T<T, long, int>& s)
      : x(std::move(start)) {
    const std::size_t n = b.size();
    std::vector<T> m(n, T(0));
    std::vector<R> v(n, R(0)), vmax(n, R(0));
    R normb(0);
    for (const T& value : b) normb += absSquared(value);
    normb = std::sqrt(normb);
    const auto lr = static_cast<R>(s.learning_rate), decay = static_cast<R>(s.weight_decay);
    const auto b1 = static_cast<R>(s.beta1), b2 = static_cast<R>(s.beta2);
    for (; iterations <= s.max_its; ++iterations) {
      std::vector<T> g = b;
      R res(0);
      for (std::size_t i = 0; i < n; ++i) {
        for (const auto& [j, a] : A.row(static_cast<int>(i)))
          g[i] -= a * x[static_cast<std::size_t>(j)];
        res += absSquared(g[i]);
      }
      residuals.push_back(std::sqrt(res));
      ratios.push_back(rel);
      rel = residuals.back() / normb;
      if (s.rtol > rel) break;
      const auto t = static_cast<R>(iterations);
      for (std::size_t i = 0; i < n; ++i) {
        const T d = s.maximize ? g[i] : T(-1) * g[i];
        x[i] = x[i] * T(R(1) - lr * decay);
        m[i] = T(R(1) - b1) * d + T(b1) * m[i];
        v[i] = b2 * v[i] + (R(1) - b2) * absSquared(d);
        vmax[i] = std::max(v[i], vmax[i]);
        const R vhat = (s.amsgrad ? vmax[i] : v[i]) / (R(1) - std::pow(b2, t));
        const T mhat = m[i] / T(R(1) - std::pow(b1, t));
        x[i] = x[i] - T(lr) * mhat / T(std::sqrt(vhat) + static_cast<R>(s.epsilon));
      }
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
  const auto off = test::randomCsr<T>(rng, n, n);
  const auto a = HostCsr<T>::build(n, n, [&](int i, HostCsr<T>& out) {
    for (const auto& [j, v] : off.row(i)) {
      if (j != i) out.push(j, v);
    }
    out.push(i, T(R(40)));
  });
  const auto b = test::smallVector<T>(rng, n), start = test::smallVector<T>(rng, n);
  // The last one reaches its tolerance before its last step.
  const std::vector<json> cases = {
      {{"max_its", 6}},
      {{"max_its", 6}, {"amsgrad", true}, {"learning_rate", 0.05}, {"weight_decay", 0.2}},
      {{"max_its", 3}, {"maximize", true}, {"beta1", 0.5}, {"beta2", 0.9}, {"epsilon", 0.01}},
      {{"max_its", 0}},
      {{"max_its", 100}, {"learning_rate", 0.5}, {"rtol", 8}}};
  const R eps = std::numeric_limits<R>::epsilon();
  const auto cuts = test::worldCuts<long>(n, rng);
  for (const auto& part : {cuts.front(), cuts.back()}) {
    for (const Device& device : test::rankDevices()) {
      auto A = test::distributed<T, long>(device, part, part, a);
      const auto rhs = ownColumn(device, part, b);
      for (const json& params : cases) {
        const auto solver = std::dynamic_pointer_cast<SolverAdamW_T<T, long, int>>(
            ParSolverT<T, long, int>::getFactory().createInstance(
                {{"solver_type", "SolverAdamW"}, {"SolverAdamW_params", params}}));
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

        const Reference<T> reference(a, b, start, *solver);
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
