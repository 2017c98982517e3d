// SPDX-License-Identifier: Apache-2.0

// Operations that make or change whole distributed matrices; the product stands by itself in
// ParCSRMatrixMultiply.cpp.

#include <algorithm>
#include <cstddef>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/mat/products/two_pass.hpp"
#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::transpose(ParCSRMatrixT& out) const {
  const std::shared_ptr<ParCSRMatrixImpl> impl = impl_;
  if (impl->rows == 0 || impl->cols == 0) {
    out.impl_ = std::make_shared<ParCSRMatrixImpl>();
    return;
  }
  std::vector<Local> blocks;
  getLocalMatrix(blocks);
  const std::size_t own = static_cast<std::size_t>(impl->rank());
  for (std::size_t p = 0; p < blocks.size(); ++p) {
    if (p != own) blocks[p] = onHost(blocks[p]);
  }
  std::vector<Local> received;
  comu::sparse_send_recv_stream(impl->comm, blocks, received);
  blocks.clear();
  for (std::size_t q = 0; q < received.size(); ++q) {
    Local& block = received[q];
    if (block.getNnz() == 0) continue;
    if (q != own && impl->device.type != Device::kHost) block = block.toDevice(impl->device);
    Local turned;
    turned.create(block.getCols(), block.getRows(), block.getNnz(), block.getDevice());
    SpBlasOps<T, L>::csr_transpose(block.getDevice(), block.getRows(), block.getCols(),
                                   block.getRowPtr(), block.getColIdx(), block.getValues(),
                                   turned.getRowPtr(), turned.getColIdx(), turned.getValues());
    block = turned;
  }
  // Ranks beyond the row parts have no rows, hence sent nothing.
  received.resize(static_cast<std::size_t>(impl->row_part.getNumParts()));
  out.create(impl->col_part, impl->row_part, received, impl->device, impl->comm);
}

template <class T, class G, class L>
ParCSRMatrixT<T, G, L> ParCSRMatrixT<T, G, L>::transpose() const {
  ParCSRMatrixT out;
  transpose(out);
  return out;
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::matadd(T a, const ParCSRMatrixT& A, T b, const ParCSRMatrixT& B,
                                    ParCSRMatrixT& C) {
  const std::shared_ptr<ParCSRMatrixImpl> left = A.impl_;
  const std::shared_ptr<ParCSRMatrixImpl> right = B.impl_;
  MIVO_CHECK(left->comm == right->comm) << "aXpbY: comm should be same";
  MIVO_CHECK(left->device.type == right->device.type) << "aXpbY: device should be same";
  MIVO_CHECK(left->row_part == right->row_part && left->col_part == right->col_part)
      << "aXpbY: partition should be same";
  std::vector<Local> result(static_cast<std::size_t>(left->col_part.getNumParts()));
  for (std::size_t p = 0; p < result.size(); ++p) {
    Local::matadd(a, A.getLocalMatrix(static_cast<int>(p)), b,
                  B.getLocalMatrix(static_cast<int>(p)), result[p]);
  }
  C.create(left->row_part, left->col_part, result, left->device, left->comm);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::axpbyDiag(T a, const Vector& d1, T b, const Vector& d2,
                                       const ParCSRMatrixT& source, ParCSRMatrixT& out) {
  const std::shared_ptr<ParCSRMatrixImpl> impl = source.impl_;
  for (const Vector* d : {&d1, &d2}) {
    MIVO_CHECK(d->getSize() == 0 || d->getRowPartitioner() == impl->row_part)
        << "axpbyDiag: partition should be same";
  }
  const auto local1 = d1.getLocalMatrix(-1).toDevice(impl->device);
  const auto local2 = d2.getLocalMatrix(-1).toDevice(impl->device);
  G rowBegin = 0;
  G rowEnd = 0;
  source.getOwnerShipRange(&rowBegin, &rowEnd);
  std::vector<Local> result(static_cast<std::size_t>(impl->col_part.getNumParts()));
  for (std::size_t p = 0; p < result.size(); ++p) {
    Local block = source.getLocalMatrix(static_cast<int>(p));
    G colBegin = 0;
    G colEnd = 0;
    impl->col_part.getOwnerShipRangeForPart(static_cast<L>(p), &colBegin, &colEnd);
    if (colBegin >= rowEnd || rowBegin >= colEnd) {
      block.deepCopy(result[p]);
      continue;
    }
    if (block.getNnz() == 0) {
      block.create(static_cast<L>(rowEnd - rowBegin), static_cast<L>(colEnd - colBegin), 0,
                   impl->device);
    }
    // The ranges overlap, so that their distance fits the local index type.
    const G origin = std::min(rowBegin, colBegin);
    block.axpbyDiag(a, local1, b, local2, result[p], static_cast<L>(rowBegin - origin),
                    static_cast<L>(colBegin - origin));
  }
  out.create(impl->row_part, impl->col_part, result, impl->device, impl->comm);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::matmul_aDA(T alpha, const Vector& d, ParCSRMatrixT& out) {
  ParCSRMatrixImpl& impl = *impl_;
  MIVO_CHECK(impl.row_part == d.getRowPartitioner()) << "matmul_aDA: partition should be same";
  const auto local = d.getLocalMatrix(-1).toDevice(impl.device);
  for (const auto& entry : impl.local_blocks) {
    const Local& m = entry.second.matrix;
    const auto view = m.getRawMat();
    SpBlasOps<T, L>::csr_matmul_aDA(m.getDevice(), alpha, local.getData(),
                                    {view.rows, view.cols, view.nnz, view.row_begin, view.row_end,
                                     view.col_idx, view.values, 0, 0});
  }
  out.impl_ = impl_;
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::matmul_aAD(T alpha, const Vector& d, ParCSRMatrixT& out) {
  const std::shared_ptr<ParCSRMatrixImpl> impl = impl_;
  MIVO_CHECK(impl->col_part == d.getRowPartitioner()) << "matmul_aAD: partition should be same";
  BlockTable table;
  getRawMat(table);
  const auto scaleBlock = [&](int p, typename Plan::SpmvColBlock* block) {
    if (block == nullptr) return;  // a rank without an own block
    for (L k = 0; k < table.getSize(); ++k) {
      COT_SpMVCSRRawMat<T, L> view = table.getData()[k];
      if (view.rank != p) continue;
      view.x = block->recv_x.getData();  // the own block's is d itself, known only now
      SpBlasOps<T, L>::csr_matmul_aAD(impl->device, alpha, view);
    }
  };
  exchangeMatVec(d, scaleBlock, scaleBlock, nullptr, nullptr);
  out.impl_ = impl;
}

template <class T, class G, class L>
ParCSRMatrixT<T, G, L> ParCSRMatrixT<T, G, L>::sparsify(T threshold) const {
  const ParCSRMatrixImpl& impl = *impl_;
  // As many blocks as there are row parts, which is the number of column parts.
  std::vector<Local> result(static_cast<std::size_t>(impl.row_part.getNumParts()));
  for (std::size_t p = 0; p < result.size(); ++p) {
    const Local block = getLocalMatrix(static_cast<int>(p));
    if (block.getNnz() > 0) result[p] = block.sparsify(threshold);
  }
  ParCSRMatrixT out;
  out.create(impl.row_part, impl.col_part, result, impl.device, impl.comm);
  return out;
}

template <class T, class G, class L>
ParCSRMatrixT<T, G, L> ParCSRMatrixT<T, G, L>::rowTopK(int k) const {
  const ParCSRMatrixImpl& impl = *impl_;
  const BlockTable table = getRawMatOnDev();
  const L rows = impl.localRows();
  MIVO_CHECK(impl.cols <= static_cast<G>(std::numeric_limits<L>::max()))
      << "rowTopK: " << impl.cols << " columns exceed the index type";
  Local selected;
  buildTwoPass(selected, rows, static_cast<L>(impl.cols), impl.device, [&](auto view) {
    SpBlasOps<T, L>::par_csr_row_norm_topk(impl.device, rows, table.getSize(), table.getData(),
                                           static_cast<L>(k), view);
  });
  ParCSRMatrixT out;
  out.create(impl.row_part, impl.col_part, cutColumns(selected, impl.col_part), impl.device,
             impl.comm);
  static_cast<ParOperator&>(out) = *this;
  return out;
}

template <class T, class G, class L>
template <class U>
void ParCSRMatrixT<T, G, L>::copyStructure(ParCSRMatrixT<U, G, L>& out) const {
  const ParCSRMatrixImpl& impl = *impl_;
  std::vector<CSRMatrixT<U, L>> blocks(static_cast<std::size_t>(impl.col_part.getNumParts()));
  for (const auto& entry : impl.local_blocks) {
    entry.second.matrix.copyStructure(blocks[static_cast<std::size_t>(entry.first)]);
  }
  ParCSRMatrixT<U, G, L> copy;
  copy.create(impl.row_part, impl.col_part, blocks, impl.device, impl.comm);
  if (impl.prepared) {
    impl.plan.copyStructure(copy.impl_->plan, true);
    copy.linkBlocks();
  }
  out.impl_ = copy.impl_;
}

MIVO_INSTANCE_VALUES(ParCSRMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParCSRMatrixT, long, int)
#define MIVO_COPY(T, U)                                                                       \
  template void ParCSRMatrixT<T, int, int>::copyStructure(ParCSRMatrixT<U, int, int>&) const; \
  template void ParCSRMatrixT<T, long, int>::copyStructure(ParCSRMatrixT<U, long, int>&) const;
MIVO_INSTANTIATE_PAIRS(MIVO_COPY)
#undef MIVO_COPY

}  // namespace mivo
