// SPDX-License-Identifier: Apache-2.0

// From entries set on any rank to the column blocks of a distributed matrix.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/mat/assembly/COOMatrixImpl.hpp"
#include "mivo/mat/assembly/ColumnBlocks.hpp"
#include "mivo/mat/assembly/RowAssembly.hpp"
#include "mivo/mat/assembly/RowMessages.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {
namespace {

/// Rows of an assembly that has reached its owners, sorted as they are read.
template <class T, class G, class L>
struct AssembledRows {
  using Impl = typename COOMatrixT<T, L, G>::COOMatrixImpl;
  using Row = typename COOMatrixT<T, L, G>::Row;

  Impl& impl;
  std::vector<typename Row::value_type> entries;

  std::size_t count(L i) const {
    const Row* row = impl.findRow(i);
    return row == nullptr ? 0 : row->size();
  }
  const typename Row::value_type* row(L i) {
    const Row& found = *impl.findRow(i);
    entries.assign(found.begin(), found.end());
    sortRow(entries.data(), entries.size());
    return entries.data();
  }
  void restart(bool) {}
};

/// Rows of a matrix with global rows and columns, from row `first` on, sorted and summed as they
/// are read.
template <class T, class G, class L>
class GivenRows {
 public:
  using Entry = typename MapWithLockType<G, T>::value_type;

  GivenRows(const CSRMatrixT<T, G>& m, G first, L rows)
      : row_ptr_(m.getRowPtr()), col_idx_(m.getColIdx()), values_(m.getValues()), first_(first) {
    counts_.reserve(static_cast<std::size_t>(rows));
    for (L i = 0; i < rows; ++i) {
      const G r = first + static_cast<G>(i);
      if (m.getNnz() == 0 || r >= m.getRows() || row_ptr_[r] == row_ptr_[r + 1]) {
        counts_.push_back(0);
        continue;
      }
      G k = row_ptr_[r] + 1;
      while (k < row_ptr_[r + 1] && col_idx_[k - 1] < col_idx_[k]) ++k;
      const bool ascending = k == row_ptr_[r + 1];
      counts_.push_back(
          narrowEntryCount<L>(ascending ? static_cast<std::size_t>(k - row_ptr_[r]) : load(r)));
    }
  }
  std::size_t count(L i) const {
    return static_cast<std::size_t>(counts_[static_cast<std::size_t>(i)]);
  }
  const Entry* row(L i) {
    load(first_ + static_cast<G>(i));
    return row_.data();
  }
  void restart(bool) {}

 private:
  std::size_t load(G r) {
    const std::size_t length = static_cast<std::size_t>(row_ptr_[r + 1] - row_ptr_[r]);
    if (row_.size() < length) row_.resize(length);
    const G* const col_idx = col_idx_ + row_ptr_[r];
    const T* const values = values_ + row_ptr_[r];
    // A position starts at zero, so that a lone -0.0 is stored as 0.0.
    for (std::size_t k = 0; k < length; ++k) row_[k] = {col_idx[k], T(0) + values[k]};
    sortRow(row_.data(), length);
    return sumDuplicates(row_.data(), length);
  }

  const G* row_ptr_;
  const G* col_idx_;
  const T* values_;
  G first_;
  std::vector<L> counts_;
  std::vector<Entry> row_;
};

}  // namespace

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::beginAssemble() {
  impl_->assembly = std::make_shared<COOMatrixT<T, G, G>>();
  impl_->assembly->setShape(static_cast<G>(impl_->localRows()), impl_->cols);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::setValue(G row, G col, const T& value, SetValueMode mode) {
  MIVO_CHECK(impl_->assembly != nullptr) << "setValue: beginAssemble must come first";
  impl_->assembly->getImpl().setValue(row, col, value, mode);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::endAssemble() {
  ParCSRMatrixImpl& impl = *impl_;
  MIVO_CHECK(impl.assembly != nullptr) << "endAssemble: beginAssemble must come first";
  const L rows = impl.localRows();
  COOMatrixT<T, L, G> result;
  result.setShape(rows, impl.cols);
  impl.assembly->endAssemble(impl.comm, impl.row_part, result);
  impl.assembly.reset();
  AssembledRows<T, G, L> source{result.getImpl(), {}};
  takeRows(source);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::createByAssemble(const CSRMatrixT<T, G>& m, int comm) {
  std::int64_t shape[2] = {m.getRows(), m.getCols()};
  MPI_Allreduce(MPI_IN_PLACE, shape, 2, MPI_INT64_T, MPI_MAX, comm);
  const CSRMatrixT<T, G> host = onHost(m);
  create(static_cast<G>(shape[0]), static_cast<G>(shape[1]), m.getDevice(), comm);
  // A matrix without entries may have row pointers that say nothing.
  const G rows = host.getNnz() > 0 ? host.getRows() : 0;
  const G* const row_ptr = host.getRowPtr();
  const auto addRowsTo = [&](RowAssembly<T, G, L>& assembly) {
    for (G i = 0; i < rows; ++i) {
      assembly.beginRow(i);
      for (G k = row_ptr[i]; k < row_ptr[i + 1]; ++k) {
        assembly.add(host.getColIdx()[k], host.getValues()[k]);
      }
    }
  };
  G begin = 0;
  G end = 0;
  getOwnerShipRange(&begin, &end);
  const auto hasEntries = [&](G from, G to) { return from < to && row_ptr[from] < row_ptr[to]; };
  if (hasEntries(0, std::min(begin, rows)) || hasEntries(std::min(end, rows), rows)) {
    RowAssembly<T, G, L> assembly(*this);
    addRowsTo(assembly);
    assembly.finish();
    return;
  }
  RowMessages<T, G> messages(comm);
  messages.open();
  messages.exchange();
  bool received = false;
  messages.forEachReceived([&](int, int, const unsigned char*) { received = true; });
  if (received) {
    RowAssembly<T, G, L> assembly(*this);
    addRowsTo(assembly);
    assembly.finish(messages);
    return;
  }
  // All contributions to the own rows are here: they need no store in between.
  GivenRows<T, G, L> source(host, begin, static_cast<L>(end - begin));
  takeRows(source);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::traversal(const std::function<bool(G row, G nnzOfRow)>& rowFn,
                                       const std::function<bool(G row, G col, T& value)>& elemFn) {
  if (impl_->assembly == nullptr) return;
  impl_->assembly->getImpl().forEachRow([&](G row, auto& entries) {
    if (rowFn) rowFn(row, static_cast<G>(entries.size()));
    if (!elemFn) return;
    for (auto& entry : entries) elemFn(row, entry.first, entry.second);
  });
}

MIVO_INSTANCE_VALUES(ParCSRMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParCSRMatrixT, long, int)

}  // namespace mivo
