// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/COOMatrix.hpp"

#include <cstddef>
#include <limits>
#include <vector>

#include "mivo/mat/assembly/COOMatrixImpl.hpp"
#include "mivo/mat/assembly/RowMessages.hpp"
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
  // The row outlives what an assembly into this matrix puts in its place.
  Row& found = impl_->getRow(row);
  return std::shared_ptr<Row>(impl_->getArenas(), &found);
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
      MIVO_CHECK(static_cast<long>(end_ - begin_) <= std::numeric_limits<L>::max())
          << "endAssemble: " << end_ - begin_ << " rows of one part exceed the local index type";
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
  int owner;
  int local;
  const Row* entries;
};

}  // namespace

template <class T, class R, class C>
template <class L>
void COOMatrixT<T, R, C>::endAssemble(int comm, const PartitionerT<R, L>& rowPart,
                                      COOMatrixT<T, L, C>& out) {
  RowMessages<T, C> messages(comm);
  typename COOMatrixT<T, L, C>::COOMatrixImpl own;
  std::vector<SentRow<Row>> sent;
  RowLocator<R, L> locator(rowPart, messages.size());
  impl_->forEachRow([&](R row, Row& entries) {
    R local = 0;
    const int owner = locator.locate(row, local);
    if (owner == messages.rank()) {
      own.shareRow(static_cast<L>(local), entries);
    } else {
      sent.push_back({owner, comu::narrowToInt(static_cast<std::size_t>(local), "rows"), &entries});
      messages.announce(owner, entries.size());
    }
  });
  own.shareArenas(*impl_->getArenas());
  messages.open();
  for (const SentRow<Row>& row : sent) {
    messages.beginRow(row.owner, row.local, row.entries->size());
    for (const auto& entry : *row.entries) messages.add(entry.first, entry.second);
  }
  messages.exchange();

  // Contributions of other ranks are added to the own rows in the order of ranks.
  out.getImpl().swapRows(own);
  messages.forEachReceived([&](int local, int count, const unsigned char* at) {
    auto& row = out.getImpl().getRow(static_cast<L>(local));
    for (int k = 0; k < count; ++k) {
      C col{};
      T value{};
      messages.readEntry(at, col, value);
      row[col] += value;
    }
  });
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
  const auto lock = self.lockRows();
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

MIVO_INSTANCE_VALUES(COOMatrixT, int, int)
MIVO_INSTANCE_VALUES(COOMatrixT, int, long)
MIVO_INSTANCE_VALUES(COOMatrixT, long, int)
MIVO_INSTANCE_VALUES(COOMatrixT, long, long)

#define MIVO_ASSEMBLE(T, R, C, L)                                                \
  template void COOMatrixT<T, R, C>::endAssemble(int, const PartitionerT<R, L>&, \
                                                 COOMatrixT<T, L, C>&);
#define MIVO_COO(T, R, C)                                              \
  template void COOMatrixT<T, R, C>::toCSR(CSRMatrixT<T, int>&) const; \
  template void COOMatrixT<T, R, C>::toCSR(CSRMatrixT<T, long>&) const;
MIVO_INSTANTIATE_VALUES_WITH(MIVO_COO, int, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_COO, int, long)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_COO, long, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_COO, long, long)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_ASSEMBLE, int, int, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_ASSEMBLE, int, long, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_ASSEMBLE, long, int, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_ASSEMBLE, long, int, long)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_ASSEMBLE, long, long, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_ASSEMBLE, long, long, long)
#undef MIVO_COO
#undef MIVO_ASSEMBLE

}  // namespace mivo
