// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/ParCSRMatrix.hpp"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/ops/BlasOps.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
ParCSRMatrixT<T, G, L>::ParCSRMatrixT() : impl_(std::make_shared<ParCSRMatrixImpl>()) {}

template <class T, class G, class L>
ParCSRMatrixT<T, G, L>::~ParCSRMatrixT() = default;

namespace {

/// Rows of a rank and columns of a block are numbered in the local index type, and so are the row
/// pointers, one more than the rows.
template <class G, class L>
void checkSizesOfParts(const PartitionerT<G, L>& part, const char* what) {
  const std::vector<G>& offsets = part.getOffsets();
  for (std::size_t p = 0; p + 1 < offsets.size(); ++p) {
    const G size = offsets[p + 1] - offsets[p];
    MIVO_CHECK(size < static_cast<G>(std::numeric_limits<L>::max()))
        << "ParCSRMatrix: " << size << " " << what << " of part " << p
        << " exceed the local index type";
  }
}

}  // namespace

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::reset(const Partitioner& rowPart, const Partitioner& colPart,
                                   const Device& device, int comm) {
  checkSizesOfParts(rowPart, "rows");
  checkSizesOfParts(colPart, "columns");
  auto impl = std::make_shared<ParCSRMatrixImpl>();
  impl->comm = comm;
  impl->rows = rowPart.getGlobalSize();
  impl->cols = colPart.getGlobalSize();
  impl->device = device;
  impl->row_part = rowPart;
  impl->col_part = colPart;
  impl->plan.setPlace(comm, device);
  impl_ = std::move(impl);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::create(G rows, G cols, const Device& device, int comm) {
  const int nprocs = sizeOf(comm);
  Partitioner rowPart;
  Partitioner colPart;
  rowPart.create(rows, static_cast<L>(nprocs));
  colPart.create(cols, static_cast<L>(nprocs));
  reset(rowPart, colPart, device, comm);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::create(const Partitioner& rowPart, const Partitioner& colPart,
                                    const std::vector<Local>& blocks, const Device& device,
                                    int comm) {
  MIVO_CHECK(blocks.empty() || blocks.size() == static_cast<std::size_t>(colPart.getNumParts()))
      << "num of col blocks should equal to the col partitioner size";
  // The arguments may belong to the matrix that this object holds.
  const std::vector<Local> content = blocks;
  const Device where = device;
  reset(rowPart, colPart, where, comm);
  setLocalMatrix(content);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::createSeq(const Local& m, int comm) {
  const int nprocs = sizeOf(comm);
  MIVO_CHECK(nprocs == 1) << "createSeq: one rank expected, the communicator has " << nprocs;
  const Local local = m;
  create(static_cast<G>(local.getRows()), static_cast<G>(local.getCols()), local.getDevice(), comm);
  setLocalMatrix({local});
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::setLocalMatrix(const std::vector<Local>& blocks) {
  for (std::size_t p = 0; p < blocks.size(); ++p) {
    if (blocks[p].getNnz() >= 1) impl_->local_blocks[static_cast<int>(p)].matrix = blocks[p];
  }
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::replaceBlocks(const std::vector<Local>& blocks) {
  impl_->unlinkBlocks();
  impl_->local_blocks.clear();
  setLocalMatrix(blocks);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::getLocalMatrix(std::vector<Local>& out) const {
  std::vector<Local> blocks(static_cast<std::size_t>(impl_->size()));
  for (std::size_t p = 0; p < blocks.size(); ++p) blocks[p] = getLocalMatrix(static_cast<int>(p));
  out = std::move(blocks);
}

template <class T, class G, class L>
typename ParCSRMatrixT<T, G, L>::Local ParCSRMatrixT<T, G, L>::getLocalMatrix(int block) const {
  const L parts = impl_->col_part.getNumParts();
  if (block < 0 && parts > 1) {
    std::vector<Local> blocks(static_cast<std::size_t>(parts));
    for (const auto& entry : impl_->local_blocks) {
      blocks[static_cast<std::size_t>(entry.first)] = entry.second.matrix;
    }
    return Local::mergeCols(impl_->col_part, blocks);
  }
  const auto found = impl_->local_blocks.find(block < 0 ? 0 : block);
  return found != impl_->local_blocks.end() ? found->second.matrix : Local();
}

template <class T, class G, class L>
int ParCSRMatrixT<T, G, L>::getComm() const {
  return impl_->comm;
}

template <class T, class G, class L>
Device ParCSRMatrixT<T, G, L>::getDevice() const {
  return impl_->device;
}

template <class T, class G, class L>
G ParCSRMatrixT<T, G, L>::getRows() const {
  return impl_->rows;
}

template <class T, class G, class L>
G ParCSRMatrixT<T, G, L>::getCols() const {
  return impl_->cols;
}

template <class T, class G, class L>
const typename ParCSRMatrixT<T, G, L>::Plan& ParCSRMatrixT<T, G, L>::getSpMVCommPattern() const {
  return impl_->plan;
}

template <class T, class G, class L>
typename ParCSRMatrixT<T, G, L>::Plan& ParCSRMatrixT<T, G, L>::getSpMVCommPattern() {
  return impl_->plan;
}

template <class T, class G, class L>
const PartitionerT<G, L>& ParCSRMatrixT<T, G, L>::getRowPartitioner() const {
  return impl_->row_part;
}

template <class T, class G, class L>
const PartitionerT<G, L>& ParCSRMatrixT<T, G, L>::getColPartitioner() const {
  return impl_->col_part;
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::getOwnerShipRange(G* begin, G* end) const {
  impl_->ownRows(begin, end);
}

template <class T, class G, class L>
L ParCSRMatrixT<T, G, L>::getLocalRows() const {
  return impl_->localRows();
}

// The plan belongs to a communicator and a device: a change of either asks for a new one. Whether
// there is a change is not looked at, since a rank may get the device that it has while others do
// not, and all ranks must make the next plan together.

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::setComm(int comm) {
  impl_->comm = comm;
  impl_->unlinkBlocks();
  impl_->plan.setPlace(comm, impl_->device);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::setDevice(const Device& device) {
  const Device where = device;
  impl_->device = where;
  impl_->unlinkBlocks();
  impl_->plan.setPlace(impl_->comm, where);
}

template <class T, class G, class L>
G ParCSRMatrixT<T, G, L>::getNnzs() const {
  std::int64_t nnz = 0;
  for (const auto& entry : impl_->local_blocks) nnz += entry.second.matrix.getNnz();
  MPI_Allreduce(MPI_IN_PLACE, &nnz, 1, MPI_INT64_T, MPI_SUM, impl_->comm);
  MIVO_CHECK(nnz <= std::numeric_limits<G>::max())
      << "getNnzs: " << nnz << " entries exceed the global index type";
  return static_cast<G>(nnz);
}

namespace {

/// Place of a global entry in the column blocks of its owner; false where another rank owns the
/// row.
template <class Impl, class G, class L>
bool locate(const Impl& impl, G row, G col, L& localRow, L& block, L& localCol) {
  L owner = 0;
  impl.row_part.global2Local(row, owner, localRow);
  if (owner != static_cast<L>(impl.rank())) return false;
  impl.col_part.global2Local(col, block, localCol);
  return true;
}

}  // namespace

template <class T, class G, class L>
T ParCSRMatrixT<T, G, L>::getElementValue(G row, G col, bool* found) const {
  if (found != nullptr) *found = false;
  L localRow = 0;
  L block = 0;
  L localCol = 0;
  if (!locate(*impl_, row, col, localRow, block, localCol)) return T(0);
  const auto entry = impl_->local_blocks.find(static_cast<int>(block));
  if (entry == impl_->local_blocks.end()) return T(0);
  return entry->second.matrix.getElementValue(localRow, localCol, found);
}

template <class T, class G, class L>
bool ParCSRMatrixT<T, G, L>::setElementValue(G row, G col, const T& value) {
  L localRow = 0;
  L block = 0;
  L localCol = 0;
  if (!locate(*impl_, row, col, localRow, block, localCol)) return false;
  const auto entry = impl_->local_blocks.find(static_cast<int>(block));
  if (entry == impl_->local_blocks.end()) return false;
  return entry->second.matrix.setElementValue(localRow, localCol, value);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::scale(ParCSRMatrixT& m, T a) {
  for (auto& entry : m.impl_->local_blocks) Local::scale(entry.second.matrix, a);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::fill(T value) {
  for (auto& entry : impl_->local_blocks) {
    const Local& m = entry.second.matrix;
    BlasOps<T, L>::fill(m.getDevice(), m.getNnz(), value, m.getValues());
  }
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::sortRows() {
  for (auto& entry : impl_->local_blocks) entry.second.matrix.sortRows();
}

template <class T, class G, class L>
std::size_t ParCSRMatrixT<T, G, L>::getBytes() const {
  std::size_t bytes = impl_->plan.getBytes();
  for (const auto& entry : impl_->local_blocks) {
    const LocalBlock& block = entry.second;
    bytes +=
        block.matrix.getBytes() + block.product_buffer.getBytes() + block.filled_rows.getBytes();
  }
  return bytes;
}

MIVO_INSTANCE_VALUES(ParCSRMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParCSRMatrixT, long, int)

}  // namespace mivo
