// SPDX-License-Identifier: Apache-2.0
#include "ranks.hpp"

#include <cstdlib>

#include "mivo/mpi_stub/mpi.h"

namespace mivo_solve {

int worldRank() {
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  return rank;
}

int worldSize() {
  int size = 1;
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  return size;
}

void broadcast(std::string& text) {
  // The configuration is the longest text that travels, and that is far from the range of an int.
  int length = static_cast<int>(text.size());
  MPI_Bcast(&length, 1, MPI_INT, 0, MPI_COMM_WORLD);
  text.resize(static_cast<std::size_t>(length));
  MPI_Bcast(&text[0], length, MPI_BYTE, 0, MPI_COMM_WORLD);
}

void abortAll() {
  if (worldSize() > 1) {
    MPI_Abort(MPI_COMM_WORLD, 1);
  }
  std::_Exit(1);
}

}  // namespace mivo_solve
