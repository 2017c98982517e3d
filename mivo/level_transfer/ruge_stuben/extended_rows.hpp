// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/products/GhostRows.hpp"

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
  CSRMatrixT<int, L> s;  ///< of several ranks without zeros
  L first = 0;           ///< number of this rank's first row
  L rows = 0;            ///< of this rank

  ExtendedRows(const Matrix& A, const Strength& S)
      : rows(A.getLocalRows()),
        device_(A.getDevice()),
        columns_(A.getColPartitioner(), A.getComm()) {
    const Ghosts halo(A);
    const GhostRows<T, G, L> rowsA(A, halo);
    const GhostRows<int, G, L> rowsS(S, halo);
    rowsA.noteColumns(columns_);
    columns_.agree(Ghosts::Order::kAscending);
    first = columns_.first();
    a = shapedOn(device_, rowsA.stack(columns_, columns_));
    s = shapedOn(device_, rowsS.stack(columns_, columns_, true));
  }

  /// Whether there are other ranks; the same on all of them.
  bool isDistributed() const { return columns_.isDistributed(); }

  /// The values of all columns of a vector of which each rank has its own; the kernel's array is on
  /// the matrix's device. Collective.
  template <class U>
  MatrixT<U, L, MatrixLayoutRowMajor> exchange(const ParMatrixT<U, G, L>& own) const {
    if (!isDistributed()) return own.getLocalMatrix(-1);
    return columns_.exchange(own.getLocalMatrix(-1).toDevice(Device())).toDevice(device_);
  }

 private:
  using Ghosts = GhostIndices<G, L>;

  Device device_;
  Ghosts columns_;
};

}  // namespace mivo
