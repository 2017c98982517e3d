// SPDX-License-Identifier: Apache-2.0
#include "mivo/precond/ParSolverList.hpp"

#include <cstddef>

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/precond/list_members.hpp"

namespace mivo {

template <class T, class G, class L>
ParSolverList_T<T, G, L>::~ParSolverList_T() = default;

template <class T, class G, class L>
void ParSolverList_T<T, G, L>::create(const json& params) {
  Base::create(params, "SolverList");
  members_ = makeListMembers<Base>(*this, params);
}

template <class T, class G, class L>
void ParSolverList_T<T, G, L>::setup(const Operator& A) {
  forEachMember(members_, [&](auto& member) { member.setup(A); });
}

template <class T, class G, class L>
void ParSolverList_T<T, G, L>::solve(Preconditioner& P, Operator& A, const Vector& b, Vector& x,
                                     int& iter, R& relres) {
  this->takeRanks(A);
  const R bnorm = Vector::normL2(b);
  const R r0 = Vector::residual(A, x, b);
  this->beginSolve(P, A, b, x, iter, relres);

  R rel = r0 / bnorm;
  for (std::size_t i = 0; i < members_.size(); ++i) {
    if (members_[i] == nullptr) continue;
    members_[i]->solve(P, A, b, x, iter, relres);
    const R res = Vector::residual(A, x, b);
    rel = res / bnorm;
    this->logSolverStatus(P, static_cast<int>(i), res, res / r0, rel);
    if (this->rtol > rel) break;
  }

  iter = 0;
  relres = rel;
  this->finishSolve(P, this->max_its, 0, rel);
}

MIVO_INSTANCE_SCALARS(ParSolverList_T, long, int)
MIVO_REGISTER_SCALARS(ParSolverT, "SolverList", ParSolverList_T)

}  // namespace mivo
