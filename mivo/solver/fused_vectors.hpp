// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

#include "mivo/comu/message_type.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/ops/FusedOps.hpp"

namespace mivo {

// Sequences of operations of `ParMatrixT` with fewer passes over the vectors. Bits and collectives
// are those of the separate calls. So are the ends of the process where vectors do not fit
// together, which a product or a preconditioner of the caller's may bring about: each function
// begins with the calls that refuse them.

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

/// This rank's values.
template <class Vector>
auto* dataOf(const Vector& v) {
  return v.getLocalMatrix().getData();
}

/// Equal local sizes and kinds of device.
template <class Vector, class... Others>
bool fitTogether(const Vector& first, const Others&... others) {
  const auto local = first.getLocalMatrix();
  const auto fits = [&](const auto& other) {
    return other.getSize() == local.getSize() && other.getDevice().type == local.getDevice().type;
  };
  return (fits(others.getLocalMatrix()) && ...);
}

/// Ends the process by the check of `ParMatrixT::axpy` unless all vectors fit together.
template <class Vector, class... Others>
void expectFit(Vector& y, const Others&... others) {
  if (!fitTogether(y, others...)) (Vector::axpy(0, others, y), ...);
}

/// x = x + alpha p, r = r - alpha q; returns |r|. Collective.
template <class T, class G, class L>
RealType<T> updateSolutionAndResidual(T alpha, const ParMatrixT<T, G, L>& p, ParMatrixT<T, G, L>& x,
                                      const ParMatrixT<T, G, L>& q, ParMatrixT<T, G, L>& r) {
  using Vector = ParMatrixT<T, G, L>;
  if (!fitTogether(r, p, x, q)) {
    Vector::axpby(alpha, p, T(1), x);
    Vector::axpby(-alpha, q, T(1), r);
    Vector::axpby(T(1), x, T(0), r);
  }
  const auto local = r.getLocalMatrix();
  return normOfLocalSquares(
      FusedOps<T, L>::cg_update(local.getDevice(), local.getSize(), alpha, dataOf(p), dataOf(x),
                                dataOf(q), local.getData()),
      r.getComm());
}

/// y = y + a x; returns (y, z). Collective.
template <class T, class G, class L>
T addAndDot(T a, const ParMatrixT<T, G, L>& x, ParMatrixT<T, G, L>& y,
            const ParMatrixT<T, G, L>& z) {
  using Vector = ParMatrixT<T, G, L>;
  if (!fitTogether(y, x, z)) {
    Vector::axpby(a, x, T(1), y);
    Vector::dot(y, z);
  }
  const auto local = y.getLocalMatrix();
  return sumOverRanks(FusedOps<T, L>::axpy_dot(local.getDevice(), local.getSize(), a, dataOf(x),
                                               local.getData(), dataOf(z)),
                      y.getComm());
}

/// z = a x + b y; returns |z|. z may be x or y. Collective.
template <class T, class G, class L>
RealType<T> combineAndNorm(T a, const ParMatrixT<T, G, L>& x, T b, const ParMatrixT<T, G, L>& y,
                           ParMatrixT<T, G, L>& z) {
  if (!fitTogether(z, x, y)) ParMatrixT<T, G, L>::axpbypcz(a, x, b, y, T(0), z);
  const auto local = z.getLocalMatrix();
  return normOfLocalSquares(FusedOps<T, L>::axpby_squares(local.getDevice(), local.getSize(), a,
                                                          dataOf(x), b, dataOf(y), local.getData()),
                            z.getComm());
}

/// r = r + a v + b v_old, z = z + a u + b u_old; returns (r, z). Collective.
template <class T, class G, class L>
T lanczosPair(T a, const ParMatrixT<T, G, L>& v, const ParMatrixT<T, G, L>& u, T b,
              const ParMatrixT<T, G, L>& v_old, const ParMatrixT<T, G, L>& u_old,
              ParMatrixT<T, G, L>& r, ParMatrixT<T, G, L>& z) {
  expectFit(r, v, u, v_old, u_old, z);
  const auto local = r.getLocalMatrix();
  return sumOverRanks(
      FusedOps<T, L>::lanczos_pair(local.getDevice(), local.getSize(), a, dataOf(v), dataOf(u), b,
                                   dataOf(v_old), dataOf(u_old), local.getData(), dataOf(z)),
      r.getComm());
}

/// w = g u + d w_old + e w, x = x + step w.
template <class T, class G, class L>
void minresStep(T g, const ParMatrixT<T, G, L>& u, T d, const ParMatrixT<T, G, L>& w_old, T e,
                ParMatrixT<T, G, L>& w, T step, ParMatrixT<T, G, L>& x) {
  expectFit(x, u, w_old, w);
  const auto local = x.getLocalMatrix();
  FusedOps<T, L>::minres_step(local.getDevice(), local.getSize(), g, dataOf(u), d, dataOf(w_old), e,
                              dataOf(w), step, local.getData());
}

/// See `FusedOps::symmlq_step`.
template <class T, class G, class L>
void symmlqStep(T c, T s, const ParMatrixT<T, G, L>& u, ParMatrixT<T, G, L>& w_bar, T step,
                ParMatrixT<T, G, L>& x) {
  expectFit(x, u, w_bar);
  const auto local = x.getLocalMatrix();
  FusedOps<T, L>::symmlq_step(local.getDevice(), local.getSize(), c, s, dataOf(u), dataOf(w_bar),
                              step, local.getData());
}

/// See `FusedOps::qlp_step`.
template <class T, class G, class L>
void qlpStep(T g, const ParMatrixT<T, G, L>& z, T c2, T s2, T c1, T s1, T step,
             ParMatrixT<T, G, L>& w_old, ParMatrixT<T, G, L>& w, ParMatrixT<T, G, L>& x) {
  expectFit(x, z, w_old, w);
  const auto local = x.getLocalMatrix();
  FusedOps<T, L>::qlp_step(local.getDevice(), local.getSize(), g, dataOf(z), c2, s2, c1, s1, step,
                           dataOf(w_old), dataOf(w), local.getData());
}

}  // namespace mivo
