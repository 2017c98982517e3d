// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "mivo/solver/MINRESImpl.hpp"
#include "mivo/solver/TridiagonalQLP.hpp"
#include "mivo/solver/fused_vectors.hpp"

namespace mivo {
namespace {

/// The column "flag" of the table.
enum Flag {
  kGoesOn = 0,
  kTolerance = 1,
  kLeastSquares = 2,
  kRounding = 3,
  kIterationLimit = 4,
  kNormLimit = 5,
  kConditionLimit = 6,
  kIndefinite = 7,
  kNotANumber = 8
};

int reasonOf(Flag flag) {
  switch (flag) {
    case kTolerance:
      return ksp_reason::kRelativeTolerance;
    case kLeastSquares:
      return ksp_reason::kLeastSquares;
    case kRounding:
      return ksp_reason::kExact;
    case kIterationLimit:
      return ksp_reason::kIterationLimit;
    case kNormLimit:
      return ksp_reason::kNormLimit;
    case kConditionLimit:
      return ksp_reason::kConditionLimit;
    case kIndefinite:
      return ksp_reason::kIndefiniteOperator;
    case kNotANumber:
      return ksp_reason::kNotANumber;
    case kGoesOn:
      break;
  }
  return ksp_reason::kGoesOn;
}

/// The state after a step. |A r| needs the next column, so that a row is printed one step late.
struct TableRow {
  const char* mark = " ";  ///< "T": the last component of the solution was left out
  int its = 0;
  Flag flag = kGoesOn;
  double rnorm = 0, compatible = 1, Anorm = 0, Acond = 1, xnorm = 0;

  template <class Ksp>
  void print(const Ksp& ksp, double Arnorm, double leastSquares) const {
    ksp.print("%s %5d   %2d %10.2e %10.2e   %10.2e %10.2e %10.2e %10.2e %10.2e\n", mark, its,
              static_cast<int>(flag), rnorm, Arnorm, compatible, leastSquares, Anorm, Acond, xnorm);
  }
};

}  // namespace

// Beside the product and the preconditioner an iteration reads or writes 15 vectors: 2 for alpha,
// 4 for the recurrence, 2 for the next (r, z), 7 for basis and step.
template <class T, class G, class L>
void MINRES_Impl<T, G, L>::KSPSolve_MINRES() {
  Vector &r = ksp.work[0], &z_next = ksp.work[1], &z = ksp.work[2], &v = ksp.work[3];
  Vector &v_old = ksp.work[4], &w = ksp.work[5], &w_old = ksp.work[6];
  const bool table = data_->monitor != 0;
  if (table) {
    ksp.print(
        "        flag      rnorm     Arnorm   Compatible         LS      Anorm      Acond      "
        "xnorm\n");
  }
  R dp{};
  if (!start(r, z_next, dp)) return;
  double beta = std::sqrt(std::max(static_cast<double>(dp), 0.0));
  if (std::isnan(dp)) beta = static_cast<double>(dp);
  // Residuals are measured in the norm of the preconditioner, scaled to begin with r0.
  const double scale = static_cast<double>(ksp.r0) / beta;
  ksp.rnorm = ksp.r0;
  ksp.monitor(0, ksp.rnorm);
  ksp.reason = ksp.converged(0, ksp.rnorm);
  if (ksp.reason != 0) return;
  if (!(beta > 0)) {
    if (std::isnan(beta)) {
      ksp.reason = ksp_reason::kNotANumber;
    } else if (ksp.r0 > 0) {
      refuseIndefinite(dp);  // the preconditioner sends a residual to nothing
    } else {
      ksp.reason = ksp_reason::kExact;
    }
    return;
  }

  // Below the inverse of the largest condition the residual cannot be told from the least one.
  const double leastSquaresLimit =
      std::max(static_cast<double>(std::numeric_limits<R>::epsilon()),
               std::min(static_cast<double>(ksp.rtol), 1 / data_->condition_limit));
  TridiagonalQLP qlp(beta);
  TableRow row;
  row.rnorm = static_cast<double>(ksp.rnorm);
  double beta_old = 1;
  w.fill(T(0));
  w_old.fill(T(0));
  std::swap(v, r);
  std::swap(z, z_next);

  Flag flag = ksp.max_its > 0 ? kGoesOn : kIterationLimit;
  while (flag == kGoesOn) {
    ++ksp.its;
    // With residuals v = beta_k v_k and z = M v: r = A z / beta_k,  alpha = (z, r) / beta_k,
    // r = r - (alpha / beta_k) v - (beta_k / beta_{k-1}) v_old,  beta_{k+1}^2 = (r, M r)
    ksp.A->matVec(z, r, nullptr);
    const double alpha = static_cast<double>(ksp.realDot(z, r)) / beta / beta;
    if (ksp.its == 1) {
      Vector::axpby(T(R(-alpha / beta)), v, T(R(1 / beta)), r);
    } else {
      Vector::axpbypcz(T(R(-alpha / beta)), v, T(R(-beta / beta_old)), v_old, T(R(1 / beta)), r);
    }
    ksp.P->precondition(r, z_next);
    dp = ksp.realDot(r, z_next);
    const bool indefinite = static_cast<double>(dp) < -data_->haptol;

    double Arnorm = std::numeric_limits<double>::quiet_NaN(), leastSquares = Arnorm;
    row.mark = " ";
    const TableRow last = row;
    row.its = ksp.its;
    if (indefinite) {
      refuseIndefinite(dp);
      flag = kIndefinite;
    } else if (std::isnan(dp) || std::isnan(alpha)) {
      flag = kNotANumber;
    } else {
      const double beta_next = std::sqrt(std::max(static_cast<double>(dp), 0.0));
      TridiagonalQLP next = qlp;
      next.addColumn(alpha, beta_next);
      Arnorm = scale * next.imageOfLastResidual();
      leastSquares = next.leastSquares();
      if (!(next.condition() <= data_->condition_limit)) {
        flag = kConditionLimit;
      } else if (leastSquares <= leastSquaresLimit) {
        flag = kLeastSquares;
      }
      // The last diagonal element counts as zero then. Its component is left out unless the
      // residual would rise by that; then the last iterate stays.
      bool take = true;
      if (flag != kGoesOn) {
        next.leaveOutLast();
        const double rounding = 16 * static_cast<double>(std::numeric_limits<R>::epsilon()) *
                                next.operatorNorm() * next.solutionNorm();
        take = next.residual() - qlp.residual() <= std::max(1e-8 * qlp.residual(), rounding);
      }
      if (!(next.solutionNorm() <= data_->norm_limit)) {
        flag = kNormLimit;
        take = false;
      }
      if (take) {
        if (flag != kGoesOn) row.mark = "T";
        qlp = next;
        qlpStep(T(R(1 / beta)), z, T(R(qlp.right2().c)), T(R(qlp.right2().s)), T(R(qlp.right1().c)),
                T(R(qlp.right1().s)), T(R(qlp.row2().mu)), w_old, w, *ksp.x);
        std::swap(w_old, w);
      }
      beta_old = beta;
      beta = beta_next;
    }
    if (table) last.print(ksp, Arnorm, leastSquares);

    ksp.rnorm = static_cast<R>(scale * qlp.residual());
    ksp.monitor(ksp.its, ksp.rnorm);
    if (ksp.converged(ksp.its, ksp.rnorm) != 0 && !indefinite) flag = kTolerance;
    if (flag == kGoesOn && R(1) + R(qlp.compatibility()) == R(1)) flag = kRounding;
    if (flag == kGoesOn && ksp.its >= ksp.max_its) flag = kIterationLimit;
    row.flag = flag;
    row.rnorm = static_cast<double>(ksp.rnorm);
    row.compatible = qlp.compatibility();
    row.Anorm = qlp.operatorNorm();
    row.Acond = qlp.condition();
    row.xnorm = qlp.solutionNorm();
    std::swap(v_old, v);
    std::swap(v, r);
    std::swap(z, z_next);
  }
  ksp.reason = reasonOf(flag);

  // The two components that a further column would have changed.
  if (ksp.its > 0) {
    Vector::axpbypz(T(R(qlp.row0().mu)), w_old, T(R(qlp.row1().mu)), w, *ksp.x);
  }
  if (table) {
    // |A r| of the end, from products
    Vector::residual_vec(*ksp.A, *ksp.x, *ksp.b, r);
    ksp.P->precondition(r, z);
    ksp.A->matVec(z, r, nullptr);
    ksp.P->precondition(r, z);
    const double Ar = scale * std::sqrt(static_cast<double>(ksp.realDot(r, z)));
    row.flag = flag;
    row.print(ksp, Ar, Ar / (row.Anorm * row.rnorm));
  }
}

#define MIVO_INSTANCE(T) template void MINRES_Impl<T, long, int>::KSPSolve_MINRES();
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

}  // namespace mivo
