// SPDX-License-Identifier: Apache-2.0

// Copies of a distributed matrix, its views for kernels, and its way to and from one rank.

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::toDevice(const Device& device, ParCSRMatrixT& out) const {
  const ParCSRMatrixImpl& impl = *impl_;
  std::vector<Local> blocks(static_cast<std::size_t>(impl.col_part.getNumParts()));
  for (const auto& entry : impl.local_blocks) {
    blocks[static_cast<std::size_t>(entry.first)] = entry.second.matrix.toDevice(device);
  }
  const bool reuse = out.impl_ != impl_ && out.impl_->rows == impl.rows &&
                     out.impl_->cols == impl.cols && out.impl_->comm == impl.comm;
  if (reuse) {
    out.impl_->row_part = impl.row_part;
    out.impl_->col_part = impl.col_part;
    out.setDevice(device);
    out.replaceBlocks(blocks);
  } else {
    const Device where = device;
    const Partitioner rowPart = impl.row_part;
    const Partitioner colPart = impl.col_part;
    out.create(rowPart, colPart, blocks, where, impl.comm);
  }
  static_cast<ParOperator&>(out) = *this;
}

template <class T, class G, class L>
ParCSRMatrixT<T, G, L> ParCSRMatrixT<T, G, L>::toDevice(const Device& device) const {
  ParCSRMatrixT out;
  toDevice(device, out);
  return out;
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::deepCopy(ParCSRMatrixT& out) const {
  const std::shared_ptr<ParCSRMatrixImpl> impl = impl_;
  std::vector<Local> blocks(static_cast<std::size_t>(impl->col_part.getNumParts()));
  for (const auto& entry : impl->local_blocks) {
    entry.second.matrix.deepCopy(blocks[static_cast<std::size_t>(entry.first)]);
  }
  out.create(impl->row_part, impl->col_part, blocks, impl->device, impl->comm);
}

template <class T, class G, class L>
ParCSRMatrixT<T, G, L> ParCSRMatrixT<T, G, L>::deepCopy() const {
  ParCSRMatrixT out;
  deepCopy(out);
  return out;
}

template <class T, class G, class L>
bool ParCSRMatrixT<T, G, L>::operator==(const ParCSRMatrixT& other) const {
  const Local mine = gather(0);
  const Local theirs = other.gather(0);
  return mine == theirs;
}

template <class T, class G, class L>
typename ParCSRMatrixT<T, G, L>::Local ParCSRMatrixT<T, G, L>::gather(int root) const {
  const ParCSRMatrixImpl& impl = *impl_;
  if (impl.rows == 0 || impl.cols == 0) return Local();
  std::vector<Local> all;
  comu::stlmpi_gather_stream(impl.comm, onHost(getLocalMatrix(-1)), all, root);
  if (impl.rank() != root) return Local();
  const Local whole = Local::mergeRows(impl.row_part, all);
  // A matrix without entries has no shape here, as after any move to a device.
  if (whole.getNnz() == 0) return Local();
  return impl.device.type == Device::kHost ? whole : whole.toDevice(impl.device);
}

template <class T, class G, class L>
ParCSRMatrixT<T, G, L> ParCSRMatrixT<T, G, L>::scatter(int comm, int root, const Local& m) {
  ParCSRMatrixT out;
  out.scatterFrom(comm, root, m, true);
  return out;
}

template <class T, class G, class L>
bool ParCSRMatrixT<T, G, L>::scatterFrom(int comm, int root, const Local& m, bool valid) {
  const int rank = rankOf(comm), nprocs = sizeOf(comm);
  // A negative row count tells all ranks that the root has nothing to give.
  std::int64_t head[4] = {valid ? static_cast<std::int64_t>(m.getRows()) : -1, m.getCols(),
                          m.getDevice().type, m.getDevice().id};
  MPI_Bcast(head, 4, MPI_INT64_T, root, comm);
  if (head[0] < 0) return false;
  const G rows = static_cast<G>(head[0]);
  const G cols = static_cast<G>(head[1]);
  const Device device(static_cast<int>(head[2]), static_cast<int>(head[3]));
  Partitioner rowPart;
  Partitioner colPart;
  rowPart.create(rows, static_cast<L>(nprocs));
  colPart.create(cols, static_cast<L>(nprocs));

  std::vector<Local> pieces;
  if (rank == root) {
    MIVO_CHECK(static_cast<G>(m.getRows()) == rowPart.getGlobalSize())
        << "splitRows: rows.size() != partitioner.getGlobalSize()";
    pieces.resize(static_cast<std::size_t>(nprocs));
    if (m.getNnz() > 0) {
      const Local host = onHost(m);
      for (std::size_t r = 0; r < pieces.size(); ++r) {
        G begin = 0;
        G end = 0;
        rowPart.getOwnerShipRangeForPart(static_cast<L>(r), &begin, &end);
        host.getSelectedRows(IndexVector::range(static_cast<int>(begin), static_cast<int>(end), 1),
                             pieces[r], false);
      }
    }
  }
  Local mine;
  comu::stlmpi_scatter_stream(comm, pieces, mine, root);
  if (device.type != Device::kHost) mine = mine.toDevice(device);
  create(rowPart, colPart, cutColumns(mine, colPart), device, comm);
  return true;
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::getRawMat(BlockTable& out) const {
  const ParCSRMatrixImpl& impl = *impl_;
  out.resize(static_cast<L>(impl.local_blocks.size()), 1, Device());
  G rowBegin = 0;
  getOwnerShipRange(&rowBegin, nullptr);
  COT_SpMVCSRRawMat<T, L>* record = out.getData();
  for (const auto& entry : impl.local_blocks) {
    const LocalBlockT<T, G, L>& block = entry.second;
    const auto view = block.matrix.getRawMat();
    G colBegin = 0;
    impl.col_part.getOwnerShipRangeForPart(static_cast<L>(entry.first), &colBegin, nullptr);
    record->rows = view.rows;
    record->cols = view.cols;
    record->nnz = view.nnz;
    record->row_begin = view.row_begin;
    record->row_end = view.row_end;
    record->col_idx = view.col_idx;
    record->values = view.values;
    record->first_row = static_cast<L>(rowBegin);
    record->first_col = static_cast<L>(colBegin);
    record->rank = entry.first;
    record->x = block.plan_block != nullptr ? block.plan_block->recv_x.getData() : nullptr;
    record->y = block.product_buffer.getData();
    ++record;
  }
}

template <class T, class G, class L>
typename ParCSRMatrixT<T, G, L>::BlockTable ParCSRMatrixT<T, G, L>::getRawMatOnDev() const {
  BlockTable table;
  getRawMat(table);
  return table.toDevice(impl_->device);
}

MIVO_INSTANCE_VALUES(ParCSRMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParCSRMatrixT, long, int)

}  // namespace mivo
