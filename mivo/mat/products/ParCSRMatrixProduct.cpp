// SPDX-License-Identifier: Apache-2.0

// Products of a distributed matrix with a vector.

#include <cmath>
#include <cstddef>
#include <mutex>
#include <type_traits>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/ops/BlasOps.hpp"
#include "mivo/ops/host/filled_rows.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {
namespace {

/// Lists the rows of a block of another rank that have entries, when these are at most half of
/// them; on a host alone.
template <class T, class G, class L>
void listFilledRows(LocalBlockT<T, G, L>& block) {
  const CSRMatrixT<T, L>& matrix = block.matrix;
  block.filled_rows_of = nullptr;
  if (sparse::kPlainForms || matrix.getDevice().type != Device::kHost) return;
  const L* const rowPtr = matrix.getRowPtr();
  L filled = 0;
  for (L i = 0; i < matrix.getRows(); ++i) filled += rowPtr[i + 1] > rowPtr[i] ? 1 : 0;
  if (filled > matrix.getRows() / 2) return;
  block.filled_rows.create(filled, 1, Device());
  L* next = block.filled_rows.getData();
  for (L i = 0; i < matrix.getRows(); ++i) {
    if (rowPtr[i + 1] > rowPtr[i]) *next++ = i;
  }
  block.filled_rows_of = rowPtr;
  block.filled_rows_nnz = matrix.getNnz();
}

/// y in the row partition, with as many columns as x.
template <class Impl, class V>
void createResult(const Impl& impl, const V& x, V& y) {
  if (x.getCols() == 1) {
    y.create(impl.row_part, impl.device, impl.comm);
  } else {
    y.create(impl.row_part, x.getColPartitioner(), impl.device, impl.comm);
  }
}

// What a product asks of x, in this order.

template <class Impl, class V>
void checkColumns(const Impl& impl, const V& x) {
  MIVO_CHECK(impl.cols == x.getRows()) << "aAxpby: A.cols != x.rows";
}

template <class Impl, class V>
void checkPlace(const Impl& impl, const V& x) {
  MIVO_CHECK(impl.device.type == x.getDevice().type) << "aAxpby: A and x must on the same device";
  MIVO_CHECK(impl.comm == x.getComm()) << "aAxpby: A and x must have the same comm";
}

/// The plan picks entries of x by the column partition.
template <class Impl, class V>
void checkColumnPartition(const Impl& impl, const V& x) {
  MIVO_CHECK(impl.col_part.getNumParts() != x.getRowPartitioner().getNumParts() ||
             impl.col_part == x.getRowPartitioner())
      << "aAxpby: A.cols != x.rows (the partitions differ)";
}

/// True when y + v has the bits of y for each y: v is the negative zero, or an integer zero.
template <class T>
bool addsNothing(const T& v) {
  if constexpr (kIsComplex<T>) {
    return addsNothing(v.re) && addsNothing(v.im);
  } else if constexpr (std::is_floating_point_v<T>) {
    return v == T(0) && std::signbit(v);
  } else {
    return v == T(0);
  }
}

}  // namespace

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::prepareMatVec(bool force) const {
  ParCSRMatrixImpl& impl = *impl_;
  if (impl.rows == 0 || impl.cols == 0) return;
  if (!force && impl.prepared) return;
  impl.unlinkBlocks();
  std::vector<IndexVector> colCounts(static_cast<std::size_t>(impl.col_part.getNumParts()));
  for (std::size_t p = 0; p < colCounts.size(); ++p) {
    const Local block = getLocalMatrix(static_cast<int>(p));
    if (block.getNnz() > 0) block.getColElementCount(colCounts[p]);
  }
  impl.plan.create(impl.comm, impl.device, impl.col_part, colCounts);
  linkBlocks();
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::linkBlocks() const {
  ParCSRMatrixImpl& impl = *impl_;
  const int rank = impl.rank();
  impl.plan.recvTraversal([&impl, rank](int p, typename Plan::SpmvColBlock* planBlock) {
    const auto found = impl.local_blocks.find(p);
    MIVO_CHECK(found != impl.local_blocks.end());
    LocalBlockT<T, G, L>& block = found->second;
    planBlock->block = &block;
    block.plan_block = planBlock;
    block.product_buffer.resize(block.matrix.getRows(), 1, block.matrix.getDevice());
    if (p != rank) listFilledRows(block);
  });
  impl.prepared = true;
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::exchangeMatVec(const Vector& x,
                                            const typename Plan::BlockCallback& localCallback,
                                            const typename Plan::BlockCallback& recvCallback,
                                            const std::function<void()>& finishCallback,
                                            AsyncMatVecObject* async) const {
  const ParCSRMatrixImpl& impl = *impl_;
  checkColumns(impl, x);
  checkPlace(impl, x);
  checkColumnPartition(impl, x);
  prepareMatVec(false);
  impl_->plan.exchange(x.getLocalMatrix(-1), localCallback, recvCallback, finishCallback, async);
}

namespace {

/// What the callbacks of a product share. They capture one reference, so that they fit into a
/// std::function without memory of their own.
template <class T, class G, class L>
struct Product {
  using Block = typename SpMVCommPatternT<T, G, L>::SpmvColBlock;

  T a;
  T b;
  MatrixT<T, L, MatrixLayoutRowMajor> x;
  MatrixT<T, L, MatrixLayoutRowMajor> y;
  std::mutex& lock;

  /// y = a A_own x + b y
  void own(Block* block) {
    const std::lock_guard<std::mutex> guard(lock);
    if (block == nullptr) {
      BlasOps<T, L>::scal(y.getDevice(), y.getSize(), b, y.getData());
      return;
    }
    MIVO_CHECK(block->block != nullptr);
    const CSRMatrixT<T, L>& matrix = block->block->matrix;
    if (matrix.getNnz() > 0) {
      matrix.aAxpby(a, x, b, y);
    } else {
      // The local product would give y up.
      BlasOps<T, L>::scal(y.getDevice(), y.getSize(), b, y.getData());
    }
  }

  /// y += a A_p x_p
  void remote(Block* block) {
    MIVO_CHECK(block->block != nullptr);
    LocalBlockT<T, G, L>& local = *block->block;
    const CSRMatrixT<T, L>& matrix = local.matrix;
    if (matrix.getNnz() == 0) return;
    // On rows without entries y + 0.0 only turns -0.0 into 0.0; the product with the own block
    // leaves no -0.0 when a is 1 and b is 0, nor does any sum thereafter.
    const bool emptyRowsStay = addsNothing(a * T(0) * T(1)) || (a == T(1) && isZero(b));
    if (!local.hasFilledRows() || !emptyRowsStay || y.getRows() != matrix.getRows()) {
      matrix.aAxpby(a, block->recv_x, T(0), local.product_buffer);
      const std::lock_guard<std::mutex> guard(lock);
      y += local.product_buffer;
      return;
    }
    const std::lock_guard<std::mutex> guard(lock);
    sparse::addFilledRows(a, local.filled_rows.getSize(), local.filled_rows.getData(),
                          matrix.getRawMat(), block->recv_x.getData(), y.getData());
  }
};

}  // namespace

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::multiplyAdd(T a, const Vector& x, T b, Vector& y,
                                         AsyncMatVecObject* async) const {
  const ParCSRMatrixImpl& impl = *impl_;
  checkColumns(impl, x);
  MIVO_CHECK(impl.rows == y.getRows() && x.getCols() == y.getCols())
      << "aAxpby: A.rows!= y.rows || x.cols != y.cols";
  checkPlace(impl, x);

  // Every rank knows all partitions, so that all of them come to the same decision.
  const bool sameRows = impl.rows == 0 || y.getRowPartitioner() == impl.row_part;
  const bool sameDevice = y.getDevice().type == impl.device.type;
  if (!sameRows || !sameDevice) {
    MIVO_CHECK(sameRows || isZero(b)) << "aAxpby: A.rows!= y.rows";
    MIVO_CHECK(sameDevice || isZero(b)) << "aAxpby: A and y must on the same device";
    createResult(impl, x, y);
  }

  checkColumnPartition(impl, x);
  prepareMatVec(false);
  Product<T, G, L> product{a, b, x.getLocalMatrix(-1), y.getLocalMatrix(-1), impl_->product_lock};
  impl_->plan.exchange(
      product.x, [&product](int, typename Plan::SpmvColBlock* block) { product.own(block); },
      [&product](int, typename Plan::SpmvColBlock* block) { product.remote(block); }, nullptr,
      async);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::shapeResult(const Vector& x, Vector& y) const {
  const ParCSRMatrixImpl& impl = *impl_;
  const bool fits = y.getRows() == impl.rows && y.getCols() == x.getCols() &&
                    y.getRowPartitioner() == impl.row_part && y.getComm() == impl.comm &&
                    y.getDevice().type == impl.device.type;
  if (!fits) createResult(impl, x, y);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::aAxpby(T a, const Vector& x, T b, Vector& y,
                                    AsyncMatVecObject* async) {
  multiplyAdd(a, x, b, y, async);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::matVec(const Vector& x, Vector& y, AsyncMatVecObject* async) {
  shapeResult(x, y);
  aAxpby(T(1), x, T(0), y, async);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::matVec(const Vector& x, Vector& y, AsyncMatVecObject* async) const {
  shapeResult(x, y);
  multiplyAdd(T(1), x, T(0), y, async);
}

template <class T, class G, class L>
typename ParCSRMatrixT<T, G, L>::Vector ParCSRMatrixT<T, G, L>::matVec(const Vector& x) const {
  Vector y;
  matVec(x, y, nullptr);
  return y;
}

MIVO_INSTANCE_VALUES(ParCSRMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParCSRMatrixT, long, int)

}  // namespace mivo
