// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/COOMatrix.hpp"

#include <cstddef>
#include <limits>
#include <vector>

#include "mivo/comu/serialization.hpp"
#include "mivo/mat/COOMatrixImpl.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/logging.hpp"

namespace mivo {

template <class T, class R, class C>
COOMatrixT<T, R, C>::COOMatrixT() : impl_(std::make_shared<COOMatrixImpl>()) {}

template <class T, class R, class C>
void COOMatrixT<T, R, C>::setShape(R rows, C cols) {
  impl_->rows = rows;
  impl_->cols = cols;
}

template <class T, class R, class C>
R COOMatrixT<T, R, C>::getRows() const {
  return impl_->rows;
}

template <class T, class R, class C>
C COOMatrixT<T, R, C>::getCols() const {
  return impl_->cols;
}

template <class T, class R, class C>
std::shared_ptr<typename COOMatrixT<T, R, C>::Row> COOMatrixT<T, R, C>::getRowEx(R row) const {
  return std::shared_ptr<Row>(impl_, &impl_->getRow(row));
}

namespace {

/// Part and local number of a row. Rows come in runs of one part, so the range found last answers
/// most questions.
template <class R, class L>
class RowLocator {
 public:
  RowLocator(const PartitionerT<R, L>& part, int nprocs) : part_(part), nprocs_(nprocs) {}

  /// Ends the process for a row outside the partition.
  int locate(R row, R& local) {
    if (row < begin_ || row >= end_) {
      const std::vector<R>& offsets = part_.getOffsets();
      MIVO_CHECK(!offsets.empty() && row >= offsets.front() && row < offsets.back())
          << "endAssemble: row " << row << " lies outside the matrix";
      L owner = 0, unused = 0;
      part_.global2Local(row, owner, unused);
      part_.getOwnerShipRangeForPart(owner, &begin_, &end_);
      MIVO_CHECK(owner < nprocs_) << "endAssemble: no rank owns row " << row;
      owner_ = static_cast<int>(owner);
    }
    local = row - begin_;
    return owner_;
  }

 private:
  const PartitionerT<R, L>& part_;
  int nprocs_;
  R begin_ = 0;
  R end_ = 0;
  int owner_ = 0;
};

/// A row on its way to its owner.
template <class Row>
struct SentRow {
  int local;
  const Row* entries;
};

/// Bytes of a message: row count; per row its local number, entry count, and entries without
/// padding.
template <class Row>
int messageSize(const std::vector<SentRow<Row>>& rows) {
  using Entry = typename Row::value_type;
  constexpr std::size_t kEntry = sizeof(Entry::first) + sizeof(Entry::second);
  std::size_t bytes = sizeof(int);
  for (const auto& row : rows) bytes += 2 * sizeof(int) + row.entries->size() * kEntry;
  return comu::narrowToInt(bytes, "bytes");
}

template <class Row>
void packRows(const std::vector<SentRow<Row>>& rows, comu::Stream& stream) {
  comu::packStream(stream, static_cast<int>(rows.size()));
  for (const auto& row : rows) {
    comu::packStream(stream, row.local);
    comu::packStream(stream, static_cast<int>(row.entries->size()));
    for (const auto& entry : *row.entries) {
      comu::packStream(stream, entry.first);
      comu::packStream(stream, entry.second);
    }
  }
}

/// Adds the rows of a message to `out`.
template <class T, class C, class Impl>
void addRows(comu::Stream& stream, Impl& out) {
  int rows = 0;
  comu::unpackStream(stream, rows);
  for (int i = 0; i < rows; ++i) {
    int local = 0, count = 0;
    comu::unpackStream(stream, local);
    comu::unpackStream(stream, count);
    auto& row = out.getRow(local);
    for (int k = 0; k < count; ++k) {
      C col{};
      T value{};
      comu::unpackStream(stream, col);
      comu::unpackStream(stream, value);
      row[col] += value;
    }
  }
}

}  // namespace

template <class T, class R, class C>
template <class L>
void COOMatrixT<T, R, C>::endAssemble(int comm, const PartitionerT<R, L>& rowPart,
                                      COOMatrixT<T, L, C>& out) {
  int rank = 0, nprocs = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &nprocs);
  const std::size_t count = static_cast<std::size_t>(nprocs);

  typename COOMatrixT<T, L, C>::COOMatrixImpl own;
  std::vector<std::vector<SentRow<Row>>> sent(count);
  RowLocator<R, L> locator(rowPart, nprocs);
  impl_->forEachRow([&](R row, Row& entries) {
    R local = 0;
    const int owner = locator.locate(row, local);
    if (owner == rank) {
      own.shareRow(static_cast<L>(local), entries);
    } else {
      sent[static_cast<std::size_t>(owner)].push_back(
          {comu::narrowToInt(static_cast<std::size_t>(local), "rows"), &entries});
    }
  });
  own.shareArenas(impl_->getArenas());

  std::vector<int> sendSize(count, 0), recvSize(count, 0);
  for (int p = 0; p < nprocs; ++p) {
    if (p != rank) sendSize[p] = messageSize(sent[p]);
  }
  MPI_Alltoall(sendSize.data(), 1, MPI_INT, recvSize.data(), 1, MPI_INT, comm);

  std::vector<comu::Stream> sendStream(count), recvStream(count);
  std::vector<MPI_Request> requests;
  requests.reserve(2 * count);
  for (int p = 0; p < nprocs; ++p) {
    if (p == rank) continue;
    sendStream[p].setCapacity(sendSize[p]);
    packRows(sent[p], sendStream[p]);
    recvStream[p].setCapacity(recvSize[p]);
    recvStream[p].pushBack(nullptr, recvSize[p]);
  }
  for (int p = 0; p < nprocs; ++p) {
    if (sendSize[p] > 0) {
      requests.emplace_back();
      MPI_Isend(sendStream[p].getBuffer(), sendSize[p], MPI_BYTE, p, 0, comm, &requests.back());
    }
    if (p != rank && recvSize[p] > 0) {
      requests.emplace_back();
      MPI_Irecv(recvStream[p].getBuffer(), recvSize[p], MPI_BYTE, p, 0, comm, &requests.back());
    }
  }
  std::vector<MPI_Status> statuses(requests.size());
  MPI_Waitall(static_cast<int>(requests.size()), requests.data(), statuses.data());

  // Contributions of other ranks are added to the own rows in the order of ranks.
  out.getImpl().swapRows(own);
  for (int p = 0; p < nprocs; ++p) {
    if (p != rank && recvSize[p] > 0) addRows<T, C>(recvStream[p], out.getImpl());
  }
}

namespace {

/// An index or a count in a type that may be narrower.
template <class L, class X>
L narrowTo(X value, const char* what) {
  MIVO_CHECK(static_cast<X>(static_cast<L>(value)) == value && value >= 0)
      << "toCSR: " << what << " " << value << " does not fit the index type";
  return static_cast<L>(value);
}

/// Columns are not checked against the shape, only kept from wrapping around into it.
template <class L, class C>
L narrowColumn(C col) {
  if constexpr (sizeof(C) > sizeof(L)) {
    MIVO_CHECK(static_cast<C>(static_cast<L>(col)) == col)
        << "toCSR: column " << col << " does not fit the index type";
  }
  return static_cast<L>(col);
}

template <class X>
void copyToDevice(std::size_t count, const X* from, const Device& device, X* to) {
  if (count > 0) Device().rawCopyTo(count * sizeof(X), from, device, to);
}

}  // namespace

template <class T, class R, class C>
template <class L>
void COOMatrixT<T, R, C>::toCSR(CSRMatrixT<T, L>& out) const {
  COOMatrixImpl& self = *impl_;
  if (self.getRowCount() == 0 || self.rows <= 0) return;
  const L rows = narrowTo<L>(self.rows, "row count");
  const L cols = narrowColumn<L>(self.cols);
  const Device device = out.getDevice();
  CSRMatrixT<T, L> result;
  if (out.getColIdx() == nullptr) result = out;
  result.resize(rows, cols, device);
  CSRMatrixT<T, L> host;
  if (device.type == Device::kHost) {
    host = result;
  } else {
    host.resize(rows, cols, Device());
  }

  // Rows that nobody touched stay untouched, since an empty row in the map would never show.
  L* const row_ptr = host.getRowPtr();
  std::size_t nnz = 0;
  row_ptr[0] = 0;
  for (L i = 0; i < rows; ++i) {
    const Row* const row = self.findRow(static_cast<R>(i));
    if (row != nullptr) nnz += row->size();
    row_ptr[i + 1] = narrowTo<L>(nnz, "entry count");
  }
  host.resizeNnz(row_ptr[rows], 0);
  L* col_idx = host.getColIdx();
  T* values = host.getValues();
  for (L i = 0; i < rows; ++i) {
    if (row_ptr[i] == row_ptr[i + 1]) continue;
    for (const auto& entry : *self.findRow(static_cast<R>(i))) {
      *col_idx++ = narrowColumn<L>(entry.first);
      *values++ = entry.second;
    }
  }

  if (device.type != Device::kHost) {
    result.resizeNnz(host.getNnz(), 0);
    copyToDevice(static_cast<std::size_t>(rows) + 1, row_ptr, device, result.getRowPtr());
    copyToDevice(nnz, host.getColIdx(), device, result.getColIdx());
    copyToDevice(nnz, host.getValues(), device, result.getValues());
  }
  out = result;
}

#define MIVO_ASSEMBLE(T, R, C, L)                                                \
  template void COOMatrixT<T, R, C>::endAssemble(int, const PartitionerT<R, L>&, \
                                                 COOMatrixT<T, L, C>&);
#define MIVO_COO(T, R, C)                                              \
  template class COOMatrixT<T, R, C>;                                  \
  template void COOMatrixT<T, R, C>::toCSR(CSRMatrixT<T, int>&) const; \
  template void COOMatrixT<T, R, C>::toCSR(CSRMatrixT<T, long>&) const;
#define MIVO_INSTANCE(T)            \
  MIVO_COO(T, int, int)             \
  MIVO_COO(T, int, long)            \
  MIVO_COO(T, long, int)            \
  MIVO_COO(T, long, long)           \
  MIVO_ASSEMBLE(T, int, int, int)   \
  MIVO_ASSEMBLE(T, int, long, int)  \
  MIVO_ASSEMBLE(T, long, int, int)  \
  MIVO_ASSEMBLE(T, long, int, long) \
  MIVO_ASSEMBLE(T, long, long, int) \
  MIVO_ASSEMBLE(T, long, long, long)
MIVO_INSTANTIATE_VALUES(MIVO_INSTANCE)
#undef MIVO_INSTANCE
#undef MIVO_COO
#undef MIVO_ASSEMBLE

}  // namespace mivo
