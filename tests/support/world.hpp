// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/communicator.hpp"

namespace mivo::test {

inline int worldRank() {
  int rank = 0;
  MPI_Comm_rank(kCommWorld, &rank);
  return rank;
}

inline int worldSize() {
  int size = 1;
  MPI_Comm_size(kCommWorld, &size);
  return size;
}

}  // namespace mivo::test
