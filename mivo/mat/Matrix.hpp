// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <iosfwd>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "mivo/comu/Stream.hpp"
#include "mivo/ops/MatrixLayout.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/memory.hpp"

namespace mivo {

template <class G, class L>
class PartitionerT;

/// Dense array of one rank on one device: a rows x cols matrix, or a vector as its single column.
///
/// A cheap handle on shared storage: copying a MatrixT shares the data, `deepCopy` duplicates it.
/// Element (i, j) lies at data[i * cols + j]; the storage frees itself with the last handle. The
/// members of "Storage" and "Exchange" work for any plain data type T; the others exist for the six
/// value types with I int and long. Checks end the process; "same device" compares kinds.
template <class T, class I = int, class Layout = MatrixLayoutRowMajor>
class MIVO_API MatrixT {
 public:
  using R = RealType<T>;
  using IndexVector = MatrixT<int, int, MatrixLayoutRowMajor>;

  // Storage.

  MatrixT() { create(0, 0, Device(0, 0)); }
  // A move copies the handle, so that none is ever without storage.
  MatrixT(const MatrixT&) = default;
  MatrixT& operator=(const MatrixT&) = default;

  /// Fresh storage of rows * cols elements on `device`, content undefined; nothing is allocated for
  /// 0.
  void create(I rows, I cols, const Device& device) {
    MIVO_CHECK_AT(rows >= 0 && cols >= 0, "Matrix", 117);
    const std::size_t count = elementCount(rows, cols);
    // `device` may be that of the present storage, which goes with its last handle.
    auto fresh = std::make_shared<MatrixImpl>();
    fresh->rows = rows;
    fresh->cols = cols;
    fresh->device = device;
    fresh->capacity = static_cast<I>(count);
    fresh->data = detail::allocate<T>(device, count, "elements of a dense matrix");
    impl_ = fresh;
  }

  /// Only the shape changes, for all handles, when the elements fit the capacity on the same kind
  /// of device; otherwise `create`. The content is undefined where the count grows.
  void resize(I rows, I cols, const Device& device) {
    if (rows >= 0 && cols >= 0 &&
        elementCount(rows, cols) <= static_cast<std::size_t>(impl_->capacity) &&
        impl_->device.type == device.type) {
      impl_->rows = rows;
      impl_->cols = cols;
    } else {
      create(rows, cols, device);
    }
  }

  I getRows() const { return impl_->rows; }
  I getCols() const { return impl_->cols; }
  /// rows * cols
  I getSize() const { return impl_->rows * impl_->cols; }
  I getCapacity() const { return impl_->capacity; }
  /// Bytes of the array.
  std::size_t getBytes() const { return static_cast<std::size_t>(impl_->capacity) * sizeof(T); }
  /// Device memory of the matrix's device; null for an empty matrix.
  T* getData() const { return impl_->data; }
  const Device& getDevice() const { return impl_->device; }

  /// `out` takes this shape on this device, by `resize`, and a copy of the data; storage that it
  /// shares with this matrix is replaced.
  void deepCopy(MatrixT& out) const {
    const MatrixT source = *this;
    if (out.impl_ == source.impl_) out = MatrixT();
    out.resize(source.getRows(), source.getCols(), source.getDevice());
    source.copyDataTo(out);
  }

  /// A second handle on the same storage when the kind is the matrix's own; otherwise a copy on
  /// `device`.
  MatrixT toDevice(const Device& device) const {
    if (device.type == getDevice().type) return *this;
    MatrixT out;
    out.create(getRows(), getCols(), device);
    copyDataTo(out);
    return out;
  }

  /// The same into `out`, whose storage is reused where it fits.
  void toDevice(const Device& device, MatrixT& out) const {
    if (device.type == getDevice().type) {
      out = *this;
      return;
    }
    const MatrixT source = *this;
    out.resize(source.getRows(), source.getCols(), device);
    source.copyDataTo(out);
  }

  // Exchange between ranks: rows, cols as `int`, then the elements; host memory only.

  int getStreamSize() const {
    const std::size_t bytes = 2 * sizeof(int) + static_cast<std::size_t>(getSize()) * sizeof(T);
    MIVO_CHECK(static_cast<std::size_t>(getRows()) <= kMaxCount &&
               static_cast<std::size_t>(getCols()) <= kMaxCount && bytes <= kMaxCount)
        << "Matrix: " << getRows() << " x " << getCols() << " elements do not fit into one message";
    return static_cast<int>(bytes);
  }
  void packStream(comu::Stream& stream) const {
    const int shape[2] = {static_cast<int>(getRows()), static_cast<int>(getCols())};
    stream.pushBack(shape, sizeof(shape));
    stream.pushBack(getData(), getStreamSize() - static_cast<int>(sizeof(shape)));
  }
  /// Takes a fresh shape on this matrix's device.
  void unpackStream(comu::Stream& stream) {
    int shape[2] = {0, 0};
    stream.popFront(shape, sizeof(shape));
    create(static_cast<I>(shape[0]), static_cast<I>(shape[1]), Device(getDevice()));
    stream.popFront(getData(), getStreamSize() - static_cast<int>(sizeof(shape)));
  }

  // Construction from values.

  /// Host matrix of values drawn evenly from [0, 1) (complex: both parts; integers: 0 to 99), from
  /// a generator of fixed seed that goes on from call to call.
  static MatrixT rand(I rows, I cols);
  /// Host column begin, begin + step, ... below end.
  static MatrixT range(I begin, I end, I step = 1);
  void fill(T value);
  /// Complex matrix from real and imaginary parts of one shape, on the device of `re`; an empty
  /// part counts as zeros. For a real T a copy of `re`.
  void createComplex(const MatrixT<R, I, Layout>& re, const MatrixT<R, I, Layout>& im);

  // Element access and selection.

  /// One element, by a round trip to the device; outside the shape `*ok` is false and the result 0.
  /// `ok` may be null.
  T getElementValue(I i, I j, bool* ok) const;
  /// False, without effect, outside the shape.
  bool setElementValue(I i, I j, const T& value);
  /// Row r of `out` is row indices[r] of this matrix.
  void selectRows(const IndexVector& indices, MatrixT& out) const;
  /// Row indices[r] of this matrix becomes row r of `sub`.
  void unselectRows(const IndexVector& indices, const MatrixT& sub);
  /// Cuts the rows by a partitioner into one host matrix per part.
  template <class G, class L>
  void splitRows(const PartitionerT<G, L>& part, std::vector<MatrixT>& out) const;
  /// Joins one block per part into one matrix with all rows in order, on the device of the first
  /// block with elements.
  template <class G, class L>
  static MatrixT mergeRows(const PartitionerT<G, L>& part, const std::vector<MatrixT>& parts);
  /// Positions of elements that are not exactly zero, ascending, as a column on the matrix's
  /// device.
  MatrixT<I, I, Layout> getNonZeroIndices() const;

  // Arithmetic on whole arrays of equal element count (see `BlasOps`).

  static void axpy(const T& a, const MatrixT& x, MatrixT& y);
  static void axpby(const T& a, const MatrixT& x, const T& b, MatrixT& y);
  static void axpbypz(const T& a, const MatrixT& x, const T& b, const MatrixT& y, MatrixT& z);
  static void axpbypcz(const T& a, const MatrixT& x, const T& b, const MatrixT& y, const T& c,
                       MatrixT& z);
  static void axypbz(T a, const MatrixT& x, const MatrixT& y, T b, MatrixT& z);
  /// sum of conj(x) * y
  static T dot(const MatrixT& x, const MatrixT& y);
  MatrixT& operator+=(const MatrixT& other);

  // Text and files (`docs/file-formats.md`); host memory only.

  /// "[v0, v1, ...]"
  std::string getString() const;
  /// Matrix Market array format; a precision below 1 means 16.
  void saveToStream(std::ostream& os, int precision) const;
  /// By extension: "mtx" as above, "raw" as a plain list, any other leaves an empty file.
  void saveToFile(const std::string& name, int precision) const;
  void loadFromStream(std::istream& is);

 private:
  struct MatrixImpl {
    I rows = 0;
    I cols = 0;
    T* data = nullptr;
    I capacity = 0;
    Device device;

    MatrixImpl() = default;
    MatrixImpl(const MatrixImpl&) = delete;
    MatrixImpl& operator=(const MatrixImpl&) = delete;
    ~MatrixImpl() {
      if (data != nullptr) device.rawFree(data);
    }
  };

  static constexpr std::size_t kMaxCount = std::numeric_limits<int>::max();

  static std::size_t elementCount(I rows, I cols) {
    // Neither the count nor the size in bytes may wrap around, which takes I = long.
    constexpr std::size_t kMost =
        std::min(static_cast<std::size_t>(std::numeric_limits<I>::max()),
                 static_cast<std::size_t>(std::numeric_limits<std::ptrdiff_t>::max()) / sizeof(T));
    const std::size_t r = static_cast<std::size_t>(rows);
    const std::size_t c = static_cast<std::size_t>(cols);
    MIVO_CHECK(c == 0 || r <= kMost / c)
        << "Matrix: " << rows << " x " << cols << " elements exceed the index type";
    return r * c;
  }

  void copyDataTo(MatrixT& out) const {
    const std::size_t bytes = static_cast<std::size_t>(getSize()) * sizeof(T);
    if (bytes > 0) getDevice().rawCopyTo(bytes, getData(), out.getDevice(), out.getData());
  }

  std::shared_ptr<MatrixImpl> impl_;
};

/// Index lists and other integer vectors of one rank.
using IndexVector = MatrixT<int, int, MatrixLayoutRowMajor>;

MIVO_EXTERN_VALUES(MatrixT, int, MatrixLayoutRowMajor)
MIVO_EXTERN_VALUES(MatrixT, long, MatrixLayoutRowMajor)

}  // namespace mivo
