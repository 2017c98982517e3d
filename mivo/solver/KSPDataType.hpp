// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <utility>
#include <vector>

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/solver/ParSolver.hpp"

namespace mivo {

/// Why a run ended: above 0 a success, below 0 a failure. Not reported to the caller of a solver.
namespace ksp_reason {
constexpr int kGoesOn = 0;
constexpr int kRelativeTolerance = 2;
constexpr int kExact = 3;
constexpr int kLeastSquares = 4;
constexpr int kNegativeCurvature = 5;
constexpr int kHappyBreakdown = 7;
constexpr int kDivisionByZero = -2;
constexpr int kIterationLimit = -3;
constexpr int kNormLimit = -4;
constexpr int kBreakdown = -5;
constexpr int kConditionLimit = -6;
constexpr int kIndefinitePreconditioner = -8;
constexpr int kNotANumber = -9;
constexpr int kIndefiniteOperator = -10;
}  // namespace ksp_reason

/// Record of one run of MINRES, SYMMLQ or LGMRES: what is solved, how far it has come, and how it
/// is watched. It refers to the objects of the solve and lives as long as that.
template <class T, class G, class L>
struct KSPDataType {
  using R = RealType<T>;
  using Solver = ParSolverT<T, G, L>;
  using Operator = typename Solver::Operator;
  using Preconditioner = typename Solver::Preconditioner;
  using Vector = typename Solver::Vector;

  Solver* solver = nullptr;
  Operator* A = nullptr;
  Preconditioner* P = nullptr;
  const Vector* b = nullptr;
  Vector* x = nullptr;
  std::vector<Vector> work;

  R rtol{};
  int max_its = 0;
  int norm_type = 2;
  bool guess_zero = false;      ///< the start residual is b, without a product
  bool diagonal_scale = false;  ///< asked for in vain: a line says so
  bool calc_sings = false;      ///< keep what estimates of eigenvalues or singular values need

  int its = 0;
  int reason = ksp_reason::kGoesOn;
  R r0{};     ///< |b - A x| at the start
  R bnorm{};  ///< |b|
  R rnorm{};  ///< last residual norm, in the method's own sense

  std::function<int(int its, R rnorm)> converged;  ///< gives a reason
  std::function<void(int its, R rnorm)> monitor;   ///< called once for each iterate
  void* data = nullptr;                            ///< the method's own data, owned by the method

  /// Fills the record for a solve: norms, test and monitor, and the solver's rank and size.
  /// The test ends above `max_its` iterations or when rtol > rnorm / r0, which no NaN fulfils.
  /// Collective.
  void setUp(Solver& s, Preconditioner& p, Operator& a, const Vector& rhs, Vector& start) {
    solver = &s;
    A = &a;
    P = &p;
    b = &rhs;
    x = &start;
    rtol = s.rtol;
    max_its = s.max_its;
    s.takeRanks(a);
    bnorm = Vector::normL2(rhs);
    r0 = Vector::residual(a, start, rhs);
    rnorm = r0;
    converged = [this](int n, R norm) {
      if (n > max_its) return ksp_reason::kIterationLimit;
      return rtol > norm / r0 ? ksp_reason::kRelativeTolerance : ksp_reason::kGoesOn;
    };
    monitor = [this](int n, R norm) {
      solver->logSolverStatus(*P, n, norm, norm / r0, norm / bnorm);
    };
  }

  /// Appends `count` vectors of zeros of the shape, device and communicator of `like`.
  static void createVectors(const Vector& like, int count, std::vector<Vector>& out) {
    for (int k = 0; k < count; ++k) {
      Vector v;
      v.create(like.getRowPartitioner(), like.getColPartitioner(), like.getDevice(),
               like.getComm());
      // A preconditioner may start from what it is handed.
      v.fill(T(0));
      out.push_back(v);
    }
  }

  /// r = b - A x, or b for a guess marked zero.
  void startResidual(Vector& r) {
    if (guess_zero) {
      b->deepCopy(r);
    } else {
      A->matVec(*x, r, nullptr);
      Vector::axpby(T(1), *b, T(-1), r);
    }
  }

  /// Hands the results out: the iterations done and the last residual norm relative to r0.
  void finish(int& iter, R& relres) {
    iter = its;
    relres = rnorm / r0;
    solver->finishSolve(*P, max_its, iter, relres);
  }

  /// `printf` on rank 0.
  template <class... Args>
  void print(const char* format, Args... args) const {
    if (solver->rank != 0) return;
    if constexpr (sizeof...(args) == 0) {
      std::fputs(format, stdout);
    } else {
      std::printf(format, args...);
    }
  }
  void refuseDiagonalScale() const {
    if (diagonal_scale) {
      print("Krylov method %s does not support diagonal scaling", solver->name.c_str());
    }
  }

  /// (u, v) for methods that compute with real scalars. Collective.
  static R realDot(const Vector& u, const Vector& v) { return realPart(Vector::dot(u, v)); }

  KSPDataType() = default;
  // The functions refer to this object.
  KSPDataType(const KSPDataType&) = delete;
  KSPDataType& operator=(const KSPDataType&) = delete;
};

}  // namespace mivo
