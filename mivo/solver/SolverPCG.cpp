// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SolverPCG.hpp"

#include <algorithm>
#include <cstdio>

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/solver/fused_vectors.hpp"
#include "mivo/solver/residual_table.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

namespace {

/// `line` is part of the text.
void warnOfBreakdown(int line) {
  std::printf("%s:%d, Warning! the matrix may not be SPD.\n", "/project/src/solver/SolverPCG",
              line);
}

}  // namespace

template <class T, class G, class L, class S>
SolverPCG_T<T, G, L, S>::~SolverPCG_T() = default;

template <class T, class G, class L, class S>
void SolverPCG_T<T, G, L, S>::create(const json& params) {
  Base::create(params, "PCG");
  readJsonKey(params, "btol", btol);
  readJsonKey(params, "atol", atol);
  readJsonKey(params, "verb", verb);
}

template <class T, class G, class L, class S>
void SolverPCG_T<T, G, L, S>::setup(const Operator&) {}

template <class T, class G, class L, class S>
void SolverPCG_T<T, G, L, S>::solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x,
                                    int& iter, R& relres) {
  const int comm = A.getComm();
  MPI_Comm_size(comm, &this->commSize);
  MPI_Comm_rank(comm, &this->rank);

  const R normb = Vector::normL2(b);
  if (normb == R(0)) {
    x.fill(T(0));
    return;
  }

  Vector r, z, q, p;
  for (Vector* v : {&r, &z, &q, &p}) {
    v->create(b.getRowPartitioner(), b.getColPartitioner(), A.getDevice(), comm);
  }
  // A preconditioner may start from what it is handed.
  z.fill(T(0));

  // r = b - A x, without a product for a zero start
  if (Vector::normL1(x) == R(0)) {
    b.deepCopy(r);
  } else {
    A.aAxpby(T(1), x, T(0), r, nullptr);
    Vector::axpby(T(1), b, T(-1), r);
  }
  const R r0 = Vector::normL2(r);
  const R tol = std::max({this->atol, btol * normb, this->rtol * r0});

  this->beginSolve(P, A, b, x, iter, relres);
  const bool table = verb > 0 && this->rank == 0;
  R res = r0;
  R relB = r0 / normb;
  this->logSolverStatus(P, 0, r0, r0 / r0, relB);
  if (table) {
    printTableHead("======================== PCG =====================", atol, this->rtol, btol, r0,
                   relB);
  }

  int k = 0;
  S rho{};
  // A residual that is NaN is not above the tolerance either.
  while (res > tol && k < this->max_its) {
    // z = M r
    P.precondition(r, z);
    ++k;
    // rho_k = (r, z),  p = z + (rho_k / rho_{k-1}) p
    const S rhoNew = S(Vector::dot(r, z));
    if (k == 1) {
      z.deepCopy(p);
    } else {
      if (isZero(rho)) {
        if (this->rank == 0) warnOfBreakdown(107);
        break;
      }
      Vector::axpby(T(1), z, T(rhoNew / rho), p);
    }
    rho = rhoNew;
    // q = A p,  alpha = rho / (p, q)
    A.aAxpby(T(1), p, T(0), q, nullptr);
    const S pq = S(Vector::dot(p, q));
    if (isZero(pq)) {
      if (this->rank == 0) warnOfBreakdown(120);
      break;
    }
    const T alpha = T(rho / pq);
    // x = x + alpha p,  r = r - alpha q
    res = updateSolutionAndResidual(alpha, p, x, q, r);
    relB = res / normb;
    this->logSolverStatus(P, k, res, res / r0, relB);
    if (table) printTableRow(k, res, res / r0, relB);
  }

  iter = k;
  relres = relB;
  this->finishSolve(P, this->max_its, k, relB);
}

MIVO_INSTANCE_SCALARS(SolverPCG_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverPCG", SolverPCG_T)

}  // namespace mivo
