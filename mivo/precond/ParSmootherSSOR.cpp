// SPDX-License-Identifier: Apache-2.0
#include "mivo/precond/ParSmootherSSOR.hpp"

#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
ParSmootherSSOR_T<T, G, L>::~ParSmootherSSOR_T() = default;

template <class T, class G, class L>
void ParSmootherSSOR_T<T, G, L>::create(const json& params) {
  Base::create(params);
  this->name = "SSOR";
}

template <class T, class G, class L>
void ParSmootherSSOR_T<T, G, L>::sor_step(const Vector& b, Vector& x, double omega, bool ascending,
                                          int* rowOrder) {
  Base::sor_step(b, x, omega, ascending, rowOrder);
  Base::sor_step(b, x, omega, !ascending, rowOrder);
}

MIVO_INSTANCE_SCALARS(ParSmootherSSOR_T, long, int)
MIVO_REGISTER_SCALARS(ParSmootherT, "SmootherSSOR", ParSmootherSSOR_T)
MIVO_REGISTER_SCALARS(ParPreconditionerT, "PrecondSSOR", ParSmootherSSOR_T)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverSSOR", ParSmootherSSOR_T)

}  // namespace mivo
