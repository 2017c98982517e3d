// SPDX-License-Identifier: Apache-2.0
#pragma once

// Definitions of the exchange templates. Internal: included by the sources that instantiate them
// for their element types.

#include <cstddef>
#include <cstring>
#include <numeric>
#include <type_traits>
#include <vector>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/comu/serialization.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/ranks.hpp"

/// Instantiate an exchange for the element type given as the arguments (which may hold commas),
/// inside namespace mivo or outside of all.
#define MIVO_INSTANTIATE_SPARSE_SEND_RECV(...)                                                   \
  template void ::mivo::comu::sparse_send_recv<__VA_ARGS__>(                                     \
      int, const std::vector<std::vector<__VA_ARGS__>>&, std::vector<std::vector<__VA_ARGS__>>&, \
      bool);
#define MIVO_INSTANTIATE_SPARSE_SEND_RECV_STREAM(...)               \
  template void ::mivo::comu::sparse_send_recv_stream<__VA_ARGS__>( \
      int, const std::vector<__VA_ARGS__>&, std::vector<__VA_ARGS__>&);
#define MIVO_INSTANTIATE_SCATTER_GATHER_STREAM(...)                                      \
  template void ::mivo::comu::stlmpi_scatter_stream<__VA_ARGS__>(                        \
      int, const std::vector<__VA_ARGS__>&, __VA_ARGS__&, int);                          \
  template void ::mivo::comu::stlmpi_gather_stream<__VA_ARGS__>(int, const __VA_ARGS__&, \
                                                                std::vector<__VA_ARGS__>&, int);

namespace mivo::comu {
namespace detail {

struct Group {
  int rank = 0;
  int size = 1;

  explicit Group(int comm) {
    rank = rankOf(comm);
    size = sizeOf(comm);
  }
  std::size_t count() const { return static_cast<std::size_t>(size); }
};

inline void waitAll(std::vector<MPI_Request>& requests) {
  std::vector<MPI_Status> statuses(requests.size());
  MPI_Waitall(static_cast<int>(requests.size()), requests.data(), statuses.data());
}

/// Running sum of message lengths from 0, as displacements; `total` is checked to fit.
inline std::vector<int> displacements(const std::vector<int>& sizes, int& total) {
  std::vector<int> displs(sizes.size());
  std::size_t sum = 0;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    displs[i] = narrowToInt(sum, "bytes");
    sum += static_cast<std::size_t>(sizes[i]);
  }
  total = narrowToInt(sum, "bytes");
  return displs;
}

}  // namespace detail

template <class T>
void sparse_send_recv(int comm, const std::vector<std::vector<T>>& send,
                      std::vector<std::vector<T>>& recv, bool sizesKnown) {
  static_assert(std::is_trivially_copyable_v<T>, "elements are sent as their bytes");
  const detail::Group group(comm);
  const std::size_t nprocs = group.count();
  const std::vector<T> nothing;
  const auto toRank = [&](std::size_t i) -> const std::vector<T>& {
    return i < send.size() ? send[i] : nothing;
  };

  if (!sizesKnown) {
    std::vector<int> sendCount(nprocs), recvCount(nprocs);
    for (std::size_t i = 0; i < nprocs; ++i)
      sendCount[i] = narrowToInt(toRank(i).size(), "elements");
    MPI_Alltoall(sendCount.data(), 1, MPI_INT, recvCount.data(), 1, MPI_INT, comm);
    recv.resize(nprocs);
    for (std::size_t i = 0; i < nprocs; ++i) recv[i].resize(static_cast<std::size_t>(recvCount[i]));
  }

  std::vector<MPI_Request> requests;
  requests.reserve(2 * nprocs);
  for (int i = 0; i < group.size; ++i) {
    const std::vector<T>& out = toRank(static_cast<std::size_t>(i));
    std::vector<T>& in = recv[static_cast<std::size_t>(i)];
    if (i == group.rank) {
      in = out;
      continue;
    }
    if (!out.empty()) {
      requests.emplace_back();
      MPI_Isend(out.data(), narrowToInt(out.size() * sizeof(T), "bytes"), MPI_BYTE, i, 0, comm,
                &requests.back());
    }
    if (!in.empty()) {
      requests.emplace_back();
      MPI_Irecv(in.data(), narrowToInt(in.size() * sizeof(T), "bytes"), MPI_BYTE, i, 0, comm,
                &requests.back());
    }
  }
  detail::waitAll(requests);
}

template <class E>
void sparse_send_recv_stream(int comm, const std::vector<E>& send, std::vector<E>& recv) {
  const detail::Group group(comm);
  const std::size_t nprocs = group.count();
  const std::size_t own = static_cast<std::size_t>(group.rank);
  const std::size_t sent = send.size() < nprocs ? send.size() : nprocs;
  std::vector<Stream> sendStream(nprocs), recvStream(nprocs);
  std::vector<int> sendSize(nprocs, 0), recvSize(nprocs, 0);
  for (std::size_t i = 0; i < sent; ++i) {
    if (i != own) sendSize[i] = narrowToInt(getStreamSize(send[i]), "bytes");
  }
  MPI_Alltoall(sendSize.data(), 1, MPI_INT, recvSize.data(), 1, MPI_INT, comm);

  for (std::size_t i = 0; i < nprocs; ++i) {
    if (i == own) continue;
    sendStream[i].setCapacity(sendSize[i]);
    if (sendSize[i] > 0) packStream(sendStream[i], send[i]);
    recvStream[i].setCapacity(recvSize[i]);
    recvStream[i].pushBack(nullptr, recvSize[i]);
  }

  recv.resize(nprocs);
  std::vector<MPI_Request> requests;
  requests.reserve(2 * nprocs);
  for (std::size_t i = 0; i < nprocs; ++i) {
    const int rank = static_cast<int>(i);
    if (i == own) {
      if (i < sent) recv[i] = send[i];
      continue;
    }
    if (sendSize[i] > 0) {
      requests.emplace_back();
      MPI_Isend(sendStream[i].getBuffer(), sendSize[i], MPI_BYTE, rank, 0, comm, &requests.back());
    }
    if (recvSize[i] > 0) {
      requests.emplace_back();
      MPI_Irecv(recvStream[i].getBuffer(), recvSize[i], MPI_BYTE, rank, 0, comm, &requests.back());
    }
  }
  detail::waitAll(requests);

  for (std::size_t i = 0; i < nprocs; ++i) {
    if (i != own && recvSize[i] > 0) unpackStream(recvStream[i], recv[i]);
  }
}

// In both collectives below the root fills its own slot itself, beside the calls, since the message
// layer of one process moves nothing in MPI_Gather, MPI_Gatherv and MPI_Scatter.

template <class E>
void stlmpi_scatter_stream(int comm, const std::vector<E>& all, E& mine, int root) {
  const detail::Group group(comm);
  const bool isRoot = group.rank == root;
  const std::size_t own = static_cast<std::size_t>(group.rank);
  std::vector<int> sizes(isRoot ? group.count() : 0);
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    sizes[i] = narrowToInt(getStreamSize(all[i]), "bytes");
  }
  int size = isRoot ? sizes[own] : 0;
  MPI_Scatter(sizes.data(), 1, MPI_INT, &size, 1, MPI_INT, root, comm);

  std::vector<int> displs;
  Stream packed;
  if (isRoot) {
    int total = 0;
    displs = detail::displacements(sizes, total);
    packed.setCapacity(total);
    for (std::size_t i = 0; i < sizes.size(); ++i) packStream(packed, all[i]);
  }
  Stream part;
  part.setCapacity(size);
  part.pushBack(nullptr, size);
  MPI_Scatterv(packed.getBuffer(), sizes.data(), displs.data(), MPI_BYTE, part.getBuffer(), size,
               MPI_BYTE, root, comm);
  if (isRoot && size > 0) {
    std::memcpy(part.getBuffer(), packed.getBuffer() + displs[own], static_cast<std::size_t>(size));
  }
  unpackStream(part, mine);
}

template <class E>
void stlmpi_gather_stream(int comm, const E& mine, std::vector<E>& all, int root) {
  const detail::Group group(comm);
  const bool isRoot = group.rank == root;
  const std::size_t own = static_cast<std::size_t>(group.rank);
  const int size = narrowToInt(getStreamSize(mine), "bytes");
  Stream part;
  part.setCapacity(size);
  packStream(part, mine);
  std::vector<int> sizes(isRoot ? group.count() : 0);
  if (isRoot) sizes[own] = size;
  MPI_Gather(&size, 1, MPI_INT, sizes.data(), 1, MPI_INT, root, comm);

  std::vector<int> displs;
  Stream packed;
  if (isRoot) {
    int total = 0;
    displs = detail::displacements(sizes, total);
    packed.setCapacity(total);
    packed.pushBack(nullptr, total);
  }
  MPI_Gatherv(part.getBuffer(), size, MPI_BYTE, packed.getBuffer(), sizes.data(), displs.data(),
              MPI_BYTE, root, comm);
  if (!isRoot) return;
  if (size > 0) {
    std::memcpy(packed.getBuffer() + displs[own], part.getBuffer(), static_cast<std::size_t>(size));
  }
  all.resize(group.count());
  for (E& element : all) unpackStream(packed, element);
}

}  // namespace mivo::comu
