// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SolverMINRES.hpp"

#include "mivo/solver/MINRESImpl.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

template <class T, class G, class L>
SolverMINRES_T<T, G, L>::~SolverMINRES_T() = default;

template <class T, class G, class L>
void SolverMINRES_T<T, G, L>::create(const json& params) {
  Base::create(params, "MINRES");
  readJsonKey(params, "algo", algo);
  readJsonKey(params, "norm_type", norm_type);
  readJsonKey(params, "monitor", monitor);
  readJsonKey(params, "radius", radius);
}

template <class T, class G, class L>
void SolverMINRES_T<T, G, L>::setup(const Operator&) {}

template <class T, class G, class L>
void SolverMINRES_T<T, G, L>::solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x,
                                    int& iter, R& relres) {
  MINRES_Impl<T, G, L> run;
  run.ksp.setUp(*this, P, A, b, x);
  run.KSPSetUp_MINRES(radius, qlp, monitor);
  this->beginSolve(P, A, b, x, iter, relres);
  if (algo == "standard") {
    run.KSPSolve_MINRES_OLD();
  } else {
    MIVO_CHECK(algo == "qlp") << "algo not supported " << algo;
    run.KSPSolve_MINRES();
  }
  run.ksp.finish(iter, relres);
  run.KSPDestroy_MINRES();
}

MIVO_INSTANCE_SCALARS(SolverMINRES_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverMINRES", SolverMINRES_T)

}  // namespace mivo
