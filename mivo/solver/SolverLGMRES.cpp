// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SolverLGMRES.hpp"

#include "mivo/solver/LGMRESImpl.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
SolverLGMRES_T<T, G, L>::~SolverLGMRES_T() = default;

template <class T, class G, class L>
void SolverLGMRES_T<T, G, L>::create(const json& params) {
  Base::create(params, "LGMRES");
}

template <class T, class G, class L>
void SolverLGMRES_T<T, G, L>::setup(const Operator&) {}

template <class T, class G, class L>
void SolverLGMRES_T<T, G, L>::solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x,
                                    int& iter, R& relres) {
  LGMRES_Impl<T, G, L> run;
  run.ksp.setUp(*this, P, A, b, x);
  run.KSPSetUp_LGMRES();
  this->beginSolve(P, A, b, x, iter, relres);
  run.KSPSolve_LGMRES();
  run.ksp.finish(iter, relres);
  run.KSPDestroy_LGMRES();
}

MIVO_INSTANCE_SCALARS(SolverLGMRES_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverLGMRES", SolverLGMRES_T)

}  // namespace mivo
