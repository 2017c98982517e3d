// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/MINRESImpl.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "mivo/solver/fused_vectors.hpp"

namespace mivo {

template <class T, class G, class L>
void MINRES_Impl<T, G, L>::KSPSetUp_MINRES(double radius, int qlp, int monitor) {
  data_ = std::make_unique<Data>();
  if (radius > 0) data_->norm_limit = radius;
  data_->qlp = qlp;
  data_->monitor = monitor;
  data_->planned_its = ksp.max_its;
  if (ksp.calc_sings) {
    const auto length = static_cast<std::size_t>(std::max(ksp.max_its, 1));
    data_->alpha.resize(length);
    data_->beta.resize(length);
  }
  ksp.data = data_.get();
  ksp.createVectors(*ksp.x, 9, ksp.work);
}

template <class T, class G, class L>
void MINRES_Impl<T, G, L>::KSPDestroy_MINRES() {
  ksp.work.clear();
  ksp.data = nullptr;
  data_.reset();
}

template <class T, class G, class L>
bool MINRES_Impl<T, G, L>::start(Vector& r, Vector& z, R& dp) {
  ksp.refuseDiagonalScale();
  ksp.its = 0;
  ksp.startResidual(r);
  ksp.P->precondition(r, z);
  dp = ksp.realDot(r, z);
  if (static_cast<double>(dp) < -data_->haptol) {
    refuseIndefinite(dp);
    return false;
  }
  return true;
}

template <class T, class G, class L>
void MINRES_Impl<T, G, L>::refuseIndefinite(R dp) {
  ksp.print("Detected indefinite operator %g tolerance %g\n", static_cast<double>(dp),
            data_->haptol);
  ksp.reason = ksp_reason::kIndefiniteOperator;
}

template <class T, class G, class L>
void MINRES_Impl<T, G, L>::keepForEigenvalues(int i, R alpha, R beta) {
  if (!ksp.calc_sings) return;
  if (ksp.max_its != data_->planned_its) {
    ksp.print("Cannot change maxit AND calculate eigenvalues");
    return;
  }
  data_->alpha[static_cast<std::size_t>(i)] = alpha;
  data_->beta[static_cast<std::size_t>(i)] = beta;
}

// Beside the product and the preconditioner an iteration reads or writes 20 vectors: 2 for alpha,
// 8 for both recurrences with the next (r, z), 6 for the step, 4 for the scaling.
template <class T, class G, class L>
void MINRES_Impl<T, G, L>::KSPSolve_MINRES_OLD() {
  Vector &r = ksp.work[0], &z = ksp.work[1], &u = ksp.work[2], &v = ksp.work[3];
  Vector &u_old = ksp.work[5], &v_old = ksp.work[6], &w_old = ksp.work[7], &w = ksp.work[8];
  const double haptol = data_->haptol;
  R dp{};
  if (!start(r, z, dp)) return;
  ksp.rnorm = Vector::normL2(z);
  ksp.reason = ksp.converged(0, ksp.rnorm);
  ksp.monitor(0, ksp.rnorm);
  if (ksp.reason != 0) return;

  R beta = std::sqrt(dp);
  R eta = beta;
  R c = 1, cold = 1, s = 0, sold = 0;
  // v = r / beta,  u = z / beta. The next product overwrites r; a preconditioner may start from
  // what z holds.
  std::swap(v, r);
  Vector::scale(T(1 / beta), v);
  Vector::axpby(T(1 / beta), z, T(0), u);
  w_old.fill(T(0));
  w.fill(T(0));

  for (int i = 0;; ++i) {
    ksp.its = i + 1;
    // r = A u,  alpha = (u, r),  z = M r
    ksp.A->matVec(u, r, nullptr);
    const R alpha = ksp.realDot(u, r);
    ksp.P->precondition(r, z);
    keepForEigenvalues(i, alpha, beta);
    // r = r - alpha v - beta v_old,  z = z - alpha u - beta u_old,  beta_{i+1}^2 = |(r, z)|
    if (i == 0) {
      Vector::axpy(T(-alpha), v, r);
      Vector::axpy(T(-alpha), u, z);
      dp = ksp.realDot(r, z);
    } else {
      dp = realPart(lanczosPair(T(-alpha), v, u, T(-beta), v_old, u_old, r, z));
    }
    dp = std::fabs(dp);
    const R betaold = beta;
    beta = std::sqrt(dp);

    // Next column of the QR factorisation of the tridiagonal matrix.
    const R gbar = c * alpha - cold * s * betaold;
    const R gamma = std::sqrt(gbar * gbar + beta * beta);
    if (data_->check_negative_curvature && c * gbar <= 0) {
      ksp.print("Detected negative curvature c_nm1=%g, gbar %g\n", static_cast<double>(c),
                static_cast<double>(gbar));
      ksp.reason = ksp_reason::kNegativeCurvature;
      return;
    }
    const R cnew = gbar / gamma;
    const R snew = beta / gamma;
    const R delta = i > 0 ? -(alpha * s + cold * c * betaold) / gamma : R(0);
    const R epsilon = i > 1 ? -(betaold * sold) / gamma : R(0);
    // w = u / gamma + delta w_old + epsilon w_oold,  x = x + eta cnew w
    minresStep(T(1 / gamma), u, T(delta), w_old, T(epsilon), w, T(eta * cnew), *ksp.x);
    std::swap(w_old, w);

    const bool ended = static_cast<double>(dp) < haptol;
    if (ended) {
      ksp.print("Possible indefinite operator %g tolerance %g\n", static_cast<double>(dp), haptol);
      ksp.rnorm = Vector::residual(*ksp.A, *ksp.x, *ksp.b, r);
    } else {
      ksp.rnorm = std::fabs(snew) * ksp.rnorm;
    }
    ksp.reason = ksp.converged(i + 1, ksp.rnorm);
    ksp.monitor(i + 1, ksp.rnorm);
    if (ksp.reason != 0) return;
    if (ended) return refuseIndefinite(dp);

    eta = -snew * eta;
    Vector::scale(T(1 / beta), r);
    Vector::scale(T(1 / beta), z);
    std::swap(v_old, v);
    std::swap(v, r);
    std::swap(u_old, u);
    std::swap(u, z);
    cold = c;
    sold = s;
    c = cnew;
    s = snew;
    if (ksp.its >= ksp.max_its) {
      ksp.reason = ksp_reason::kIterationLimit;
      return;
    }
  }
}

MIVO_INSTANCE_SCALARS(MINRES_Impl, long, int)

}  // namespace mivo
