// SPDX-License-Identifier: Apache-2.0

// Quantities per row of a distributed matrix, their statistics, and the one-rank sweeps.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <numeric>
#include <sstream>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {
namespace {

/// Makes `v` a column in the given row partition unless it is one.
template <class T, class G, class L>
void shapeColumn(ParMatrixT<T, G, L>& v, const PartitionerT<G, L>& part, const Device& device,
                 int comm) {
  const bool fits = v.getRows() == part.getGlobalSize() && v.getCols() == 1 &&
                    v.getRowPartitioner() == part && v.getComm() == comm &&
                    v.getDevice().type == device.type;
  if (!fits) v.create(part, device, comm);
}

}  // namespace

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::getDiag(Vector& d, int rowOrCol) const {
  const ParCSRMatrixImpl& impl = *impl_;
  if (impl.rows == 0 || impl.cols == 0) {
    d = Vector();
    return;
  }
  MIVO_CHECK(rowOrCol == 0) << "ParCSRMatrix only support diag with row partition";
  shapeColumn(d, impl.row_part, impl.device, impl.comm);
  d.fill(T(0));
  const auto local = d.getLocalMatrix(-1);
  G rowBegin = 0;
  G rowEnd = 0;
  getOwnerShipRange(&rowBegin, &rowEnd);
  for (const auto& entry : impl.local_blocks) {
    const Local& m = entry.second.matrix;
    G colBegin = 0;
    G colEnd = 0;
    impl.col_part.getOwnerShipRangeForPart(static_cast<L>(entry.first), &colBegin, &colEnd);
    if (colBegin >= rowEnd || rowBegin >= colEnd) continue;
    // The ranges overlap, so that their distance fits the local index type.
    const G origin = std::min(rowBegin, colBegin);
    SpBlasOps<T, L>::csr_diag(m.getDevice(), m.getRows(), m.getCols(), m.getRowPtr(), m.getColIdx(),
                              m.getValues(), local.getData(), static_cast<L>(rowBegin - origin),
                              static_cast<L>(colBegin - origin));
  }
}

template <class T, class G, class L>
typename ParCSRMatrixT<T, G, L>::Vector ParCSRMatrixT<T, G, L>::getDiag(int rowOrCol) const {
  Vector d;
  getDiag(d, rowOrCol);
  return d;
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::rowNorm(ParMatrixT<RealType<T>, G, L>& n, double p) const {
  shapeColumn(n, impl_->row_part, impl_->device, impl_->comm);
  const BlockTable table = getRawMatOnDev();
  const auto local = n.getLocalMatrix(-1);
  SpBlasOps<T, L>::par_csr_row_norm_lp(impl_->device, local.getRows(), table.getSize(),
                                       table.getData(), T(static_cast<RealType<T>>(p)),
                                       local.getData());
}

template <class T, class G, class L>
ParMatrixT<RealType<T>, G, L> ParCSRMatrixT<T, G, L>::rowNorm(double p) const {
  ParMatrixT<RealType<T>, G, L> n;
  rowNorm(n, p);
  return n;
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::jacobi(const Vector& b, Vector& x, double omega) {
  MIVO_CHECK(impl_->size() == 1) << "current sor need nprocs == 1";
  const Local m = getLocalMatrix(-1);
  const auto localB = b.getLocalMatrix(-1);
  const auto localX = x.getLocalMatrix(-1);
  typename Vector::Local old;
  old.create(localX.getRows(), localX.getCols(), localX.getDevice());
  const std::size_t bytes = static_cast<std::size_t>(localX.getSize()) * sizeof(T);
  if (bytes > 0) {
    localX.getDevice().rawCopyTo(bytes, localX.getData(), old.getDevice(), old.getData());
  }
  SpBlasOps<T, L>::jacobi(m.getDevice(), m.getRows(), m.getCols(), m.getRowPtr(), m.getColIdx(),
                          m.getValues(), old.getData(), localB.getData(), localX.getData(),
                          T(static_cast<RealType<T>>(omega)));
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::sor(const Vector& b, Vector& x, double omega, bool flag) {
  MIVO_CHECK(impl_->size() == 1) << "current sor need nprocs == 1";
  const Local m = getLocalMatrix(-1);
  SpBlasOps<T, L>::sor(m.getDevice(), m.getRows(), m.getCols(), m.getRowPtr(), m.getColIdx(),
                       m.getValues(), b.getLocalMatrix(-1).getData(),
                       x.getLocalMatrix(-1).getData(), T(static_cast<RealType<T>>(omega)),
                       flag ? 1 : 0, nullptr);
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::computeMeta(Meta& meta) const {
  const ParCSRMatrixImpl& impl = *impl_;
  ParMatrixT<L, G, L> counts;
  Vector sums;
  shapeColumn(counts, impl.row_part, impl.device, impl.comm);
  shapeColumn(sums, impl.row_part, impl.device, impl.comm);
  const BlockTable table = getRawMatOnDev();
  const auto localCounts = counts.getLocalMatrix(-1);
  SpBlasOps<T, L>::par_csr_row_meta(impl.device, localCounts.getRows(), table.getSize(),
                                    table.getData(), localCounts.getData(),
                                    sums.getLocalMatrix(-1).getData(), 1);

  L least = 0;
  L most = 0;
  counts.min_max_sum(&least, &most, nullptr);
  // Their sum may exceed the type of the counts, even that of one rank.
  const auto hostCounts = localCounts.toDevice(Device());
  std::int64_t sum = std::accumulate(hostCounts.getData(),
                                     hostCounts.getData() + hostCounts.getSize(), std::int64_t(0));
  MPI_Allreduce(MPI_IN_PLACE, &sum, 1, MPI_INT64_T, MPI_SUM, impl.comm);

  meta.rows = impl.rows;
  meta.cols = impl.cols;
  meta.nnzs = getNnzs();
  const double rows = static_cast<double>(impl.rows);
  meta.sparse = static_cast<double>(meta.nnzs) / (rows * rows);
  meta.row_nnz_min = least;
  meta.row_nnz_max = most;
  meta.row_nnz_sum = static_cast<double>(sum);
  meta.row_nnz_avg = meta.row_nnz_sum / rows;

  T smallest{};
  T largest{};
  T total{};
  sums.min_max_sum(&smallest, &largest, &total);
  meta.row_sum_min = static_cast<double>(realPart(smallest));
  meta.row_sum_max = static_cast<double>(realPart(largest));
  meta.row_sum_sum = static_cast<double>(realPart(total));
  meta.row_sum_avg = meta.row_sum_sum / rows;
}

template <class T, class G, class L>
typename ParCSRMatrixT<T, G, L>::Meta ParCSRMatrixT<T, G, L>::computeMeta() const {
  Meta meta;
  computeMeta(meta);
  return meta;
}

template <class G>
std::string MatrixMetaT<G>::getTableHead() {
  std::ostringstream os;
  for (const char* title :
       {"rows", "cols", "nnzs", "sparse", "min", "max", "avg", "min", "max", "avg"}) {
    os << std::setw(11) << title;
  }
  return os.str();
}

template <class G>
std::string MatrixMetaT<G>::getString() const {
  std::ostringstream os;
  for (const G count : {rows, cols, nnzs}) os << std::setw(11) << count;
  os << std::scientific << std::setprecision(3);
  for (const double value :
       {sparse, row_nnz_min, row_nnz_max, row_nnz_avg, row_sum_min, row_sum_max, row_sum_avg}) {
    os << std::setw(11) << value;
  }
  return os.str();
}

MIVO_INSTANCE_VALUES(ParCSRMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParCSRMatrixT, long, int)

template struct MatrixMetaT<int>;
template struct MatrixMetaT<long>;

}  // namespace mivo
