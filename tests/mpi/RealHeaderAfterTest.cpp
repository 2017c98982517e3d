// SPDX-License-Identifier: Apache-2.0

// The message-passing library's own mpi.h, after the headers of this library.

// The order is the matter of the test.
// clang-format off
#include "mivo/mivo.hpp"
#include <mpi.h>
// clang-format on

#include <gtest/gtest.h>

#include "tests/mpi/encoding.hpp"

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

/// Solves a tridiagonal system on the ranks of a communicator and compares with the solution.
void solveOn(MPI_Comm comm) {
  const long n = 23;
  ParCSRMatrixT<double, long, int> A;
  A.create(n, n, Device(), comm);
  ParMatrixT<double, long, int> x(n, Device(), comm), b(n, Device(), comm);
  int rank = 0, size = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &size);
  long begin = 0, end = 0;
  A.getOwnerShipRange(&begin, &end);
  EXPECT_EQ(end - begin, n / size + (rank < n % size ? 1 : 0));
  A.beginAssemble();
  // Each rank sets the rows of its neighbour.
  for (long i = 0; i < n; ++i) {
    if (i % size != rank) continue;
    A.setValue(i, i, 4, SetValueMode::Set);
    if (i > 0) A.setValue(i, i - 1, -1, SetValueMode::Set);
    if (i < n - 1) A.setValue(i, i + 1, -1, SetValueMode::Set);
  }
  A.endAssemble();
  for (long i = begin; i < end; ++i) b.setElementValue(i, 0, i == 0 || i == n - 1 ? 3 : 2);
  x.fill(0);
  auto solver = ParSolverT<double, long, int>::getFactory().createInstance(
      json{{"solver_type", "SolverPCG"}, {"SolverPCG_params", {{"rtol", 1e-12}}}});
  int iterations = 0;
  double residual = 1;
  solver->solve(A, b, x, iterations, residual);
  for (long i = begin; i < end; ++i) EXPECT_NEAR(x.getElementValue(i, 0, nullptr), 1, 1e-10);
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
