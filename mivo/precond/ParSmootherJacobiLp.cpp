// SPDX-License-Identifier: Apache-2.0
#include "mivo/precond/ParSmootherJacobiLp.hpp"

#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
ParSmootherJacobiLp_T<T, G, L>::~ParSmootherJacobiLp_T() = default;

template <class T, class G, class L>
void ParSmootherJacobiLp_T<T, G, L>::create(const json& params) {
  Base::create(params);
  readJsonKey(params, "order", order);
}

template <class T, class G, class L>
void ParSmootherJacobiLp_T<T, G, L>::setup(const Operator& A) {
  this->setupTime.start();
  if (this->shareMatrix(A)) {
    const Vector d = this->matrix.getDiag();
    // n_i = 1 / sum_j |a_ij|^order
    Vector n;
    n.createComplex(this->matrix.rowNorm(order), {});
    Vector::pow(T(static_cast<RealType<T>>(order)), n);
    Vector::reciprocal(T(1), n);
    d.copyStructure(this->inverse);
    this->inverse.fill(T(0));
    Vector::axypbz(T(1), d, n, T(0), this->inverse);
  }
  this->setupTime.stop();
}

#define MIVO_INSTANCE(T) template class ParSmootherJacobiLp_T<T, long, int>;
MIVO_INSTANTIATE_SCALARS(MIVO_INSTANCE)
#undef MIVO_INSTANCE

#define MIVO_REGISTER_ROLE(FAMILY, NAME, T) \
  MIVO_REGISTER(FAMILY, NAME, T, long, int, ParSmootherJacobiLp_T<T, long, int>)
#define MIVO_REGISTER_TYPE(T)                             \
  MIVO_REGISTER_ROLE(ParSmootherT, "SmootherJacobiLp", T) \
  MIVO_REGISTER_ROLE(ParPreconditionerT, "PrecondJacobiLp", T)
MIVO_INSTANTIATE_SCALARS(MIVO_REGISTER_TYPE)
MIVO_REGISTER_ROLE(ParSolverT, "SolverJacobiLp", double)
MIVO_REGISTER_ROLE(ParSolverT, "SolverJacobiLp", Complex<float>)
MIVO_REGISTER_ROLE(ParSolverT, "SolverJacobiLp", Complex<double>)
// For float the name stands in the smoother family; configurations in use rely on it.
MIVO_REGISTER_ROLE(ParSmootherT, "SolverJacobiLp", float)
#undef MIVO_REGISTER_TYPE
#undef MIVO_REGISTER_ROLE

}  // namespace mivo
