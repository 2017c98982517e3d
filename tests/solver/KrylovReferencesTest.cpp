// SPDX-License-Identifier: Apache-2.0
// Solvers against the formulas of their methods, step by step and to the bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <functional>
#include <vector>

#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {
namespace {

/// A system with a diagonal preconditioner, a start, and where to end.
template <class T>
struct Problem {
  using R = RealType<T>;
  std::vector<T> A, d, b, start;
  R rtol;
  int limit;
};

/// Iterates and norms of a method; `r` is the first residual.
template <class T>
struct Steps {
  using R = RealType<T>;
  std::vector<T> x, r;
  std::vector<Status<R>> history;
  R r0, bnorm;

  explicit Steps(const Problem<T>& p)
      : x(p.start), r(denseAxpby(p.A, T(-1), x, T(1), p.b)), r0(normOf(r)), bnorm(normOf(p.b)) {
    log(0, r0);
  }
  void log(int k, R res) { history.push_back({k, res, res / r0, res / bnorm}); }
  bool goOn(const Problem<T>& p) const {
    return history.back().r > p.rtol * r0 && history.back().iter < p.limit;
  }
};

template <class T>
Steps<T> conjugateGradients(const Problem<T>& problem) {
  Steps<T> s(problem);
  std::vector<T> p;
  T rho(0);
  for (int k = 1; s.goOn(problem); ++k) {
    const auto z = scaledBy(problem.d, s.r);
    const T rhoNew = dotOf(s.r, z);
    p = k == 1 ? z : combined(T(1), z, rhoNew / rho, p);
    rho = rhoNew;
    const auto q = denseProduct(problem.A, p);
    const T alpha = rho / dotOf(p, q);
    s.x = combined(alpha, p, T(1), s.x);
    s.r = combined(-alpha, q, T(1), s.r);
    s.log(k, normOf(s.r));
  }
  return s;
}

template <class T>
Steps<T> stabilizedBiconjugateGradients(const Problem<T>& problem) {
  Steps<T> s(problem);
  const auto rhat = s.r;
  std::vector<T> p, v;
  T rhoOld(0), alpha(0), omega(0);
  for (int k = 1; s.goOn(problem); ++k) {
    const T rho = dotOf(s.r, rhat);
    const T beta = alpha * rho / (rhoOld * omega);
    p = k == 1 ? s.r : combined(T(1), s.r, beta, combined(T(1), p, -omega, v));
    const auto phat = scaledBy(problem.d, p);
    v = denseProduct(problem.A, phat);
    alpha = rho / dotOf(rhat, v);
    const auto half = combined(T(1), s.r, -alpha, v), shat = scaledBy(problem.d, half);
    const auto t = denseProduct(problem.A, shat);
    omega = dotOf(t, half) / dotOf(t, t);
    s.x = combined(T(1), s.x, T(1), combined(omega, shat, alpha, phat));
    s.r = combined(T(1), half, -omega, t);
    rhoOld = rho;
    s.log(k, normOf(s.r));
  }
  return s;
}

template <class T>
T root(const T& a) {
  if constexpr (kIsComplex<T>) {
    const auto out = std::sqrt(std::complex<RealType<T>>(a.re, a.im));
    return {out.real(), out.imag()};
  } else {
    return std::sqrt(a);
  }
}

/// Cycles of 3 columns and up to 2 kept corrections, with full tables.
template <class T>
Steps<T> augmentedMinimalResiduals(const Problem<T>& problem) {
  using R = RealType<T>;
  using Table = std::vector<std::vector<T>>;
  constexpr int k0 = 3, augk = 2, m = k0 + augk;
  Steps<T> s(problem);
  const std::size_t n = s.x.size();
  Table V(m + 2), Z(m + 2), aug(augk, std::vector<T>(n, T(0)));
  int it = 0;
  for (int c = 0; it < problem.limit; ++c) {
    const int length = k0 + std::min(c, augk);
    Table H(m + 2, std::vector<T>(m + 2));
    std::vector<T> g(m + 2), cs(m + 2), sn(m + 2);
    R res = normOf(s.r);
    V[0] = s.r;
    for (T& v : V[0]) v *= T(1 / res);
    g[0] = T(res);
    std::size_t i = 0;
    for (; i < std::size_t(length) && res > problem.rtol * s.r0 && it < problem.limit; ++i) {
      Z[i] = scaledBy(problem.d, i < k0 ? V[i] : aug[i - k0]);
      auto w = denseProduct(problem.A, Z[i]);
      for (std::size_t j = 0; j <= i; ++j) {
        H[j][i] = dotOf(w, V[j]);
        w = combined(-H[j][i], V[j], T(1), w);
      }
      const R norm = normOf(w);
      const T hn = T(norm);
      for (T& v : w) v *= T(1 / norm);
      V[i + 1] = w;
      for (std::size_t j = 0; j < i; ++j) {
        const T t = cs[j] * H[j][i] + sn[j] * H[j + 1][i];
        H[j + 1][i] = cs[j] * H[j + 1][i] - sn[j] * H[j][i];
        H[j][i] = t;
      }
      const T rho = root(H[i][i] * H[i][i] + hn * hn);
      cs[i] = H[i][i] / rho;
      sn[i] = hn / rho;
      g[i + 1] = -sn[i] * g[i];
      g[i] = cs[i] * g[i];
      H[i][i] = H[i][i] * cs[i] + hn * sn[i];
      s.log(++it, res = abs(g[i + 1]));
    }
    std::vector<T> y(g.begin(), g.begin() + long(i)), fix(n, T(0)), keep(n, T(0));
    for (std::size_t j = i; j-- > 0;) {
      for (std::size_t l = j + 1; l < i; ++l) y[j] -= H[j][l] * y[l];
      y[j] = y[j] / H[j][j];
    }
    for (std::size_t j = 0; j < i; ++j) {
      fix = combined(y[j], Z[j], T(1), fix);
      keep = combined(y[j], j < k0 ? V[j] : aug[j - k0], T(1), keep);
    }
    s.x = combined(T(1), fix, T(1), s.x);
    aug[std::size_t(c % augk)] = keep;
    if (problem.rtol * s.r0 >= res) break;
    s.r = denseAxpby(problem.A, T(-1), s.x, T(1), problem.b);
  }
  return s;
}

template <class T>
class KrylovReferences : public testing::Test {};
TYPED_TEST_SUITE(KrylovReferences, ScalarTypes);

/// A method with its products and applications of the preconditioner in each step.
template <class T>
struct Method {
  std::string solver;
  std::function<Steps<T>(const Problem<T>&)> reference;
  int work;
};

// Where the method is made for the system, its solution is found as well.
TYPED_TEST(KrylovReferences, AreFollowedToTheBit) {
  using T = TypeParam;
  using R = RealType<T>;
  const R rtol = sizeof(R) == sizeof(float) ? R(1e-5) : R(1e-12);
  const std::vector<Method<T>> methods = {{"SolverPCG", conjugateGradients<T>, 1},
                                          {"SolverBiCGSTAB", stabilizedBiconjugateGradients<T>, 2},
                                          {"SolverFLGMRES_R", augmentedMinimalResiduals<T>, 1}};
  for (const auto& [name, reference, work] : methods) {
    const bool definite = name == "SolverPCG", cycles = name == "SolverFLGMRES_R";
    for (const std::size_t n : {3, 9, 33}) {
      for (const bool isReal : {true, false}) {
        for (const bool zeroStart : {true, false}) {
          if (cycles && !zeroStart) continue;
          const bool solves = isReal || definite;
          Problem<T> p{definite ? positiveDefinite<T>(n, 5) : unsymmetric<T>(n, 5, isReal),
                       std::vector<T>(n),
                       smallValues<T>(n, 6),
                       std::vector<T>(n, T(0)),
                       rtol,
                       solves   ? 2000
                       : cycles ? 11
                                : 4};
          if (!zeroStart) p.start = smallValues<T>(n, 7);
          for (auto* vector : {&p.b, &p.start}) {
            for (T& v : *vector) v = isReal ? T(realPart(v)) : v;
          }
          for (std::size_t i = 0; i < n; ++i) p.d[i] = T(1) / p.A[i * n + i];
          const Steps<T> steps = reference(p);
          json params = {{"rtol", rtol}, {"max_its", p.limit}};
          if (cycles) params.update({{"restart", 3}, {"augk", 2}});
          for (const Device& device : testDevices()) {
            SCOPED_TRACE(name + std::to_string(n) + device.getString());
            const auto out =
                runSolver<T>(*makeSolverOf<T>(name, params), device, p.A, p.d, p.b, p.start);
            EXPECT_EQ(out.history, steps.history) << isReal << zeroStart;
            EXPECT_EQ(out.x, steps.x);
            EXPECT_EQ(out.iter, steps.history.back().iter);
            EXPECT_EQ(out.relres, steps.history.back().relB);
            EXPECT_EQ(out.applications, work * out.iter);
            EXPECT_TRUE(cycles || out.products == work * out.iter + (zeroStart ? 0 : 1));
            EXPECT_EQ(out.text, "");
            if (!solves) continue;
            EXPECT_TRUE(cycles || out.iter <= static_cast<int>(n)) << "exact after n steps";
            const auto exact = denseSolve(p.A, p.b);
            for (std::size_t i = 0; i < n; ++i) EXPECT_LT(abs(out.x[i] - exact[i]), 100 * rtol);
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace mivo::test
