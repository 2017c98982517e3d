// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/SolverAdamW.hpp"

#include <cstdint>

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/ops/BlasOps.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"

namespace mivo {

template <class T, class G, class L>
SolverAdamW_T<T, G, L>::~SolverAdamW_T() = default;

template <class T, class G, class L>
void SolverAdamW_T<T, G, L>::create(const json& params) {
  Base::create(params, "AdamW");
  readJsonKey(params, "learning_rate", learning_rate);
  readJsonKey(params, "beta1", beta1);
  readJsonKey(params, "beta2", beta2);
  readJsonKey(params, "epsilon", epsilon);
  readJsonKey(params, "weight_decay", weight_decay);
  readJsonKey(params, "amsgrad", amsgrad);
  readJsonKey(params, "maximize", maximize);
}

template <class T, class G, class L>
void SolverAdamW_T<T, G, L>::setup(const Operator&) {}

template <class T, class G, class L>
void SolverAdamW_T<T, G, L>::solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x,
                                   int& iter, R& relres) {
  this->takeRanks(A);
  const auto shape = [&](auto& v) {
    v.create(b.getRowPartitioner(), b.getColPartitioner(), A.getDevice(), A.getComm());
  };
  Vector g, m;
  ParMatrixT<R, G, L> v, vmax;
  shape(g);
  shape(m);
  shape(v);
  shape(vmax);
  m.fill(T(0));
  v.fill(R(0));
  vmax.fill(R(0));

  const R normb = Vector::normL2(b);
  this->beginSolve(P, A, b, x, iter, relres);
  R rel = R(0);
  // 64 bits, since the last step may be the largest int.
  std::int64_t t = 1;
  // A step reads b, A x, g, x, m, v, vmax and writes A x, g, x, m, v: 12 vectors beside the
  // product, 14 with "amsgrad" or where g turns its sign in a pass of its own.
  for (; t <= this->max_its; ++t) {
    // g = b - A x
    const R res = Vector::residual(A, x, b, g);
    // g = A x - b
    if (!maximize) Vector::scale(T(-1), g);
    // The ratios of the step before.
    this->logSolverStatus(P, static_cast<int>(t), res, rel, rel);
    rel = res / normb;
    if (this->rtol > rel) break;
    const auto local = x.getLocalMatrix();
    BlasOps<T, L>::adamw_step(A.getDevice(), local.getSize(), g.getLocalMatrix().getData(),
                              local.getData(), m.getLocalMatrix().getData(),
                              v.getLocalMatrix().getData(), vmax.getLocalMatrix().getData(),
                              T(R(learning_rate)), R(beta1), R(beta2), R(epsilon),
                              T(R(weight_decay)), amsgrad ? 1 : 0, static_cast<L>(t));
  }
  iter = static_cast<int>(t);
  relres = rel;
  this->finishSolve(P, this->max_its, iter, rel);
}

MIVO_INSTANCE_SCALARS(SolverAdamW_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverAdamW", SolverAdamW_T)

}  // namespace mivo
