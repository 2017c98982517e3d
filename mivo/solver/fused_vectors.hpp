// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>

#include "mivo/comu/message_type.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/ops/FusedOps.hpp"

namespace mivo {

/// The 2-norm that belongs to this rank's share of the sum of squares. Collective.
template <class R>
R normOfLocalSquares(R squares, int comm) {
  MPI_Allreduce(MPI_IN_PLACE, &squares, 1, comu::messageType<R>(), MPI_SUM, comm);
  return std::sqrt(squares);
}

/// x = x + alpha p, r = r - alpha q; returns |r|. Bits, collectives and failures are those of two
/// calls of `ParMatrixT::axpby` and one of `normL2`, with one pass over the vectors. Collective.
template <class T, class G, class L>
RealType<T> updateSolutionAndResidual(T alpha, const ParMatrixT<T, G, L>& p, ParMatrixT<T, G, L>& x,
                                      const ParMatrixT<T, G, L>& q, ParMatrixT<T, G, L>& r) {
  using Vector = ParMatrixT<T, G, L>;
  const auto local_p = p.getLocalMatrix(), local_x = x.getLocalMatrix();
  const auto local_q = q.getLocalMatrix(), local_r = r.getLocalMatrix();
  const Device device = local_r.getDevice();
  for (const auto* v : {&local_p, &local_x, &local_q}) {
    if (v->getSize() == local_r.getSize() && v->getDevice().type == device.type) continue;
    // At least one of these ends the process, with the text of its check.
    Vector::axpby(alpha, p, T(1), x);
    Vector::axpby(-alpha, q, T(1), r);
    return Vector::normL2(r);
  }
  const RealType<T> squares =
      FusedOps<T, L>::cg_update(device, local_r.getSize(), alpha, local_p.getData(),
                                local_x.getData(), local_q.getData(), local_r.getData());
  return normOfLocalSquares(squares, r.getComm());
}

}  // namespace mivo
