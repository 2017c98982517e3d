// SPDX-License-Identifier: Apache-2.0

// The message layer of one process, called through the library's symbols as a program would.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "mivo/mpi_stub/mpi.h"

namespace mivo {
namespace {

const std::vector<std::string> kNamesWithOneBody = {
#define MIVO_MPI_NAME(name) #name,
#include "mivo/mpi_stub/names.inc"
#undef MIVO_MPI_NAME
};

const std::vector<std::string> kNamesWithBodies = {
    "MPI_Comm_rank",   "MPI_Comm_size", "MPI_Initialized", "MPI_Init",     "MPI_Finalize",
    "MPI_Type_extent", "MPI_Allgather", "MPI_Allgatherv",  "MPI_Alltoall", "MPI_Alltoallv",
    "MPI_Scatterv",    "MPI_Allreduce", "MPI_Iallreduce",  "MPI_Wtime",    "MPI_Wtick",
    "MPI_Bcast",       "MPI_Irecv",     "MPI_Wait",        "MPI_Waitall"};

TEST(MpiStub, ExportsEveryNameOfTheBinding) {
  std::set<std::string> names(kNamesWithOneBody.begin(), kNamesWithOneBody.end());
  names.insert(kNamesWithBodies.begin(), kNamesWithBodies.end());
  EXPECT_EQ(names.size(), 623u);
  EXPECT_EQ(kNamesWithOneBody.size() + kNamesWithBodies.size(), 623u);
  Dl_info home;
  ASSERT_NE(dladdr(dlsym(RTLD_DEFAULT, "MPI_Comm_rank"), &home), 0);
  for (const std::string& name : names) {
    void* symbol = dlsym(RTLD_DEFAULT, name.c_str());
    ASSERT_NE(symbol, nullptr) << name;
    Dl_info info;
    ASSERT_NE(dladdr(symbol, &info), 0);
    EXPECT_STREQ(info.dli_fname, home.dli_fname) << name;
  }
}

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
  const std::vector<std::pair<int, long>> extents = {{MPI_CHAR, 1},
                                                     {MPI_BYTE, 1},
                                                     {MPI_SHORT, 2},
                                                     {MPI_INT, 4},
                                                     {MPI_FLOAT, 4},
                                                     {MPI_INT32_T, 4},
                                                     {MPI_LONG, 8},
                                                     {MPI_DOUBLE, 8},
                                                     {MPI_COMPLEX, 8},
                                                     {MPI_INT64_T, 8},
                                                     {MPI_DOUBLE_COMPLEX, 16},
                                                     {0x4c00081f, 0},
                                                     {0, 0}};
  for (const auto& [type, bytes] : extents) {
    long extent = -1;
    EXPECT_EQ(MPI_Type_extent(type, &extent), MPI_SUCCESS);
    EXPECT_EQ(extent, bytes) << std::hex << type;
  }
}

/// Three doubles are asked for; the fourth shows a copy that is too long.
class MpiStubCopies : public testing::Test {
 protected:
  const double send[4] = {1, 2, 3, 4};
  double recv[4] = {-1, -1, -1, -1};
  const int counts[1] = {3};
  const int displs[1] = {1};

  bool copied() const { return recv[0] == 1 && recv[1] == 2 && recv[2] == 3 && recv[3] == -1; }
  bool untouched() const {
    for (const double value : recv) {
      if (value != -1) return false;
    }
    return true;
  }
  void clear() {
    for (double& value : recv) value = -1;
  }
};

TEST_F(MpiStubCopies, CollectivesCopyWhatIsSent) {
  MPI_Request request = 55;
  const int comm = MPI_COMM_WORLD;
  EXPECT_EQ(MPI_Allgather(send, 3, MPI_DOUBLE, recv, 1, MPI_INT, comm), MPI_SUCCESS);
  EXPECT_TRUE(copied());
  clear();
  EXPECT_EQ(MPI_Allgatherv(send, 3, MPI_DOUBLE, recv, counts, displs, MPI_INT, comm), MPI_SUCCESS);
  EXPECT_TRUE(copied());
  clear();
  EXPECT_EQ(MPI_Alltoall(send, 3, MPI_DOUBLE, recv, 1, MPI_INT, comm), MPI_SUCCESS);
  EXPECT_TRUE(copied());
  clear();
  // Displacements are ignored.
  EXPECT_EQ(MPI_Alltoallv(send, counts, displs, MPI_DOUBLE, recv, counts, displs, MPI_DOUBLE, comm),
            MPI_SUCCESS);
  EXPECT_TRUE(copied());
  clear();
  EXPECT_EQ(MPI_Scatterv(send, counts, displs, MPI_DOUBLE, recv, 1, MPI_DOUBLE, 0, comm),
            MPI_SUCCESS);
  EXPECT_TRUE(copied());
  clear();
  EXPECT_EQ(MPI_Allreduce(send, recv, 3, MPI_DOUBLE, MPI_MAX, comm), MPI_SUCCESS);
  EXPECT_TRUE(copied());
  clear();
  EXPECT_EQ(MPI_Iallreduce(send, recv, 3, MPI_DOUBLE, 0, comm, &request), MPI_SUCCESS);
  EXPECT_TRUE(copied());
  EXPECT_EQ(request, 55);
}

TEST_F(MpiStubCopies, InPlaceReductionsAndUnknownTypesMoveNothing) {
  MPI_Request request = 55;
  const int comm = MPI_COMM_WORLD;
  MPI_Allreduce(MPI_IN_PLACE, recv, 3, MPI_DOUBLE, MPI_SUM, comm);
  MPI_Iallreduce(MPI_IN_PLACE, recv, 3, MPI_DOUBLE, MPI_SUM, comm, &request);
  MPI_Allgather(send, 3, 12345, recv, 3, MPI_DOUBLE, comm);
  MPI_Allreduce(send, recv, 3, 12345, MPI_SUM, comm);
  EXPECT_TRUE(untouched());
  EXPECT_EQ(request, 55);
}

TEST_F(MpiStubCopies, RootedCollectivesAndMessagesMoveNothing) {
  const int comm = MPI_COMM_WORLD;
  MPI_Request requests[2] = {55, 56};
  MPI_Status status;
  status.MPI_SOURCE = 9;
  EXPECT_EQ(MPI_Isend(send, 3, MPI_DOUBLE, 0, 0, comm, &requests[0]), MPI_SUCCESS);
  EXPECT_EQ(MPI_Irecv(recv, 3, MPI_DOUBLE, 0, 0, comm, &requests[1]), MPI_SUCCESS);
  EXPECT_EQ(MPI_Wait(requests, &status), MPI_SUCCESS);
  EXPECT_EQ(MPI_Waitall(2, requests, &status), MPI_SUCCESS);
  EXPECT_EQ(MPI_Bcast(recv, 3, MPI_DOUBLE, 0, comm), MPI_SUCCESS);
  EXPECT_EQ(MPI_Gather(send, 3, MPI_DOUBLE, recv, 3, MPI_DOUBLE, 0, comm), MPI_SUCCESS);
  EXPECT_EQ(MPI_Gatherv(send, 3, MPI_DOUBLE, recv, counts, displs, MPI_DOUBLE, 0, comm),
            MPI_SUCCESS);
  EXPECT_EQ(MPI_Scatter(send, 3, MPI_DOUBLE, recv, 3, MPI_DOUBLE, 0, comm), MPI_SUCCESS);
  EXPECT_TRUE(untouched());
  EXPECT_EQ(requests[0], 55);
  EXPECT_EQ(requests[1], 56);
  EXPECT_EQ(status.MPI_SOURCE, 9);
}

}  // namespace
}  // namespace mivo
