// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstddef>
#include <limits>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/assembly/ColumnBlocks.hpp"
#include "mivo/mat/products/two_pass.hpp"
#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

namespace {

/// A matrix without entries may be the 0 by 0 one in place of a larger shape, with no row pointers
/// to walk: selections from it are shaped without a kernel.
template <class T, class I, class Kernel>
void select(const CSRMatrixT<T, I>& from, CSRMatrixT<T, I>& out, I rows, I cols,
            const Kernel& kernel) {
  const Device device = from.getDevice();
  if (from.getNnz() > 0) {
    buildFresh(out, rows, cols, device, kernel);
  } else {
    out.create(rows, cols, 0, device);
  }
}

template <class I>
I narrow(std::size_t value, const char* what) {
  MIVO_CHECK(value <= static_cast<std::size_t>(std::numeric_limits<I>::max()))
      << "merge: " << value << " " << what << " exceed the index type";
  return static_cast<I>(value);
}

/// The size that the partitioner itself gives in its local index type; 0 beyond its parts.
template <class G, class L>
std::size_t sizeOfPart(const PartitionerT<G, L>& part, std::size_t p) {
  G begin = 0, end = 0;
  if (p >= static_cast<std::size_t>(part.getNumParts())) return 0;
  part.getOwnerShipRangeForPart(static_cast<L>(p), &begin, &end);
  return static_cast<std::size_t>(end - begin);
}

}  // namespace

template <class T, class I>
void CSRMatrixT<T, I>::getSelectedRows(const IndexVectorT& sel, CSRMatrixT& out,
                                       bool keepPositions) const {
  const I count = sel.getSize();
  const I rows = keepPositions ? getRows() : count;
  if (rows == 0) {
    out = CSRMatrixT();
    return;
  }
  const Device device = getDevice();
  const View source = getRawMat();
  const IndexVectorT list = sel.toDevice(device);
  select(*this, out, rows, source.cols, [&](View result) {
    SpBlasOps<T, I>::get_selected_rows(device, source, count, list.getData(), nullptr, result,
                                       keepPositions ? 1 : 0);
  });
}

template <class T, class I>
void CSRMatrixT<T, I>::getSelectedCols(I begin, I end, CSRMatrixT& out, I shift) const {
  if (end - begin <= 0) {
    out = CSRMatrixT();
    return;
  }
  const Device device = getDevice();
  const View source = getRawMat();
  select(*this, out, source.rows, static_cast<I>(end - begin), [&](View result) {
    SpBlasOps<T, I>::get_selected_cols_v3(device, source, begin, end, result, shift);
  });
}

template <class T, class I>
void CSRMatrixT<T, I>::getSelectedCols(const IndexVectorT& begins, const IndexVectorT& ends,
                                       CSRMatrixT& out, I cols) const {
  const Device device = getDevice();
  const View source = getRawMat();
  select(*this, out, source.rows, cols, [&](View result) {
    SpBlasOps<T, I>::get_selected_cols_v2(device, source, begins.getData(), ends.getData(), result,
                                          0);
  });
}

template <class T, class I>
template <class G, class L>
void CSRMatrixT<T, I>::splitCols(const PartitionerT<G, L>& part,
                                 std::vector<CSRMatrixT>& out) const {
  const CSRMatrixT self = *this;  // may be an element of `out`
  out = cutColumns(self, part);
  for (std::size_t p = 0; p < out.size(); ++p) {
    if (out[p].getNnz() > 0) continue;
    const I cols = static_cast<I>(sizeOfPart(part, p));
    if (cols > 0) out[p].create(self.getRows(), cols, 0, self.getDevice());
  }
}

template <class T, class I>
template <class G, class L>
CSRMatrixT<T, I> CSRMatrixT<T, I>::mergeRows(const PartitionerT<G, L>& part,
                                             const std::vector<CSRMatrixT>& blocks) {
  CSRMatrixT out;
  if (blocks.empty()) return out;
  const CSRMatrixT* first = nullptr;
  std::vector<I> count(blocks.size());
  std::size_t rows = 0, nnz = 0;
  for (std::size_t p = 0; p < blocks.size(); ++p) {
    const CSRMatrixT& block = blocks[p];
    if (block.getNnz() > 0) {
      if (first == nullptr) first = &block;
      MIVO_CHECK(block.getCols() == first->getCols())
          << "merge: submat column size should be equal";
      MIVO_CHECK(block.getDevice().type == first->getDevice().type)
          << "merge: submat should on the same device";
      count[p] = block.getRows();
      nnz += static_cast<std::size_t>(block.getNnz());
    } else {
      count[p] = narrow<I>(sizeOfPart(part, p), "rows");
    }
    rows += static_cast<std::size_t>(count[p]);
  }
  const Device device = first != nullptr ? first->getDevice() : Device(0, 0);
  out.create(narrow<I>(rows, "rows"), first != nullptr ? first->getCols() : 0,
             narrow<I>(nnz, "entries"), device);
  if (first == nullptr) return out;  // row pointers of a matrix without entries stand at 0
  I row = 0;
  for (std::size_t p = 0; p < blocks.size(); ++p) {
    const View block = blocks[p].getNnz() > 0 ? blocks[p].getRawMat() : View{};
    if (count[p] > 0) {
      SpBlasOps<T, I>::csr_append_rows(device, out.getRawMat(), row, count[p], block);
    }
    row += count[p];
  }
  return out;
}

template <class T, class I>
template <class G, class L>
CSRMatrixT<T, I> CSRMatrixT<T, I>::mergeCols(const PartitionerT<G, L>& part,
                                             const std::vector<CSRMatrixT>& blocks) {
  CSRMatrixT out;
  if (blocks.empty()) return out;
  using MergeView = COT_MergeCSRRawMat<T, I>;
  const CSRMatrixT* first = nullptr;
  std::vector<MergeView> views;
  std::size_t cols = 0, nnz = 0;
  for (std::size_t p = 0; p < blocks.size(); ++p) {
    const CSRMatrixT& block = blocks[p];
    if (block.getNnz() == 0) {
      cols += sizeOfPart(part, p);
      continue;
    }
    if (first == nullptr) first = &block;
    MIVO_CHECK(block.getRows() == first->getRows()) << "merge: submat row size should be equal";
    MIVO_CHECK(block.getDevice().type == first->getDevice().type)
        << "merge: submat should on the same device";
    G begin = 0;
    part.getOwnerShipRangeForPart(static_cast<L>(p), &begin, nullptr);
    const View v = block.getRawMat();
    narrow<I>(static_cast<std::size_t>(begin) + static_cast<std::size_t>(v.cols), "columns");
    views.push_back({v.rows, v.cols, v.nnz, v.row_begin, v.row_end, v.col_idx, v.values, 0,
                     static_cast<I>(begin)});
    cols += static_cast<std::size_t>(v.cols);
    nnz += static_cast<std::size_t>(v.nnz);
  }
  const Device device = first != nullptr ? first->getDevice() : Device(0, 0);
  const I rows = first != nullptr ? first->getRows() : 0;
  out.create(rows, narrow<I>(cols, "columns"), 0, device);
  if (out.getRows() == 0 || out.getCols() == 0) return out;

  MatrixT<MergeView, I, MatrixLayoutRowMajor> table;
  const I tableSize = static_cast<I>(views.size());
  table.create(tableSize, 1, Device());
  std::copy(views.begin(), views.end(), table.getData());
  table = table.toDevice(device);
  narrow<I>(nnz, "entries");
  SpBlasOps<T, I>::csr_merge_cols(device, tableSize, table.getData(), out.getRawMat());
  const I counted = out.evaluateNnzs();
  MIVO_CHECK(static_cast<std::size_t>(counted) == nnz) << "nnz not equal";
  out.resizeNnz(counted, 0);
  SpBlasOps<T, I>::csr_merge_cols(device, tableSize, table.getData(), out.getRawMat());
  return out;
}

MIVO_INSTANCE_VALUES(CSRMatrixT, int)
#define MIVO_PARTITIONED(T, G, L)                                                      \
  template void CSRMatrixT<T, int>::splitCols(const PartitionerT<G, L>&,               \
                                              std::vector<CSRMatrixT<T, int>>&) const; \
  template CSRMatrixT<T, int> CSRMatrixT<T, int>::mergeRows(                           \
      const PartitionerT<G, L>&, const std::vector<CSRMatrixT<T, int>>&);              \
  template CSRMatrixT<T, int> CSRMatrixT<T, int>::mergeCols(                           \
      const PartitionerT<G, L>&, const std::vector<CSRMatrixT<T, int>>&);
MIVO_INSTANTIATE_VALUES_WITH(MIVO_PARTITIONED, int, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_PARTITIONED, long, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_PARTITIONED, long, long)
#undef MIVO_PARTITIONED

}  // namespace mivo
