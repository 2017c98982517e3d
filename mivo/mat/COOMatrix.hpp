// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <memory>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/MapWithLock.hpp"
#include "mivo/mat/Partitioner.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// Matrix entries in any order, from any thread, before a compressed matrix exists: a map of rows,
/// each a map from column to value. A handle: copies share the entries.
///
/// R is the row index type, C the column index type: global ones while assembling, local rows for
/// the result at the owner. A writer takes the row by `getRowEx`, then the row's own lock.
template <class T, class R, class C>
class MIVO_API COOMatrixT {
 public:
  using Row = MapWithLockType<C, T>;

  /// Shape -1 by -1 until `setShape`.
  COOMatrixT();
  // A move copies the handle, so that none is ever without storage.
  COOMatrixT(const COOMatrixT&) = default;
  COOMatrixT& operator=(const COOMatrixT&) = default;

  void setShape(R rows, C cols);
  R getRows() const;
  C getCols() const;

  /// The row's map, made when the row is missing (also in a const matrix). Safe from any thread.
  /// The row lives as long as a pointer to it, also where the matrix gets other rows.
  std::shared_ptr<Row> getRowEx(R row) const;

  /// Moves every row to the rank that owns it and sums all contributions to one position there;
  /// `out`, whose shape the caller has set, gets local row numbers. Collective. A row outside the
  /// partition ends the process.
  template <class L>
  void endAssemble(int comm, const PartitionerT<R, L>& rowPart, COOMatrixT<T, L, C>& out);

  /// Compresses, in the rows' own order of entries; leaves `out` alone when there are no rows.
  template <class L>
  void toCSR(CSRMatrixT<T, L>& out) const;

  /// Coordinate entries of a Matrix Market text; symmetric ones are mirrored, a repeated position
  /// keeps its last value.
  void loadFromStream(std::istream& is);

  struct COOMatrixImpl;
  /// Direct access for the assembly of the distributed containers.
  COOMatrixImpl& getImpl() const { return *impl_; }

 private:
  std::shared_ptr<COOMatrixImpl> impl_;
};

}  // namespace mivo
