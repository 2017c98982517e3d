// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/products/triple_product.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {
namespace {

template <class I>
constexpr I kMost = std::numeric_limits<I>::max();

template <class I>
I twice(I n) {
  return n > kMost<I> / 2 ? kMost<I> : static_cast<I>(2 * n);
}

/// A matrix that is filled row by row, and makes room as it goes: on a host twice of what is asked
/// for, since what is not used is not touched there.
template <class T, class I>
class GrowingMatrix {
 public:
  using Local = CSRMatrixT<T, I>;

  GrowingMatrix(I rows, I cols, I capacity, const Device& device)
      : capacity_(device.type == Device::kHost ? twice(capacity) : capacity) {
    matrix_.create(rows, cols, capacity_, device);
  }

  I getCapacity() const { return capacity_; }
  COT_CSRRawMat<T, I> getRawMat() { return matrix_.getRawMat(); }

  /// Makes twice the room, and keeps the first `rows` rows.
  void grow(I rows) {
    MIVO_CHECK(capacity_ < kMost<I>) << "CSRMatrix: the entries of a result exceed the index type";
    capacity_ = twice(capacity_);
    const Device device = matrix_.getDevice();
    Local larger;
    larger.create(matrix_.getRows(), matrix_.getCols(), capacity_, device);
    if (rows > 0) {
      I filled = 0;
      device.rawCopyTo(sizeof(I), matrix_.getRowPtr() + rows, Device(), &filled);
      const auto copy = [&](std::size_t count, const auto* from, auto* to) {
        if (count > 0) device.rawCopyTo(count * sizeof(*to), from, device, to);
      };
      copy(static_cast<std::size_t>(rows) + 1, matrix_.getRowPtr(), larger.getRowPtr());
      copy(static_cast<std::size_t>(filled), matrix_.getColIdx(), larger.getColIdx());
      copy(static_cast<std::size_t>(filled), matrix_.getValues(), larger.getValues());
    }
    matrix_ = larger;
  }
  /// The matrix, with all its rows.
  Local finish() {
    matrix_.shrinkNnz(matrix_.evaluateNnzs());
    return matrix_;
  }

 private:
  I capacity_;
  Local matrix_;
};

}  // namespace

template <class T, class I>
void TripleProduct<T, I>::multiply(Local& own, Local& rest) const {
  own = rest = Local();
  I entries = ghostRows.getNnz();
  for (const Local& block : blocks) entries = std::max(entries, block.getNnz());
  if (R.getNnz() == 0 || P.getNnz() == 0 || entries == 0) return;
  const Device device = R.getDevice();

  using MergeView = COT_MergeCSRRawMat<T, I>;
  MatrixT<MergeView, I, MatrixLayoutRowMajor> table;
  table.create(static_cast<I>(blocks.size()), 1, Device());
  std::transform(blocks.begin(), blocks.end(), table.getData(), [](const Local& block) {
    const auto v = block.getRawMat();
    return MergeView{v.rows, v.cols, v.nnz, v.row_begin, v.row_end, v.col_idx, v.values, 0, 0};
  });
  table = table.toDevice(device);

  // A row of the widest that there may be; its memory is touched as far as it is used.
  Local rowA;
  rowA.create(0, P.getRows(), P.getRows(), device);
  MatrixT<I, I, MatrixLayoutRowMajor> markerA, markerP, reached;
  markerA.create(P.getRows(), 1, device);
  markerP.create(P.getCols(), 1, device);
  reached.create(1, 1, device);
  reached.fill(0);

  GrowingMatrix<T, I> ownRoom(R.getRows(), ownCols, std::max(entries, P.getCols()), device);
  const I others = P.getCols() - ownCols;
  GrowingMatrix<T, I> restRoom(R.getRows(), others, others > 0 ? P.getCols() : 0, device);
  TripleProductRows<T, I> m;
  m.r = R.getRawMat();
  m.own_rows = ownRows;
  m.nblocks = table.getSize();
  m.blocks = table.getData();
  m.ghosts = ghostRows.getRawMat();
  m.p = P.getRawMat();
  m.reached = reached.getData();
  m.marker_a = markerA.getData();
  m.marker_p = markerP.getData();
  m.row_a = rowA.getRawMat();
  for (I done = 0;;) {
    m.c = ownRoom.getRawMat();
    m.c_room = ownRoom.getCapacity();
    m.rest = restRoom.getRawMat();
    m.rest_room = restRoom.getCapacity();
    SpBlasOps<T, I>::csr_matmul_triple(device, m);
    done = reached.toDevice(Device()).getData()[0];
    if (done == R.getRows()) break;
    ownRoom.grow(done);
    if (others > 0) restRoom.grow(done);
  }
  own = ownRoom.finish();
  if (others > 0) rest = restRoom.finish();
}

MIVO_INSTANCE_VALUES(TripleProduct, int)

}  // namespace mivo
