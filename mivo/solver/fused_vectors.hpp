// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

#include "mivo/comu/message_type.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/ops/FusedOps.hpp"

namespace mivo {

// Sequences of operations of `ParMatrixT` with fewer passes over the vectors. Bits, collectives and
// failures are those of the separate calls that stand in each body, which run when the vectors do
// not fit together: at least one of them then ends the process, with the text of its check.

/// Collective.
template <class T>
T sumOverRanks(T value, int comm) {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, comu::messageType<T>(), MPI_SUM, comm);
  return value;
}

/// The 2-norm that belongs to this rank's share of the sum of squares. Collective.
template <class R>
R normOfLocalSquares(R squares, int comm) {
  return std::sqrt(sumOverRanks(squares, comm));
}

/// Equal sizes and kinds of device.
template <class Local, class... Others>
bool fitTogether(const Local& first, const Others&... others) {
  return (
      (others.getSize() == first.getSize() && others.getDevice().type == first.getDevice().type) &&
      ...);
}

/// x = x + alpha p, r = r - alpha q; returns |r|. Collective.
template <class T, class G, class L>
RealType<T> updateSolutionAndResidual(T alpha, const ParMatrixT<T, G, L>& p, ParMatrixT<T, G, L>& x,
                                      const ParMatrixT<T, G, L>& q, ParMatrixT<T, G, L>& r) {
  using Vector = ParMatrixT<T, G, L>;
  const auto lp = p.getLocalMatrix(), lx = x.getLocalMatrix();
  const auto lq = q.getLocalMatrix(), lr = r.getLocalMatrix();
  if (!fitTogether(lr, lp, lx, lq)) {
    Vector::axpby(alpha, p, T(1), x);
    Vector::axpby(-alpha, q, T(1), r);
    return Vector::normL2(r);
  }
  const RealType<T> squares = FusedOps<T, L>::cg_update(
      lr.getDevice(), lr.getSize(), alpha, lp.getData(), lx.getData(), lq.getData(), lr.getData());
  return normOfLocalSquares(squares, r.getComm());
}

/// y = y + a x; returns (y, z). Collective.
template <class T, class G, class L>
T addAndDot(T a, const ParMatrixT<T, G, L>& x, ParMatrixT<T, G, L>& y,
            const ParMatrixT<T, G, L>& z) {
  using Vector = ParMatrixT<T, G, L>;
  const auto lx = x.getLocalMatrix(), ly = y.getLocalMatrix(), lz = z.getLocalMatrix();
  if (!fitTogether(ly, lx, lz)) {
    Vector::axpby(a, x, T(1), y);
    return Vector::dot(y, z);
  }
  return sumOverRanks(FusedOps<T, L>::axpy_dot(ly.getDevice(), ly.getSize(), a, lx.getData(),
                                               ly.getData(), lz.getData()),
                      y.getComm());
}

/// z = a x + b y; returns |z|. z may be x or y. Collective.
template <class T, class G, class L>
RealType<T> combineAndNorm(T a, const ParMatrixT<T, G, L>& x, T b, const ParMatrixT<T, G, L>& y,
                           ParMatrixT<T, G, L>& z) {
  using Vector = ParMatrixT<T, G, L>;
  const auto lx = x.getLocalMatrix(), ly = y.getLocalMatrix(), lz = z.getLocalMatrix();
  if (!fitTogether(lz, lx, ly)) {
    Vector::axpbypcz(a, x, b, y, T(0), z);
    return Vector::normL2(z);
  }
  return std::sqrt(
      sumOverRanks(FusedOps<T, L>::axpby_squares(lz.getDevice(), lz.getSize(), a, lx.getData(), b,
                                                 ly.getData(), lz.getData()),
                   z.getComm()));
}

/// Ends the process, with the text of `ParMatrixT::axpy`, unless all vectors fit together: a
/// product or a preconditioner of the caller's may have given one another length.
template <class T, class G, class L, class... Others>
void expectFit(ParMatrixT<T, G, L>& y, const Others&... others) {
  const auto expect = [&y](const auto& x) {
    if (!fitTogether(y.getLocalMatrix(), x.getLocalMatrix())) ParMatrixT<T, G, L>::axpy(T(0), x, y);
  };
  (expect(others), ...);
}

/// r = r + a v + b v_old, z = z + a u + b u_old; returns (r, z). Bits are those of four calls of
/// `ParMatrixT::axpy` and one of `dot`, with one pass. Vectors that do not fit together end the
/// process, as in what follows. Collective.
template <class T, class G, class L>
T lanczosPair(T a, const ParMatrixT<T, G, L>& v, const ParMatrixT<T, G, L>& u, T b,
              const ParMatrixT<T, G, L>& v_old, const ParMatrixT<T, G, L>& u_old,
              ParMatrixT<T, G, L>& r, ParMatrixT<T, G, L>& z) {
  expectFit(r, v, u, v_old, u_old, z);
  const auto local = r.getLocalMatrix();
  T sum = FusedOps<T, L>::lanczos_pair(
      local.getDevice(), local.getSize(), a, v.getLocalMatrix().getData(),
      u.getLocalMatrix().getData(), b, v_old.getLocalMatrix().getData(),
      u_old.getLocalMatrix().getData(), local.getData(), z.getLocalMatrix().getData());
  MPI_Allreduce(MPI_IN_PLACE, &sum, 1, comu::messageType<T>(), MPI_SUM, r.getComm());
  return sum;
}

/// w = g u + d w_old + e w, x = x + step w.
template <class T, class G, class L>
void minresStep(T g, const ParMatrixT<T, G, L>& u, T d, const ParMatrixT<T, G, L>& w_old, T e,
                ParMatrixT<T, G, L>& w, T step, ParMatrixT<T, G, L>& x) {
  expectFit(x, u, w_old, w);
  const auto local = x.getLocalMatrix();
  FusedOps<T, L>::minres_step(local.getDevice(), local.getSize(), g, u.getLocalMatrix().getData(),
                              d, w_old.getLocalMatrix().getData(), e, w.getLocalMatrix().getData(),
                              step, local.getData());
}

/// See `FusedOps::symmlq_step`.
template <class T, class G, class L>
void symmlqStep(T c, T s, const ParMatrixT<T, G, L>& u, ParMatrixT<T, G, L>& w_bar, T step,
                ParMatrixT<T, G, L>& x) {
  expectFit(x, u, w_bar);
  const auto local = x.getLocalMatrix();
  FusedOps<T, L>::symmlq_step(local.getDevice(), local.getSize(), c, s,
                              u.getLocalMatrix().getData(), w_bar.getLocalMatrix().getData(), step,
                              local.getData());
}

/// See `FusedOps::qlp_step`.
template <class T, class G, class L>
void qlpStep(T g, const ParMatrixT<T, G, L>& z, T c2, T s2, T c1, T s1, T step,
             ParMatrixT<T, G, L>& w_old, ParMatrixT<T, G, L>& w, ParMatrixT<T, G, L>& x) {
  expectFit(x, z, w_old, w);
  const auto local = x.getLocalMatrix();
  FusedOps<T, L>::qlp_step(local.getDevice(), local.getSize(), g, z.getLocalMatrix().getData(), c2,
                           s2, c1, s1, step, w_old.getLocalMatrix().getData(),
                           w.getLocalMatrix().getData(), local.getData());
}

}  // namespace mivo
