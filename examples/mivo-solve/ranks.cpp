// SPDX-License-Identifier: Apache-2.0
#include "ranks.hpp"

#include <cstdlib>
#include <new>

#include "input_error.hpp"
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

void onRoot(const std::function<void()>& action) {
  std::string fault;
  bool failed = false;
  if (worldRank() == 0) {
    try {
      action();
    } catch (const std::bad_alloc& error) {
      failed = true;
      fault = std::string("the run cannot go on: ") + error.what();
    } catch (const std::exception& error) {
      failed = true;
      fault = error.what();
    }
  }
  // A first letter tells an empty text from none.
  std::string message = failed ? "!" + fault : "";
  broadcast(message);
  if (!message.empty()) {
    throw InputError(message.substr(1));
  }
}

bool onAnyRank(bool value) {
  const int mine = value ? 1 : 0;
  int all = mine;
  MPI_Allreduce(&mine, &all, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
  return all != 0;
}

double slowest(double seconds) {
  double all = seconds;
  MPI_Allreduce(&seconds, &all, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
  return all;
}

Extent extentOverRanks(long value) {
  // The least is the greatest of the negative ones.
  const long mine[2] = {-value, value};
  long all[2] = {};
  MPI_Allreduce(mine, all, 2, MPI_LONG, MPI_MAX, MPI_COMM_WORLD);
  return {-all[0], all[1]};
}

void abortAll() {
  if (worldSize() > 1) {
    MPI_Abort(MPI_COMM_WORLD, 1);
  }
  std::_Exit(1);
}

}  // namespace mivo_solve
