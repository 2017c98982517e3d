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

MIVO_INSTANCE_SCALARS(ParSmootherJacobiLp_T, long, int)
MIVO_REGISTER_SCALARS(ParSmootherT, "SmootherJacobiLp", ParSmootherJacobiLp_T)
MIVO_REGISTER_SCALARS(ParPreconditionerT, "PrecondJacobiLp", ParSmootherJacobiLp_T)
MIVO_REGISTER_CLASS(double, ParSolverT, "SolverJacobiLp", ParSmootherJacobiLp_T)
MIVO_REGISTER_CLASS(Complex<float>, ParSolverT, "SolverJacobiLp", ParSmootherJacobiLp_T)
MIVO_REGISTER_CLASS(Complex<double>, ParSolverT, "SolverJacobiLp", ParSmootherJacobiLp_T)
// For float the name stands in the smoother family; configurations in use rely on it.
MIVO_REGISTER_CLASS(float, ParSmootherT, "SolverJacobiLp", ParSmootherJacobiLp_T)

}  // namespace mivo
