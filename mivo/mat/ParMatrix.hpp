// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "mivo/mat/Matrix.hpp"
#include "mivo/mat/Partitioner.hpp"
#include "mivo/mat/SetValueMode.hpp"
#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParMatrixFree.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/communicator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class T, class R, class C>
class COOMatrixT;

/// Distributed vector or multi-vector: rows are cut in consecutive blocks over the ranks of a
/// communicator, and each rank holds its block of all columns as a local `MatrixT`.
///
/// A handle: copies share all data, `deepCopy` duplicates. G is the type of global indices, L that
/// of local ones; T is one of the six value types. Right-hand sides, solutions and Krylov vectors
/// are of this type. Reductions and everything under "Moving entries" are collective over the
/// matrix's communicator; element-wise operations are local.
template <class T, class G, class L>
class MIVO_API ParMatrixT {
 public:
  using R = RealType<T>;
  using Local = MatrixT<T, L, MatrixLayoutRowMajor>;
  using Partitioner = PartitionerT<G, L>;

  // Construction.

  ParMatrixT();
  // A move copies the handle, so that none is ever without storage.
  ParMatrixT(const ParMatrixT&) = default;
  ParMatrixT& operator=(const ParMatrixT&) = default;
  explicit ParMatrixT(G rows, const Device& device, int comm = kCommWorld);
  ParMatrixT(G rows, G cols, const Device& device, int comm = kCommWorld);
  /// Column vector with rows spread evenly; content undefined.
  void create(G rows, const Device& device, int comm = kCommWorld);
  void create(G rows, G cols, const Device& device, int comm = kCommWorld);
  /// Column vector over a given row partition.
  void create(const Partitioner& part, const Device& device, int comm = kCommWorld);
  void create(const Partitioner& rowPart, const Partitioner& colPart, const Device& device,
              int comm = kCommWorld);
  /// Wraps a local matrix; `comm` must have one rank.
  void createSeq(const Local& m, int comm = kCommWorld);
  /// Nothing when rows, cols, comm and device kind agree; else `create`.
  void resize(G rows, G cols, const Device& device, int comm = kCommWorld);

  G getRows() const;
  G getCols() const;
  /// Global rows * cols
  G getSize() const;
  int getComm() const;
  const Device& getDevice() const;
  const Partitioner& getRowPartitioner() const;
  const Partitioner& getColPartitioner() const;
  /// This rank's rows [begin, end); [0, 0) for an empty object.
  void getOwnerShipRange(G* begin, G* end) const;
  /// Handle on the local block; `index` is ignored.
  Local getLocalMatrix(int index = -1) const;
  /// Bytes of this rank's part.
  std::size_t getBytes() const { return getLocalMatrix().getBytes(); }
  /// Installs the one element of `blocks` as the local block.
  void setLocalMatrix(const std::vector<Local>& blocks);
  /// Same rows, cols, partitions, device kind and comm.
  template <class U>
  bool hasShapeOf(const ParMatrixT<U, G, L>& other) const;

  // Elements; nothing travels between ranks.

  /// True when this rank owns row i and both indices fit.
  bool setElementValue(G i, G j, const T& v);
  /// On ranks that do not own row i `*ok` is false and the result 0; `ok` may be null.
  T getElementValue(G i, G j, bool* ok) const;

  // Local arithmetic, see `BlasOps`; the checks are those of `MatrixT`.

  void fill(T v);
  static void scale(T a, ParMatrixT& x);
  ParMatrixT& operator*=(const T& a);
  static void reciprocal(T a, ParMatrixT& x);
  static void pow(T a, ParMatrixT& x);
  static void axpy(T a, const ParMatrixT& x, ParMatrixT& y);
  static void axpby(T a, const ParMatrixT& x, T b, ParMatrixT& y);
  static void axpbypz(T a, const ParMatrixT& x, T b, const ParMatrixT& y, ParMatrixT& z);
  static void axypbz(T a, const ParMatrixT& x, const ParMatrixT& y, T b, ParMatrixT& z);
  static void axpbypcz(T a, const ParMatrixT& x, T b, const ParMatrixT& y, T c, ParMatrixT& z);

  // Copies.

  /// `out` is created anew unless it has this shape (both partitions included) and comm.
  void deepCopy(ParMatrixT& out) const;
  ParMatrixT deepCopy() const;
  /// A copy to the same kind of device shares the storage.
  ParMatrixT toDevice(const Device& d) const;
  void toDevice(const Device& d, ParMatrixT& out) const;
  ParMatrixT<R, G, L> getReal() const;
  ParMatrixT<R, G, L> getImag() const;
  void getReal(ParMatrixT<R, G, L>& out) const;
  void getImag(ParMatrixT<R, G, L>& out) const;
  /// From real and imaginary parts of one shape; an empty part counts as zeros.
  void createComplex(const ParMatrixT<R, G, L>& re, const ParMatrixT<R, G, L>& im);
  /// Shape, partitions, device and comm without data.
  template <class U>
  void copyStructure(ParMatrixT<U, G, L>& out) const;

  // Reductions.

  /// sum of conj(x) * y
  static T dot(const ParMatrixT& x, const ParMatrixT& y);
  /// Sum of |x| to the power p, without a root
  static R absSum(const ParMatrixT& x, R p);
  static R normL2(const ParMatrixT& x);
  static R normL1(const ParMatrixT& x);
  /// Never below the smallest positive normal number
  static R absMax(const ParMatrixT& x);
  /// Only for pointers that are not null, which must be the same on all ranks.
  void min_max_sum(T* min, T* max, T* sum) const;

  // Residuals r = b - A x.

  static void residual_vec(ParMatrixFreeT<T, G, L>& A, const ParMatrixT& x, const ParMatrixT& b,
                           ParMatrixT& r);
  /// The same; returns the 2-norm of r.
  static R residual(ParMatrixFreeT<T, G, L>& A, const ParMatrixT& x, const ParMatrixT& b,
                    ParMatrixT& r);
  static R residual(ParMatrixFreeT<T, G, L>& A, const ParMatrixT& x, const ParMatrixT& b);

  // Moving entries between ranks.

  /// Opens an assembly: any rank may set any entry until `endAssemble` brings each to its owner.
  /// Entries that nobody sets become 0.
  void beginAssemble();
  /// Local, and safe from several threads.
  void setValue(G i, G j, const T& v, SetValueMode mode);
  void setValue(G i, const T& v, SetValueMode mode);
  void endAssemble();
  /// Sums the matrices of all ranks; the global shape is the largest that any rank gives.
  void createByAssemble(const MatrixT<T, G, MatrixLayoutRowMajor>& m, int comm);
  /// Spreads the root's matrix evenly, onto the device that it has there.
  void scatter(int comm, int root, const Local& m);
  /// The same over a given row partition, equal on all ranks.
  void scatter(int comm, int root, const Local& m, const Partitioner& rowPart);
  /// All rows on `root`, an empty matrix elsewhere.
  Local gather(int root) const;

  // Files (`docs/file-formats.md`).

  /// This rank's block in array format.
  void saveToStream(std::ostream& os) const;
  /// One file per rank; on several ranks the name carries size, rank and part.
  void saveToFile(const std::string& name) const;
  /// Rank 0 reads, then the rows are spread evenly. Collective.
  void loadFromStream(std::istream& is, const Device& device, int comm = kCommWorld);
  void loadFromFile(const std::string& name, const Device& device, int comm = kCommWorld);

 private:
  template <class, class, class>
  friend class ParMatrixT;
  struct ParMatrixImpl {
    Device device;
    int comm = kCommWorld;
    G rows = 0;
    G cols = 0;
    Partitioner row_part;
    Partitioner col_part;
    Local local;
    std::shared_ptr<COOMatrixT<T, G, L>> assembly;
  };

  /// A fresh implementation without a local block.
  void createShape(G rows, G cols, const Partitioner& rowPart, const Partitioner& colPart,
                   const Device& device, int comm);
  /// The local block for this rank's rows, content undefined.
  void createLocal();
  /// Equal shape, partitions and comm.
  template <class U>
  bool hasSpreadOf(const ParMatrixT<U, G, L>& other) const;
  /// Gives `out` an implementation of its own of this spread, unless it has one.
  template <class U>
  void copySpread(ParMatrixT<U, G, L>& out) const;
  /// Spreads the root's matrix, evenly when no partition is given; false, without effect, when the
  /// root has none. Collective; `m` is read on the root only.
  bool scatterRows(int comm, int root, const Local* m, const Partitioner* given);

  std::shared_ptr<ParMatrixImpl> impl_;
};

MIVO_EXTERN_VALUES(ParMatrixT, int, int)
MIVO_EXTERN_VALUES(ParMatrixT, long, int)

}  // namespace mivo
