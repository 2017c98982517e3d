// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/Matrix.hpp"
#include "mivo/mat/MatrixMeta.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mat/Partitioner.hpp"
#include "mivo/mat/SetValueMode.hpp"
#include "mivo/mat/SpMVCommPattern.hpp"
#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParMatrixFree.hpp"
#include "mivo/ops/views.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class T, class G, class L>
class RowAssembly;

/// One column block of a distributed matrix with its product buffer. The plan's block, which feeds
/// it, is linked both ways from the first product on.
template <class T, class G, class L>
struct MIVO_API LocalBlockT {
  CSRMatrixT<T, L> matrix;  ///< the rank's rows by the block's columns, numbered from 0
  MatrixT<T, L, MatrixLayoutRowMajor> product_buffer;  ///< partial product, one element per row
  typename SpMVCommPatternT<T, G, L>::SpmvColBlock* plan_block = nullptr;

  // Rows that have entries, where they are few, and the row pointers from which they were read.
  MatrixT<L, L, MatrixLayoutRowMajor> filled_rows;
  const L* filled_rows_of = nullptr;
  L filled_rows_nnz = 0;

  bool hasFilledRows() const {
    return filled_rows_of != nullptr && filled_rows_of == matrix.getRowPtr() &&
           filled_rows_nnz == matrix.getNnz();
  }
};

/// Distributed sparse matrix. Rows are cut over the ranks by the row partitioner; a rank's rows are
/// cut by the column partitioner into column blocks with columns numbered from 0, so that a product
/// needs no index translation: block p meets the vector entries of rank p.
///
/// A handle: copies share everything, `deepCopy` duplicates. The halo exchange plan is built at the
/// first product after a change of the pattern. T is one of the six value types; (G, L) is (int,
/// int) or (long, int). Assembly's end, products, and whatever says so are collective.
template <class T, class G, class L>
class MIVO_API ParCSRMatrixT : public ParMatrixFreeT<T, G, L> {
 public:
  using Local = CSRMatrixT<T, L>;
  using Vector = ParMatrixT<T, G, L>;
  using Partitioner = PartitionerT<G, L>;
  using Meta = MatrixMetaT<G>;
  using Plan = SpMVCommPatternT<T, G, L>;
  using LocalBlock = LocalBlockT<T, G, L>;
  using typename ParMatrixFreeT<T, G, L>::AsyncMatVecObject;
  using ParMatrixFreeT<T, G, L>::matVec;
  using BlockTable = MatrixT<COT_SpMVCSRRawMat<T, L>, L, MatrixLayoutRowMajor>;

  // Creation.

  ParCSRMatrixT();
  ~ParCSRMatrixT() override;
  /// No entries; rows and columns spread evenly over the ranks.
  void create(G rows, G cols, const Device& device, int comm = kCommWorld);
  /// From this rank's column blocks, one per part of `colPart` (or none at all).
  void create(const Partitioner& rowPart, const Partitioner& colPart,
              const std::vector<Local>& blocks, const Device& device, int comm = kCommWorld);
  /// Wraps a local matrix on a communicator of one rank.
  void createSeq(const Local& m, int comm = kCommWorld);
  /// Stores the blocks that have entries. Follow with `prepareMatVec(true)` on a matrix in use.
  void setLocalMatrix(const std::vector<Local>& blocks);
  void getLocalMatrix(std::vector<Local>& out) const;
  /// Block number `block`, empty where absent; below 0 all blocks joined, with global columns.
  Local getLocalMatrix(int block) const;

  // Access.

  int getComm() const override;
  Device getDevice() const override;
  G getRows() const override;
  G getCols() const override;
  const Plan& getSpMVCommPattern() const;
  Plan& getSpMVCommPattern();
  const Partitioner& getRowPartitioner() const;
  const Partitioner& getColPartitioner() const;
  /// This rank's rows; [0, 0) for an empty object.
  void getOwnerShipRange(G* begin, G* end) const;
  L getLocalRows() const;
  /// Both drop the halo plan, so all ranks call them together; the next product makes a new one.
  void setComm(int comm);
  void setDevice(const Device& device);
  /// Bytes of what this rank holds: column blocks, and once they are there the halo plan and the
  /// buffers of products.
  std::size_t getBytes() const override;
  /// Stored entries of all ranks. Collective.
  G getNnzs() const;
  /// On ranks that do not own the row: 0 and *found false.
  T getElementValue(G row, G col, bool* found) const;
  /// Overwrites an entry of the pattern on the row's owner; false elsewhere.
  bool setElementValue(G row, G col, const T& value);
  static void scale(ParCSRMatrixT& m, T a);
  void fill(T value);
  void sortRows();

  // Product. Collective.

  /// y = a A x + b y; b = 0 does not read y. The lock of the product serialises additions into y.
  void aAxpby(T a, const Vector& x, T b, Vector& y, AsyncMatVecObject* async) override;
  /// y = A x, with y created in the row partition when its shape, device or comm differ.
  void matVec(const Vector& x, Vector& y, AsyncMatVecObject* async) override;
  void matVec(const Vector& x, Vector& y, AsyncMatVecObject* async) const;
  Vector matVec(const Vector& x) const;
  /// Builds the halo plan, when it is missing or `force` is set.
  void prepareMatVec(bool force) const;
  /// Brings the ghost values of x; see `SpMVCommPatternT::exchange`.
  void exchangeMatVec(const Vector& x, const typename Plan::BlockCallback& localCallback,
                      const typename Plan::BlockCallback& recvCallback,
                      const std::function<void()>& finishCallback, AsyncMatVecObject* async) const;

  // Assembly: any rank may set any entry; values find their owners in `endAssemble`.

  void beginAssemble();
  /// Local, and safe from several threads.
  void setValue(G row, G col, const T& value, SetValueMode mode);
  void endAssemble();
  /// Entries of m, with global rows and columns, are added up over the ranks. Collective.
  void createByAssemble(const CSRMatrixT<T, G>& m, int comm);
  /// Visits rows and entries of an assembly that has begun and not ended; results of the visitors
  /// are ignored.
  void traversal(const std::function<bool(G row, G nnzOfRow)>& rowFn,
                 const std::function<bool(G row, G col, T& value)>& elemFn);

  // Rows and statistics.

  /// Diagonal as a vector in the row partition, 0 where there is none; `rowOrCol` must be 0.
  void getDiag(Vector& d, int rowOrCol = 0) const;
  Vector getDiag(int rowOrCol = 0) const;
  /// Per row (sum |a|^p)^(1/p), the largest |a| for p not above 0.
  void rowNorm(ParMatrixT<RealType<T>, G, L>& n, double p) const;
  ParMatrixT<RealType<T>, G, L> rowNorm(double p) const;
  /// One Jacobi correction or SOR sweep on a matrix of one rank.
  void jacobi(const Vector& b, Vector& x, double omega);
  void sor(const Vector& b, Vector& x, double omega, bool flag);
  /// Collective.
  void computeMeta(Meta& meta) const;
  Meta computeMeta() const;

  // Copies.

  void toDevice(const Device& device, ParCSRMatrixT& out) const;
  ParCSRMatrixT toDevice(const Device& device) const;
  void deepCopy(ParCSRMatrixT& out) const;
  ParCSRMatrixT deepCopy() const;
  /// Equal values. Collective; meaningful on rank 0, true elsewhere.
  bool operator==(const ParCSRMatrixT& other) const;
  /// The negation: false on ranks above 0.
  bool operator!=(const ParCSRMatrixT& other) const { return !(*this == other); }

  // Algebra of whole matrices (`ParCSRMatrixAlgebra.cpp`). Collective, apart from `matmul_aDA` and
  // `copyStructure`. Works block by block and keeps the blocks; a result may be an operand.

  /// C = A B in the row partition of A and the column partition of B, which must be cut like B's
  /// rows where A's columns are. Ships the rows of B that A's halo plan asks for. Each block of C
  /// is a sum of local products in block order: its rows are in order of first appearance where one
  /// of them has entries, sorted by column where several do. See Gustavson (1978).
  void multiply(const ParCSRMatrixT& B, ParCSRMatrixT& C) const;
  ParCSRMatrixT multiply(const ParCSRMatrixT& B) const;
  /// C = (R A) P, to rounding what two products give, without the matrix R A.
  static void multiplyTriple(const ParCSRMatrixT& R, const ParCSRMatrixT& A, const ParCSRMatrixT& P,
                             ParCSRMatrixT& C);
  /// Rows of the result are cut like the columns of this matrix, and the reverse. On the host the
  /// rows of each block are sorted. A matrix of no rows or columns gives a default-built one.
  void transpose(ParCSRMatrixT& out) const;
  ParCSRMatrixT transpose() const;
  /// C = a A + b B for matrices of the same partitions. Sorts the rows of A and B in blocks that
  /// both have.
  static void matadd(T a, const ParCSRMatrixT& A, T b, const ParCSRMatrixT& B, ParCSRMatrixT& C);
  /// out is `source` with diagonal entries v_i replaced by b d2_i v_i + a d1_i. d1 and d2 are cut
  /// like the rows; an empty d1 counts as zeros, an empty d2 as ones. A row without a diagonal
  /// entry gains a d1_i at its end, under its local row number: on the diagonal where rows and
  /// columns are cut alike.
  static void axpbyDiag(T a, const Vector& d1, T b, const Vector& d2, const ParCSRMatrixT& source,
                        ParCSRMatrixT& out);
  /// a_ij *= d_i alpha in place; `out` becomes a handle on this matrix. d is cut like the rows.
  void matmul_aDA(T alpha, const Vector& d, ParCSRMatrixT& out);
  /// a_ij *= d_j alpha in place; `out` becomes a handle on this matrix. d is cut like the columns.
  void matmul_aAD(T alpha, const Vector& d, ParCSRMatrixT& out);
  /// Copy of the entries with |v| > threshold.
  ParCSRMatrixT sparsify(T threshold) const;
  /// Matrix of the same partitions for the k entries of each row that `par_csr_row_norm_topk`
  /// selects. That kernel has no effect, so the result has no entries.
  ParCSRMatrixT rowTopK(int k) const;
  /// The same pattern and partitions, and the halo plan where there is one, for another type of
  /// values, which are undefined.
  template <class U>
  void copyStructure(ParCSRMatrixT<U, G, L>& out) const;

  // Moving and viewing whole matrices.

  /// All rows on `root`, an empty matrix elsewhere. Collective.
  Local gather(int root) const;
  /// Spreads the root's matrix evenly, onto the device that it has there. Collective.
  static ParCSRMatrixT scatter(int comm, int root, const Local& m);
  /// One record per stored block, in block order, as a host table.
  void getRawMat(BlockTable& out) const;
  /// The same on the matrix's device.
  BlockTable getRawMatOnDev() const;

  // Files (`docs/file-formats.md`).

  /// Dump of this rank's blocks for people.
  void saveToStream(std::ostream& os, int precision);
  /// One file per rank and block; on several ranks the name carries size, rank and part.
  void saveToFile(const std::string& name, int precision);
  /// Rank 0 reads, then the rows are spread evenly. Collective.
  void loadFromStream(std::istream& is, const Device& device, int comm = kCommWorld);
  void loadFromFile(const std::string& name, const Device& device, int comm = kCommWorld);

  struct ParCSRMatrixImpl;

 private:
  friend class RowAssembly<T, G, L>;
  template <class, class, class>
  friend class ParCSRMatrixT;

  /// A fresh matrix without entries.
  void reset(const Partitioner& rowPart, const Partitioner& colPart, const Device& device,
             int comm);
  /// Replaces all blocks and what was derived from them.
  void replaceBlocks(const std::vector<Local>& blocks);
  /// Ends an assembly with this rank's rows, see `buildColumnBlocks`.
  template <class Source>
  void takeRows(Source& source);
  void multiplyAdd(T a, const Vector& x, T b, Vector& y, AsyncMatVecObject* async) const;
  /// Becomes the matrix m of the root, or tells on all ranks by false that the root has none.
  bool scatterFrom(int comm, int root, const Local& m, bool valid);
  /// Joins the blocks with those of the plan, which is ready.
  void linkBlocks() const;
  /// Creates y for a product with x unless it fits.
  void shapeResult(const Vector& x, Vector& y) const;

  std::shared_ptr<ParCSRMatrixImpl> impl_;
};

MIVO_EXTERN_VALUES(ParCSRMatrixT, int, int)
MIVO_EXTERN_VALUES(ParCSRMatrixT, long, int)

}  // namespace mivo
