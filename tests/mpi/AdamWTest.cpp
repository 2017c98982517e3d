// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "mivo/ops/BlasOps.hpp"
#include "mivo/solver/SolverAdamW.hpp"
#include "tests/support/krylov.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

using T = Complex<double>;
using Values = std::vector<T>;

/// The method on plain arrays, with the kernel of a step, which has a test of its own: what each
/// step logs, and the last x.
struct Reference {
  Values x;
  std::vector<double> residuals, ratios;
  int iterations = 1;
  double rel = 0;

  Reference(const Values& A, const Values& b, Values start, const SolverAdamW_T<T, long, int>& s)
      : x(std::move(start)) {
    Values m(b.size(), T(0));
    std::vector<double> v(b.size(), 0), vmax(v);
    for (; iterations <= s.max_its; ++iterations) {
      Values g = denseAxpby(A, T(-1), x, T(1), b);
      residuals.push_back(normOf(g));
      ratios.push_back(rel);
      rel = residuals.back() / normOf(b);
      if (s.rtol > rel) break;
      if (!s.maximize) g = combined(T(-1), g, T(0), g);
      BlasOps<T, int>::adamw_step(Device(), static_cast<int>(b.size()), g.data(), x.data(),
                                  m.data(), v.data(), vmax.data(), T(s.learning_rate), s.beta1,
                                  s.beta2, s.epsilon, T(s.weight_decay), s.amsgrad ? 1 : 0,
                                  iterations);
    }
  }
};

TEST(AdamW, StepsAsTheFormulasSay) {
  std::mt19937 rng(7);
  const int n = 13;
  const auto a = dominatedCsr<T>(rng, n);
  const auto b = smallVector<T>(rng, n), start = smallVector<T>(rng, n);
  const auto cuts = worldCuts<long>(n, rng);
  // The last one reaches its tolerance before its last step.
  for (const json& params :
       {json{{"max_its", 6}},
        json{{"max_its", 6}, {"amsgrad", true}, {"learning_rate", 0.05}, {"weight_decay", 0.2}},
        json{{"max_its", 3}, {"maximize", true}, {"beta1", 0.5}, {"beta2", 0.9}, {"epsilon", 0.01}},
        json{{"max_its", 0}}, json{{"max_its", 100}, {"learning_rate", 0.5}, {"rtol", 20}}}) {
    SCOPED_TRACE(params);
    const auto solver = makeSolver<SolverAdamW_T<T, long, int>>("SolverAdamW", params);
    const Reference reference(a.dense(), b, start, *solver);
    for (const auto& part : {cuts.front(), cuts.back()}) {
      for (const Device& device : rankDevices()) {
        auto A = distributed<T, long>(device, part, part, a);
        std::vector<double> residuals, ratios;
        solver->observer = [&](int iter, double r, double relR0, double relB) {
          residuals.push_back(r);
          ratios.push_back(relB);
          EXPECT_EQ(iter, static_cast<int>(residuals.size()));
          EXPECT_EQ(relR0, relB);
        };
        auto x = ownColumn(device, part, start);
        int iterations = -1;
        double relres = -1;
        solver->solve(A, ownColumn(device, part, b), x, iterations, relres);
        EXPECT_EQ(iterations, reference.iterations);
        expectNear(residuals, reference.residuals);
        expectNear(ratios, reference.ratios);
        EXPECT_NEAR(relres, reference.rel, 1e-12 * (1 + reference.rel));
        expectNear(valuesOf(x), ownPart(part, reference.x));
      }
    }
  }
}

}  // namespace
}  // namespace mivo::test
