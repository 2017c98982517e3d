// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The part of the C binding of the message-passing interface that the library calls, in the handle
/// encoding of MPICH. Internal: public headers name communicators as plain `int`, so that a program
/// may include a real `mpi.h` beside them. The definitions come from `mpi_stub.cpp` in a world of
/// one process, and from the message-passing library that stands before this one in the link order
/// otherwise.

#define MPI_SUCCESS 0
#define MPI_COMM_WORLD 0x44000000
#define MPI_COMM_SELF 0x44000001
#define MPI_IN_PLACE (reinterpret_cast<void*>(-1L))
#define MPI_REQUEST_NULL 0x2c000000
#define MPI_UNDEFINED (-32766)

#define MPI_MAX 0x58000001
#define MPI_MIN 0x58000002
#define MPI_SUM 0x58000003

#define MPI_CHAR 0x4c000101
#define MPI_BYTE 0x4c00010d
#define MPI_SHORT 0x4c000203
#define MPI_INT 0x4c000405
#define MPI_FLOAT 0x4c00040a
#define MPI_INT32_T 0x4c000439
#define MPI_LONG 0x4c000807
#define MPI_DOUBLE 0x4c00080b
#define MPI_COMPLEX 0x4c00081e
#define MPI_INT64_T 0x4c00083a
#define MPI_DOUBLE_COMPLEX 0x4c001022

extern "C" {

typedef int MPI_Comm;
typedef int MPI_Datatype;
typedef int MPI_Op;
typedef int MPI_Request;

typedef struct MPI_Status {
  int count_lo;
  int count_hi_and_cancelled;
  int MPI_SOURCE;
  int MPI_TAG;
  int MPI_ERROR;
} MPI_Status;

#define MPI_STATUS_IGNORE (reinterpret_cast<MPI_Status*>(1))
#define MPI_STATUSES_IGNORE (reinterpret_cast<MPI_Status*>(1))

typedef void MPI_User_function(void* in, void* inout, int* count, MPI_Datatype* type);

int MPI_Init(int* argc, char*** argv);
int MPI_Initialized(int* flag);
int MPI_Finalize(void);
int MPI_Finalized(int* flag);
int MPI_Abort(MPI_Comm comm, int code);
int MPI_Get_library_version(char* text, int* length);
int MPI_Comm_rank(MPI_Comm comm, int* rank);
int MPI_Comm_size(MPI_Comm comm, int* size);
double MPI_Wtime(void);
double MPI_Wtick(void);

int MPI_Isend(const void* data, int count, MPI_Datatype type, int dest, int tag, MPI_Comm comm,
              MPI_Request* request);
int MPI_Irecv(void* data, int count, MPI_Datatype type, int source, int tag, MPI_Comm comm,
              MPI_Request* request);
int MPI_Wait(MPI_Request* request, MPI_Status* status);
int MPI_Waitall(int count, MPI_Request* requests, MPI_Status* statuses);
int MPI_Waitsome(int count, MPI_Request* requests, int* done, int* indices, MPI_Status* statuses);

int MPI_Barrier(MPI_Comm comm);
int MPI_Bcast(void* data, int count, MPI_Datatype type, int root, MPI_Comm comm);
int MPI_Allgather(const void* send, int sendcount, MPI_Datatype sendtype, void* recv, int recvcount,
                  MPI_Datatype recvtype, MPI_Comm comm);
int MPI_Allgatherv(const void* send, int sendcount, MPI_Datatype sendtype, void* recv,
                   const int* recvcounts, const int* displs, MPI_Datatype recvtype, MPI_Comm comm);
int MPI_Alltoall(const void* send, int sendcount, MPI_Datatype sendtype, void* recv, int recvcount,
                 MPI_Datatype recvtype, MPI_Comm comm);
int MPI_Alltoallv(const void* send, const int* sendcounts, const int* sdispls,
                  MPI_Datatype sendtype, void* recv, const int* recvcounts, const int* rdispls,
                  MPI_Datatype recvtype, MPI_Comm comm);
int MPI_Gather(const void* send, int sendcount, MPI_Datatype sendtype, void* recv, int recvcount,
               MPI_Datatype recvtype, int root, MPI_Comm comm);
int MPI_Gatherv(const void* send, int sendcount, MPI_Datatype sendtype, void* recv,
                const int* recvcounts, const int* displs, MPI_Datatype recvtype, int root,
                MPI_Comm comm);
int MPI_Scatter(const void* send, int sendcount, MPI_Datatype sendtype, void* recv, int recvcount,
                MPI_Datatype recvtype, int root, MPI_Comm comm);
int MPI_Scatterv(const void* send, const int* sendcounts, const int* displs, MPI_Datatype sendtype,
                 void* recv, int recvcount, MPI_Datatype recvtype, int root, MPI_Comm comm);
int MPI_Allreduce(const void* send, void* recv, int count, MPI_Datatype type, MPI_Op op,
                  MPI_Comm comm);
int MPI_Iallreduce(const void* send, void* recv, int count, MPI_Datatype type, MPI_Op op,
                   MPI_Comm comm, MPI_Request* request);
int MPI_Type_extent(MPI_Datatype type, long* extent);
int MPI_Op_create(MPI_User_function* function, int commutes, MPI_Op* op);
int MPI_Op_free(MPI_Op* op);

}  // extern "C"
