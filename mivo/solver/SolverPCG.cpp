// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SolverPCG.hpp"

#include <cstdio>

#include "mivo/solver/KrylovRun.hpp"
#include "mivo/solver/fused_vectors.hpp"
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
  KrylovRun<T, G, L> run(
      *this, P, A, b, x,
      {double(atol), double(btol), verb, "======================== PCG ====================="});
  Vector r, z, q, p;
  if (!run.start({&r, &z, &q, &p}, r)) return;
  // A preconditioner may start from what it is handed.
  z.fill(T(0));

  S rho{};
  while (run.goesOn()) {
    // z = M r
    P.precondition(r, z);
    ++run.its;
    // rho_k = (r, z),  p = z + (rho_k / rho_{k-1}) p
    const S rhoNew = S(Vector::dot(r, z));
    if (run.its == 1) {
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
    run.status(updateSolutionAndResidual(alpha, p, x, q, r));
  }
  run.finish(iter, relres);
}

MIVO_INSTANCE_SCALARS(SolverPCG_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverPCG", SolverPCG_T)

}  // namespace mivo
