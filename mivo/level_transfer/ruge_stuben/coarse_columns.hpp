// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>
#include <numeric>
#include <vector>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/assembly/ColumnBlocks.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

// What the interpolations have in common about coarse unknowns. Internal.

/// Numbers of C points on this rank, on lower ranks, and on all. Collective.
struct CoarseCount {
  int own = 0;
  int before = 0;
  long all = 0;

  CoarseCount(int comm, int number) : own(number) {
    const int rank = rankOf(comm), nprocs = sizeOf(comm);
    const long mine = own;
    std::vector<long> counts(static_cast<std::size_t>(nprocs));
    MPI_Allgather(&mine, 1, MPI_LONG, counts.data(), 1, MPI_LONG, comm);
    all = std::accumulate(counts.begin(), counts.end(), 0L);
    MIVO_CHECK(all <= std::numeric_limits<int>::max())
        << "interpolation: " << all << " coarse unknowns exceed the index type";
    before = static_cast<int>(std::accumulate(counts.begin(), counts.begin() + rank, 0L));
  }
};

/// A prolongation with this rank's rows, whose columns are global, cut evenly over the ranks.
template <class T, class G, class L>
void createProlongation(const ParCSRMatrixT<T, G, L>& A, const CSRMatrixT<T, L>& rows, G ncoarse,
                        ParCSRMatrixT<T, G, L>& P) {
  PartitionerT<G, L> columns;
  columns.create(ncoarse, A.getRowPartitioner().getNumParts());
  P.create(A.getRowPartitioner(), columns, cutColumns(rows, columns), A.getDevice(), A.getComm());
}

}  // namespace mivo
