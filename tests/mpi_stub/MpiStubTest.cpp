// SPDX-License-Identifier: Apache-2.0

// The message layer of one process, called through the library's symbols as a program would.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <vector>

#include "mivo/mpi_stub/mpi.h"

namespace mivo {
namespace {

const std::vector<std::string> kNamesWithOneBody = {
#define MIVO_MPI_NAME(name) #name,
#include "mivo/mpi_stub/names.inc"
#undef MIVO_MPI_NAME
};

TEST(MpiStub, SharedBodyIgnoresArgumentsAndGivesSuccess) {
  int out[2] = {77, 78};
  for (const std::string& name : kNamesWithOneBody) {
    const auto function =
        reinterpret_cast<long (*)(void*, void*, void*)>(dlsym(RTLD_DEFAULT, name.c_str()));
    EXPECT_EQ(function(out, out, out), 0) << name;
  }
  EXPECT_EQ(out[0], 77);
  EXPECT_EQ(out[1], 78);
}

TEST(MpiStub, IsAWorldOfOneThatIsAlwaysUp) {
  int rank = 7, size = 7, flag = 7;
  // A split leaves its result alone, and what stands there is a world of one as well.
  for (const int comm : {MPI_COMM_WORLD, MPI_COMM_SELF, 0, -5}) {
    rank = size = 7;
    EXPECT_EQ(MPI_Comm_rank(comm, &rank), MPI_SUCCESS);
    EXPECT_EQ(MPI_Comm_size(comm, &size), MPI_SUCCESS);
    EXPECT_EQ(rank, 0);
    EXPECT_EQ(size, 1);
  }
  EXPECT_EQ(MPI_Finalize(), MPI_SUCCESS);
  EXPECT_EQ(MPI_Initialized(&flag), MPI_SUCCESS);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(MPI_Init(nullptr, nullptr), MPI_SUCCESS);
  EXPECT_EQ(MPI_Wtime(), 0.0);
  EXPECT_EQ(MPI_Wtick(), 0.0);
}

TEST(MpiStub, KnowsTheExtentsOfItsTypes) {
  const std::map<long, std::vector<int>> types = {
      {1, {MPI_CHAR, MPI_BYTE}},
      {2, {MPI_SHORT}},
      {4, {MPI_INT, MPI_FLOAT, MPI_INT32_T}},
      {8, {MPI_LONG, MPI_DOUBLE, MPI_COMPLEX, MPI_INT64_T}},
      {16, {MPI_DOUBLE_COMPLEX}},
      {0, {0x4c00081f, 0}}};
  for (const auto& [bytes, list] : types) {
    for (const int type : list) {
      long extent = -1;
      EXPECT_EQ(MPI_Type_extent(type, &extent), MPI_SUCCESS);
      EXPECT_EQ(extent, bytes) << std::hex << type;
    }
  }
}

/// Three doubles are asked for; the fourth shows a copy that is too long.
class MpiStubCopies : public testing::Test {
 protected:
  const double send[4] = {1, 2, 3, 4};
  double recv[4] = {-1, -1, -1, -1};
  const int counts[1] = {3};
  const int displs[1] = {1};

  void expectReceived(const std::array<double, 4>& values) {
    for (std::size_t k = 0; k < 4; ++k) EXPECT_EQ(recv[k], values[k]) << k;
    std::fill(recv, recv + 4, -1);
  }
  void expectCopy(int status) {
    EXPECT_EQ(status, MPI_SUCCESS);
    expectReceived({1, 2, 3, -1});
  }
  void expectNothing() { expectReceived({-1, -1, -1, -1}); }
};

TEST_F(MpiStubCopies, CollectivesCopyWhatIsSent) {
  MPI_Request request = 55;
  const int comm = MPI_COMM_WORLD;
  expectCopy(MPI_Allgather(send, 3, MPI_DOUBLE, recv, 1, MPI_INT, comm));
  expectCopy(MPI_Allgatherv(send, 3, MPI_DOUBLE, recv, counts, displs, MPI_INT, comm));
  expectCopy(MPI_Alltoall(send, 3, MPI_DOUBLE, recv, 1, MPI_INT, comm));
  // Displacements are ignored.
  expectCopy(
      MPI_Alltoallv(send, counts, displs, MPI_DOUBLE, recv, counts, displs, MPI_DOUBLE, comm));
  expectCopy(MPI_Scatterv(send, counts, displs, MPI_DOUBLE, recv, 1, MPI_DOUBLE, 0, comm));
  expectCopy(MPI_Allreduce(send, recv, 3, MPI_DOUBLE, MPI_MAX, comm));
  expectCopy(MPI_Iallreduce(send, recv, 3, MPI_DOUBLE, 0, comm, &request));
  EXPECT_EQ(request, 55);
}

TEST_F(MpiStubCopies, InPlaceReductionsAndUnknownTypesMoveNothing) {
  MPI_Request request = 55;
  const int comm = MPI_COMM_WORLD;
  MPI_Allreduce(MPI_IN_PLACE, recv, 3, MPI_DOUBLE, MPI_SUM, comm);
  MPI_Iallreduce(MPI_IN_PLACE, recv, 3, MPI_DOUBLE, MPI_SUM, comm, &request);
  MPI_Allgather(send, 3, 12345, recv, 3, MPI_DOUBLE, comm);
  MPI_Allreduce(send, recv, 3, 12345, MPI_SUM, comm);
  expectNothing();
  EXPECT_EQ(request, 55);
}

TEST_F(MpiStubCopies, RootedCollectivesAndMessagesMoveNothing) {
  const int comm = MPI_COMM_WORLD;
  MPI_Request requests[2] = {55, 56};
  MPI_Status status;
  status.MPI_SOURCE = 9;
  for (const int result :
       {MPI_Isend(send, 3, MPI_DOUBLE, 0, 0, comm, &requests[0]),
        MPI_Irecv(recv, 3, MPI_DOUBLE, 0, 0, comm, &requests[1]), MPI_Wait(requests, &status),
        MPI_Waitall(2, requests, &status), MPI_Bcast(recv, 3, MPI_DOUBLE, 0, comm),
        MPI_Gather(send, 3, MPI_DOUBLE, recv, 3, MPI_DOUBLE, 0, comm),
        MPI_Gatherv(send, 3, MPI_DOUBLE, recv, counts, displs, MPI_DOUBLE, 0, comm),
        MPI_Scatter(send, 3, MPI_DOUBLE, recv, 3, MPI_DOUBLE, 0, comm)}) {
    EXPECT_EQ(result, MPI_SUCCESS);
  }
  expectNothing();
  EXPECT_EQ(requests[0], 55);
  EXPECT_EQ(requests[1], 56);
  EXPECT_EQ(status.MPI_SOURCE, 9);
}

}  // namespace
}  // namespace mivo
