// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <vector>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mpi_stub/mpi.h"

namespace mivo {

/// The rows of a distributed matrix and its strength that the interpolation of this rank's rows
/// reaches: its own and those of its ghost columns. Rows and columns are numbered alike, in the
/// order of the global numbers, over all columns of these rows. On one rank these are the matrices
/// themselves. Internal. Collective.
template <class T, class G, class L>
class ExtendedRows {
 public:
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;

  CSRMatrixT<T, L> a;
  CSRMatrixT<int, L> s;
  L first = 0;  ///< number of this rank's first row
  L rows = 0;   ///< of this rank

  ExtendedRows(const Matrix& A, const Strength& S)
      : rows(A.getLocalRows()), device_(A.getDevice()) {
    MPI_Comm_rank(A.getComm(), &rank_);
    MPI_Comm_size(A.getComm(), &nprocs_);
    if (nprocs_ == 1) {
      a = shaped(A.getLocalMatrix(0), rows, rows);
      s = shaped(S.getLocalMatrix(0), rows, rows);
      return;
    }
    A.prepareMatVec(false);
    const auto& plan = A.getSpMVCommPattern();
    const Device host;
    const auto ghostA = onDevice(plan.getGhostMatrix(A), host);
    const auto ghostS = onDevice(plan.getGhostMatrix(S), host);
    const auto ownA = onDevice(A.getLocalMatrix(-1), host);
    const auto ownS = onDevice(S.getLocalMatrix(-1), host);
    A.getOwnerShipRange(&begin_, &end_);
    collectColumns(ownA, ghostA);
    a = onDevice(gather(ownA, ghostA), device_);
    s = onDevice(gather(ownS, ghostS), device_);
    planColumns(A);
  }

  /// Whether there are other ranks; the same on all of them.
  bool isDistributed() const { return nprocs_ > 1; }

  /// The values of all columns of a vector of which each rank has its own; the kernel's array is on
  /// the matrix's device. Collective.
  template <class U>
  MatrixT<U, L, MatrixLayoutRowMajor> exchange(const ParMatrixT<U, G, L>& own) const {
    if (nprocs_ == 1) return own.getLocalMatrix(-1);
    SpMVCommPatternT<U, G, L> plan;
    plan_.copyStructure(plan, true);
    const auto onHost = own.toDevice(Device());
    plan.exchange(onHost, nullptr, nullptr, nullptr, nullptr);
    MatrixT<U, L, MatrixLayoutRowMajor> all;
    all.create(size(), 1, Device());
    const auto mine = onHost.getLocalMatrix(-1);
    for (L i = 0; i < rows; ++i) all.getData()[first + i] = mine.getData()[i];
    plan.recvTraversal([&](int p, const auto* block) {
      if (p == rank_) return;
      for (L k = 0; k < block->host_indices.getSize(); ++k) {
        const L inBlock = block->host_indices.getData()[k];
        all.getData()[numberOf(block->col_start + inBlock)] = block->recv_x.getData()[inBlock];
      }
    });
    return all.toDevice(device_);
  }

 private:
  /// The matrix itself where it is there already.
  template <class U>
  static CSRMatrixT<U, L> onDevice(const CSRMatrixT<U, L>& m, const Device& device) {
    return m.getDevice() == device ? m : m.toDevice(device);
  }

  /// A matrix without entries may have lost its shape.
  template <class U>
  static CSRMatrixT<U, L> shaped(const CSRMatrixT<U, L>& m, L rowCount, L colCount) {
    if (m.getNnz() > 0) return m;
    CSRMatrixT<U, L> out;
    out.create(rowCount, colCount, 0, m.getDevice());
    return out;
  }

  L size() const { return rows + static_cast<L>(ghosts_.size()); }

  bool isOwn(G column) const { return column >= begin_ && column < end_; }

  /// -1 for columns that are none of the common ones.
  L numberOf(G column) const {
    if (isOwn(column)) return first + static_cast<L>(column - begin_);
    const auto at = std::lower_bound(ghosts_.begin(), ghosts_.end(), column);
    if (at == ghosts_.end() || *at != column) return -1;
    const L number = static_cast<L>(at - ghosts_.begin());
    return column < begin_ ? number : number + rows;
  }

  void collectColumns(const CSRMatrixT<T, L>& own, const CSRMatrixT<T, L>& ghost) {
    for (const auto* m : {&own, &ghost}) {
      std::copy_if(m->getColIdx(), m->getColIdx() + m->getNnz(), std::back_inserter(ghosts_),
                   [this](L column) { return !isOwn(column); });
    }
    std::sort(ghosts_.begin(), ghosts_.end());
    ghosts_.erase(std::unique(ghosts_.begin(), ghosts_.end()), ghosts_.end());
    first =
        static_cast<L>(std::lower_bound(ghosts_.begin(), ghosts_.end(), begin_) - ghosts_.begin());
  }

  /// Own rows and ghost rows in the common numbers, on the host.
  template <class U>
  CSRMatrixT<U, L> gather(const CSRMatrixT<U, L>& own, const CSRMatrixT<U, L>& ghost) const {
    const L n = size();
    CSRMatrixT<U, L> out;
    out.create(n, n, own.getNnz() + ghost.getNnz(), Device());
    if (n == 0) return out;
    L at = 0;
    out.getRowPtr()[0] = 0;
    for (L e = 0; e < n; ++e) {
      const bool mine = e >= first && e < first + rows;
      const CSRMatrixT<U, L>& from = mine ? own : ghost;
      const L row =
          mine ? e - first
               : static_cast<L>(ghosts_[static_cast<std::size_t>(e < first ? e : e - rows)]);
      const bool stored = from.getNnz() > 0 && row < from.getRows();
      for (L k = stored ? from.getRowPtr()[row] : 0; stored && k < from.getRowPtr()[row + 1]; ++k) {
        // Columns of S that A has not are beyond what was collected.
        const L number = numberOf(from.getColIdx()[k]);
        if (number < 0) continue;
        out.getColIdx()[at] = number;
        out.getValues()[at] = from.getValues()[k];
        ++at;
      }
      out.getRowPtr()[e + 1] = at;
    }
    return out;
  }

  /// A plan that brings the values of all columns that are not this rank's.
  void planColumns(const Matrix& A) {
    const auto& part = A.getColPartitioner();
    std::vector<IndexVector> counts(static_cast<std::size_t>(part.getNumParts()));
    std::size_t at = 0;
    for (L p = 0; p < part.getNumParts(); ++p) {
      G begin = 0, end = 0;
      part.getOwnerShipRangeForPart(p, &begin, &end);
      while (at < ghosts_.size() && ghosts_[at] < begin) ++at;
      if (at == ghosts_.size() || ghosts_[at] >= end || p == rank_) continue;
      IndexVector& count = counts[static_cast<std::size_t>(p)];
      count.create(static_cast<int>(end - begin), 1, Device());
      count.fill(0);
      for (; at < ghosts_.size() && ghosts_[at] < end; ++at) {
        count.getData()[ghosts_[at] - begin] = 1;
      }
    }
    plan_.create(A.getComm(), Device(), part, counts);
  }

  Device device_;
  int rank_ = 0;
  int nprocs_ = 1;
  G begin_ = 0;
  G end_ = 0;
  std::vector<G> ghosts_;  ///< columns of other ranks, ascending
  SpMVCommPatternT<int, G, L> plan_;
};

}  // namespace mivo
