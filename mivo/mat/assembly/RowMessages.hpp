// SPDX-License-Identifier: Apache-2.0
#pragma once

// How rows of an assembly travel to their owners. Internal: not installed.

#include <cstddef>
#include <cstring>
#include <vector>

#include "mivo/comu/serialization.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/ranks.hpp"

namespace mivo {

/// One message to every other rank: the row count, then for each row its local number, its entry
/// count and its entries (column C, value T), without gaps; counts and row numbers have 32 bits.
///
/// Used in this order: `announce` all rows, `open`, for each row `beginRow` and its `add` calls,
/// `exchange` (collective), `forEachReceived`.
template <class T, class C>
class RowMessages {
 public:
  /// Bytes of an entry.
  static constexpr std::size_t kEntry = sizeof(C) + sizeof(T);

  explicit RowMessages(int comm) : comm_(comm) {
    rank_ = rankOf(comm);
    const int nprocs = sizeOf(comm);
    boxes_.resize(static_cast<std::size_t>(nprocs));
  }

  int rank() const { return rank_; }
  int size() const { return static_cast<int>(boxes_.size()); }

  /// A row of `entries` entries will go to another rank.
  void announce(int rank, std::size_t entries) {
    Box& box = boxes_[static_cast<std::size_t>(rank)];
    ++box.rows;
    box.bytes += 2 * sizeof(int) + entries * kEntry;
  }
  void open() {
    for (Box& box : boxes_) {
      if (isOwn(box)) continue;
      box.send_size = comu::narrowToInt(box.bytes, "bytes");
      box.send.setCapacity(box.send_size);
      comu::packStream(box.send, comu::narrowToInt(box.rows, "rows"));
    }
  }
  void beginRow(int rank, int local, std::size_t entries) {
    target_ = &boxes_[static_cast<std::size_t>(rank)].send;
    comu::packStream(*target_, local);
    comu::packStream(*target_, comu::narrowToInt(entries, "entries"));
  }
  void add(const C& col, const T& value) {
    comu::packStream(*target_, col);
    comu::packStream(*target_, value);
  }

  void exchange() {
    std::vector<int> sendSize, recvSize(boxes_.size());
    for (const Box& box : boxes_) sendSize.push_back(box.send_size);
    MPI_Alltoall(sendSize.data(), 1, MPI_INT, recvSize.data(), 1, MPI_INT, comm_);
    std::vector<MPI_Request> requests;
    requests.reserve(2 * boxes_.size());
    for (std::size_t p = 0; p < boxes_.size(); ++p) {
      Box& box = boxes_[p];
      if (isOwn(box)) continue;
      const int rank = static_cast<int>(p);
      if (box.send_size > 0) {
        requests.emplace_back();
        MPI_Isend(box.send.getBuffer(), box.send_size, MPI_BYTE, rank, 0, comm_, &requests.back());
      }
      if (recvSize[p] > 0) {
        box.recv.setCapacity(recvSize[p]);
        box.recv.pushBack(nullptr, recvSize[p]);
        requests.emplace_back();
        MPI_Irecv(box.recv.getBuffer(), recvSize[p], MPI_BYTE, rank, 0, comm_, &requests.back());
      }
    }
    std::vector<MPI_Status> statuses(requests.size());
    MPI_Waitall(static_cast<int>(requests.size()), requests.data(), statuses.data());
  }

  /// visit(int local, int count, const unsigned char* entries) for the received rows, by ascending
  /// source. The entries stay where they are as long as this object, for `readEntry`.
  template <class Visit>
  void forEachReceived(const Visit& visit) const {
    for (const Box& box : boxes_) {
      if (box.recv.getCapacity() == 0) continue;
      const unsigned char* at = box.recv.getBuffer();
      const int rows = readInt(at);
      for (int k = 0; k < rows; ++k) {
        const int local = readInt(at);
        const int count = readInt(at);
        visit(local, count, at);
        at += static_cast<std::size_t>(count) * kEntry;
      }
    }
  }
  /// Reads an entry and moves on to the next one.
  static void readEntry(const unsigned char*& at, C& col, T& value) {
    std::memcpy(&col, at, sizeof(C));
    std::memcpy(static_cast<void*>(&value), at + sizeof(C), sizeof(T));
    at += kEntry;
  }

 private:
  struct Box {
    std::size_t rows = 0;
    std::size_t bytes = sizeof(int);
    int send_size = 0;
    comu::Stream send;
    comu::Stream recv;
  };

  bool isOwn(const Box& box) const { return &box == &boxes_[static_cast<std::size_t>(rank_)]; }
  static int readInt(const unsigned char*& at) {
    int number = 0;
    std::memcpy(&number, at, sizeof(number));
    at += sizeof(number);
    return number;
  }

  int comm_;
  int rank_ = 0;
  std::vector<Box> boxes_;
  comu::Stream* target_ = nullptr;
};

}  // namespace mivo
