// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SolverBiCGSTAB.hpp"

#include <cstdio>

#include "mivo/solver/KrylovRun.hpp"
#include "mivo/solver/fused_vectors.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L, class S>
SolverBiCGSTAB_T<T, G, L, S>::~SolverBiCGSTAB_T() = default;

template <class T, class G, class L, class S>
void SolverBiCGSTAB_T<T, G, L, S>::create(const json& params) {
  Base::create(params, "BiCGSTAB");
  readJsonKey(params, "btol", btol);
  readJsonKey(params, "atol", atol);
  readJsonKey(params, "verb", verb);
}

template <class T, class G, class L, class S>
void SolverBiCGSTAB_T<T, G, L, S>::setup(const Operator&) {}

template <class T, class G, class L, class S>
void SolverBiCGSTAB_T<T, G, L, S>::solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x,
                                         int& iter, R& relres) {
  KrylovRun<T, G, L> run(
      *this, P, A, b, x,
      {atol, btol, verb, "======================== BiCGstab =====================",
       /*row_after_status=*/false});
  if (!run.begin()) return;
  Vector r, rhat, p, phat, s, shat, t, v;
  run.create({&r, &rhat, &p, &phat, &s, &shat, &t, &v});
  // r = b - A x, with the product in t, which is free wherever this is needed
  const auto residual = [&] {
    A.aAxpby(T(1), x, T(0), t, nullptr);
    return combineAndNorm(T(1), b, T(-1), t, r);
  };
  run.start(r, residual);

  r.deepCopy(rhat);
  // A preconditioner may start from what it is handed.
  shat.fill(T(0));
  phat.fill(T(0));
  S rhoOld(0), alpha(0), omega(0);
  // Vectors read or written in an iteration, beside products and preconditioner: 2 for rho, 6 for
  // p, 2 for alpha, 3 for s, 3 for omega, 6 for x, 3 for r.
  while (run.goesOn()) {
    ++run.its;
    // rho = (r, rhat)
    const S rho = S(Vector::dot(r, rhat));
    if (isZero(rho)) {
      if (this->rank == 0) std::puts("phg: bicgstab: method failed.!");
      break;
    }
    // beta = alpha rho / (rhoOld omega),  p = r + beta (p - omega v)
    if (run.its == 1) {
      r.deepCopy(p);
    } else {
      const S beta = alpha * rho / (rhoOld * omega);
      Vector::axpbypcz(T(1), p, T(-omega), v, T(0), s);
      Vector::axpbypcz(T(1), r, T(beta), s, T(0), p);
    }
    rhoOld = rho;
    // v = A M p,  alpha = rho / (rhat, v)
    P.precondition(p, phat);
    A.aAxpby(T(1), phat, T(0), v, nullptr);
    alpha = rho / S(Vector::dot(rhat, v));
    // s = r - alpha v
    const R snorm = combineAndNorm(T(1), r, T(-alpha), v, s);
    if (static_cast<double>(snorm) <= 1e-60) {
      if (this->rank == 0) {
        std::printf("phg: bicgstab: ||s|| is too small: %e, terminated.\n",
                    static_cast<double>(snorm));
      }
      Vector::axpy(T(alpha), phat, x);
      run.res = residual();
      break;
    }
    // t = A M s,  omega = (t, s) / (t, t)
    P.precondition(s, shat);
    A.aAxpby(T(1), shat, T(0), t, nullptr);
    omega = S(Vector::dot(t, s)) / S(Vector::dot(t, t));
    // x = x + alpha M p + omega M s
    Vector::axpby(T(omega), shat, T(alpha), phat);
    Vector::axpy(T(1), phat, x);
    // r = s - omega t
    run.status(combineAndNorm(T(1), s, T(-omega), t, r));
  }
  run.finish(iter, relres);
}

MIVO_INSTANCE_SCALARS(SolverBiCGSTAB_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverBiCGSTAB", SolverBiCGSTAB_T)

}  // namespace mivo
