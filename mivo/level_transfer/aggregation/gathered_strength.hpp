// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/ranks.hpp"

namespace mivo {

// What the aggregators that work on rank 0 have in common. Internal.

/// The strength matrix on rank 0, with its shape also when it has no entries; empty elsewhere.
template <class G, class L>
CSRMatrixT<int, L> gatherStrength(const ParCSRMatrixT<int, G, L>& S) {
  const int rank = rankOf(S.getComm()), nprocs = sizeOf(S.getComm());
  // On one rank there is nothing to move, and the matrix is only read.
  CSRMatrixT<int, L> whole = nprocs == 1 ? S.getLocalMatrix(-1) : S.gather(0);
  if (rank == 0 && whole.getNnz() == 0) {
    whole = CSRMatrixT<int, L>();
    whole.create(static_cast<L>(S.getRows()), static_cast<L>(S.getCols()), 0, S.getDevice());
  }
  return whole;
}

/// Spreads what rank 0 has found like the rows of S.
template <class G, class L>
void scatterAggregates(const ParCSRMatrixT<int, G, L>& S,
                       const MatrixT<int, L, MatrixLayoutRowMajor>& whole,
                       ParMatrixT<int, G, L>& aggr, G& naggr) {
  // By way of the host: each rank has a device of its own.
  ParMatrixT<int, G, L> onHost;
  onHost.scatter(S.getComm(), 0, whole.toDevice(Device()), S.getRowPartitioner());
  aggr = onHost.toDevice(S.getDevice());
  long count = static_cast<long>(naggr);
  MPI_Bcast(&count, 1, MPI_LONG, 0, S.getComm());
  naggr = static_cast<G>(count);
}

}  // namespace mivo
