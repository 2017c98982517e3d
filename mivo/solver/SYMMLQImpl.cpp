// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SYMMLQImpl.hpp"

#include <cmath>
#include <utility>

#include "mivo/solver/fused_vectors.hpp"

namespace mivo {

template <class T, class G, class L>
void SYMMLQ_Impl<T, G, L>::KSPSetUp_SYMMLQ() {
  data_ = std::make_unique<Data>();
  ksp.data = data_.get();
  // r, z, u, v, w, u_old, v_old, w_bar and a spare one; w exists only within a pass.
  ksp.createVectors(*ksp.x, 9, ksp.work);
}

template <class T, class G, class L>
void SYMMLQ_Impl<T, G, L>::KSPDestroyDefault() {
  ksp.work.clear();
  ksp.data = nullptr;
  data_.reset();
}

template <class T, class G, class L>
void SYMMLQ_Impl<T, G, L>::KSPSolve_SYMMLQ() {
  ksp.refuseDiagonalScale();
  Vector &r = ksp.work[0], &z = ksp.work[1], &u = ksp.work[2], &v = ksp.work[3];
  Vector &u_old = ksp.work[5], &v_old = ksp.work[6], &w_bar = ksp.work[7];
  const double haptol = data_->haptol;

  ksp.its = 0;
  u_old.fill(T(0));
  v_old.fill(T(0));
  // r = b - A x,  z = M r,  beta_1^2 = (r, z)
  ksp.startResidual(r);
  ksp.P->precondition(r, z);
  const R dp = ksp.realDot(r, z);
  if (std::fabs(static_cast<double>(dp)) < haptol) {
    ksp.print("Detected happy breakdown %g tolerance %g\n", std::fabs(static_cast<double>(dp)),
              haptol);
    ksp.rnorm = R(0);
    ksp.reason = ksp_reason::kHappyBreakdown;
    return;
  }
  const R beta1 = std::sqrt(dp);
  ksp.rnorm = Vector::normL2(z);
  // v = r / beta_1,  u = z / beta_1. The next product overwrites r; a preconditioner may start
  // from what z holds.
  std::swap(v, r);
  Vector::scale(T(1 / beta1), v);
  Vector::axpby(T(1 / beta1), z, T(0), u);
  u.deepCopy(w_bar);
  ksp.monitor(0, ksp.rnorm);
  ksp.reason = ksp.converged(0, ksp.rnorm);
  if (ksp.reason != 0) return;

  R c = 1, ceta = 0;
  iterate(beta1, c, ceta);
  // From the LQ point to the point of conjugate gradients.
  const R step = c == 0 ? R(ceta * R(1e15)) : ceta / c;
  Vector::axpy(T(step), w_bar, *ksp.x);
}

// Beside the product and the preconditioner an iteration reads or writes 19 vectors: 2 for alpha,
// 8 for both recurrences with the next (r, z), 4 for their scaling, 5 for the step.
template <class T, class G, class L>
void SYMMLQ_Impl<T, G, L>::iterate(R beta1, R& c, R& ceta) {
  Vector &r = ksp.work[0], &z = ksp.work[1], &u = ksp.work[2], &v = ksp.work[3];
  Vector &u_old = ksp.work[5], &v_old = ksp.work[6], &w_bar = ksp.work[7];
  const double haptol = data_->haptol;
  R beta = beta1;
  R cold = 1, s = 0, sold = 0;
  R ceta_old = 0, ceta_oold = 0;
  R s_prod = std::fabs(beta1);

  for (ksp.its = 1;; ++ksp.its) {
    // r = A u,  alpha = (u, r),  z = M r
    ksp.A->matVec(u, r, nullptr);
    const R alpha = ksp.realDot(u, r);
    ksp.P->precondition(r, z);
    // r = r - alpha v - beta v_old,  z = z - alpha u - beta u_old,  beta_{i+1}^2 = (r, z)
    R dp = realPart(lanczosPair(T(-alpha), v, u, T(-beta), v_old, u_old, r, z));
    const R betaold = beta;
    if (std::fabs(static_cast<double>(dp)) < haptol) {
      ksp.print("Detected happy breakdown %g tolerance %g\n", std::fabs(static_cast<double>(dp)),
                haptol);
      dp = R(0);
    } else if (dp < 0) {
      ksp.reason = ksp_reason::kIndefinitePreconditioner;
      return;
    }
    beta = std::sqrt(dp);

    // Next column of the LQ factorisation of the tridiagonal matrix.
    const R coold = cold;
    cold = c;
    const R soold = sold;
    sold = s;
    const R rho0 = cold * alpha - coold * sold * betaold;
    const R rho1 = std::sqrt(rho0 * rho0 + beta * beta);
    const R rho2 = sold * alpha + coold * cold * betaold;
    const R rho3 = soold * betaold;
    c = rho0 / rho1;
    s = beta / rho1;
    ceta = ksp.its == 1 ? beta1 / rho1 : -(rho2 * ceta_old + rho3 * ceta_oold) / rho1;

    // |r| of the conjugate gradient point
    s_prod = std::fabs(s) * s_prod;
    ksp.rnorm = c != 0 ? s_prod / std::fabs(c) : s_prod * R(1e16);
    ksp.monitor(ksp.its, ksp.rnorm);
    ksp.reason = ksp.converged(ksp.its, ksp.rnorm);
    if (ksp.reason != 0) return;
    if (ksp.its >= ksp.max_its) {
      ksp.reason = ksp_reason::kIterationLimit;
      return;
    }

    // v = r / beta,  u = z / beta;  w = c w_bar + s u,  w_bar = -s w_bar + c u,  x = x + ceta w
    std::swap(v_old, v);
    std::swap(v, r);
    std::swap(u_old, u);
    Vector::scale(T(1 / beta), v);
    Vector::axpby(T(1 / beta), z, T(0), u);
    symmlqStep(T(c), T(s), u, w_bar, T(ceta), *ksp.x);
    ceta_oold = ceta_old;
    ceta_old = ceta;
  }
}

MIVO_INSTANCE_SCALARS(SYMMLQ_Impl, long, int)

}  // namespace mivo
