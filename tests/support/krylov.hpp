// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "mivo/solver/ParSolver.hpp"
#include "tests/support/operators.hpp"

// For the tests of solvers: references on host arrays, with one plain loop for each operation, and
// runs of the solver under test.
namespace mivo::test {

/// What a solver tells its observer.
template <class R>
struct Status {
  int iter;
  R r, relR0, relB;
  bool operator==(const Status& o) const {
    return iter == o.iter && r == o.r && relR0 == o.relR0 && relB == o.relB;
  }
  friend std::ostream& operator<<(std::ostream& out, const Status& s) {
    return out << '{' << s.iter << ", " << s.r << ", " << s.relR0 << ", " << s.relB << '}';
  }
};

template <class T>
T dotOf(const std::vector<T>& u, const std::vector<T>& v) {
  T sum(0);
  for (std::size_t i = 0; i < u.size(); ++i) sum += conj(u[i]) * v[i];
  return sum;
}

template <class T>
RealType<T> normOf(const std::vector<T>& u) {
  RealType<T> sum(0);
  for (const T& a : u) sum += absSquared(a);
  return std::sqrt(sum);
}

/// a x + b y
template <class T>
std::vector<T> combined(T a, const std::vector<T>& x, T b, const std::vector<T>& y) {
  std::vector<T> out(x.size());
  for (std::size_t i = 0; i < x.size(); ++i) out[i] = x[i] * a + y[i] * b;
  return out;
}

/// d .* r
template <class T>
std::vector<T> scaledBy(const std::vector<T>& d, const std::vector<T>& r) {
  std::vector<T> out(r.size());
  for (std::size_t i = 0; i < r.size(); ++i) out[i] = d[i] * r[i];
  return out;
}

template <class T>
std::vector<T> denseProduct(const std::vector<T>& A, const std::vector<T>& x) {
  return denseAxpby(A, T(1), x, T(0), x);
}

/// Solution of A x = b by elimination with pivoting.
template <class T>
std::vector<T> denseSolve(std::vector<T> A, std::vector<T> b) {
  const std::size_t n = b.size();
  for (std::size_t k = 0; k < n; ++k) {
    std::size_t pivot = k;
    for (std::size_t i = k; i < n; ++i) {
      if (abs(A[i * n + k]) > abs(A[pivot * n + k])) pivot = i;
    }
    for (std::size_t j = 0; j < n; ++j) std::swap(A[k * n + j], A[pivot * n + j]);
    std::swap(b[k], b[pivot]);
    for (std::size_t i = k + 1; i < n; ++i) {
      const T factor = A[i * n + k] / A[k * n + k];
      for (std::size_t j = k; j < n; ++j) A[i * n + j] -= factor * A[k * n + j];
      b[i] -= factor * b[k];
    }
  }
  for (std::size_t i = n; i-- > 0;) {
    for (std::size_t j = i + 1; j < n; ++j) b[i] -= A[i * n + j] * b[j];
    b[i] /= A[i * n + i];
  }
  return b;
}

template <class Solver>
std::shared_ptr<Solver> makeSolver(const std::string& name, const json& params = json()) {
  return std::dynamic_pointer_cast<Solver>(
      Solver::getFactory().createInstance({{"solver_type", name}, {name + "_params", params}}));
}

/// What a solve left behind.
template <class T>
struct SolveRecord {
  int iter = -7;
  RealType<T> relres = -7;
  std::vector<T> x;
  std::string text;                          ///< on standard output
  std::vector<Status<RealType<T>>> history;  ///< empty when nothing was logged
  int products = 0;
  int applications = 0;
};

/// Solves with a dense matrix and the diagonal preconditioner of the values d.
template <class T>
SolveRecord<T> runSolver(ParSolverT<T, long, int>& solver, const Device& device,
                         const std::vector<T>& matrix, const std::vector<T>& d,
                         const std::vector<T>& b, const std::vector<T>& start) {
  SolveRecord<T> out;
  DenseOperator<T> A(device, b.size(), matrix);
  DiagonalPreconditioner<T> P(parVectorOf(device, d));
  auto x = parVectorOf(device, start);
  const auto rhs = parVectorOf(device, b);
  solver.observer = [&](int iter, RealType<T> r, RealType<T> relR0, RealType<T> relB) {
    out.history.push_back({iter, r, relR0, relB});
  };
  solver.setup(A);
  out.text = printed([&] { solver.solve(P, A, rhs, x, out.iter, out.relres); });
  solver.observer = nullptr;
  EXPECT_EQ(P.setups, 0) << "the set-up of the preconditioner is left to the caller";
  out.x = valuesOf(x);
  out.products = A.products;
  out.applications = P.applications;
  return out;
}

template <class T>
std::shared_ptr<ParSolverT<T, long, int>> makeSolverOf(const std::string& name,
                                                       const json& params = json()) {
  return makeSolver<ParSolverT<T, long, int>>(name, params);
}

/// Solves from zero, without preconditioner when `diagonal` is empty.
template <class T>
SolveRecord<T> solveDense(const std::string& name, const json& params, const std::vector<T>& matrix,
                          const std::vector<T>& b, std::vector<T> diagonal = {},
                          const Device& device = Device()) {
  if (diagonal.empty()) diagonal.assign(b.size(), T(1));
  return runSolver(*makeSolverOf<T>(name, params), device, matrix, diagonal, b,
                   std::vector<T>(b.size(), T(0)));
}

/// The same on the host without preconditioner.
template <class T>
SolveRecord<T> runSolver(ParSolverT<T, long, int>& solver, const std::vector<T>& matrix,
                         const std::vector<T>& b, const std::vector<T>& start) {
  return runSolver(solver, Device(), matrix, std::vector<T>(b.size(), T(1)), b, start);
}

/// Row-major matrix without symmetry, whose diagonal outweighs each row; `isReal` leaves the
/// imaginary parts out.
template <class T>
std::vector<T> unsymmetric(std::size_t n, unsigned seed, bool isReal) {
  std::vector<T> out = smallValues<T>(n * n, seed);
  for (std::size_t i = 0; i < n; ++i) out[i * n + i] += T(static_cast<RealType<T>>(7 * n));
  if (isReal) {
    for (T& a : out) a = T(realPart(a));
  }
  return out;
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

/// Each |r| is at most the one before, but for `slack` relative to it.
template <class R>
void expectNeverRising(const std::vector<Status<R>>& history, R slack = 0) {
  for (std::size_t k = 1; k < history.size(); ++k) {
    EXPECT_LE(history[k].r, history[k - 1].r * (1 + slack)) << "row " << k;
  }
}

/// A Hermitian system with a preconditioner of positive numbers, and its measure of residuals.
template <class T>
struct Measured {
  using R = RealType<T>;
  static constexpr std::size_t n = 12;
  std::vector<T> A = indefinite<T>(n, 5), M = std::vector<T>(n), b = smallValues<T>(n, 6),
                 start = smallValues<T>(n, 8);

  Measured() {
    for (std::size_t i = 0; i < n; ++i) M[i] = T(R(std::pow(4.0, double(i % 3)) / 64));
  }
  std::vector<T> residual(const std::vector<T>& x) const {
    return denseAxpby(A, T(-1), x, T(1), b);
  }
  /// sqrt((r, M r))
  R norm(const std::vector<T>& x) const {
    return std::sqrt(realPart(dotOf(residual(x), scaledBy(M, residual(x)))));
  }
  /// Two solves on one object that end after `its` steps with the norm r, and its first norm.
  SolveRecord<T> run(const std::string& name, const json& params, const Device& device,
                     int its) const {
    const auto solver = makeSolverOf<T>(name, params);
    const auto out = runSolver(*solver, device, A, M, b, start);
    EXPECT_EQ(runSolver(*solver, device, A, M, b, start).history, out.history);
    const R r0 = normOf(residual(start)), r = out.history.back().r;
    EXPECT_EQ(out.iter, its);
    EXPECT_EQ(out.relres, r / r0);
    EXPECT_EQ(out.history.back(), (Status<R>{its, r, r / r0, r / normOf(b)}));
    return out;
  }
};

}  // namespace mivo::test
