// SPDX-License-Identifier: Apache-2.0

// The message-passing library's own mpi.h, after the headers of this library.

// The order is the matter of the test.
// clang-format off
#include "mivo/mivo.hpp"
#include <mpi.h>
// clang-format on

#include <gtest/gtest.h>

#include "tests/mpi/encoding.hpp"
#include "tests/support/operators.hpp"
#include "tests/support/poisson.hpp"

namespace mivo {
namespace test {

Encoding encodingOfLibrary();

}  // namespace test
namespace {

TEST(RealHeader, AgreesWithTheDeclarationsOfTheLibrary) {
  const test::Encoding real = test::readEncoding(), own = test::encodingOfLibrary();
  EXPECT_GT(own.constants.size(), 15u);
  EXPECT_GT(own.functions.size(), 20u);
  EXPECT_EQ(own.constants, real.constants);
  EXPECT_EQ(own.functions, real.functions);
  EXPECT_EQ(own.layout, real.layout);
  EXPECT_EQ(kCommWorld, MPI_COMM_WORLD);
  EXPECT_EQ(kCommSelf, MPI_COMM_SELF);
  EXPECT_EQ(real.layout.at("MPI_Status"), 5 * sizeof(int));
  EXPECT_EQ(real.layout.at("MPI_SOURCE"), 2 * sizeof(int));
}

// The halo exchange starts with these in its requests.
TEST(RealHeader, AgreesWithTheRequestsOfThePublicHeader) {
  using Plan = SpMVCommPatternT<double, long, int>;
  EXPECT_EQ(Plan::SpmvColBlock().recv_request, MPI_REQUEST_NULL);
  EXPECT_EQ(Plan::SpmvSendMeta().send_request, MPI_REQUEST_NULL);
}

/// Solves on the ranks of a communicator and compares with the solution of one rank.
void solveOn(MPI_Comm comm) {
  const json problem = {{"dim", 1}, {"N", 23}};
  const test::Poisson<double> system(problem, Device(), comm);
  int rank = 0, size = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &size);
  long begin = 0, end = 0;
  system.A.getOwnerShipRange(&begin, &end);
  EXPECT_EQ(end - begin, 23 / size + (rank < 23 % size ? 1 : 0));
  const test::Poisson<double> whole(problem, Device(), kCommSelf);
  const json pcg = test::solverWith("SolverPCG", test::precondOf("PrecondJacobi"));
  const test::SolverRun<double> here(system.A, system.b, system.b.deepCopy(), pcg),
      alone(whole.A, whole.b, whole.b.deepCopy(), pcg);
  EXPECT_EQ(here.history.size(), alone.history.size());
  test::expectNear(here.x, {alone.x.begin() + begin, alone.x.begin() + end});
}

TEST(RealHeader, CommunicatorsOfTheProgramCarryMatrices) {
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm copy = MPI_COMM_NULL, reversed = MPI_COMM_NULL, half = MPI_COMM_NULL;
  MPI_Comm_dup(MPI_COMM_WORLD, &copy);
  MPI_Comm_split(MPI_COMM_WORLD, 0, -rank, &reversed);
  // Both halves solve at the same time, on three ranks with messages in one of them only, which the
  // solves of all ranks must not notice.
  MPI_Comm_split(MPI_COMM_WORLD, rank % 2, rank, &half);
  for (MPI_Comm* comm : {&copy, &half, &reversed}) {
    solveOn(*comm);
    MPI_Comm_free(comm);
  }
}

}  // namespace
}  // namespace mivo
