// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SolverSYMMLQ.hpp"

#include "mivo/solver/SYMMLQImpl.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
SolverSYMMLQ_T<T, G, L>::~SolverSYMMLQ_T() = default;

template <class T, class G, class L>
void SolverSYMMLQ_T<T, G, L>::create(const json& params) {
  Base::create(params, "SYMMLQ");
}

template <class T, class G, class L>
void SolverSYMMLQ_T<T, G, L>::setup(const Operator&) {}

template <class T, class G, class L>
void SolverSYMMLQ_T<T, G, L>::solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x,
                                    int& iter, R& relres) {
  SYMMLQ_Impl<T, G, L> run;
  run.ksp.setUp(*this, P, A, b, x);
  run.KSPSetUp_SYMMLQ();
  this->beginSolve(P, A, b, x, iter, relres);
  run.KSPSolve_SYMMLQ();
  run.ksp.finish(iter, relres);
  run.KSPDestroyDefault();
}

MIVO_INSTANCE_SCALARS(SolverSYMMLQ_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverSYMMLQ", SolverSYMMLQ_T)

}  // namespace mivo
