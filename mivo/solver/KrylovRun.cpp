// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/KrylovRun.hpp"

#include <algorithm>

#include "mivo/solver/residual_table.hpp"

namespace mivo {

template <class T, class G, class L>
bool KrylovRun<T, G, L>::begin() {
  solver_.takeRanks(A_);
  bnorm = Vector::normL2(b_);
  if (bnorm != R(0)) return true;
  x_.fill(T(0));
  return false;
}

template <class T, class G, class L>
void KrylovRun<T, G, L>::create(std::initializer_list<Vector*> work) const {
  for (Vector* v : work) {
    v->create(b_.getRowPartitioner(), b_.getColPartitioner(), A_.getDevice(), A_.getComm());
  }
}

template <class T, class G, class L>
typename KrylovRun<T, G, L>::R KrylovRun<T, G, L>::takeRightHandSide(Vector& r) const {
  b_.deepCopy(r);
  return Vector::normL2(r);
}

template <class T, class G, class L>
void KrylovRun<T, G, L>::start(Vector& r) {
  start(r, [&] {
    A_.aAxpby(T(1), x_, T(0), r, nullptr);
    Vector::axpby(T(1), b_, T(-1), r);
    return Vector::normL2(r);
  });
}

template <class T, class G, class L>
void KrylovRun<T, G, L>::startWith(R norm) {
  r0 = res = norm;
  tol = static_cast<R>(std::max({options_.atol, options_.btol * static_cast<double>(bnorm),
                                 static_cast<double>(solver_.rtol * r0)}));
  int unused = 0;
  solver_.beginSolve(P_, A_, b_, x_, unused, res);
  solver_.logSolverStatus(P_, 0, r0, r0 / r0, r0 / bnorm);
  if (table()) {
    printTableHead(options_.title, options_.atol, static_cast<double>(solver_.rtol), options_.btol,
                   r0, r0 / bnorm);
  }
}

template <class T, class G, class L>
void KrylovRun<T, G, L>::status(R norm) {
  res = norm;
  const auto row = [&] {
    if (table()) printTableRow(its, res, res / r0, res / bnorm);
  };
  if (!options_.row_after_status) row();
  solver_.logSolverStatus(P_, its, res, res / r0, res / bnorm);
  if (options_.row_after_status) row();
}

template <class T, class G, class L>
void KrylovRun<T, G, L>::finish(int& iter, R& relres) {
  iter = its;
  relres = res / bnorm;
  solver_.finishSolve(P_, solver_.max_its, its, relres);
}

MIVO_INSTANCE_SCALARS(KrylovRun, long, int)

}  // namespace mivo
