// SPDX-License-Identifier: Apache-2.0

// From entries set on any rank to the column blocks of a distributed matrix.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/mat/assembly/COOMatrixImpl.hpp"
#include "mivo/mat/assembly/ColumnBlocks.hpp"
#include "mivo/mat/assembly/RowAssembly.hpp"
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
  RowAssembly<T, G, L>::assemble(host, *this);
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
