// SPDX-License-Identifier: Apache-2.0
#include "mivo/comu/row_numbering.hpp"

#include <algorithm>
#include <cstddef>
#include <numeric>

#include "mivo/comu/serialization.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/ranks.hpp"

namespace mivo::comu::detail {

RowNumbering::RowNumbering(int comm, const std::vector<int>& rows, const std::vector<int>& ptr) {
  int anyListed = rows.empty() ? 0 : 1;
  MPI_Allreduce(MPI_IN_PLACE, &anyListed, 1, MPI_INT, MPI_MAX, comm);
  listed = anyListed != 0;
  if (listed) {
    ids = rows;
    return;
  }
  const int rank = rankOf(comm), nprocs = sizeOf(comm);
  const int count = ptr.empty() ? 0 : narrowToInt(ptr.size() - 1, "rows");
  std::vector<int> counts(static_cast<std::size_t>(nprocs));
  MPI_Allgather(&count, 1, MPI_INT, counts.data(), 1, MPI_INT, comm);
  std::size_t first = 0;
  for (const int c : counts) {
    offsets.push_back(narrowToInt(first, "rows"));
    first += static_cast<std::size_t>(c);
  }
  offsets.push_back(narrowToInt(first, "rows"));
  ids.resize(static_cast<std::size_t>(count));
  std::iota(ids.begin(), ids.end(), offsets[static_cast<std::size_t>(rank)]);
}

int RowNumbering::ownerOf(int id) const {
  const auto above = std::upper_bound(offsets.begin(), offsets.end(), id);
  if (above == offsets.begin() || above == offsets.end()) return -1;
  return static_cast<int>(above - offsets.begin()) - 1;
}

}  // namespace mivo::comu::detail
