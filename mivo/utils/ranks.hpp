// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mpi_stub/mpi.h"

namespace mivo {

// Internal, like the header of the message layer.

/// This process's number in the communicator. Local.
inline int rankOf(int comm) {
  int rank = 0;
  MPI_Comm_rank(comm, &rank);
  return rank;
}

/// Processes of the communicator. Local.
inline int sizeOf(int comm) {
  int size = 1;
  MPI_Comm_size(comm, &size);
  return size;
}

}  // namespace mivo
