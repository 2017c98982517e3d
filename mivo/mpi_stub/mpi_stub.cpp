// SPDX-License-Identifier: Apache-2.0

// The message-passing interface as a world of one process. The library exports these functions
// under the standard names; a real message-passing library before it in the link order replaces
// them all. This unit declares nothing of mpi.h: the functions of names.inc take no parameters
// here, and the calling convention lets a caller pass any.

#include <cstddef>
#include <cstring>

#include "mivo/utils/export.hpp"

namespace {

/// Bytes of one element of a datatype handle, 0 for an unknown one. MPICH keeps the size of a basic
/// type in the second lowest byte, but only the types listed are known here.
long extentOf(int type) {
  switch (type) {
    case 0x4c000101:  // MPI_CHAR
    case 0x4c00010d:  // MPI_BYTE
      return 1;
    case 0x4c000203:  // MPI_SHORT
      return 2;
    case 0x4c000405:  // MPI_INT
    case 0x4c00040a:  // MPI_FLOAT
    case 0x4c000439:  // MPI_INT32_T
      return 4;
    case 0x4c000807:  // MPI_LONG
    case 0x4c00080b:  // MPI_DOUBLE
    case 0x4c00081e:  // MPI_COMPLEX
    case 0x4c00083a:  // MPI_INT64_T
      return 8;
    case 0x4c001022:  // MPI_DOUBLE_COMPLEX
      return 16;
    default:
      return 0;
  }
}

int copyElements(const void* from, int count, int type, void* to) {
  const std::size_t bytes =
      static_cast<std::size_t>(count) * static_cast<std::size_t>(extentOf(type));
  const bool inPlace = from == reinterpret_cast<const void*>(-1L);
  if (bytes > 0 && !inPlace && from != to) std::memcpy(to, from, bytes);
  return 0;
}

}  // namespace

extern "C" {

MIVO_API int MPI_Comm_rank(int, int* rank) {
  *rank = 0;
  return 0;
}

MIVO_API int MPI_Comm_size(int, int* size) {
  *size = 1;
  return 0;
}

/// Always yes, also before MPI_Init.
MIVO_API int MPI_Initialized(int* flag) {
  *flag = 1;
  return 0;
}

MIVO_API int MPI_Init(int*, char***) { return 0; }
MIVO_API int MPI_Finalize() { return 0; }

MIVO_API int MPI_Type_extent(int type, long* extent) {
  *extent = extentOf(type);
  return 0;
}

MIVO_API int MPI_Allgather(const void* send, int count, int type, void* recv, int, int, int) {
  return copyElements(send, count, type, recv);
}

MIVO_API int MPI_Allgatherv(const void* send, int count, int type, void* recv, const int*,
                            const int*, int, int) {
  return copyElements(send, count, type, recv);
}

MIVO_API int MPI_Alltoall(const void* send, int count, int type, void* recv, int, int, int) {
  return copyElements(send, count, type, recv);
}

MIVO_API int MPI_Alltoallv(const void* send, const int* counts, const int*, int type, void* recv,
                           const int*, const int*, int, int) {
  return copyElements(send, counts[0], type, recv);
}

MIVO_API int MPI_Scatterv(const void* send, const int* counts, const int*, int type, void* recv,
                          int, int, int, int) {
  return copyElements(send, counts[0], type, recv);
}

MIVO_API int MPI_Allreduce(const void* send, void* recv, int count, int type, int, int) {
  return copyElements(send, count, type, recv);
}

MIVO_API int MPI_Iallreduce(const void* send, void* recv, int count, int type, int, int, int*) {
  return copyElements(send, count, type, recv);
}

MIVO_API double MPI_Wtime() { return 0.0; }
MIVO_API double MPI_Wtick() { return 0.0; }

MIVO_API int MPI_Bcast(void*, int, int, int, int) { return 0; }
MIVO_API int MPI_Irecv(void*, int, int, int, int, int, int*) { return 0; }
MIVO_API int MPI_Wait(int*, void*) { return 0; }
MIVO_API int MPI_Waitall(int, int*, void*) { return 0; }

// A 64-bit zero serves the few functions whose result is an address or a pointer.
#define MIVO_MPI_NAME(name) \
  MIVO_API long name() { return 0; }
#include "mivo/mpi_stub/names.inc"
#undef MIVO_MPI_NAME

}  // extern "C"
