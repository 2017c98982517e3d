// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tests/support/devices.hpp"
#include "tests/support/krylov.hpp"

namespace mivo::test {

template <class T>
using Run = SolveRecord<T>;

template <class T>
std::shared_ptr<ParSolverT<T, long, int>> makeSolverOf(const std::string& name,
                                                       const json& params = json()) {
  return ParSolverT<T, long, int>::getFactory().createInstance(
      {{"solver_type", name}, {name + "_params", params}});
}

/// Solves from zero, without preconditioner when `diagonal` is empty.
template <class T>
Run<T> solveDense(const std::string& name, const json& params, const std::vector<T>& matrix,
                  const std::vector<T>& b, std::vector<T> diagonal = {},
                  const Device& device = Device()) {
  if (diagonal.empty()) diagonal.assign(b.size(), T(1));
  return runSolver(*makeSolverOf<T>(name, params), device, matrix, diagonal, b,
                   std::vector<T>(b.size(), T(0)));
}

/// Hermitian, indefinite, and well conditioned: each diagonal element outweighs its row.
template <class T>
std::vector<T> indefinite(std::size_t n, unsigned seed) {
  std::vector<T> out = positiveDefinite<T>(n, seed);
  for (std::size_t i = 0; i < n; i += 3) out[i * n + i] = -out[i * n + i];
  return out;
}

/// A real matrix or vector in the type T.
template <class T>
std::vector<T> dressed(const std::vector<RealType<T>>& values) {
  return std::vector<T>(values.begin(), values.end());
}

/// Plain operations with real scalars.
template <class T>
struct Plain {
  using V = std::vector<T>;
  using R = RealType<T>;

  static R dot(const V& u, const V& v) { return realPart(dotOf(u, v)); }
  static void axpy(R a, const V& x, V& y) {
    for (std::size_t i = 0; i < x.size(); ++i) y[i] += x[i] * T(a);
  }
  static void scale(R a, V& x) {
    for (T& v : x) v = v * T(a);
  }
  /// b - A x as the library's own residual rounds it
  static V residual(const V& A, const V& x, const V& b) { return denseAxpby(A, T(-1), x, T(1), b); }
};

/// 1, 1/2, ... 1/5, 1, ...
template <class T>
std::vector<T> positiveDiagonal(std::size_t n) {
  std::vector<T> out(n);
  for (std::size_t i = 0; i < n; ++i) out[i] = T(1) / T(static_cast<RealType<T>>(1 + i % 5));
  return out;
}

/// Equal, or both NaN, since that may be what is expected.
template <class T>
bool same(const T& a, const T& b) {
  const auto part = [](auto u, auto v) { return u == v || (u != u && v != v); };
  return part(realPart(a), realPart(b)) && part(imagPart(a), imagPart(b));
}

/// Two solves on one object, on each device, agree with `reference` to the bit. The systems are
/// Hermitian and of no symmetry; `diagonals` makes the preconditioners for n rows.
template <class T, class Reference, class Diagonals>
void expectToFollow(const std::string& name, json params, int maxIts, Reference reference,
                    Diagonals diagonals) {
  params["rtol"] = 1e-4;
  params["max_its"] = maxIts;
  for (const Device& device : testDevices()) {
    for (const std::size_t n : {2, 31, 33}) {
      const auto b = smallValues<T>(n, 6), start = smallValues<T>(n, 7);
      for (const auto& A : {indefinite<T>(n, 5), smallValues<T>(n * n, 9)}) {
        for (const auto& M : diagonals(n)) {
          const Run<T> expected = reference(A, M, b, start, RealType<T>(1e-4), maxIts);
          const auto solver = makeSolverOf<T>(name, params);
          for (int solve = 0; solve < 2; ++solve) {
            const Run<T> run = runSolver(*solver, device, A, M, b, start);
            EXPECT_EQ(run.iter, expected.iter) << n;
            EXPECT_TRUE(same(run.relres, expected.relres)) << run.relres;
            ASSERT_EQ(run.history.size(), expected.history.size());
            for (std::size_t k = 0; k < run.history.size(); ++k) {
              const auto &u = run.history[k], &v = expected.history[k];
              EXPECT_TRUE(u.iter == v.iter && same(u.r, v.r) && same(u.relR0, v.relR0) &&
                          same(u.relB, v.relB))
                  << u << v;
            }
            for (std::size_t i = 0; i < n; ++i) {
              EXPECT_TRUE(same(run.x[i], expected.x[i])) << run.x[i] << " " << expected.x[i];
            }
          }
        }
      }
    }
  }
}

/// Each |r| is at most the one before, but for `slack` relative to it.
template <class R>
void expectNeverRising(const std::vector<Status<R>>& history, R slack = 0) {
  for (std::size_t k = 1; k < history.size(); ++k) {
    EXPECT_LE(history[k].r, history[k - 1].r * (1 + slack)) << "row " << k;
  }
}

}  // namespace mivo::test
