// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "mivo/comu/Stream.hpp"
#include "mivo/mat/Matrix.hpp"
#include "mivo/mat/Partitioner.hpp"
#include "mivo/ops/views.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// Sparse matrix of one rank in compressed sparse rows, on one device, with indices from 0.
///
/// A handle: copies share the arrays, assignment rebinds, `deepCopy` duplicates. Row i holds the
/// entries at positions rowPtr[i] to rowPtr[i + 1] - 1, in any order unless an operation says
/// otherwise. A matrix is empty (default-built), shaped (row pointers only, at 0 until a kernel
/// counts), or complete. Sparse results of no entries are often the default-built 0 by 0 matrix on
/// the host: look at the number of entries before trusting the shape.
///
/// T is one of the six value types with I = int; I = long carries global columns during assembly
/// and has the storage members, those of single elements and `packStream` alone. Nothing is
/// collective. Failed checks end the process.
template <class T, class I = int>
class MIVO_API CSRMatrixT {
 public:
  using Vector = MatrixT<T, I, MatrixLayoutRowMajor>;
  using IndexVectorT = MatrixT<I, I, MatrixLayoutRowMajor>;
  using View = COT_CSRRawMat<T, I>;

  // Storage.

  CSRMatrixT();
  // A move copies the handle, so that none is ever without storage.
  CSRMatrixT(const CSRMatrixT&) = default;
  CSRMatrixT& operator=(const CSRMatrixT&) = default;
  /// Fresh arrays: rows + 1 row pointers (none when rows is 0), nnz columns and values. Undefined;
  /// row pointers are 0 when nnz is.
  void create(I rows, I cols, I nnz, const Device& device);
  /// Same rows and device (kind and ordinal): only the column count changes. Otherwise a shaped
  /// matrix, in place for all handles.
  void resize(I rows, I cols, const Device& device);
  /// Second step of a two-pass operation on a shaped matrix: allocates nnz columns and values.
  /// `cols` above 0 replaces the column count. Ends the process when the arrays exist already.
  void resizeNnz(I nnz, I cols);
  /// The first `nnz` of the entries that there are, on a host in the memory that there is. The row
  /// pointers are the caller's business. Ends the process when there are fewer.
  void shrinkNnz(I nnz);
  /// rowPtr[rows] read from the device; 0 for a matrix of no rows.
  I evaluateNnzs() const;
  /// Reuses `out` when its shape, entry count and device are the same. An empty matrix becomes 0 by
  /// 0.
  void deepCopy(CSRMatrixT& out) const;
  CSRMatrixT toDevice(const Device& device) const;
  /// Shape, row pointers and columns for another value type; values undefined.
  template <class U>
  void copyStructure(CSRMatrixT<U, I>& out) const;

  const Device& getDevice() const { return impl_->device; }
  I getRows() const { return impl_->rows; }
  I getCols() const { return impl_->cols; }
  I getNnz() const { return impl_->nnz; }
  I* getRowPtr() const { return impl_->row_ptr; }
  I* getColIdx() const { return impl_->col_idx; }
  T* getValues() const { return impl_->values; }
  /// View for kernels on the matrix's device.
  View getRawMat() const;
  /// Bytes of the three arrays.
  std::size_t getBytes() const {
    return (getRowPtr() != nullptr ? (static_cast<std::size_t>(getRows()) + 1) * sizeof(I) : 0) +
           static_cast<std::size_t>(getNnz()) * (sizeof(I) + sizeof(T));
  }

  // Algebra. A result that holds entries is replaced, so that it may be an operand; one without is
  // filled in place, for all its handles, except where an operation says that it is built afresh.

  /// Sorts each row by column, in place.
  void sortRows();
  static void scale(CSRMatrixT& m, T a);
  /// y = a A x + b y. An empty matrix or x replaces y by an empty vector; b = 0 shapes y.
  void aAxpby(T a, const Vector& x, T b, Vector& y) const;
  /// C = A B, columns in order of first appearance. An empty factor gives the empty matrix
  /// unchecked.
  void multiply(const CSRMatrixT& B, CSRMatrixT& C) const;
  /// C = A_0 B_0 + A_1 B_1 + ..., with the order and rounding of `multiply` and `matadd` one after
  /// the other, without their intermediate matrices. It has no factors of 1 as `matadd` has, which
  /// turn complex infinities into NaN. Terms with an empty factor are left out.
  static void multiplySum(const std::vector<std::pair<CSRMatrixT, CSRMatrixT>>& terms,
                          CSRMatrixT& C);
  /// C = a A + b B; sorts the rows of A and B. An empty operand is left out before any check.
  static void matadd(T a, const CSRMatrixT& A, T b, const CSRMatrixT& B, CSRMatrixT& C);
  /// Diagonal update, see `SpBlasOps::csr_axpby_diag`; an empty vector takes the kernel's default.
  /// `firstRow`, `firstCol` place this block in the merged matrix. `out` is built afresh.
  void axpbyDiag(T a, const Vector& d1, T b, const Vector& d2, CSRMatrixT& out, I firstRow = 0,
                 I firstCol = 0) const;
  /// Copy of the entries with |v| > threshold.
  CSRMatrixT sparsify(T threshold) const;

  // Selection. Results are built afresh: other handles of `out` keep what they have.

  /// Rows sel[0..n), compact or at their own numbers.
  void getSelectedRows(const IndexVectorT& sel, CSRMatrixT& out, bool keepPositions) const;
  /// Columns in [begin, end), stored with column + shift; the result has end - begin columns.
  void getSelectedCols(I begin, I end, CSRMatrixT& out, I shift) const;
  /// Entry positions begins[i] to ends[i] - 1 as row i, columns unchanged.
  void getSelectedCols(const IndexVectorT& begins, const IndexVectorT& ends, CSRMatrixT& out,
                       I cols) const;
  /// One block per part with columns from 0; one part shares this matrix. Empty matrix: empty
  /// vector.
  template <class G, class L>
  void splitCols(const PartitionerT<G, L>& part, std::vector<CSRMatrixT>& out) const;
  /// Stacks blocks; a block without entries counts as the part's size of empty rows.
  template <class G, class L>
  static CSRMatrixT mergeRows(const PartitionerT<G, L>& part,
                              const std::vector<CSRMatrixT>& blocks);
  /// Joins blocks side by side; columns get the begin of their part added.
  template <class G, class L>
  static CSRMatrixT mergeCols(const PartitionerT<G, L>& part,
                              const std::vector<CSRMatrixT>& blocks);

  // Entries.

  /// Stored entries per column, as a cols by 1 vector on the matrix's device.
  void getColElementCount(IndexVectorT& count) const;
  /// 0 with *found false outside the pattern; `found` may be null.
  T getElementValue(I row, I col, bool* found) const;
  /// Overwrites an entry of the pattern; false, without effect, outside it.
  bool setElementValue(I row, I col, const T& value);
  /// Equal values, whatever the order of entries and stored zeros; NaN is unequal to itself.
  bool operator==(const CSRMatrixT& other) const;
  bool operator!=(const CSRMatrixT& other) const { return !(*this == other); }
  /// Ends the process unless the structure is sound; `sorted` asks for strictly ascending columns.
  /// Host memory only.
  void check(bool sorted) const;

  // Exchange between ranks: rows, cols, nnz, row pointers, columns, values; host memory only.

  int getStreamSize() const;
  void packStream(comu::Stream& stream) const;
  void unpackStream(comu::Stream& stream);

  // Files (`docs/file-formats.md`); host memory only.

  /// Matrix Market coordinate format; a precision below 1 means 16.
  void saveToStream(std::ostream& os, int precision) const;
  void saveToFile(const std::string& name, int precision) const;
  void loadFromStream(std::istream& is);

 private:
  struct CSRMatrixImpl {
    Device device;
    I rows = 0;
    I cols = 0;
    I nnz = 0;
    I* row_ptr = nullptr;
    I* col_idx = nullptr;
    T* values = nullptr;

    CSRMatrixImpl() = default;
    CSRMatrixImpl(const CSRMatrixImpl&) = delete;
    CSRMatrixImpl& operator=(const CSRMatrixImpl&) = delete;
    ~CSRMatrixImpl();
    void release();
  };
  std::shared_ptr<CSRMatrixImpl> impl_;
};

MIVO_EXTERN_VALUES(CSRMatrixT, int)

}  // namespace mivo
