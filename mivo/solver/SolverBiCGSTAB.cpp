// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SolverBiCGSTAB.hpp"

#include <algorithm>
#include <cstdio>

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/solver/fused_vectors.hpp"
#include "mivo/solver/residual_table.hpp"
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
  const int comm = A.getComm();
  MPI_Comm_size(comm, &this->commSize);
  MPI_Comm_rank(comm, &this->rank);

  const R bnorm = Vector::normL2(b);
  if (bnorm == R(0)) {
    x.fill(T(0));
    return;
  }

  Vector r, rhat, p, phat, s, shat, t, v;
  for (Vector* w : {&r, &rhat, &p, &phat, &s, &shat, &t, &v}) {
    w->create(b.getRowPartitioner(), b.getColPartitioner(), A.getDevice(), comm);
  }
  // b - A x, with the product in t, which is free wherever this is needed
  const auto residual = [&] {
    A.aAxpby(T(1), x, T(0), t, nullptr);
    return combineAndNorm(T(1), b, T(-1), t, r);
  };

  R res;
  if (Vector::normL1(x) == R(0)) {
    b.deepCopy(r);
    res = Vector::normL2(r);
  } else {
    res = residual();
  }
  const R r0 = res;
  const R tol = static_cast<R>(
      std::max({atol, btol * static_cast<double>(bnorm), static_cast<double>(this->rtol * r0)}));

  this->beginSolve(P, A, b, x, iter, relres);
  const bool table = verb >= 1 && this->rank == 0;
  this->logSolverStatus(P, 0, r0, r0 / r0, r0 / bnorm);
  if (table) {
    printTableHead("======================== BiCGstab =====================", atol,
                   static_cast<double>(this->rtol), btol, r0, r0 / bnorm);
  }

  r.deepCopy(rhat);
  // A preconditioner may start from what it is handed.
  shat.fill(T(0));
  phat.fill(T(0));
  S rhoOld(0), alpha(0), omega(0);
  int k = 0;
  // Vectors read or written in an iteration, beside products and preconditioner: 2 for rho, 6 for
  // p, 2 for alpha, 3 for s, 3 for omega, 6 for x, 3 for r.
  while (res > tol && k < this->max_its) {
    ++k;
    // rho = (r, rhat)
    const S rho = S(Vector::dot(r, rhat));
    if (isZero(rho)) {
      if (this->rank == 0) std::puts("phg: bicgstab: method failed.!");
      break;
    }
    // beta = alpha rho / (rhoOld omega),  p = r + beta (p - omega v)
    if (k == 1) {
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
      res = residual();
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
    res = combineAndNorm(T(1), s, T(-omega), t, r);
    if (table) printTableRow(k, res, res / r0, res / bnorm);
    this->logSolverStatus(P, k, res, res / r0, res / bnorm);
  }

  iter = k;
  relres = res / bnorm;
  this->finishSolve(P, this->max_its, k, relres);
}

MIVO_INSTANCE_SCALARS(SolverBiCGSTAB_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverBiCGSTAB", SolverBiCGSTAB_T)

}  // namespace mivo
