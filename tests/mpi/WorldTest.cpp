// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>

#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/communicator.hpp"

namespace mivo {
namespace {

// Without the real functions every rank would be a world of one, and all suites of the program
// would pass for nothing.
TEST(World, HasAsManyRanksAsTheLauncherStarted) {
  int size = 0, rank = -1;
  MPI_Comm_size(kCommWorld, &size);
  MPI_Comm_rank(kCommWorld, &rank);
  const char* started = std::getenv("MIVO_TEST_RANKS");
  EXPECT_EQ(size, started != nullptr ? std::atoi(started) : 1);
  int sum = 0;
  MPI_Allreduce(&rank, &sum, 1, MPI_INT, MPI_SUM, kCommWorld);
  EXPECT_EQ(sum, size * (size - 1) / 2);
}

}  // namespace
}  // namespace mivo
