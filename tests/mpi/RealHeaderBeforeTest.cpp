// SPDX-License-Identifier: Apache-2.0

// The message-passing library's own mpi.h, before the header of this library.

#include <gtest/gtest.h>
#include <mpi.h>

#include "mivo/mivo.hpp"

namespace mivo {
namespace {

TEST(RealHeader, MayComeBeforeThisLibrarysAndServeItsCommunicators) {
  ParMatrixT<double, long, int> x(100, Device(), MPI_COMM_WORLD);
  x.fill(1);
  long begin = 0, end = 0;
  x.getOwnerShipRange(&begin, &end);
  long rows = end - begin;
  MPI_Allreduce(MPI_IN_PLACE, &rows, 1, MPI_LONG, MPI_SUM, x.getComm());
  EXPECT_EQ(rows, 100);
  EXPECT_EQ(decltype(x)::normL1(x), 100);
}

}  // namespace
}  // namespace mivo
