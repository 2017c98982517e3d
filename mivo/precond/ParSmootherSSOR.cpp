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

#define MIVO_INSTANCE(T) template class ParSmootherSSOR_T<T, long, int>;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

#define MIVO_REGISTER_TYPE(T)                                                                     \
  MIVO_REGISTER(ParSmootherT, "SmootherSSOR", T, long, int, ParSmootherSSOR_T<T, long, int>)      \
  MIVO_REGISTER(ParPreconditionerT, "PrecondSSOR", T, long, int, ParSmootherSSOR_T<T, long, int>) \
  MIVO_REGISTER(ParSolverT, "SolverSSOR", T, long, int, ParSmootherSSOR_T<T, long, int>)
MIVO_INSTANTIATE_SCALARS(MIVO_REGISTER_TYPE)
#undef MIVO_REGISTER_TYPE

}  // namespace mivo
