// SPDX-License-Identifier: Apache-2.0
#include "tests/support/message_spy.hpp"

#include "mivo/mpi_stub/mpi.h"

extern "C" {
int PMPI_Isend(const void* data, int count, MPI_Datatype type, int dest, int tag, MPI_Comm comm,
               MPI_Request* request);
int PMPI_Irecv(void* data, int count, MPI_Datatype type, int source, int tag, MPI_Comm comm,
               MPI_Request* request);
int PMPI_Alltoall(const void* send, int sendcount, MPI_Datatype sendtype, void* recv, int recvcount,
                  MPI_Datatype recvtype, MPI_Comm comm);
int PMPI_Allreduce(const void* send, void* recv, int count, MPI_Datatype type, MPI_Op op,
                   MPI_Comm comm);
int PMPI_Gatherv(const void* send, int sendcount, MPI_Datatype sendtype, void* recv,
                 const int* recvcounts, const int* displs, MPI_Datatype recvtype, int root,
                 MPI_Comm comm);
}

namespace mivo::test {

MessageSpy& MessageSpy::get() {
  static MessageSpy spy;
  return spy;
}

namespace {

/// The encoding of a basic type holds its size.
int bytesOf(int count, MPI_Datatype type) { return count * (type >> 8 & 0xff); }

}  // namespace
}  // namespace mivo::test

using mivo::test::bytesOf;
using mivo::test::MessageSpy;

// The dynamic linker takes the functions of the program before those of any library.
extern "C" {

int MPI_Isend(const void* data, int count, MPI_Datatype type, int dest, int tag, MPI_Comm comm,
              MPI_Request* request) {
  MessageSpy::get().sent.push_back({dest, bytesOf(count, type), tag});
  return PMPI_Isend(data, count, type, dest, tag, comm, request);
}

int MPI_Irecv(void* data, int count, MPI_Datatype type, int source, int tag, MPI_Comm comm,
              MPI_Request* request) {
  MessageSpy::get().opened.push_back({source, bytesOf(count, type), tag});
  return PMPI_Irecv(data, count, type, source, tag, comm, request);
}

int MPI_Alltoall(const void* send, int sendcount, MPI_Datatype sendtype, void* recv, int recvcount,
                 MPI_Datatype recvtype, MPI_Comm comm) {
  ++MessageSpy::get().alltoalls;
  return PMPI_Alltoall(send, sendcount, sendtype, recv, recvcount, recvtype, comm);
}

int MPI_Allreduce(const void* send, void* recv, int count, MPI_Datatype type, MPI_Op op,
                  MPI_Comm comm) {
  ++MessageSpy::get().allreduces;
  return PMPI_Allreduce(send, recv, count, type, op, comm);
}

int MPI_Gatherv(const void* send, int sendcount, MPI_Datatype sendtype, void* recv,
                const int* recvcounts, const int* displs, MPI_Datatype recvtype, int root,
                MPI_Comm comm) {
  ++MessageSpy::get().gathers;
  return PMPI_Gatherv(send, sendcount, sendtype, recv, recvcounts, displs, recvtype, root, comm);
}

}  // extern "C"
